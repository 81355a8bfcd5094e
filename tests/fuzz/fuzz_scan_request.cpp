// Fuzz target: ScanImage with any image size, dimensions, text threshold,
// category list and pixels, over generated classifier, face and text networks
// loaded once. The input is
//   byte 0       how imageSize is chosen: 0 the rows' size, 1 zero, 2 the
//                rows' size plus a signed 16-bit offset (bytes 5-6), 3 the
//                32-bit value of bytes 5-8
//   bytes 1-4    width and height (16 bits each): -8 to 400, or one of a set
//                of extreme values (zero, negative, INT_MIN, INT_MAX, ...)
//                when the top bit is set
//   bytes 5-8    the size value or offset (little-endian)
//   bytes 9-12   the text threshold's bits (any float: NaN, infinities, ...)
//   then         the category list up to the first newline; the rest gives
//                the pixels, repeated over the buffer
// The buffer is exactly as long as imageSize says (the rows' size for zero,
// nothing for a negative size), so the sanitizer sees any read past it.
// Every answer must be one well-formed JSON object.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <rapidjson/document.h>

#include "nubex_engine.h"
#include "support/fuzz_resources.h"

namespace {

constexpr std::size_t kHeaderBytes = 13;
constexpr std::int64_t kMaxBufferBytes = 1 << 20;  // larger claims are not tried

std::int32_t dimension(const std::uint8_t* bytes) {
    static const std::int32_t extremes[] = {0, -1, 1, 2, INT_MIN, INT_MAX, INT_MAX / 3, INT_MAX / 4 + 1,
                                            46341, 65536, 1 << 20, -400};
    const unsigned code = bytes[0] | bytes[1] << 8;
    if (code & 0x8000) return extremes[(code & 0x7fff) % std::size(extremes)];
    return static_cast<std::int32_t>(code % 409) - 8;
}

std::uint32_t word(const std::uint8_t* bytes) {
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

// The bytes the rows take (BGR rows padded with width mod 4 bytes), at most
// 2^40, or -1.
std::int64_t rowsSize(std::int32_t width, std::int32_t height) {
    if (width < 1 || height < 1) return -1;
    const std::uint64_t bytes = (static_cast<std::uint64_t>(width) * 3 + width % 4) * static_cast<std::uint64_t>(height);
    return static_cast<std::int64_t>(std::min<std::uint64_t>(bytes, std::uint64_t{1} << 40));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = testing_support::prepareFuzzEngine();
    if (!ready || size < kHeaderBytes) return 0;
    const std::int32_t width = dimension(data + 1);
    const std::int32_t height = dimension(data + 3);
    const std::int64_t rows = rowsSize(width, height);
    const std::uint32_t value = word(data + 5);
    std::int64_t claimed = 0;
    switch (data[0] % 4) {
        case 0: claimed = rows > INT32_MAX ? 0 : std::max<std::int64_t>(rows, 0); break;
        case 1: claimed = 0; break;
        case 2: claimed = std::max<std::int64_t>(rows, 0) + static_cast<std::int16_t>(value & 0xffff); break;
        default: claimed = static_cast<std::int32_t>(value); break;
    }
    if (claimed > INT32_MAX || claimed < INT32_MIN) return 0;
    // Zero stands for the rows' size: the buffer must then hold them.
    const std::int64_t length = claimed > 0 ? claimed : (claimed == 0 ? std::max<std::int64_t>(rows, 0) : 0);
    if (length > kMaxBufferBytes) return 0;
    float threshold = 0.0f;
    std::memcpy(&threshold, data + 9, sizeof threshold);

    const char* text = reinterpret_cast<const char*>(data + kHeaderBytes);
    const std::size_t rest = size - kHeaderBytes;
    const std::size_t listLength = std::find(text, text + rest, '\n') - text;
    const std::string categories(text, listLength);
    const std::uint8_t* pattern = data + kHeaderBytes + std::min(rest, listLength + 1);
    const std::size_t patternLength = data + size - pattern;

    const auto pixels = std::make_unique<std::uint8_t[]>(static_cast<std::size_t>(length));
    for (std::int64_t i = 0; i < length; ++i) pixels[i] = patternLength == 0 ? 0x5a : pattern[i % patternLength];
    std::vector<float> scores(categories.size() + 1, 0.0f);
    char* document = ScanImage(pixels.get(), static_cast<std::int32_t>(claimed), width, height, categories.c_str(),
                               scores.data(), threshold);
    if (document == nullptr) std::abort();
    rapidjson::Document parsed;
    if (parsed.Parse(document).HasParseError() || !parsed.IsObject() || !parsed.HasMember("result")) std::abort();
    ReleaseNubexMemory(document);
    return 0;
}
