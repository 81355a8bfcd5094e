#include "inference/model_loader.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include <openvino/core/preprocess/pre_post_process.hpp>
#include <openvino/runtime/core.hpp>

#include "base/log_stream.h"
#include "inference/engine_core.h"
#include "resources/resource_file.h"
#include "resources/resource_ids.h"

namespace Inference {

namespace {

using Resources::kFaceDetectionId;
using Resources::kTextDetectionId;
using Resources::kTextRecognitionId;
constexpr std::size_t kMaxNetworkBytes = 256u << 20;
constexpr std::size_t kMaxWeightsBytes = 0x7FFFFFFFu;  // lengths are 32-bit

std::atomic<std::size_t> g_modelsLoaded{0};

std::string lastDimensionMessage() { return "Face Detection network output layer should have 7 as a last dimension"; }

// The single DetectionOutput [1, 1, N, 7]: last dimension first, then the rank.
void checkDetectionOutput(const ov::Output<ov::Node>& output, LoadedModel& loaded) {
    const ov::PartialShape shape = output.get_partial_shape();
    if (shape.rank().is_dynamic() || shape.size() == 0 || shape[shape.size() - 1] != 7) {
        throw std::logic_error(lastDimensionMessage());
    }
    if (shape.size() != 4) {
        throw std::logic_error("Face Detection network output dimensions not compatible should be 4, but was " +
                               std::to_string(shape.size()));
    }
    loaded.faceOutputName = output.get_any_name();
}

// Several outputs: "boxes" [n, 5] and "labels" [n] of I32, found in name order.
void findBoxesAndLabels(const std::vector<ov::Output<ov::Node>>& outputs, LoadedModel& loaded) {
    std::vector<ov::Output<ov::Node>> byName(outputs.begin(), outputs.end());
    std::sort(byName.begin(), byName.end(),
              [](const auto& a, const auto& b) { return a.get_any_name() < b.get_any_name(); });
    for (const auto& output : byName) {
        const ov::PartialShape shape = output.get_partial_shape();
        if (shape.rank().is_dynamic()) continue;
        if (shape.size() == 2 && shape[1] == 5) loaded.boxesOutputName = output.get_any_name();
        if (shape.size() == 1 && output.get_element_type() == ov::element::i32) {
            loaded.labelsOutputName = output.get_any_name();
        }
    }
    if (loaded.boxesOutputName.empty() || loaded.labelsOutputName.empty()) {
        throw std::logic_error(
            "Face Detection network must contain ether single DetectionOutput or 'boxes' [nx5] and 'labels' [n] at "
            "least, where 'n' is a number of detected objects.");
    }
}

void checkFaceOutputs(const std::shared_ptr<ov::Model>& model, LoadedModel& loaded) {
    const auto outputs = model->outputs();
    if (outputs.size() == 1) {
        checkDetectionOutput(outputs[0], loaded);
    } else {
        findBoxesAndLabels(outputs, loaded);
    }
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

std::shared_ptr<ov::Model> prepare(std::shared_ptr<ov::Model> model, const ModelPrecisions& precisions,
                                   LoadedModel& loaded) {
    if (model->inputs().size() != 1) throw std::logic_error("NubexEngine support topologies with 1 input only");
    fixBatchOfOne(model);
    ov::preprocess::PrePostProcessor processor(model);
    processor.input().tensor().set_element_type(precisions.input).set_layout("NCHW");
    processor.input().model().set_layout("NCHW");
    if (precisions.output == ov::element::f32) {
        checkFaceOutputs(model, loaded);
        for (const auto& name : {loaded.faceOutputName, loaded.boxesOutputName}) {
            if (!name.empty()) processor.output(name).tensor().set_element_type(ov::element::f32);
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

std::string textUpToZero(const std::vector<std::uint8_t>& buffer) {
    const char* text = reinterpret_cast<const char*>(buffer.data());
    return std::string(text, ::strnlen(text, buffer.size()));
}

std::shared_ptr<LoadedModel> load(ov::Core& core, std::uint32_t identifier, const ModelFiles& files,
                                  const ModelPrecisions& precisions) {
    auto network = Resources::readDecipheredFile(Resources::joinPath(files.folder, files.networkFile),
                                                 kMaxNetworkBytes);
    auto weights = Resources::readDecipheredFile(Resources::joinPath(files.folder, files.weightsFile),
                                                 kMaxWeightsBytes);
    if (!network || !weights) {
        slog::err << "The network files of " << files.folder << " could not be read." << std::endl;
        return nullptr;
    }
    auto loaded = std::make_shared<LoadedModel>();
    loaded->identifier = identifier;
    loaded->weights = std::move(*weights);
    // The tensor covers the file's bytes, not the terminating zero.
    const std::size_t weightsSize = loaded->weights.size() - 1;
    const ov::Tensor weightsTensor =
        weightsSize == 0 ? ov::Tensor() : ov::Tensor(ov::element::u8, ov::Shape{weightsSize}, loaded->weights.data());
    loaded->model = prepare(core.read_model(textUpToZero(*network), weightsTensor), precisions, *loaded);
    loaded->inputName = loaded->model->input().get_any_name();
    loaded->inputShape = loaded->model->input().get_shape();
    loaded->inputType = loaded->model->input().get_element_type();
    loaded->compiled = core.compile_model(loaded->model, kDeviceName);
    ++g_modelsLoaded;
    return loaded;
}

}  // namespace

ModelPrecisions precisionsFor(std::uint32_t identifier) {
    if (identifier == kTextDetectionId || identifier == kTextRecognitionId) return {ov::element::f32, ov::element::u8};
    if (identifier == kFaceDetectionId) return {ov::element::u8, ov::element::f32};
    return {ov::element::u8, ov::element::u8};
}

std::shared_ptr<LoadedModel> loadModel(ov::Core& core, std::uint32_t identifier, const ModelFiles& files,
                                       const ModelPrecisions& precisions) {
    try {
        return load(core, identifier, files, precisions);
    } catch (const std::exception& error) {
        slog::err << error.what() << std::endl;
        slog::info << error.what() << std::endl;
    } catch (...) {
        slog::err << "Unknown/internal exception happened." << std::endl;
        slog::info << "Unknown/internal exception happened." << std::endl;
    }
    return nullptr;
}

std::size_t modelsLoaded() { return g_modelsLoaded.load(); }

std::shared_ptr<LoadedModel> loadModelWithPool(ov::Core& core, std::uint32_t identifier, const ModelFiles& files,
                                               std::size_t requestCount) {
    auto loaded = loadModel(core, identifier, files, precisionsFor(identifier));
    if (loaded) loaded->pool = std::make_unique<InferRequestsQueue>(loaded->compiled, requestCount);
    return loaded;
}

}  // namespace Inference
