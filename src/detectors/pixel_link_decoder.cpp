#include "detectors/pixel_link_decoder.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>

#include <opencv2/imgproc.hpp>

namespace Detectors {

namespace {

constexpr float kPositiveScore = 0.8f;
constexpr float kMinimumSide = 10.0f;
constexpr float kMinimumArea = 300.0f;
constexpr int kNeighbours = 8;
// Neighbour k, row by row around the pixel.
constexpr int kNeighbourDx[kNeighbours] = {-1, 0, 1, -1, 1, -1, 0, 1};
constexpr int kNeighbourDy[kNeighbours] = {-1, -1, -1, 0, 0, 1, 1, 1};

// The softmax score of the second value of a pair.
float positiveScore(float a, float b) {
    const float m = std::max(a, b);
    const float ea = std::exp(a - m);
    const float eb = std::exp(b - m);
    return eb / (ea + eb);
}

int findRoot(std::vector<int>& parent, int node) {
    int root = node;
    while (parent[root] != root) root = parent[root];
    while (parent[node] != root) {  // path compression
        const int next = parent[node];
        parent[node] = root;
        node = next;
    }
    return root;
}

// Per-label bounding boxes of a label image, found in one pass.
std::vector<cv::Rect> labelBounds(const cv::Mat& labels, int labelCount) {
    std::vector<int> left(labelCount + 1, labels.cols), top(labelCount + 1, labels.rows), right(labelCount + 1, -1),
        bottom(labelCount + 1, -1);
    for (int y = 0; y < labels.rows; ++y) {
        const auto* row = labels.ptr<std::int32_t>(y);
        for (int x = 0; x < labels.cols; ++x) {
            const int l = row[x];
            if (l <= 0) continue;
            left[l] = std::min(left[l], x);
            right[l] = std::max(right[l], x);
            top[l] = std::min(top[l], y);
            bottom[l] = std::max(bottom[l], y);
        }
    }
    std::vector<cv::Rect> bounds(labelCount + 1);
    for (int l = 1; l <= labelCount; ++l) {
        if (right[l] < 0) continue;
        bounds[l] = cv::Rect(left[l], top[l], right[l] - left[l] + 1, bottom[l] - top[l] + 1);
    }
    return bounds;
}

bool keepRegion(const cv::RotatedRect& region) {
    if (std::min(region.size.width, region.size.height) < kMinimumSide) return false;
    return region.size.width * region.size.height >= kMinimumArea;
}

}  // namespace

cv::Mat labelTextComponents(const PixelLinkScores& scores) {
    const int width = scores.width;
    const int height = scores.height;
    const std::size_t plane = static_cast<std::size_t>(width) * height;
    cv::Mat labels = cv::Mat::zeros(height, width, CV_32SC1);
    if (plane == 0) return labels;

    std::vector<int> parent(plane, -1);  // -1: not a positive pixel
    std::vector<int> positives;
    for (std::size_t p = 0; p < plane; ++p) {
        if (positiveScore(scores.pixels[p], scores.pixels[plane + p]) >= kPositiveScore) {
            parent[p] = static_cast<int>(p);
            positives.push_back(static_cast<int>(p));
        }
    }
    for (const int p : positives) {
        const int x = p % width;
        const int y = p / width;
        for (int k = 0; k < kNeighbours; ++k) {
            const int nx = x + kNeighbourDx[k];
            const int ny = y + kNeighbourDy[k];
            if (nx < 0 || nx >= width || ny < 0 || ny >= height) continue;
            const int q = ny * width + nx;
            if (parent[q] < 0) continue;
            const float* link = scores.links + static_cast<std::size_t>(2 * k) * plane;
            if (positiveScore(link[p], link[plane + p]) < kPositiveScore) continue;
            const int rootP = findRoot(parent, p);
            const int rootQ = findRoot(parent, q);
            if (rootP != rootQ) parent[rootP] = rootQ;
        }
    }
    std::vector<int> labelOfRoot(plane, 0);
    int next = 0;
    auto* out = labels.ptr<std::int32_t>();
    for (const int p : positives) {
        int& label = labelOfRoot[findRoot(parent, p)];
        if (label == 0) label = ++next;
        out[p] = label;
    }
    return labels;
}

std::vector<cv::RotatedRect> decodePixelLink(const PixelLinkScores& scores, cv::Size workingSize) {
    const cv::Mat grid = labelTextComponents(scores);
    double maximum = 0.0;
    if (!grid.empty()) cv::minMaxLoc(grid, nullptr, &maximum);
    const int labelCount = static_cast<int>(maximum);
    if (labelCount < 1) return {};
    cv::Mat labels;
    cv::resize(grid, labels, workingSize, 0, 0, cv::INTER_NEAREST);

    // Each component is traced inside its own bounding box (grown by one pixel
    // so the box edge is background as it is in the whole image): the same
    // contours as on the whole image, without a pass over it per component.
    const std::vector<cv::Rect> bounds = labelBounds(labels, labelCount);
    const cv::Rect whole(0, 0, labels.cols, labels.rows);
    std::vector<cv::RotatedRect> regions;
    cv::Mat mask;
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    for (int l = 1; l <= labelCount; ++l) {
        if (bounds[l].empty()) continue;
        const cv::Rect box = (bounds[l] + cv::Size(2, 2) - cv::Point(1, 1)) & whole;
        cv::compare(labels(box), cv::Scalar(l), mask, cv::CMP_EQ);
        cv::findContours(mask, contours, hierarchy, cv::RETR_CCOMP, cv::CHAIN_APPROX_SIMPLE, box.tl());
        if (contours.empty()) continue;
        const cv::RotatedRect region = cv::minAreaRect(contours[0]);
        if (keepRegion(region)) regions.push_back(region);
    }
    return regions;
}

std::vector<cv::RotatedRect> decodeBoxes(const float* rows, std::size_t rowCount, cv::Size networkSize,
                                         cv::Size workingSize) {
    const float sx = static_cast<float>(workingSize.width) / static_cast<float>(networkSize.width);
    const float sy = static_cast<float>(workingSize.height) / static_cast<float>(networkSize.height);
    std::vector<cv::RotatedRect> regions;
    for (std::size_t i = 0; i < rowCount; ++i) {
        const float* row = rows + i * 5;
        if (!(row[4] >= FLT_EPSILON)) break;
        const cv::Point2f centre((row[0] + row[2]) * 0.5f * sx, (row[1] + row[3]) * 0.5f * sy);
        const cv::Size2f size((row[2] - row[0]) * sx, (row[3] - row[1]) * sy);
        if (size.width * size.height >= kMinimumArea) regions.emplace_back(centre, size, 0.0f);
    }
    return regions;
}

}  // namespace Detectors
