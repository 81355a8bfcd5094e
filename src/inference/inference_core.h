#pragma once

#include <cstdint>
#include <memory>

#include "base/annotated_mutex.h"

namespace ov {
class Core;
}

namespace Inference {

inline constexpr const char* kDeviceName = "CPU";

// The number of CPU throughput streams for P logical processors: max(P / 4, 1).
std::uint32_t streamCountFor(unsigned logicalProcessors);

// The inference core the engine runs every network on. The core is shared:
// a load copies the owner and keeps the core alive while it works, whatever
// a shutdown does meanwhile. Creation, configuration and shutdown happen
// under one mutex, so nobody sees a core half set up.
class InferenceCore {
public:
    // Creates the core and configures its CPU device for throughput: 2*T
    // threads pinned to cores and T streams, T = streamCountFor(processors).
    // Returns T, or 0 when the set-up failed before the CPU was configured;
    // failures are logged, never thrown.
    std::uint32_t setUp();

    // Unloads the CPU plug-in and lets the core go (destroyed once the last
    // load holding it has finished); nothing when there is none.
    void shutDown();

    // The core, or null while there is none.
    std::shared_ptr<ov::Core> get() const;

private:
    mutable Base::Mutex mutex_;
    std::shared_ptr<ov::Core> core_ NUBEX_GUARDED_BY(mutex_);
};

}  // namespace Inference
