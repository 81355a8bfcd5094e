#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace Detectors {

// One reading with its four corners, as "x1,y1,x2,y2,x3,y3,x4,y4,reading".
struct TextFinding {
    std::array<cv::Point, 4> corners;
    std::string reading;
};

// The finding line of a region: corners truncated and clamped to the image.
std::string findingLine(const std::array<cv::Point2f, 4>& corners, cv::Size imageSize, const std::string& reading);

std::optional<TextFinding> parseFindingLine(const std::string& line);
std::string formatFinding(const TextFinding& finding);

// Turns the word findings of the working image into lines of text of the
// scanned image: corners are scaled from the working size to the image size;
// findings are ordered top to bottom and grouped into rows (a finding whose
// vertical midpoint lies outside the previous one's box starts a new row);
// each row, ordered left to right, is cut where the gap to the previous word
// exceeds 0.75 of its height. Each group becomes one line: its words joined
// by single spaces, with the corners of the group's bounding box (top-left,
// top-right, bottom-right, bottom-left).
std::vector<std::string> groupTextLines(const std::vector<std::string>& findings, cv::Size workingSize,
                                        cv::Size imageSize);

}  // namespace Detectors
