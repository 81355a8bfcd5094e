#pragma once

#include <cstdint>
#include <memory>
#include <string>

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

struct ModelFiles {
    std::string folder;
    std::string networkFile;
    std::string weightsFile;
};

// The input and output element types a resource is loaded with, chosen by its
// identifier: FP32 input for the text networks (9112, 19112), U8 input and
// FP32 output for faces (8337), U8 input for every other network.
struct ModelPrecisions {
    ov::element::Type input = ov::element::u8;
    ov::element::Type output = ov::element::u8;
};
ModelPrecisions precisionsFor(std::uint32_t identifier);

// Deciphers the network and its weights from the folder, checks the network
// (one input; the face output shapes when the output is FP32), fixes batch 1
// and NCHW input, and compiles it for the CPU. Failures are logged to the
// error and the information streams; the result is then null.
std::shared_ptr<LoadedModel> loadModel(ov::Core& core, std::uint32_t identifier, const ModelFiles& files,
                                       const ModelPrecisions& precisions);

// Loads the model and gives it a pool of requestCount requests.
std::shared_ptr<LoadedModel> loadModelWithPool(ov::Core& core, std::uint32_t identifier, const ModelFiles& files,
                                               std::size_t requestCount);

// How many networks this process has compiled (for diagnostics and tests).
std::size_t modelsLoaded();

}  // namespace Inference
