#pragma once

#include <cstdint>
#include <string>

#include "inference/loaded_model.h"
#include "resources/class_table.h"

namespace Tools {

enum class NetworkKind { Classifier, Face, TextDetection, TextRecognition };

// The kind the engine runs a resource as, from its identifier.
NetworkKind networkKindFor(std::uint32_t identifier);
NetworkKind parseNetworkKind(const std::string& name);
const char* networkKindName(NetworkKind kind);

// Checks a loaded network against what the engine's detector of that kind
// reads. Returns an empty text when it fits, else what does not.
std::string checkNetworkContract(const Inference::LoadedModel& model, NetworkKind kind,
                                 const Resources::ClassTable& table);

}  // namespace Tools
