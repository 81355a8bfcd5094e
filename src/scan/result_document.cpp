#include "scan/result_document.h"

#include <cstring>

namespace Scan {

namespace {

constexpr std::size_t kInitialCapacity = 256;
constexpr int kMaxDecimalPlaces = 4;

}  // namespace

ResultDocument::ResultDocument() : buffer_(nullptr, kInitialCapacity), writer_(buffer_) {
    writer_.SetMaxDecimalPlaces(kMaxDecimalPlaces);
    writer_.StartObject();
}

void ResultDocument::key(const char* name) { writer_.Key(name, static_cast<rapidjson::SizeType>(std::strlen(name))); }

// Texts are copied up to their first zero byte.
void ResultDocument::string(const std::string& text) {
    writer_.String(text.c_str(), static_cast<rapidjson::SizeType>(std::strlen(text.c_str())));
}

void ResultDocument::writeScanResults(std::vector<CategoryScore>& scores) {
    if (scanResultsWritten_) return;
    scanResultsWritten_ = true;
    key("scan_result");
    writer_.StartArray();
    for (const auto& score : scores) {
        writer_.StartObject();
        writer_.Key(score.name.c_str(), static_cast<rapidjson::SizeType>(std::strlen(score.name.c_str())));
        writer_.Double(static_cast<double>(score.score));
        writer_.EndObject();
    }
    writer_.EndArray();
    scores.clear();
}

void ResultDocument::writeTextDetails(std::vector<TextFinding>& texts) {
    if (textDetailsWritten_) return;
    textDetailsWritten_ = true;
    key("text_details");
    writer_.StartArray();
    for (const auto& text : texts) {
        std::string line;
        for (const auto& corner : text.corners) line += std::to_string(corner.x) + ',' + std::to_string(corner.y) + ',';
        string(line + text.reading);
    }
    writer_.EndArray();
    texts.clear();
}

void ResultDocument::writeFaceDetails(std::vector<FaceFinding>& faces) {
    if (faceDetailsWritten_) return;
    faceDetailsWritten_ = true;
    key("face_details");
    writer_.StartArray();
    for (const auto& face : faces) {
        writer_.StartObject();
        key("score");
        writer_.Double(static_cast<double>(face.score));
        key("location");
        writer_.StartObject();
        key("vertices");
        writer_.StartArray();
        // Top-left, top-right, bottom-left, bottom-right; "y" before "x".
        const std::int32_t corners[4][2] = {
            {face.top, face.left}, {face.top, face.right}, {face.bottom, face.left}, {face.bottom, face.right}};
        for (const auto& corner : corners) {
            writer_.StartObject();
            key("y");
            writer_.Int(corner[0]);
            key("x");
            writer_.Int(corner[1]);
            writer_.EndObject();
        }
        writer_.EndArray();
        writer_.EndObject();
        writer_.EndObject();
    }
    writer_.EndArray();
    faces.clear();
}

void ResultDocument::writeImageSize(std::int32_t width, std::int32_t height) {
    key("img_width");
    writer_.Int(width);
    key("img_height");
    writer_.Int(height);
}

void ResultDocument::writeErrorText(const std::string& errorText) {
    if (errorTextWritten_) return;
    errorTextWritten_ = true;
    key("error_code");
    string(errorText);
}

void ResultDocument::writeVerdict(bool passed) {
    if (verdictWritten_) return;
    verdictWritten_ = true;
    key("result");
    writer_.String(passed ? "True" : "False");
}

std::string ResultDocument::finish() {
    if (objectOpen_) {
        writer_.EndObject();
        objectOpen_ = false;
    }
    return std::string(buffer_.GetString(), buffer_.GetSize());
}

}  // namespace Scan
