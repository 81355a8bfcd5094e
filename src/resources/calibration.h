#pragma once

#include <string_view>
#include <vector>

#include "resources/resource_info.h"

namespace Resources {

struct CalibrationPoint {
    float raw = 0.0f;        // a: the network's percentage
    float published = 0.0f;  // b: the percentage reported for it
};

// "a=b": the first non-empty token is a, the last later one b; missing values are 0.
CalibrationPoint parseCalibrationPoint(std::string_view field);

// Builds X, Y and S of a category from its points in file order. X and Y start
// at 0; the first slope is taken from (-1e-6, -1e-6); a closing slope leads to
// (100, 100). Zero slopes are left out of S, so later slopes move up.
void buildCalibration(const std::vector<CalibrationPoint>& points, CategoryDetails& category);

// Maps a raw percentage through a category's calibration. A score inside
// [X[k], X[k+1]) uses segment k; every other score uses the last point and the
// closing slope. Without points the score is returned unchanged. A slope that
// S lacks (zero slopes were left out) counts as 1.
float calibrate(const CategoryDetails& category, float rawScore);

}  // namespace Resources
