#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>
#include <zlib.h>
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

// Runs a tool of the build (after the prefix, such as "timeout 300") and
// collects its standard output; its standard error goes to errorFile.
ToolRun run(const std::string& arguments, const std::string& errorFile = "/dev/null", const std::string& prefix = "") {
    const std::string command = prefix + " " + std::string(NUBEX_TOOLS_DIR) + "/" + arguments + " 2>" + errorFile;
    ToolRun result;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return {-1, {}};
    std::array<char, 4096> chunk{};
    while (const std::size_t read = std::fread(chunk.data(), 1, chunk.size(), pipe)) result.output.append(chunk.data(), read);
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void putChunk(std::ofstream& out, const char* type, const std::vector<unsigned char>& data) {
    auto put32 = [&](std::uint32_t value) {
        const char bytes[4] = {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
        out.write(bytes, 4);
    };
    put32(static_cast<std::uint32_t>(data.size()));
    out.write(type, 4);
    out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    uLong crc = crc32(0, reinterpret_cast<const Bytef*>(type), 4);
    if (!data.empty()) crc = crc32(crc, data.data(), static_cast<uInt>(data.size()));  // (a null buffer restarts it)
    put32(static_cast<std::uint32_t>(crc));
}

// A black one-bit PNG: a few kilobytes on disk whatever its size.
void writeBlackPng(const std::string& path, std::uint32_t width, std::uint32_t height) {
    const std::vector<unsigned char> row(1 + (width + 7) / 8, 0);  // filter byte, then the pixels
    std::vector<unsigned char> compressed;
    std::array<unsigned char, 1 << 16> chunk{};
    z_stream stream{};
    deflateInit(&stream, Z_BEST_COMPRESSION);
    for (std::uint32_t y = 0; y < height; ++y) {
        stream.next_in = const_cast<Bytef*>(row.data());
        stream.avail_in = static_cast<uInt>(row.size());
        const int flush = y + 1 == height ? Z_FINISH : Z_NO_FLUSH;
        int status = Z_OK;
        do {
            stream.next_out = chunk.data();
            stream.avail_out = static_cast<uInt>(chunk.size());
            status = deflate(&stream, flush);
            compressed.insert(compressed.end(), chunk.data(), stream.next_out);
        } while (stream.avail_out == 0 || (flush == Z_FINISH && status != Z_STREAM_END));
    }
    deflateEnd(&stream);
    std::vector<unsigned char> header(13, 0);
    for (int i = 0; i < 4; ++i) {
        header[i] = static_cast<unsigned char>(width >> (24 - 8 * i));
        header[4 + i] = static_cast<unsigned char>(height >> (24 - 8 * i));
    }
    header[8] = 1;  // bit depth; colour type 0 (grey)
    std::ofstream out(path, std::ios::binary);
    out.write("\x89PNG\r\n\x1a\n", 8);
    putChunk(out, "IHDR", header);
    putChunk(out, "IDAT", compressed);
    putChunk(out, "IEND", {});
}

const std::string kGreenDocument =
    "{\"scan_result\":[{\"Drinks\":100.0}],\"img_width\":7,\"img_height\":5,\"error_code\":\"\","
    "\"result\":\"True\"}\n";

// A resource directory holding the classifier of category 14 (Drinks), and a
// green 7x5 picture it scores 100.
void writeDrinksSet(const TempTree& tree) {
    std::ofstream(tree / "classes.txt") << "0,Background\n14,Drinks,50=30,80=60\n21,Smoke\n";
    testing_support::packNetwork(tree / "res/drinks", 0, "100, Vision Pro, 1.0", contents(tree / "classes.txt"),
                                 testing_support::channelMeansNetwork(16, 16, 255.0f));
    cv::imwrite(tree / "green.png", cv::Mat(5, 7, CV_8UC3, cv::Scalar(0, 255, 0)));
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
    // Beside the default pack (when it is built), the added directory's set and categories.
    const ToolRun listed = run("nubex-scan --resources " + (tree / "res") + " --list-categories --details");
    EXPECT_NE(listed.output.find("Vision Pro,\t1.0,\tDrinks,\tSmoke,\t\r\n"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("\n14\tDrinks\n21\tSmoke\n"), std::string::npos) << listed.output;
    // Only the added set's category is scanned (the default pack's networks
    // are slow under the sanitizers); a missing picture fails the run after
    // the others are scanned and drawn.
    const ToolRun annotated = run("nubex-scan --resources " + (tree / "res") + " --categories 14 --annotate " +
                                  (tree / "out.png") + " " + (tree / "green.png") + " " + (tree / "green.png") + " " +
                                  (tree / "missing.png"));
    EXPECT_EQ(annotated.status, 1);
    EXPECT_EQ(annotated.output, (tree / "green.png") + "\t" + kGreenDocument + (tree / "green.png") + "\t" + kGreenDocument);
    EXPECT_FALSE(cv::imread(tree / "out.png").empty());
    EXPECT_FALSE(cv::imread(tree / "out-2.png").empty());
}

TEST(Tools, ScanSkipsLinkLoopsInFolders) {
    TempTree tree;
    writeDrinksSet(tree);
    std::filesystem::create_directories(tree / "folder/subfolder");
    std::filesystem::copy_file(tree / "green.png", tree / "folder/green.png");
    std::filesystem::create_symlink("self", tree / "folder/self");
    std::filesystem::create_symlink("b", tree / "folder/a");
    std::filesystem::create_symlink("a", tree / "folder/b");
    ASSERT_EQ(::mkfifo((tree / "folder/pipe").c_str(), 0600), 0);
    const ToolRun scanned = run("nubex-scan --resources " + (tree / "res") + " --categories 14 " + (tree / "folder"),
                                tree / "errors.txt", "timeout 300");
    EXPECT_EQ(scanned.status, 0);
    EXPECT_EQ(scanned.output, kGreenDocument);
    const std::string errors = contents(tree / "errors.txt");
    for (const char* entry : {"a", "b", "self", "pipe"}) {
        EXPECT_NE(errors.find("skipped " + (tree / "folder/") + entry + ": "), std::string::npos) << errors;
    }
    EXPECT_EQ(errors.find("subfolder"), std::string::npos) << errors;
}

TEST(Tools, ScanSkipsNamedInputsThatAreNoRegularFiles) {
    TempTree tree;
    writeDrinksSet(tree);
    ASSERT_EQ(::mkfifo((tree / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("loop", tree / "loop");
    // Without the guard a scanner that opens the pipe waits for a writer for ever.
    const ToolRun scanned = run("nubex-scan --resources " + (tree / "res") + " --categories 14 " + (tree / "pipe") +
                                    " " + (tree / "loop") + " " + (tree / "green.png"),
                                tree / "errors.txt", "timeout 300");
    EXPECT_EQ(scanned.status, 1);
    EXPECT_EQ(scanned.output, kGreenDocument);
    const std::string errors = contents(tree / "errors.txt");
    EXPECT_NE(errors.find("skipped " + (tree / "pipe") + ": not a regular file"), std::string::npos) << errors;
    EXPECT_NE(errors.find("skipped " + (tree / "loop") + ": "), std::string::npos) << errors;
}

TEST(Tools, ScanRefusesPicturesAboveThePixelLimit) {
    TempTree tree;
    writeDrinksSet(tree);
    // 120 megapixels in a few kilobytes: refused from its header by default.
    writeBlackPng(tree / "huge.png", 12000, 10000);
    const ToolRun defaults = run("nubex-scan --resources " + (tree / "res") + " --categories 14 " +
                                     (tree / "huge.png") + " " + (tree / "green.png"),
                                 tree / "errors.txt");
    EXPECT_EQ(defaults.status, 1);
    EXPECT_EQ(defaults.output, (tree / "green.png") + "\t" + kGreenDocument);
    EXPECT_NE(contents(tree / "errors.txt").find("refused " + (tree / "huge.png") + ": the picture has more than 100000000 pixels"),
              std::string::npos)
        << contents(tree / "errors.txt");

    // The green picture has 35 pixels, the black one 36.
    writeBlackPng(tree / "black.png", 6, 6);
    const ToolRun limited = run("nubex-scan --resources " + (tree / "res") + " --categories 14 --max-pixels 35 " +
                                    (tree / "black.png") + " " + (tree / "green.png"),
                                tree / "errors.txt");
    EXPECT_EQ(limited.status, 1);
    EXPECT_EQ(limited.output, (tree / "green.png") + "\t" + kGreenDocument);
    EXPECT_NE(contents(tree / "errors.txt").find("refused " + (tree / "black.png") + ": the picture has more than 35 pixels"),
              std::string::npos)
        << contents(tree / "errors.txt");
    for (const char* limit : {"0", "-1", "12abc"}) {
        EXPECT_EQ(run("nubex-scan --max-pixels '" + std::string(limit) + "' " + (tree / "green.png")).status, 2) << limit;
    }
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
