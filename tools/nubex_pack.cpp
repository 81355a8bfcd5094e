// nubex-pack: builds, inspects and verifies resource folders.
//   nubex-pack build --xml MODEL.xml --bin MODEL.bin --details LINE --classes FILE [--group G] [--kind KIND]
//                    [--against DIR]... [--against-default] [--no-verify] FOLDER
//   nubex-pack inspect [--group G] FOLDER
//   nubex-pack verify [--group G] [--kind KIND] [--against DIR]... [--against-default] FOLDER
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <openvino/runtime/core.hpp>

#include "engine/network_contract.h"
#include "engine/process_state.h"
#include "inference/model_loader.h"
#include "resources/class_table.h"
#include "resources/details_line.h"
#include "resources/resource_file.h"
#include "resources/resource_folder.h"
#include "resources/resource_utils.h"
#include "resources/resource_writer.h"

namespace {

namespace fs = std::filesystem;
using Resources::FileRole;
using Resources::ResourceKind;

constexpr FileRole kRoles[] = {FileRole::Network, FileRole::Weights, FileRole::ClassTable, FileRole::Details};

void usage() {
    std::cerr << "usage:\n"
                 "  nubex-pack build --xml MODEL.xml --bin MODEL.bin --details \"ID, NAME, VERSION\" --classes FILE\n"
                 "                   [--group 0|1|2] [--kind KIND] [--against DIR]... [--against-default]\n"
                 "                   [--no-verify] FOLDER\n"
                 "  nubex-pack inspect [--group 0|1|2] FOLDER\n"
                 "  nubex-pack verify [--group 0|1|2] [--kind KIND] [--against DIR]... [--against-default] FOLDER\n"
                 "KIND: classifier, face, text-detection, text-presence, text-recognition (by default the\n"
                 "kind the engine gives the identifier: 8337 face, 9112 text-detection, 9113 text-presence,\n"
                 "19112 text-recognition, any other a classifier)\n";
}

// The command line of one command: "--name value" options, the flags, the
// repeated --against directories and the folder (the one bare word).
struct Arguments {
    std::map<std::string, std::string> values;
    std::set<std::string> flags;
    std::vector<std::string> against;
    std::string folder;

    bool has(const std::string& name) const { return values.count(name) != 0; }
    std::string required(const std::string& name) const {
        const auto found = values.find(name);
        if (found == values.end()) throw std::runtime_error("--" + name + " is required");
        return found->second;
    }
};

Arguments parseArguments(const std::string& command, int argc, char** argv) {
    std::set<std::string> options{"group"};
    std::set<std::string> flags;
    if (command == "build") {
        options.insert({"xml", "bin", "details", "classes", "kind", "against"});
        flags.insert({"against-default", "no-verify"});
    } else if (command == "verify") {
        options.insert({"kind", "against"});
        flags.insert("against-default");
    }
    Arguments arguments;
    for (int i = 2; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.rfind("--", 0) != 0) {
            if (!arguments.folder.empty()) {
                throw std::runtime_error("one resource folder at a time: both " + arguments.folder + " and " + word +
                                         " given");
            }
            arguments.folder = word;
            continue;
        }
        const std::string name = word.substr(2);
        if (flags.count(name) != 0) {
            arguments.flags.insert(name);
        } else if (options.count(name) != 0) {
            if (i + 1 >= argc) throw std::runtime_error(word + " needs a value");
            if (name == "against") {
                arguments.against.emplace_back(argv[++i]);
            } else {
                arguments.values[name] = argv[++i];
            }
        } else {
            throw std::runtime_error(command + " has no option " + word);
        }
    }
    if (arguments.folder.empty()) throw std::runtime_error("no resource folder given");
    return arguments;
}

int groupOf(const Arguments& arguments) {
    if (!arguments.has("group")) return 0;
    const std::string& text = arguments.values.at("group");
    if (text != "0" && text != "1" && text != "2") throw std::runtime_error("the group must be 0, 1 or 2, not " + text);
    return text[0] - '0';
}

std::string groupRole(int group) {
    switch (group) {
        case 0: return "group 0 (first stage)";
        case 1: return "group 1 (second stage)";
        default: return "group 2";
    }
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string filePath(const std::string& folder, int group, FileRole role) {
    return Resources::joinPath(folder, Resources::resourceFileName(group, role));
}

// --- verify: the folder as the engine loads it, against its kind's contract ---

struct Verified {
    Resources::DetailsLine details;
    ResourceKind kind = ResourceKind::Classifier;
    ov::PartialShape input;
    std::string declared;  // what the network declares, for the report
    Resources::ClassTable table;
};

Resources::DetailsLine checkedDetails(const std::string& folder, int group) {
    std::string missing;
    for (const auto role : kRoles) {
        if (!fs::is_regular_file(filePath(folder, group, role))) {
            missing += (missing.empty() ? "" : ", ") + Resources::resourceFileName(group, role);
        }
    }
    if (!missing.empty()) {
        throw std::runtime_error(folder + " is not a group " + std::to_string(group) +
                                 " resource folder: it lacks " + missing +
                                 " (a group's four files are the network, weights, class table and details)");
    }
    const auto details = Resources::readFolderDetails(folder, group);
    if (!details) {
        const std::string text = Resources::readDecipheredText(filePath(folder, group, FileRole::Details));
        throw std::runtime_error("the details line \"" + text.substr(0, text.find('\n')) +
                                 "\" needs an identifier, a name and a version: \"ID, NAME, VERSION[, FLAG]\"");
    }
    return *details;
}

Verified verifyFolder(const std::string& folder, int group, const std::optional<ResourceKind>& kindGiven) {
    Verified verified;
    verified.details = checkedDetails(folder, group);
    const ResourceKind engineKind = Resources::kindOf(verified.details.identifier);
    verified.kind = kindGiven.value_or(engineKind);
    if (verified.kind != engineKind) {
        std::cout << "note: checked as a " << Nubex::kindName(verified.kind) << " network, but the engine runs "
                  << "identifier " << verified.details.identifier << " as a " << Nubex::kindName(engineKind)
                  << " network\n";
    }
    verified.table = Resources::readFolderClassTable(folder, group);
    if (verified.table.categories.empty()) {
        throw std::runtime_error(
            "the class table declares no category (a line \"ID, NAME\" whose ID is not 0): the engine skips a "
            "resource without one");
    }
    Inference::NetworkData network;
    network.description = Resources::readDecipheredText(filePath(folder, group, FileRole::Network));
    auto weights = Resources::readDecipheredFile(filePath(folder, group, FileRole::Weights), 0x7FFFFFFFu);
    if (!weights) {
        throw std::runtime_error("cannot read the weights " + Resources::resourceFileName(group, FileRole::Weights));
    }
    weights->pop_back();  // the terminating zero the deciphering adds
    network.weights = std::move(*weights);
    ov::Core core;
    const auto loaded = Inference::loadModel(core, std::move(network), Nubex::loadOptionsFor(verified.kind));
    if (!loaded) {
        throw std::runtime_error(std::string("the network does not load as a ") + Nubex::kindName(verified.kind) +
                                 " network (the reason is in the lines above)");
    }
    const std::string problem = Nubex::checkNetworkContract(*loaded, verified.kind, verified.table);
    if (!problem.empty()) {
        throw std::runtime_error(std::string("not a valid ") + Nubex::kindName(verified.kind) + " network: " +
                                 problem);
    }
    verified.input = loaded->inputPartialShape;
    if (loaded->declared.letterbox) verified.declared += ", letterboxed";
    if (loaded->dynamicSize()) verified.declared += ", sizes rounded to " + std::to_string(loaded->declared.stride);
    if (!loaded->declared.alphabet.empty()) {
        verified.declared += ", an alphabet of " + std::to_string(loaded->declared.alphabet.size()) + " symbols";
    }
    return verified;
}

std::optional<ResourceKind> kindArgument(const Arguments& arguments) {
    if (!arguments.has("kind")) return std::nullopt;
    return Nubex::kindNamed(arguments.values.at("kind"));
}

void printVerified(const Verified& verified) {
    std::cout << "ok: " << verified.details.identifier << " (" << verified.details.name << ", "
              << verified.details.version << ") is a " << Nubex::kindName(verified.kind) << " network with input "
              << verified.input << verified.declared << "\n";
}

// --- against: the pack beside the resources already installed ---

// A temporary folder, removed with its contents when it goes out of scope.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (fs::temp_directory_path() / "nubex-pack-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot create a temporary folder");
        path_ = pattern;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

std::string withSeparator(std::string directory) {
    if (directory.empty() || directory.back() != '/') directory += '/';
    return directory;
}

// The default resource directory: "res/" beside the program, as the engine
// finds it beside the library (in a build folder both are side by side), or
// lib/res and share/nubex/res of an installed prefix.
std::string defaultDirectory() {
    std::vector<fs::path> candidates;
    if (const auto beside = Nubex::defaultResourceDirectory()) {
        const fs::path path(*beside);
        candidates.push_back(path);
        const fs::path prefix = path.parent_path().parent_path().parent_path();
        candidates.push_back(prefix / "lib" / "res");
        candidates.push_back(prefix / "share" / "nubex" / "res");
    }
    for (const auto& candidate : candidates) {
        std::error_code error;
        if (fs::is_directory(candidate, error)) return withSeparator(candidate.lexically_normal().string());
    }
    throw std::runtime_error("--against-default: no default resource directory (res/ beside nubex-pack, or lib/res "
                             "of its install prefix); name it with --against DIR");
}

// The installed resources, read by the engine's own registry, and the same
// directories with the pack's directory added last, as a host adds it. The
// pack is seen through a link in a temporary directory, so that nothing else
// beside it joins; a directory that holds the pack itself is seen without it.
class Comparison {
public:
    // target: where the pack is (or will be) installed, left out of the
    // installed directories like the pack folder itself.
    Comparison(const std::vector<std::string>& directories, const std::string& packFolder, const std::string& packName,
               const std::string& target)
        : installed_(std::nullopt), combined_(std::nullopt) {
        const fs::path pack = fs::absolute(packFolder).lexically_normal();
        const std::vector<fs::path> excluded{pack, fs::absolute(target).lexically_normal()};
        for (const auto& directory : directories) {
            std::error_code error;
            if (!fs::is_directory(directory, error)) throw std::runtime_error("--against " + directory + ": no such directory");
            std::string seen = withSeparator(directory);
            for (const auto& path : excluded) {
                if (!fs::equivalent(fs::path(directory), path.parent_path(), error)) continue;
                seen = mirrorWithout(directory, excluded);
                std::cout << "note: " << target << " is inside " << directory
                          << "; it is compared with the other resources there\n";
                break;
            }
            installed_.addDirectory(seen);
            combined_.addDirectory(seen);
        }
        const fs::path packDirectory = scratch_.path() / "pack";
        fs::create_directory(packDirectory);
        packLink_ = (packDirectory / packName).string();
        fs::create_directory_symlink(pack, packLink_);
        realFolders_[packLink_] = packFolder;
        combined_.addDirectory(packDirectory.string());
    }

    const Resources::ResourceUtils& installed() const { return installed_; }
    const Resources::ResourceUtils& combined() const { return combined_; }
    bool isPack(const std::string& folder) const { return folder == packLink_; }

    // The folder as the user knows it.
    std::string realFolder(const std::string& folder) const {
        const auto found = realFolders_.find(folder);
        return found == realFolders_.end() ? folder : found->second;
    }

private:
    std::string mirrorWithout(const std::string& directory, const std::vector<fs::path>& excluded) {
        const fs::path mirror = scratch_.path() / ("installed-" + std::to_string(mirrors_++));
        fs::create_directory(mirror);
        for (const auto& entry : fs::directory_iterator(directory)) {
            std::error_code error;
            bool skip = false;
            for (const auto& path : excluded) skip = skip || fs::equivalent(entry.path(), path, error);
            if (skip) continue;
            const std::string link = (mirror / entry.path().filename()).string();
            fs::create_symlink(fs::absolute(entry.path()), link);
            realFolders_[link] = Resources::joinPath(directory, entry.path().filename().string());
        }
        return withSeparator(mirror.string());
    }

    TemporaryFolder scratch_;
    int mirrors_ = 0;
    std::string packLink_;
    std::map<std::string, std::string> realFolders_;
    Resources::ResourceUtils installed_;
    Resources::ResourceUtils combined_;
};

std::string describe(const Resources::ResourceInfo& record) {
    return std::to_string(record.identifier) + " \"" + record.name + "\" " + record.version;
}

std::string categoryName(const Resources::ResourceInfo& record, std::int32_t category) {
    const auto position = record.categoryPositions.find(category);
    return position == record.categoryPositions.end() ? std::string() : record.categories[position->second].name;
}

const Resources::ResourceSet* setHolding(const std::vector<Resources::ResourceSet>& sets, std::uint32_t identifier) {
    for (const auto& set : sets) {
        if (std::find(std::begin(set.identifiers), std::end(set.identifiers), identifier) != std::end(set.identifiers)) {
            return &set;
        }
    }
    return nullptr;
}

// "101-118, 120": identifiers in the order given, consecutive runs joined.
std::string identifierList(const std::vector<std::int64_t>& identifiers) {
    std::string text;
    for (std::size_t i = 0; i < identifiers.size();) {
        std::size_t end = i;
        while (end + 1 < identifiers.size() && identifiers[end + 1] == identifiers[end] + 1) ++end;
        text += (text.empty() ? "" : ", ") + std::to_string(identifiers[i]);
        if (end > i) text += "-" + std::to_string(identifiers[end]);
        i = end + 1;
    }
    return text;
}

struct Findings {
    std::vector<std::string> errors;
    std::vector<std::string> warnings;
};

// Same identifier: one identifier names one resource. In the same group the
// registry keeps one of the two folders; across groups lookups by identifier
// find the lower group first.
void checkIdentifier(const Comparison& comparison, const Verified& pack, int group, Findings& findings) {
    const std::uint32_t identifier = pack.details.identifier;
    for (int other = 0; other < Resources::kGroupCount; ++other) {
        for (const auto& record : comparison.installed().groupRecords(other)) {
            if (record.identifier != identifier) continue;
            const std::string installed = "installed resource " + describe(record) + " (" +
                                          comparison.realFolder(record.folder) + ")";
            if (other != group) {
                findings.errors.push_back(
                    "identifier clash: " + installed + " already uses identifier " + std::to_string(identifier) +
                    " in group " + std::to_string(other) + "; the engine finds resources by identifier, group 0 " +
                    "first, so the group " + std::to_string(std::min(group, other)) + " one is used for both and " +
                    "the other is never run. Give the pack an identifier of its own.");
                continue;
            }
            const Resources::ResourceInfo* winner = nullptr;
            for (const auto& candidate : comparison.combined().groupRecords(group)) {
                if (candidate.identifier == identifier) winner = &candidate;
            }
            std::string outcome;
            if (winner != nullptr && comparison.isPack(winner->folder)) {
                outcome = "the pack replaces it: of two folders with one identifier the later-found wins, and the "
                          "pack's directory is read after the installed ones (versions " +
                          record.version + " and " + pack.details.version + " differ)";
            } else {
                outcome = "the installed one stays and the pack is ignored: both have version " + record.version +
                          ", and of two folders with one identifier and version the first found is kept";
            }
            findings.errors.push_back("identifier clash: " + installed + " already uses identifier " +
                                      std::to_string(identifier) + " in " + groupRole(group) + "; " + outcome +
                                      ". Give the pack an identifier of its own, or replace the installed folder.");
        }
    }
}

// Only a classifier's set member of group 1 rescores it (the text and face
// workers run their own networks).
bool isClassifier(std::uint32_t identifier) { return Resources::kindOf(identifier) == ResourceKind::Classifier; }

// Same first word: the pack joins the installed set and takes its group's slot.
void checkSet(const Comparison& comparison, const Verified& pack, int group, Findings& findings) {
    const std::string_view word = Resources::firstWord(pack.details.name);
    for (const auto& set : comparison.installed().resourceSets()) {
        if (Resources::firstWord(set.key) != word) continue;
        const std::uint32_t previous = set.identifiers[group];
        if (previous == pack.details.identifier) return;  // the same resource: an identifier clash, reported above
        const std::string joins = "set-name clash: the pack's name \"" + pack.details.name + "\" starts with \"" +
                                  std::string(word) + "\", as the installed set \"" + set.key +
                                  "\" does (sets are formed by the first word of the name), so the pack joins that " +
                                  "set as its " + groupRole(group) + " member";
        if (previous == 0) {
            std::string first;
            if (group == 1 && set.identifiers[0] != 0 && isClassifier(set.identifiers[0])) {
                first = ": it becomes the second stage of " + std::to_string(set.identifiers[0]) +
                        ", whose uncertain scores (1 to 99) are then rescored by the pack's network";
            } else if (group == 0 && set.identifiers[1] != 0 && isClassifier(pack.details.identifier)) {
                first = ": the set's second stage " + std::to_string(set.identifiers[1]) +
                        " then rescores the pack's uncertain scores (1 to 99)";
            }
            findings.warnings.push_back(joins + first + ". If that is not meant, give the pack a name of its own.");
            return;
        }
        const Resources::ResourceInfo* replaced = comparison.installed().findRecord(previous);
        std::string consequence = "replacing " + (replaced != nullptr ? describe(*replaced) : std::to_string(previous));
        if (group == 1 && isClassifier(set.identifiers[0])) {
            consequence += " as the second stage of " + std::to_string(set.identifiers[0]);
        }
        if (group == 0 && set.identifiers[1] != 0 && isClassifier(pack.details.identifier)) {
            consequence += "; the set's second stage " + std::to_string(set.identifiers[1]) +
                           " would then rescore the pack's uncertain scores";
        }
        if (setHolding(comparison.combined().resourceSets(), previous) == nullptr && replaced != nullptr) {
            std::vector<std::int64_t> categories;
            for (const auto& entry : comparison.combined().categoryIndex()) {
                if (entry.resourceIdentifier == previous) categories.push_back(entry.categoryIdentifier);
            }
            const std::string lost = identifierList(categories);
            consequence += "; " + std::to_string(previous) + " is then in no set, and scans refuse its categories" +
                           (lost.empty() ? std::string() : " (" + lost + ")") + " with \"Resource not found for category\"";
        }
        findings.errors.push_back(joins + ", " + consequence + ". Give the pack a name whose first word no installed "
                                  "set uses.");
        return;
    }
}

// A category the pack declares that an installed resource declared first:
// scans look categories up by their first registered entry.
void checkCategories(const Comparison& comparison, const Verified& pack, int group, Findings& findings) {
    const Resources::ResourceSet* packSet = setHolding(comparison.combined().resourceSets(), pack.details.identifier);
    for (const auto& category : pack.table.categories) {
        const std::int32_t identifier = category.details.identifier;
        const Resources::CategoryIndexEntry* entry = comparison.installed().findCategory(identifier);
        if (entry == nullptr || entry->resourceIdentifier == pack.details.identifier) continue;
        // A later stage repeats its first stage's categories: expected within one set.
        if (packSet != nullptr && std::find(std::begin(packSet->identifiers), std::end(packSet->identifiers),
                                            entry->resourceIdentifier) != std::end(packSet->identifiers)) {
            continue;
        }
        const Resources::ResourceInfo* owner = comparison.installed().findRecord(entry->resourceIdentifier);
        const std::string ownerText =
            owner != nullptr ? describe(*owner) + " (line " + std::to_string(entry->line) + ", \"" +
                                   categoryName(*owner, identifier) + "\")"
                             : std::to_string(entry->resourceIdentifier);
        std::string sentence = "category shadowed: the pack's category " + std::to_string(identifier) + " \"" +
                               category.details.name + "\" (line " + std::to_string(category.line) +
                               ") is already declared by installed resource " + ownerText +
                               "; scans look a category up by its first registered entry, so a scan of " +
                               std::to_string(identifier) + " runs " + std::to_string(entry->resourceIdentifier) +
                               " and never the pack's line";
        if (group == 0) {
            findings.errors.push_back(sentence + ". Give the category an identifier of its own.");
        } else {
            findings.warnings.push_back(sentence + ".");
        }
    }
}

std::vector<std::string> againstDirectories(const Arguments& arguments) {
    std::vector<std::string> directories;
    if (arguments.flags.count("against-default") != 0) directories.push_back(defaultDirectory());
    for (const auto& directory : arguments.against) directories.push_back(directory);
    return directories;
}

// Prints the findings; returns the number of errors.
std::size_t compareWithInstalled(const std::vector<std::string>& directories, const std::string& packFolder,
                                 const std::string& packName, const std::string& target, const Verified& pack,
                                 int group) {
    const Comparison comparison(directories, packFolder, packName, target);
    Findings findings;
    checkIdentifier(comparison, pack, group, findings);
    checkSet(comparison, pack, group, findings);
    checkCategories(comparison, pack, group, findings);
    std::string names;
    for (const auto& directory : directories) names += (names.empty() ? "" : ", ") + directory;
    for (const auto& error : findings.errors) std::cout << "error: " << error << "\n";
    for (const auto& warning : findings.warnings) std::cout << "warning: " << warning << "\n";
    std::cout << "against " << names << ": " << findings.errors.size() << " error(s), " << findings.warnings.size()
              << " warning(s)\n";
    return findings.errors.size();
}

int verify(const Arguments& arguments) {
    const int group = groupOf(arguments);
    const Verified verified = verifyFolder(arguments.folder, group, kindArgument(arguments));
    printVerified(verified);
    const auto directories = againstDirectories(arguments);
    if (directories.empty()) return 0;
    const std::string name = fs::absolute(arguments.folder).lexically_normal().filename().string();
    const std::size_t errors = compareWithInstalled(directories, arguments.folder, name.empty() ? "pack" : name,
                                                    arguments.folder, verified, group);
    return errors == 0 ? 0 : 1;
}

// --- build: written beside the target, verified, then moved into place ---

// Removes what the build created unless it is kept.
class BuildScratch {
public:
    explicit BuildScratch(fs::path folder) : folder_(std::move(folder)) {}
    ~BuildScratch() {
        std::error_code ignored;
        if (!kept_) fs::remove_all(folder_, ignored);
        for (auto it = createdParents_.rbegin(); it != createdParents_.rend(); ++it) {
            if (!kept_) fs::remove(*it, ignored);  // only while empty
        }
    }
    BuildScratch(const BuildScratch&) = delete;
    BuildScratch& operator=(const BuildScratch&) = delete;
    void createParents(const fs::path& parent) {
        std::vector<fs::path> missing;
        for (fs::path p = parent; !p.empty() && !fs::exists(p); p = p.parent_path()) missing.push_back(p);
        for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
            fs::create_directory(*it);
            createdParents_.push_back(*it);
        }
    }
    void keep() { kept_ = true; }
    const fs::path& folder() const { return folder_; }

private:
    fs::path folder_;
    std::vector<fs::path> createdParents_;
    bool kept_ = false;
};

int build(const Arguments& arguments) {
    const int group = groupOf(arguments);
    Resources::ResourceContents contents;
    contents.detailsLine = arguments.required("details");
    const auto details = Resources::parseDetailsLine(contents.detailsLine);
    if (!details) {
        throw std::runtime_error("the details line \"" + contents.detailsLine +
                                 "\" needs an identifier, a name and a version: \"ID, NAME, VERSION[, FLAG]\"");
    }
    contents.classTable = readFile(arguments.required("classes"));
    if (Resources::parseClassTable(contents.classTable).categories.empty()) {
        throw std::runtime_error("the class table " + arguments.required("classes") +
                                 " declares no category (a line \"ID, NAME\" whose ID is not 0)");
    }
    contents.network = readFile(arguments.required("xml"));
    const std::string weights = readFile(arguments.required("bin"));
    contents.weights.assign(weights.begin(), weights.end());
    const std::optional<ResourceKind> kind = kindArgument(arguments);

    const fs::path target = fs::absolute(arguments.folder).lexically_normal();
    const std::string name = target.filename().empty() ? target.parent_path().filename().string()
                                                       : target.filename().string();
    const fs::path targetFolder = target.filename().empty() ? target.parent_path() : target;
    std::error_code error;
    const bool existed = fs::exists(targetFolder, error);
    if (existed && !fs::is_directory(targetFolder, error)) {
        throw std::runtime_error(arguments.folder + " exists and is not a folder");
    }
    // A hidden folder beside the target: renamed into place only once verified.
    BuildScratch scratch(targetFolder.parent_path() /
                         ("." + name + ".nubex-pack-" + std::to_string(::getpid())));
    scratch.createParents(targetFolder.parent_path());
    Resources::writeResourceFolder(scratch.folder().string(), group, contents);

    if (arguments.flags.count("no-verify") == 0) {
        try {
            const Verified verified = verifyFolder(scratch.folder().string(), group, kind);
            printVerified(verified);
            const auto directories = againstDirectories(arguments);
            if (!directories.empty() &&
                compareWithInstalled(directories, scratch.folder().string(), name, arguments.folder, verified, group) != 0) {
                throw std::runtime_error("the pack clashes with the installed resources (see the errors above)");
            }
        } catch (const std::exception& failure) {
            throw std::runtime_error(std::string(failure.what()) + "\nnubex-pack: refused: nothing was written to " +
                                     arguments.folder);
        }
    }
    if (!existed) {
        fs::rename(scratch.folder(), targetFolder);
    } else {
        // Another group's files may already be there: only this group's four are replaced.
        for (const auto role : kRoles) {
            const std::string file = Resources::resourceFileName(group, role);
            fs::rename(scratch.folder() / file, targetFolder / file);
        }
    }
    scratch.keep();
    if (existed) fs::remove_all(scratch.folder(), error);
    std::cout << "wrote " << arguments.folder << "\n";
    return 0;
}

void printPorts(const char* title, const std::vector<ov::Output<ov::Node>>& ports) {
    for (const auto& port : ports) {
        std::cout << title << "\t" << port.get_any_name() << "\t" << port.get_element_type() << "\t"
                  << port.get_partial_shape() << "\n";
    }
}

int inspect(const Arguments& arguments) {
    const std::string& folder = arguments.folder;
    const int group = groupOf(arguments);
    checkedDetails(folder, group);
    auto text = [&](FileRole role) { return Resources::readDecipheredText(filePath(folder, group, role)); };
    std::cout << "details\t" << text(FileRole::Details).substr(0, text(FileRole::Details).find('\n')) << "\n";
    std::cout << "class table:\n" << text(FileRole::ClassTable);
    if (!text(FileRole::ClassTable).empty() && text(FileRole::ClassTable).back() != '\n') std::cout << "\n";
    const auto weights = Resources::readDecipheredFile(filePath(folder, group, FileRole::Weights), 0x7FFFFFFFu);
    if (!weights) {
        throw std::runtime_error("cannot read the weights " + Resources::resourceFileName(group, FileRole::Weights));
    }
    ov::Core core;
    const ov::Tensor tensor =
        weights->size() > 1 ? ov::Tensor(ov::element::u8, ov::Shape{weights->size() - 1}, const_cast<std::uint8_t*>(weights->data())) : ov::Tensor();
    const auto model = core.read_model(text(FileRole::Network), tensor);
    printPorts("input", model->inputs());
    printPorts("output", model->outputs());
    for (const char* key : {"resize", "stride", "alphabet"}) {
        if (model->has_rt_info("nubex", key)) {
            std::cout << "declares\t" << key << "\t" << model->get_rt_info<std::string>("nubex", key) << "\n";
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        usage();
        return 2;
    }
    const std::string command = argv[1];
    if (command != "build" && command != "inspect" && command != "verify") {
        usage();
        return 2;
    }
    try {
        const Arguments arguments = parseArguments(command, argc, argv);
        if (command == "build") return build(arguments);
        if (command == "inspect") return inspect(arguments);
        return verify(arguments);
    } catch (const std::exception& error) {
        std::cerr << "nubex-pack: " << error.what() << "\n";
        return 1;
    }
}
