#include "inference/model_loader.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include <openvino/core/preprocess/pre_post_process.hpp>
#include <openvino/runtime/core.hpp>

#include "base/log_stream.h"
#include "inference/inference_core.h"
#include "base/exception_text.h"

namespace Inference {

namespace {


void fixBatchOfOne(const std::shared_ptr<ov::Model>& model) {
    ov::PartialShape shape = model->input().get_partial_shape();
    if (shape.rank().is_dynamic() || shape.size() == 0 || shape[0] == 1) return;
    shape[0] = 1;
    model->reshape({{model->input(), shape}});
}

// Elements of a port at most: the upper bound of each dimension, saturating.
// A dimension without an upper bound (data-dependent) is not counted.
std::uint64_t largestElementCount(const ov::PartialShape& shape) {
    if (shape.rank().is_dynamic()) return 0;
    std::uint64_t count = 1;
    for (const auto& dimension : shape) {
        const std::int64_t length = dimension.get_max_length();
        if (length < 0) continue;
        const auto bound = static_cast<std::uint64_t>(length);
        if (bound != 0 && count > UINT64_MAX / bound) return UINT64_MAX;
        count *= bound;
    }
    return count;
}

template <typename Port>
void checkPortSize(const Port& port, const char* role) {
    const std::uint64_t elements = largestElementCount(port.get_partial_shape());
    if (elements <= kMaxTensorElements) return;
    throw std::logic_error(std::string("The network's ") + role + " " + port.get_any_name() + " " +
                           port.get_partial_shape().to_string() + " holds " + std::to_string(elements) +
                           " elements, more than the engine's limit of " + std::to_string(kMaxTensorElements) +
                           ": the network is not loaded.");
}

// Every request of a pool holds its own input and output tensors: a network
// that declares enormous ones is refused before anything is allocated.
void checkPortSizes(const ov::Model& model) {
    for (const auto& input : model.inputs()) checkPortSize(input, "input");
    for (const auto& output : model.outputs()) checkPortSize(output, "output");
}

std::shared_ptr<ov::Model> prepare(std::shared_ptr<ov::Model> model, const LoadOptions& options) {
    if (model->inputs().size() != 1) throw std::logic_error("NubexEngine support topologies with 1 input only");
    fixBatchOfOne(model);
    ov::preprocess::PrePostProcessor processor(model);
    processor.input().tensor().set_element_type(options.inputType).set_layout("NCHW");
    processor.input().model().set_layout("NCHW");
    if (options.checkOutputs) {
        for (const auto& name : options.checkOutputs(*model)) {
            processor.output(name).tensor().set_element_type(ov::element::f32);
        }
    }
    model = processor.build();
    if (model->input().get_partial_shape().is_dynamic()) {
        throw std::logic_error("Network input shape must be static, but is " +
                               model->input().get_partial_shape().to_string());
    }
    checkPortSizes(*model);
    return model;
}

std::shared_ptr<LoadedModel> load(ov::Core& core, NetworkData data, const LoadOptions& options) {
    auto loaded = std::make_shared<LoadedModel>();
    loaded->weights = std::move(data.weights);
    const ov::Tensor weightsTensor =
        loaded->weights.empty()
            ? ov::Tensor()
            : ov::Tensor(ov::element::u8, ov::Shape{loaded->weights.size()}, loaded->weights.data());
    loaded->model = prepare(core.read_model(data.description, weightsTensor), options);
    loaded->inputName = loaded->model->input().get_any_name();
    loaded->inputShape = loaded->model->input().get_shape();
    loaded->inputType = loaded->model->input().get_element_type();
    loaded->compiled = core.compile_model(loaded->model, kDeviceName);
    return loaded;
}

}  // namespace

std::shared_ptr<LoadedModel> loadModel(ov::Core& core, NetworkData data, const LoadOptions& options) {
    std::shared_ptr<LoadedModel> loaded;
    Base::runReporting([&] { loaded = load(core, std::move(data), options); },
                       [](const std::string& text) {
                           slog::err << text << std::endl;
                           slog::info << text << std::endl;
                       });
    return loaded;
}

std::shared_ptr<LoadedModel> loadModelWithPool(ov::Core& core, NetworkData data, const LoadOptions& options,
                                               std::size_t requestCount) {
    auto loaded = loadModel(core, std::move(data), options);
    if (loaded) loaded->pool = std::make_unique<InferRequestsQueue>(loaded->compiled, requestCount);
    return loaded;
}

}  // namespace Inference
