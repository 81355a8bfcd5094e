#pragma once

#include <cstdint>
#include <string>

#include "engine/engine.h"

namespace Scan {

// The arguments of one ScanImage call, as the host passed them.
struct ScanArguments {
    const std::uint8_t* image = nullptr;
    std::int32_t imageSize = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    const char* categories = nullptr;
    float* scores = nullptr;
    float textScoreThreshold = 0.0f;
};

// Runs one scan with the engine and returns its result document. Never
// throws for a problem of the request: problems are reported in the document.
std::string scanImage(Nubex::Engine& engine, const ScanArguments& arguments);

// The document of a scan that could not run, with the given error text.
std::string failedScanDocument(std::int32_t width, std::int32_t height, const std::string& errorText);

}  // namespace Scan
