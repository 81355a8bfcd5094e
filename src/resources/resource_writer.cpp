#include "resources/resource_writer.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "resources/decipher.h"
#include "resources/resource_file.h"

namespace Resources {

void writeEncipheredFile(const std::string& path, const std::uint8_t* bytes, std::size_t length) {
    std::vector<std::uint8_t> enciphered(bytes, bytes + length);
    decipherInPlace(enciphered.data(), enciphered.size());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(enciphered.data()), static_cast<std::streamsize>(enciphered.size()));
    if (!file) throw std::runtime_error("cannot write " + path);
}

void writeResourceFolder(const std::string& folder, int group, const ResourceContents& contents) {
    std::filesystem::create_directories(folder);
    auto writeText = [&](FileRole role, const std::string& text) {
        writeEncipheredFile(joinPath(folder, resourceFileName(group, role)),
                            reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    };
    writeText(FileRole::Network, contents.network);
    writeEncipheredFile(joinPath(folder, resourceFileName(group, FileRole::Weights)), contents.weights.data(),
                        contents.weights.size());
    writeText(FileRole::ClassTable, contents.classTable);
    writeText(FileRole::Details, contents.detailsLine);
}

}  // namespace Resources
