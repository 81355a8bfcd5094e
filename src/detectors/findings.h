#pragma once

#include <array>
#include <cstdint>
#include <string>

#include <opencv2/core/types.hpp>

namespace Detectors {

// The score of one category, under the name the category lines give it.
struct CategoryScore {
    std::string name;
    float score = 0.0f;
};

// A face square in image pixels (not clamped to the image).
struct FaceFinding {
    std::int32_t label = 0;
    float score = 0.0f;
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
};

// A line of text: its box's four corners (top-left, top-right, bottom-right,
// bottom-left) and its words separated by single spaces.
struct TextFinding {
    std::array<cv::Point, 4> corners;
    std::string reading;
};

}  // namespace Detectors
