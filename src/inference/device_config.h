#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Inference {

// The number of CPU throughput streams: max(processors / 4, 1).
std::uint32_t streamCountFor(unsigned logicalProcessors);

// "HETERO:CPU,GPU" gives {"CPU", "GPU"}; text without ":" is the list itself.
std::vector<std::string> parseDeviceList(const std::string& text);

// "CPU:3,GPU:2" or "4": a count per listed device. Pieces naming devices that
// are not listed are ignored; a bare count applies to every listed device. A
// piece with more than one ":" throws std::logic_error("Unknown string format: "
// + text); counts are read like std::stoi.
std::map<std::string, std::uint32_t> parseDeviceStreams(const std::vector<std::string>& devices,
                                                        const std::string& text);

// std::stoi with the messages of the runtime library that the engine reports:
// "invalid stoi argument" and "stoi argument out of range".
int parseStreamCount(const std::string& text);

}  // namespace Inference
