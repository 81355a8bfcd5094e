// Fuzz target: the details line and the number readers behind it.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "resources/details_line.h"
#include "resources/text_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto details = Resources::parseDetailsLine(text)) {
        (void)Resources::firstWord(details->name);
    }
    (void)Resources::leadingInteger(text);
    (void)Resources::leadingFloat(text);
    return 0;
}
