#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "inference/loaded_model.h"

namespace Detectors {

// Readings less certain than this are dropped.
inline constexpr double kMinimumConfidence = 0.2;

struct Reading {
    std::string text;
    double confidence = 1.0;
};

// Greedy decoding of T rows of L scores: the best symbol of every row (the
// first on ties); repeats collapse unless a blank separates them. The
// confidence is the product of the rows' softmax maxima, blanks included.
// Throws "sum can't be equal to zero" for a degenerate row.
Reading greedyDecode(const float* scores, std::size_t rows, std::size_t rowLength);

// The four corners of a region in RotatedRect::points order; a region of size
// (0, 0) stands for the whole image.
std::array<cv::Point2f, 4> regionCorners(const cv::RotatedRect& region, cv::Size imageSize);

// Index of the corner reading starts from: of the two corners with the
// smallest x, the one with the smaller y (the smaller x on equal y).
int startingCorner(const std::array<cv::Point2f, 4>& corners);

// The region cut out and straightened by an affine warp: the starting corner
// goes to (0, 0), the next to (W - 1, 0), the one after to (W - 1, H - 1).
cv::Mat cropRegion(const cv::Mat& image, const std::array<cv::Point2f, 4>& corners, cv::Size size);

// Reads regions with the recognition network, in order. Several requests
// are kept busy at once, so that one region is cut out while others are
// read. Throws "The text recognition model does not correspond to
// alphabet." when the network's class dimension is not the alphabet's
// length; readings made before a failure are in done.
void readRegions(const cv::Mat& image, const std::vector<std::array<cv::Point2f, 4>>& regions,
                 const Inference::LoadedModel& recogniser, std::vector<Reading>& done);

}  // namespace Detectors
