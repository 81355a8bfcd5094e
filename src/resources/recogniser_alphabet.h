#pragma once

#include <string_view>

namespace Resources {

// The symbols a text recognition network scores, in order: digits,
// lower-case letters and the blank "#" last. Its class dimension must have
// exactly this length.
inline constexpr std::string_view kAlphabet = "0123456789abcdefghijklmnopqrstuvwxyz#";
inline constexpr char kBlankSymbol = '#';

}  // namespace Resources
