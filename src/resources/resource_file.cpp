#include "resources/resource_file.h"

#include <cstring>
#include <fstream>

#include "base/platform.h"
#include "resources/decipher.h"

namespace Resources {

std::string resourceFileName(int group, FileRole role) {
    return "NubexResource." + std::to_string(10 * group + static_cast<int>(role));
}

std::string joinPath(const std::string& folder, const std::string& name) {
    std::string path = folder;
    if (path.empty() || path.back() != Base::platform::kPathSeparator) path += Base::platform::kPathSeparator;
    return path + name;
}

std::optional<std::vector<std::uint8_t>> readDecipheredFile(const std::string& path, std::size_t maxBytes) {
    // A fifo or device under a resource name would block or never end.
    if (!Base::platform::isRegularFile(path)) return std::nullopt;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) return std::nullopt;
    const std::streamoff size = file.tellg();
    if (size < 0 || static_cast<std::uint64_t>(size) > maxBytes) return std::nullopt;
    file.seekg(0);
    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(size) + 1, 0);
    if (!file.read(reinterpret_cast<char*>(buffer.data()), size)) return std::nullopt;
    decipherInPlace(buffer.data(), static_cast<std::size_t>(size));
    return buffer;
}

std::string readDecipheredText(const std::string& path) {
    const auto buffer = readDecipheredFile(path, kMaxTextFileBytes);
    if (!buffer) return {};
    const char* text = reinterpret_cast<const char*>(buffer->data());
    return std::string(text, ::strnlen(text, buffer->size()));
}

}  // namespace Resources
