#pragma once

#include <cstdint>
#include <memory>

namespace ov {
class Core;
}

namespace Inference {

// Creates the process-wide inference core and configures its CPU device for
// throughput: 2*T threads pinned to cores and T streams, T = max(P / 4, 1) for
// P logical processors. Returns T, or 0 when the set-up failed before the CPU
// was configured; failures are logged, never thrown.
std::uint32_t setUpEngineCore();

// Unloads the CPU plug-in and lets the core go (it is destroyed once the
// last load holding it has finished); nothing when there is none. The caller
// makes sure no load is under way (the resource-loading lock).
void shutDownEngineCore();

// The core, or null while the engine is not initialised. The caller's owner
// keeps it alive while it loads.
std::shared_ptr<ov::Core> engineCore();

inline constexpr const char* kDeviceName = "CPU";

}  // namespace Inference
