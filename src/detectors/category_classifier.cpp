#include "detectors/category_classifier.h"

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "base/exception_text.h"
#include "base/log_stream.h"
#include "detectors/image_input.h"
#include "detectors/network_input.h"
#include "detectors/output_values.h"
#include "inference/inference_step.h"
#include "resources/calibration.h"

namespace Detectors {

namespace {

constexpr float kUncertainLow = 1.0f;
constexpr float kUncertainHigh = 99.0f;

cv::Mat prepareInput(const cv::Mat& image, const Inference::LoadedModel& model, bool keepAspectRatio) {
    const auto channels = model.inputDimension(1);
    const auto height = static_cast<int>(model.inputDimension(2));
    const auto width = static_cast<int>(model.inputDimension(3));
    if (!model.dynamicSize() && (height == 0 || width == 0)) {
        throw std::logic_error("The network input has no height or width.");
    }
    cv::Mat prepared = image;
    if (channels == 1) {
        cv::cvtColor(image, prepared, cv::COLOR_BGR2GRAY);
    } else if (channels != 3) {
        throw std::logic_error("The network input must have 1 or 3 channels, but has " + std::to_string(channels));
    }
    // A dynamic input takes the picture at its own proportions.
    if (model.dynamicSize()) return resizedTo(prepared, dynamicInputSize(prepared.size(), model));
    return resizeForNetwork(prepared, width, height, keepAspectRatio || model.declared.letterbox);
}

float calibrated(const std::optional<Resources::CategoryDetails>& calibration, float rawScore) {
    if (!calibration) return -1.0f;
    const float score = Resources::calibrate(*calibration, rawScore);
    // A broken calibration (a slope of 0/0) must not reach the document.
    return std::isfinite(score) ? score : -1.0f;
}

// The probabilities the network gives the job's output classes.
std::vector<float> classProbabilities(const cv::Mat& input, const ClassifierStage& stage, const ScanJob& job) {
    return Inference::infer(
        *stage.model, [&](ov::Tensor& tensor) { fillInput(input, tensor, *stage.model); },
        [&](Inference::InferReqWrap& request) {
            const auto& names = request.outputNames();
            if (stage.singleOutput && names.size() != 1) {
                throw std::logic_error("Nubex Engine supports topologies with 1 output only");
            }
            const ov::Tensor& output = request.outputTensors().at(names.at(0));
            std::vector<float> probabilities;
            for (const auto index : classIndices(output, job.slots)) probabilities.push_back(tensorValue(output, index));
            return probabilities;
        });
}

// Runs one stage; false when it has no usable network.
bool scoreOnce(const cv::Mat& image, const ClassifierStage& stage, const ScanJob& job, float* stageScores,
               float* scores) {
    if (!stage.model) return false;
    const cv::Mat input = prepareInput(image, *stage.model, job.keepAspectRatio);
    const std::vector<float> probabilities = classProbabilities(input, stage, job);
    for (std::size_t k = 0; k < probabilities.size(); ++k) {
        const float score = calibrated(k < stage.calibrations.size() ? stage.calibrations[k] : std::nullopt,
                                       probabilities[k] * 100.0f);
        scores[k] = score;
        stageScores[k] = score;
    }
    return true;
}

void runSecondStage(const cv::Mat& image, const Classification& classification, float* secondStage, float* scores) {
    const ScanJob& job = classification.job;
    std::vector<std::size_t> uncertain;
    for (std::size_t k = 0; k < job.categories.size(); ++k) {
        if (scores[k] >= kUncertainLow && scores[k] < kUncertainHigh) uncertain.push_back(k);
    }
    if (uncertain.empty() || !classification.second) return;
    std::vector<float> secondScores(job.categories.size(), 0.0f);
    // A second stage without a usable network leaves the first-stage scores.
    if (!scoreOnce(image, *classification.second, job, secondStage, secondScores.data())) return;
    for (const auto k : uncertain) scores[k] = secondScores[k];
}

}  // namespace

std::uint32_t classifyCategories(const cv::Mat& image, const Classification& classification, float* firstStage,
                                 float* secondStage, float* scores) {
    if (!scoreOnce(image, classification.first, classification.job, firstStage, scores)) return 0;
    runSecondStage(image, classification, secondStage, scores);
    return 0;
}

void categoryClassifierWorker(const cv::Mat& image, const Classification& classification, float* firstStage,
                              float* secondStage, float* scores) {
    Base::runReporting([&] { classifyCategories(image, classification, firstStage, secondStage, scores); },
                       [](const std::string& text) { slog::consoleLine("Exception details: " + text); });
}

}  // namespace Detectors
