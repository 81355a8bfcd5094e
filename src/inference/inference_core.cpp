#include "inference/inference_core.h"

#include <algorithm>
#include <new>
#include <string>
#include <thread>

#include <openvino/openvino.hpp>

#include "base/exception_text.h"
#include "base/log_stream.h"

namespace Inference {

namespace {

void configureCpu(ov::Core& core, std::uint32_t streams) {
    core.set_property(kDeviceName, ov::inference_num_threads(static_cast<int>(2 * streams)));
    core.set_property(kDeviceName, ov::hint::enable_cpu_pinning(true));
    // Full precision on every processor: scores must not depend on whether
    // the host's CPU offers reduced-precision arithmetic.
    core.set_property(kDeviceName, ov::hint::inference_precision(ov::element::f32));
    core.set_property(kDeviceName, ov::num_streams(static_cast<int>(streams)));
    // Read back: confirms that the plug-in accepted the settings.
    (void)core.get_property(kDeviceName, ov::num_streams);
}

}  // namespace

std::uint32_t streamCountFor(unsigned logicalProcessors) { return std::max(logicalProcessors / 4u, 1u); }

std::uint32_t InferenceCore::setUp() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::uint32_t result = 0;
    Base::runReporting(
        [&] {
            core_.reset(new (std::nothrow) ov::Core(std::string()));
            if (!core_) return;
            const std::uint32_t streams = streamCountFor(std::thread::hardware_concurrency());
            configureCpu(*core_, streams);
            result = streams;
        },
        [](const std::string& text) { slog::err << text << std::endl; });
    return result;
}

void InferenceCore::shutDown() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!core_) return;
    try {
        core_->unload_plugin(kDeviceName);
    } catch (const std::exception& error) {
        // The plug-in was never loaded (set-up failed early): nothing to unload.
        slog::warn << error.what() << std::endl;
    }
    core_.reset();
}

std::shared_ptr<ov::Core> InferenceCore::get() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return core_;
}

}  // namespace Inference
