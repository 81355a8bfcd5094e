#include "detectors/text_worker.h"

#include <exception>

#include <opencv2/imgproc.hpp>

#include "base/exception_text.h"
#include "base/log_stream.h"
#include "detectors/text_detector.h"
#include "detectors/text_lines.h"
#include "detectors/text_recogniser.h"

namespace Detectors {

namespace {

bool textIsPresent(const cv::Mat& image, float threshold, float* scores, const Classification& gate) {
    const std::uint32_t status = classifyCategories(image, gate, scores, scores, scores);
    return status == 0 && !gate.job.categories.empty() && scores[0] > threshold;
}

}  // namespace

std::int32_t readText(const cv::Mat& image, float threshold, float* scores, std::vector<TextFinding>& lines,
                      const TextReading& reading) {
    if (!textIsPresent(image, threshold, scores, reading.gate)) return 0;
    if (!reading.detector) return 0;
    const cv::Size workingSize = workingImageSize(image.cols, image.rows);
    cv::Mat working = image;  // widths of 601 to 1280 are worked on as they are
    if (workingSize != image.size()) cv::resize(image, working, workingSize, 0, 0, cv::INTER_LINEAR);
    const auto regions = detectTextRegions(working, *reading.detector);
    if (regions.empty()) return 0;
    const auto reader = reading.recogniser ? reading.recogniser() : nullptr;
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
    std::vector<TextFinding> findings;
    const auto alphabet = alphabetOf(*reader);
    for (std::size_t i = 0; i < readings.size(); ++i) {
        if (!isLegible(readings[i], alphabet)) continue;
        findings.push_back(regionFinding(corners[i], working.size(), readings[i].text));
    }
    const auto grouped = groupTextLines(findings, working.size(), image.size());
    lines.insert(lines.end(), grouped.begin(), grouped.end());
    if (failure) std::rethrow_exception(failure);
    return static_cast<std::int32_t>(grouped.size());
}

void textWorker(const cv::Mat& image, float threshold, float* scores, std::vector<TextFinding>& lines,
                const TextReading& reading) {
    Base::runReporting([&] { readText(image, threshold, scores, lines, reading); },
                       [](const std::string& text) { slog::consoleLine("Exception: " + text); });
}

}  // namespace Detectors
