// Scans that name many categories of a pack that declares a million: the time
// of a scan naming 10 000 identifiers against one naming 1 000, measured side
// by side in one run. The ratio is about 10 when a scan's cost grows
// linearly with its category list (it was about 100 when every identifier
// searched the whole category index).
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <openvino/op/ops.hpp>

#include "bench_support.h"
#include "nubex_engine.h"
#include "support/temp_tree.h"
#include "support/test_networks.h"

namespace {

constexpr int kCategories = 1000000;

// [1, 3, 8, 8] -> [1, kCategories + 1]: the image mean on every class.
std::shared_ptr<ov::Model> everyClassNetwork() {
    using namespace ov::op;
    auto input = std::make_shared<v0::Parameter>(ov::element::f32, ov::Shape{1, 3, 8, 8});
    input->output(0).get_tensor().set_names({"image"});
    auto mean = std::make_shared<v1::ReduceMean>(input, v0::Constant::create(ov::element::i64, {3}, {1, 2, 3}), false);
    auto row = std::make_shared<v1::Reshape>(mean, v0::Constant::create(ov::element::i64, {2}, {1, 1}), false);
    auto tiled = std::make_shared<v0::Tile>(row, v0::Constant::create(ov::element::i64, {2}, {1, kCategories + 1}));
    tiled->output(0).get_tensor().set_names({"scores"});
    return std::make_shared<ov::Model>(ov::ResultVector{std::make_shared<v0::Result>(tiled)}, ov::ParameterVector{input});
}

struct Setup {
    testing_support::TempTree tree;
    std::vector<std::uint8_t> pixels = std::vector<std::uint8_t>(8 * 8 * 3, 100);

    Setup() {
        // Short names keep the class table under the engine's 16 MiB limit for text files.
        std::string table = "0,Background\n";
        for (int i = 1; i <= kCategories; ++i) table += std::to_string(i) + ",C" + std::to_string(i) + "\n";
        testing_support::packNetwork(tree / "many", 0, "600, Many, 1", table, everyClassNetwork());
        SetNubexResourceDirectory(tree.str().c_str());
        InitializeNubexEngine();
    }

    double scanSeconds(int named) const {
        std::string list;
        for (int i = 1; i <= named; ++i) list += std::to_string(i * 97 % kCategories + 1) + ",";
        std::vector<float> scores(static_cast<std::size_t>(named));
        return bench::secondsOf([&] {
            char* document = ScanImage(pixels.data(), static_cast<int32_t>(pixels.size()), 8, 8, list.c_str(),
                                       scores.data(), 0.0f);
            ReleaseNubexMemory(document);
        });
    }
};

void LongCategoryLists(benchmark::State& state) {
    static Setup setup;
    setup.scanSeconds(10);  // loads the network
    double small = 0.0;
    double large = 0.0;
    for (auto _ : state) {
        small += setup.scanSeconds(1000);
        large += setup.scanSeconds(10000);
    }
    const auto runs = static_cast<double>(state.iterations());
    state.counters["ms_1000"] = 1000.0 * small / runs;
    state.counters["ms_10000"] = 1000.0 * large / runs;
    state.counters["ratio"] = large / small;
}
BENCHMARK(LongCategoryLists)->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
