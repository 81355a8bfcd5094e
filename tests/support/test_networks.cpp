#include "support/test_networks.h"

#include <sstream>

#include <openvino/op/ops.hpp>
#include <openvino/pass/manager.hpp>
#include <openvino/pass/serialize.hpp>

#include "resources/resource_writer.h"

namespace testing_support {

namespace {

using namespace ov::op;

std::shared_ptr<ov::Node> channelMeans(const std::shared_ptr<v0::Parameter>& input, float divisor) {
    auto axes = v0::Constant::create(ov::element::i64, {2}, {2, 3});
    auto mean = std::make_shared<v1::ReduceMean>(input, axes, false);
    auto scale = v0::Constant::create(ov::element::f32, {}, {divisor});
    return std::make_shared<v1::Divide>(mean, scale);
}

std::shared_ptr<v0::Parameter> imageInput(std::size_t height, std::size_t width, const std::string& name) {
    auto input = std::make_shared<v0::Parameter>(ov::element::f32, ov::Shape{1, 3, height, width});
    input->set_friendly_name(name);
    input->output(0).get_tensor().set_names({name});
    return input;
}

std::shared_ptr<v0::Result> namedResult(const std::shared_ptr<ov::Node>& node, const std::string& name) {
    node->output(0).get_tensor().set_names({name});
    return std::make_shared<v0::Result>(node);
}

}  // namespace

std::shared_ptr<ov::Model> channelMeansNetwork(std::size_t height, std::size_t width, float divisor) {
    auto input = imageInput(height, width, "image");
    return std::make_shared<ov::Model>(ov::ResultVector{namedResult(channelMeans(input, divisor), "scores")},
                                       ov::ParameterVector{input});
}

namespace {

std::shared_ptr<ov::Node> convolution(const std::shared_ptr<ov::Node>& input, std::size_t inChannels,
                                      std::size_t outChannels, std::size_t stride) {
    std::vector<float> weights(outChannels * inChannels * 9);
    for (std::size_t i = 0; i < weights.size(); ++i) weights[i] = static_cast<float>((i * 37) % 17) / 170.0f - 0.05f;
    auto kernel = v0::Constant::create(ov::element::f32, {outChannels, inChannels, 3, 3}, weights);
    auto convolved = std::make_shared<v1::Convolution>(input, kernel, ov::Strides{stride, stride},
                                                       ov::CoordinateDiff{1, 1}, ov::CoordinateDiff{1, 1},
                                                       ov::Strides{1, 1});
    return std::make_shared<v0::Relu>(convolved);
}

}  // namespace

std::shared_ptr<ov::Model> convolutionalClassifier(std::size_t size, std::size_t classes) {
    auto input = imageInput(size, size, "image");
    auto scale = v0::Constant::create(ov::element::f32, {}, {1.0f / 255.0f});
    std::shared_ptr<ov::Node> node = std::make_shared<v1::Multiply>(input, scale);
    const std::size_t widths[] = {3, 32, 64, 96, 128, 128};
    for (std::size_t layer = 0; layer + 1 < std::size(widths); ++layer) {
        node = convolution(node, widths[layer], widths[layer + 1], layer < 4 ? 2 : 1);
    }
    auto axes = v0::Constant::create(ov::element::i64, {2}, {2, 3});
    node = std::make_shared<v1::ReduceMean>(node, axes, false);
    std::vector<float> dense(128 * classes);
    for (std::size_t i = 0; i < dense.size(); ++i) dense[i] = static_cast<float>((i * 13) % 11) / 11.0f - 0.5f;
    auto weights = v0::Constant::create(ov::element::f32, {128, classes}, dense);
    node = std::make_shared<v0::MatMul>(node, weights);
    node = std::make_shared<v8::Softmax>(node, 1);
    return std::make_shared<ov::Model>(ov::ResultVector{namedResult(node, "scores")}, ov::ParameterVector{input});
}

std::shared_ptr<ov::Model> twoOutputNetwork() {
    auto input = imageInput(8, 8, "image");
    auto first = namedResult(channelMeans(input, 255.0f), "first");
    auto second = namedResult(channelMeans(input, 510.0f), "second");
    return std::make_shared<ov::Model>(ov::ResultVector{first, second}, ov::ParameterVector{input});
}

std::shared_ptr<ov::Model> twoInputNetwork() {
    auto a = imageInput(8, 8, "a");
    auto b = imageInput(8, 8, "b");
    auto sum = std::make_shared<v1::Add>(a, b);
    auto axes = v0::Constant::create(ov::element::i64, {2}, {2, 3});
    auto mean = std::make_shared<v1::ReduceMean>(sum, axes, false);
    return std::make_shared<ov::Model>(ov::ResultVector{namedResult(mean, "scores")}, ov::ParameterVector{a, b});
}

namespace {

// A constant output that still depends (by zero) on the input.
std::shared_ptr<ov::Node> fixedOutput(const std::shared_ptr<v0::Parameter>& input, const ov::Shape& shape,
                                      const std::vector<float>& values) {
    auto axes = v0::Constant::create(ov::element::i64, {3}, {1, 2, 3});
    auto mean = std::make_shared<v1::ReduceMean>(input, axes, true);
    auto zero = std::make_shared<v1::Multiply>(mean, v0::Constant::create(ov::element::f32, {}, {0.0f}));
    std::shared_ptr<ov::Node> connected = zero;
    if (shape.size() == 3) {
        auto squeeze = v0::Constant::create(ov::element::i64, {1}, {0});
        connected = std::make_shared<v0::Squeeze>(zero, squeeze);
    }
    return std::make_shared<v1::Add>(v0::Constant::create(ov::element::f32, shape, values), connected);
}

}  // namespace

std::shared_ptr<ov::Model> fixedFaceNetwork(const std::vector<std::array<float, 7>>& rows) {
    auto input = imageInput(64, 64, "image");
    std::vector<float> values;
    for (const auto& row : rows) values.insert(values.end(), row.begin(), row.end());
    auto output = fixedOutput(input, ov::Shape{1, 1, rows.size(), 7}, values);
    return std::make_shared<ov::Model>(ov::ResultVector{namedResult(output, "detection_out")}, ov::ParameterVector{input});
}

std::shared_ptr<ov::Model> fixedPixelLinkNetwork(std::size_t height, std::size_t width,
                                                 const std::vector<float>& pixels, const std::vector<float>& links) {
    auto input = imageInput(4 * height, 4 * width, "image");
    auto pixelOutput = fixedOutput(input, ov::Shape{1, 2, height, width}, pixels);
    auto linkOutput = fixedOutput(input, ov::Shape{1, 16, height, width}, links);
    return std::make_shared<ov::Model>(
        ov::ResultVector{namedResult(pixelOutput, "pixels"), namedResult(linkOutput, "links")},
        ov::ParameterVector{input});
}

std::shared_ptr<ov::Model> fixedRecogniserNetwork(const std::string& sequence) {
    static const std::string alphabet = "0123456789abcdefghijklmnopqrstuvwxyz#";
    auto input = imageInput(32, 100, "image");
    std::vector<float> values(sequence.size() * alphabet.size(), 0.0f);
    for (std::size_t t = 0; t < sequence.size(); ++t) values[t * alphabet.size() + alphabet.find(sequence[t])] = 10.0f;
    auto output = fixedOutput(input, ov::Shape{sequence.size(), 1, alphabet.size()}, values);
    return std::make_shared<ov::Model>(ov::ResultVector{namedResult(output, "logits")}, ov::ParameterVector{input});
}

std::shared_ptr<ov::Model> fixedOutputsNetwork(const ov::PartialShape& inputShape, const std::vector<OutputPort>& outputs,
                                               const std::vector<float>& values) {
    auto input = std::make_shared<v0::Parameter>(ov::element::f32, inputShape);
    input->set_friendly_name("image");
    input->output(0).get_tensor().set_names({"image"});
    std::vector<std::int64_t> everyAxis(inputShape.rank().get_length());
    for (std::size_t axis = 0; axis < everyAxis.size(); ++axis) everyAxis[axis] = static_cast<std::int64_t>(axis);
    auto sum = std::make_shared<v1::ReduceSum>(input, v0::Constant::create(ov::element::i64, {everyAxis.size()}, everyAxis),
                                               false);
    auto zero = std::make_shared<v1::Multiply>(sum, v0::Constant::create(ov::element::f32, {}, {0.0f}));
    ov::ResultVector results;
    for (const auto& output : outputs) {
        std::vector<float> fixed(ov::shape_size(output.shape), 0.0f);
        for (std::size_t i = 0; i < fixed.size() && !values.empty(); ++i) fixed[i] = values[i % values.size()];
        auto constant = v0::Constant::create(ov::element::f32, output.shape, fixed);
        results.push_back(namedResult(std::make_shared<v1::Add>(constant, zero), output.name));
    }
    return std::make_shared<ov::Model>(results, ov::ParameterVector{input});
}

namespace {

// Convolution features of the input at 1/4 of its size with the given
// channel count (inner layers `width` wide), scaled down to a negligible share.
std::shared_ptr<ov::Node> quarterFeatures(const std::shared_ptr<v0::Parameter>& input, std::size_t channels,
                                          std::size_t width) {
    std::shared_ptr<ov::Node> node = convolution(input, 3, width / 2, 2);
    node = convolution(node, width / 2, width, 2);
    node = convolution(node, width, width, 1);
    node = convolution(node, width, channels, 1);
    return std::make_shared<v1::Multiply>(node, v0::Constant::create(ov::element::f32, {}, {1e-6f}));
}

}  // namespace

std::shared_ptr<ov::Model> convolutionalPixelLinkNetwork(std::size_t height, std::size_t width,
                                                         const std::vector<float>& pixels,
                                                         const std::vector<float>& links) {
    auto input = imageInput(4 * height, 4 * width, "image");
    auto features = quarterFeatures(input, 18, 48);
    auto split = std::make_shared<v1::VariadicSplit>(features, v0::Constant::create(ov::element::i64, {}, {1}),
                                                     v0::Constant::create(ov::element::i64, {2}, {2, 16}));
    auto pixelOutput = std::make_shared<v1::Add>(
        v0::Constant::create(ov::element::f32, ov::Shape{1, 2, height, width}, pixels), split->output(0));
    auto linkOutput = std::make_shared<v1::Add>(
        v0::Constant::create(ov::element::f32, ov::Shape{1, 16, height, width}, links), split->output(1));
    return std::make_shared<ov::Model>(
        ov::ResultVector{namedResult(pixelOutput, "pixels"), namedResult(linkOutput, "links")},
        ov::ParameterVector{input});
}

std::shared_ptr<ov::Model> convolutionalRecogniserNetwork(const std::string& sequence) {
    static const std::string alphabet = "0123456789abcdefghijklmnopqrstuvwxyz#";
    const std::size_t steps = sequence.size();
    auto input = imageInput(32, 4 * steps, "image");
    // About 0.2 GMAC, the cost of a compact recogniser of 32-pixel-high crops.
    auto features = quarterFeatures(input, alphabet.size(), 256);  // [1, 37, 8, steps]
    auto axes = v0::Constant::create(ov::element::i64, {1}, {2});
    std::shared_ptr<ov::Node> node = std::make_shared<v1::ReduceMean>(features, axes, false);  // [1, 37, steps]
    node = std::make_shared<v1::Transpose>(node, v0::Constant::create(ov::element::i64, {3}, {2, 0, 1}));
    std::vector<float> values(steps * alphabet.size(), 0.0f);
    for (std::size_t t = 0; t < steps; ++t) values[t * alphabet.size() + alphabet.find(sequence[t])] = 10.0f;
    node = std::make_shared<v1::Add>(v0::Constant::create(ov::element::f32, ov::Shape{steps, 1, alphabet.size()}, values),
                                     node);
    return std::make_shared<ov::Model>(ov::ResultVector{namedResult(node, "logits")}, ov::ParameterVector{input});
}

PixelLinkGrid pixelLinkGrid(std::size_t height, std::size_t width, const std::vector<std::string>& rows) {
    const std::size_t plane = height * width;
    PixelLinkGrid grid;
    grid.pixels.assign(2 * plane, 0.0f);
    grid.links.assign(16 * plane, 0.0f);
    auto positive = [&](long y, long x) {
        return y >= 0 && x >= 0 && static_cast<std::size_t>(y) < height && static_cast<std::size_t>(x) < width &&
               rows[y][x] == '#';
    };
    const int dx[8] = {-1, 0, 1, -1, 1, -1, 0, 1};
    const int dy[8] = {-1, -1, -1, 0, 0, 1, 1, 1};
    for (std::size_t y = 0; y < height; ++y) {
        for (std::size_t x = 0; x < width; ++x) {
            const std::size_t p = y * width + x;
            const bool yes = positive(static_cast<long>(y), static_cast<long>(x));
            grid.pixels[p] = yes ? 0.0f : 10.0f;
            grid.pixels[plane + p] = yes ? 10.0f : 0.0f;
            for (int k = 0; k < 8; ++k) {
                const bool link = yes && positive(static_cast<long>(y) + dy[k], static_cast<long>(x) + dx[k]);
                grid.links[(2 * k) * plane + p] = link ? 0.0f : 10.0f;
                grid.links[(2 * k + 1) * plane + p] = link ? 10.0f : 0.0f;
            }
        }
    }
    return grid;
}

Inference::NetworkData serialisedNetwork(const std::shared_ptr<ov::Model>& model) {
    std::ostringstream xml;
    std::ostringstream bin;
    ov::pass::Manager manager;
    manager.register_pass<ov::pass::Serialize>(xml, bin);
    manager.run_passes(model->clone());
    const std::string weights = bin.str();
    return {xml.str(), std::vector<std::uint8_t>(weights.begin(), weights.end())};
}

void packNetwork(const std::string& folder, int group, const std::string& detailsLine,
                 const std::string& classTable, const std::shared_ptr<ov::Model>& model) {
    auto network = serialisedNetwork(model);
    Resources::ResourceContents contents;
    contents.detailsLine = detailsLine;
    contents.classTable = classTable;
    contents.network = std::move(network.description);
    contents.weights = std::move(network.weights);
    Resources::writeResourceFolder(folder, group, contents);
}

}  // namespace testing_support

namespace testing_support {

namespace {

std::shared_ptr<v0::Parameter> dynamicImageInput(const ov::PartialShape& shape) {
    auto input = std::make_shared<v0::Parameter>(ov::element::f32, shape);
    input->set_friendly_name("image");
    input->output(0).get_tensor().set_names({"image"});
    return input;
}

ov::Dimension bounded(std::int64_t lower, std::int64_t upper) {
    return upper > 0 ? ov::Dimension(lower, upper) : ov::Dimension::dynamic();
}

}  // namespace

void declare(const std::shared_ptr<ov::Model>& model, const std::string& key, const std::string& value) {
    model->set_rt_info(value, "nubex", key);
}

std::shared_ptr<ov::Model> sizeProbeNetwork(std::int64_t lower, std::int64_t upperHeight, std::int64_t upperWidth) {
    auto input = dynamicImageInput({1, 3, bounded(lower, upperHeight), bounded(lower, upperWidth)});
    auto shape = std::make_shared<v3::ShapeOf>(input, ov::element::i64);
    auto sides = std::make_shared<v8::Gather>(shape, v0::Constant::create(ov::element::i64, {2}, {2, 3}),
                                              v0::Constant::create(ov::element::i64, {}, {0}));
    auto asFloat = std::make_shared<v0::Convert>(sides, ov::element::f32);
    auto scaled = std::make_shared<v1::Divide>(asFloat, v0::Constant::create(ov::element::f32, {}, {1000.0f}));
    auto row = std::make_shared<v1::Reshape>(scaled, v0::Constant::create(ov::element::i64, {2}, {1, 2}), false);
    return std::make_shared<ov::Model>(ov::ResultVector{namedResult(row, "scores")}, ov::ParameterVector{input});
}

std::shared_ptr<ov::Model> dynamicPixelLinkNetwork(std::size_t height, std::size_t width,
                                                   const std::vector<float>& pixels, const std::vector<float>& links) {
    auto input = dynamicImageInput({1, 3, -1, -1});
    auto pixelOutput = fixedOutput(input, ov::Shape{1, 2, height, width}, pixels);
    auto linkOutput = fixedOutput(input, ov::Shape{1, 16, height, width}, links);
    return std::make_shared<ov::Model>(
        ov::ResultVector{namedResult(pixelOutput, "pixels"), namedResult(linkOutput, "links")},
        ov::ParameterVector{input});
}

std::shared_ptr<ov::Model> batchedRecogniserNetwork(std::size_t height, const std::vector<std::size_t>& steps,
                                                    std::size_t classes) {
    auto input = dynamicImageInput({-1, 3, static_cast<std::int64_t>(height), -1});
    std::vector<float> values(steps.size() * classes, 0.0f);
    for (std::size_t t = 0; t < steps.size(); ++t) values[t * classes + steps[t]] = 10.0f;
    auto scores = v0::Constant::create(ov::element::f32, {steps.size(), 1, classes}, values);
    // Each region's mean, [1, N, 1], tiny enough to change no decision.
    auto means = std::make_shared<v1::ReduceMean>(input, v0::Constant::create(ov::element::i64, {3}, {1, 2, 3}), false);
    auto perRegion = std::make_shared<v1::Reshape>(
        std::make_shared<v1::Divide>(means, v0::Constant::create(ov::element::f32, {}, {1e6f})),
        v0::Constant::create(ov::element::i64, {3}, {1, -1, 1}), false);
    std::vector<float> firstClass(classes, 0.0f);
    firstClass[0] = 1.0f;
    auto marked = std::make_shared<v1::Multiply>(perRegion, v0::Constant::create(ov::element::f32, {1, 1, classes}, firstClass));
    auto output = std::make_shared<v1::Add>(scores, marked);  // [T, N, classes]
    return std::make_shared<ov::Model>(ov::ResultVector{namedResult(output, "logits")}, ov::ParameterVector{input});
}

}  // namespace testing_support
