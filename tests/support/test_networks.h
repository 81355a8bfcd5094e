#pragma once

#include <memory>
#include <string>

#include <openvino/core/model.hpp>

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

// Serialises the model to IR and writes it, enciphered, as a resource folder.
void packNetwork(const std::string& folder, int group, const std::string& detailsLine,
                 const std::string& classTable, const std::shared_ptr<ov::Model>& model);

}  // namespace testing_support
