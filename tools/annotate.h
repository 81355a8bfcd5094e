#pragma once

#include <string>

#include <opencv2/core.hpp>

namespace Tools {

// Draws the faces (squares with their scores) and the lines of text (their
// boxes with the words read) of a result document over a copy of the image.
cv::Mat annotate(const cv::Mat& image, const std::string& document);

}  // namespace Tools
