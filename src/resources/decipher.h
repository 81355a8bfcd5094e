#pragma once

#include <cstddef>
#include <cstdint>

namespace Resources {

// Resource files are enciphered with a repeating 32-byte key that starts over
// at every file. The operation is its own inverse, so it also enciphers.
inline constexpr char kResourceKey[] = "5f0c2e9a7b1d48e3a6c04f92d1b8e7a3";

// XORs the bytes in place; byte i uses key byte i mod 32.
void decipherInPlace(std::uint8_t* bytes, std::size_t length);

}  // namespace Resources
