#include "scan/scan_request.h"

#include <system_error>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "detectors/category_classifier.h"
#include "detectors/face_detector.h"
#include "detectors/text_worker.h"
#include "detectors/image_input.h"
#include "engine/globals.h"
#include "base/log_stream.h"
#include "resources/categories.h"
#include "base/text_fields.h"
#include "scan/category_list.h"
#include "scan/resource_readiness.h"
#include "scan/result_document.h"

namespace Scan {

namespace {

// The per-group arrays a worker writes: its scores and, for classifiers, the
// first- and second-stage scores (-1 until written).
struct JobResults {
    explicit JobResults(std::size_t categories)
        : scores(categories, 0.0f), firstStage(categories, -1.0f), secondStage(categories, -1.0f) {}
    std::vector<float> scores;
    std::vector<float> firstStage;
    std::vector<float> secondStage;
};

// A negative size, or a positive one that cannot hold the rows the
// dimensions describe, marks the pixel data as invalid: reading past it would
// fault. A size of 0 means the host did not say.
bool sizeDoesNotFit(const ScanArguments& arguments) {
    if (arguments.imageSize < 0) return true;
    if (arguments.imageSize == 0 || arguments.width < 1 || arguments.height < 1) return false;
    return static_cast<std::uint64_t>(arguments.imageSize) <
           static_cast<std::uint64_t>(Detectors::paddedRowBytes(arguments.width)) * static_cast<std::uint64_t>(arguments.height);
}

bool validateImage(const ScanArguments& arguments, std::string& errorText) {
    bool valid = true;
    if (arguments.image == nullptr || sizeDoesNotFit(arguments)) {
        errorText += "Invalid image data...";
        valid = false;
    }
    if (arguments.height < 1 || arguments.width < 1) {
        errorText += "\tInvalid image dimension/s...";
        valid = false;
    }
    return valid;
}

CategoryRequest readCategoryList(const ScanArguments& arguments, std::string& errorText) {
    std::shared_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
    return parseCategoryList(arguments.categories, Nubex::g_oResourceUtils, errorText);
}

// The display names the published category lines give ("<identifier>\t<name>";
// a later line for the same identifier names it again).
std::vector<CategoryScore> nameResults(const std::vector<std::int32_t>& accepted) {
    std::vector<CategoryScore> results(accepted.size());
    std::shared_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
    for (std::size_t k = 0; k < accepted.size(); ++k) {
        if (const std::string* name = Nubex::g_oResourceUtils.displayName(accepted[k])) results[k].name = *name;
    }
    return results;
}

// What the workers of one scan find besides scores; each list has one writer
// (there is one face group and one text group).
struct Findings {
    std::vector<FaceFinding> faces;
    std::vector<std::string> texts;
};

void runWorker(const cv::Mat& image, const ScanJob& job, JobResults& results, Findings& findings,
               float textThreshold) {
    if (job.group == kTextDetectionId) {
        Detectors::textWorker(image, textThreshold, results.scores.data(), findings.texts, job);
    } else if (job.group == kFaceDetectionId) {
        Detectors::faceDetectionWorker(image, results.scores.data(), findings.faces, job);
    } else {
        Detectors::categoryClassifierWorker(image, job, results.firstStage.data(), results.secondStage.data(),
                                            results.scores.data());
    }
}

// One thread per group; when the system refuses a thread, the group runs on
// the calling thread instead.
std::thread startWorker(const cv::Mat& image, const ScanJob& job, JobResults& results, Findings& findings,
                        float textThreshold) {
    try {
        return std::thread(runWorker, std::cref(image), std::cref(job), std::ref(results), std::ref(findings),
                           textThreshold);
    } catch (const std::system_error&) {
        runWorker(image, job, results, findings, textThreshold);
        return std::thread();
    }
}

void runJobs(const ScanArguments& arguments, const CategoryRequest& request, std::vector<CategoryScore>& results,
             Findings& findings) {
    const cv::Mat image = Detectors::wrapPixelBuffer(arguments.image, arguments.width, arguments.height);
    std::vector<JobResults> jobResults;
    jobResults.reserve(request.jobs.size());
    for (const auto& job : request.jobs) jobResults.emplace_back(job.categories.size());

    // One thread per group; the last group runs on the calling thread, which
    // would otherwise only wait.
    std::vector<std::thread> workers;
    for (std::size_t i = 0; i + 1 < request.jobs.size(); ++i) {
        workers.push_back(startWorker(image, request.jobs[i], jobResults[i], findings, arguments.textScoreThreshold));
    }
    if (!request.jobs.empty()) {
        runWorker(image, request.jobs.back(), jobResults.back(), findings, arguments.textScoreThreshold);
        workers.emplace_back();
    }
    for (std::size_t i = 0; i < workers.size(); ++i) {
        if (workers[i].joinable()) workers[i].join();
        const ScanJob& job = request.jobs[i];
        for (std::size_t j = 0; j < job.categories.size(); ++j) {
            const std::size_t p = request.positions.at(job.categories[j]);
            if (arguments.scores != nullptr) arguments.scores[p] = jobResults[i].scores[j];
            results[p].score = jobResults[i].scores[j];
        }
    }
}

}  // namespace

std::string scanImage(const ScanArguments& arguments) {
    ResultDocument document;
    std::string errorText;
    bool scan = validateImage(arguments, errorText);
    const CategoryRequest request = readCategoryList(arguments, errorText);
    if (request.accepted.empty()) {
        errorText += "\tNo category provided for scanning...";
        scan = false;
    }
    std::vector<CategoryScore> results;
    if (scan) {
        try {
            results = nameResults(request.accepted);
            const std::size_t requestCount = 2 * static_cast<std::size_t>(std::max(1u, std::thread::hardware_concurrency()));
            scan = makeResourcesReady(request.resourcesToLoad, requestCount, errorText);
        } catch (const std::exception& error) {
            slog::consoleLine(error.what());
            errorText += "\tError while loading resource/s...";
            scan = false;
        }
    }
    if (scan) {
        Findings findings;
        runJobs(arguments, request, results, findings);
        document.writeScanResults(results);
        if (!findings.texts.empty()) document.writeTextDetails(findings.texts);
        if (!findings.faces.empty()) document.writeFaceDetails(findings.faces);
    }
    document.writeImageSize(arguments.width, arguments.height);
    document.writeErrorText(errorText);
    document.writeVerdict(errorText.empty());
    return document.finish();
}

std::string failedScanDocument(std::int32_t width, std::int32_t height, const std::string& errorText) {
    ResultDocument document;
    document.writeImageSize(width, height);
    document.writeErrorText(errorText);
    document.writeVerdict(false);
    return document.finish();
}

}  // namespace Scan
