#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "scan/scan_job.h"

namespace Detectors {

// Reads the text of the image: the text-presence classifier (9113) must score
// the job's first category strictly above the threshold; then the detection
// network of the job's group (9112) finds regions in the working image and the
// recognition network (19112) reads each. The lines of text are appended to
// lines as "x1,y1,x2,y2,x3,y3,x4,y4,words" in image pixels. scores receives
// the presence scores. Returns the number of lines. Errors are thrown.
std::int32_t readText(const cv::Mat& image, float threshold, float* scores, std::vector<std::string>& lines,
                      const Scan::ScanJob& job);

// The worker started by a scan: readText with its exceptions reported on the
// console ("Exception: ...").
void textWorker(const cv::Mat& image, float threshold, float* scores, std::vector<std::string>& lines,
                const Scan::ScanJob& job);

}  // namespace Detectors
