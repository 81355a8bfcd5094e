#include "inference/engine_core.h"

#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>

#include <openvino/openvino.hpp>

#include "base/log_stream.h"
#include "inference/device_config.h"

namespace Inference {

namespace {

// The core is shared: a load copies the owner and keeps the core alive while
// it works, whatever a shutdown does meanwhile. The mutex covers creation,
// configuration and shutdown, so nobody sees a core half set up.
std::mutex g_CoreMutex;
std::shared_ptr<ov::Core> g_pEngineCore;

void configureCpu(ov::Core& core, std::uint32_t streams, std::map<std::string, std::uint32_t>& deviceStreams) {
    core.set_property(kDeviceName, ov::inference_num_threads(static_cast<int>(2 * streams)));
    core.set_property(kDeviceName, ov::hint::enable_cpu_pinning(true));
    // Full precision on every processor: scores must not depend on whether
    // the host's CPU offers reduced-precision arithmetic.
    core.set_property(kDeviceName, ov::hint::inference_precision(ov::element::f32));
    core.set_property(kDeviceName, ov::num_streams(static_cast<int>(streams)));
    const auto configured = deviceStreams.find(kDeviceName);
    if (configured != deviceStreams.end()) {
        core.set_property(kDeviceName, ov::num_streams(static_cast<int>(configured->second)));
    } else {
        core.set_property(kDeviceName, ov::num_streams(ov::streams::AUTO));
    }
    // Read back what the plug-in accepted.
    const auto accepted = core.get_property(kDeviceName, ov::num_streams);
    deviceStreams[kDeviceName] = static_cast<std::uint32_t>(parseStreamCount(std::to_string(accepted.num)));
}

}  // namespace

std::uint32_t setUpEngineCore() {
    std::lock_guard<std::mutex> lock(g_CoreMutex);
    std::uint32_t result = 0;
    try {
        g_pEngineCore.reset(new (std::nothrow) ov::Core(std::string()));
        const std::uint32_t streams = streamCountFor(std::thread::hardware_concurrency());
        const auto devices = parseDeviceList(kDeviceName);
        auto deviceStreams = parseDeviceStreams(devices, std::to_string(streams));
        for (const auto& device : devices) {
            if (device != kDeviceName || !g_pEngineCore) continue;
            configureCpu(*g_pEngineCore, streams, deviceStreams);
            result = streams;
        }
    } catch (const std::exception& error) {
        slog::err << error.what() << std::endl;
    } catch (...) {
        slog::err << "Unknown/internal exception happened." << std::endl;
    }
    return result;
}

void shutDownEngineCore() {
    std::lock_guard<std::mutex> lock(g_CoreMutex);
    if (!g_pEngineCore) return;
    try {
        g_pEngineCore->unload_plugin(kDeviceName);
    } catch (const std::exception& error) {
        // The plug-in was never loaded (set-up failed early): nothing to unload.
        slog::warn << error.what() << std::endl;
    }
    g_pEngineCore.reset();
}

std::shared_ptr<ov::Core> engineCore() {
    std::lock_guard<std::mutex> lock(g_CoreMutex);
    return g_pEngineCore;
}

}  // namespace Inference

