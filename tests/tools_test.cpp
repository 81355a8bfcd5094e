#include <array>
#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <openvino/core/graph_util.hpp>

#include "support/temp_tree.h"
#include "tools/annotate.h"
#include "support/test_networks.h"
#include "support/test_pack.h"

using testing_support::TempTree;

namespace {

struct ToolRun {
    int status = 0;
    std::string output;
};

// Runs a tool of the build and collects its standard output.
ToolRun run(const std::string& arguments) {
    const std::string command = std::string(NUBEX_TOOLS_DIR) + "/" + arguments + " 2>/dev/null";
    ToolRun result;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return {-1, {}};
    std::array<char, 4096> chunk{};
    while (const std::size_t read = std::fread(chunk.data(), 1, chunk.size(), pipe)) result.output.append(chunk.data(), read);
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

}  // namespace

TEST(Tools, PackInspectVerifyAndScan) {
    TempTree tree;
    ov::save_model(testing_support::channelMeansNetwork(16, 16, 255.0f), tree / "means.xml", false);
    std::ofstream(tree / "classes.txt") << "0,Background\n14,Drinks,50=30,80=60\n21,Smoke\n";
    const std::string folder = tree / "res/drinks";
    EXPECT_EQ(run("nubex-pack build --xml " + (tree / "means.xml") + " --bin " + (tree / "means.bin") +
                  " --details '100, Vision Pro, 1.0' --classes " + (tree / "classes.txt") + " " + folder)
                  .status,
              0);

    const ToolRun inspected = run("nubex-pack inspect " + folder);
    EXPECT_EQ(inspected.status, 0);
    EXPECT_NE(inspected.output.find("details\t100, Vision Pro, 1.0\n"), std::string::npos) << inspected.output;
    EXPECT_NE(inspected.output.find("14,Drinks,50=30,80=60\n"), std::string::npos);
    EXPECT_NE(inspected.output.find("input\timage\tf32\t[1,3,16,16]"), std::string::npos) << inspected.output;

    EXPECT_EQ(run("nubex-pack verify " + folder).status, 0);
    // The same network checked as a recogniser does not fit.
    EXPECT_EQ(run("nubex-pack verify --kind text-recognition " + folder).status, 1);
    EXPECT_EQ(run("nubex-pack inspect --group 1 " + folder).status, 1);

    cv::imwrite(tree / "green.png", cv::Mat(5, 7, CV_8UC3, cv::Scalar(0, 255, 0)));
    const ToolRun scanned = run("nubex-scan --resources " + (tree / "res") + " --categories 14 " + (tree / "green.png"));
    EXPECT_EQ(scanned.status, 0);
    EXPECT_EQ(scanned.output,
              "{\"scan_result\":[{\"Drinks\":100.0}],\"img_width\":7,\"img_height\":5,\"error_code\":\"\","
              "\"result\":\"True\"}\n");
    // Beside the default pack (when it is built), the added directory's set and categories.
    const ToolRun listed = run("nubex-scan --resources " + (tree / "res") + " --list-categories --details");
    EXPECT_NE(listed.output.find("Vision Pro,\t1.0,\tDrinks,\tSmoke,\t\r\n"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("\n14\tDrinks\n21\tSmoke\n"), std::string::npos) << listed.output;
    EXPECT_EQ(run("nubex-scan --resources " + (tree / "res") + " " + (tree / "missing.png")).status, 1);
    EXPECT_EQ(run("nubex-scan --resources " + (tree / "res") + " --annotate " + (tree / "out.png") + " " +
                  (tree / "green.png") + " " + (tree / "green.png"))
                  .status,
              0);
    EXPECT_FALSE(cv::imread(tree / "out.png").empty());
    EXPECT_FALSE(cv::imread(tree / "out-2.png").empty());
}

TEST(Tools, AnnotationDrawsFacesAndTextLines) {
    const cv::Mat image(100, 120, CV_8UC3, cv::Scalar(0, 0, 0));
    const std::string document =
        "{\"text_details\":[\"10,60,80,60,80,90,10,90,hello world\"],\"face_details\":[{\"score\":87.5,"
        "\"location\":{\"vertices\":[{\"y\":10,\"x\":20},{\"y\":10,\"x\":50},{\"y\":40,\"x\":20},"
        "{\"y\":40,\"x\":50}]}}],\"img_width\":120,\"img_height\":100,\"error_code\":\"\",\"result\":\"True\"}";
    const cv::Mat drawn = Tools::annotate(image, document);
    EXPECT_EQ(drawn.at<cv::Vec3b>(25, 20), cv::Vec3b(0, 200, 0));  // left edge of the face square
    EXPECT_EQ(drawn.at<cv::Vec3b>(75, 80), cv::Vec3b(0, 0, 230));  // right edge of the text box
    EXPECT_EQ(drawn.at<cv::Vec3b>(25, 35), cv::Vec3b(0, 0, 0));    // inside stays
    EXPECT_EQ(cv::countNonZero(image.reshape(1)), 0);               // the original is untouched
    EXPECT_EQ(cv::norm(Tools::annotate(image, "not json"), image), 0.0);
}
