#pragma once

#include <cstdint>
#include <vector>

#include "resources/resource_ids.h"

namespace Scan {

// The work of one detector group in one scan. The group is the identifier of
// the resource that serves the categories; each category reads the network
// output class given by its slot (its class-table line).
struct ScanJob {
    std::uint32_t group = 0;
    std::vector<std::int32_t> slots;
    std::vector<std::int32_t> categories;
    int stage = 0;                 // 0 first stage, 1 second stage
    bool keepAspectRatio = false;  // letterbox instead of stretching
};

using Resources::kFaceDetectionId;
using Resources::kTextDetectionId;
using Resources::kTextPresenceId;
using Resources::kTextRecognitionId;

}  // namespace Scan
