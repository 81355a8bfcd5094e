#include "detectors/text_recogniser.h"

#include <cfloat>
#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <cmath>
#include <stdexcept>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "detectors/image_input.h"
#include "detectors/network_input.h"
#include "detectors/output_values.h"
#include "inference/inference_step.h"
#include "inference/model_loader.h"
#include "resources/recogniser_alphabet.h"

namespace Detectors {

Reading greedyDecode(const float* scores, std::size_t rows, const Resources::RecogniserAlphabet& alphabet) {
    const std::size_t rowLength = alphabet.classCount();
    Reading reading;
    bool afterBlank = false;
    std::string_view last;
    double probabilitySum = 0.0;
    std::size_t added = 0;
    for (std::size_t t = 0; t < rows; ++t) {
        const float* row = scores + t * rowLength;
        std::size_t best = 0;
        for (std::size_t i = 1; i < rowLength; ++i) {
            if (row[i] > row[best]) best = i;
        }
        double sum = 0.0;
        for (std::size_t i = 0; i < rowLength; ++i) sum += std::exp(static_cast<double>(row[i]) - row[best]);
        if (std::fabs(sum) < DBL_EPSILON) throw std::logic_error("sum can't be equal to zero");
        reading.confidence *= 1.0 / sum;
        if (alphabet.isBlank(best)) {
            afterBlank = true;
            continue;
        }
        const std::string_view symbol = alphabet.symbol(best);
        if (reading.text.empty() || afterBlank || last != symbol) {
            reading.text += symbol;
            last = symbol;
            afterBlank = false;
            probabilitySum += 1.0 / sum;
            ++added;
        }
    }
    if (alphabet.isDeclared()) reading.confidence = added == 0 ? 0.0 : probabilitySum / static_cast<double>(added);
    return reading;
}

Reading greedyDecode(const float* scores, std::size_t rows, std::size_t rowLength) {
    if (rowLength != Resources::kAlphabet.size()) {
        throw std::logic_error("The text recognition model does not correspond to alphabet.");
    }
    return greedyDecode(scores, rows, Resources::RecogniserAlphabet());
}

Resources::RecogniserAlphabet alphabetOf(const Inference::LoadedModel& recogniser) {
    return Resources::RecogniserAlphabet::of(recogniser.declared.alphabet);
}

bool isLegible(const Reading& reading, const Resources::RecogniserAlphabet& alphabet) {
    const double minimum = alphabet.isDeclared() ? kMinimumMeanConfidence : kMinimumConfidence;
    return !reading.text.empty() && reading.confidence >= minimum;
}

std::array<cv::Point2f, 4> regionCorners(const cv::RotatedRect& region, cv::Size imageSize) {
    std::array<cv::Point2f, 4> corners;
    if (region.size.width == 0.0f && region.size.height == 0.0f) {
        const auto right = static_cast<float>(imageSize.width - 1);
        const auto bottom = static_cast<float>(imageSize.height - 1);
        corners = {cv::Point2f(0, 0), cv::Point2f(right, 0), cv::Point2f(right, bottom), cv::Point2f(0, bottom)};
    } else {
        region.points(corners.data());
    }
    return corners;
}

int startingCorner(const std::array<cv::Point2f, 4>& corners) {
    int first = 0;
    int second = -1;
    for (int i = 1; i < 4; ++i) {
        if (corners[i].x < corners[first].x) {
            second = first;
            first = i;
        } else if (second < 0 || corners[i].x < corners[second].x) {
            second = i;
        }
    }
    const cv::Point2f& a = corners[first];
    const cv::Point2f& b = corners[second];
    if (a.y != b.y) return a.y < b.y ? first : second;
    return a.x <= b.x ? first : second;
}

cv::Mat cropRegion(const cv::Mat& image, const std::array<cv::Point2f, 4>& corners, cv::Size size) {
    return cropRegionFrom(image, corners, startingCorner(corners), size);
}

cv::Mat cropRegionFrom(const cv::Mat& image, const std::array<cv::Point2f, 4>& corners, int start, cv::Size size) {
    const cv::Point2f source[3] = {corners[start], corners[(start + 1) % 4], corners[(start + 2) % 4]};
    const cv::Point2f target[3] = {cv::Point2f(0, 0), cv::Point2f(static_cast<float>(size.width - 1), 0),
                                   cv::Point2f(static_cast<float>(size.width - 1), static_cast<float>(size.height - 1))};
    cv::Mat crop = cv::Mat::zeros(size, CV_8UC3);
    cv::warpAffine(image, crop, cv::getAffineTransform(source, target), size, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    return crop;
}

namespace {

// How many requests one text worker keeps busy at once.
constexpr std::size_t kRequestsInFlight = 3;
// How many regions go through one request of a network with a dynamic batch.
constexpr std::size_t kRegionsPerBatch = 8;
// Regions read at their own width are at most this many times as wide as
// the network's height, unless the network bounds the width itself.
constexpr int kLongestLine = 50;
// The value that a batch's narrower regions are padded with: mid-grey.
constexpr float kPadValue = 127.5f;
// A region at least this many times as thick as long is read turned by 90 degrees.
constexpr float kTurnedRatio = 1.5f;

// The region cut out at the network's input size, ready to fill its input.
cv::Mat regionInput(const cv::Mat& image, const std::array<cv::Point2f, 4>& corners,
                    const Inference::LoadedModel& recogniser) {
    const cv::Size size(static_cast<int>(recogniser.inputDimension(3)), static_cast<int>(recogniser.inputDimension(2)));
    if (size.width == 0 || size.height == 0) {
        throw std::logic_error("The recognition network input has no height or width.");
    }
    cv::Mat crop = cropRegion(image, corners, size);
    if (recogniser.inputDimension(1) == 1) cv::cvtColor(crop, crop, cv::COLOR_BGR2GRAY);
    return crop;
}

// How a region is read by a network with a dynamic width: from which corner,
// and how wide at the network's height.
struct LineCut {
    int start = 0;
    int width = 0;
};

int widestLine(const Inference::LoadedModel& recogniser) {
    const auto height = static_cast<std::int64_t>(recogniser.inputDimension(2));
    const auto channels = static_cast<std::int64_t>(std::max<std::size_t>(recogniser.inputDimension(1), 1));
    std::int64_t widest = recogniser.inputUpperBound(3) > 0 ? recogniser.inputUpperBound(3) : kLongestLine * height;
    widest = std::min<std::int64_t>(widest, static_cast<std::int64_t>(Inference::kMaxTensorElements) / (channels * height));
    return static_cast<int>(std::max<std::int64_t>(widest, 1));
}

LineCut lineCut(const std::array<cv::Point2f, 4>& corners, const Inference::LoadedModel& recogniser) {
    const int start = startingCorner(corners);
    float length = static_cast<float>(cv::norm(corners[(start + 1) % 4] - corners[start]));
    float thickness = static_cast<float>(cv::norm(corners[(start + 2) % 4] - corners[(start + 1) % 4]));
    LineCut cut{start, 0};
    if (thickness >= kTurnedRatio * length && length > 0.0f) {
        // Read top to bottom: the next corner becomes the top left.
        cut.start = (start + 1) % 4;
        std::swap(length, thickness);
    }
    const auto height = static_cast<double>(recogniser.inputDimension(2));
    double width = thickness < 1.0f ? height : std::round(height * length / thickness);
    if (!std::isfinite(width)) width = height;
    cut.width = static_cast<int>(std::clamp(width, 1.0, static_cast<double>(widestLine(recogniser))));
    return cut;
}

cv::Mat lineInput(const cv::Mat& image, const std::array<cv::Point2f, 4>& corners, const LineCut& cut,
                  const Inference::LoadedModel& recogniser) {
    const cv::Size size(cut.width, static_cast<int>(recogniser.inputDimension(2)));
    cv::Mat crop = cropRegionFrom(image, corners, cut.start, size);
    if (recogniser.inputDimension(1) == 1) cv::cvtColor(crop, crop, cv::COLOR_BGR2GRAY);
    return crop;
}

// The regions that go through one request, in the order of its batch.
using Batch = std::vector<std::size_t>;

// One region per request in order; with a dynamic batch, regions of similar
// widths together, as many as fit the element limit.
std::vector<Batch> planBatches(const std::vector<LineCut>& cuts, const Inference::LoadedModel& recogniser) {
    std::vector<std::size_t> order(cuts.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::vector<Batch> batches;
    if (!recogniser.dynamicSize() || !recogniser.dynamicBatch()) {
        for (const auto i : order) batches.push_back({i});
        return batches;
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return cuts[a].width < cuts[b].width; });
    const auto perRegion = static_cast<std::uint64_t>(recogniser.inputDimension(1) * recogniser.inputDimension(2));
    for (const auto i : order) {
        const std::uint64_t elements = perRegion * static_cast<std::uint64_t>(cuts[i].width + recogniser.declared.stride);
        const bool fits = !batches.empty() && batches.back().size() < kRegionsPerBatch &&
                          elements * (batches.back().size() + 1) <= Inference::kMaxTensorElements;
        if (!fits) batches.emplace_back();
        batches.back().push_back(i);
    }
    return batches;
}

int batchWidth(const Batch& batch, const std::vector<LineCut>& cuts, const Inference::LoadedModel& recogniser) {
    int widest = 1;
    for (const auto i : batch) widest = std::max(widest, cuts[i].width);
    const int stride = recogniser.declared.stride;
    const int rounded = (widest + stride - 1) / stride * stride;
    return std::max(widest, std::min(rounded, widestLine(recogniser)));
}

// The readings of a batch from the output [T, N, C]: region n of the batch
// reads row (t, n) of every step t.
std::vector<Reading> decodeOutput(Inference::InferReqWrap& request, std::size_t regions,
                                  const Resources::RecogniserAlphabet& alphabet) {
    const ov::Tensor& output = request.outputTensors().at(request.outputNames().at(0));
    const ov::Shape shape = output.get_shape();
    if (shape.size() < 3 || shape[2] != alphabet.classCount()) {
        throw std::logic_error("The text recognition model does not correspond to alphabet.");
    }
    if (shape[1] == 0) throw std::logic_error("The text recognition network gives no sequence: its output is " + shape.to_string());
    if (shape[1] < regions || output.get_size() < shape[0] * shape[1] * shape[2]) {
        throw std::logic_error("The text recognition network reads " + std::to_string(regions) +
                               " regions at once, but its output is " + shape.to_string());
    }
    const float* values = output.get_element_type() == ov::element::f32 ? output.data<const float>() : nullptr;
    std::vector<Reading> readings;
    std::vector<float> scores(shape[0] * shape[2]);
    for (std::size_t n = 0; n < regions; ++n) {
        for (std::size_t t = 0; t < shape[0]; ++t) {
            const std::size_t row = (t * shape[1] + n) * shape[2];
            for (std::size_t i = 0; i < shape[2]; ++i) {
                scores[t * shape[2] + i] = values != nullptr ? values[row + i] : tensorValue(output, row + i);
            }
        }
        readings.push_back(greedyDecode(scores.data(), shape[0], alphabet));
    }
    return readings;
}

}  // namespace

void readRegions(const cv::Mat& image, const std::vector<std::array<cv::Point2f, 4>>& regions,
                 const Inference::LoadedModel& recogniser, std::vector<Reading>& readings) {
    const auto alphabet = alphabetOf(recogniser);
    readings.assign(regions.size(), Reading{{}, 0.0});
    std::vector<LineCut> cuts;
    if (recogniser.dynamicSize() && recogniser.inputDimension(2) == 0) {
        throw std::logic_error("The recognition network input has no height or width.");
    }
    if (recogniser.dynamicSize()) {
        for (const auto& corners : regions) cuts.push_back(lineCut(corners, recogniser));
    } else {
        cuts.resize(regions.size());
    }
    const std::vector<Batch> batches = planBatches(cuts, recogniser);

    struct Flight {
        std::unique_ptr<Inference::RequestLease> lease;
        const Batch* batch;
    };
    std::deque<Flight> inFlight;
    auto finishOldest = [&] {
        Flight flight = std::move(inFlight.front());
        inFlight.pop_front();
        flight.lease->wait();
        const auto read = decodeOutput(**flight.lease, flight.batch->size(), alphabet);
        for (std::size_t k = 0; k < read.size(); ++k) readings[(*flight.batch)[k]] = read[k];
    };
    for (const auto& batch : batches) {
        std::function<void(ov::Tensor&)> fill;
        if (!recogniser.dynamicSize()) {
            fill = [input = regionInput(image, regions[batch.front()], recogniser)](ov::Tensor& tensor) {
                fillPlanar(input, tensor);
            };
        } else {
            std::vector<cv::Mat> lines;
            for (const auto i : batch) lines.push_back(lineInput(image, regions[i], cuts[i], recogniser));
            fill = [lines = std::move(lines), width = batchWidth(batch, cuts, recogniser)](ov::Tensor& tensor) {
                fillBatch(lines, width, kPadValue, tensor);
            };
        }
        // Wait for a request only while holding none: two workers each
        // holding some requests must never wait for the other's.
        std::unique_ptr<Inference::RequestLease> lease;
        while (!(lease = inFlight.size() < kRequestsInFlight ? Inference::tryBorrowFilled(recogniser, fill) : nullptr)) {
            if (inFlight.empty()) {
                lease = Inference::borrowFilled(recogniser, fill);
                break;
            }
            finishOldest();
        }
        lease->start();
        inFlight.push_back({std::move(lease), &batch});
    }
    while (!inFlight.empty()) finishOldest();
}

}  // namespace Detectors
