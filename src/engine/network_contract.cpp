#include "engine/network_contract.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "resources/recogniser_alphabet.h"

namespace Nubex {

using Resources::ResourceKind;

namespace {

// A face network: one DetectionOutput [1, 1, N, 7] (last dimension checked
// before the rank), or "boxes" [n, 5] and "labels" [n] of i32, found in name
// order. The second form loads, though the face worker reads only the first.
std::vector<std::string> checkFaceOutputs(const ov::Model& model) {
    const auto outputs = model.outputs();
    if (outputs.size() == 1) {
        const ov::PartialShape shape = outputs[0].get_partial_shape();
        if (shape.rank().is_dynamic() || shape.size() == 0 || shape[shape.size() - 1] != 7) {
            throw std::logic_error("Face Detection network output layer should have 7 as a last dimension");
        }
        if (shape.size() != 4) {
            throw std::logic_error("Face Detection network output dimensions not compatible should be 4, but was " +
                                   std::to_string(shape.size()));
        }
        return {outputs[0].get_any_name()};
    }
    std::vector<ov::Output<const ov::Node>> byName(outputs.begin(), outputs.end());
    std::sort(byName.begin(), byName.end(),
              [](const auto& a, const auto& b) { return a.get_any_name() < b.get_any_name(); });
    std::string boxes;
    std::string labels;
    for (const auto& output : byName) {
        const ov::PartialShape shape = output.get_partial_shape();
        if (shape.rank().is_dynamic()) continue;
        if (shape.size() == 2 && shape[1] == 5) boxes = output.get_any_name();
        if (shape.size() == 1 && output.get_element_type() == ov::element::i32) labels = output.get_any_name();
    }
    if (boxes.empty() || labels.empty()) {
        throw std::logic_error(
            "Face Detection network must contain ether single DetectionOutput or 'boxes' [nx5] and 'labels' [n] at "
            "least, where 'n' is a number of detected objects.");
    }
    return {boxes};
}

std::string shapeText(const ov::PartialShape& shape) {
    std::ostringstream text;
    text << shape;
    return text.str();
}

std::string checkImageInput(const Inference::LoadedModel& model) {
    const std::size_t channels = model.inputDimension(1);
    if (model.inputShape.size() != 4 || (channels != 1 && channels != 3)) {
        return "the input is " + shapeText(model.inputPartialShape) +
               ", but the engine feeds one picture as [1, C, H, W] with C = 1 (grey) or 3 (BGR)";
    }
    return {};
}

// What a network declares must suit its kind: an alphabet only a recogniser,
// letterboxing only a fixed-size input of a classifier or face network.
std::string checkDeclarations(const Inference::LoadedModel& model, ResourceKind kind) {
    if (!model.declared.alphabet.empty() && kind != ResourceKind::TextRecognition) {
        return std::string("the network declares an alphabet, which only a text recogniser reads, but it is a ") +
               kindName(kind) + " network";
    }
    if (model.declared.letterbox) {
        if (kind != ResourceKind::Classifier && kind != ResourceKind::TextPresence && kind != ResourceKind::Face) {
            return std::string("the network declares letterboxing, which classifiers and face networks use, but it is a ") +
                   kindName(kind) + " network";
        }
        if (model.dynamicSize()) {
            return "the network declares letterboxing, but its input " + shapeText(model.inputPartialShape) +
                   " has a dynamic size and takes pictures at their own proportions";
        }
    }
    if (model.dynamicBatch() && kind != ResourceKind::TextRecognition) {
        return "only a text recogniser may have a dynamic batch, but the input is " + shapeText(model.inputPartialShape);
    }
    return {};
}

std::string checkClassifier(const Inference::LoadedModel& model, const Resources::ClassTable& table) {
    const auto outputs = model.compiled.outputs();
    if (outputs.size() != 1) {
        return "a classifier must have exactly 1 output (its class probabilities), but has " +
               std::to_string(outputs.size());
    }
    const ov::PartialShape shape = outputs[0].get_partial_shape();
    if (shape.is_dynamic() || shape.size() == 0 || shape[0].get_length() == 0) {
        return "the classifier output must have a static shape [1, classes], but is " + shapeText(shape);
    }
    const auto classes = static_cast<std::int64_t>(ov::shape_size(shape.to_shape())) / shape[0].get_length();
    // Class-table line N is scored by output class N: every category line must be a class.
    std::int32_t lastLine = 0;
    std::string beyond;
    std::size_t beyondCount = 0;
    for (const auto& category : table.categories) {
        lastLine = std::max(lastLine, category.line);
        if (category.line < classes) continue;
        if (++beyondCount > 3) continue;
        beyond += (beyond.empty() ? "line " : ", line ") + std::to_string(category.line) + " (category " +
                  std::to_string(category.details.identifier) + " " + category.details.name + ") reads class " +
                  std::to_string(category.line);
    }
    if (beyondCount == 0) return {};
    if (beyondCount > 3) beyond += " and " + std::to_string(beyondCount - 3) + " more";
    const std::string last = std::to_string(classes - 1);
    return "the class table has categories up to line " + std::to_string(lastLine) +
           " (lines count from 0) but the network's output has " + std::to_string(classes) + " classes (0-" + last +
           "): each class-table line is scored by the output class of the same number, and " + beyond +
           (beyondCount == 1 ? ", which does not exist" : ", which do not exist");
}

std::string checkFace(const Inference::LoadedModel& model) {
    const std::size_t count = model.compiled.outputs().size();
    if (count != 1) {
        return "a face network must have exactly 1 output, a DetectionOutput [1, 1, N, 7], but has " +
               std::to_string(count);
    }
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
    std::string found;
    for (const auto& output : model.compiled.outputs()) {
        found += (found.empty() ? "" : ", ") + shapeText(output.get_partial_shape());
    }
    return "a text detector needs a pixel output [1, 2, H, W] and a link output [1, 16, H, W], or a box output "
           "[N, 5], but its outputs are " + found;
}

std::string checkTextRecognition(const Inference::LoadedModel& model) {
    const auto alphabet = Resources::RecogniserAlphabet::of(model.declared.alphabet);
    const std::string classes = std::to_string(alphabet.classCount());
    const std::string scored = alphabet.isDeclared()
                                   ? std::to_string(model.declared.alphabet.size()) + " declared symbols and the blank"
                                   : "symbols 0-9, a-z and the blank";
    const std::string form = model.dynamicBatch() ? "[T, N, " + classes + "] (T steps of N regions" : "[T, 1, " + classes + "] (T steps";
    const auto outputs = model.compiled.outputs();
    if (outputs.size() != 1) {
        return "a text recogniser must have exactly 1 output " + form + ", each scoring the " + classes + " " + scored +
               "), but has " + std::to_string(outputs.size());
    }
    const ov::PartialShape shape = outputs[0].get_partial_shape();
    if (shape.rank().is_dynamic() || shape.size() != 3 || shape[2] != static_cast<std::int64_t>(alphabet.classCount())) {
        return "the recogniser output must be " + form + ", each scoring the " + classes + " " + scored +
               "), but is " + shapeText(shape);
    }
    if (model.dynamicSize() && model.inputPartialShape[2].is_dynamic()) {
        return "a recogniser reads regions at its input's height, which must be fixed, but the input is " +
               shapeText(model.inputPartialShape);
    }
    return {};
}

constexpr ResourceKind kKinds[] = {ResourceKind::Classifier, ResourceKind::Face, ResourceKind::TextDetection,
                                   ResourceKind::TextPresence, ResourceKind::TextRecognition};

}  // namespace

Inference::LoadOptions loadOptionsFor(ResourceKind kind) {
    Inference::LoadOptions options;
    switch (kind) {
        case ResourceKind::TextDetection:
            options.inputType = ov::element::f32;
            break;
        case ResourceKind::TextRecognition:
            options.inputType = ov::element::f32;
            options.keepsDynamicBatch = true;
            break;
        case ResourceKind::Face:
            options.checkOutputs = checkFaceOutputs;
            break;
        case ResourceKind::Classifier:
        case ResourceKind::TextPresence:
            break;
    }
    return options;
}

std::string checkNetworkContract(const Inference::LoadedModel& model, ResourceKind kind,
                                 const Resources::ClassTable& table) {
    const std::string input = checkImageInput(model);
    if (!input.empty()) return input;
    const std::string declared = checkDeclarations(model, kind);
    if (!declared.empty()) return declared;
    switch (kind) {
        case ResourceKind::Classifier:
        case ResourceKind::TextPresence: return checkClassifier(model, table);
        case ResourceKind::Face: return checkFace(model);
        case ResourceKind::TextDetection: return checkTextDetection(model);
        case ResourceKind::TextRecognition: return checkTextRecognition(model);
    }
    return {};
}

const char* kindName(ResourceKind kind) {
    switch (kind) {
        case ResourceKind::Classifier: return "classifier";
        case ResourceKind::Face: return "face";
        case ResourceKind::TextDetection: return "text-detection";
        case ResourceKind::TextPresence: return "text-presence";
        case ResourceKind::TextRecognition: return "text-recognition";
    }
    return "classifier";
}

ResourceKind kindNamed(const std::string& name) {
    for (const auto kind : kKinds) {
        if (name == kindName(kind)) return kind;
    }
    throw std::runtime_error("unknown network kind: " + name);
}

}  // namespace Nubex
