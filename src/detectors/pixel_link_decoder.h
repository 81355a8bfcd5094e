#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

namespace Detectors {

// Scores of a pixel-and-link text detector on its output grid, channel-major
// ([C, H, W] of one image): 2 pixel channels (text / not text pairs) and 16
// link channels (a pair for each of the 8 neighbours).
struct PixelLinkScores {
    const float* pixels = nullptr;
    const float* links = nullptr;
    int height = 0;
    int width = 0;
};

// Labels the text components of the grid: a pixel is positive when the
// softmax of its pair gives text a score of at least 0.8; two positive
// neighbours join when the link from the first to the second scores at least
// 0.8 (one direction is enough). Components are numbered 1, 2, ... in the
// row-major order of their first pixel; background is 0. Linear in the grid.
cv::Mat labelTextComponents(const PixelLinkScores& scores);

// The text regions of a pixel-and-link output, in the working image's
// coordinates: the minimum-area rectangle of each component's first contour
// once the label image is scaled to the working size, kept when its shorter
// side is at least 10 and its area at least 300.
std::vector<cv::RotatedRect> decodePixelLink(const PixelLinkScores& scores, cv::Size workingSize);

// Regions of a box output: rows [x1, y1, x2, y2, confidence] in network-input
// pixels, up to the first confidence below the float epsilon, scaled to the
// working image; kept when their area is at least 300.
std::vector<cv::RotatedRect> decodeBoxes(const float* rows, std::size_t rowCount, cv::Size networkSize,
                                         cv::Size workingSize);

}  // namespace Detectors
