#include "base/owned_text.h"

#include <cstdlib>
#include <cstring>

namespace Base {

char* makeOwnedText(std::string_view text) {
    auto* buffer = static_cast<char*>(std::calloc(text.size() + 1, 1));
    if (buffer != nullptr && !text.empty()) std::memcpy(buffer, text.data(), text.size());
    return buffer;
}

}  // namespace Base
