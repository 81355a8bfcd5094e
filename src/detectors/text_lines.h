#pragma once

#include <array>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "detectors/findings.h"

namespace Detectors {

// The finding of one region read in the working image: its corners
// truncated and clamped to the image, and its reading.
TextFinding regionFinding(const std::array<cv::Point2f, 4>& corners, cv::Size imageSize, std::string reading);

// Turns the word findings of the working image into lines of text of the
// scanned image: corners are scaled from the working size to the image size;
// findings are ordered top to bottom and grouped into rows (a finding whose
// vertical midpoint lies outside the previous one's box starts a new row);
// each row, ordered left to right, is cut where the gap to the previous word
// exceeds 0.75 of its height. Each group becomes one line: its words joined
// by single spaces, with the corners of the group's bounding box (top-left,
// top-right, bottom-right, bottom-left).
std::vector<TextFinding> groupTextLines(const std::vector<TextFinding>& findings, cv::Size workingSize,
                                        cv::Size imageSize);

}  // namespace Detectors
