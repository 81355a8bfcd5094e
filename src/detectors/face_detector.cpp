#include "detectors/face_detector.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "detectors/image_input.h"
#include "detectors/model_access.h"
#include "base/numeric.h"
#include "base/log_stream.h"

namespace Detectors {

using Base::truncateToInt;

namespace {

constexpr std::size_t kRowLength = 7;
constexpr float kScoreThreshold = 50.0f;

// Integer additions of a face box saturate rather than overflow.
std::int32_t add(std::int64_t a, std::int64_t b) { return truncateToInt(static_cast<double>(a + b)); }

void checkOutputShape(const ov::Shape& shape) {
    if (shape.empty() || shape.back() != kRowLength) {
        throw std::logic_error("Face Detection network output layer should have 7 as a last dimension");
    }
    if (shape.size() != 4) {
        throw std::logic_error("Face Detection network output dimensions not compatible should be 4, but was " +
                               std::to_string(shape.size()));
    }
}

}  // namespace

Scan::FaceFinding squareFace(std::int32_t label, float score, std::int32_t x, std::int32_t y, std::int32_t width,
                             std::int32_t height) {
    const std::int32_t side = truncateToInt(static_cast<float>(std::max(width, height)) * 1.2f);
    const std::int32_t half = truncateToInt(std::floor(static_cast<float>(side) * 0.5f));
    Scan::FaceFinding face;
    face.label = label;
    face.score = score;
    face.left = add(add(x, width / 2), -static_cast<std::int64_t>(half));
    face.top = add(add(y, height / 2), -static_cast<std::int64_t>(half));
    face.right = add(face.left, side);
    face.bottom = add(face.top, side);
    return face;
}

std::int32_t decodeDetectionOutput(const float* rows, std::size_t rowCount, int imageWidth, int imageHeight,
                                   std::vector<Scan::FaceFinding>& faces, float& best) {
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

std::int32_t detectFaces(const cv::Mat& image, float& best, std::vector<Scan::FaceFinding>& faces,
                         const Scan::ScanJob& job) {
    const auto model = usableModel(job.group);
    if (!model) return 0;
    cv::Mat input = image;
    const auto height = static_cast<int>(model->inputDimension(2));
    const auto width = static_cast<int>(model->inputDimension(3));
    if (height != 0 && width != 0) input = resizeForNetwork(image, width, height, false);

    const auto lease = model->pool->borrow();
    Inference::InferReqWrap& request = **lease;
    ov::Tensor tensor = request.getTensor(model->inputName);
    fillPlanar(input, tensor);
    lease->run();
    if (model->outputCount() != 1) {
        throw std::logic_error("Nubex OpenVino Engine Face detection supports topologies with 1 output only");
    }
    if (model->model->inputs().size() != 1) throw std::logic_error("Face Detection network should have only one input");
    const ov::Tensor& output = request.outputTensors().at(request.outputNames().at(0));
    const ov::Shape shape = output.get_shape();
    checkOutputShape(shape);
    const std::size_t rows = std::min<std::size_t>(shape[2], output.get_size() / kRowLength);
    return decodeDetectionOutput(output.data<const float>(), rows, image.cols, image.rows, faces, best);
}

void faceDetectionWorker(const cv::Mat& image, float* scores, std::vector<Scan::FaceFinding>& faces,
                         const Scan::ScanJob& job) {
    try {
        float best = 0.0f;
        detectFaces(image, best, faces, job);
        if (!job.categories.empty()) scores[0] = best;
    } catch (const std::exception& error) {
        slog::consoleLine(std::string("Exception: ") + error.what());
    }
}

}  // namespace Detectors
