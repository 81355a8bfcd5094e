// Fuzz target: the class table, its calibration points and the calibration
// of scores through them.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "resources/calibration.h"
#include "resources/class_table.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const Resources::ClassTable table = Resources::parseClassTable(text);
    for (const auto& category : table.categories) {
        for (const float score : {-1.0f, 0.0f, 1.0f, 50.0f, 99.0f, 100.0f, 1e30f, NAN}) {
            (void)Resources::calibrate(category.details, score);
        }
    }
    return 0;
}
