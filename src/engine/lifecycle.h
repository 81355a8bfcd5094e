#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Nubex {

// Sets the engine up once; later calls return 0.
std::uint32_t initializeEngine();

// -1 releases everything and shuts the core down; a category identifier
// releases the resources of every resource set that holds its group.
void deinitializeEngine(std::int32_t category);

// Rescans the resource directories, refreshes the table of runnable
// resources and returns the listing of the resource sets.
std::string refreshResources();

// The identifiers DeInitializeNubexEngine releases, in order (see .cpp).
std::vector<std::uint32_t> identifiersToRelease(std::int32_t category);

}  // namespace Nubex
