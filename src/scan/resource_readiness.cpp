#include "scan/resource_readiness.h"

#include <chrono>
#include <thread>

#include "resources/resource_details.h"
#include "resources/resource_initialisation.h"

namespace Scan {

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(200);
constexpr int kMaxPolls = 200;

// True when the resource left the loading state before the last poll.
bool waitWhileLoading(std::uint32_t resource) {
    if (Resources::resourceState(resource) != Resources::kLoading) return true;
    for (int polls = 1; polls <= kMaxPolls; ++polls) {
        std::this_thread::sleep_for(kPollInterval);
        if (Resources::resourceState(resource) != Resources::kLoading) return polls < kMaxPolls;
    }
    return false;
}

}  // namespace

bool makeResourcesReady(const std::vector<std::uint32_t>& resources, std::size_t requestCount,
                        std::string& errorText) {
    for (const auto resource : resources) {
        if (Resources::resourceState(resource) == Resources::kNotLoaded) {
            Resources::initialiseResource(requestCount, resource);
        }
    }
    bool ready = true;
    for (const auto resource : resources) {
        if (waitWhileLoading(resource)) continue;
        errorText += "Error loading one of the resources...";
        ready = false;
    }
    return ready;
}

}  // namespace Scan
