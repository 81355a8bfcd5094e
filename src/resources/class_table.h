#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "resources/resource_info.h"

namespace Resources {

// A category declared by one class-table line, with the line's number (the
// network output class that scores it).
struct ClassTableCategory {
    std::int32_t line = 0;
    CategoryDetails details;
};

struct ClassTable {
    std::uint32_t backgroundIndex = 0;  // last line with a field whose value is 0
    std::vector<ClassTableCategory> categories;
};

// Parses a class table: one line per network output class, numbered from 0,
// blank lines included. Fields are separated by "," and trimmed:
//   0, Neutral                  the background line
//   14, Drinks, 50=30, 80=60    category 14, its name, calibration points
ClassTable parseClassTable(std::string_view text);

}  // namespace Resources
