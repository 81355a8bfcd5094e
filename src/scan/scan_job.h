#pragma once

#include <cstdint>
#include <vector>

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

// Resource identifiers with a fixed meaning.
inline constexpr std::uint32_t kFaceDetectionId = 8337;
inline constexpr std::uint32_t kTextDetectionId = 9112;
inline constexpr std::uint32_t kTextPresenceId = 9113;
inline constexpr std::uint32_t kTextRecognitionId = 19112;

}  // namespace Scan
