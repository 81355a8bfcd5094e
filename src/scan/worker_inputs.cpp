#include "scan/worker_inputs.h"

#include "resources/resource_kind.h"

namespace Scan {

namespace {

using Resources::ResourceKind;

Detectors::ClassifierStage stageFor(const Nubex::Engine& engine, std::uint32_t resource,
                                    const std::vector<std::int32_t>& categories) {
    Detectors::ClassifierStage stage;
    stage.model = engine.model(resource);
    // The text detection network may have several outputs (pixels and links).
    stage.singleOutput = Resources::kindOf(resource) != ResourceKind::TextDetection;
    stage.calibrations = engine.calibrations(resource, categories);
    return stage;
}

Detectors::Classification classificationFor(const Nubex::Engine& engine, const Detectors::ScanJob& job) {
    Detectors::Classification classification;
    classification.job = job;
    classification.first = stageFor(engine, job.group, job.categories);
    const std::uint32_t second = engine.secondStageOf(job.group);
    if (second != 0) classification.second = stageFor(engine, second, job.categories);
    return classification;
}

// The text category's job, run on the text-presence classifier.
Detectors::TextReading textReadingFor(Nubex::Engine& engine, const Detectors::ScanJob& job) {
    Detectors::ScanJob gate = job;
    gate.group = Resources::kTextPresenceId;
    Detectors::TextReading reading;
    reading.gate = classificationFor(engine, gate);
    reading.detector = engine.model(job.group);
    reading.recogniser = [&engine] {
        engine.ensureLoading(Resources::kTextRecognitionId);
        return engine.model(Resources::kTextRecognitionId);
    };
    return reading;
}

}  // namespace

WorkerInputs workerInputs(Nubex::Engine& engine, const Detectors::ScanJob& job) {
    WorkerInputs inputs;
    inputs.job = job;
    switch (Resources::kindOf(job.group)) {
        case ResourceKind::TextDetection: inputs.text = textReadingFor(engine, job); break;
        case ResourceKind::Face: inputs.faceDetector = engine.model(job.group); break;
        default: inputs.classification = classificationFor(engine, job);
    }
    return inputs;
}

}  // namespace Scan
