// Scans beside releases of everything or of one group. Its own program: in
// the address-sanitizer build the leak checker's walk of thread storage at
// exit faults once the inference library's CPU plug-in was unloaded while the
// library's threads lived on (a limit of the sanitizer runtime), so this
// program runs without the leak check there; memory errors are still caught.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "detectors/image_input.h"
#include "nubex_engine.h"
#include "support/temp_tree.h"
#include "support/test_pack.h"

#if defined(__SANITIZE_ADDRESS__)
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }
// The address sanitizer's runtime faults in its own thread bookkeeping when
// the CPU plug-in is unloaded and loaded again while threads come and go, so
// there the releases are of single groups (their networks and pools go while
// scans hold them); full releases, which also shut the core down, are
// stressed in the other builds, the thread sanitizer's included.
constexpr int32_t kReleases[] = {14, 8337, 5};
#else
constexpr int32_t kReleases[] = {-1, 14, 8337, 5};
#endif

namespace {

using testing_support::scanDocument;

}  // namespace

namespace {

// Scans from four threads while a fifth releases everything or one group
// every 20 ms. Returns the number of problems.
int scansBesideRepeatedReleases() {
    testing_support::TempTree tree;
    testing_support::writeClassifierPack(tree.str());
    testing_support::writeDetectorPack(tree.str());
    if (SetNubexResourceDirectory(tree.str().c_str()) != 3u || InitializeNubexEngine() == 0u) return 1;
    const cv::Mat image(40, 50, CV_8UC3, cv::Scalar(10, 255, 120));
    const auto pixels = Detectors::packPixelBuffer(image);
    const std::string expected = scanDocument(pixels, image.cols, image.rows, "21, 8337, 5, 14");

    std::atomic<bool> scanning{true};
    std::atomic<int> problems{0};
    std::vector<std::thread> scanners;
    for (int t = 0; t < 4; ++t) {
        scanners.emplace_back([&, t] {
            const char* lists[] = {"21, 8337, 5, 14", "14", "8337,5"};
            for (int i = 0; i < 12; ++i) {
                const std::string document = scanDocument(pixels, image.cols, image.rows, lists[(t + i) % 3]);
                const bool whole = document.front() == '{' && document.back() == '}' &&
                                   document.find("\"img_width\":50,\"img_height\":40,") != std::string::npos;
                if (!whole) ++problems;
            }
        });
    }
    std::thread releaser([&] {
        for (int i = 0; scanning.load(); ++i) {
            DeInitializeNubexEngine(kReleases[static_cast<std::size_t>(i) % std::size(kReleases)]);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    for (auto& scanner : scanners) scanner.join();
    scanning = false;
    releaser.join();
    if (scanDocument(pixels, image.cols, image.rows, "21, 8337, 5, 14") != expected) ++problems;
    DeInitializeNubexEngine(-1);
    return problems.load();
}

}  // namespace

// A host that breaks the calling contract (releases while scans run) must
// still never crash: each scan answers, perhaps without the scores of a
// resource that went away, and the engine works normally afterwards.
TEST(ReleaseStress, ScansBesideRepeatedReleases) { EXPECT_EQ(scansBesideRepeatedReleases(), 0); }

