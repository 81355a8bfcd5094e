#pragma once

#include <optional>
#include <string>

#include "engine/engine.h"

namespace Nubex {

extern const std::string g_NubexEngineVersion;

// The process's one engine, built while the library loads (its registry
// reads the default resource directory then). Only the C interface and
// tests reach it; everything below receives what it needs.
Engine& engine();

// The default resource directory: "res/" beside the engine's module.
std::optional<std::string> defaultResourceDirectory();

}  // namespace Nubex
