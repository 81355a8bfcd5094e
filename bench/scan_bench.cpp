// Scan latency and throughput of one classifier category on a 640x480 image
// against bare OpenVINO inference of the same compiled network on the same
// prepared input, measured alternately in one run; the ratios are counters.
#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "detectors/image_input.h"
#include "engine/process_state.h"
#include "bench_support.h"
#include "nubex_engine.h"
#include "support/temp_tree.h"
#include "support/test_networks.h"

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr std::uint32_t kResource = 500;

struct Setup {
    testing_support::TempTree tree;
    std::vector<std::uint8_t> pixels;
    std::shared_ptr<Inference::LoadedModel> model;
    ov::Tensor preparedInput;

    Setup() {
        testing_support::packNetwork(tree / "bench", 0, "500, Bench, 1", "0,Background\n7,Seven\n8,Eight",
                                     testing_support::convolutionalClassifier(224, 10));
        SetNubexResourceDirectory(tree.str().c_str());
        InitializeNubexEngine();
        cv::Mat image(kHeight, kWidth, CV_8UC3);
        cv::randu(image, 0, 255);
        pixels = Detectors::packPixelBuffer(image);
        scan();  // loads the network
        model = Nubex::engine().model(kResource);
        const cv::Mat prepared = Detectors::resizeForNetwork(image, 224, 224, false);
        preparedInput = ov::Tensor(model->inputType, model->inputShape);
        Detectors::fillPlanar(prepared, preparedInput);
    }

    void scan() const {
        float score = 0.0f;
        char* document = ScanImage(pixels.data(), static_cast<int32_t>(pixels.size()), kWidth, kHeight, "7", &score, 0);
        ReleaseNubexMemory(document);
    }
};

Setup& setup() {
    static Setup instance;
    return instance;
}

std::size_t poolSize() { return 2 * std::max(1u, std::thread::hardware_concurrency()); }

// One scan, then one bare inference of the prepared input, alternately, so
// that both see the same machine; the counters give the means and the ratio.
void SingleScanAgainstBareInference(benchmark::State& state) {
    ov::InferRequest request = setup().model->compiled.create_infer_request();
    request.set_input_tensor(setup().preparedInput);
    double engine = 0.0;
    double bare = 0.0;
    for (auto _ : state) {
        engine += bench::secondsOf([] { setup().scan(); });
        bare += bench::secondsOf([&request] { request.infer(); });
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["engine_ms"] = 1e3 * engine / n;
    state.counters["bare_ms"] = 1e3 * bare / n;
    state.counters["engine_over_bare"] = engine / bare;
}

// Rounds of as many concurrent scans as the pool holds requests, alternating
// with rounds that keep as many bare requests busy asynchronously.
void ConcurrentScansAgainstBareAsync(benchmark::State& state) {
    std::vector<ov::InferRequest> requests;
    for (std::size_t i = 0; i < poolSize(); ++i) {
        requests.push_back(setup().model->compiled.create_infer_request());
        requests.back().set_input_tensor(setup().preparedInput);
    }
    double engine = 0.0;
    double bare = 0.0;
    for (auto _ : state) {
        engine += bench::secondsOf([] {
            std::vector<std::thread> scanners;
            for (std::size_t i = 0; i < poolSize(); ++i) scanners.emplace_back([] { setup().scan(); });
            for (auto& scanner : scanners) scanner.join();
        });
        bare += bench::secondsOf([&requests] {
            for (auto& request : requests) request.start_async();
            for (auto& request : requests) request.wait();
        });
    }
    const double items = static_cast<double>(state.iterations() * poolSize());
    state.counters["engine_per_s"] = items / engine;
    state.counters["bare_per_s"] = items / bare;
    state.counters["engine_over_bare_throughput"] = bare / engine;
}

BENCHMARK(SingleScanAgainstBareInference)->Unit(benchmark::kMillisecond)->MinTime(5.0)->UseRealTime();
BENCHMARK(ConcurrentScansAgainstBareAsync)->Unit(benchmark::kMillisecond)->MinTime(5.0)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    setup();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    DeInitializeNubexEngine(-1);
    return 0;
}
