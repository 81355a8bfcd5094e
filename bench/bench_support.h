#pragma once

// Helpers shared by the benchmarks.

#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>

#include <openvino/runtime/infer_request.hpp>

#include "engine/process_state.h"

namespace bench {

inline double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A request of the engine's compiled network for the resource, outside its
// pool, with an input of the right shape.
inline ov::InferRequest bareRequest(std::uint32_t resource) {
    const auto model = Nubex::engine().model(resource);
    ov::InferRequest request = model->compiled.create_infer_request();
    ov::Tensor input(model->inputType, model->inputShape);
    std::memset(input.data(), 100, input.get_byte_size());
    request.set_input_tensor(input);
    return request;
}

}  // namespace bench
