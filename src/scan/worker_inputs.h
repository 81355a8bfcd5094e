#pragma once

#include <memory>

#include "detectors/category_classifier.h"
#include "detectors/scan_job.h"
#include "detectors/text_worker.h"
#include "engine/engine.h"

namespace Scan {

// What the worker of one job receives, resolved through the engine before
// the worker starts: the classification for a classifier group, the face
// network for the face group, the text pipeline's networks for the text
// group.
struct WorkerInputs {
    Detectors::ScanJob job;
    Detectors::Classification classification;
    std::shared_ptr<Inference::LoadedModel> faceDetector;
    Detectors::TextReading text;
};

WorkerInputs workerInputs(Nubex::Engine& engine, const Detectors::ScanJob& job);

}  // namespace Scan
