#pragma once

#include <cstdint>

namespace Resources {

// Releases what initialisation loaded into the first entry with the
// identifier (its model, compiled network and request pool; requests still
// running are waited for) and marks it not loaded. Unknown identifiers are
// skipped.
void releaseResource(std::uint32_t identifier);

// Releases every loaded entry of the table.
void releaseAllResources();

}  // namespace Resources
