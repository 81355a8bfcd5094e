#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <openvino/runtime/compiled_model.hpp>
#include <openvino/runtime/infer_request.hpp>

#include "base/annotated_mutex.h"

namespace Inference {

// One inference request of a pool, with its output tensors looked up once.
class InferReqWrap {
public:
    using Ptr = std::shared_ptr<InferReqWrap>;
    using CompletionCallback = std::function<void(std::size_t id, double latency)>;

    InferReqWrap(ov::CompiledModel& compiled, std::size_t id, CompletionCallback callback);

    void startAsync();
    void wait();
    ov::Tensor getTensor(const std::string& name);
    const std::vector<std::string>& outputNames() const { return outputNames_; }
    const std::map<std::string, ov::Tensor>& outputTensors() const { return outputTensors_; }
    std::size_t id() const { return id_; }

private:
    ov::InferRequest request_;
    std::size_t id_;
    CompletionCallback callback_;
    std::vector<std::string> outputNames_;
    std::map<std::string, ov::Tensor> outputTensors_;
    std::vector<ov::Output<const ov::Node>> outputPorts_;
    bool dynamicOutputs_ = false;
};

class InferRequestsQueue;

// A borrowed request. The request goes back to the pool once both its
// inference has completed and the borrower has let go of the lease, so no
// other borrower can overwrite outputs that are still being read.
class RequestLease {
public:
    RequestLease(InferRequestsQueue& pool, InferReqWrap::Ptr request);
    ~RequestLease();
    RequestLease(const RequestLease&) = delete;
    RequestLease& operator=(const RequestLease&) = delete;

    InferReqWrap& operator*() const { return *request_; }
    InferReqWrap* operator->() const { return request_.get(); }
    // Starts the request and waits until its results are ready.
    void run();
    // The two halves of run, for borrowers that keep several requests busy.
    void start();
    void wait();

private:
    InferRequestsQueue& pool_;
    InferReqWrap::Ptr request_;
    bool started_ = false;
};

// A fixed pool of inference requests over one compiled network. Idle
// requests are handed out first-in, first-out; a borrower waits (without
// spinning) while all are busy.
class InferRequestsQueue {
public:
    InferRequestsQueue(ov::CompiledModel& compiled, std::size_t requestCount);
    // Waits for every request still in flight.
    ~InferRequestsQueue();
    InferRequestsQueue(const InferRequestsQueue&) = delete;
    InferRequestsQueue& operator=(const InferRequestsQueue&) = delete;

    InferReqWrap::Ptr getIdleRequest();
    // An idle request, or null at once when all are busy.
    InferReqWrap::Ptr tryGetIdleRequest();
    void putIdleRequest(std::size_t id, double latency);
    std::unique_ptr<RequestLease> borrow();
    // Null when no request is idle: for borrowers that already hold one and
    // must not wait while holding it.
    std::unique_ptr<RequestLease> tryBorrow();
    std::size_t size() const { return requests_.size(); }

private:
    friend class RequestLease;
    // Called once by the completion callback and once by the lease; the
    // second call of the two returns the request.
    void settle(std::size_t id);
    // Hands out the front idle id.
    InferReqWrap::Ptr takeFront() NUBEX_REQUIRES(mutex_);

    // Fixed after construction.
    std::vector<InferReqWrap::Ptr> requests_;
    Base::Mutex mutex_;
    std::vector<int> pendingSettlements_ NUBEX_GUARDED_BY(mutex_);
    std::deque<std::size_t> idleIds_ NUBEX_GUARDED_BY(mutex_);
    std::condition_variable idleCondition_;
};

}  // namespace Inference
