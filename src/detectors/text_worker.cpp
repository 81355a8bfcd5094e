#include "detectors/text_worker.h"

#include <exception>
#include <thread>

#include <opencv2/imgproc.hpp>

#include "detectors/category_classifier.h"
#include "detectors/model_access.h"
#include "detectors/text_detector.h"
#include "detectors/text_lines.h"
#include "detectors/text_recogniser.h"
#include "base/log_stream.h"
#include "resources/resource_details.h"
#include "resources/resource_initialisation.h"

namespace Detectors {

namespace {

bool textIsPresent(const cv::Mat& image, float threshold, float* scores, const Scan::ScanJob& job) {
    Scan::ScanJob gate = job;
    gate.group = Scan::kTextPresenceId;
    gate.stage = 0;
    const std::uint32_t status = classifyCategories(image, gate, scores, scores, scores);
    return status == 0 && !job.categories.empty() && scores[0] > threshold;
}

std::shared_ptr<Inference::LoadedModel> recogniser() {
    if (Resources::resourceState(Scan::kTextRecognitionId) == Resources::kNotLoaded) {
        Resources::initialiseResource(2 * std::max(1u, std::thread::hardware_concurrency()), Scan::kTextRecognitionId);
    }
    return usableModel(Scan::kTextRecognitionId);
}

}  // namespace

std::int32_t readText(const cv::Mat& image, float threshold, float* scores, std::vector<std::string>& lines,
                      const Scan::ScanJob& job) {
    if (!textIsPresent(image, threshold, scores, job)) return 0;
    const auto detector = usableModel(job.group);
    if (!detector) return 0;
    const cv::Size workingSize = workingImageSize(image.cols, image.rows);
    cv::Mat working = image;  // widths of 601 to 1280 are worked on as they are
    if (workingSize != image.size()) cv::resize(image, working, workingSize, 0, 0, cv::INTER_LINEAR);
    const auto regions = detectTextRegions(working, *detector);
    if (regions.empty()) return 0;
    const auto reader = recogniser();
    if (!reader) return 0;

    std::vector<std::array<cv::Point2f, 4>> corners;
    for (const auto& region : regions) corners.push_back(regionCorners(region, working.size()));
    std::vector<Reading> readings;
    std::exception_ptr failure;
    try {
        readRegions(working, corners, *reader, readings);
    } catch (...) {
        failure = std::current_exception();  // what was read before the failure is still delivered
    }
    std::vector<std::string> findings;
    for (std::size_t i = 0; i < readings.size(); ++i) {
        if (readings[i].confidence < kMinimumConfidence || readings[i].text.empty()) continue;
        findings.push_back(findingLine(corners[i], working.size(), readings[i].text));
    }
    const auto grouped = groupTextLines(findings, working.size(), image.size());
    lines.insert(lines.end(), grouped.begin(), grouped.end());
    if (failure) std::rethrow_exception(failure);
    return static_cast<std::int32_t>(grouped.size());
}

void textWorker(const cv::Mat& image, float threshold, float* scores, std::vector<std::string>& lines,
                const Scan::ScanJob& job) {
    try {
        readText(image, threshold, scores, lines, job);
    } catch (const std::exception& error) {
        slog::consoleLine(std::string("Exception: ") + error.what());
    }
}

}  // namespace Detectors
