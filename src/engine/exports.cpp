// The eight functions of the C interface. Each one is a thin shell: it checks
// its pointers, calls into the engine, and stops every exception here, so
// that nothing is ever thrown into the host.
#include <cstdlib>
#include <exception>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "nubex_engine.h"

#include "engine/globals.h"
#include "engine/lifecycle.h"
#include "base/log_stream.h"
#include "base/owned_text.h"
#include "resources/categories.h"
#include "scan/scan_request.h"

namespace {

template <typename Result, typename Body>
Result guarded(const char* exportName, Result fallback, Body body) noexcept {
    try {
        return body();
    } catch (const std::exception& error) {
        try {
            slog::err << exportName << ": " << error.what() << std::endl;
        } catch (...) {
        }
    } catch (...) {
        try {
            slog::err << exportName << ": Unknown/internal exception happened." << std::endl;
        } catch (...) {
        }
    }
    return fallback;
}

}  // namespace

extern "C" {

NUBEX_API uint32_t InitializeNubexEngine(void) {
    return guarded<uint32_t>("InitializeNubexEngine", 0, [] { return Nubex::initializeEngine(); });
}

NUBEX_API void DeInitializeNubexEngine(int32_t category) {
    guarded<int>("DeInitializeNubexEngine", 0, [category] {
        Nubex::deinitializeEngine(category);
        return 0;
    });
}

NUBEX_API char* ScanImage(const uint8_t* image, int32_t imageSize, int32_t width, int32_t height,
                          const char* categories, float* scores, float textScoreThreshold) {
    std::string failure;
    try {
        return Base::makeOwnedText(
            Scan::scanImage({image, imageSize, width, height, categories, scores, textScoreThreshold}));
    } catch (const std::exception& error) {
        failure = error.what();
    } catch (...) {
        failure = "Unknown/internal exception happened.";
    }
    // Even a scan that failed inside answers with a document.
    return guarded<char*>("ScanImage", nullptr, [&] {
        slog::err << "ScanImage: " << failure << std::endl;
        return Base::makeOwnedText(Scan::failedScanDocument(width, height, "\tScan failed: " + failure));
    });
}

NUBEX_API char* GetNubexEngineVersion(void) {
    return guarded<char*>("GetNubexEngineVersion", nullptr,
                          [] { return Base::makeOwnedText(Nubex::g_NubexEngineVersion); });
}

NUBEX_API char* GetNubexResourcesDetails(void) {
    return guarded<char*>("GetNubexResourcesDetails", nullptr,
                          [] { return Base::makeOwnedText(Nubex::refreshResources()); });
}

NUBEX_API int32_t GetNubexCategories(char*** categories) {
    return guarded<int32_t>("GetNubexCategories", 0, [categories]() -> int32_t {
        if (categories == nullptr) {
            slog::err << "GetNubexCategories: no place given for the category list." << std::endl;
            return 0;
        }
        *categories = nullptr;
        std::vector<std::string> lines;
        {
            std::unique_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
            Resources::countRecords(Nubex::g_oResourceUtils);
            lines = Resources::categoryLines(Nubex::g_oResourceUtils);
        }
        auto** array = static_cast<char**>(std::calloc(lines.size() + 1, sizeof(char*)));
        if (array == nullptr) return 0;
        for (std::size_t i = 0; i < lines.size(); ++i) array[i] = Base::makeOwnedText(lines[i]);
        *categories = array;
        return static_cast<int32_t>(lines.size());
    });
}

NUBEX_API uint32_t SetNubexResourceDirectory(const char* directory) {
    return guarded<uint32_t>("SetNubexResourceDirectory", 0, [directory]() -> uint32_t {
        std::unique_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
        if (directory == nullptr || directory[0] == '\0') {
            slog::err << "SetNubexResourceDirectory: no directory given." << std::endl;
            return static_cast<uint32_t>(Nubex::g_oResourceUtils.resourceSets().size());
        }
        return static_cast<uint32_t>(Nubex::g_oResourceUtils.addDirectory(directory));
    });
}

NUBEX_API void ReleaseNubexMemory(void* memory) { std::free(memory); }

}  // extern "C"
