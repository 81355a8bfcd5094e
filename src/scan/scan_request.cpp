#include "scan/scan_request.h"

#include <system_error>
#include <thread>
#include <vector>

#include "base/exception_text.h"
#include "base/log_stream.h"
#include "detectors/category_classifier.h"
#include "detectors/face_detector.h"
#include "detectors/image_input.h"
#include "detectors/text_worker.h"
#include "resources/resource_kind.h"
#include "scan/category_list.h"
#include "scan/result_document.h"
#include "scan/worker_inputs.h"

namespace Scan {

namespace {

// The per-group arrays a worker writes: its scores and, for classifiers, the
// first- and second-stage scores (-1 until written). The stage arrays are
// written and never read: kept as the classifier's record of both stages.
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

CategoryRequest readCategoryList(const Nubex::Engine& engine, const ScanArguments& arguments,
                                 std::string& errorText) {
    return parseCategoryList(
        arguments.categories, [&engine](std::int32_t identifier) { return engine.findCategory(identifier); },
        engine.resourceSets(), errorText);
}

// The display names the published category lines give.
std::vector<CategoryScore> nameResults(const Nubex::Engine& engine, const std::vector<std::int32_t>& accepted) {
    std::vector<CategoryScore> results(accepted.size());
    for (std::size_t k = 0; k < accepted.size(); ++k) results[k].name = engine.displayName(accepted[k]);
    return results;
}

// What the workers of one scan find besides scores; each list has one writer
// (there is one face group and one text group).
struct Findings {
    std::vector<FaceFinding> faces;
    std::vector<TextFinding> texts;
};

void runWorker(const cv::Mat& image, const WorkerInputs& inputs, JobResults& results, Findings& findings,
               float textThreshold) {
    switch (Resources::kindOf(inputs.job.group)) {
        case Resources::ResourceKind::TextDetection:
            Detectors::textWorker(image, textThreshold, results.scores.data(), findings.texts, inputs.text);
            break;
        case Resources::ResourceKind::Face:
            Detectors::faceDetectionWorker(image, results.scores.data(), findings.faces, inputs.job,
                                           inputs.faceDetector.get());
            break;
        default:
            Detectors::categoryClassifierWorker(image, inputs.classification, results.firstStage.data(),
                                                results.secondStage.data(), results.scores.data());
    }
}

// One thread per group; when the system refuses a thread, the group runs on
// the calling thread instead.
std::thread startWorker(const cv::Mat& image, const WorkerInputs& inputs, JobResults& results, Findings& findings,
                        float textThreshold) {
    try {
        return std::thread(runWorker, std::cref(image), std::cref(inputs), std::ref(results), std::ref(findings),
                           textThreshold);
    } catch (const std::system_error&) {
        runWorker(image, inputs, results, findings, textThreshold);
        return std::thread();
    }
}

void runJobs(Nubex::Engine& engine, const ScanArguments& arguments, const CategoryRequest& request,
             std::vector<CategoryScore>& results, Findings& findings) {
    const cv::Mat image = Detectors::wrapPixelBuffer(arguments.image, arguments.width, arguments.height);
    std::vector<JobResults> jobResults;
    std::vector<WorkerInputs> inputs;
    jobResults.reserve(request.jobs.size());
    for (const auto& job : request.jobs) {
        jobResults.emplace_back(job.categories.size());
        inputs.push_back(workerInputs(engine, job));
    }

    // One thread per group; the last group runs on the calling thread, which
    // would otherwise only wait.
    std::vector<std::thread> workers;
    for (std::size_t i = 0; i + 1 < request.jobs.size(); ++i) {
        workers.push_back(startWorker(image, inputs[i], jobResults[i], findings, arguments.textScoreThreshold));
    }
    if (!request.jobs.empty()) {
        runWorker(image, inputs.back(), jobResults.back(), findings, arguments.textScoreThreshold);
        workers.emplace_back();
    }
    for (std::size_t i = 0; i < workers.size(); ++i) {
        if (workers[i].joinable()) workers[i].join();
        const Detectors::ScanJob& job = request.jobs[i];
        for (std::size_t j = 0; j < job.categories.size(); ++j) {
            const std::size_t p = request.positions.at(job.categories[j]);
            if (arguments.scores != nullptr) arguments.scores[p] = jobResults[i].scores[j];
            results[p].score = jobResults[i].scores[j];
        }
    }
}

}  // namespace

std::string scanImage(Nubex::Engine& engine, const ScanArguments& arguments) {
    ResultDocument document;
    std::string errorText;
    bool scan = validateImage(arguments, errorText);
    const CategoryRequest request = readCategoryList(engine, arguments, errorText);
    if (request.accepted.empty()) {
        errorText += "\tNo category provided for scanning...";
        scan = false;
    }
    std::vector<CategoryScore> results;
    if (scan) {
        const bool loaded = Base::runReporting(
            [&] {
                results = nameResults(engine, request.accepted);
                scan = engine.makeReady(request.resourcesToLoad, errorText);
            },
            [](const std::string& text) { slog::consoleLine(text); });
        if (!loaded) {
            errorText += "\tError while loading resource/s...";
            scan = false;
        }
    }
    if (scan) {
        Findings findings;
        runJobs(engine, arguments, request, results, findings);
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
