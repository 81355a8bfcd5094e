#include "engine/engine.h"

#include <algorithm>

#include "base/platform.h"
#include "resources/categories.h"
#include "resources/resource_listing.h"

namespace Nubex {

Engine::Engine(std::optional<std::string> defaultDirectory) : resourceUtils_(std::move(defaultDirectory)) {}

std::uint32_t Engine::initialize() {
    Base::MutexLock lock(engineInitialisationMutex_);
    if (initialised_.load()) return 0;
    const std::uint32_t streams = core_.setUp();
    // A failed set-up is not retried by a later call.
    initialised_.store(true);
    refreshResources();
    return streams;
}

void Engine::deinitialize(std::int32_t category) {
    const auto identifiers = identifiersToRelease(category);
    // One hold of the loading lock: no network loads between the releases
    // and the shutdown, so no load is left working on a core being shut down.
    Base::MutexLock loading(resourceLoadingMutex_);
    for (const auto identifier : identifiers) {
        if (const auto entry = entryOf(identifier)) release(*entry);
    }
    if (category != -1) return;
    {
        // Entries outside every set (replaced versions) may still hold networks.
        Base::SharedLock registry(registryMutex_);
        for (const auto& entry : resourceDetails_) release(*entry);
    }
    // Serialised with initialisation, which a scan may start at any time.
    Base::MutexLock initialisation(engineInitialisationMutex_);
    core_.shutDown();
    initialised_.store(false);
    Base::platform::releaseFreeMemory();
}

void Engine::release(ResourceDetails& entry) {
    // The network (and its pool, once its requests finish) goes when the
    // last scan holding it lets go.
    entry.setModel(nullptr);
    entry.loadState.store(kNotLoaded);
}

void Engine::releaseResource(std::uint32_t resource) {
    Base::MutexLock loading(resourceLoadingMutex_);
    if (const auto entry = entryOf(resource)) release(*entry);
}

std::size_t Engine::addDirectory(const std::string& directory) {
    Base::WriterLock lock(registryMutex_);
    return resourceUtils_.addDirectory(directory);
}

std::size_t Engine::resourceSetCount() const {
    Base::SharedLock lock(registryMutex_);
    return resourceUtils_.resourceSets().size();
}

std::string Engine::refreshResources() {
    Base::WriterLock lock(registryMutex_);
    resourceUtils_.scanAllGroups();
    std::string listing = Resources::renderResourceListing(resourceUtils_);
    std::vector<Resources::ResourceInfo> records;
    resourceUtils_.getRecords(records, Resources::ResourceUtils::kAllRecords);
    refreshResourceDetails(resourceDetails_, records);
    return listing;
}

std::vector<std::string> Engine::publishCategories() {
    Base::WriterLock lock(registryMutex_);
    Resources::countRecords(resourceUtils_);
    return Resources::categoryLines(resourceUtils_);
}

std::optional<Resources::CategoryIndexEntry> Engine::findCategory(std::int32_t category) const {
    Base::SharedLock lock(registryMutex_);
    const Resources::CategoryIndexEntry* entry = resourceUtils_.findCategory(category);
    return entry != nullptr ? std::optional(*entry) : std::nullopt;
}

std::vector<Resources::ResourceSet> Engine::resourceSets() const {
    Base::SharedLock lock(registryMutex_);
    return resourceUtils_.resourceSets();
}

std::string Engine::displayName(std::int32_t category) const {
    Base::SharedLock lock(registryMutex_);
    const std::string* name = resourceUtils_.displayName(category);
    return name != nullptr ? *name : std::string();
}

std::uint32_t Engine::secondStageOf(std::uint32_t resource) const {
    Base::SharedLock lock(registryMutex_);
    for (const auto& set : resourceUtils_.resourceSets()) {
        if (set.identifiers[0] == resource) return set.identifiers[1];
    }
    return 0;
}

std::vector<std::optional<Resources::CategoryDetails>> Engine::calibrations(
    std::uint32_t resource, const std::vector<std::int32_t>& categories) const {
    Base::SharedLock lock(registryMutex_);
    const Resources::ResourceInfo* record = resourceUtils_.findRecord(resource);
    std::vector<std::optional<Resources::CategoryDetails>> found(categories.size());
    if (record == nullptr) return found;
    for (std::size_t k = 0; k < categories.size(); ++k) {
        const auto declared = record->categoryPositions.find(categories[k]);
        const std::size_t position = declared != record->categoryPositions.end() ? declared->second : k;
        if (position < record->categories.size()) found[k] = record->categories[position];
    }
    return found;
}

std::vector<std::uint32_t> Engine::identifiersToRelease(std::int32_t category) const {
    Base::SharedLock lock(registryMutex_);
    std::vector<std::uint32_t> identifiers;
    if (category == -1) {
        for (const auto& set : resourceUtils_.resourceSets()) {
            const auto members = set.members();
            identifiers.insert(identifiers.end(), members.begin(), members.end());
        }
        return identifiers;
    }
    const auto* entry = resourceUtils_.findCategory(category);
    if (entry == nullptr || entry->resourceIdentifier == 0) return {};
    for (const auto& set : resourceUtils_.resourceSets()) {
        if (!set.holds(entry->resourceIdentifier)) continue;
        const auto members = set.members();
        identifiers.insert(identifiers.end(), members.begin(), members.end());
    }
    return identifiers;
}

std::vector<std::uint32_t> Engine::setMembers(std::uint32_t resource) const {
    Base::SharedLock lock(registryMutex_);
    for (const auto& set : resourceUtils_.resourceSets()) {
        if (set.holds(resource)) return set.members();
    }
    return {};
}

std::shared_ptr<ResourceDetails> Engine::entryOf(std::uint32_t resource) const {
    Base::SharedLock lock(registryMutex_);
    return findResourceDetails(resourceDetails_, resource);
}

std::optional<Resources::ResourceInfo> Engine::recordOf(std::uint32_t resource) const {
    Base::SharedLock lock(registryMutex_);
    Resources::ResourceInfo record;
    if (!resourceUtils_.findByIdentifier(resource, record)) return std::nullopt;
    return record;
}

ResourceDetailsTable Engine::details() const {
    Base::SharedLock lock(registryMutex_);
    return resourceDetails_;
}

}  // namespace Nubex
