// nubex-scan: scans image files with the engine's C interface and prints the
// result documents.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "nubex_engine.h"
#include "tools/annotate.h"

namespace {

struct Options {
    std::vector<std::string> inputs;
    std::vector<std::string> resourceDirectories;
    std::string categories;
    bool categoriesGiven = false;
    bool listCategories = false;
    bool details = false;
    float textThreshold = 50.0f;
    std::string annotatePath;
};

void usage() {
    std::cerr << "usage: nubex-scan [options] IMAGE|FOLDER...\n"
                 "  --categories LIST     comma-separated category identifiers (default: all)\n"
                 "  --resources DIR       add a resource directory (repeatable)\n"
                 "  --list-categories     print the scannable categories\n"
                 "  --details             print the resource sets\n"
                 "  --text-threshold T    text-presence threshold in percent (default 50)\n"
                 "  --annotate OUT.png    draw the faces and lines of text found over the image\n"
                 "                        (OUT-2.png, OUT-3.png ... for further images)\n";
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

// Image files named directly, and the files of named folders in name order.
std::vector<std::string> expandInputs(const std::vector<std::string>& inputs) {
    std::vector<std::string> files;
    for (const auto& input : inputs) {
        std::error_code error;
        if (!std::filesystem::is_directory(input, error)) {
            files.push_back(input);
            continue;
        }
        std::vector<std::string> folder;
        for (const auto& entry : std::filesystem::directory_iterator(input, error)) {
            if (entry.is_regular_file()) folder.push_back(entry.path().string());
        }
        std::sort(folder.begin(), folder.end());
        files.insert(files.end(), folder.begin(), folder.end());
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

// The engine's pixel layout: BGR rows padded with (width mod 4) bytes.
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
                     const std::string& annotation) {
    const cv::Mat image = cv::imread(path, cv::IMREAD_COLOR);
    if (image.empty()) throw std::runtime_error("cannot read image: " + path);
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
    const auto files = expandInputs(options.inputs);
    if (files.empty() && !options.details && !options.listCategories) {
        usage();
        DeInitializeNubexEngine(-1);
        return 2;
    }
    const std::string categories = options.categoriesGiven ? options.categories : allCategories();
    int failures = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (files.size() > 1) std::cerr << "[" << i + 1 << "/" << files.size() << "] " << files[i] << "\n";
        try {
            const std::string annotation =
                options.annotatePath.empty() ? std::string() : annotationPath(options.annotatePath, i);
            const std::string document = scanFile(files[i], categories, options.textThreshold, annotation);
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
