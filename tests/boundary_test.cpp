// The C interface under hostile input: sizes that lie, folders that vanish or
// change between discovery and loading, networks that cannot load, and a
// console that is gone.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include "detectors/image_input.h"
#include "base/log_stream.h"
#include "nubex_engine.h"
#include "resources/resource_writer.h"
#include "support/temp_tree.h"
#include "support/test_networks.h"

using namespace testing_support;

namespace {

std::string scan(const std::uint8_t* pixels, int32_t imageSize, int32_t width, int32_t height, const char* list) {
    float scores[4] = {};
    char* document = ScanImage(pixels, imageSize, width, height, list, scores, 0.0f);
    std::string text = document;
    ReleaseNubexMemory(document);
    return text;
}

}  // namespace

TEST(Boundary, SizesThatDoNotFitTheBuffer) {
    const cv::Mat image(4, 5, CV_8UC3, cv::Scalar(1, 2, 3));
    const auto pixels = Detectors::packPixelBuffer(image);  // 4 rows of 16 bytes
    EXPECT_EQ(scan(pixels.data(), 63, 5, 4, "1"),
              "{\"img_width\":5,\"img_height\":4,\"error_code\":\"Invalid image data...\\tInvalid Category: 1\\tNo "
              "category provided for scanning...\",\"result\":\"False\"}");
    EXPECT_EQ(scan(pixels.data(), 64, 2147483647, 2147483647, ""),
              "{\"img_width\":2147483647,\"img_height\":2147483647,\"error_code\":\"Invalid image data...\\tNo "
              "category provided for scanning...\",\"result\":\"False\"}");
    EXPECT_EQ(scan(nullptr, -1, -2147483647 - 1, 0, nullptr),
              "{\"img_width\":-2147483648,\"img_height\":0,\"error_code\":\"Invalid image data...\\tInvalid image "
              "dimension/s...\\tNo category provided for scanning...\",\"result\":\"False\"}");
    const std::string longList(1 << 20, ',');
    EXPECT_NE(scan(pixels.data(), 0, 5, 4, longList.c_str()).find("No category provided"), std::string::npos);
}

TEST(Boundary, NegativeSizesAreNeverTrusted) {
    TempTree tree;
    packNetwork(tree / "pro", 0, "100, Vision Pro, 1", "0,Background\n14,Drinks", channelMeansNetwork(8, 8, 255.0f));
    ASSERT_EQ(SetNubexResourceDirectory(tree.str().c_str()), 1u);
    const std::vector<std::uint8_t> small(4096, 7);
    for (const int32_t size : {-1, -2147483647 - 1}) {
        EXPECT_EQ(scan(small.data(), size, 4000, 4000, "14"),
                  "{\"img_width\":4000,\"img_height\":4000,\"error_code\":\"Invalid image data...\","
                  "\"result\":\"False\"}");
    }
    DeInitializeNubexEngine(-1);
}

TEST(Boundary, NetworksTooLargeToHoldAreRefusedBeforeLoading) {
    TempTree tree;
    // 3 x 60000 x 60000 floats per request: tens of gigabytes.
    packNetwork(tree / "vast", 0, "400, Vast, 1", "0,Background\n51,Vast", channelMeansNetwork(60000, 60000, 255.0f));
    ASSERT_EQ(SetNubexResourceDirectory(tree.str().c_str()), 1u);
    const cv::Mat image(4, 4, CV_8UC3, cv::Scalar(0, 255, 255));
    const auto pixels = Detectors::packPixelBuffer(image);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(scan(pixels.data(), 0, 4, 4, "51"),
              "{\"scan_result\":[{\"Vast\":0.0}],\"img_width\":4,\"img_height\":4,\"error_code\":\"\","
              "\"result\":\"True\"}");
    const std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find("[ ERROR ] The network's input image [1,3,60000,60000] holds 10800000000 elements, more "
                          "than the engine's limit of 16777216: the network is not loaded.\n"),
              std::string::npos)
        << errors;
    DeInitializeNubexEngine(-1);
}

TEST(Boundary, FoldersThatChangeBeforeLoading) {
    TempTree tree;
    packNetwork(tree / "vanishing", 0, "100, Vanishing, 1", "0,Background\n14,Drinks", channelMeansNetwork(8, 8, 255.0f));
    packNetwork(tree / "changing", 0, "200, Changing, 1", "0,Background\n21,Smoke", channelMeansNetwork(8, 8, 255.0f));
    packNetwork(tree / "truncated", 0, "300, Truncated, 1", "0,Background\n31,Ash", channelMeansNetwork(8, 8, 255.0f));
    ASSERT_EQ(SetNubexResourceDirectory(tree.str().c_str()), 3u);
    ASSERT_GT(InitializeNubexEngine(), 0u);

    std::filesystem::remove_all(tree / "vanishing");
    Resources::ResourceContents changed;
    changed.detailsLine = "201, Changing, 1";
    const std::string details = changed.detailsLine;
    Resources::writeEncipheredFile(tree / "changing/NubexResource.4",
                                   reinterpret_cast<const std::uint8_t*>(details.data()), details.size());
    std::filesystem::resize_file(tree / "truncated/NubexResource.2", 3);

    const cv::Mat image(4, 4, CV_8UC3, cv::Scalar(0, 255, 255));
    const auto pixels = Detectors::packPixelBuffer(image);
    ::testing::internal::CaptureStderr();
    const std::string document = scan(pixels.data(), 0, 4, 4, "14,21,31");
    const std::string errors = ::testing::internal::GetCapturedStderr();
    // Each scan still answers; the resources simply have no network.
    EXPECT_EQ(document, "{\"scan_result\":[{\"Drinks\":0.0},{\"Smoke\":0.0},{\"Ash\":0.0}],\"img_width\":4,"
                        "\"img_height\":4,\"error_code\":\"\",\"result\":\"True\"}");
    EXPECT_NE(errors.find("[ ERROR ] Could not read resource deatils for ID 100...\n"), std::string::npos) << errors;
    EXPECT_NE(errors.find("[ ERROR ] ID of the read resource is 201 whereas that of resource to be initialized is "
                          "200...\n"),
              std::string::npos)
        << errors;
    DeInitializeNubexEngine(-1);
}

TEST(Boundary, ABrokenConsoleNeverEndsTheProcess) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int ends[2];
        if (::pipe(ends) != 0) ::_exit(3);
        ::close(ends[0]);  // nobody reads: writes raise SIGPIPE unless kept quiet
        ::dup2(ends[1], STDOUT_FILENO);
        ::dup2(ends[1], STDERR_FILENO);
        std::string large(1 << 16, 'x');
        for (int i = 0; i < 4; ++i) {
            slog::info << large << std::endl;
            slog::err << "still here" << std::endl;
            slog::consoleLine(large);
        }
        char* details = GetNubexResourcesDetails();  // logs the missing default directory
        ReleaseNubexMemory(details);
        ::_exit(std::cout.good() ? 0 : 4);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
