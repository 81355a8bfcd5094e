#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Resources {

// Loads the networks of the resource set that holds the identifier, each
// member once: the first caller loads (one load at a time across the
// process), later callers find the member loading or loaded. A member whose
// load fails is still marked loaded, without a network, so that no scan tries
// again. Initialises the engine first when needed. Failures are logged.
void initialiseResource(std::size_t requestCount, std::uint32_t identifier);

// 0 not loaded (or not registered), 1 loading, 2 loaded (with or without a
// network).
int resourceState(std::uint32_t identifier);

// Checks that a resource folder can be loaded from; logs "stat error ..." when
// it cannot.
bool ensureModel(const std::string& folder, int group);

// Releases what initialisation loaded into the first entry with the
// identifier (its model, compiled network and request pool, once the scans
// still using them let go) and marks it not loaded. Unknown identifiers are
// skipped. The caller holds the resource-loading lock.
void releaseResource(std::uint32_t identifier);

// Releases every loaded entry of the table. The caller holds the
// resource-loading lock.
void releaseAllResources();

}  // namespace Resources
