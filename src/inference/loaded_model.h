#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <openvino/core/model.hpp>
#include <openvino/runtime/compiled_model.hpp>

#include "inference/infer_requests_queue.h"

namespace Inference {

// A network once loaded: the model, its one input, the network compiled for
// the CPU and its pool of requests. The deciphered weights stay alive with
// the model, whose constants may point into them.
class LoadedModel {
public:
    std::vector<std::uint8_t> weights;
    std::shared_ptr<ov::Model> model;
    std::string inputName;
    ov::Shape inputShape;  // [N, C, H, W]
    ov::element::Type inputType;
    ov::CompiledModel compiled;
    // Declared last: destroyed first, after waiting for requests in flight.
    std::unique_ptr<InferRequestsQueue> pool;

    std::size_t outputCount() const { return compiled.outputs().size(); }
    // Input dimension i of [N, C, H, W], or 0 when the input has fewer.
    std::size_t inputDimension(std::size_t i) const { return i < inputShape.size() ? inputShape[i] : 0; }
};

}  // namespace Inference
