#pragma once

#include <string>

#include "inference/loaded_model.h"
#include "inference/model_loader.h"
#include "resources/class_table.h"
#include "resources/resource_kind.h"

namespace Nubex {

// How the network of each kind is loaded: the text networks take f32 input,
// every other network u8 input; a face network's outputs are checked and
// read as f32. The checks throw the messages a load
// reports.
Inference::LoadOptions loadOptionsFor(Resources::ResourceKind kind);

// Checks a loaded network against what the detector of its kind reads:
//   every kind      one input [1, 1 or 3, H, W]; H and W may be dynamic
//   classifier      one output whose classes cover every class-table line
//   face            one DetectionOutput [1, 1, N, 7]
//   text-detection  outputs of 2 and 16 channels (pixels and links), or one of 5 columns (boxes)
//   text-recognition one output [T, 1, 37] over the fixed alphabet, or [T, 1, symbols + 1]
//                    over a declared one; with a dynamic width (its height fixed) the batch
//                    may be dynamic too, [N, C, H, ?] -> [T, N, classes]
// and what it declares: an alphabet only on a recogniser, letterboxing only on
// a fixed-size classifier or face network.
// Returns an empty text when it fits, else what does not.
std::string checkNetworkContract(const Inference::LoadedModel& model, Resources::ResourceKind kind,
                                 const Resources::ClassTable& table);

// "classifier", "face", "text-detection", "text-presence", "text-recognition".
const char* kindName(Resources::ResourceKind kind);
// Throws std::runtime_error for a name that is none of those.
Resources::ResourceKind kindNamed(const std::string& name);

}  // namespace Nubex
