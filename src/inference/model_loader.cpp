#include "inference/model_loader.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <stdexcept>

#include <openvino/core/preprocess/pre_post_process.hpp>
#include <openvino/runtime/core.hpp>

#include "base/log_stream.h"
#include "inference/inference_core.h"
#include "base/exception_text.h"
#include "base/text_fields.h"

namespace Inference {

namespace {


bool hasDynamicSize(const ov::PartialShape& shape) {
    return shape.rank().is_static() && shape.size() == 4 && (shape[2].is_dynamic() || shape[3].is_dynamic());
}

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
    const ov::PartialShape declared = model->input().get_partial_shape();
    const bool dynamicSize = hasDynamicSize(declared);
    if (!(dynamicSize && options.keepsDynamicBatch && declared[0].is_dynamic())) fixBatchOfOne(model);
    ov::preprocess::PrePostProcessor processor(model);
    processor.input().tensor().set_element_type(options.inputType).set_layout("NCHW");
    processor.input().model().set_layout("NCHW");
    if (options.checkOutputs) {
        for (const auto& name : options.checkOutputs(*model)) {
            processor.output(name).tensor().set_element_type(ov::element::f32);
        }
    }
    model = processor.build();
    // Only a height and width (and then a batch) may be left to each inference.
    const ov::PartialShape shape = model->input().get_partial_shape();
    if (shape.is_dynamic() && (!dynamicSize || shape[1].is_dynamic())) {
        throw std::logic_error("Network input shape must be static, but is " + shape.to_string());
    }
    checkPortSizes(*model);
    return model;
}

int declaredStride(const std::string& text) {
    int stride = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), stride);
    if (error != std::errc() || end != text.data() + text.size() || stride < 1 ||
        stride > NetworkDeclarations::kLargestStride) {
        throw std::logic_error("The network declares nubex/stride \"" + text + "\", but a stride is a whole number from 1 to " +
                               std::to_string(NetworkDeclarations::kLargestStride) + ".");
    }
    return stride;
}

// The section "nubex" of the network's rt_info.
NetworkDeclarations readDeclarations(const ov::Model& model) {
    NetworkDeclarations declared;
    const auto text = [&](const char* key) -> std::optional<std::string> {
        if (!model.has_rt_info("nubex", key)) return std::nullopt;
        return model.get_rt_info<std::string>("nubex", key);
    };
    if (const auto resize = text("resize")) {
        if (*resize != "letterbox") {
            throw std::logic_error("The network declares nubex/resize \"" + *resize +
                                   "\", but the only resize the engine knows is \"letterbox\".");
        }
        declared.letterbox = true;
    }
    if (const auto stride = text("stride")) declared.stride = declaredStride(*stride);
    if (const auto alphabet = text("alphabet")) {
        auto symbols = Base::splitCodePoints(*alphabet);
        if (!symbols || symbols->empty()) {
            throw std::logic_error("The network declares a nubex/alphabet that is empty or not UTF-8 text.");
        }
        declared.alphabet = std::move(*symbols);
    }
    return declared;
}

std::shared_ptr<LoadedModel> load(ov::Core& core, NetworkData data, const LoadOptions& options) {
    auto loaded = std::make_shared<LoadedModel>();
    loaded->weights = std::move(data.weights);
    const ov::Tensor weightsTensor =
        loaded->weights.empty()
            ? ov::Tensor()
            : ov::Tensor(ov::element::u8, ov::Shape{loaded->weights.size()}, loaded->weights.data());
    auto model = core.read_model(data.description, weightsTensor);
    loaded->declared = readDeclarations(*model);
    loaded->model = prepare(std::move(model), options);
    loaded->inputName = loaded->model->input().get_any_name();
    loaded->inputPartialShape = loaded->model->input().get_partial_shape();
    for (const auto& dimension : loaded->inputPartialShape) {
        loaded->inputShape.push_back(dimension.is_static() ? static_cast<std::size_t>(dimension.get_length()) : 0);
    }
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
