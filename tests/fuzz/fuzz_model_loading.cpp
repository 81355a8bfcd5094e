// Fuzz target: the network description handed to model loading. The input
// is the IR text; the weights are those of the seed network. Loading must
// fail cleanly or give a network the engine can describe.
#include <cstddef>
#include <cstdint>
#include <string>

#include <openvino/runtime/core.hpp>

#include "inference/model_loader.h"
#include "support/fuzz_resources.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ov::Core core;
    static const std::string folder = testing_support::fuzzModelFolder();
    testing_support::writeFuzzNetwork(folder, std::string(reinterpret_cast<const char*>(data), size));
    const Inference::ModelFiles files{folder, "NubexResource.1", "NubexResource.2"};
    for (const std::uint32_t identifier : {100u, 8337u, 9112u}) {
        const auto loaded = Inference::loadModel(core, identifier, files, Inference::precisionsFor(identifier));
        if (loaded) (void)loaded->outputCount();
    }
    return 0;
}
