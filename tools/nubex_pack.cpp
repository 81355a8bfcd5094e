// nubex-pack: builds, inspects and verifies resource folders.
//   nubex-pack build --xml MODEL.xml --bin MODEL.bin --details LINE --classes FILE [--group G] FOLDER
//   nubex-pack inspect [--group G] FOLDER
//   nubex-pack verify [--group G] [--kind KIND] FOLDER
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

#include <openvino/runtime/core.hpp>

#include "engine/network_contract.h"
#include "inference/model_loader.h"
#include "resources/class_table.h"
#include "resources/details_line.h"
#include "resources/resource_file.h"
#include "resources/resource_folder.h"
#include "resources/resource_writer.h"
#include "engine/network_contract.h"

namespace {

using Arguments = std::map<std::string, std::string>;

void usage() {
    std::cerr << "usage:\n"
                 "  nubex-pack build --xml MODEL.xml --bin MODEL.bin --details \"ID, NAME, VERSION\" --classes FILE\n"
                 "                   [--group 0|1|2] FOLDER\n"
                 "  nubex-pack inspect [--group 0|1|2] FOLDER\n"
                 "  nubex-pack verify [--group 0|1|2] [--kind classifier|face|text-detection|text-presence|text-recognition] FOLDER\n";
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// "--name value" pairs, and the last bare word as the folder.
Arguments parseArguments(int argc, char** argv) {
    Arguments arguments;
    for (int i = 2; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.rfind("--", 0) == 0) {
            if (i + 1 >= argc) throw std::runtime_error(word + " needs a value");
            arguments[word.substr(2)] = argv[++i];
        } else {
            arguments["folder"] = word;
        }
    }
    if (arguments.count("folder") == 0) throw std::runtime_error("no resource folder given");
    return arguments;
}

int groupOf(const Arguments& arguments) {
    const auto found = arguments.find("group");
    const int group = found == arguments.end() ? 0 : std::stoi(found->second);
    if (group < 0 || group > 2) throw std::runtime_error("the group must be 0, 1 or 2");
    return group;
}

std::string required(const Arguments& arguments, const std::string& name) {
    const auto found = arguments.find(name);
    if (found == arguments.end()) throw std::runtime_error("--" + name + " is required");
    return found->second;
}

int build(const Arguments& arguments) {
    Resources::ResourceContents contents;
    contents.detailsLine = required(arguments, "details");
    if (!Resources::parseDetailsLine(contents.detailsLine)) {
        throw std::runtime_error("the details line needs an identifier, a name and a version");
    }
    contents.classTable = readFile(required(arguments, "classes"));
    if (Resources::parseClassTable(contents.classTable).categories.empty()) {
        throw std::runtime_error("the class table declares no category");
    }
    contents.network = readFile(required(arguments, "xml"));
    const std::string weights = readFile(required(arguments, "bin"));
    contents.weights.assign(weights.begin(), weights.end());
    Resources::writeResourceFolder(arguments.at("folder"), groupOf(arguments), contents);
    std::cout << "wrote " << arguments.at("folder") << "\n";
    return 0;
}

void printPorts(const char* title, const std::vector<ov::Output<ov::Node>>& ports) {
    for (const auto& port : ports) {
        std::cout << title << "\t" << port.get_any_name() << "\t" << port.get_element_type() << "\t"
                  << port.get_partial_shape() << "\n";
    }
}

int inspect(const Arguments& arguments) {
    const std::string& folder = arguments.at("folder");
    const int group = groupOf(arguments);
    if (!Resources::holdsGroupFiles(folder, group)) throw std::runtime_error("not a group " + std::to_string(group) + " resource folder: " + folder);
    using Resources::FileRole;
    auto text = [&](FileRole role) {
        return Resources::readDecipheredText(Resources::joinPath(folder, Resources::resourceFileName(group, role)));
    };
    std::cout << "details\t" << text(FileRole::Details).substr(0, text(FileRole::Details).find('\n')) << "\n";
    std::cout << "class table:\n" << text(FileRole::ClassTable);
    if (!text(FileRole::ClassTable).empty() && text(FileRole::ClassTable).back() != '\n') std::cout << "\n";
    const auto weights = Resources::readDecipheredFile(
        Resources::joinPath(folder, Resources::resourceFileName(group, FileRole::Weights)), 0x7FFFFFFFu);
    if (!weights) throw std::runtime_error("cannot read the weights");
    ov::Core core;
    const ov::Tensor tensor =
        weights->size() > 1 ? ov::Tensor(ov::element::u8, ov::Shape{weights->size() - 1}, const_cast<std::uint8_t*>(weights->data())) : ov::Tensor();
    const auto model = core.read_model(text(FileRole::Network), tensor);
    printPorts("input", model->inputs());
    printPorts("output", model->outputs());
    return 0;
}

int verify(const Arguments& arguments) {
    const std::string& folder = arguments.at("folder");
    const int group = groupOf(arguments);
    const auto details = Resources::readFolderDetails(folder, group);
    if (!details) throw std::runtime_error("not a group " + std::to_string(group) + " resource folder: " + folder);
    const auto kind = arguments.count("kind") ? Nubex::kindNamed(arguments.at("kind"))
                                              : Resources::kindOf(details->identifier);
    using Resources::FileRole;
    Inference::NetworkData network;
    network.description =
        Resources::readDecipheredText(Resources::joinPath(folder, Resources::resourceFileName(group, FileRole::Network)));
    auto weights = Resources::readDecipheredFile(
        Resources::joinPath(folder, Resources::resourceFileName(group, FileRole::Weights)), 0x7FFFFFFFu);
    if (!weights) throw std::runtime_error("cannot read the weights");
    weights->pop_back();  // the terminating zero the deciphering adds
    network.weights = std::move(*weights);
    ov::Core core;
    const auto loaded = Inference::loadModel(core, std::move(network), Nubex::loadOptionsFor(kind));
    if (!loaded) throw std::runtime_error("the network does not load (see the messages above)");
    const auto table = Resources::readFolderClassTable(folder, group);
    const std::string problem = Nubex::checkNetworkContract(*loaded, kind, table);
    if (!problem.empty()) throw std::runtime_error(problem);
    std::cout << "ok: " << details->identifier << " (" << details->name << ", " << details->version << ") is a "
              << Nubex::kindName(kind) << " network with input " << loaded->inputShape << "\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        usage();
        return 2;
    }
    try {
        const std::string command = argv[1];
        const Arguments arguments = parseArguments(argc, argv);
        if (command == "build") return build(arguments);
        if (command == "inspect") return inspect(arguments);
        if (command == "verify") return verify(arguments);
        usage();
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "nubex-pack: " << error.what() << "\n";
        return 1;
    }
}
