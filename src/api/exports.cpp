// The eight functions of the C interface: each forwards to the process's
// engine and stops every exception here, so that nothing is ever thrown into
// the host.
#include <cstdlib>
#include <string>
#include <vector>

#include "nubex_engine.h"

#include "base/exception_text.h"
#include "base/log_stream.h"
#include "base/owned_text.h"
#include "engine/process_state.h"
#include "scan/scan_request.h"

namespace {

// Runs body; when it throws, logs "<export>: <text>" and returns what
// fallback makes of the text (a neutral result, or a scan's document).
template <typename Result, typename Body, typename Fallback>
Result guarded(const char* exportName, Body body, Fallback fallback) noexcept {
    Result result{};
    std::string failure;
    if (Base::runReporting([&] { result = body(); }, [&](const std::string& text) { failure = text; })) return result;
    Base::runReporting([&] { slog::err << exportName << ": " << failure << std::endl; }, [](const std::string&) {});
    Base::runReporting([&] { result = fallback(failure); }, [](const std::string&) {});
    return result;
}

template <typename Result>
auto neutral(Result value) {
    return [value](const std::string&) { return value; };
}

}  // namespace

extern "C" {

NUBEX_API uint32_t InitializeNubexEngine(void) {
    return guarded<uint32_t>("InitializeNubexEngine", [] { return Nubex::engine().initialize(); }, neutral(0u));
}

NUBEX_API void DeInitializeNubexEngine(int32_t category) {
    guarded<int>(
        "DeInitializeNubexEngine",
        [category] {
            Nubex::engine().deinitialize(category);
            return 0;
        },
        neutral(0));
}

NUBEX_API char* ScanImage(const uint8_t* image, int32_t imageSize, int32_t width, int32_t height,
                          const char* categories, float* scores, float textScoreThreshold) {
    const Scan::ScanArguments arguments{image, imageSize, width, height, categories, scores, textScoreThreshold};
    // Even a scan that failed inside answers with a document.
    return guarded<char*>(
        "ScanImage", [&] { return Base::makeOwnedText(Scan::scanImage(Nubex::engine(), arguments)); },
        [&](const std::string& failure) {
            return Base::makeOwnedText(Scan::failedScanDocument(width, height, "\tScan failed: " + failure));
        });
}

NUBEX_API char* GetNubexEngineVersion(void) {
    return guarded<char*>(
        "GetNubexEngineVersion", [] { return Base::makeOwnedText(Nubex::g_NubexEngineVersion); },
        neutral<char*>(nullptr));
}

NUBEX_API char* GetNubexResourcesDetails(void) {
    return guarded<char*>(
        "GetNubexResourcesDetails", [] { return Base::makeOwnedText(Nubex::engine().refreshResources()); },
        neutral<char*>(nullptr));
}

NUBEX_API int32_t GetNubexCategories(char*** categories) {
    return guarded<int32_t>(
        "GetNubexCategories",
        [categories]() -> int32_t {
            if (categories == nullptr) {
                slog::err << "GetNubexCategories: no place given for the category list." << std::endl;
                return 0;
            }
            *categories = nullptr;
            const std::vector<std::string> lines = Nubex::engine().publishCategories();
            auto** array = static_cast<char**>(std::calloc(lines.size() + 1, sizeof(char*)));
            if (array == nullptr) return 0;
            for (std::size_t i = 0; i < lines.size(); ++i) array[i] = Base::makeOwnedText(lines[i]);
            *categories = array;
            return static_cast<int32_t>(lines.size());
        },
        neutral(0));
}

NUBEX_API uint32_t SetNubexResourceDirectory(const char* directory) {
    return guarded<uint32_t>(
        "SetNubexResourceDirectory",
        [directory]() -> uint32_t {
            if (directory == nullptr || directory[0] == '\0') {
                slog::err << "SetNubexResourceDirectory: no directory given." << std::endl;
                return static_cast<uint32_t>(Nubex::engine().resourceSetCount());
            }
            return static_cast<uint32_t>(Nubex::engine().addDirectory(directory));
        },
        neutral(0u));
}

NUBEX_API void ReleaseNubexMemory(void* memory) { std::free(memory); }

}  // extern "C"
