#include "resources/calibration.h"

#include "base/text_fields.h"

namespace Resources {

using Base::leadingFloat;
using Base::split;

CalibrationPoint parseCalibrationPoint(std::string_view field) {
    CalibrationPoint point;
    bool first = true;
    for (const std::string_view token : split(field, '=')) {
        if (token.empty()) continue;
        (first ? point.raw : point.published) = leadingFloat(token);
        first = false;
    }
    return point;
}

void buildCalibration(const std::vector<CalibrationPoint>& points, CategoryDetails& category) {
    category.x.clear();
    category.y.clear();
    category.s.clear();
    if (points.empty()) return;
    category.x.push_back(0.0f);
    category.y.push_back(0.0f);
    CalibrationPoint previous{-0.000001f, -0.000001f};
    auto appendSlope = [&category](float slope) {
        if (slope != 0.0f) category.s.push_back(slope);
    };
    for (const CalibrationPoint& point : points) {
        appendSlope((point.raw - previous.raw) / (point.published - previous.published));
        category.x.push_back(point.raw);
        category.y.push_back(point.published);
        previous = point;
    }
    appendSlope((100.0f - previous.raw) / (100.0f - previous.published));
}

float calibrate(const CategoryDetails& category, float rawScore) {
    const std::size_t count = category.x.size();
    if (count == 0) return rawScore;
    std::size_t chosen = count - 1;
    for (std::size_t k = 0; k + 1 < count; ++k) {
        if (category.x[k] <= rawScore && rawScore < category.x[k + 1]) {
            chosen = k;
            break;
        }
    }
    const float slope = chosen < category.s.size() ? category.s[chosen] : 1.0f;
    const float y0 = chosen < category.y.size() ? category.y[chosen] : 0.0f;
    return y0 + (rawScore - category.x[chosen]) / slope;
}

}  // namespace Resources
