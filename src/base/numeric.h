#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace Base {

// Converts toward zero like a cast, but saturates instead of being undefined
// for values a network should never produce (infinities, NaN, huge values).
inline std::int32_t truncateToInt(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
    if (value <= -2147483648.0) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(value);
}

}  // namespace Base
