// Fuzz target: ScanImage with any category list and image size, over
// generated classifier, face and text networks loaded once. The first four
// bytes give width and height (-8 to 119); the rest is the category list.
// Every answer must be one well-formed JSON object.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <rapidjson/document.h>

#include "nubex_engine.h"
#include "support/fuzz_resources.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = testing_support::prepareFuzzEngine();
    if (!ready || size < 4) return 0;
    const int width = static_cast<int>((data[0] | data[1] << 8) % 128) - 8;
    const int height = static_cast<int>((data[2] | data[3] << 8) % 128) - 8;
    const std::string categories(reinterpret_cast<const char*>(data + 4), size - 4);
    const std::size_t rowBytes = width > 0 ? static_cast<std::size_t>(width) * 3 + width % 4 : 0;
    std::vector<std::uint8_t> pixels(rowBytes * static_cast<std::size_t>(height > 0 ? height : 0) + 1, 0x5a);
    std::vector<float> scores(categories.size() + 1, 0.0f);
    char* document = ScanImage(pixels.data(), static_cast<int32_t>(pixels.size()), width, height,
                               categories.c_str(), scores.data(), 10.0f);
    if (document == nullptr) std::abort();
    rapidjson::Document parsed;
    if (parsed.Parse(document).HasParseError() || !parsed.IsObject() || !parsed.HasMember("result")) std::abort();
    ReleaseNubexMemory(document);
    return 0;
}
