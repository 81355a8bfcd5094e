#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Scan {

// Loads the resources a scan needs (each not yet loaded one is initialised,
// with a pool of requestCount requests) and waits, polling every 200 ms, for
// those another scan is loading. A resource still loading after 200 polls is
// reported ("Error loading one of the resources...") and makes the result
// false.
bool makeResourcesReady(const std::vector<std::uint32_t>& resources, std::size_t requestCount,
                        std::string& errorText);

}  // namespace Scan
