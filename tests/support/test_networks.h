#pragma once

#include <memory>
#include <string>

#include <openvino/core/model.hpp>

namespace testing_support {

// [1, 3, H, W] float input -> [1, 3]: the mean of each channel divided by
// divisor. With a uniform image the outputs are known exactly.
std::shared_ptr<ov::Model> channelMeansNetwork(std::size_t height, std::size_t width, float divisor);

// Like channelMeansNetwork, with a second output: refused by the classifier.
std::shared_ptr<ov::Model> twoOutputNetwork();

// Two inputs: refused at load time.
std::shared_ptr<ov::Model> twoInputNetwork();

// Serialises the model to IR and writes it, enciphered, as a resource folder.
void packNetwork(const std::string& folder, int group, const std::string& detailsLine,
                 const std::string& classTable, const std::shared_ptr<ov::Model>& model);

}  // namespace testing_support
