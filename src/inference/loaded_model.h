#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <openvino/core/model.hpp>
#include <openvino/runtime/compiled_model.hpp>

#include "inference/infer_requests_queue.h"

namespace Inference {

// What a network declares beyond its shapes, in the section "nubex" of its
// IR's rt_info. A network without the section declares nothing.
struct NetworkDeclarations {
    // "alphabet": a recogniser's symbols in class order, one code point each;
    // the blank is the class after the last. Empty when not declared.
    std::vector<std::string> alphabet;
    // "resize" = "letterbox": a fixed-size input is fed the picture scaled
    // uniformly and centred on black margins instead of stretched.
    bool letterbox = false;
    // "stride": the multiple that the sizes of a dynamic input are rounded to.
    int stride = kDefaultStride;

    static constexpr int kDefaultStride = 32;
    static constexpr int kLargestStride = 1024;
};

// A network once loaded: the model, its one input, the network compiled for
// the CPU and its pool of requests. The deciphered weights stay alive with
// the model, whose constants may point into them.
class LoadedModel {
public:
    std::vector<std::uint8_t> weights;
    std::shared_ptr<ov::Model> model;
    std::string inputName;
    ov::Shape inputShape;  // [N, C, H, W]; 0 for a dimension that is dynamic
    ov::PartialShape inputPartialShape;
    NetworkDeclarations declared;
    ov::element::Type inputType;
    ov::CompiledModel compiled;
    // Declared last: destroyed first, after waiting for requests in flight.
    std::unique_ptr<InferRequestsQueue> pool;

    std::size_t outputCount() const { return compiled.outputs().size(); }
    // Input dimension i of [N, C, H, W], or 0 when the input has fewer.
    std::size_t inputDimension(std::size_t i) const { return i < inputShape.size() ? inputShape[i] : 0; }
    // True when the input's height or width is dynamic: the network is fed
    // pictures at their own proportions.
    bool dynamicSize() const { return isDynamic(2) || isDynamic(3); }
    // True when the input's batch is dynamic: several regions per request.
    bool dynamicBatch() const { return isDynamic(0); }
    // The upper bound of input dimension i, or 0 when it has none.
    std::int64_t inputUpperBound(std::size_t i) const {
        if (inputPartialShape.rank().is_dynamic() || i >= inputPartialShape.size()) return 0;
        const std::int64_t bound = inputPartialShape[i].get_max_length();
        return bound < 0 ? 0 : bound;
    }
    std::int64_t inputLowerBound(std::size_t i) const {
        if (inputPartialShape.rank().is_dynamic() || i >= inputPartialShape.size()) return 0;
        return inputPartialShape[i].get_min_length();
    }

private:
    bool isDynamic(std::size_t i) const {
        return inputPartialShape.rank().is_static() && i < inputPartialShape.size() && inputPartialShape[i].is_dynamic();
    }
};

}  // namespace Inference
