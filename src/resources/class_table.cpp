#include "resources/class_table.h"

#include <string>

#include "resources/calibration.h"
#include "base/text_fields.h"

namespace Resources {

using Base::leadingInteger;
using Base::split;
using Base::trim;

namespace {

// Parses one line (carriage returns already removed). Returns true and fills
// category when the line opens a category; sets isBackground when a field of
// value 0 comes before it.
bool parseLine(std::string_view line, bool& isBackground, CategoryDetails& category) {
    const auto fields = split(line, ',');
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const std::string_view field = trim(fields[i]);
        if (field.empty()) continue;
        const auto identifier = static_cast<std::int32_t>(leadingInteger(field));
        if (identifier == 0) {
            isBackground = true;
            continue;
        }
        category.identifier = identifier;
        category.name = i + 1 < fields.size() ? std::string(trim(fields[i + 1])) : std::string();
        std::vector<CalibrationPoint> points;
        for (std::size_t j = i + 2; j < fields.size(); ++j) {
            const std::string_view point = trim(fields[j]);
            if (!point.empty()) points.push_back(parseCalibrationPoint(point));
        }
        buildCalibration(points, category);
        return true;
    }
    return false;
}

}  // namespace

ClassTable parseClassTable(std::string_view text) {
    ClassTable table;
    std::string line;
    std::int32_t number = 0;
    std::size_t start = 0;
    while (start < text.size()) {
        auto end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        line.clear();
        for (const char c : text.substr(start, end - start)) {
            if (c != '\r') line.push_back(c);
        }
        bool isBackground = false;
        ClassTableCategory category{number, {}};
        if (parseLine(line, isBackground, category.details)) table.categories.push_back(std::move(category));
        if (isBackground) table.backgroundIndex = static_cast<std::uint32_t>(number);
        ++number;
        start = end + 1;
    }
    return table;
}

}  // namespace Resources
