#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "detectors/image_input.h"
#include "nubex_engine.h"
#include "support/temp_tree.h"
#include "support/test_pack.h"

using namespace testing_support;

namespace {

// Faces, text presence, text detection and text reading with fixed outputs.
class DetectorEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        writeDetectorPack(tree_.str());
        ASSERT_EQ(SetNubexResourceDirectory(tree_.str().c_str()), 2u);
        ASSERT_GT(InitializeNubexEngine(), 0u);
    }
    void TearDown() override { DeInitializeNubexEngine(-1); }

private:
    TempTree tree_;
};

const auto* const g_environment = ::testing::AddGlobalTestEnvironment(new DetectorEnvironment);

std::string scan(int width, int height, int green, const char* categories, float threshold = 50.0f) {
    const cv::Mat image(height, width, CV_8UC3, cv::Scalar(0, green, 0));
    const auto buffer = Detectors::packPixelBuffer(image);
    float scores[4] = {};
    char* document = ScanImage(buffer.data(), static_cast<int32_t>(buffer.size()), width, height, categories, scores,
                               threshold);
    std::string text = document;
    ReleaseNubexMemory(document);
    return text;
}

const std::string kFaces =
    "\"face_details\":[{\"score\":90.0,\"location\":{\"vertices\":[{\"y\":14,\"x\":6},{\"y\":14,\"x\":34},"
    "{\"y\":42,\"x\":6},{\"y\":42,\"x\":34}]}},{\"score\":75.0,\"location\":{\"vertices\":[{\"y\":-10,\"x\":-9},"
    "{\"y\":-10,\"x\":19},{\"y\":18,\"x\":-9},{\"y\":18,\"x\":19}]}}]";

}  // namespace

TEST(DetectorScan, FacesInImagePixels) {
    EXPECT_EQ(scan(100, 80, 0, "8337"),
              "{\"scan_result\":[{\"Face\":90.0}]," + kFaces +
                  ",\"img_width\":100,\"img_height\":80,\"error_code\":\"\",\"result\":\"True\"}");
}

TEST(DetectorScan, TextLinesGroupedAndGated) {
    const std::string text = "\"text_details\":[\"0,0,34,0,34,14,0,14,abb12 abb12\",\"0,20,24,20,24,29,0,29,abb12\"]";
    EXPECT_EQ(scan(60, 30, 255, "5"), "{\"scan_result\":[{\"Text\":100.0}]," + text +
                                          ",\"img_width\":60,\"img_height\":30,\"error_code\":\"\",\"result\":\"True\"}");
    // A presence score equal to the threshold stops the text pipeline.
    EXPECT_EQ(scan(60, 30, 255, "5", 100.0f),
              "{\"scan_result\":[{\"Text\":100.0}],\"img_width\":60,\"img_height\":30,\"error_code\":\"\","
              "\"result\":\"True\"}");
    // Faces and text in one scan, each worker on its own thread.
    const std::string both = scan(100, 80, 255, "8337, 5");
    EXPECT_TRUE(both.starts_with("{\"scan_result\":[{\"Face\":90.0},{\"Text\":100.0}],\"text_details\"")) << both;
    EXPECT_NE(both.find("]," + kFaces + ",\"img_width\":100"), std::string::npos);
}

TEST(DetectorScan, ConcurrentDetectorScansAgree) {
    const std::string expected = scan(100, 80, 255, "5,8337");
    std::vector<std::thread> scanners;
    std::vector<std::string> documents(12);
    for (auto& document : documents) scanners.emplace_back([&document] { document = scan(100, 80, 255, "5,8337"); });
    for (auto& scanner : scanners) scanner.join();
    for (const auto& document : documents) EXPECT_EQ(document, expected);
    EXPECT_NE(expected.find(kFaces), std::string::npos);
}
