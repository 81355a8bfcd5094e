#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>
#include <openvino/runtime/tensor.hpp>

#include "inference/loaded_model.h"

namespace Detectors {

// Where a picture lands in a letterboxed input of the given size: scaled
// uniformly by min(W / w, H / h) (single precision, sizes truncated, at least
// one pixel) and centred, with (target - scaled) / 2 on each side.
cv::Rect letterboxArea(cv::Size picture, cv::Size input);

// A length rounded to the nearest multiple of the stride, at least one
// stride, then kept within [lower, upper] (an upper bound of 0 is none).
int roundedToStride(double length, int stride, std::int64_t lower, std::int64_t upper);

// The size at which a network with a dynamic input is fed a picture (a text
// detector: its working image): at its own proportions, scaled down (never
// up) only where it exceeds the input's upper bounds.
cv::Size dynamicInputSize(cv::Size picture, const Inference::LoadedModel& model);

// Resizes for a dynamic input: by pixel areas where both sides shrink (no
// aliasing of fine strokes), else bilinear; an image of the size already is
// returned as it is.
cv::Mat resizedTo(const cv::Mat& image, cv::Size size);

// Fills the model's input tensor with the image, plane by plane; a dynamic
// input first takes the image's size.
void fillInput(const cv::Mat& image, ov::Tensor& tensor, const Inference::LoadedModel& model);

// Fills a dynamic input with several images of one height as a batch
// [N, C, H, width], each padded on the right with padValue.
void fillBatch(const std::vector<cv::Mat>& images, int width, float padValue, ov::Tensor& tensor);

}  // namespace Detectors
