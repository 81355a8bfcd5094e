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
    Base::MutexLock lock(mutex_);
    try {
        core_.reset(new (std::nothrow) ov::Core(std::string()));
        if (!core_) return 0;
        const std::uint32_t streams = streamCountFor(std::thread::hardware_concurrency());
        configureCpu(*core_, streams);
        return streams;
    } catch (...) {
        const std::string text = Base::currentExceptionText();
        Base::runReporting([&] { slog::err << text << std::endl; }, [](const std::string&) {});
        return 0;
    }
}

void InferenceCore::shutDown() {
    Base::MutexLock lock(mutex_);
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
    Base::MutexLock lock(mutex_);
    return core_;
}

}  // namespace Inference
