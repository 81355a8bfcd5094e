#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

#include "scan/scan_job.h"

namespace Detectors {

// Scores the image against the job's categories with the network of the
// job's group: one calibrated percentage per category, written to scores[k]
// and to firstStage[k] (stage 0) or secondStage[k] (stage 1). Scores in the
// uncertain band [1, 99) are then scored again by the second-stage network of
// the resource set, when it has one. The arrays hold one float per category.
// Returns 0; errors are thrown. Returns without writing when the group has
// no usable network.
std::uint32_t classifyCategories(const cv::Mat& image, const Scan::ScanJob& job, float* firstStage,
                                 float* secondStage, float* scores);

// The worker started by a scan: classifyCategories, with its exceptions
// reported on the console ("Exception details: ...").
void categoryClassifierWorker(const cv::Mat& image, const Scan::ScanJob& job, float* firstStage,
                              float* secondStage, float* scores);

}  // namespace Detectors
