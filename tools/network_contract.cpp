#include "tools/network_contract.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "resources/resource_ids.h"

namespace Tools {

namespace {

constexpr std::size_t kAlphabetSize = 37;

std::string shapeText(const ov::PartialShape& shape) {
    std::ostringstream text;
    text << shape;
    return text.str();
}

std::string checkImageInput(const Inference::LoadedModel& model) {
    const std::size_t channels = model.inputDimension(1);
    if (model.inputShape.size() != 4 || (channels != 1 && channels != 3)) {
        return "the input must be [1, 1 or 3, H, W], but is " + shapeText(model.inputShape);
    }
    return {};
}

std::string checkClassifier(const Inference::LoadedModel& model, const Resources::ClassTable& table) {
    const auto outputs = model.compiled.outputs();
    if (outputs.size() != 1) return "a classifier must have exactly 1 output, but has " + std::to_string(outputs.size());
    const ov::PartialShape shape = outputs[0].get_partial_shape();
    if (shape.is_dynamic() || shape.size() == 0 || shape[0].get_length() == 0) {
        return "the classifier output must have a static shape with a batch, but is " + shapeText(shape);
    }
    const auto classes = static_cast<std::int64_t>(ov::shape_size(shape.to_shape())) / shape[0].get_length();
    std::int32_t lastLine = 0;
    for (const auto& category : table.categories) lastLine = std::max(lastLine, category.line);
    if (lastLine >= classes) {
        return "the class table reads class " + std::to_string(lastLine) + " but the output has " +
               std::to_string(classes) + " classes";
    }
    return {};
}

std::string checkFace(const Inference::LoadedModel& model) {
    const auto outputs = model.compiled.outputs();
    if (outputs.size() != 1) return "a face network must have exactly 1 output [1, 1, N, 7]";
    return {};
}

std::string checkTextDetection(const Inference::LoadedModel& model) {
    bool pixels = false;
    bool links = false;
    bool boxes = false;
    for (const auto& output : model.compiled.outputs()) {
        const ov::PartialShape shape = output.get_partial_shape();
        if (shape.rank().is_dynamic() || shape.size() < 2) continue;
        pixels = pixels || shape[1] == 2;
        links = links || shape[1] == 16;
        boxes = boxes || shape[1] == 5;
    }
    if ((pixels && links) || boxes) return {};
    return "a text detector needs outputs of 2 and 16 channels (pixels and links) or one of 5 columns (boxes)";
}

std::string checkTextRecognition(const Inference::LoadedModel& model) {
    const auto outputs = model.compiled.outputs();
    if (outputs.size() != 1) return "a text recogniser must have exactly 1 output [T, 1, 37]";
    const ov::PartialShape shape = outputs[0].get_partial_shape();
    if (shape.rank().is_dynamic() || shape.size() != 3 || shape[2] != static_cast<std::int64_t>(kAlphabetSize)) {
        return "the recogniser output must be [T, 1, 37], but is " + shapeText(shape);
    }
    return {};
}

}  // namespace

NetworkKind networkKindFor(std::uint32_t identifier) {
    switch (identifier) {
        case Resources::kFaceDetectionId: return NetworkKind::Face;
        case Resources::kTextDetectionId: return NetworkKind::TextDetection;
        case Resources::kTextRecognitionId: return NetworkKind::TextRecognition;
        default: return NetworkKind::Classifier;
    }
}

NetworkKind parseNetworkKind(const std::string& name) {
    for (const auto kind : {NetworkKind::Classifier, NetworkKind::Face, NetworkKind::TextDetection,
                            NetworkKind::TextRecognition}) {
        if (name == networkKindName(kind)) return kind;
    }
    throw std::runtime_error("unknown network kind: " + name);
}

const char* networkKindName(NetworkKind kind) {
    switch (kind) {
        case NetworkKind::Classifier: return "classifier";
        case NetworkKind::Face: return "face";
        case NetworkKind::TextDetection: return "text-detection";
        case NetworkKind::TextRecognition: return "text-recognition";
    }
    return "classifier";
}

std::string checkNetworkContract(const Inference::LoadedModel& model, NetworkKind kind,
                                 const Resources::ClassTable& table) {
    const std::string input = checkImageInput(model);
    if (!input.empty()) return input;
    switch (kind) {
        case NetworkKind::Classifier: return checkClassifier(model, table);
        case NetworkKind::Face: return checkFace(model);
        case NetworkKind::TextDetection: return checkTextDetection(model);
        case NetworkKind::TextRecognition: return checkTextRecognition(model);
    }
    return {};
}

}  // namespace Tools
