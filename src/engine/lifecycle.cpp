#include "engine/lifecycle.h"

#include <mutex>
#include <shared_mutex>

#include "engine/globals.h"
#include "base/platform.h"
#include "inference/engine_core.h"
#include "resources/resource_initialisation.h"
#include "resources/resource_listing.h"

namespace Nubex {

std::uint32_t initializeEngine() {
    std::lock_guard<std::mutex> lock(g_EngineInitialisationMutex);
    if (g_bEngineInitialised.load()) return 0;
    const std::uint32_t streams = Inference::setUpEngineCore();
    // A failed set-up is not retried by a later call.
    g_bEngineInitialised.store(true);
    refreshResources();
    return streams;
}

std::vector<std::uint32_t> identifiersToRelease(std::int32_t category) {
    std::shared_lock<std::shared_mutex> lock(g_RegistryMutex);
    std::uint32_t target = 0;
    const bool everything = category == -1;
    if (!everything) {
        const auto* entry = g_oResourceUtils.findCategory(category);
        if (entry == nullptr || entry->resourceIdentifier == 0) return {};
        target = entry->resourceIdentifier;
    }
    std::vector<std::uint32_t> identifiers;
    for (const auto& set : g_oResourceUtils.resourceSets()) {
        bool holdsTarget = everything;
        for (const auto identifier : set.identifiers) holdsTarget = holdsTarget || identifier == target;
        if (!holdsTarget) continue;
        for (const auto identifier : set.identifiers) {
            if (identifier != 0) identifiers.push_back(identifier);
        }
    }
    return identifiers;
}

void deinitializeEngine(std::int32_t category) {
    const auto identifiers = identifiersToRelease(category);
    // One hold of the loading lock: no network loads between the releases
    // and the shutdown, so no load is left working on a core being shut down.
    std::lock_guard<std::mutex> loading(g_ResourceLoadingMutex);
    for (const auto identifier : identifiers) Resources::releaseResource(identifier);
    if (category != -1) return;
    // Entries outside every set (replaced versions) may still hold networks.
    Resources::releaseAllResources();
    // Serialised with initialisation, which a scan may start at any time.
    std::lock_guard<std::mutex> initialisation(g_EngineInitialisationMutex);
    Inference::shutDownEngineCore();
    g_bEngineInitialised.store(false);
    Base::platform::releaseFreeMemory();
}

std::string refreshResources() {
    std::unique_lock<std::shared_mutex> lock(g_RegistryMutex);
    g_oResourceUtils.scanAllGroups();
    std::string listing = Resources::renderResourceListing(g_oResourceUtils);
    std::vector<Resources::ResourceInfo> records;
    g_oResourceUtils.getRecords(records, Resources::ResourceUtils::kAllRecords);
    Resources::refreshResourceDetails(g_arrResourceDetails, records);
    return listing;
}

}  // namespace Nubex
