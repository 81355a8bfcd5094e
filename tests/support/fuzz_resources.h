#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

// Writes the generated classifier and detector packs to a temporary
// directory, adds it and initialises the engine. True when ready.
bool prepareFuzzEngine();

// The seed network's description (IR text) and its weights.
std::string seedNetworkDescription();
std::vector<std::uint8_t> seedNetworkWeights();

}  // namespace testing_support
