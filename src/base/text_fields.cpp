#include "base/text_fields.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace Base {

std::string_view trim(std::string_view text) {
    const auto first = text.find_first_not_of(kBlankCharacters);
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(kBlankCharacters);
    return text.substr(first, last - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (;;) {
        const auto end = text.find(separator, start);
        if (end == std::string_view::npos) {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::uint32_t leadingInteger(std::string_view text) {
    std::size_t position = text.find_first_not_of(kBlankCharacters);
    if (position == std::string_view::npos) return 0;
    bool negative = false;
    if (text[position] == '+' || text[position] == '-') {
        negative = text[position] == '-';
        ++position;
    }
    std::uint32_t value = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
        value = value * 10u + static_cast<std::uint32_t>(text[position] - '0');
    }
    return negative ? 0u - value : value;
}

float leadingFloat(std::string_view text) {
    std::size_t position = text.find_first_not_of(kBlankCharacters);
    if (position == std::string_view::npos) return 0.0f;
    if (text[position] == '+' && position + 1 < text.size() && text[position + 1] != '-') ++position;
    double value = 0.0;
    const auto result = std::from_chars(text.data() + position, text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        // As strtod does: an overflow keeps its sign, an underflow gives 0.
        const std::string_view number(text.data() + position, static_cast<std::size_t>(result.ptr - text.data()) - position);
        const auto exponent = number.find_first_of("eE");
        if (exponent != std::string_view::npos && number.substr(exponent + 1).starts_with('-')) return 0.0f;
        return number.starts_with('-') ? -HUGE_VALF : HUGE_VALF;
    }
    if (result.ec != std::errc()) return 0.0f;
    if (std::fabs(value) > std::numeric_limits<float>::max()) return value < 0 ? -HUGE_VALF : HUGE_VALF;
    return static_cast<float>(value);
}

}  // namespace Base
