#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "inference/loaded_model.h"

namespace Detectors {

// The size of the working image the text pipeline runs on: narrow images are
// doubled, widths of 321 to 600 become 600, 601 to 1280 stay, wider become 1280
// (heights in proportion).
cv::Size workingImageSize(int width, int height);

// Finds the text regions of the working image with the detection network:
// pixel-and-link decoding when the network has outputs of 2 and 16 channels,
// else box decoding of an output of 5 columns; otherwise throws "Failed to
// determine output blob names". Regions are in working-image coordinates.
std::vector<cv::RotatedRect> detectTextRegions(const cv::Mat& workingImage, const Inference::LoadedModel& detector);

}  // namespace Detectors
