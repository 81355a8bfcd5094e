// Fuzz target: the details line and the number readers behind it.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "resources/details_line.h"
#include "base/text_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto details = Resources::parseDetailsLine(text)) {
        (void)Resources::firstWord(details->name);
    }
    (void)Base::leadingInteger(text);
    (void)Base::leadingFloat(text);
    return 0;
}
