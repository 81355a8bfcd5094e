// Loading networks on demand: each resource set is made ready once, one
// load at a time, and waited for by the scans that need it meanwhile.
#include <chrono>
#include <cstring>
#include <thread>

#include "base/exception_text.h"
#include "base/log_stream.h"
#include "base/platform.h"
#include "engine/engine.h"
#include "engine/network_contract.h"
#include "resources/resource_file.h"
#include "resources/resource_folder.h"

namespace Nubex {

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(200);
constexpr int kMaxPolls = 200;
constexpr std::size_t kMaxNetworkBytes = 256u << 20;
constexpr std::size_t kMaxWeightsBytes = 0x7FFFFFFFu;  // lengths are 32-bit

std::string networkPath(const Resources::ResourceInfo& record, Resources::FileRole role) {
    return Resources::joinPath(record.folder, Resources::resourceFileName(record.group, role));
}

// Checks that the folder and its network files can be reached; logs
// "stat error ..." when they cannot.
bool ensureModel(const Resources::ResourceInfo& record) {
    bool reachable = false;
    Base::runReporting(
        [&] {
            for (const std::string& path : {record.folder, networkPath(record, Resources::FileRole::Network),
                                            networkPath(record, Resources::FileRole::Weights)}) {
                const int error = Base::platform::fileStatus(path);
                if (error != 0) {
                    slog::err << "stat error " << error << " for directory : " << path << std::endl;
                    return;
                }
            }
            reachable = true;
        },
        [](const std::string& text) { slog::consoleLine("Exception in ensureModel - " + text); });
    return reachable;
}

// The network description up to its first zero byte, and the weights.
std::optional<Inference::NetworkData> readNetwork(const Resources::ResourceInfo& record) {
    auto network = Resources::readDecipheredFile(networkPath(record, Resources::FileRole::Network), kMaxNetworkBytes);
    auto weights = Resources::readDecipheredFile(networkPath(record, Resources::FileRole::Weights), kMaxWeightsBytes);
    if (!network || !weights) {
        slog::err << "The network files of " << record.folder << " could not be read." << std::endl;
        return std::nullopt;
    }
    Inference::NetworkData data;
    const char* text = reinterpret_cast<const char*>(network->data());
    data.description.assign(text, ::strnlen(text, network->size()));
    weights->pop_back();  // the terminating zero the deciphering adds
    data.weights = std::move(*weights);
    return data;
}

}  // namespace

std::size_t Engine::requestCount() {
    return 2 * static_cast<std::size_t>(std::max(1u, std::thread::hardware_concurrency()));
}

bool Engine::makeReady(const std::vector<std::uint32_t>& resources, std::string& errorText) {
    for (const auto resource : resources) {
        if (resourceState(resource) == kNotLoaded) initialiseSet(resource);
    }
    bool ready = true;
    for (const auto resource : resources) {
        if (waitWhileLoading(resource)) continue;
        errorText += "Error loading one of the resources...";
        ready = false;
    }
    return ready;
}

void Engine::ensureLoading(std::uint32_t resource) {
    if (resourceState(resource) == kNotLoaded) initialiseSet(resource);
}

int Engine::resourceState(std::uint32_t resource) const {
    const auto entry = entryOf(resource);
    return entry ? entry->loadState.load() : kNotLoaded;
}

std::shared_ptr<Inference::LoadedModel> Engine::model(std::uint32_t resource) const {
    const auto entry = entryOf(resource);
    if (!entry) return nullptr;
    auto loaded = entry->model();
    return loaded && loaded->pool ? loaded : nullptr;
}

// True when the resource left the loading state before the last poll.
bool Engine::waitWhileLoading(std::uint32_t resource) const {
    if (resourceState(resource) != kLoading) return true;
    for (int polls = 1; polls <= kMaxPolls; ++polls) {
        std::this_thread::sleep_for(kPollInterval);
        if (resourceState(resource) != kLoading) return polls < kMaxPolls;
    }
    return false;
}

// Loads every member of the set that holds the resource, each once.
void Engine::initialiseSet(std::uint32_t resource) {
    Base::runReporting(
        [&] {
            if (!initialised()) initialize();
            if (!initialised()) return;
            for (const auto member : setMembers(resource)) initialiseMember(member);
        },
        [resource](const std::string& text) {
            slog::consoleLine("Exception while initializing resource: " + std::to_string(resource) + " - " + text);
        });
}

void Engine::initialiseMember(std::uint32_t resource) {
    const auto entry = entryOf(resource);
    if (!entry) return;
    Base::MutexLock lock(resourceLoadingMutex_);
    // Tested on the entry itself, under the lock: no resource loads twice.
    if (entry->loadState.load() != kNotLoaded) return;
    // The engine was shut down since this scan initialised it: leave the
    // entry unloaded, so that a later scan sets the engine up and loads it.
    const std::shared_ptr<ov::Core> core = core_.get();
    if (!core) return;
    // Marked at once, so that a failed load is not retried by every scan.
    entry->loadState.store(kLoading);
    std::shared_ptr<Inference::LoadedModel> loaded;
    Base::runReporting([&] { loaded = loadMember(*core, resource); },
                       [resource](const std::string& text) {
                           slog::consoleLine("Exception while initializing resource: " + std::to_string(resource) +
                                             " - " + text);
                       });
    entry->setModel(std::move(loaded));
    entry->loadState.store(kLoaded);
}

// Reads the folder again, checks it still holds the resource, and loads it.
std::shared_ptr<Inference::LoadedModel> Engine::loadMember(ov::Core& core, std::uint32_t resource) {
    const auto record = recordOf(resource);
    if (!record) {
        slog::err << "No resource with the ID " << resource << "..." << std::endl;
        return nullptr;
    }
    const auto details = Resources::readFolderDetails(record->folder, record->group);
    if (!details) {
        slog::err << "Could not read resource deatils for ID " << resource << "..." << std::endl;
        return nullptr;
    }
    if (details->identifier != resource) {
        slog::err << "ID of the read resource is " << details->identifier
                  << " whereas that of resource to be initialized is " << resource << "..." << std::endl;
        return nullptr;
    }
    if (!ensureModel(*record)) return nullptr;
    auto network = readNetwork(*record);
    if (!network) return nullptr;
    auto loaded = Inference::loadModelWithPool(core, std::move(*network), loadOptionsFor(Resources::kindOf(resource)),
                                               requestCount());
    if (loaded) ++modelsLoaded_;
    return loaded;
}

}  // namespace Nubex
