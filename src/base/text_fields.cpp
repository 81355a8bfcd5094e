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

namespace {

// The length of the UTF-8 sequence that starts at text[at], or 0 when none does.
std::size_t sequenceLength(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    std::size_t length = 0;
    std::uint32_t value = 0;
    if (lead < 0x80) return 1;
    if ((lead & 0xE0) == 0xC0) { length = 2; value = lead & 0x1Fu; }
    else if ((lead & 0xF0) == 0xE0) { length = 3; value = lead & 0x0Fu; }
    else if ((lead & 0xF8) == 0xF0) { length = 4; value = lead & 0x07u; }
    else return 0;
    if (at + length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
        value = (value << 6) | (byte(at + i) & 0x3Fu);
    }
    constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kSmallest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
    return length;
}

}  // namespace

std::optional<std::vector<std::string>> splitCodePoints(std::string_view text) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = sequenceLength(text, at);
        if (length == 0) return std::nullopt;
        pieces.emplace_back(text.substr(at, length));
        at += length;
    }
    return pieces;
}

}  // namespace Base
