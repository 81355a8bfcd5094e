#pragma once

#include <string_view>

namespace Base {

// A copy of the text in a zeroed calloc buffer of length + 1 bytes, for the
// host to free with ReleaseNubexMemory. Null only when memory is exhausted.
char* makeOwnedText(std::string_view text);

}  // namespace Base
