#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/annotated_mutex.h"
#include "inference/loaded_model.h"
#include "resources/resource_info.h"

namespace Nubex {

// How far a registered resource's networks have got.
enum LoadState : int { kNotLoaded = 0, kLoading = 1, kLoaded = 2 };

// A resource that scans may run. Once initialisation has started on it, the
// entry holds its loaded model (or none, when loading failed) until it is
// released; such entries survive every rescan of the registry.
struct ResourceDetails {
    std::uint32_t identifier = 0;
    std::uint32_t backgroundIndex = 0;
    std::string folder;
    std::string version;
    std::string name;
    std::vector<std::string> categoryNames;
    std::int32_t group = 0;
    std::int32_t enabled = 1;
    std::atomic<int> loadState{kNotLoaded};

    bool initialised() const { return loadState.load() != kNotLoaded; }

    // The loaded network: stored under the resource-loading lock before
    // loadState becomes kLoaded; read by scans without it.
    std::shared_ptr<Inference::LoadedModel> model() const {
        Base::MutexLock lock(modelMutex_);
        return model_;
    }
    void setModel(std::shared_ptr<Inference::LoadedModel> model) {
        Base::MutexLock lock(modelMutex_);
        model_ = std::move(model);
    }

private:
    mutable Base::Mutex modelMutex_;
    std::shared_ptr<Inference::LoadedModel> model_ NUBEX_GUARDED_BY(modelMutex_);
};

using ResourceDetailsTable = std::vector<std::shared_ptr<ResourceDetails>>;

// Drops entries that hold nothing loaded and adds one per record that the
// table does not yet hold in the same version.
void refreshResourceDetails(ResourceDetailsTable& table, const std::vector<Resources::ResourceInfo>& records);

// First entry with the identifier, or null.
std::shared_ptr<ResourceDetails> findResourceDetails(const ResourceDetailsTable& table, std::uint32_t identifier);

}  // namespace Nubex
