#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "detectors/findings.h"

namespace Scan {

using Detectors::CategoryScore;
using Detectors::FaceFinding;
using Detectors::TextFinding;

// Writes the compact JSON answer of one scan. The top-level object is open
// from construction; each section is written at most once, in call order.
// Scores keep at most 4 decimal places, cut rather than rounded.
class ResultDocument {
public:
    ResultDocument();

    void writeScanResults(std::vector<CategoryScore>& scores);
    // Each line as "x1,y1,x2,y2,x3,y3,x4,y4,reading".
    void writeTextDetails(std::vector<TextFinding>& texts);
    void writeFaceDetails(std::vector<FaceFinding>& faces);
    void writeImageSize(std::int32_t width, std::int32_t height);
    void writeErrorText(const std::string& errorText);
    void writeVerdict(bool passed);
    std::string finish();

private:
    void key(const char* name);
    void string(const std::string& text);

    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_;
    bool scanResultsWritten_ = false;
    bool textDetailsWritten_ = false;
    bool faceDetailsWritten_ = false;
    bool verdictWritten_ = false;
    bool errorTextWritten_ = false;
    bool objectOpen_ = true;
};

}  // namespace Scan
