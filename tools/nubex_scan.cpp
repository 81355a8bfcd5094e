// nubex-scan: scans image files with the engine's C interface and prints the
// result documents.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "nubex_engine.h"
#include "tools/annotate.h"

namespace {

// Pictures with more pixels are refused before they are decoded.
constexpr std::uint64_t kDefaultMaxPixels = 100'000'000;

// OpenCV's decoders refuse, from the header and before decoding, pictures
// with more pixels than this variable allows.
constexpr const char* kDecoderLimitVariable = "OPENCV_IO_MAX_IMAGE_PIXELS";

struct Options {
    std::vector<std::string> inputs;
    std::vector<std::string> resourceDirectories;
    std::string categories;
    bool categoriesGiven = false;
    bool listCategories = false;
    bool details = false;
    float textThreshold = 50.0f;
    std::uint64_t maxPixels = kDefaultMaxPixels;
    std::string annotatePath;
};

void usage() {
    std::cerr << "usage: nubex-scan [options] IMAGE|FOLDER...\n"
                 "  --categories LIST     comma-separated category identifiers (default: all)\n"
                 "  --resources DIR       add a resource directory (repeatable)\n"
                 "  --list-categories     print the scannable categories\n"
                 "  --details             print the resource sets\n"
                 "  --text-threshold T    text-presence threshold in percent (default 50)\n"
                 "  --max-pixels N        refuse pictures of more than N pixels, as their header\n"
                 "                        gives them, before decoding (default 100000000)\n"
                 "  --annotate OUT.png    draw the faces and lines of text found over the image\n"
                 "                        (OUT-2.png, OUT-3.png ... for further images)\n"
                 "A folder stands for its regular files, in name order (not its subfolders).\n"
                 "Anything else that is not a regular file (after following links) is skipped\n"
                 "with a note on standard error. The exit status is 1 when a named input was\n"
                 "skipped or a picture could not be read or was refused.\n";
}

// A whole decimal number above 0.
bool parseCount(const char* text, std::uint64_t& count) {
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, count);
    return error == std::errc() && stop == end && count > 0;
}

bool parseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) {
                std::cerr << "nubex-scan: " << name << " needs a value\n";
                return nullptr;
            }
            return argv[++i];
        };
        if (argument == "--categories") {
            const char* list = value("--categories");
            if (list == nullptr) return false;
            options.categories = list;
            options.categoriesGiven = true;
        } else if (argument == "--resources") {
            const char* directory = value("--resources");
            if (directory == nullptr) return false;
            options.resourceDirectories.push_back(directory);
        } else if (argument == "--text-threshold") {
            const char* threshold = value("--text-threshold");
            if (threshold == nullptr) return false;
            options.textThreshold = std::strtof(threshold, nullptr);
        } else if (argument == "--max-pixels") {
            const char* count = value("--max-pixels");
            if (count == nullptr) return false;
            if (!parseCount(count, options.maxPixels)) {
                std::cerr << "nubex-scan: --max-pixels needs a whole number above 0, not " << count << "\n";
                return false;
            }
        } else if (argument == "--annotate") {
            const char* path = value("--annotate");
            if (path == nullptr) return false;
            options.annotatePath = path;
        } else if (argument == "--list-categories") {
            options.listCategories = true;
        } else if (argument == "--details") {
            options.details = true;
        } else if (argument == "--help" || argument == "-h") {
            usage();
            std::exit(0);
        } else if (argument.rfind("--", 0) == 0) {
            std::cerr << "nubex-scan: unknown option " << argument << "\n";
            return false;
        } else {
            options.inputs.push_back(argument);
        }
    }
    return true;
}

// OpenCV reads its decoders' pixel limit once, as its library loads. When the
// environment does not hold the tool's limit, the tool puts it there and
// starts itself again; should that fail, pictures are checked once decoded.
void startWithDecoderLimit(std::uint64_t maxPixels, char** argv) {
    const std::string limit = std::to_string(maxPixels);
    const char* current = std::getenv(kDecoderLimitVariable);
    if (current != nullptr && limit == current) return;
    if (::setenv(kDecoderLimitVariable, limit.c_str(), 1) == 0) ::execv("/proc/self/exe", argv);
    std::cerr << "nubex-scan: cannot restart with the decoders' pixel limit (" << std::strerror(errno)
              << "); pictures are checked once decoded\n";
}

void noteSkipped(const std::string& path, const std::string& reason) {
    std::cerr << "nubex-scan: skipped " << path << ": " << reason << "\n";
}

// Adds the regular files of a folder in name order. Subfolders are left out,
// other entries are skipped with a note. False when the folder cannot be read.
bool addFolder(const std::string& folder, std::vector<std::string>& files) {
    namespace fs = std::filesystem;
    std::error_code error;
    std::vector<std::string> found;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const std::string path = entry->path().string();
        std::error_code statusError;
        const fs::file_status status = fs::status(entry->path(), statusError);  // follows links
        if (statusError) {
            noteSkipped(path, statusError.message());
        } else if (fs::is_regular_file(status)) {
            found.push_back(path);
        } else if (!fs::is_directory(status)) {
            noteSkipped(path, "not a regular file");
        }
    }
    if (error) noteSkipped(folder, error.message());
    std::sort(found.begin(), found.end());
    files.insert(files.end(), found.begin(), found.end());
    return !error;
}

// The files named directly and those of the named folders; the number of
// named inputs skipped. Nothing here throws.
std::vector<std::string> expandInputs(const std::vector<std::string>& inputs, int& skipped) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for (const auto& input : inputs) {
        std::error_code error;
        const fs::file_status status = fs::status(input, error);  // follows links
        if (error) {
            noteSkipped(input, error.message());
            ++skipped;
        } else if (fs::is_directory(status)) {
            if (!addFolder(input, files)) ++skipped;
        } else if (fs::is_regular_file(status)) {
            files.push_back(input);
        } else {
            noteSkipped(input, "not a regular file");
            ++skipped;
        }
    }
    return files;
}

std::vector<std::string> categoryLines() {
    char** lines = nullptr;
    const int count = GetNubexCategories(&lines);
    std::vector<std::string> copy;
    for (int i = 0; i < count; ++i) {
        copy.emplace_back(lines[i]);
        ReleaseNubexMemory(lines[i]);
    }
    ReleaseNubexMemory(lines);
    return copy;
}

std::string allCategories() {
    std::string list;
    for (const auto& line : categoryLines()) {
        if (!list.empty()) list += ',';
        list += line.substr(0, line.find('\t'));
    }
    return list;
}

std::string pixelLimitRefusal(const std::string& path, std::uint64_t maxPixels) {
    return "refused " + path + ": the picture has more than " + std::to_string(maxPixels) +
           " pixels, the limit (--max-pixels)";
}

// Decodes the picture unless the size its header gives is above the limits.
cv::Mat readPicture(const std::string& path, std::uint64_t maxPixels) {
    cv::Mat image;
    try {
        image = cv::imread(path, cv::IMREAD_COLOR);
    } catch (const cv::Exception& error) {
        if (error.func != "validateInputImageSize") throw;
        if (error.err.find("PIXELS") != std::string::npos) throw std::runtime_error(pixelLimitRefusal(path, maxPixels));
        throw std::runtime_error("refused " + path + ": its width or height is beyond what the decoders take (" +
                                 error.err + ")");
    }
    if (image.empty()) throw std::runtime_error("cannot read image: " + path);
    if (static_cast<std::uint64_t>(image.cols) * static_cast<std::uint64_t>(image.rows) > maxPixels) {
        throw std::runtime_error(pixelLimitRefusal(path, maxPixels));
    }
    return image;
}

// The engine's pixel layout: BGR rows padded with (width mod 4) bytes.
std::uint64_t pixelBufferSize(const cv::Mat& image) {
    const std::uint64_t rowBytes = static_cast<std::uint64_t>(image.cols) * 3 + image.cols % 4;
    return rowBytes * static_cast<std::uint64_t>(image.rows);
}

std::vector<std::uint8_t> pixelBuffer(const cv::Mat& image) {
    const std::size_t rowBytes = static_cast<std::size_t>(image.cols) * 3 + image.cols % 4;
    std::vector<std::uint8_t> buffer(rowBytes * image.rows, 0);
    for (int row = 0; row < image.rows; ++row) {
        std::memcpy(buffer.data() + row * rowBytes, image.ptr(row), static_cast<std::size_t>(image.cols) * 3);
    }
    return buffer;
}

// OUT.png for the first image, OUT-2.png, OUT-3.png ... for the others.
std::string annotationPath(const std::string& path, std::size_t index) {
    if (index == 0) return path;
    const std::filesystem::path base(path);
    return (base.parent_path() / (base.stem().string() + "-" + std::to_string(index + 1) + base.extension().string()))
        .string();
}

std::string scanFile(const std::string& path, const std::string& categories, float threshold,
                     std::uint64_t maxPixels, const std::string& annotation) {
    const cv::Mat image = readPicture(path, maxPixels);
    // The engine takes the buffer's size as a 32-bit number.
    const std::uint64_t size = pixelBufferSize(image);
    if (size > static_cast<std::uint64_t>(INT32_MAX)) {
        throw std::runtime_error("refused " + path + ": its pixel buffer of " + std::to_string(size) +
                                 " bytes is larger than a scan takes (" + std::to_string(INT32_MAX) + " bytes)");
    }
    const auto buffer = pixelBuffer(image);
    std::vector<float> scores(categories.size() + 1, 0.0f);
    char* document = ScanImage(buffer.data(), static_cast<int32_t>(buffer.size()), image.cols, image.rows,
                               categories.c_str(), scores.data(), threshold);
    std::string text = document != nullptr ? document : "";
    ReleaseNubexMemory(document);
    if (!annotation.empty() && !cv::imwrite(annotation, Tools::annotate(image, text))) {
        throw std::runtime_error("cannot write " + annotation);
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parseOptions(argc, argv, options)) {
        usage();
        return 2;
    }
    if (options.inputs.empty() && !options.details && !options.listCategories) {
        usage();
        return 2;
    }
    startWithDecoderLimit(options.maxPixels, argv);
    int failures = 0;
    const auto files = expandInputs(options.inputs, failures);
    if (files.empty() && !options.details && !options.listCategories) return failures == 0 ? 0 : 1;
    for (const auto& directory : options.resourceDirectories) SetNubexResourceDirectory(directory.c_str());
    InitializeNubexEngine();
    if (options.details) {
        char* details = GetNubexResourcesDetails();
        std::cout << details;
        ReleaseNubexMemory(details);
    }
    if (options.listCategories) {
        for (const auto& line : categoryLines()) std::cout << line << "\n";
    }
    const std::string categories = options.categoriesGiven ? options.categories : allCategories();
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (files.size() > 1) std::cerr << "[" << i + 1 << "/" << files.size() << "] " << files[i] << "\n";
        try {
            const std::string annotation =
                options.annotatePath.empty() ? std::string() : annotationPath(options.annotatePath, i);
            const std::string document =
                scanFile(files[i], categories, options.textThreshold, options.maxPixels, annotation);
            if (files.size() > 1) std::cout << files[i] << "\t";
            std::cout << document << std::endl;
        } catch (const std::exception& error) {
            std::cerr << "nubex-scan: " << error.what() << "\n";
            ++failures;
        }
    }
    DeInitializeNubexEngine(-1);
    return failures == 0 ? 0 : 1;
}
