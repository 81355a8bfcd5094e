// Fuzz target: well-formed networks of odd shapes and values for each kind of
// detector, scanned through the C interface. The input is
//   byte 0      the kind (its value modulo 4): classifier, face detector
//               ([A, B, N, 7] output), pixel-and-link text detector
//               ([A, 2, H, W] and [B, 16, H, W] outputs), text recogniser
//               ([T, B, 37] output); from 0x80 on, a byte of declarations
//               follows: dynamic height, width and batch (bounded or not),
//               letterboxing, a stride and an alphabet, each with what it needs
//   then        the network's input shape and its output shapes, a byte for
//               each dimension, and the outputs' values: a byte picks one of
//               a set of values (NaN, infinities, huge, negative, ...) or,
//               from 0xe0 on, takes the next four bytes as a float
// The network replaces that kind's resource of the generated packs, which is
// released so that the next scan loads it, and a small picture is scanned. Every
// answer must be one well-formed JSON object.
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include <rapidjson/document.h>

#include "nubex_engine.h"
#include "engine/process_state.h"
#include "support/test_networks.h"
#include "support/test_pack.h"

namespace {

using testing_support::OutputPort;

// Every output together, and the input, stay this small.
constexpr std::size_t kMaxElements = 4096;

class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool empty() const { return size_ == 0; }
    std::uint8_t next() {
        if (size_ == 0) return 0;
        --size_;
        return *data_++;
    }
    float value() {
        static const float picks[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f, 0.1f, 0.9f, 0.99f, 2.0f, 7.0f, 10.0f, 37.0f,
                                      100.0f, -100.0f, 1e30f, -1e30f, FLT_MAX, -FLT_MAX, 1e-40f, INFINITY, -INFINITY,
                                      std::numeric_limits<float>::quiet_NaN(), 8337.0f, 0.3f};
        const std::uint8_t pick = next();
        if (pick < 0xe0) return picks[pick % std::size(picks)];
        std::uint8_t bits[4] = {next(), next(), next(), next()};
        float raw = 0.0f;
        std::memcpy(&raw, bits, sizeof raw);
        return raw;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
};

// Mostly `usual`, sometimes 0 to 3.
std::size_t usually(Bytes& bytes, std::size_t usual) {
    const std::uint8_t pick = bytes.next();
    return pick < 0xc0 ? usual : pick % 4;
}

std::size_t elements(const std::vector<OutputPort>& outputs) {
    std::size_t total = 0;
    for (const auto& output : outputs) total += ov::shape_size(output.shape);
    return total;
}

struct Kind {
    const char* folder;
    int group;
    const char* details;
    const char* classes;
    std::uint32_t identifier;
    const char* categories;  // scanned
};

const Kind kKinds[] = {
    {"vision-pro", 0, "100, Vision Pro, 1.0", "0,Background\n14,Drinks,50=30,80=60\n21,Smoke", 100, "14,21"},
    {"faces", 0, "8337, Faces, 1.0", "0,Background\n8337,Face", 8337, "8337"},
    {"text-detector", 0, "9112, Text Detector, 1.0", "0,Background\n5,Text", 9112, "5"},
    {"text-reader", 2, "19112, Text Reader, 1.0", "1,Symbols", 19112, "5"},
};

std::vector<OutputPort> outputsOf(std::size_t kind, Bytes& bytes) {
    switch (kind) {
        case 0: {
            ov::Shape shape(1 + bytes.next() % 4);
            for (auto& dimension : shape) dimension = usually(bytes, 1);
            shape.back() = bytes.next() % 64;
            return {{"scores", shape}};
        }
        case 1:
            return {{"detection_out", {usually(bytes, 1), usually(bytes, 1), bytes.next() % 64u, 7}}};
        case 2: {
            const std::size_t height = bytes.next() % 16u;
            const std::size_t width = bytes.next() % 16u;
            return {{"pixels", {usually(bytes, 1), 2, height, width}},
                    {"links", {usually(bytes, 1), 16, usually(bytes, height), usually(bytes, width)}}};
        }
        default:
            return {{"logits", {bytes.next() % 64u, usually(bytes, 1), 37}}};
    }
}

// A few symbols of one to four bytes each, for declared alphabets.
const char* const kSymbols[] = {"a", "B", " ", ",", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "#", "\"", "\\"};

// What a network declares and which of its input dimensions are dynamic.
struct Form {
    std::vector<std::pair<std::string, std::string>> declarations;
    std::size_t alphabetSymbols = 0;
};

ov::Dimension maybeDynamic(Bytes& bytes, std::size_t fixed, bool dynamic) {
    if (!dynamic) return static_cast<std::int64_t>(fixed);
    const std::uint8_t bound = bytes.next();
    if (bound < 0x40) return ov::Dimension::dynamic();
    const std::int64_t lower = bound % 4;
    return {lower, lower + bound % 96};  // a lower bound of 0-3, an upper up to 95 more
}

Form declaredForm(Bytes& bytes, ov::PartialShape& input) {
    const std::uint8_t flags = bytes.next();
    input[2] = maybeDynamic(bytes, static_cast<std::size_t>(input[2].get_length()), flags & 1);
    input[3] = maybeDynamic(bytes, static_cast<std::size_t>(input[3].get_length()), flags & 2);
    input[0] = maybeDynamic(bytes, static_cast<std::size_t>(input[0].get_length()), flags & 4);
    Form form;
    if (flags & 8) form.declarations.emplace_back("resize", flags & 0x40 ? "letterbox" : "stretch");
    if (flags & 16) form.declarations.emplace_back("stride", std::to_string(static_cast<int>(bytes.next()) * 5 - 10));
    if (flags & 32) {
        form.alphabetSymbols = bytes.next() % 12;
        std::string alphabet;
        for (std::size_t i = 0; i < form.alphabetSymbols; ++i) alphabet += kSymbols[bytes.next() % std::size(kSymbols)];
        if ((flags & 0x80) && !alphabet.empty()) alphabet.pop_back();  // maybe cut inside a symbol
        form.declarations.emplace_back("alphabet", alphabet);
    }
    return form;
}

const std::string& directory() {
    static const std::string path = [] {
        const auto folder =
            std::filesystem::temp_directory_path() / ("nubex-fuzz-networks-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);
        testing_support::writeClassifierPack(folder.string());
        testing_support::writeDetectorPack(folder.string());
        return folder.string();
    }();
    return path;
}

bool prepare() {
    SetNubexResourceDirectory(directory().c_str());
    return InitializeNubexEngine() > 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = prepare();
    if (!ready || size < 1) return 0;
    Bytes bytes(data, size);
    const std::uint8_t first = bytes.next();
    const std::size_t kind = first % std::size(kKinds);
    const ov::Shape fixedInput{usually(bytes, 1), usually(bytes, 3), bytes.next() % 49u, bytes.next() % 49u};
    ov::PartialShape input(fixedInput);
    const Form form = first >= 0x80 ? declaredForm(bytes, input) : Form{};
    auto outputs = outputsOf(kind, bytes);
    // A recogniser with an alphabet mostly scores its symbols and the blank.
    if (kind == 3 && form.alphabetSymbols > 0 && bytes.next() < 0xc0) outputs[0].shape[2] = form.alphabetSymbols + 1;
    if (ov::shape_size(fixedInput) > 4 * kMaxElements || elements(outputs) > kMaxElements) return 0;
    std::vector<float> values;
    while (!bytes.empty() && values.size() < kMaxElements) values.push_back(bytes.value());

    const Kind& chosen = kKinds[kind];
    const auto network = testing_support::fixedOutputsNetwork(input, outputs, values);
    for (const auto& [key, value] : form.declarations) testing_support::declare(network, key, value);
    testing_support::packNetwork(directory() + "/" + chosen.folder, chosen.group, chosen.details, chosen.classes,
                                 network);
    // Only this network loads again; its set's other members stay loaded.
    Nubex::engine().releaseResource(chosen.identifier);

    // Green, so that the text presence gate opens.
    constexpr int kWidth = 40;
    constexpr int kHeight = 30;
    std::vector<std::uint8_t> pixels((kWidth * 3 + kWidth % 4) * kHeight);
    for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = i % 3 == 1 ? 255 : static_cast<std::uint8_t>(i * 7);
    std::vector<float> scores(std::strlen(chosen.categories) + 1, 0.0f);
    char* document = ScanImage(pixels.data(), static_cast<std::int32_t>(pixels.size()), kWidth, kHeight,
                               chosen.categories, scores.data(), 10.0f);
    if (document == nullptr) std::abort();
    rapidjson::Document parsed;
    if (parsed.Parse(document).HasParseError() || !parsed.IsObject() || !parsed.HasMember("result")) std::abort();
    ReleaseNubexMemory(document);
    return 0;
}
