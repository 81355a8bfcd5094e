#include "support/fuzz_resources.h"

#include <filesystem>
#include <sstream>
#include <unistd.h>

#include <openvino/pass/manager.hpp>
#include <openvino/pass/serialize.hpp>

#include "nubex_engine.h"
#include "support/test_networks.h"
#include "support/test_pack.h"

namespace testing_support {

namespace {

std::string temporaryFolder(const std::string& name) {
    const auto folder = std::filesystem::temp_directory_path() / (name + "-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    return folder.string();
}

void serialise(std::string& description, std::string& weights) {
    std::ostringstream xml;
    std::ostringstream bin;
    ov::pass::Manager manager;
    manager.register_pass<ov::pass::Serialize>(xml, bin);
    manager.run_passes(channelMeansNetwork(8, 8, 255.0f));
    description = xml.str();
    weights = bin.str();
}

}  // namespace

bool prepareFuzzEngine() {
    const std::string directory = temporaryFolder("nubex-fuzz-engine");
    writeClassifierPack(directory);
    writeDetectorPack(directory);
    SetNubexResourceDirectory(directory.c_str());
    return InitializeNubexEngine() > 0;
}

std::string seedNetworkDescription() {
    std::string description;
    std::string weights;
    serialise(description, weights);
    return description;
}

std::vector<std::uint8_t> seedNetworkWeights() {
    std::string description;
    std::string weights;
    serialise(description, weights);
    return std::vector<std::uint8_t>(weights.begin(), weights.end());
}

}  // namespace testing_support
