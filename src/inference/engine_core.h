#pragma once

#include <cstdint>

namespace ov {
class Core;
}

namespace Inference {

// Creates the process-wide inference core and configures its CPU device for
// throughput: 2*T threads pinned to cores and T streams, T = max(P / 4, 1) for
// P logical processors. Returns T, or 0 when the set-up failed before the CPU
// was configured; failures are logged, never thrown.
std::uint32_t setUpEngineCore();

// Unloads the CPU plug-in and destroys the core; nothing when there is none.
void shutDownEngineCore();

// The core, or null while the engine is not initialised.
ov::Core* engineCore();

inline constexpr const char* kDeviceName = "CPU";

}  // namespace Inference
