#include "inference/infer_requests_queue.h"

#include <stdexcept>

namespace Inference {

namespace {

// The completion callback's latency argument: nothing reads it.
constexpr double kReportedLatency = 5.0;

}  // namespace

InferReqWrap::InferReqWrap(ov::CompiledModel& compiled, std::size_t id, CompletionCallback callback)
    : request_(compiled.create_infer_request()), id_(id), callback_(std::move(callback)) {
    for (const auto& output : compiled.outputs()) {
        const std::string name = output.get_any_name();
        outputNames_.push_back(name);
        outputPorts_.push_back(output);
        outputTensors_[name] = request_.get_tensor(output);
        dynamicOutputs_ = dynamicOutputs_ || output.get_partial_shape().is_dynamic();
    }
    request_.set_callback([this](std::exception_ptr) {
        if (!callback_) throw std::bad_function_call();
        callback_(id_, kReportedLatency);
    });
}

void InferReqWrap::startAsync() { request_.start_async(); }

void InferReqWrap::wait() {
    request_.wait();
    // Outputs whose shape follows the input are tensors of each inference's own.
    if (dynamicOutputs_) {
        for (std::size_t i = 0; i < outputPorts_.size(); ++i) {
            outputTensors_[outputNames_[i]] = request_.get_tensor(outputPorts_[i]);
        }
    }
}

ov::Tensor InferReqWrap::getTensor(const std::string& name) { return request_.get_tensor(name); }

RequestLease::RequestLease(InferRequestsQueue& pool, InferReqWrap::Ptr request)
    : pool_(pool), request_(std::move(request)) {}

RequestLease::~RequestLease() {
    const std::size_t id = request_->id();
    request_.reset();
    // A request that never ran gets no completion call: settle for it.
    if (!started_) pool_.settle(id);
    pool_.settle(id);
}

void RequestLease::run() {
    start();
    wait();
}

void RequestLease::start() {
    request_->startAsync();
    started_ = true;
}

void RequestLease::wait() { request_->wait(); }

InferRequestsQueue::InferRequestsQueue(ov::CompiledModel& compiled, std::size_t requestCount) {
    if (requestCount == 0) requestCount = 1;
    pendingSettlements_.assign(requestCount, 0);
    for (std::size_t id = 0; id < requestCount; ++id) {
        requests_.push_back(std::make_shared<InferReqWrap>(
            compiled, id, [this](std::size_t doneId, double latency) { putIdleRequest(doneId, latency); }));
        idleIds_.push_back(id);
    }
}

InferRequestsQueue::~InferRequestsQueue() {
    Base::MutexLock lock(mutex_);
    mutex_.wait(idleCondition_, [this]() NUBEX_REQUIRES(mutex_) { return idleIds_.size() == requests_.size(); });
}

InferReqWrap::Ptr InferRequestsQueue::getIdleRequest() {
    Base::MutexLock lock(mutex_);
    mutex_.wait(idleCondition_, [this]() NUBEX_REQUIRES(mutex_) { return !idleIds_.empty(); });
    return takeFront();
}

InferReqWrap::Ptr InferRequestsQueue::tryGetIdleRequest() {
    Base::MutexLock lock(mutex_);
    return idleIds_.empty() ? nullptr : takeFront();
}

InferReqWrap::Ptr InferRequestsQueue::takeFront() {
    const std::size_t id = idleIds_.front();
    if (id >= requests_.size()) throw std::out_of_range("invalid vector subscript");
    idleIds_.pop_front();
    pendingSettlements_[id] = 2;
    return requests_[id];
}

void InferRequestsQueue::putIdleRequest(std::size_t id, double /*latency*/) { settle(id); }

void InferRequestsQueue::settle(std::size_t id) {
    Base::MutexLock lock(mutex_);
    if (id >= requests_.size()) throw std::out_of_range("invalid vector subscript");
    if (pendingSettlements_[id] == 0 || --pendingSettlements_[id] > 0) return;
    idleIds_.push_back(id);
    // Teardown waits for all requests, borrowers for one: wake everybody.
    idleCondition_.notify_all();
}

std::unique_ptr<RequestLease> InferRequestsQueue::borrow() {
    return std::make_unique<RequestLease>(*this, getIdleRequest());
}

std::unique_ptr<RequestLease> InferRequestsQueue::tryBorrow() {
    auto request = tryGetIdleRequest();
    return request ? std::make_unique<RequestLease>(*this, std::move(request)) : nullptr;
}

}  // namespace Inference
