#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>
#include <zlib.h>
#include <opencv2/imgcodecs.hpp>
#include <rapidjson/document.h>
#include <openvino/core/graph_util.hpp>

#include "nubex_engine.h"
#include "resources/resource_writer.h"
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
    "\"result\":\"True\"}";

// The JSON lines nubex-scan writes for a scanned and for a failed picture.
std::string documentLine(const std::string& path, const std::string& document = kGreenDocument) {
    return "{\"path\":\"" + path + "\",\"document\":" + document + "}\n";
}
std::string errorLine(const std::string& path, const std::string& error) {
    return "{\"path\":\"" + path + "\",\"error\":\"" + error + "\"}\n";
}

// A resource directory holding the classifier of category 14 (Drinks), and a
// green 7x5 picture it scores 100.
void writeDrinksSet(const TempTree& tree) {
    std::ofstream(tree / "classes.txt") << "0,Background\n14,Drinks,50=30,80=60\n21,Smoke\n";
    testing_support::packNetwork(tree / "res/drinks", 0, "100, Vision Pro, 1.0", contents(tree / "classes.txt"),
                                 testing_support::channelMeansNetwork(16, 16, 255.0f));
    cv::imwrite(tree / "green.png", cv::Mat(5, 7, CV_8UC3, cv::Scalar(0, 255, 0)));
}

// nubex-scan with the drinks set, scanning category 14 only (the default
// pack's networks are slow under the sanitizers).
std::string scanCommand(const TempTree& tree, const std::string& arguments) {
    return "nubex-scan --resources " + (tree / "res") + " --categories 14 " + arguments;
}

}  // namespace

TEST(Tools, PackInspectVerifyAndList) {
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

    // Beside the default pack (when it is built), the added directory's set and categories.
    const ToolRun listed = run("nubex-scan --resources " + (tree / "res") + " --list-categories --details");
    EXPECT_NE(listed.output.find("Vision Pro,\t1.0,\tDrinks,\tSmoke,\t\r\n"), std::string::npos) << listed.output;
    EXPECT_NE(listed.output.find("\n14\tDrinks\n21\tSmoke\n"), std::string::npos) << listed.output;
}

TEST(Tools, ScanWritesOneJsonLinePerPictureInInputOrder) {
    TempTree tree;
    writeDrinksSet(tree);
    const ToolRun one = run(scanCommand(tree, tree / "green.png"));
    EXPECT_EQ(one.status, 0);
    EXPECT_EQ(one.output, documentLine(tree / "green.png"));

    // Pictures of other sizes give other documents; a missing one fails in its place.
    std::string inputs;
    std::string expected;
    for (int width = 1; width <= 6; ++width) {
        const std::string path = tree / ("green" + std::to_string(width) + ".png");
        cv::imwrite(path, cv::Mat(5, width, CV_8UC3, cv::Scalar(0, 255, 0)));
        inputs += " " + path;
        std::string document = kGreenDocument;
        document.replace(document.find("\"img_width\":7"), 13, "\"img_width\":" + std::to_string(width));
        expected += documentLine(path, document);
        if (width == 3) {
            inputs += " " + (tree / "missing.png");
            expected += errorLine(tree / "missing.png", "No such file or directory");
        }
    }
    const ToolRun serial = run(scanCommand(tree, "--jobs 1" + inputs));
    EXPECT_EQ(serial.status, 1);
    EXPECT_EQ(serial.output, expected);
    const ToolRun parallel = run(scanCommand(tree, "--jobs 3" + inputs));
    EXPECT_EQ(parallel.status, 1);
    EXPECT_EQ(parallel.output, expected);

    // --output takes the lines off standard output.
    const ToolRun toFile = run(scanCommand(tree, "--output " + (tree / "out.jsonl") + inputs));
    EXPECT_EQ(toFile.status, 1);
    EXPECT_EQ(toFile.output, "");
    EXPECT_EQ(contents(tree / "out.jsonl"), expected);
}

TEST(Tools, ScanKeepsTheEnginesConsoleLinesOffTheStream) {
    TempTree tree;
    writeDrinksSet(tree);
    // A set whose network cannot be read: loading it makes the engine print
    // its console lines while the picture is scanned.
    Resources::ResourceContents broken;
    broken.detailsLine = "200, Broken, 1.0";
    broken.classTable = "0,Background\n31,Ash\n";
    broken.network = "<net>not a network";
    broken.weights = {0, 0, 0, 0};
    Resources::writeResourceFolder(tree / "res/broken", 0, broken);
    const ToolRun scanned = run("nubex-scan --resources " + (tree / "res") + " --categories 14,31 " +
                                    (tree / "green.png") + " " + (tree / "green.png"),
                                tree / "errors.txt");
    const std::string errors = contents(tree / "errors.txt");
    EXPECT_NE(errors.find("[ INFO ] "), std::string::npos) << errors;
    std::istringstream lines(scanned.output);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        rapidjson::Document parsed;
        EXPECT_FALSE(parsed.Parse(line.c_str()).HasParseError()) << line;
        EXPECT_TRUE(parsed.IsObject() && parsed.HasMember("document")) << line;
    }
    EXPECT_EQ(count, 2) << scanned.output;
}

TEST(Tools, ScanRejectsBadUsageBeforeScanning) {
    TempTree tree;
    writeDrinksSet(tree);
    const std::string picture = " " + (tree / "green.png");
    for (const char* categories : {"99", "14,99", "14;21", "abc", "14,", "", "-14"}) {
        const ToolRun result = run("nubex-scan --resources " + (tree / "res") + " --categories '" + categories + "'" + picture,
                                 tree / "errors.txt");
        EXPECT_EQ(result.status, 2) << categories;
        EXPECT_EQ(result.output, "") << categories;
        EXPECT_NE(contents(tree / "errors.txt").find("--categories"), std::string::npos) << contents(tree / "errors.txt");
    }
    for (const char* numbers : {"--text-threshold abc", "--text-threshold 5x", "--max-pixels 0", "--max-pixels -1",
                                "--max-pixels 12abc", "--jobs 0", "--jobs two", "--ext ''", "--ext ,", "--unknown-option"}) {
        const ToolRun result = run(scanCommand(tree, std::string(numbers) + picture));
        EXPECT_EQ(result.status, 2) << numbers;
        EXPECT_EQ(result.output, "") << numbers;
    }
    EXPECT_EQ(run("nubex-scan").status, 2);
}

TEST(Tools, ScanReportsEachFailedPictureOnItsLine) {
    TempTree tree;
    writeDrinksSet(tree);
    std::ofstream(tree / "notes.png") << "not a picture";
    ASSERT_EQ(::mkfifo((tree / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("loop", tree / "loop");
    // 120 megapixels in a few kilobytes: refused from its header by default.
    writeBlackPng(tree / "huge.png", 12000, 10000);
    // Without the guard a scanner that opens the pipe waits for a writer for ever.
    const ToolRun scanned = run(scanCommand(tree, (tree / "notes.png") + " " + (tree / "pipe") + " " +
                                                      (tree / "huge.png") + " " + (tree / "green.png")),
                                tree / "errors.txt", "timeout 300");
    EXPECT_EQ(scanned.status, 1);
    EXPECT_EQ(scanned.output, errorLine(tree / "notes.png", "cannot read the picture") +
                                  errorLine(tree / "pipe", "not a regular file") +
                                  errorLine(tree / "huge.png",
                                            "refused: the picture has more than 100000000 pixels, the limit (--max-pixels)") +
                                  documentLine(tree / "green.png"));
    const ToolRun loop = run(scanCommand(tree, tree / "loop"));
    EXPECT_EQ(loop.status, 1);
    EXPECT_EQ(loop.output.rfind("{\"path\":\"" + (tree / "loop") + "\",\"error\":\"", 0), 0u) << loop.output;

    // The green picture has 35 pixels, the black one 36.
    writeBlackPng(tree / "black.png", 6, 6);
    const ToolRun limited = run(scanCommand(tree, "--max-pixels 35 " + (tree / "black.png") + " " + (tree / "green.png")));
    EXPECT_EQ(limited.status, 1);
    EXPECT_EQ(limited.output,
              errorLine(tree / "black.png", "refused: the picture has more than 35 pixels, the limit (--max-pixels)") +
                  documentLine(tree / "green.png"));
}

TEST(Tools, ScanWalksFoldersByExtensionAndReadsListsFromStandardInput) {
    TempTree tree;
    writeDrinksSet(tree);
    namespace fs = std::filesystem;
    fs::create_directories(tree / "folder/sub/deeper");
    for (const char* name : {"b.png", "a.JPG", "notes.txt", "sub/c.png", "sub/deeper/d.jpeg"}) {
        fs::copy_file(tree / "green.png", tree / ("folder/" + std::string(name)));
    }
    fs::create_directory_symlink("..", tree / "folder/sub/up");  // a loop for the recursion
    fs::create_symlink("self.png", tree / "folder/self.png");
    ASSERT_EQ(::mkfifo((tree / "folder/pipe.png").c_str(), 0600), 0);
    const std::string folder = tree / "folder";

    const ToolRun flat = run(scanCommand(tree, folder), tree / "errors.txt", "timeout 300");
    EXPECT_EQ(flat.status, 0);
    EXPECT_EQ(flat.output, documentLine(folder + "/a.JPG") + documentLine(folder + "/b.png"));
    const std::string errors = contents(tree / "errors.txt");
    for (const char* entry : {"pipe.png", "self.png", "sub"}) {
        EXPECT_NE(errors.find("skipped " + folder + "/" + entry + ": "), std::string::npos) << errors;
    }

    const ToolRun deep = run(scanCommand(tree, "--recursive " + folder), "/dev/null", "timeout 300");
    EXPECT_EQ(deep.status, 0);
    EXPECT_EQ(deep.output, documentLine(folder + "/a.JPG") + documentLine(folder + "/b.png") +
                               documentLine(folder + "/sub/c.png") + documentLine(folder + "/sub/deeper/d.jpeg"));

    // The filter applies to folders only: a file named directly is scanned whatever its name.
    const ToolRun filtered = run(scanCommand(tree, "-r --ext .PNG " + folder + " " + folder + "/notes.txt"),
                                 "/dev/null", "timeout 300");
    EXPECT_EQ(filtered.status, 0);
    EXPECT_EQ(filtered.output, documentLine(folder + "/b.png") + documentLine(folder + "/sub/c.png") +
                                   documentLine(folder + "/notes.txt"));

    // A list on standard input, where '-' stands or after the named inputs.
    const std::string list = "printf '%s\\n' " + folder + "/b.png " + folder + "/sub |";
    const ToolRun dash = run(scanCommand(tree, folder + "/a.JPG - " + folder + "/notes.txt"), "/dev/null", list);
    EXPECT_EQ(dash.status, 0);
    EXPECT_EQ(dash.output, documentLine(folder + "/a.JPG") + documentLine(folder + "/b.png") +
                               documentLine(folder + "/sub/c.png") + documentLine(folder + "/notes.txt"));
    const ToolRun option = run(scanCommand(tree, "--stdin " + folder + "/a.JPG"), "/dev/null", list);
    EXPECT_EQ(option.output, documentLine(folder + "/a.JPG") + documentLine(folder + "/b.png") +
                                 documentLine(folder + "/sub/c.png"));
}

TEST(Tools, ScanAnnotatesIntoAFolderByInputName) {
    TempTree tree;
    writeDrinksSet(tree);
    std::filesystem::create_directories(tree / "other");
    std::filesystem::copy_file(tree / "green.png", tree / "other/green.png");
    cv::imwrite(tree / "green-2.png", cv::Mat(5, 7, CV_8UC3, cv::Scalar(0, 255, 0)));
    const std::string out = tree / "out/annotated";
    const ToolRun annotated = run(scanCommand(tree, "--jobs 2 --annotate " + out + " " + (tree / "green.png") + " " +
                                                        (tree / "green-2.png") + " " + (tree / "other/green.png")));
    EXPECT_EQ(annotated.status, 0);
    // Names stay apart even when a counted name is a real stem too.
    const std::vector<std::pair<std::string, std::string>> expected = {
        {tree / "green.png", out + "/green.annotated.png"},
        {tree / "green-2.png", out + "/green-2.annotated.png"},
        {tree / "other/green.png", out + "/green-3.annotated.png"}};
    std::string lines;
    for (const auto& [input, drawing] : expected) {
        lines += "{\"path\":\"" + input + "\",\"document\":" + kGreenDocument + ",\"annotated\":\"" + drawing + "\"}\n";
        EXPECT_EQ(cv::imread(drawing).size(), cv::Size(7, 5)) << drawing;
    }
    EXPECT_EQ(annotated.output, lines);
}

TEST(Tools, ScanPrintsItsVersionAndTheEngines) {
    char* engine = GetNubexEngineVersion();
    const std::string engineLine = std::string(engine) + "\n";
    ReleaseNubexMemory(engine);
    const ToolRun version = run("nubex-scan --version");
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(std::regex_match(version.output.substr(0, version.output.find('\n') + 1),
                                 std::regex("nubex-scan [0-9]+(\\.[0-9]+)*\n")))
        << version.output;
    EXPECT_EQ(version.output.substr(version.output.find('\n') + 1), engineLine);
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
