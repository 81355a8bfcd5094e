#include "detectors/text_detector.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include <opencv2/imgproc.hpp>

#include "detectors/image_input.h"
#include "detectors/network_input.h"
#include "detectors/pixel_link_decoder.h"
#include "inference/inference_step.h"

namespace Detectors {

namespace {

struct ChosenOutputs {
    const ov::Tensor* pixels = nullptr;
    const ov::Tensor* links = nullptr;
    const ov::Tensor* boxes = nullptr;
};

std::size_t secondDimension(const ov::Tensor& tensor) {
    const ov::Shape shape = tensor.get_shape();
    return shape.size() > 1 ? shape[1] : 0;
}

// Outputs are looked at in name order; a later match replaces an earlier one.
ChosenOutputs chooseOutputs(const std::map<std::string, ov::Tensor>& outputs) {
    ChosenOutputs chosen;
    for (const auto& [name, tensor] : outputs) {
        if (secondDimension(tensor) == 2) chosen.pixels = &tensor;
        if (secondDimension(tensor) == 16) chosen.links = &tensor;
    }
    if (chosen.pixels != nullptr && chosen.links != nullptr) return chosen;
    chosen = {};
    for (const auto& [name, tensor] : outputs) {
        if (secondDimension(tensor) == 5) {
            chosen.boxes = &tensor;
            return chosen;
        }
    }
    throw std::runtime_error("Failed to determine output blob names");
}

// A pixel-and-link output as [C, H, W] of its first image.
void checkGrid(const ov::Tensor& tensor, std::size_t channels, const ov::Shape& reference) {
    const ov::Shape shape = tensor.get_shape();
    if (shape.size() != 4) throw std::logic_error("Shape and axes must have the same dimension.");
    if (shape[0] == 0) throw std::logic_error("The text detector's outputs hold no image: " + shape.to_string());
    if (shape[1] != channels || shape[2] != reference[2] || shape[3] != reference[3]) {
        throw std::logic_error("The pixel and link outputs of the text detector do not match: " +
                               shape.to_string() + " against " + reference.to_string());
    }
    if (tensor.get_element_type() != ov::element::f32) {
        throw std::logic_error("The text detector outputs must be f32, but are " + tensor.get_element_type().to_string());
    }
}

std::vector<cv::RotatedRect> decodeOutputs(const ChosenOutputs& chosen, cv::Size networkSize, cv::Size workingSize) {
    if (chosen.boxes != nullptr) {
        const ov::Shape shape = chosen.boxes->get_shape();
        if (chosen.boxes->get_element_type() != ov::element::f32) {
            throw std::logic_error("The text detector box output must be f32.");
        }
        const std::size_t rows =
            shape.size() >= 2 ? std::min(shape[0] * shape[1], chosen.boxes->get_size()) / 5 : 0;
        return decodeBoxes(chosen.boxes->data<const float>(), rows, networkSize, workingSize);
    }
    const ov::Shape shape = chosen.pixels->get_shape();
    checkGrid(*chosen.pixels, 2, shape);
    checkGrid(*chosen.links, 16, shape);
    const PixelLinkScores scores{chosen.pixels->data<const float>(), chosen.links->data<const float>(),
                                 static_cast<int>(shape[2]), static_cast<int>(shape[3])};
    return decodePixelLink(scores, workingSize);
}

}  // namespace

cv::Size workingImageSize(int width, int height) {
    if (width <= 320) return {2 * width, 2 * height};
    if (width <= 600) return {600, static_cast<int>(height * (600.0 / static_cast<float>(width)))};
    if (width <= 1280) return {width, height};
    return {1280, static_cast<int>(height * (1280.0 / static_cast<float>(width)))};
}

std::vector<cv::RotatedRect> detectTextRegions(const cv::Mat& workingImage, const Inference::LoadedModel& detector) {
    const auto channels = detector.inputDimension(1);
    cv::Size inputSize(static_cast<int>(detector.inputDimension(3)), static_cast<int>(detector.inputDimension(2)));
    // A dynamic input takes the working image at its own proportions.
    if (detector.dynamicSize()) inputSize = dynamicInputSize(workingImage.size(), detector);
    if (inputSize.height == 0 || inputSize.width == 0) {
        throw std::logic_error("The text detection network input has no height or width.");
    }
    cv::Mat input = workingImage;
    if (channels == 1) cv::cvtColor(workingImage, input, cv::COLOR_BGR2GRAY);
    // Resized as floats, so the network sees interpolated values unrounded;
    // an image of the network's size goes in as it is (the fill converts).
    if (input.size() != inputSize) {
        cv::Mat samples;
        input.convertTo(samples, CV_32F);
        input = detector.dynamicSize() ? resizedTo(samples, inputSize)
                                       : resizeForNetwork(samples, inputSize.width, inputSize.height, false);
    }

    return Inference::infer(
        detector, [&](ov::Tensor& tensor) { fillInput(input, tensor, detector); },
        [&](Inference::InferReqWrap& request) {
            return decodeOutputs(chooseOutputs(request.outputTensors()), inputSize, workingImage.size());
        });
}

}  // namespace Detectors
