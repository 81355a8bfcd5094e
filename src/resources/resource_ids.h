#pragma once

#include <cstdint>

namespace Resources {

// Resource identifiers with a fixed meaning in the engine.
inline constexpr std::uint32_t kFaceDetectionId = 8337;
inline constexpr std::uint32_t kTextDetectionId = 9112;
inline constexpr std::uint32_t kTextPresenceId = 9113;
inline constexpr std::uint32_t kTextRecognitionId = 19112;

}  // namespace Resources
