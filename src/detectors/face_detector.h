#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "detectors/findings.h"
#include "detectors/scan_job.h"
#include "inference/loaded_model.h"

namespace Detectors {

// A detected box made square: centred on the box (rounded down to whole
// pixels) with an edge 1.2 times the longer side of the box.
FaceFinding squareFace(std::int32_t label, float score, std::int32_t x, std::int32_t y, std::int32_t width,
                             std::int32_t height);

// Decodes SSD DetectionOutput rows [image_id, label, confidence, x_min, y_min,
// x_max, y_max] (corners normalised to 0..1): rows up to the first negative
// image id, kept when confidence * 100 is above 50. Appends the faces in
// image pixels (not clamped) and returns how many; best receives the highest
// kept score, or 0.
std::int32_t decodeDetectionOutput(const float* rows, std::size_t rowCount, int imageWidth, int imageHeight,
                                   std::vector<FaceFinding>& faces, float& best);

// Finds the faces in the image with the face network. Returns the number of
// faces appended; nothing without a network (null). Errors are thrown.
std::int32_t detectFaces(const cv::Mat& image, float& best, std::vector<FaceFinding>& faces,
                         const Inference::LoadedModel* model);

// The worker started by a scan: detectFaces with its best score written to
// scores[0] and its exceptions reported on the console ("Exception: ...").
void faceDetectionWorker(const cv::Mat& image, float* scores, std::vector<FaceFinding>& faces, const ScanJob& job,
                         const Inference::LoadedModel* model);

}  // namespace Detectors
