// nubex-scan: scans pictures with the engine's C interface and writes one JSON
// line per picture (JSON Lines).
//
// Standard output belongs to the JSON stream. The engine writes its console
// lines ("[ INFO ] ...", "[ WARNING ] ...", worker exception lines) to the
// process's standard output (file descriptor 1), from any thread. The tool
// owns its process, so at start-up it keeps a duplicate of descriptor 1 for
// its own output and points descriptor 1 at standard error: whatever the
// engine prints lands there, never between two JSON lines.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "nubex_engine.h"
#include "tools/annotate.h"

namespace {

namespace fs = std::filesystem;

// Exit statuses.
constexpr int kAllScanned = 0;
constexpr int kSomeFailed = 1;
constexpr int kBadUsage = 2;

// Pictures with more pixels are refused before they are decoded.
constexpr std::uint64_t kDefaultMaxPixels = 100'000'000;

// OpenCV's decoders refuse, from the header and before decoding, pictures
// with more pixels than this variable allows.
constexpr const char* kDecoderLimitVariable = "OPENCV_IO_MAX_IMAGE_PIXELS";

// What OpenCV's decoders read, as file name extensions.
constexpr const char* kDefaultExtensions = "bmp,dib,jpeg,jpg,jpe,jp2,png,webp,pbm,pgm,ppm,pxm,pnm,tif,tiff,sr,ras,exr,hdr,pic";

struct Options {
    std::vector<std::string> inputs;
    std::vector<std::string> resourceDirectories;
    std::optional<std::string> categories;
    bool listCategories = false;
    bool details = false;
    bool version = false;
    bool recursive = false;
    bool readStdin = false;
    float textThreshold = 50.0f;
    std::uint64_t maxPixels = kDefaultMaxPixels;
    std::string extensions = kDefaultExtensions;
    std::string annotateDirectory;
    std::string outputPath;
    unsigned jobs = 0;  // 0: the engine's number of throughput streams
};

// One picture to scan, or an input that failed before it could be scanned.
struct Item {
    std::string path;
    std::string error;       // set: reported as is, not scanned
    std::string annotation;  // where its annotated copy goes, when asked
};

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string> splitList(const std::string& list) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t comma = list.find(',', start);
        parts.push_back(trimmed(list.substr(start, comma - start)));
        if (comma == std::string::npos) return parts;
        start = comma + 1;
    }
}

// The extensions as lower-case names without their dot; empty: every file.
std::set<std::string> extensionSet(const std::string& list) {
    std::set<std::string> extensions;
    for (std::string part : splitList(list)) {
        if (part == "*") return {};
        if (!part.empty() && part.front() == '.') part.erase(0, 1);
        if (!part.empty()) extensions.insert(lowerCase(part));
    }
    return extensions;
}

// Whole decimal numbers above 0, without sign or spaces.
const CLI::Validator kCount(
    [](const std::string& text) -> std::string {
        const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        if (!digits || text.find_first_not_of('0') == std::string::npos) return "needs a whole number above 0, not " + text;
        return {};
    },
    "", "count");

// At least one extension, or '*'.
const CLI::Validator kExtensions(
    [](const std::string& text) -> std::string {
        if (trimmed(text) == "*" || !extensionSet(text).empty()) return {};
        return "needs file name extensions (e.g. png,jpg) or '*', not '" + text + "'";
    },
    "", "extensions");

// Fills options from the command line. Returns the exit status when the run
// ends here (help, or a usage error already reported).
std::optional<int> parseOptions(int argc, char** argv, Options& options) {
    CLI::App app("Scans pictures with NubexEngine and writes one JSON line per picture:\n"
                 "  {\"path\": ..., \"document\": {...}} or {\"path\": ..., \"error\": ...}\n"
                 "in the order of the inputs. The engine's console lines go to standard error.\n"
                 "Exit status: 0 every picture scanned, 1 some failed, 2 bad usage.",
                 "nubex-scan");
    app.add_option("inputs", options.inputs,
                   "pictures and folders to scan; '-' reads a list of paths, one a line, from standard input")
        ->type_name("PICTURE|FOLDER|-");
    app.add_option("--categories", options.categories,
                   "comma-separated category identifiers to scan (default: all; see --list-categories)")
        ->type_name("LIST");
    app.add_option("--resources", options.resourceDirectories, "add a resource directory (repeatable)")
        ->type_name("DIR")
        ->allow_extra_args(false);
    app.add_flag("--list-categories", options.listCategories, "print the scannable categories, one a line");
    app.add_flag("--details", options.details, "print the resource sets, one a line");
    app.add_option("--text-threshold", options.textThreshold,
                   "text-presence score in percent above which text is read")
        ->type_name("T")
        ->capture_default_str();
    app.add_option("--max-pixels", options.maxPixels,
                   "refuse pictures of more than this many pixels, as their header gives them, before decoding")
        ->type_name("N")
        ->capture_default_str()
        ->check(kCount);
    app.add_flag("-r,--recursive", options.recursive, "scan the pictures of subfolders too");
    app.add_option("--ext", options.extensions,
                   "comma-separated file name extensions taken from folders ('*': every file); files named "
                   "directly are always scanned")
        ->type_name("LIST")
        ->capture_default_str()
        ->check(kExtensions);
    app.add_flag("--stdin", options.readStdin, "read further paths from standard input, one a line");
    app.add_option("-j,--jobs", options.jobs,
                   "pictures scanned at once (default: the engine's number of throughput streams)")
        ->type_name("N")
        ->check(kCount & CLI::Range(1u, 256u).description(""));
    app.add_option("-o,--output", options.outputPath, "write the JSON lines to this file instead of standard output")
        ->type_name("FILE");
    app.add_option("--annotate", options.annotateDirectory,
                   "draw the faces and lines of text found into DIR/<stem>.annotated.png (DIR is created; "
                   "<stem>-2, -3... when several pictures share a stem)")
        ->type_name("DIR");
    app.add_flag("--version", options.version, "print the tool's and the engine's versions");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);  // help (0) or the reason on standard error
        return status == 0 ? kAllScanned : kBadUsage;
    }
    if (options.inputs.empty() && !options.readStdin && !options.details && !options.listCategories &&
        !options.version) {
        std::cerr << "nubex-scan: no picture given\n" << app.help();
        return kBadUsage;
    }
    return std::nullopt;
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

// Keeps the process's standard output for the tool and points descriptor 1,
// where the engine writes its console lines, at standard error. Returns the
// tool's stream, or null when the descriptors cannot be arranged.
std::FILE* takeStandardOutput() {
    std::cout.flush();
    std::fflush(stdout);
    const int kept = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (kept < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0) return nullptr;
    return ::fdopen(kept, "w");
}

// Collects the pictures to scan, in the order given; folders in name order.
class InputCollector {
public:
    InputCollector(const Options& options, std::vector<Item>& items)
        : recursive_(options.recursive), extensions_(extensionSet(options.extensions)), items_(items) {}

    // A path named on the command line or read from standard input. Nothing
    // here throws.
    void addNamed(const std::string& path) {
        std::error_code error;
        const fs::file_status status = fs::status(path, error);  // follows links
        if (error) {
            items_.push_back({path, error.message(), {}});
        } else if (fs::is_directory(status)) {
            addFolder(path);
        } else if (fs::is_regular_file(status)) {
            items_.push_back({path, {}, {}});
        } else {
            items_.push_back({path, "not a regular file", {}});
        }
    }

    void addList(std::istream& in) {
        std::string line;
        while (std::getline(in, line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (!line.empty()) addNamed(line);
        }
    }

private:
    static void note(const std::string& path, const std::string& reason) {
        std::cerr << "nubex-scan: skipped " << path << ": " << reason << "\n";
    }

    bool wanted(const fs::path& path) const {
        if (extensions_.empty()) return true;
        const std::string extension = path.extension().string();
        return extension.size() > 1 && extensions_.count(lowerCase(extension.substr(1))) > 0;
    }

    // The folder's pictures and, when recursive, those of its subfolders, all
    // in name order. Entries of other kinds are skipped with a note; a folder
    // that cannot be read is reported as failed.
    void addFolder(const std::string& folder) {
        struct stat identity{};
        if (::stat(folder.c_str(), &identity) == 0 &&
            !visited_.insert({identity.st_dev, identity.st_ino}).second) {
            note(folder, "a folder already scanned (a link loop?)");
            return;
        }
        std::error_code error;
        std::vector<fs::path> entries;
        for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
             entry.increment(error)) {
            entries.push_back(entry->path());
        }
        if (error) {
            items_.push_back({folder, "cannot read the folder: " + error.message(), {}});
            return;
        }
        std::sort(entries.begin(), entries.end());
        for (const auto& entry : entries) {
            const std::string path = entry.string();
            std::error_code statusError;
            const fs::file_status status = fs::status(entry, statusError);  // follows links
            if (!statusError && fs::is_directory(status)) {
                if (recursive_) {
                    addFolder(path);
                } else {
                    note(path, "a subfolder (--recursive scans them)");
                }
            } else if (!wanted(entry)) {
                continue;
            } else if (statusError) {
                note(path, statusError.message());
            } else if (fs::is_regular_file(status)) {
                items_.push_back({path, {}, {}});
            } else {
                note(path, "not a regular file");
            }
        }
    }

    bool recursive_;
    std::set<std::string> extensions_;
    std::vector<Item>& items_;
    std::set<std::pair<dev_t, ino_t>> visited_;
};

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

// The list to give the engine: every known category, or the requested ones
// once each is checked against the known ones. Empty with a message on
// standard error when the request names an unknown or malformed identifier.
std::optional<std::string> categoryList(const std::optional<std::string>& requested) {
    std::set<std::string> known;
    std::string all;
    for (const auto& line : categoryLines()) {
        const std::string identifier = line.substr(0, line.find('\t'));
        known.insert(identifier);
        all += (all.empty() ? "" : ",") + identifier;
    }
    if (!requested) return all;
    std::string list;
    for (auto token : splitList(*requested)) {
        const bool decimal = !token.empty() &&
                             std::all_of(token.begin(), token.end(), [](unsigned char c) { return std::isdigit(c); });
        if (!decimal) {
            std::cerr << "nubex-scan: --categories: '" << token
                      << "' is not a category identifier (comma-separated decimal numbers, e.g. 8337,9112)\n";
            return std::nullopt;
        }
        token.erase(0, std::min(token.find_first_not_of('0'), token.size() - 1));  // 014 is 14
        if (known.count(token) == 0) {
            std::cerr << "nubex-scan: --categories: no category " << token
                      << " in the resources (--list-categories lists them)\n";
            return std::nullopt;
        }
        list += (list.empty() ? "" : ",") + token;
    }
    return list;
}

// DIR/<stem>.annotated.png for each picture; a counter after the stem keeps
// the names of pictures with the same stem apart.
void nameAnnotations(std::vector<Item>& items, const std::string& directory) {
    std::set<std::string> taken;
    for (auto& item : items) {
        if (!item.error.empty()) continue;
        const std::string stem = fs::path(item.path).stem().string();
        std::string name = stem + ".annotated.png";
        for (int counter = 2; !taken.insert(name).second; ++counter) {
            name = stem + "-" + std::to_string(counter) + ".annotated.png";
        }
        item.annotation = (fs::path(directory) / name).string();
    }
}

std::string pixelLimitRefusal(std::uint64_t maxPixels) {
    return "refused: the picture has more than " + std::to_string(maxPixels) + " pixels, the limit (--max-pixels)";
}

// Decodes the picture unless the size its header gives is above the limits.
cv::Mat readPicture(const std::string& path, std::uint64_t maxPixels) {
    cv::Mat image;
    try {
        image = cv::imread(path, cv::IMREAD_COLOR);
    } catch (const cv::Exception& error) {
        if (error.func != "validateInputImageSize") throw;
        if (error.err.find("PIXELS") != std::string::npos) throw std::runtime_error(pixelLimitRefusal(maxPixels));
        throw std::runtime_error("refused: its width or height is beyond what the decoders take (" + error.err + ")");
    }
    if (image.empty()) throw std::runtime_error("cannot read the picture");
    if (static_cast<std::uint64_t>(image.cols) * static_cast<std::uint64_t>(image.rows) > maxPixels) {
        throw std::runtime_error(pixelLimitRefusal(maxPixels));
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

struct ScanSettings {
    std::string categories;
    float textThreshold = 50.0f;
    std::uint64_t maxPixels = kDefaultMaxPixels;
};

// One JSON line (without its line end) for the item; error receives the
// failure it reports, if any.
std::string scanLine(const Item& item, const ScanSettings& settings, std::string& error) {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> line(text);
    line.StartObject();
    line.Key("path");
    line.String(item.path.c_str(), static_cast<rapidjson::SizeType>(item.path.size()));
    error = item.error;
    if (error.empty()) {
        try {
            const cv::Mat image = readPicture(item.path, settings.maxPixels);
            // The engine takes the buffer's size as a 32-bit number.
            const std::uint64_t size = pixelBufferSize(image);
            if (size > static_cast<std::uint64_t>(INT32_MAX)) {
                throw std::runtime_error("refused: its pixel buffer of " + std::to_string(size) +
                                         " bytes is larger than a scan takes (" + std::to_string(INT32_MAX) +
                                         " bytes)");
            }
            const auto buffer = pixelBuffer(image);
            std::vector<float> scores(settings.categories.size() + 1, 0.0f);
            char* answer = ScanImage(buffer.data(), static_cast<int32_t>(buffer.size()), image.cols, image.rows,
                                     settings.categories.c_str(), scores.data(), settings.textThreshold);
            const std::string document = answer != nullptr ? answer : "";
            ReleaseNubexMemory(answer);
            rapidjson::Document parsed;
            if (parsed.Parse<rapidjson::kParseFullPrecisionFlag>(document.c_str()).HasParseError() ||
                !parsed.IsObject()) {
                throw std::runtime_error("the engine's answer is not a JSON object: " + document);
            }
            line.Key("document");
            parsed.Accept(line);
            if (!item.annotation.empty()) {
                if (cv::imwrite(item.annotation, Tools::annotate(image, document))) {
                    line.Key("annotated");
                    line.String(item.annotation.c_str(), static_cast<rapidjson::SizeType>(item.annotation.size()));
                } else {
                    error = "cannot write " + item.annotation;
                }
            }
        } catch (const std::exception& exception) {
            error = exception.what();
        }
    }
    if (!error.empty()) {
        line.Key("error");
        line.String(error.c_str(), static_cast<rapidjson::SizeType>(error.size()));
    }
    line.EndObject();
    return text.GetString();
}

// Scans the items from `jobs` threads and writes their lines in the items'
// order, each as soon as it and those before it are done. Returns the number
// of failed items, or -1 when the output could not be written.
int scanAll(const std::vector<Item>& items, const ScanSettings& settings, unsigned jobs, std::FILE* out) {
    std::vector<std::optional<std::string>> lines(items.size());
    std::vector<char> failed(items.size(), 0);
    std::mutex mutex;
    std::condition_variable done;
    std::atomic<std::size_t> next{0};
    auto work = [&] {
        for (std::size_t i = next++; i < items.size(); i = next++) {
            if (items.size() > 1) {
                std::lock_guard<std::mutex> lock(mutex);
                std::cerr << "[" << i + 1 << "/" << items.size() << "] " << items[i].path << "\n";
            }
            std::string error;
            std::string line = scanLine(items[i], settings, error);
            std::lock_guard<std::mutex> lock(mutex);
            if (!error.empty()) std::cerr << "nubex-scan: " << items[i].path << ": " << error << "\n";
            lines[i] = std::move(line);
            failed[i] = !error.empty();
            done.notify_all();
        }
    };
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < std::min<std::size_t>(jobs, items.size()); ++i) workers.emplace_back(work);
    int failures = 0;
    bool written = true;
    for (std::size_t i = 0; i < items.size(); ++i) {
        std::string line;
        {
            std::unique_lock<std::mutex> lock(mutex);
            done.wait(lock, [&] { return lines[i].has_value(); });
            line = std::move(*lines[i]);
            failures += failed[i];
        }
        line += '\n';
        written = written && std::fwrite(line.data(), 1, line.size(), out) == line.size() && std::fflush(out) == 0;
    }
    for (auto& worker : workers) worker.join();
    return written ? failures : -1;
}

void writeText(std::FILE* out, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), out);
    std::fflush(out);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (const auto status = parseOptions(argc, argv, options)) return *status;
    startWithDecoderLimit(options.maxPixels, argv);

    std::FILE* console = takeStandardOutput();
    if (console == nullptr) {
        std::cerr << "nubex-scan: cannot set standard output aside: " << std::strerror(errno) << "\n";
        return kBadUsage;
    }
    if (options.version) {
        char* engine = GetNubexEngineVersion();
        writeText(console, std::string("nubex-scan ") + NUBEX_SCAN_VERSION + "\n" + engine + "\n");
        ReleaseNubexMemory(engine);
        return kAllScanned;
    }

    for (const auto& directory : options.resourceDirectories) SetNubexResourceDirectory(directory.c_str());
    const std::uint32_t streams = InitializeNubexEngine();
    if (options.details) {
        char* details = GetNubexResourcesDetails();
        writeText(console, details);
        ReleaseNubexMemory(details);
    }
    if (options.listCategories) {
        for (const auto& line : categoryLines()) writeText(console, line + "\n");
    }
    const auto categories = categoryList(options.categories);
    if (!categories) return kBadUsage;

    std::vector<Item> items;
    InputCollector collector(options, items);
    bool stdinRead = false;
    for (const auto& input : options.inputs) {
        if (input == "-") {
            if (!stdinRead) collector.addList(std::cin);
            stdinRead = true;
        } else {
            collector.addNamed(input);
        }
    }
    if (options.readStdin && !stdinRead) collector.addList(std::cin);

    if (!options.annotateDirectory.empty()) {
        std::error_code error;
        fs::create_directories(options.annotateDirectory, error);
        if (error) {
            std::cerr << "nubex-scan: cannot create " << options.annotateDirectory << ": " << error.message() << "\n";
            return kBadUsage;
        }
        nameAnnotations(items, options.annotateDirectory);
    }
    std::FILE* out = console;
    if (!options.outputPath.empty()) {
        out = std::fopen(options.outputPath.c_str(), "w");
        if (out == nullptr) {
            std::cerr << "nubex-scan: cannot write " << options.outputPath << ": " << std::strerror(errno) << "\n";
            return kBadUsage;
        }
    }

    const ScanSettings settings{*categories, options.textThreshold, options.maxPixels};
    const unsigned jobs = options.jobs != 0 ? options.jobs : std::max<std::uint32_t>(streams, 1);
    const int failures = scanAll(items, settings, jobs, out);
    DeInitializeNubexEngine(-1);
    if (out != console && std::fclose(out) != 0) {
        std::cerr << "nubex-scan: cannot write " << options.outputPath << "\n";
        return kSomeFailed;
    }
    if (failures < 0) {
        std::cerr << "nubex-scan: cannot write the results\n";
        return kSomeFailed;
    }
    return failures == 0 ? kAllScanned : kSomeFailed;
}
