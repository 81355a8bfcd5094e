#include "detectors/category_classifier.h"

#include <cmath>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "detectors/image_input.h"
#include "detectors/model_access.h"
#include "detectors/output_values.h"
#include "engine/globals.h"
#include "base/log_stream.h"

namespace Detectors {

namespace {

constexpr float kUncertainLow = 1.0f;
constexpr float kUncertainHigh = 99.0f;

cv::Mat prepareInput(const cv::Mat& image, const Inference::LoadedModel& model, bool keepAspectRatio) {
    const auto channels = model.inputDimension(1);
    const auto height = static_cast<int>(model.inputDimension(2));
    const auto width = static_cast<int>(model.inputDimension(3));
    if (height == 0 || width == 0) throw std::logic_error("The network input has no height or width.");
    cv::Mat prepared = image;
    if (channels == 1) {
        cv::cvtColor(image, prepared, cv::COLOR_BGR2GRAY);
    } else if (channels != 3) {
        throw std::logic_error("The network input must have 1 or 3 channels, but has " + std::to_string(channels));
    }
    return resizeForNetwork(prepared, width, height, keepAspectRatio);
}

// The calibration of a category is looked up by its identifier in the
// resource's category list; a category the resource does not declare uses
// the calibration at its position in the job.
float calibrated(std::uint32_t resource, std::int32_t category, std::size_t position, float rawScore) {
    std::shared_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
    const Resources::ResourceInfo* record = Nubex::g_oResourceUtils.findRecord(resource);
    if (record != nullptr) {
        const auto found = record->categoryPositions.find(category);
        if (found != record->categoryPositions.end()) position = found->second;
    }
    const float score = Nubex::g_oResourceUtils.calibrateScore(resource, position, rawScore);
    // A broken calibration (a slope of 0/0) must not reach the document.
    return std::isfinite(score) ? score : -1.0f;
}

std::uint32_t secondStageOf(std::uint32_t resource) {
    std::shared_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
    for (const auto& set : Nubex::g_oResourceUtils.resourceSets()) {
        if (set.identifiers[0] == resource) return set.identifiers[1];
    }
    return 0;
}

// Runs the network once; false when the group has no usable network.
bool scoreOnce(const cv::Mat& image, const Scan::ScanJob& job, float* stageScores, float* scores) {
    const auto model = usableModel(job.group);
    if (!model) return false;
    const cv::Mat input = prepareInput(image, *model, job.keepAspectRatio);
    std::vector<float> probabilities;
    {
        const auto lease = model->pool->borrow();
        Inference::InferReqWrap& request = **lease;
        if (!request.hasRequest()) throw std::runtime_error("No idle Infer Requests!");
        ov::Tensor tensor = request.getTensor(model->inputName);
        fillPlanar(input, tensor);
        lease->run();
        const auto& names = request.outputNames();
        if (job.group != Scan::kTextDetectionId && names.size() != 1) {
            throw std::logic_error("Nubex Engine supports topologies with 1 output only");
        }
        const ov::Tensor& output = request.outputTensors().at(names.at(0));
        for (const auto index : classIndices(output, job.slots)) probabilities.push_back(tensorValue(output, index));
    }
    for (std::size_t k = 0; k < probabilities.size(); ++k) {
        const float score = calibrated(job.group, job.categories[k], k, probabilities[k] * 100.0f);
        scores[k] = score;
        stageScores[k] = score;
    }
    return true;
}

void runSecondStage(const cv::Mat& image, const Scan::ScanJob& job, float* firstStage, float* secondStage,
                    float* scores) {
    std::vector<std::size_t> uncertain;
    for (std::size_t k = 0; k < job.categories.size(); ++k) {
        if (scores[k] >= kUncertainLow && scores[k] < kUncertainHigh) uncertain.push_back(k);
    }
    if (uncertain.empty()) return;
    const std::uint32_t second = secondStageOf(job.group);
    if (second == 0) return;
    Scan::ScanJob secondJob = job;
    secondJob.group = second;
    secondJob.stage = 1;
    std::vector<float> secondScores(job.categories.size(), 0.0f);
    // A second stage without a usable network leaves the first-stage scores.
    if (!scoreOnce(image, secondJob, secondStage, secondScores.data())) return;
    for (const auto k : uncertain) scores[k] = secondScores[k];
}

}  // namespace

std::uint32_t classifyCategories(const cv::Mat& image, const Scan::ScanJob& job, float* firstStage,
                                 float* secondStage, float* scores) {
    if (!scoreOnce(image, job, job.stage == 0 ? firstStage : secondStage, scores)) return 0;
    if (job.stage == 0) runSecondStage(image, job, firstStage, secondStage, scores);
    return 0;
}

void categoryClassifierWorker(const cv::Mat& image, const Scan::ScanJob& job, float* firstStage,
                              float* secondStage, float* scores) {
    try {
        classifyCategories(image, job, firstStage, secondStage, scores);
    } catch (const std::exception& error) {
        slog::consoleLine(std::string("Exception details: ") + error.what());
    }
}

}  // namespace Detectors
