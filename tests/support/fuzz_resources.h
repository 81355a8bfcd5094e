#pragma once

#include <string>

namespace testing_support {

// Writes the generated classifier and detector packs to a temporary
// directory, adds it and initialises the engine. True when ready.
bool prepareFuzzEngine();

// A temporary resource folder holding the seed network's weights, and the
// writer of a network description into it.
std::string fuzzModelFolder();
void writeFuzzNetwork(const std::string& folder, const std::string& description);

// The seed network's description (IR text) whose weights fuzzModelFolder holds.
std::string seedNetworkDescription();

}  // namespace testing_support
