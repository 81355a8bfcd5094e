#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <openvino/core/model.hpp>
#include <openvino/core/type/element_type.hpp>

#include "inference/loaded_model.h"

namespace ov {
class Core;
}

namespace Inference {

// The most elements any input or output of a network may hold: 2^24, eight
// times the largest input of the default pack (the text detector's
// 3 x 736 x 992). Every pooled request holds its own tensors, so larger
// networks are refused at load time.
inline constexpr std::uint64_t kMaxTensorElements = std::uint64_t{1} << 24;

// A network as its resource holds it, deciphered: the description (IR text)
// and the weights it refers to.
struct NetworkData {
    std::string description;
    std::vector<std::uint8_t> weights;
};

// How a network is prepared: the element type its input is fed with, and a
// check of its outputs that throws what does not fit and returns the outputs
// to read as f32 (none: the outputs keep the types the network declares).
// With keepsDynamicBatch, a network whose input size is dynamic keeps a
// dynamic batch (several regions per request); every other input gets a
// batch of 1.
struct LoadOptions {
    ov::element::Type inputType = ov::element::u8;
    bool keepsDynamicBatch = false;
    std::function<std::vector<std::string>(const ov::Model&)> checkOutputs;
};

// Reads the network and what it declares (NetworkDeclarations), checks it
// (one input of 4 dimensions whose channels are fixed, whose height and width
// may be dynamic; the options' output check; sizes within kMaxTensorElements),
// fixes a batch of 1 and NCHW input of the options' type, and compiles it for
// the CPU. The weights stay with the loaded model.
// Failures are logged to the error and the information streams; the result
// is then null.
std::shared_ptr<LoadedModel> loadModel(ov::Core& core, NetworkData data, const LoadOptions& options);

// Loads the model and gives it a pool of requestCount requests.
std::shared_ptr<LoadedModel> loadModelWithPool(ov::Core& core, NetworkData data, const LoadOptions& options,
                                               std::size_t requestCount);

}  // namespace Inference
