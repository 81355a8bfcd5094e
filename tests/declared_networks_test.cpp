// Networks that opt into more than the fixed form: letterboxed and dynamic
// inputs, regions read at their own width in batches, a declared alphabet.
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <openvino/runtime/core.hpp>

#include "detectors/image_input.h"
#include "engine/network_contract.h"
#include "inference/model_loader.h"
#include "nubex_engine.h"
#include "resources/class_table.h"
#include "support/temp_tree.h"
#include "support/test_networks.h"
#include "support/test_pack.h"

using namespace testing_support;

namespace {

// "Hélo W" and the blank: the steps spell "Hél#lo Wo".
const std::string kAlphabet = "H\xc3\xa9lo W";
const std::vector<std::size_t> kSteps = {0, 1, 2, 6, 2, 3, 4, 5, 3};
const std::string kReading = "H\xc3\xa9llo Wo";

std::shared_ptr<ov::Model> declaredRecogniser() {
    auto model = batchedRecogniserNetwork(32, kSteps, 7);
    declare(model, "alphabet", kAlphabet);
    return model;
}

class DeclaredEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        const std::string root = tree_.str();
        auto faces = fixedFaceNetwork({{0, 1, 0.9f, 0.25f, 0.375f, 0.5f, 0.625f}});
        declare(faces, "resize", "letterbox");
        packNetwork(root + "/faces", 0, "8337, Faces, 1.0", "0,Background\n8337,Face", faces);
        auto probe = sizeProbeNetwork(16, 64, 128);
        declare(probe, "stride", "16");
        packNetwork(root + "/probe", 0, "300, Size Probe, 1.0", "31,Height\n32,Width", probe);
        const auto grid = pixelLinkGrid(6, 12, {"###.###....#", "###.###.....", "###.###.....", "............",
                                                "#####.......", "#####......."});
        packNetwork(root + "/text-detector", 0, "9112, Text Detector, 1.0", "0,Background\n5,Text",
                    dynamicPixelLinkNetwork(6, 12, grid.pixels, grid.links));
        packNetwork(root + "/text-presence", 1, "9113, Text Presence, 1.0", "0,Background\n5,Text",
                    channelMeansNetwork(8, 8, 255.0f));
        packNetwork(root + "/text-reader", 2, "19112, Text Reader, 1.0", "1,Symbols", declaredRecogniser());
        ASSERT_GT(SetNubexResourceDirectory(root.c_str()), 0u);
        ASSERT_GT(InitializeNubexEngine(), 0u);
    }
    void TearDown() override { DeInitializeNubexEngine(-1); }

private:
    TempTree tree_;
};

const auto* const g_environment = ::testing::AddGlobalTestEnvironment(new DeclaredEnvironment);

std::string scan(int width, int height, const char* categories) {
    const cv::Mat image(height, width, CV_8UC3, cv::Scalar(0, 255, 0));
    return scanDocument(Detectors::packPixelBuffer(image), width, height, categories);
}

std::string document(int width, int height, const std::string& body) {
    return "{" + body + ",\"img_width\":" + std::to_string(width) + ",\"img_height\":" + std::to_string(height) +
           ",\"error_code\":\"\",\"result\":\"True\"}";
}

}  // namespace

TEST(DeclaredNetworks, LetterboxedFacesAreInPicturePixels) {
    // 128 x 64 lands as 64 x 32 at (0, 16) of the 64 x 64 input: the box
    // (16, 24)-(32, 40) of the input is (32, 16)-(64, 64) of the picture.
    EXPECT_EQ(scan(128, 64, "8337"),
              document(128, 64,
                       "\"scan_result\":[{\"Face\":90.0}],\"face_details\":[{\"score\":90.0,\"location\":{\"vertices\":"
                       "[{\"y\":13,\"x\":29},{\"y\":13,\"x\":67},{\"y\":51,\"x\":29},{\"y\":51,\"x\":67}]}}]"));
}

TEST(DeclaredNetworks, DynamicInputsTakeThePictureAtItsProportions) {
    // Within the bounds 64 x 128 (height x width) already: each side rounded
    // to the stride of 16, 32 x 96.
    EXPECT_EQ(scan(100, 30, "31,32"), document(100, 30, "\"scan_result\":[{\"Height\":3.2},{\"Width\":9.6}]"));
    // A tall picture, scaled down by 64 / 100 to 64 x 19.2: the width rounded down to one stride.
    EXPECT_EQ(scan(30, 100, "31,32"), document(30, 100, "\"scan_result\":[{\"Height\":6.4},{\"Width\":1.6}]"));
}

TEST(DeclaredNetworks, RegionsAreReadInBatchesWithTheDeclaredAlphabet) {
    const std::string lines = "\"text_details\":[\"0,0,34,0,34,14,0,14," + kReading + " " + kReading +
                              "\",\"0,20,24,20,24,29,0,29," + kReading + "\"]";
    EXPECT_EQ(scan(60, 30, "5"), document(60, 30, "\"scan_result\":[{\"Text\":100.0}]," + lines));
}

TEST(DeclaredNetworks, DeclarationsMustSuitTheNetwork) {
    ov::Core core;
    const auto contract = [&](const std::shared_ptr<ov::Model>& model, Resources::ResourceKind kind) -> std::string {
        auto network = serialisedNetwork(model);
        const auto loaded = Inference::loadModel(core, std::move(network), Nubex::loadOptionsFor(kind));
        if (!loaded) return "not loaded";
        return Nubex::checkNetworkContract(*loaded, kind, Resources::ClassTable{});
    };
    EXPECT_EQ(contract(declaredRecogniser(), Resources::ResourceKind::TextRecognition), "");

    auto classifier = channelMeansNetwork(8, 8, 1.0f);
    declare(classifier, "alphabet", "ab");
    EXPECT_NE(contract(classifier, Resources::ResourceKind::Classifier).find("only a text recogniser reads"),
              std::string::npos);

    auto letterboxedProbe = sizeProbeNetwork(1, 0, 0);
    declare(letterboxedProbe, "resize", "letterbox");
    EXPECT_NE(contract(letterboxedProbe, Resources::ResourceKind::Classifier).find("has a dynamic size"),
              std::string::npos);

    auto shortAlphabet = declaredRecogniser();
    declare(shortAlphabet, "alphabet", "Hlo W");
    EXPECT_NE(contract(shortAlphabet, Resources::ResourceKind::TextRecognition).find("[T, N, 6]"), std::string::npos);

    for (const char* stride : {"0", "2000", "16px"}) {
        auto probe = sizeProbeNetwork(1, 0, 0);
        declare(probe, "stride", stride);
        EXPECT_EQ(contract(probe, Resources::ResourceKind::Classifier), "not loaded") << stride;
    }
    for (const char* alphabet : {"", "\xc3", "\xed\xa0\x80"}) {  // empty, cut short, a surrogate
        auto reader = declaredRecogniser();
        declare(reader, "alphabet", alphabet);
        EXPECT_EQ(contract(reader, Resources::ResourceKind::TextRecognition), "not loaded");
    }
}

TEST(DeclaredNetworks, ConcurrentScansAgree) {
    const std::string expected = scan(128, 64, "8337,5,31,32");
    std::vector<std::string> documents(8);
    std::vector<std::thread> scanners;
    for (auto& seen : documents) scanners.emplace_back([&seen] { seen = scan(128, 64, "8337,5,31,32"); });
    for (auto& scanner : scanners) scanner.join();
    for (const auto& seen : documents) EXPECT_EQ(seen, expected);
    EXPECT_NE(expected.find(kReading), std::string::npos) << expected;
}
