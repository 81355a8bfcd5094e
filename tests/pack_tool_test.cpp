// nubex-pack build and verify, run as a pack author runs them.
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <openvino/core/graph_util.hpp>

#include "resources/resource_folder.h"
#include "support/temp_tree.h"
#include "support/test_networks.h"
#include "support/test_pack.h"

using testing_support::TempTree;

namespace {

struct ToolRun {
    int status = 0;
    std::string output;  // standard output
    std::string errors;  // standard error
};

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Runs nubex-pack of the build with the arguments.
ToolRun pack(const TempTree& tree, const std::string& arguments) {
    const std::string errorFile = tree / "stderr.txt";
    const std::string command = std::string(NUBEX_TOOLS_DIR) + "/nubex-pack " + arguments + " 2>" + errorFile;
    ToolRun result;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return {-1, {}, {}};
    std::array<char, 4096> chunk{};
    while (const std::size_t read = std::fread(chunk.data(), 1, chunk.size(), pipe)) result.output.append(chunk.data(), read);
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.errors = contents(errorFile);
    return result;
}

bool mentions(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// The channel-means classifier as IR (3 output classes: blue, green, red) and
// the build command for it, with the class table written to classes.txt.
std::string buildCommand(const TempTree& tree, const std::string& details, const std::string& classTable,
                         const std::string& folder, const std::string& extra = "") {
    if (!std::filesystem::exists(tree / "means.xml")) {
        ov::save_model(testing_support::channelMeansNetwork(16, 16, 255.0f), tree / "means.xml", false);
    }
    std::ofstream(tree / "classes.txt", std::ios::trunc) << classTable;
    return "build --xml " + (tree / "means.xml") + " --bin " + (tree / "means.bin") + " --details '" + details +
           "' --classes " + (tree / "classes.txt") + " " + extra + " " + folder;
}

// Names in the folder, hidden ones included.
std::size_t entryCount(const std::string& folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
    return count;
}

const std::string kFourLines = "0,Background\n14,Drinks\n21,Smoke\n30,Fire\n";

}  // namespace

// A class table with more lines than the network has classes is refused: the
// reason names the rule and the line, and nothing is left behind.
TEST(PackBuild, RefusesAClassTableLongerThanTheOutput) {
    TempTree tree;
    std::filesystem::create_directories(tree / "res");
    const ToolRun refused = pack(tree, buildCommand(tree, "100, Vision Pro, 1.0", kFourLines, tree / "res/drinks"));
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(mentions(refused.errors,
                         "the class table has categories up to line 3 (lines count from 0) but the network's output "
                         "has 3 classes (0-2): each class-table line is scored by the output class of the same "
                         "number, and line 3 (category 30 Fire) reads class 3, which does not exist"))
        << refused.errors;
    EXPECT_TRUE(mentions(refused.errors, "refused: nothing was written to " + (tree / "res/drinks"))) << refused.errors;
    EXPECT_FALSE(std::filesystem::exists(tree / "res/drinks"));
    EXPECT_EQ(entryCount(tree / "res"), 0u) << "no half-written folder may stay beside the target";

    // Folders the build had to create go again.
    EXPECT_EQ(pack(tree, buildCommand(tree, "100, Vision Pro, 1.0", kFourLines, tree / "new/deeper/drinks")).status, 1);
    EXPECT_FALSE(std::filesystem::exists(tree / "new"));

    // A refused rebuild leaves the folder that was there as it was.
    const std::string good = "0,Background\n14,Drinks\n21,Smoke\n";
    ASSERT_EQ(pack(tree, buildCommand(tree, "100, Vision Pro, 1.0", good, tree / "res/drinks")).status, 0);
    const std::string before = contents(tree / "res/drinks/NubexResource.3");
    EXPECT_EQ(pack(tree, buildCommand(tree, "100, Vision Pro, 2.0", kFourLines, tree / "res/drinks")).status, 1);
    EXPECT_EQ(contents(tree / "res/drinks/NubexResource.3"), before);
    EXPECT_EQ(entryCount(tree / "res"), 1u);
    EXPECT_EQ(pack(tree, "verify " + (tree / "res/drinks")).status, 0);

    // verify gives the same reason for a folder written without the check.
    ASSERT_EQ(pack(tree, buildCommand(tree, "100, Vision Pro, 1.0", kFourLines, tree / "unchecked", "--no-verify"))
                  .status,
              0);
    const ToolRun verified = pack(tree, "verify " + (tree / "unchecked"));
    EXPECT_EQ(verified.status, 1);
    EXPECT_TRUE(mentions(verified.errors, "line 3 (category 30 Fire) reads class 3, which does not exist"))
        << verified.errors;
}

// Other contract failures refuse the build too, with the kind's rule.
TEST(PackBuild, RefusesANetworkThatDoesNotFitItsKind) {
    TempTree tree;
    const ToolRun refused =
        pack(tree, buildCommand(tree, "19112, Reader, 1.0", "1,Symbols\n", tree / "res/reader"));
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(mentions(refused.errors, "not a valid text-recognition network: the recogniser output must be "
                                         "[T, 1, 37]"))
        << refused.errors;
    EXPECT_FALSE(std::filesystem::exists(tree / "res"));

    const ToolRun empty = pack(tree, buildCommand(tree, "100, Vision Pro, 1.0", "0,Background\n", tree / "res/x"));
    EXPECT_EQ(empty.status, 1);
    EXPECT_TRUE(mentions(empty.errors, "declares no category")) << empty.errors;
}

TEST(PackBuild, GoodPackBuildsAndVerifies) {
    TempTree tree;
    const std::string folder = tree / "res/drinks";
    const ToolRun built =
        pack(tree, buildCommand(tree, "100, Vision Pro, 1.0", "0,Background\n14,Drinks,50=30\n21,Smoke\n", folder));
    EXPECT_EQ(built.status, 0) << built.errors;
    EXPECT_TRUE(mentions(built.output, "ok: 100 (Vision Pro, 1.0) is a classifier network with input [1,3,16,16]"))
        << built.output;
    EXPECT_TRUE(mentions(built.output, "wrote " + folder)) << built.output;
    EXPECT_TRUE(Resources::holdsGroupFiles(folder, 0));
    EXPECT_EQ(entryCount(tree / "res"), 1u);
    EXPECT_EQ(pack(tree, "verify " + folder).status, 0);

    // A second group written into the same folder keeps the first.
    const ToolRun second =
        pack(tree, buildCommand(tree, "101, Vision Lite, 1.0", "0,Background\n14,Drinks\n", folder, "--group 1"));
    EXPECT_EQ(second.status, 0) << second.errors;
    EXPECT_TRUE(Resources::holdsGroupFiles(folder, 0));
    EXPECT_TRUE(Resources::holdsGroupFiles(folder, 1));
    EXPECT_EQ(pack(tree, "verify " + folder).status, 0);
    EXPECT_EQ(pack(tree, "verify --group 1 " + folder).status, 0);

    // A folder that is not a resource folder says what it lacks.
    std::filesystem::create_directories(tree / "empty");
    const ToolRun empty = pack(tree, "verify " + (tree / "empty"));
    EXPECT_EQ(empty.status, 1);
    EXPECT_TRUE(mentions(empty.errors, "is not a group 0 resource folder: it lacks NubexResource.1, NubexResource.2, "
                                       "NubexResource.3, NubexResource.4"))
        << empty.errors;
}

// verify --against: the pack beside installed resources (Vision Pro 100 with
// categories 14 and 21, its second stage Vision Lite 101; Faces 8337).
class PackAgainst : public ::testing::Test {
protected:
    void SetUp() override {
        testing_support::writeClassifierPack(tree_ / "installed");
        testing_support::writeDetectorPack(tree_ / "detectors");
    }

    ToolRun verifyPack(const std::string& details, const std::string& classTable, int group = 0) {
        const std::string folder = tree_ / ("packs/" + std::to_string(count_++));
        testing_support::packNetwork(folder, group, details, classTable,
                                     testing_support::channelMeansNetwork(16, 16, 255.0f));
        return pack(tree_, "verify --group " + std::to_string(group) + " --against " + (tree_ / "installed") +
                               " --against " + (tree_ / "detectors") + " " + folder);
    }

    TempTree tree_;
    int count_ = 0;
};

TEST_F(PackAgainst, ReportsIdentifierClashes) {
    const ToolRun newer = verifyPack("100, Other Thing, 2.0", "0,Background\n50,Other\n");
    EXPECT_EQ(newer.status, 1);
    EXPECT_TRUE(mentions(newer.output, "error: identifier clash: installed resource 100 \"Vision Pro\" 1.0 (" +
                                           (tree_ / "installed/vision-pro") +
                                           ") already uses identifier 100 in group 0 (first stage); the pack "
                                           "replaces it: of two folders with one identifier the later-found wins"))
        << newer.output;

    const ToolRun same = verifyPack("100, Other Thing, 1.0", "0,Background\n50,Other\n");
    EXPECT_EQ(same.status, 1);
    EXPECT_TRUE(mentions(same.output, "the installed one stays and the pack is ignored: both have version 1.0"))
        << same.output;

    // The same identifier in another group.
    const ToolRun otherGroup = verifyPack("101, Other Thing, 1.0", "0,Background\n50,Other\n", 0);
    EXPECT_EQ(otherGroup.status, 1);
    EXPECT_TRUE(mentions(otherGroup.output, "already uses identifier 101 in group 1; the engine finds resources by "
                                            "identifier, group 0 first, so the group 0 one is used for both"))
        << otherGroup.output;
}

TEST_F(PackAgainst, ReportsSetNameClashes) {
    // "Vision Max" joins the set of "Vision Pro" and takes its first-stage slot.
    const ToolRun clash = verifyPack("300, Vision Max, 1.0", "0,Background\n60,Glasses\n");
    EXPECT_EQ(clash.status, 1);
    EXPECT_TRUE(mentions(clash.output, "error: set-name clash: the pack's name \"Vision Max\" starts with \"Vision\", "
                                       "as the installed set \"Vision Pro\" does (sets are formed by the first word "
                                       "of the name), so the pack joins that set as its group 0 (first stage) "
                                       "member, replacing 100 \"Vision Pro\" 1.0"))
        << clash.output;
    EXPECT_TRUE(mentions(clash.output, "100 is then in no set, and scans refuse its categories (14, 21) with "
                                       "\"Resource not found for category\""))
        << clash.output;
    EXPECT_TRUE(mentions(clash.output, "the set's second stage 101 would then rescore the pack's uncertain scores"))
        << clash.output;

    // Filling an empty slot is what a second stage for an installed network
    // does: a warning, not an error.
    const ToolRun second = verifyPack("8400, Faces Second, 1.0", "0,Background\n8337,Face\n", 1);
    EXPECT_EQ(second.status, 0) << second.output;
    EXPECT_TRUE(mentions(second.output, "warning: set-name clash: the pack's name \"Faces Second\" starts with "
                                        "\"Faces\", as the installed set \"Faces\" does (sets are formed by the "
                                        "first word of the name), so the pack joins that set as its group 1 (second "
                                        "stage) member. If that is not meant"))
        << second.output;
    EXPECT_FALSE(mentions(second.output, "category shadowed")) << "a second stage repeats its set's categories";

    // A classifier's empty second-stage slot: the pack would rescore it.
    const ToolRun stage = verifyPack("102, Vision Extra, 1.0", "0,Background\n14,Drinks\n", 1);
    EXPECT_EQ(stage.status, 1) << "slot 1 of the Vision set is taken by 101";
    EXPECT_TRUE(mentions(stage.output, "replacing 101 \"Vision Lite\" 1.0 as the second stage of 100"))
        << stage.output;
    const ToolRun extra = verifyPack("103, Vision Extra, 1.0", "0,Background\n90,Extra\n", 2);
    EXPECT_EQ(extra.status, 0) << extra.output;
    EXPECT_TRUE(mentions(extra.output, "so the pack joins that set as its group 2 member")) << extra.output;
}

TEST_F(PackAgainst, ReportsShadowedCategories) {
    const ToolRun shadowed = verifyPack("400, Drinkmeter, 1.0", "0,Background\n14,Drinks\n77,Juice\n");
    EXPECT_EQ(shadowed.status, 1);
    EXPECT_TRUE(mentions(shadowed.output, "error: category shadowed: the pack's category 14 \"Drinks\" (line 1) is "
                                          "already declared by installed resource 100 \"Vision Pro\" 1.0 (line 1, "
                                          "\"Drinks\"); scans look a category up by its first registered entry, so "
                                          "a scan of 14 runs 100 and never the pack's line"))
        << shadowed.output;
    EXPECT_FALSE(mentions(shadowed.output, "category 77")) << shadowed.output;
    EXPECT_TRUE(mentions(shadowed.output, ": 1 error(s), 0 warning(s)")) << shadowed.output;

    // In a later group it is a warning.
    const ToolRun later = verifyPack("401, Drinkmeter, 1.0", "0,Background\n14,Drinks\n", 2);
    EXPECT_EQ(later.status, 0) << later.output;
    EXPECT_TRUE(mentions(later.output, "warning: category shadowed: the pack's category 14")) << later.output;
}

TEST_F(PackAgainst, AcceptsAPackOfItsOwnAndChecksInsideAnInstalledDirectory) {
    const ToolRun clean = verifyPack("500, Colours, 1.0", "0,Background\n77,Blue\n78,Green\n");
    EXPECT_EQ(clean.status, 0) << clean.output;
    EXPECT_TRUE(mentions(clean.output, ": 0 error(s), 0 warning(s)")) << clean.output;

    // An installed resource checked against its own directory is not its own clash.
    const ToolRun installed =
        pack(tree_, "verify --against " + (tree_ / "installed") + " " + (tree_ / "installed/vision-pro"));
    EXPECT_EQ(installed.status, 0) << installed.output;
    EXPECT_TRUE(mentions(installed.output, ": 0 error(s)")) << installed.output;
    EXPECT_FALSE(mentions(installed.output, "identifier clash")) << installed.output;

    // build --against refuses a clash and writes nothing.
    const ToolRun built = pack(tree_, buildCommand(tree_, "300, Vision Max, 1.0", "0,Background\n60,Glasses\n",
                                                   tree_ / "installed/vision-max", "--against " + (tree_ / "installed")));
    EXPECT_EQ(built.status, 1);
    EXPECT_TRUE(mentions(built.output, "error: set-name clash")) << built.output;
    EXPECT_FALSE(std::filesystem::exists(tree_ / "installed/vision-max"));
    EXPECT_EQ(entryCount(tree_ / "installed"), 2u);

    const ToolRun missing = pack(tree_, "verify --against " + (tree_ / "nowhere") + " " + (tree_ / "installed/vision-pro"));
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(mentions(missing.errors, "no such directory")) << missing.errors;
}
