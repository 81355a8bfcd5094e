#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/process_state.h"
#include "nubex_engine.h"
#include "support/temp_tree.h"

using testing_support::TempTree;
using testing_support::writeResource;

namespace {

std::string takeText(char* text) {
    EXPECT_NE(text, nullptr);
    std::string copy = text != nullptr ? text : "";
    ReleaseNubexMemory(text);
    return copy;
}

std::vector<std::string> takeCategories() {
    char** lines = nullptr;
    const int32_t count = GetNubexCategories(&lines);
    std::vector<std::string> copy;
    for (int32_t i = 0; i < count; ++i) {
        copy.emplace_back(lines[i]);
        ReleaseNubexMemory(lines[i]);
    }
    ReleaseNubexMemory(lines);
    return copy;
}

}  // namespace

TEST(EngineApi, VersionAndMemory) {
    char* version = GetNubexEngineVersion();
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(std::strlen(version), 38u);
    EXPECT_STREQ(version, "Nubex 8.0.9.6 - SDK 64 bit for Windows");
    ReleaseNubexMemory(version);
    ReleaseNubexMemory(nullptr);
}

TEST(EngineApi, InitialisesOnceAndAgainAfterRelease) {
    // One throughput stream per four logical processors, at least one.
    const uint32_t streams = std::max(std::thread::hardware_concurrency() / 4u, 1u);
    std::vector<uint32_t> results(4);
    std::vector<std::thread> threads;
    for (auto& result : results) threads.emplace_back([&result] { result = InitializeNubexEngine(); });
    for (auto& thread : threads) thread.join();
    std::sort(results.begin(), results.end());
    EXPECT_EQ(results, (std::vector<uint32_t>{0, 0, 0, streams}));
    EXPECT_EQ(InitializeNubexEngine(), 0u);

    DeInitializeNubexEngine(-1);
    DeInitializeNubexEngine(-1);  // the core is released once
    EXPECT_FALSE(Nubex::engine().initialised());
    EXPECT_EQ(InitializeNubexEngine(), streams);
    DeInitializeNubexEngine(-1);
}

TEST(EngineApi, BadArgumentsLeaveTheEngineWorking) {
    const uint32_t sets = SetNubexResourceDirectory(nullptr);
    EXPECT_EQ(SetNubexResourceDirectory(""), sets);
    EXPECT_EQ(GetNubexCategories(nullptr), 0);
    DeInitializeNubexEngine(123456);  // unknown category: nothing happens
    EXPECT_EQ(SetNubexResourceDirectory("/nonexistent/\xff\xfe/path"), sets);
    const std::string longPath(100000, 'a');
    EXPECT_EQ(SetNubexResourceDirectory(longPath.c_str()), sets);
    const std::string document = takeText(ScanImage(nullptr, 0, -5, 0, nullptr, nullptr, 0.0f));
    EXPECT_NE(document.find("\"result\":\"False\""), std::string::npos);
}

TEST(EngineApi, RegistryThroughTheInterface) {
    TempTree tree;
    writeResource(tree / "pro", 0, "10, Vision Pro, 3.0", "0,Neutral\n14, Drinks, 50=30\n21,Smoke");
    writeResource(tree / "lite", 1, "11, Vision Lite, 1.5", "14,Drinks");
    writeResource(tree / "face", 0, "8337, Faces, 2.1", "0,Background\n8337,Face");
    EXPECT_EQ(SetNubexResourceDirectory(tree.str().c_str()), 2u);

    // Folders are read in name order: "face" before "pro".
    EXPECT_EQ(takeCategories(), (std::vector<std::string>{"8337\tFace", "14\tDrinks", "21\tSmoke"}));
    EXPECT_EQ(takeText(GetNubexResourcesDetails()),
              "Faces,\t2.1,\tFace,\t\r\nVision Pro,\t3.0.1.5,\tDrinks,\tSmoke,\t\r\n");
    ASSERT_EQ(Nubex::engine().details().size(), 3u);

    // Releasing a category's group releases every member of its set, and only those.
    EXPECT_EQ(Nubex::engine().identifiersToRelease(21), (std::vector<uint32_t>{10, 11}));
    EXPECT_EQ(Nubex::engine().identifiersToRelease(8337), (std::vector<uint32_t>{8337}));
    EXPECT_EQ(Nubex::engine().identifiersToRelease(-1), (std::vector<uint32_t>{8337, 10, 11}));
    EXPECT_TRUE(Nubex::engine().identifiersToRelease(99).empty());
    for (const auto& entry : Nubex::engine().details()) entry->loadState = Nubex::kLoaded;
    DeInitializeNubexEngine(14);
    for (const auto& entry : Nubex::engine().details()) {
        EXPECT_EQ(entry->loadState.load(), entry->identifier == 8337 ? Nubex::kLoaded : Nubex::kNotLoaded)
            << entry->identifier;
    }
    DeInitializeNubexEngine(-1);
    for (const auto& entry : Nubex::engine().details()) EXPECT_FALSE(entry->initialised());
}
