#include "detectors/image_input.h"
#include "detectors/network_input.h"

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/imgproc.hpp>

namespace Detectors {

std::size_t paddedRowBytes(int width) {
    return static_cast<std::size_t>(width) * 3 + static_cast<std::size_t>(width % 4);
}

cv::Mat wrapPixelBuffer(const std::uint8_t* pixels, int width, int height) {
    return cv::Mat(height, width, CV_8UC3, const_cast<std::uint8_t*>(pixels), paddedRowBytes(width));
}

std::vector<std::uint8_t> packPixelBuffer(const cv::Mat& image) {
    const std::size_t rowBytes = paddedRowBytes(image.cols);
    std::vector<std::uint8_t> buffer(rowBytes * static_cast<std::size_t>(image.rows), 0);
    for (int row = 0; row < image.rows; ++row) {
        std::memcpy(buffer.data() + row * rowBytes, image.ptr(row), static_cast<std::size_t>(image.cols) * 3);
    }
    return buffer;
}

cv::Mat resizeForNetwork(const cv::Mat& image, int width, int height, bool keepAspectRatio) {
    if (image.cols == width && image.rows == height) return image;  // nothing to interpolate
    cv::Mat resized;
    if (!keepAspectRatio) {
        cv::resize(image, resized, cv::Size(width, height), 0, 0, cv::INTER_LINEAR);
        return resized;
    }
    resized = cv::Mat::zeros(height, width, image.type());
    const cv::Rect area = letterboxArea(image.size(), cv::Size(width, height));
    cv::Mat target = resized(area);
    cv::resize(image, target, area.size(), 0, 0, cv::INTER_LINEAR);
    return resized;
}

void fillPlanar(const cv::Mat& image, ov::Tensor& tensor) {
    const ov::Shape shape = tensor.get_shape();
    if (shape.size() != 4) throw std::logic_error("The network input must have 4 dimensions [N, C, H, W].");
    const int channels = static_cast<int>(shape[1]);
    const int height = static_cast<int>(shape[2]);
    const int width = static_cast<int>(shape[3]);
    if (image.rows != height || image.cols != width || image.channels() != channels) {
        throw std::logic_error("The prepared image does not match the network input " +
                               tensor.get_shape().to_string() + ".");
    }
    const bool isFloat = tensor.get_element_type() == ov::element::f32;
    if (!isFloat && tensor.get_element_type() != ov::element::u8) {
        throw std::logic_error("Unsupported network input type " + tensor.get_element_type().to_string());
    }
    const int planeType = isFloat ? CV_32F : CV_8U;
    const std::size_t planeBytes = static_cast<std::size_t>(height) * width * (isFloat ? 4 : 1);
    auto* base = static_cast<std::uint8_t*>(tensor.data());
    std::vector<cv::Mat> planes;
    for (int c = 0; c < channels; ++c) planes.emplace_back(height, width, planeType, base + c * planeBytes);

    // Split straight into the tensor's planes; a float tensor converts each
    // plane in place of a separate conversion pass.
    const cv::Mat* source = &image;
    cv::Mat converted;
    if (image.depth() != planeType) {
        image.convertTo(converted, CV_MAKETYPE(planeType, channels));
        source = &converted;
    }
    if (channels == 1) {
        source->copyTo(planes[0]);
    } else {
        cv::split(*source, planes.data());
    }
}

}  // namespace Detectors
