// Every process-wide object lives in this one file, so that they are built in
// the order written here (log streams before the engine, whose registry logs
// while it reads the default directory) and torn down in the reverse order.
#include "engine/process_state.h"

#include <iostream>

#include "base/log_stream.h"
#include "base/platform.h"

namespace slog {
LogStream info("INFO", std::cout);
LogStream warn("WARNING", std::cout);
LogStream err("ERROR", std::cerr);
}  // namespace slog

namespace Nubex {

std::optional<std::string> defaultResourceDirectory() {
    const auto modulePath = Base::platform::ownModulePath();
    if (!modulePath) return std::nullopt;
    const auto separator = modulePath->rfind(Base::platform::kPathSeparator);
    const std::string folder = separator == std::string::npos ? std::string() : modulePath->substr(0, separator + 1);
    return folder + "res" + Base::platform::kPathSeparator;
}

const std::string g_NubexEngineVersion = "Nubex 8.0.9.6 - SDK 64 bit for Windows";

namespace {
Engine g_oEngine(defaultResourceDirectory());
}  // namespace

Engine& engine() { return g_oEngine; }

}  // namespace Nubex
