#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>

#include "detectors/scan_job.h"
#include "inference/loaded_model.h"
#include "resources/resource_info.h"

namespace Detectors {

// One network of a classification: its loaded model (null when the resource
// has no usable network), whether it must have exactly one output (every
// network but the text detector's), and the calibration of each category of
// the job (none: the score is -1).
struct ClassifierStage {
    std::shared_ptr<Inference::LoadedModel> model;
    bool singleOutput = true;
    std::vector<std::optional<Resources::CategoryDetails>> calibrations;
};

// What a classification needs: the job (categories, their output classes),
// the first-stage network and, when the resource set has one, the second.
struct Classification {
    ScanJob job;
    ClassifierStage first;
    std::optional<ClassifierStage> second;
};

// Scores the image against the job's categories: one calibrated percentage
// per category, written to scores[k] and to firstStage[k]. Scores in the
// uncertain band [1, 99) are then scored again by the second stage, whose
// scores go to secondStage[k] and replace the uncertain ones. The arrays
// hold one float per category. Returns 0; errors are thrown. Returns without
// writing when the first stage has no usable network.
std::uint32_t classifyCategories(const cv::Mat& image, const Classification& classification, float* firstStage,
                                 float* secondStage, float* scores);

// The worker started by a scan: classifyCategories, with its exceptions
// reported on the console ("Exception details: ...").
void categoryClassifierWorker(const cv::Mat& image, const Classification& classification, float* firstStage,
                              float* secondStage, float* scores);

}  // namespace Detectors
