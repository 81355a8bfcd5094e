// The text pipeline: decode time of a pixel-and-link output for a 1280x768
// working image, and the share of a whole text scan spent outside inference
// (engine scans alternating with bare inference of the same compiled networks
// on prepared inputs: the presence gate, the detector and one recognition per
// region).
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "detectors/image_input.h"
#include "engine/process_state.h"
#include "detectors/pixel_link_decoder.h"
#include "bench_support.h"
#include "nubex_engine.h"
#include "support/temp_tree.h"
#include "support/test_networks.h"

namespace {

constexpr int kGridHeight = 192;
constexpr int kGridWidth = 320;
const cv::Size kWorking(1280, 768);

// Rows of words: 3 cells high and 8 to 14 wide, as printed text looks at 1/4.
std::vector<std::string> wordRows() {
    std::vector<std::string> rows(kGridHeight, std::string(kGridWidth, '.'));
    for (int line = 0; line < 4; ++line) {
        int x = 4;
        for (int word = 0; x + 14 < kGridWidth; ++word) {
            const int length = 8 + (line * 7 + word * 3) % 7;
            for (int y = 6 + 45 * line; y < 9 + 45 * line; ++y) {
                for (int i = 0; i < length; ++i) rows[y][x + i] = '#';
            }
            x += length + 6;
        }
    }
    return rows;
}

struct Setup {
    testing_support::TempTree tree;
    testing_support::PixelLinkGrid grid = testing_support::pixelLinkGrid(kGridHeight, kGridWidth, wordRows());
    std::vector<std::uint8_t> pixels;
    cv::Mat image;
    std::size_t regions = 0;

    Setup() {
        using namespace testing_support;
        packNetwork(tree / "detector", 0, "9112, Text Detector, 1", "0,Background\n5,Text",
                    convolutionalPixelLinkNetwork(kGridHeight, kGridWidth, grid.pixels, grid.links));
        packNetwork(tree / "presence", 1, "9113, Text Presence, 1", "0,Background\n5,Text",
                    convolutionalClassifier(224, 2));
        packNetwork(tree / "reader", 2, "19112, Text Reader, 1", "1,Symbols",
                    convolutionalRecogniserNetwork("te#xt##12##3#ab#c#######"));
        SetNubexResourceDirectory(tree.str().c_str());
        InitializeNubexEngine();
        image = cv::Mat(kWorking, CV_8UC3);
        cv::randu(image, 0, 255);
        pixels = Detectors::packPixelBuffer(image);
        regions = Detectors::decodePixelLink({grid.pixels.data(), grid.links.data(), kGridHeight, kGridWidth}, kWorking)
                      .size();
        scan();  // loads the networks
    }

    std::string scan() const {
        float score = 0.0f;
        char* document = ScanImage(pixels.data(), static_cast<int32_t>(pixels.size()), image.cols, image.rows, "5",
                                   &score, -1.0f);
        std::string text = document;
        ReleaseNubexMemory(document);
        return text;
    }
};

Setup& setup() {
    static Setup instance;
    return instance;
}

void PixelLinkDecode1280x768(benchmark::State& state) {
    const auto& grid = setup().grid;
    std::size_t regions = 0;
    for (auto _ : state) {
        regions = Detectors::decodePixelLink({grid.pixels.data(), grid.links.data(), kGridHeight, kGridWidth}, kWorking)
                      .size();
    }
    state.counters["regions"] = static_cast<double>(regions);
}

void TextScanOutsideInference(benchmark::State& state) {
    ov::InferRequest gate = bench::bareRequest(9113);
    ov::InferRequest detector = bench::bareRequest(9112);
    ov::InferRequest reader = bench::bareRequest(19112);
    const std::size_t regions = setup().regions;
    double scan = 0.0;
    double inference = 0.0;
    for (auto _ : state) {
        scan += bench::secondsOf([] { setup().scan(); });
        inference += bench::secondsOf([&] {
            gate.infer();
            detector.infer();
            for (std::size_t i = 0; i < regions; ++i) reader.infer();
        });
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["regions"] = static_cast<double>(regions);
    state.counters["scan_ms"] = 1e3 * scan / n;
    state.counters["inference_ms"] = 1e3 * inference / n;
    state.counters["outside_share"] = 1.0 - inference / scan;
}

BENCHMARK(PixelLinkDecode1280x768)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(TextScanOutsideInference)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(10.0);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    setup();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    DeInitializeNubexEngine(-1);
    return 0;
}
