#include <filesystem>
#include <fstream>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "resources/categories.h"
#include "engine/resource_details.h"
#include "resources/resource_file.h"
#include "resources/resource_listing.h"
#include "resources/resource_utils.h"
#include "support/temp_tree.h"

using namespace Resources;
using testing_support::TempTree;
using testing_support::writeResource;

namespace {

ResourceUtils registryOver(const std::string& directory) {
    ResourceUtils registry(std::nullopt);
    registry.addDirectory(directory);
    return registry;
}

}  // namespace

TEST(Registry, RecognisesFoldersByExactFileNames) {
    TempTree tree;
    writeResource(tree / "a", 0, "100, Alpha, 1", "0,Neutral\n14,Drinks\n21,Smoke");
    std::ofstream(tree / "a/readme.txt") << "extra files do no harm";
    // The same files renamed to another letter case are not a resource.
    writeResource(tree / "b", 0, "200, Beta, 1", "5,Five");
    for (int n = 1; n <= 4; ++n) {
        std::filesystem::rename(tree / ("b/NubexResource." + std::to_string(n)),
                                tree / ("b/nubexresource." + std::to_string(n)));
    }
    // Three of four files: not a resource.
    writeResource(tree / "c", 0, "300, Gamma, 1", "6,Six");
    std::filesystem::remove(tree / "c/NubexResource.2");
    // No category line: not a resource.
    writeResource(tree / "d", 0, "400, Delta, 1", "0,Neutral\n\n");
    // A plain file beside the folders is passed over.
    std::ofstream(tree / "loose") << "x";

    const auto registry = registryOver(tree.str());
    ASSERT_EQ(registry.groupRecords(0).size(), 1u);
    const ResourceInfo& alpha = registry.groupRecords(0)[0];
    EXPECT_EQ(alpha.identifier, 100u);
    EXPECT_EQ(alpha.folder, tree.str() + "/a");
    EXPECT_EQ(alpha.categories.size(), 2u);
    // A group 0 folder is not a group 1 resource.
    EXPECT_TRUE(registry.groupRecords(1).empty());
    EXPECT_EQ(registry.categoryIndex(),
              (std::vector<CategoryIndexEntry>{{14, 100, 1}, {21, 100, 2}}));
}

TEST(Registry, DirectoriesDuplicatesAndReplacedVersions) {
    TempTree first;
    TempTree second;
    writeResource(first / "same", 0, "100, Alpha, 1", "14,Drinks");
    writeResource(second / "same", 0, "100, Alpha, 1", "14,Drinks (second copy)");
    ResourceUtils registry(std::nullopt);
    EXPECT_EQ(registry.addDirectory(first.str()), 1u);
    EXPECT_EQ(registry.addDirectory(first.str() + "/"), 1u);  // known: kept once
    EXPECT_EQ(registry.directories(), (std::vector<std::string>{first.str() + "/"}));
    registry.addDirectory(second.str());
    ASSERT_EQ(registry.groupRecords(0).size(), 1u);
    // The same identifier and version: the first directory's copy stays.
    EXPECT_EQ(registry.groupRecords(0)[0].categories[0].name, "Drinks");

    // Another version found later replaces the earlier one.
    writeResource(second / "same", 0, "100, Alpha, 2", "14,Drinks v2");
    registry.scanGroup(0);
    ASSERT_EQ(registry.groupRecords(0).size(), 1u);
    EXPECT_EQ(registry.groupRecords(0)[0].version, "2");
    EXPECT_EQ(registry.groupRecords(0)[0].folder, second.str() + "/same");

    // Rescans do not grow the category index with identical entries.
    const auto indexSize = registry.categoryIndex().size();
    registry.scanAllGroups();
    registry.scanAllGroups();
    EXPECT_EQ(registry.categoryIndex().size(), indexSize);
}

TEST(Registry, ResourceSetsListingAndCategoryLines) {
    TempTree tree;
    writeResource(tree / "1-pro", 0, "10, Vision Pro, 3.0", "0,Neutral\n14, Drinks, 50=30\n-3,Minus \"quoted\"");
    writeResource(tree / "2-lite", 1, "11, Vision Lite, 1.5", "14,Drinks");
    writeResource(tree / "3-more", 2, "12, Vision, 7", "14,Drinks");
    writeResource(tree / "4-face", 0, "8337, Faces, 2.1", "0,Background\n8337,Face");
    writeResource(tree / "5-orphan", 1, "77, Orphan second stage, 1", "3,Three");
    writeResource(tree / "6-lone", 2, "78, Lone, 9", "4,Four");
    auto registry = registryOver(tree.str());

    ASSERT_EQ(registry.resourceSets().size(), 4u);
    const ResourceSet& vision = registry.resourceSets()[0];
    EXPECT_EQ(vision.key, "Vision Pro");  // keyed by the first word, named in full
    EXPECT_EQ(vision.identifiers[0], 10u);
    EXPECT_EQ(vision.identifiers[1], 11u);
    EXPECT_EQ(vision.identifiers[2], 12u);

    EXPECT_EQ(renderResourceListing(registry),
              "Vision Pro,\t3.0.1.5.7,\tDrinks,\tMinus \"quoted\",\t\r\n"
              "Faces,\t2.1,\tFace,\t\r\n"
              "Orphan second stage,\t1,\tThree,\t\r\n"
              "Lone,\t9,\tFour,\t\r\n");

    countRecords(registry);
    EXPECT_EQ(categoryLines(registry),
              (std::vector<std::string>{"14\tDrinks", "-3\tMinus \"quoted\"", "8337\tFace"}));
    EXPECT_EQ(registry.recordCount(), 6u);

    EXPECT_FLOAT_EQ(registry.calibrateScore(10, 0, 100.0f), 100.0f);
    EXPECT_FLOAT_EQ(registry.calibrateScore(10, 1, 42.0f), 42.0f);  // no points: unchanged
    EXPECT_FLOAT_EQ(registry.calibrateScore(10, 2, 42.0f), -1.0f);  // beyond the categories
    EXPECT_FLOAT_EQ(registry.calibrateScore(999, 0, 42.0f), -1.0f);
}

TEST(Registry, EmptyAndUnreadableDirectories) {
    TempTree tree;
    ResourceUtils registry(std::nullopt);
    EXPECT_EQ(registry.addDirectory(tree / "missing"), 0u);
    EXPECT_EQ(renderResourceListing(registry), "");
    EXPECT_THROW(registry.addDirectory(""), std::out_of_range);
}

TEST(Registry, HostileFilesAreSkippedQuietly) {
    TempTree tree;
    // Junk: no newline, no zero byte, binary.
    writeResource(tree / "junk", 0, std::string("\x01\x02\xff\xfe,\0,", 7), std::string(5000, '\xff'));
    // A details line without newline and a class table without zero byte.
    writeResource(tree / "no-newline", 0, "5,Five,1", "5,Five");
    // A huge file is not read.
    writeResource(tree / "huge", 0, "6,Six,1", "6,Six");
    std::filesystem::resize_file(tree / "huge/NubexResource.3", kMaxTextFileBytes + 1);
    // A fifo under a resource name would block a reader.
    writeResource(tree / "fifo", 0, "7,Seven,1", "7,Seven");
    std::filesystem::remove(tree / "fifo/NubexResource.4");
    ASSERT_EQ(::mkfifo((tree / "fifo/NubexResource.4").c_str(), 0600), 0);
    // A folder named like a file.
    writeResource(tree / "dir-as-file", 0, "8,Eight,1", "8,Eight");
    std::filesystem::remove(tree / "dir-as-file/NubexResource.3");
    std::filesystem::create_directory(tree / "dir-as-file/NubexResource.3");

    const auto registry = registryOver(tree.str());
    std::vector<uint32_t> identifiers;
    for (const auto& record : registry.groupRecords(0)) identifiers.push_back(record.identifier);
    EXPECT_EQ(identifiers, std::vector<uint32_t>{5});
}

TEST(ResourceDetailsTable, RefreshKeepsLoadedEntries) {
    using Nubex::findResourceDetails;
    using Nubex::refreshResourceDetails;
    ResourceInfo alpha;
    alpha.identifier = 1;
    alpha.version = "1";
    alpha.categories.push_back({14, "Drinks", {}, {}, {}});
    ResourceInfo beta = alpha;
    beta.identifier = 2;

    Nubex::ResourceDetailsTable table;
    refreshResourceDetails(table, {alpha, beta});
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table[0]->categoryNames, std::vector<std::string>{"Drinks"});
    table[0]->loadState = Nubex::kLoaded;

    // A new version of a loaded resource is added beside it; unloaded entries
    // are rebuilt; a vanished unloaded resource goes.
    alpha.version = "2";
    refreshResourceDetails(table, {alpha});
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table[0]->version, "1");
    EXPECT_TRUE(table[0]->initialised());
    EXPECT_EQ(table[1]->version, "2");
    EXPECT_EQ(findResourceDetails(table, 1), table[0]);
    EXPECT_EQ(findResourceDetails(table, 2), nullptr);
}
