#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "detectors/category_classifier.h"
#include "detectors/findings.h"
#include "inference/loaded_model.h"

namespace Detectors {

// What the text pipeline needs: the text-presence classification (its job's
// first category is the text category), the detection network (null when it
// has none) and the recognition network, which the worker asks for only once
// regions were found (null when it has none).
struct TextReading {
    Classification gate;
    std::shared_ptr<Inference::LoadedModel> detector;
    std::function<std::shared_ptr<Inference::LoadedModel>()> recogniser;
};

// Reads the text of the image: the presence classifier must score the first
// category strictly above the threshold; then the detector finds regions in
// the working image and the recogniser reads each. The lines of text are
// appended to lines in image pixels. scores receives the presence scores.
// Returns the number of lines. Errors are thrown.
std::int32_t readText(const cv::Mat& image, float threshold, float* scores, std::vector<TextFinding>& lines,
                      const TextReading& reading);

// The worker started by a scan: readText with its exceptions reported on the
// console ("Exception: ...").
void textWorker(const cv::Mat& image, float threshold, float* scores, std::vector<TextFinding>& lines,
                const TextReading& reading);

}  // namespace Detectors
