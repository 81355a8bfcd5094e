#pragma once

#include <array>
#include <memory>
#include <vector>
#include <string>

#include <openvino/core/model.hpp>

#include "inference/model_loader.h"

namespace testing_support {

// [1, 3, H, W] float input -> [1, 3]: the mean of each channel divided by
// divisor. With a uniform image the outputs are known exactly.
std::shared_ptr<ov::Model> channelMeansNetwork(std::size_t height, std::size_t width, float divisor);

// A small convolutional classifier with deterministic weights: [1, 3, size,
// size] -> [1, classes] softmax probabilities. Costs a few milliseconds, like
// a compact real-world model, for benchmarks.
std::shared_ptr<ov::Model> convolutionalClassifier(std::size_t size, std::size_t classes);

// Like channelMeansNetwork, with a second output: refused by the classifier.
std::shared_ptr<ov::Model> twoOutputNetwork();

// Two inputs: refused at load time.
std::shared_ptr<ov::Model> twoInputNetwork();

// Networks whose outputs are fixed (they read the image only to stay
// connected to it): a face detector with the given DetectionOutput rows
// [1, 1, N, 7]; a pixel-and-link text detector whose pixel and link outputs
// ([1, 2, H, W] and [1, 16, H, W]) hold the given scores; a recogniser whose
// [T, 1, 37] scores put 10 on the symbol of each character of the sequence
// ("#" for the blank) and 0 elsewhere.
std::shared_ptr<ov::Model> fixedFaceNetwork(const std::vector<std::array<float, 7>>& rows);
std::shared_ptr<ov::Model> fixedPixelLinkNetwork(std::size_t height, std::size_t width,
                                                 const std::vector<float>& pixels, const std::vector<float>& links);
std::shared_ptr<ov::Model> fixedRecogniserNetwork(const std::string& sequence);

// Like the fixed networks above, but with convolutional work in the path so
// that inference costs what a compact real network costs: the outputs are the
// fixed ones plus a negligible (1e-6) share of the convolution features.
std::shared_ptr<ov::Model> convolutionalPixelLinkNetwork(std::size_t height, std::size_t width,
                                                         const std::vector<float>& pixels,
                                                         const std::vector<float>& links);
std::shared_ptr<ov::Model> convolutionalRecogniserNetwork(const std::string& sequence);

// One float input named "image" of the given shape, and outputs of the given
// names and shapes that hold fixed values (taken in turn from `values`; zeros
// when it is empty) and depend on the input only through a factor of zero.
struct OutputPort {
    std::string name;
    ov::Shape shape;
};
std::shared_ptr<ov::Model> fixedOutputsNetwork(const ov::PartialShape& input, const std::vector<OutputPort>& outputs,
                                               const std::vector<float>& values);

// Pixel-and-link scores for a set of positive cells, every link between
// positive cells positive: pairs (10, 0) for no and (0, 10) for yes.
struct PixelLinkGrid {
    std::vector<float> pixels;  // [2, H, W]
    std::vector<float> links;   // [16, H, W]
};
PixelLinkGrid pixelLinkGrid(std::size_t height, std::size_t width, const std::vector<std::string>& rows);

// The model serialised to IR, as a resource holds it deciphered.
Inference::NetworkData serialisedNetwork(const std::shared_ptr<ov::Model>& model);

// Serialises the model to IR and writes it, enciphered, as a resource folder.
void packNetwork(const std::string& folder, int group, const std::string& detailsLine,
                 const std::string& classTable, const std::shared_ptr<ov::Model>& model);

}  // namespace testing_support

namespace testing_support {

// Networks that declare more than the fixed form. The declarations are set
// in the model's rt_info section "nubex" (key -> value).
void declare(const std::shared_ptr<ov::Model>& model, const std::string& key, const std::string& value);

// [1, 3, H, W] with H and W dynamic within [lower, upper] (0: unbounded) ->
// [1, 2]: the height and width it was fed, divided by 1000.
std::shared_ptr<ov::Model> sizeProbeNetwork(std::int64_t lower, std::int64_t upperHeight, std::int64_t upperWidth);

// fixedPixelLinkNetwork with a dynamic input [1, 3, ?, ?].
std::shared_ptr<ov::Model> dynamicPixelLinkNetwork(std::size_t height, std::size_t width,
                                                   const std::vector<float>& pixels, const std::vector<float>& links);

// A recogniser [N, 3, height, ?] -> [T, N, classes] that scores 10 on class
// steps[t] at step t (0 elsewhere) for every region of the batch; each
// region's input reaches its scores through a negligible share of its mean.
std::shared_ptr<ov::Model> batchedRecogniserNetwork(std::size_t height, const std::vector<std::size_t>& steps,
                                                    std::size_t classes);

}  // namespace testing_support
