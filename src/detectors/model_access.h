#pragma once

#include <cstdint>
#include <memory>

#include "inference/loaded_model.h"

namespace Detectors {

// The loaded model of the first registered resource with the identifier, or
// null when it is not registered or has no usable network. The caller's
// reference keeps the model (and its request pool) alive while it works.
std::shared_ptr<Inference::LoadedModel> usableModel(std::uint32_t identifier);

}  // namespace Detectors
