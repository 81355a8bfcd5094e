#include "detectors/network_input.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <opencv2/imgproc.hpp>

#include "detectors/image_input.h"
#include "inference/model_loader.h"

namespace Detectors {

namespace {

// How many times the size is shrunk at most to fit the element limit.
constexpr int kShrinkAttempts = 16;

double elementCount(cv::Size size, std::size_t channels) {
    return static_cast<double>(size.width) * size.height * static_cast<double>(std::max<std::size_t>(channels, 1));
}

cv::Size roundedSize(cv::Size picture, double scale, const Inference::LoadedModel& model) {
    const int stride = model.declared.stride;
    const auto side = [&](int length, std::size_t dimension) {
        if (!model.inputPartialShape[dimension].is_dynamic()) return static_cast<int>(model.inputDimension(dimension));
        return roundedToStride(length * scale, stride, model.inputLowerBound(dimension),
                               model.inputUpperBound(dimension));
    };
    return {side(picture.width, 3), side(picture.height, 2)};
}

// The picture scaled by `scale`, each side rounded to the stride within the
// input's bounds, and scaled down further where the input would hold more
// than Inference::kMaxTensorElements values.
cv::Size scaledInputSize(cv::Size picture, double scale, const Inference::LoadedModel& model) {
    const std::size_t channels = model.inputDimension(1);
    const auto limit = static_cast<double>(Inference::kMaxTensorElements);
    cv::Size size = roundedSize(picture, scale, model);
    for (int attempt = 0; attempt < kShrinkAttempts && elementCount(size, channels) > limit; ++attempt) {
        scale *= std::sqrt(limit / elementCount(size, channels)) * 0.95;
        size = roundedSize(picture, scale, model);
    }
    if (elementCount(size, channels) > limit) {
        throw std::logic_error("The network's input bounds leave no size within the engine's limit of " +
                               std::to_string(Inference::kMaxTensorElements) + " elements.");
    }
    return size;
}

}  // namespace

cv::Rect letterboxArea(cv::Size picture, cv::Size input) {
    const float scale = std::min(static_cast<float>(input.width) / static_cast<float>(picture.width),
                                 static_cast<float>(input.height) / static_cast<float>(picture.height));
    const int width = std::max(1, std::min(input.width, static_cast<int>(static_cast<float>(picture.width) * scale)));
    const int height =
        std::max(1, std::min(input.height, static_cast<int>(static_cast<float>(picture.height) * scale)));
    return {(input.width - width) / 2, (input.height - height) / 2, width, height};
}

int roundedToStride(double length, int stride, std::int64_t lower, std::int64_t upper) {
    const double steps = std::max(1.0, std::round(length / stride));
    std::int64_t rounded = steps > 1e9 ? std::int64_t{1000000000} * stride : static_cast<std::int64_t>(steps) * stride;
    if (upper > 0 && rounded > upper) rounded = std::max<std::int64_t>(upper / stride * stride, std::min<std::int64_t>(upper, stride));
    rounded = std::max(rounded, lower);
    return static_cast<int>(std::min<std::int64_t>(rounded, 1 << 30));
}

cv::Size dynamicInputSize(cv::Size picture, const Inference::LoadedModel& model) {
    double scale = 1.0;
    if (const auto height = model.inputUpperBound(2); height > 0) {
        scale = std::min(scale, static_cast<double>(height) / picture.height);
    }
    if (const auto width = model.inputUpperBound(3); width > 0) {
        scale = std::min(scale, static_cast<double>(width) / picture.width);
    }
    return scaledInputSize(picture, scale, model);
}

cv::Mat resizedTo(const cv::Mat& image, cv::Size size) {
    if (image.size() == size) return image;
    cv::Mat resized;
    const bool shrinks = size.width < image.cols && size.height < image.rows;
    cv::resize(image, resized, size, 0, 0, shrinks ? cv::INTER_AREA : cv::INTER_LINEAR);
    return resized;
}

void fillInput(const cv::Mat& image, ov::Tensor& tensor, const Inference::LoadedModel& model) {
    if (model.dynamicSize()) {
        tensor.set_shape({1, static_cast<std::size_t>(image.channels()), static_cast<std::size_t>(image.rows),
                          static_cast<std::size_t>(image.cols)});
    }
    fillPlanar(image, tensor);
}

void fillBatch(const std::vector<cv::Mat>& images, int width, float padValue, ov::Tensor& tensor) {
    if (images.empty()) throw std::logic_error("A batch needs at least one image.");
    const int channels = images.front().channels();
    const int height = images.front().rows;
    tensor.set_shape({images.size(), static_cast<std::size_t>(channels), static_cast<std::size_t>(height),
                      static_cast<std::size_t>(width)});
    if (tensor.get_element_type() != ov::element::f32) {
        throw std::logic_error("A batch of regions needs an f32 network input, but it is " +
                               tensor.get_element_type().to_string());
    }
    auto* values = tensor.data<float>();
    const std::size_t plane = static_cast<std::size_t>(height) * static_cast<std::size_t>(width);
    std::fill(values, values + tensor.get_size(), padValue);
    for (std::size_t n = 0; n < images.size(); ++n) {
        const cv::Mat& image = images[n];
        if (image.rows != height || image.channels() != channels || image.cols > width) {
            throw std::logic_error("The regions of a batch do not fit its input.");
        }
        std::vector<cv::Mat> planes;
        for (int c = 0; c < channels; ++c) {
            float* origin = values + (n * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)) * plane;
            planes.emplace_back(height, width, CV_32F, origin);
        }
        cv::Mat samples;
        image.convertTo(samples, CV_MAKETYPE(CV_32F, channels));
        std::vector<cv::Mat> targets;
        for (auto& plane32 : planes) targets.push_back(plane32(cv::Rect(0, 0, image.cols, height)));
        cv::split(samples, targets);
    }
}

}  // namespace Detectors
