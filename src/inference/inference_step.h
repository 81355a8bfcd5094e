#pragma once

#include <memory>
#include <utility>

#include <openvino/runtime/tensor.hpp>

#include "inference/loaded_model.h"

namespace Inference {

// Borrows a request of the model's pool (waiting while all are busy) and
// fills its input with fill(ov::Tensor&); the caller starts it.
template <typename Fill>
std::unique_ptr<RequestLease> borrowFilled(const LoadedModel& model, Fill&& fill) {
    auto lease = model.pool->borrow();
    ov::Tensor input = (*lease)->getTensor(model.inputName);
    std::forward<Fill>(fill)(input);
    return lease;
}

// The same with a request that is idle now, or null when none is: for
// callers that already hold requests and must not wait while holding them.
template <typename Fill>
std::unique_ptr<RequestLease> tryBorrowFilled(const LoadedModel& model, Fill&& fill) {
    auto lease = model.pool->tryBorrow();
    if (!lease) return nullptr;
    ov::Tensor input = (*lease)->getTensor(model.inputName);
    std::forward<Fill>(fill)(input);
    return lease;
}

// One inference: borrow, fill(input tensor), start, wait, and read(request)
// while the request is still held, so no other borrower can overwrite its
// outputs. Returns what read returns.
template <typename Fill, typename Read>
auto infer(const LoadedModel& model, Fill&& fill, Read&& read) {
    const auto lease = borrowFilled(model, std::forward<Fill>(fill));
    lease->run();
    return std::forward<Read>(read)(**lease);
}

}  // namespace Inference
