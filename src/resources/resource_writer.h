#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Resources {

// The plain contents of one resource folder.
struct ResourceContents {
    std::string detailsLine;          // "identifier, name, version[, flag]"
    std::string classTable;           // one line per network output class
    std::string network;              // the network description (IR xml)
    std::vector<std::uint8_t> weights;  // the network weights (IR bin)
};

// Creates the folder (and its parents) and writes the four files of the
// group, each enciphered. Throws std::runtime_error when a file cannot be
// written.
void writeResourceFolder(const std::string& folder, int group, const ResourceContents& contents);

// Writes bytes enciphered to one file.
void writeEncipheredFile(const std::string& path, const std::uint8_t* bytes, std::size_t length);

}  // namespace Resources
