#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "inference/loaded_model.h"
#include "resources/recogniser_alphabet.h"

namespace Detectors {

// Readings less certain than this are dropped: the confidence of the fixed
// alphabet's readings is a product over every step; with a declared alphabet
// it is the mean over the steps that add a symbol, and must reach
// kMinimumMeanConfidence.
inline constexpr double kMinimumConfidence = 0.2;
inline constexpr double kMinimumMeanConfidence = 0.5;

struct Reading {
    std::string text;
    double confidence = 1.0;
};

// Greedy decoding of T rows of L scores: the best symbol of every row (the
// first on ties); repeats collapse unless a blank separates them. The
// confidence is the product of the rows' softmax maxima, blanks included.
// Throws "sum can't be equal to zero" for a degenerate row.
Reading greedyDecode(const float* scores, std::size_t rows, std::size_t rowLength);
// The same over any alphabet: with a declared one the confidence is the mean
// of the softmax maxima of the steps that add a symbol (0 when none does).
Reading greedyDecode(const float* scores, std::size_t rows, const Resources::RecogniserAlphabet& alphabet);

// The recogniser's alphabet (it borrows the declared symbols from the model).
Resources::RecogniserAlphabet alphabetOf(const Inference::LoadedModel& recogniser);
// Whether a reading is kept: not empty and at least as confident as its
// alphabet's rule asks.
bool isLegible(const Reading& reading, const Resources::RecogniserAlphabet& alphabet);

// The four corners of a region in RotatedRect::points order; a region of size
// (0, 0) stands for the whole image.
std::array<cv::Point2f, 4> regionCorners(const cv::RotatedRect& region, cv::Size imageSize);

// Index of the corner reading starts from: of the two corners with the
// smallest x, the one with the smaller y (the smaller x on equal y).
int startingCorner(const std::array<cv::Point2f, 4>& corners);

// The region cut out and straightened by an affine warp: the starting corner
// goes to (0, 0), the next to (W - 1, 0), the one after to (W - 1, H - 1).
cv::Mat cropRegion(const cv::Mat& image, const std::array<cv::Point2f, 4>& corners, cv::Size size);
// The same from a given corner.
cv::Mat cropRegionFrom(const cv::Mat& image, const std::array<cv::Point2f, 4>& corners, int start, cv::Size size);

// Reads regions with the recognition network; readings[i] is region i's
// (empty when it was not read). Several requests are kept busy at once, so
// that regions are cut out while others are read. A network of fixed size
// reads each region stretched to its input; one whose width is dynamic reads
// each at its own width, several regions of similar widths per request when
// its batch is dynamic too. Throws "The text recognition model does not
// correspond to alphabet." when the network's class dimension is not the
// alphabet's; readings made before a failure are kept.
void readRegions(const cv::Mat& image, const std::vector<std::array<cv::Point2f, 4>>& regions,
                 const Inference::LoadedModel& recogniser, std::vector<Reading>& readings);

}  // namespace Detectors
