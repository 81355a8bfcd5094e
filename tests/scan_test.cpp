#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "detectors/image_input.h"
#include "engine/process_state.h"
#include "nubex_engine.h"
#include "support/temp_tree.h"
#include "support/test_networks.h"

using namespace testing_support;

namespace {

// One resource tree for the whole suite: a classifier with calibration and a
// second stage, and networks of the wrong shape.
class ScanEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        packNetwork(tree_ / "vision-pro", 0, "100, Vision Pro, 1.0",
                    "0,Background\n14,Drinks,50=30,80=60\n21,Smoke", channelMeansNetwork(16, 16, 255.0f));
        packNetwork(tree_ / "vision-lite", 1, "101, Vision Lite, 1.0", "0,Background\n14,Drinks\n21,Smoke",
                    channelMeansNetwork(24, 24, 510.0f));
        packNetwork(tree_ / "broken", 0, "200, Broken, 1", "0,Background\n31,Two \"outputs\"", twoOutputNetwork());
        packNetwork(tree_ / "doubled", 0, "300, Doubled, 1", "0,Background\n41,TwoInputs", twoInputNetwork());
        ASSERT_EQ(SetNubexResourceDirectory(tree_.str().c_str()), 3u);
        ASSERT_GT(InitializeNubexEngine(), 0u);
    }
    void TearDown() override { DeInitializeNubexEngine(-1); }

private:
    TempTree tree_;
};

const auto* const g_environment = ::testing::AddGlobalTestEnvironment(new ScanEnvironment);

std::string scan(const cv::Mat& image, const char* categories, float* scores = nullptr) {
    float localScores[8] = {};
    const auto buffer = Detectors::packPixelBuffer(image);
    char* document = ScanImage(buffer.data(), static_cast<int32_t>(buffer.size()), image.cols, image.rows,
                               categories, scores != nullptr ? scores : localScores, 50.0f);
    std::string text = document;
    ReleaseNubexMemory(document);
    return text;
}

cv::Mat uniform(int width, int height, int blue, int green, int red) {
    return cv::Mat(height, width, CV_8UC3, cv::Scalar(blue, green, red));
}

const std::string kGreen153 =
    "{\"scan_result\":[{\"Drinks\":30.0},{\"Smoke\":100.0}],\"img_width\":7,\"img_height\":5,"
    "\"error_code\":\"\",\"result\":\"True\"}";

}  // namespace

TEST(ScanImage, CalibrationAndSecondStage) {
    // Green 153: raw 60 -> calibrated 40, uncertain -> second stage 153/510 = 30.
    // Red 255: raw 100 -> no calibration points -> 100, certain.
    float scores[2] = {-7.0f, -7.0f};
    EXPECT_EQ(scan(uniform(7, 5, 0, 153, 255), "14, 21", scores), kGreen153);
    EXPECT_FLOAT_EQ(scores[0], 30.0f);
    EXPECT_FLOAT_EQ(scores[1], 100.0f);

    // Raw 100 -> 60 + 20 / 0.5 = 100: above the band, no second stage.
    EXPECT_EQ(scan(uniform(4, 4, 0, 255, 0), "14"),
              "{\"scan_result\":[{\"Drinks\":100.0}],\"img_width\":4,\"img_height\":4,\"error_code\":\"\","
              "\"result\":\"True\"}");
    // Raw 0.3921 (1/255) stays below the band; red 0 scores 0.
    EXPECT_EQ(scan(uniform(3, 2, 0, 1, 0), "21,14"),
              "{\"scan_result\":[{\"Smoke\":0.0},{\"Drinks\":0.2352}],\"img_width\":3,\"img_height\":2,"
              "\"error_code\":\"\",\"result\":\"True\"}");
}

TEST(ScanImage, RequestProblemsAreReportedInTheDocument) {
    const cv::Mat image = uniform(7, 5, 0, 153, 255);
    float scores[4] = {-7.0f, -7.0f, -7.0f, -7.0f};
    EXPECT_EQ(scan(image, " x, 21 ,21x,, 99,14", scores),
              "{\"scan_result\":[{\"Smoke\":100.0},{\"Drinks\":30.0}],\"img_width\":7,\"img_height\":5,"
              "\"error_code\":\"\\tInvalid Category: x\\tDuplicate Category: 21x\\tInvalid Category: 99\","
              "\"result\":\"False\"}");
    EXPECT_FLOAT_EQ(scores[0], 100.0f);  // dense: only accepted categories take a slot
    EXPECT_FLOAT_EQ(scores[1], 30.0f);
    EXPECT_FLOAT_EQ(scores[2], -7.0f);

    EXPECT_EQ(scan(image, ", , "), "{\"img_width\":7,\"img_height\":5,\"error_code\":\"\\tNo category provided for "
                                   "scanning...\",\"result\":\"False\"}");
    const auto buffer = Detectors::packPixelBuffer(image);
    auto document = [&](const uint8_t* pixels, int width, int height, const char* list) {
        char* text = ScanImage(pixels, 0, width, height, list, scores, 0.0f);
        std::string copy = text;
        ReleaseNubexMemory(text);
        return copy;
    };
    EXPECT_EQ(document(buffer.data(), 0, 480, "14"),
              "{\"img_width\":0,\"img_height\":480,\"error_code\":\"\\tInvalid image dimension/s...\","
              "\"result\":\"False\"}");
    EXPECT_EQ(document(nullptr, -5, 3, "14,77"),
              "{\"img_width\":-5,\"img_height\":3,\"error_code\":\"Invalid image data...\\tInvalid image "
              "dimension/s...\\tInvalid Category: 77\",\"result\":\"False\"}");
    EXPECT_EQ(document(buffer.data(), 7, 5, nullptr),
              "{\"img_width\":7,\"img_height\":5,\"error_code\":\"\\tNo category provided for scanning...\","
              "\"result\":\"False\"}");
}

TEST(ScanImage, NetworksOfTheWrongShapeStillAnswer) {
    const cv::Mat image = uniform(6, 6, 10, 20, 30);
    // Two outputs: the classifier refuses at run time; two inputs: refused at load.
    EXPECT_EQ(scan(image, "31,41"),
              "{\"scan_result\":[{\"Two \\\"outputs\\\"\":0.0},{\"TwoInputs\":0.0}],\"img_width\":6,"
              "\"img_height\":6,\"error_code\":\"\",\"result\":\"True\"}");
    // A failed load is done: the next scan neither waits for it nor retries it.
    const auto loads = Nubex::engine().modelsLoaded();
    EXPECT_EQ(Nubex::engine().resourceState(300), Nubex::kLoaded);
    EXPECT_EQ(scan(image, "41"), "{\"scan_result\":[{\"TwoInputs\":0.0}],\"img_width\":6,\"img_height\":6,"
                                 "\"error_code\":\"\",\"result\":\"True\"}");
    EXPECT_EQ(Nubex::engine().modelsLoaded(), loads);
}

TEST(ScanImage, ConcurrentScansLoadOnceAndAgreeAfterRelease) {
    scan(uniform(2, 2, 0, 0, 0), "31");  // another set, loaded
    DeInitializeNubexEngine(14);
    EXPECT_EQ(Nubex::engine().resourceState(100), Nubex::kNotLoaded);
    EXPECT_EQ(Nubex::engine().resourceState(101), Nubex::kNotLoaded);
    const auto loadsBefore = Nubex::engine().modelsLoaded();

    // More scans at once than the pool holds requests.
    const cv::Mat image = uniform(7, 5, 0, 153, 255);
    const int threads = 3 * static_cast<int>(std::thread::hardware_concurrency()) + 2;
    std::atomic<int> mismatches{0};
    std::vector<std::thread> scanners;
    for (int t = 0; t < threads; ++t) {
        scanners.emplace_back([&] {
            for (int i = 0; i < 4; ++i) mismatches += scan(image, "14,21") == kGreen153 ? 0 : 1;
        });
    }
    for (auto& scanner : scanners) scanner.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(Nubex::engine().modelsLoaded(), loadsBefore + 2);  // the set's two networks, once each

    // Releasing the group does not disturb other sets; the next scan reloads it.
    EXPECT_EQ(Nubex::engine().resourceState(200), Nubex::kLoaded);
    DeInitializeNubexEngine(21);
    EXPECT_EQ(Nubex::engine().resourceState(200), Nubex::kLoaded);
    EXPECT_EQ(scan(image, "14,21"), kGreen153);
    EXPECT_EQ(Nubex::engine().modelsLoaded(), loadsBefore + 4);
}
