#pragma once

#include <cstdint>

namespace Resources {

// Resource identifiers with a fixed meaning in the engine.
inline constexpr std::uint32_t kFaceDetectionId = 8337;
inline constexpr std::uint32_t kTextDetectionId = 9112;
inline constexpr std::uint32_t kTextPresenceId = 9113;
inline constexpr std::uint32_t kTextRecognitionId = 19112;

// What the engine runs a resource's network as. A detector group of a scan
// is named by a resource identifier, so this also chooses the scan's worker:
// the text worker for TextDetection, the face worker for Face, the category
// classifier for every other kind.
enum class ResourceKind { Classifier, Face, TextDetection, TextPresence, TextRecognition };

constexpr ResourceKind kindOf(std::uint32_t resourceIdentifier) {
    switch (resourceIdentifier) {
        case kFaceDetectionId: return ResourceKind::Face;
        case kTextDetectionId: return ResourceKind::TextDetection;
        case kTextPresenceId: return ResourceKind::TextPresence;
        case kTextRecognitionId: return ResourceKind::TextRecognition;
        default: return ResourceKind::Classifier;
    }
}

}  // namespace Resources
