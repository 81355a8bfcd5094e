#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>

#include "resources/resource_details.h"
#include "resources/resource_utils.h"

namespace Nubex {

extern const std::string g_NubexEngineVersion;
// Serialises InitializeNubexEngine.
extern std::mutex g_EngineInitialisationMutex;
// Serialises resource initialisation (one network load at a time). Taken
// before g_RegistryMutex when both are needed.
extern std::mutex g_ResourceLoadingMutex;
// Guards the registry and the structure of g_arrResourceDetails: rescans take
// it exclusively, scans share it for their short reads.
extern std::shared_mutex g_RegistryMutex;
extern std::atomic<bool> g_bEngineInitialised;
// The registry, built from the default directory when the library is loaded.
extern Resources::ResourceUtils g_oResourceUtils;
// The resources that scans may run, with their loaded networks.
extern Resources::ResourceDetailsTable g_arrResourceDetails;

// The default resource directory: "res/" beside the engine's module.
std::optional<std::string> defaultResourceDirectory();

}  // namespace Nubex
