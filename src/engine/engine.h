#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/annotated_mutex.h"
#include "engine/resource_details.h"
#include "inference/inference_core.h"
#include "inference/loaded_model.h"
#include "resources/resource_info.h"
#include "resources/resource_utils.h"

namespace Nubex {

// The engine's state and the one place that changes it: the registry of
// resources, the table of resources scans may run with their loaded networks,
// the inference core, and the locks between them. Lock order: loading, then
// initialisation, then registry (each may be taken alone).
class Engine {
public:
    // Reads the default directory, when there is one, into the registry.
    explicit Engine(std::optional<std::string> defaultDirectory);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // --- Lifecycle -------------------------------------------------------
    // Sets the core up once and refreshes the resources; later calls return 0.
    std::uint32_t initialize();
    // -1 releases everything and shuts the core down; a category identifier
    // releases the resources of every resource set that holds its group.
    void deinitialize(std::int32_t category);
    bool initialised() const { return initialised_.load(); }
    // Releases what loading put into the first entry with the identifier, so
    // that the next scan that needs it loads it again.
    void releaseResource(std::uint32_t resource);

    // --- Registry --------------------------------------------------------
    // Adds a directory and rescans; returns the number of resource sets.
    std::size_t addDirectory(const std::string& directory);
    std::size_t resourceSetCount() const;
    // Rescans, refreshes the table of runnable resources, returns the listing.
    std::string refreshResources();
    // The published category lines "<identifier>\t<name>" (records counted).
    std::vector<std::string> publishCategories();
    std::optional<Resources::CategoryIndexEntry> findCategory(std::int32_t category) const;
    std::vector<Resources::ResourceSet> resourceSets() const;
    // The name the category lines give the category ("" when none does).
    std::string displayName(std::int32_t category) const;
    // The group 1 member of the set whose group 0 member is the resource, or 0.
    std::uint32_t secondStageOf(std::uint32_t resource) const;
    // For each category of a job, the calibration the resource declares for
    // it (looked up by identifier, else at the category's position in the
    // job); nothing where the resource has none.
    std::vector<std::optional<Resources::CategoryDetails>> calibrations(
        std::uint32_t resource, const std::vector<std::int32_t>& categories) const;
    // The identifiers DeInitializeNubexEngine releases, in order.
    std::vector<std::uint32_t> identifiersToRelease(std::int32_t category) const;

    // --- Loading ---------------------------------------------------------
    // Requests per network pool: 2 x the hardware thread count.
    static std::size_t requestCount();
    // Loads the resources a scan needs (each not yet loaded one with the
    // other members of its set) and waits, polling every 200 ms, for those
    // another scan is loading. A resource still loading after 200 polls is
    // reported ("Error loading one of the resources...") and gives false.
    bool makeReady(const std::vector<std::uint32_t>& resources, std::string& errorText);
    // Starts loading the resource's set when nothing has; does not wait.
    void ensureLoading(std::uint32_t resource);
    // 0 not loaded (or not registered), 1 loading, 2 loaded (with or without
    // a network).
    int resourceState(std::uint32_t resource) const;
    // The loaded network of the first entry with the identifier, or null.
    // The caller's owner keeps the network and its pool alive while it works.
    std::shared_ptr<Inference::LoadedModel> model(std::uint32_t resource) const;
    std::size_t modelsLoaded() const { return modelsLoaded_.load(); }
    // A copy of the table of runnable resources (for tools and tests).
    ResourceDetailsTable details() const;

private:
    std::shared_ptr<ResourceDetails> entryOf(std::uint32_t resource) const;
    static void release(ResourceDetails& entry);
    std::optional<Resources::ResourceInfo> recordOf(std::uint32_t resource) const;
    std::vector<std::uint32_t> setMembers(std::uint32_t resource) const;
    void initialiseSet(std::uint32_t resource);
    void initialiseMember(std::uint32_t resource);
    std::shared_ptr<Inference::LoadedModel> loadMember(ov::Core& core, std::uint32_t resource);
    bool waitWhileLoading(std::uint32_t resource) const;

    // Serialises initialize() and the core's shutdown.
    Base::Mutex engineInitialisationMutex_;
    // Serialises loading and releasing networks (one load at a time).
    Base::Mutex resourceLoadingMutex_;
    // Guards the registry and the structure of the details table: rescans
    // take it exclusively, scans share it for short reads.
    mutable Base::SharedMutex registryMutex_;
    std::atomic<bool> initialised_{false};
    std::atomic<std::size_t> modelsLoaded_{0};
    Inference::InferenceCore core_;
    Resources::ResourceUtils resourceUtils_ NUBEX_GUARDED_BY(registryMutex_);
    ResourceDetailsTable resourceDetails_ NUBEX_GUARDED_BY(registryMutex_);
};

}  // namespace Nubex
