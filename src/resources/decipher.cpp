#include "resources/decipher.h"

namespace Resources {

void decipherInPlace(std::uint8_t* bytes, std::size_t length) {
    constexpr std::size_t kKeyLength = sizeof(kResourceKey) - 1;
    static_assert(kKeyLength == 32, "the key is 32 characters");
    std::size_t i = 0;
    // Whole key-sized blocks first: a fixed-length inner loop the compiler vectorises.
    for (; i + kKeyLength <= length; i += kKeyLength) {
        for (std::size_t k = 0; k < kKeyLength; ++k) bytes[i + k] ^= static_cast<std::uint8_t>(kResourceKey[k]);
    }
    for (std::size_t k = 0; i < length; ++i, ++k) bytes[i] ^= static_cast<std::uint8_t>(kResourceKey[k]);
}

}  // namespace Resources
