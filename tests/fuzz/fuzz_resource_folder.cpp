// Fuzz target: a whole resource directory. The input is split at "\n--\n"
// into up to four files (details, class table, network, weights) written,
// enciphered, as one group 0 resource folder; the registry then reads the
// directory, lists it and calibrates through it.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>

#include "resources/categories.h"
#include "resources/resource_listing.h"
#include "resources/resource_utils.h"
#include "resources/resource_writer.h"

namespace {

const std::string& directory() {
    static const std::string path = [] {
        const auto folder = std::filesystem::temp_directory_path() / ("nubex-fuzz-folder-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        return folder.string();
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    std::string parts[4];
    for (auto& part : parts) {
        const auto separator = rest.find("\n--\n");
        part = std::string(rest.substr(0, separator));
        rest = separator == std::string_view::npos ? std::string_view() : rest.substr(separator + 4);
    }
    Resources::ResourceContents contents;
    contents.detailsLine = parts[0];
    contents.classTable = parts[1];
    contents.network = parts[2];
    contents.weights.assign(parts[3].begin(), parts[3].end());
    Resources::writeResourceFolder(directory() + "/resource", 0, contents);

    Resources::ResourceUtils registry(std::nullopt);
    registry.addDirectory(directory());
    registry.addDirectory(directory() + "/");
    (void)Resources::renderResourceListing(registry);
    (void)Resources::categoryLines(registry);
    for (const auto& record : registry.groupRecords(0)) {
        for (std::size_t k = 0; k <= record.categories.size(); ++k) (void)registry.calibrateScore(record.identifier, k, 42.0f);
    }
    return 0;
}
