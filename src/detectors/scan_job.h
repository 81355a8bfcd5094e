#pragma once

#include <cstdint>
#include <vector>

namespace Detectors {

// The work of one detector group in one scan. The group is the identifier of
// the resource that serves the categories; each category reads the network
// output class given by its slot (its class-table line).
struct ScanJob {
    std::uint32_t group = 0;
    std::vector<std::int32_t> slots;
    std::vector<std::int32_t> categories;
    bool keepAspectRatio = false;  // letterbox instead of stretching
};

}  // namespace Detectors
