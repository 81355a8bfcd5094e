// Fuzz target: the network description handed to model loading. The input
// is the IR text; the weights are those of the seed network. Each kind of
// network is loaded with its own options and checks. Loading must
// fail cleanly or give a network the engine can describe.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <openvino/runtime/core.hpp>

#include "engine/network_contract.h"
#include "inference/model_loader.h"
#include "support/fuzz_resources.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ov::Core core;
    static const std::vector<std::uint8_t> weights = testing_support::seedNetworkWeights();
    for (const auto kind : {Resources::ResourceKind::Classifier, Resources::ResourceKind::Face,
                            Resources::ResourceKind::TextDetection}) {
        Inference::NetworkData network{std::string(reinterpret_cast<const char*>(data), size), weights};
        const auto loaded = Inference::loadModel(core, std::move(network), Nubex::loadOptionsFor(kind));
        if (loaded) (void)loaded->outputCount();
    }
    return 0;
}
