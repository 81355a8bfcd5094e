#include "inference/device_config.h"

#include <algorithm>
#include <stdexcept>

namespace Inference {

namespace {

std::vector<std::string> splitText(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (;;) {
        const auto end = text.find(separator, start);
        pieces.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) return pieces;
        start = end + 1;
    }
}

}  // namespace

std::uint32_t streamCountFor(unsigned logicalProcessors) { return std::max(logicalProcessors / 4u, 1u); }

std::vector<std::string> parseDeviceList(const std::string& text) {
    const auto colon = text.find(':');
    return splitText(colon == std::string::npos ? text : text.substr(colon + 1), ',');
}

int parseStreamCount(const std::string& text) {
    try {
        return std::stoi(text, nullptr, 10);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument("invalid stoi argument");
    } catch (const std::out_of_range&) {
        throw std::out_of_range("stoi argument out of range");
    }
}

std::map<std::string, std::uint32_t> parseDeviceStreams(const std::vector<std::string>& devices,
                                                        const std::string& text) {
    std::map<std::string, std::uint32_t> streams;
    for (const auto& piece : splitText(text, ',')) {
        const auto fields = splitText(piece, ':');
        if (fields.size() == 2) {
            if (std::find(devices.begin(), devices.end(), fields[0]) != devices.end()) {
                streams[fields[0]] = static_cast<std::uint32_t>(parseStreamCount(fields[1]));
            }
        } else if (fields.size() == 1) {
            const auto count = static_cast<std::uint32_t>(parseStreamCount(fields[0]));
            for (const auto& device : devices) streams[device] = count;
        } else {
            throw std::logic_error("Unknown string format: " + text);
        }
    }
    return streams;
}

}  // namespace Inference
