#include "resources/resource_initialisation.h"

#include <memory>
#include <mutex>

#include "engine/globals.h"

namespace Resources {

namespace {

void release(ResourceDetails& entry) {
    std::shared_ptr<Inference::LoadedModel> model;
    model.swap(entry.model);
    entry.loadState.store(kNotLoaded);
    // The model is destroyed here, after the entry no longer offers it.
}

}  // namespace

void releaseResource(std::uint32_t identifier) {
    std::lock_guard<std::mutex> lock(Nubex::g_ResourceLoadingMutex);
    if (const auto entry = findResourceDetails(Nubex::g_arrResourceDetails, identifier)) release(*entry);
}

void releaseAllResources() {
    std::lock_guard<std::mutex> lock(Nubex::g_ResourceLoadingMutex);
    for (const auto& entry : Nubex::g_arrResourceDetails) release(*entry);
}

}  // namespace Resources
