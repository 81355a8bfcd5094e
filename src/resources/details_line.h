#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Resources {

// The first line of a resource's details file:
//   identifier, name, version[, flag]
// Only the literal flag "1" stores 0; anything else, or no flag, stores 1.
struct DetailsLine {
    std::uint32_t identifier = 0;
    std::string name;
    std::string version;
    std::int32_t enabled = 1;
};

// Nothing when the first line is empty or lacks identifier, name or version.
std::optional<DetailsLine> parseDetailsLine(std::string_view text);

// The set key of a resource: its name up to the first space.
std::string_view firstWord(std::string_view name);

}  // namespace Resources
