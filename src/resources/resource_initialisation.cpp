#include "resources/resource_initialisation.h"

#include <iostream>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "engine/globals.h"
#include "engine/lifecycle.h"
#include "base/log_stream.h"
#include "base/platform.h"
#include "inference/engine_core.h"
#include "inference/model_loader.h"
#include "resources/resource_file.h"
#include "resources/resource_folder.h"

namespace Resources {

namespace {

std::vector<std::uint32_t> setMembersOf(std::uint32_t identifier) {
    std::shared_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
    for (const auto& set : Nubex::g_oResourceUtils.resourceSets()) {
        bool holds = false;
        for (const auto member : set.identifiers) holds = holds || member == identifier;
        if (!holds) continue;
        std::vector<std::uint32_t> members;
        for (const auto member : set.identifiers) {
            if (member != 0) members.push_back(member);
        }
        return members;
    }
    return {};
}

std::shared_ptr<ResourceDetails> entryOf(std::uint32_t identifier) {
    std::shared_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
    return findResourceDetails(Nubex::g_arrResourceDetails, identifier);
}

std::optional<ResourceInfo> recordOf(std::uint32_t identifier) {
    std::shared_lock<std::shared_mutex> lock(Nubex::g_RegistryMutex);
    ResourceInfo record;
    if (!Nubex::g_oResourceUtils.findByIdentifier(identifier, record)) return std::nullopt;
    return record;
}

// Reads the folder again, checks it still holds the resource, and loads it.
std::shared_ptr<Inference::LoadedModel> loadMember(ov::Core& core, std::size_t requestCount,
                                                   std::uint32_t identifier) {
    const auto record = recordOf(identifier);
    if (!record) {
        slog::err << "No resource with the ID " << identifier << "..." << std::endl;
        return nullptr;
    }
    const auto details = readFolderDetails(record->folder, record->group);
    if (!details) {
        slog::err << "Could not read resource deatils for ID " << identifier << "..." << std::endl;
        return nullptr;
    }
    if (details->identifier != identifier) {
        slog::err << "ID of the read resource is " << details->identifier
                  << " whereas that of resource to be initialized is " << identifier << "..." << std::endl;
        return nullptr;
    }
    if (!ensureModel(record->folder, record->group)) return nullptr;
    const Inference::ModelFiles files{record->folder, resourceFileName(record->group, FileRole::Network),
                                      resourceFileName(record->group, FileRole::Weights)};
    return Inference::loadModelWithPool(core, identifier, files, requestCount);
}

void initialiseMember(std::size_t requestCount, std::uint32_t identifier) {
    const auto entry = entryOf(identifier);
    if (!entry) return;
    std::lock_guard<std::mutex> lock(Nubex::g_ResourceLoadingMutex);
    // Tested on the entry itself, under the lock: no resource loads twice.
    if (entry->loadState.load() != kNotLoaded) return;
    // The engine was shut down since this scan initialised it: leave the
    // entry unloaded, so that a later scan sets the engine up and loads it.
    const std::shared_ptr<ov::Core> core = Inference::engineCore();
    if (!core) return;
    entry->loadState.store(kLoading);
    std::shared_ptr<Inference::LoadedModel> model;
    try {
        model = loadMember(*core, requestCount, identifier);
    } catch (const std::exception& error) {
        slog::consoleLine("Exception while initializing resource: " + std::to_string(identifier) + " - " +
                          error.what());
    }
    entry->model.store(std::move(model));
    entry->loadState.store(kLoaded);
}

void release(ResourceDetails& entry) {
    // The model (and its pool, after its requests finish) goes when the last
    // scan holding it lets go.
    entry.model.store(nullptr);
    entry.loadState.store(kNotLoaded);
}

}  // namespace

void initialiseResource(std::size_t requestCount, std::uint32_t identifier) {
    try {
        if (!Nubex::g_bEngineInitialised.load()) Nubex::initializeEngine();
        if (!Nubex::g_bEngineInitialised.load()) return;
        for (const auto member : setMembersOf(identifier)) initialiseMember(requestCount, member);
    } catch (const std::exception& error) {
        slog::consoleLine("Exception while initializing resource: " + std::to_string(identifier) + " - " +
                          error.what());
    }
}

int resourceState(std::uint32_t identifier) {
    const auto entry = entryOf(identifier);
    return entry ? entry->loadState.load() : kNotLoaded;
}

bool ensureModel(const std::string& folder, int group) {
    try {
        for (const std::string& path : {folder, joinPath(folder, resourceFileName(group, FileRole::Network)),
                                        joinPath(folder, resourceFileName(group, FileRole::Weights))}) {
            const int error = Base::platform::fileStatus(path);
            if (error != 0) {
                slog::err << "stat error " << error << " for directory : " << path << std::endl;
                return false;
            }
        }
        return true;
    } catch (const std::exception& error) {
        slog::consoleLine(std::string("Exception in ensureModel - ") + error.what());
        return false;
    }
}

void releaseResource(std::uint32_t identifier) {
    if (const auto entry = entryOf(identifier)) release(*entry);
}

void releaseAllResources() {
    std::shared_lock<std::shared_mutex> registryLock(Nubex::g_RegistryMutex);
    for (const auto& entry : Nubex::g_arrResourceDetails) release(*entry);
}

}  // namespace Resources
