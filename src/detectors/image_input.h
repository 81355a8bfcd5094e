#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>
#include <openvino/runtime/tensor.hpp>

namespace Detectors {

// Bytes per row of the host's pixel buffer: width * 3 followed by
// (width mod 4) padding bytes.
std::size_t paddedRowBytes(int width);

// A read-only view of the host's pixel buffer as a height x width, 3-channel
// 8-bit image, without copying a pixel. The buffer must outlive the view.
cv::Mat wrapPixelBuffer(const std::uint8_t* pixels, int width, int height);

// The host's pixel buffer layout of a 3-channel 8-bit image (the inverse of
// wrapPixelBuffer), for tools and tests.
std::vector<std::uint8_t> packPixelBuffer(const cv::Mat& image);

// Resizes to width x height with bilinear interpolation; with keepAspectRatio
// the image is scaled uniformly and centred on black margins.
cv::Mat resizeForNetwork(const cv::Mat& image, int width, int height, bool keepAspectRatio);

// Writes an interleaved image into an [N, C, H, W] tensor plane by plane
// (channel order kept; no mean or scale). The image must be H x W with C
// channels; the tensor's element type may be u8 or f32.
void fillPlanar(const cv::Mat& image, ov::Tensor& tensor);

}  // namespace Detectors
