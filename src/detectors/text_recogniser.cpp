#include "detectors/text_recogniser.h"

#include <cfloat>
#include <deque>
#include <memory>
#include <cmath>
#include <stdexcept>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "detectors/image_input.h"
#include "detectors/output_values.h"
#include "inference/inference_step.h"
#include "resources/recogniser_alphabet.h"

namespace Detectors {

Reading greedyDecode(const float* scores, std::size_t rows, std::size_t rowLength) {
    Reading reading;
    bool afterBlank = false;
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
        const char symbol = best < Resources::kAlphabet.size() ? Resources::kAlphabet[best] : Resources::kBlankSymbol;
        if (symbol == Resources::kBlankSymbol) {
            afterBlank = true;
        } else if (reading.text.empty() || afterBlank || reading.text.back() != symbol) {
            reading.text.push_back(symbol);
            afterBlank = false;
        }
    }
    return reading;
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
    const int start = startingCorner(corners);
    const cv::Point2f source[3] = {corners[start], corners[(start + 1) % 4], corners[(start + 2) % 4]};
    const cv::Point2f target[3] = {cv::Point2f(0, 0), cv::Point2f(static_cast<float>(size.width - 1), 0),
                                   cv::Point2f(static_cast<float>(size.width - 1), static_cast<float>(size.height - 1))};
    cv::Mat crop = cv::Mat::zeros(size, CV_8UC3);
    cv::warpAffine(image, crop, cv::getAffineTransform(source, target), size, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    return crop;
}

namespace {

// How many regions are read at once by one text worker.
constexpr std::size_t kRegionsInFlight = 3;

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

Reading decodeOutput(Inference::InferReqWrap& request) {
    const ov::Tensor& output = request.outputTensors().at(request.outputNames().at(0));
    const ov::Shape shape = output.get_shape();
    if (shape.size() < 3 || shape[2] != Resources::kAlphabet.size()) {
        throw std::logic_error("The text recognition model does not correspond to alphabet.");
    }
    if (shape[1] == 0) throw std::logic_error("The text recognition network gives no sequence: its output is " + shape.to_string());
    // Row t of the first sequence of the batch.
    std::vector<float> scores(shape[0] * shape[2]);
    const float* values = output.get_element_type() == ov::element::f32 ? output.data<const float>() : nullptr;
    for (std::size_t t = 0; t < shape[0]; ++t) {
        const std::size_t row = t * shape[1] * shape[2];
        for (std::size_t i = 0; i < shape[2]; ++i) {
            scores[t * shape[2] + i] = values != nullptr ? values[row + i] : tensorValue(output, row + i);
        }
    }
    return greedyDecode(scores.data(), shape[0], shape[2]);
}

}  // namespace

void readRegions(const cv::Mat& image, const std::vector<std::array<cv::Point2f, 4>>& regions,
                 const Inference::LoadedModel& recogniser, std::vector<Reading>& done) {
    std::deque<std::unique_ptr<Inference::RequestLease>> inFlight;
    auto finishOldest = [&] {
        const auto lease = std::move(inFlight.front());
        inFlight.pop_front();
        lease->wait();
        done.push_back(decodeOutput(**lease));
    };
    for (const auto& corners : regions) {
        const cv::Mat input = regionInput(image, corners, recogniser);
        const auto fill = [&input](ov::Tensor& tensor) { fillPlanar(input, tensor); };
        // Wait for a request only while holding none: two workers each
        // holding some requests must never wait for the other's.
        std::unique_ptr<Inference::RequestLease> lease;
        while (!(lease = inFlight.size() < kRegionsInFlight ? Inference::tryBorrowFilled(recogniser, fill) : nullptr)) {
            if (inFlight.empty()) {
                lease = Inference::borrowFilled(recogniser, fill);
                break;
            }
            finishOldest();
        }
        lease->start();
        inFlight.push_back(std::move(lease));
    }
    while (!inFlight.empty()) finishOldest();
}

}  // namespace Detectors
