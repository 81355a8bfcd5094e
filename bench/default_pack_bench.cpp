// The default pack: for each network of a fixed input size, the engine's scan
// of the category it serves against bare inference of the same compiled
// network on a prepared input, measured alternately in one run. The text
// networks take each picture at its own size and read regions in batches, so
// their share outside inference is measured on real pictures instead, with
// perf (bench/real_pictures/engine_share.py).
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/imgcodecs.hpp>

#include "detectors/image_input.h"
#include "engine/process_state.h"
#include "bench_support.h"
#include "nubex_engine.h"

namespace {

struct Picture {
    cv::Mat image;
    std::vector<std::uint8_t> pixels;
};

Picture load(const std::string& path) {
    Picture picture;
    picture.image = cv::imread(path, cv::IMREAD_COLOR);
    picture.pixels = Detectors::packPixelBuffer(picture.image);
    return picture;
}

std::string scan(const Picture& picture, const char* categories) {
    float scores[4] = {};
    char* document = ScanImage(picture.pixels.data(), static_cast<int32_t>(picture.pixels.size()), picture.image.cols,
                               picture.image.rows, categories, scores, 50.0f);
    std::string text = document;
    ReleaseNubexMemory(document);
    return text;
}

// Alternates scans of the category with the bare inferences; counters give
// the means and their ratio.
void compare(benchmark::State& state, const Picture& picture, const char* category,
             const std::vector<std::pair<std::uint32_t, int>>& inferences) {
    scan(picture, category);  // loads the networks
    std::vector<std::pair<ov::InferRequest, int>> requests;
    for (const auto& [resource, count] : inferences) requests.emplace_back(bench::bareRequest(resource), count);
    double engine = 0.0;
    double bare = 0.0;
    for (auto _ : state) {
        engine += bench::secondsOf([&] { scan(picture, category); });
        bare += bench::secondsOf([&] {
            for (auto& [request, count] : requests) {
                for (int i = 0; i < count; ++i) request.infer();
            }
        });
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["engine_ms"] = 1e3 * engine / n;
    state.counters["bare_ms"] = 1e3 * bare / n;
    state.counters["engine_over_bare"] = engine / bare;
}

std::string samples() { return std::string(NUBEX_SAMPLES_DIR); }

void ContentClassifier(benchmark::State& state) {
    // The portrait's content score is certain: no second stage runs.
    compare(state, load(samples() + "/astronaut.png"), "120", {{710, 1}});
}

void FaceDetector(benchmark::State& state) {
    compare(state, load(samples() + "/astronaut.png"), "8337", {{8337, 1}});
}

BENCHMARK(ContentClassifier)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5.0);
BENCHMARK(FaceDetector)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5.0);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!std::filesystem::exists(std::string(NUBEX_DEFAULT_PACK_DIR) + "/faces")) {
        std::fprintf(stderr, "the default pack is not built: run scripts/setup.sh\n");
        return 1;
    }
    SetNubexResourceDirectory(NUBEX_DEFAULT_PACK_DIR);
    InitializeNubexEngine();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    DeInitializeNubexEngine(-1);
    return 0;
}
