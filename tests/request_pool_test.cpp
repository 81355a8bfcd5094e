#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>
#include <openvino/runtime/core.hpp>

#include "inference/infer_requests_queue.h"
#include "support/test_networks.h"

using namespace Inference;

namespace {

ov::CompiledModel compileTinyNetwork(ov::Core& core) {
    return core.compile_model(testing_support::channelMeansNetwork(4, 4, 1.0f), "CPU");
}

}  // namespace

TEST(RequestPool, HandsOutIdleRequestsFirstInFirstOut) {
    ov::Core core;
    auto compiled = compileTinyNetwork(core);
    InferRequestsQueue pool(compiled, 3);
    {
        auto a = pool.borrow();
        auto b = pool.borrow();
        auto c = pool.borrow();
        EXPECT_EQ((**a).id(), 0u);
        EXPECT_EQ((**b).id(), 1u);
        EXPECT_EQ((**c).id(), 2u);
        EXPECT_EQ((**a).outputNames(), std::vector<std::string>{"scores"});
        b->run();
        b.reset();  // back first
        a->run();
        a.reset();
        c.reset();  // never started: still returned
    }
    EXPECT_EQ((**pool.borrow()).id(), 1u);  // returned in order 1, 0, 2
}

TEST(RequestPool, BorrowerWaitsForAReturnAndOutputsStayPrivate) {
    ov::Core core;
    auto compiled = compileTinyNetwork(core);
    InferRequestsQueue pool(compiled, 2);
    auto first = pool.borrow();
    auto second = pool.borrow();
    std::promise<std::size_t> third;
    std::thread waiter([&] { third.set_value((**pool.borrow()).id()); });
    auto result = third.get_future();
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);

    // A completed request is not handed out while its borrower still reads it.
    ov::Tensor input = (**second).getTensor("image");
    std::fill_n(input.data<float>(), input.get_size(), 2.0f);
    second->run();
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    EXPECT_FLOAT_EQ((**second).outputTensors().at("scores").data<float>()[0], 2.0f);
    second.reset();
    EXPECT_EQ(result.get(), 1u);
    waiter.join();
}
