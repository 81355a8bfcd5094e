#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Base {

// The blank characters trimmed from both ends of every field: tab, line feed,
// vertical tab, form feed, carriage return and space.
inline constexpr std::string_view kBlankCharacters = "\t\n\v\f\r ";

std::string_view trim(std::string_view text);

// Splits at every separator; n separators give n + 1 pieces.
std::vector<std::string_view> split(std::string_view text, char separator);

// Reads an optional sign and the leading decimal digits, as atoi does; text
// without digits gives 0. Overflow wraps around modulo 2^32 instead of being
// undefined.
std::uint32_t leadingInteger(std::string_view text);

// Reads the leading decimal floating-point number (leading blanks skipped,
// independent of the C locale); text without a number gives 0.
float leadingFloat(std::string_view text);

// The code points of UTF-8 text, one piece each; nothing for text that is not
// well-formed UTF-8 (overlong forms, surrogates and values past U+10FFFF included).
std::optional<std::vector<std::string>> splitCodePoints(std::string_view text);

}  // namespace Base
