// Many host threads scanning at once, more than the request pools hold, in
// waves; between waves the host lists categories and resources and releases
// a group (reloaded by the next wave), as the host contract allows.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <unistd.h>

#include "detectors/image_input.h"
#include "nubex_engine.h"
#include "support/temp_tree.h"
#include "support/test_pack.h"

namespace {

long residentKilobytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    long resident = 0;
    statm >> pages >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

using testing_support::scanDocument;

void listRegistry() {
    char** lines = nullptr;
    const int32_t count = GetNubexCategories(&lines);
    for (int32_t i = 0; i < count; ++i) ReleaseNubexMemory(lines[i]);
    ReleaseNubexMemory(lines);
    ReleaseNubexMemory(GetNubexResourcesDetails());
}

}  // namespace

TEST(Soak, WavesOfMixedScansWithReleasesBetween) {
    testing_support::TempTree tree;
    testing_support::writeClassifierPack(tree.str());
    testing_support::writeDetectorPack(tree.str());
    ASSERT_EQ(SetNubexResourceDirectory(tree.str().c_str()), 3u);
    ASSERT_GT(InitializeNubexEngine(), 0u);

    const cv::Mat image(80, 100, CV_8UC3, cv::Scalar(10, 255, 120));
    const auto pixels = Detectors::packPixelBuffer(image);
    const std::vector<const char*> lists = {"14,21", "8337", "5", "21, 8337, 5, 14", "14,x,14"};
    std::vector<std::string> expected;
    for (const char* list : lists) expected.push_back(scanDocument(pixels, image.cols, image.rows, list));
    EXPECT_NE(expected[3].find("\"text_details\""), std::string::npos);
    EXPECT_NE(expected[3].find("\"face_details\""), std::string::npos);

    const int threads = 2 * static_cast<int>(std::thread::hardware_concurrency()) + 6;
    const int waves = 8;
    std::vector<long> resident;
    std::atomic<int> mismatches{0};
    for (int wave = 0; wave < waves; ++wave) {
        std::vector<std::thread> scanners;
        for (int t = 0; t < threads; ++t) {
            scanners.emplace_back([&, t] {
                for (int i = 0; i < 3; ++i) {
                    const std::size_t which = static_cast<std::size_t>(t + i + wave) % lists.size();
                    if (scanDocument(pixels, image.cols, image.rows, lists[which]) != expected[which]) ++mismatches;
                }
            });
        }
        for (auto& scanner : scanners) scanner.join();
        // Between waves: the registry functions, and one group released.
        listRegistry();
        DeInitializeNubexEngine(wave % 2 == 0 ? 14 : 8337);
        resident.push_back(residentKilobytes());
    }
    EXPECT_EQ(mismatches.load(), 0);

    std::string report;
    for (const long kilobytes : resident) report += std::to_string(kilobytes / 1024) + " ";
    std::printf("resident MiB after each wave: %s\n", report.c_str());
    RecordProperty("resident_mib_per_wave", report);
    // After the first waves have loaded everything, memory stays flat. The
    // sanitizers keep freed memory in quarantine, so there it is only reported.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(resident.back() - resident[2], 48 * 1024) << report;
#endif
    DeInitializeNubexEngine(-1);
}

// Full cycles (initialise, scans from several threads, release everything)
// settle: the allocator keeps some freed memory per thread arena, but
// nothing grows from cycle to cycle once every arena has been used.
TEST(Soak, FullCyclesSettle) {
    testing_support::TempTree tree;
    testing_support::writeClassifierPack(tree.str());
    testing_support::writeDetectorPack(tree.str());
    ASSERT_EQ(SetNubexResourceDirectory(tree.str().c_str()), 3u);
    const cv::Mat image(60, 90, CV_8UC3, cv::Scalar(10, 255, 120));
    const auto pixels = Detectors::packPixelBuffer(image);
    std::vector<long> resident;
    for (int cycle = 0; cycle < 12; ++cycle) {
        ASSERT_GT(InitializeNubexEngine(), 0u);
        std::vector<std::thread> scanners;
        for (int t = 0; t < 4; ++t) {
            scanners.emplace_back([&] {
                for (int i = 0; i < 5; ++i) scanDocument(pixels, image.cols, image.rows, "21, 8337, 5, 14");
            });
        }
        for (auto& scanner : scanners) scanner.join();
        DeInitializeNubexEngine(-1);
        resident.push_back(residentKilobytes());
    }
    std::string report;
    for (const long kilobytes : resident) report += std::to_string(kilobytes / 1024) + " ";
    std::printf("resident MiB after each full cycle: %s\n", report.c_str());
    RecordProperty("resident_mib_per_cycle", report);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(resident.back() - resident[5], 32 * 1024) << report;
#endif
}
