#include "detectors/face_detector.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>

#include "detectors/image_input.h"
#include "detectors/network_input.h"
#include "inference/inference_step.h"
#include "base/numeric.h"
#include "base/exception_text.h"
#include "base/log_stream.h"

namespace Detectors {

using Base::truncateToInt;

namespace {

constexpr std::size_t kRowLength = 7;
constexpr float kScoreThreshold = 50.0f;

// Integer additions of a face box saturate rather than overflow.
std::int32_t add(std::int64_t a, std::int64_t b) { return truncateToInt(static_cast<double>(a + b)); }

}  // namespace

FaceFinding squareFace(std::int32_t label, float score, std::int32_t x, std::int32_t y, std::int32_t width,
                             std::int32_t height) {
    const std::int32_t side = truncateToInt(static_cast<float>(std::max(width, height)) * 1.2f);
    const std::int32_t half = truncateToInt(std::floor(static_cast<float>(side) * 0.5f));
    FaceFinding face;
    face.label = label;
    face.score = score;
    face.left = add(add(x, width / 2), -static_cast<std::int64_t>(half));
    face.top = add(add(y, height / 2), -static_cast<std::int64_t>(half));
    face.right = add(face.left, side);
    face.bottom = add(face.top, side);
    return face;
}

std::int32_t decodeDetectionOutput(const float* rows, std::size_t rowCount, int imageWidth, int imageHeight,
                                   std::vector<FaceFinding>& faces, float& best) {
    const auto width = static_cast<float>(imageWidth);
    const auto height = static_cast<float>(imageHeight);
    std::int32_t count = 0;
    best = 0.0f;
    for (std::size_t i = 0; i < rowCount; ++i) {
        const float* row = rows + i * kRowLength;
        if (row[0] < 0.0f) break;
        const float score = row[2] * 100.0f;
        // An infinite score could not be written into the document.
        if (!(score > kScoreThreshold) || !std::isfinite(score)) continue;
        const std::int32_t x = truncateToInt(row[3] * width);
        const std::int32_t y = truncateToInt(row[4] * height);
        const std::int32_t w = truncateToInt(row[5] * width - static_cast<float>(x));
        const std::int32_t h = truncateToInt(row[6] * height - static_cast<float>(y));
        faces.push_back(squareFace(truncateToInt(row[1]), score, x, y, w, h));
        best = std::max(best, score);
        ++count;
    }
    return count;
}

namespace {

// How the picture fills the network input: stretched over all of it (a
// fixed input, or a dynamic one at the picture's proportions), or, when the
// network declares letterboxing, in the area of a letterbox.
struct FaceInput {
    cv::Mat image;
    std::optional<cv::Rect> letterbox;
    cv::Size inputSize;
};

FaceInput prepareFaceInput(const cv::Mat& image, const Inference::LoadedModel& model) {
    if (model.dynamicSize()) {
        const cv::Size size = dynamicInputSize(image.size(), model);
        return {resizedTo(image, size), std::nullopt, size};
    }
    const auto height = static_cast<int>(model.inputDimension(2));
    const auto width = static_cast<int>(model.inputDimension(3));
    if (height == 0 || width == 0) return {image, std::nullopt, image.size()};
    if (!model.declared.letterbox) return {resizeForNetwork(image, width, height, false), std::nullopt, {width, height}};
    const cv::Size size(width, height);
    return {resizeForNetwork(image, width, height, true), letterboxArea(image.size(), size), size};
}

// Rows whose corners are normalised over a letterboxed input, normalised
// over the picture instead.
std::vector<float> outOfLetterbox(const float* rows, std::size_t rowCount, cv::Rect area, cv::Size input) {
    std::vector<float> mapped(rows, rows + rowCount * kRowLength);
    const auto along = [](float value, int inputLength, int offset, int length) {
        return (value * static_cast<float>(inputLength) - static_cast<float>(offset)) / static_cast<float>(length);
    };
    for (std::size_t i = 0; i < rowCount; ++i) {
        float* row = mapped.data() + i * kRowLength;
        row[3] = along(row[3], input.width, area.x, area.width);
        row[4] = along(row[4], input.height, area.y, area.height);
        row[5] = along(row[5], input.width, area.x, area.width);
        row[6] = along(row[6], input.height, area.y, area.height);
    }
    return mapped;
}

}  // namespace

std::int32_t detectFaces(const cv::Mat& image, float& best, std::vector<FaceFinding>& faces,
                         const Inference::LoadedModel* model) {
    if (model == nullptr) return 0;
    const FaceInput input = prepareFaceInput(image, *model);
    return Inference::infer(
        *model, [&](ov::Tensor& tensor) { fillInput(input.image, tensor, *model); },
        [&](Inference::InferReqWrap& request) {
            if (model->outputCount() != 1) {
                throw std::logic_error("Nubex OpenVino Engine Face detection supports topologies with 1 output only");
            }
            if (model->model->inputs().size() != 1) {
                throw std::logic_error("Face Detection network should have only one input");
            }
            // The output's shape, [1, 1, N, 7], was checked when the network loaded.
            const ov::Tensor& output = request.outputTensors().at(request.outputNames().at(0));
            const ov::Shape shape = output.get_shape();
            const std::size_t rows = std::min<std::size_t>(shape.at(2), output.get_size() / kRowLength);
            if (!input.letterbox) {
                return decodeDetectionOutput(output.data<const float>(), rows, image.cols, image.rows, faces, best);
            }
            const auto mapped = outOfLetterbox(output.data<const float>(), rows, *input.letterbox, input.inputSize);
            return decodeDetectionOutput(mapped.data(), rows, image.cols, image.rows, faces, best);
        });
}

void faceDetectionWorker(const cv::Mat& image, float* scores, std::vector<FaceFinding>& faces, const ScanJob& job,
                         const Inference::LoadedModel* model) {
    Base::runReporting(
        [&] {
            float best = 0.0f;
            detectFaces(image, best, faces, model);
            if (!job.categories.empty()) scores[0] = best;
        },
        [](const std::string& text) { slog::consoleLine("Exception: " + text); });
}

}  // namespace Detectors
