#include <cmath>
#include <queue>
#include <random>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "detectors/face_detector.h"
#include "detectors/pixel_link_decoder.h"
#include "detectors/text_detector.h"
#include "detectors/text_lines.h"
#include "detectors/text_recogniser.h"
#include "resources/recogniser_alphabet.h"
#include "support/test_networks.h"

using namespace Detectors;
using Resources::kAlphabet;

namespace {

// A finding as the document writes it: "x1,y1,...,x4,y4,reading".
std::string lineText(const TextFinding& finding) {
    std::string line;
    for (const auto& corner : finding.corners) line += std::to_string(corner.x) + ',' + std::to_string(corner.y) + ',';
    return line + finding.reading;
}

TextFinding box(int left, int top, int right, int bottom, const char* reading) {
    return {{cv::Point(left, top), cv::Point(right, top), cv::Point(right, bottom), cv::Point(left, bottom)}, reading};
}

}  // namespace

TEST(FaceDecoding, ThresholdStopRowAndSquaring) {
    const FaceFinding square = squareFace(3, 60.0f, 100, 100, 10, 20);
    EXPECT_EQ(square.left, 93);
    EXPECT_EQ(square.top, 98);
    EXPECT_EQ(square.right, 117);
    EXPECT_EQ(square.bottom, 122);

    const float rows[] = {
        0, 1, 0.9f,    0.1f,   0.2f,  0.3f,  0.5f,   // kept
        0, 2, 0.5f,    0.1f,   0.1f,  0.2f,  0.2f,   // exactly 50: dropped
        0, 1, 0.5001f, -0.05f, -0.1f, 0.15f, 0.2f,   // kept, off the edge
        -1, 1, 0.99f,  0.1f,   0.1f,  0.2f,  0.2f,   // the list ends here
        0, 1, 0.99f,   0.1f,   0.1f,  0.2f,  0.2f,
    };
    std::vector<FaceFinding> faces;
    float best = -1.0f;
    EXPECT_EQ(decodeDetectionOutput(rows, 5, 100, 80, faces, best), 2);
    ASSERT_EQ(faces.size(), 2u);
    EXPECT_FLOAT_EQ(best, 90.0f);
    EXPECT_EQ(faces[0].label, 1);
    EXPECT_EQ(faces[0].left, 6);  // x 10, y 16, w 20, h 24: side 28
    EXPECT_EQ(faces[0].top, 14);
    EXPECT_EQ(faces[0].right, 34);
    EXPECT_EQ(faces[0].bottom, 42);
    EXPECT_EQ(faces[1].left, -9);  // x -5, y -8, w 20, h 24: not clamped
    EXPECT_EQ(faces[1].top, -10);

    faces.clear();
    const float first[] = {-1, 1, 0.9f, 0.1f, 0.2f, 0.3f, 0.5f};
    EXPECT_EQ(decodeDetectionOutput(first, 1, 100, 80, faces, best), 0);
    EXPECT_FLOAT_EQ(best, 0.0f);
    // Hostile values convert without undefined behaviour.
    const float hostile[] = {0, NAN, 1e30f, -1e30f, NAN, INFINITY, 3e9f, 0, 1, INFINITY, 0, 0, 1, 1};
    EXPECT_EQ(decodeDetectionOutput(hostile, 2, 100, 80, faces, best), 1);  // the infinite score is dropped
}

TEST(TextDetection, WorkingImageSizes) {
    EXPECT_EQ(workingImageSize(320, 100), cv::Size(640, 200));
    EXPECT_EQ(workingImageSize(321, 100), cv::Size(600, 186));
    EXPECT_EQ(workingImageSize(600, 101), cv::Size(600, 101));
    EXPECT_EQ(workingImageSize(601, 100), cv::Size(601, 100));
    EXPECT_EQ(workingImageSize(1280, 77), cv::Size(1280, 77));
    EXPECT_EQ(workingImageSize(1281, 100), cv::Size(1280, 99));
}

namespace {

// The straightforward labelling: flood fill over links in either direction,
// components numbered in row-major order of their first pixel.
cv::Mat floodFillLabels(const PixelLinkScores& scores) {
    const int w = scores.width, h = scores.height;
    const std::size_t plane = static_cast<std::size_t>(w) * h;
    auto soft = [](float a, float b) { return std::exp(b) / (std::exp(a) + std::exp(b)); };
    auto positive = [&](int p) { return soft(scores.pixels[p], scores.pixels[plane + p]) >= 0.8f; };
    auto linked = [&](int p, int k) {
        return soft(scores.links[2 * k * plane + p], scores.links[(2 * k + 1) * plane + p]) >= 0.8f;
    };
    const int dx[8] = {-1, 0, 1, -1, 1, -1, 0, 1}, dy[8] = {-1, -1, -1, 0, 0, 1, 1, 1};
    cv::Mat labels = cv::Mat::zeros(h, w, CV_32S);
    int next = 0;
    for (int start = 0; start < static_cast<int>(plane); ++start) {
        if (!positive(start) || labels.at<int>(start / w, start % w) != 0) continue;
        labels.at<int>(start / w, start % w) = ++next;
        std::queue<int> open;
        open.push(start);
        while (!open.empty()) {
            const int p = open.front();
            open.pop();
            for (int k = 0; k < 8; ++k) {
                const int x = p % w + dx[k], y = p / w + dy[k];
                if (x < 0 || y < 0 || x >= w || y >= h) continue;
                const int q = y * w + x;
                if (!positive(q) || labels.at<int>(y, x) != 0) continue;
                if (!linked(p, k) && !linked(q, 7 - k)) continue;  // 7 - k is the way back
                labels.at<int>(y, x) = next;
                open.push(q);
            }
        }
    }
    return labels;
}

// Per component over the whole image: the reference for the region step.
std::vector<cv::RotatedRect> wholeImageRegions(const cv::Mat& grid, cv::Size working) {
    double maximum = 0;
    cv::minMaxLoc(grid, nullptr, &maximum);
    cv::Mat labels;
    cv::resize(grid, labels, working, 0, 0, cv::INTER_NEAREST);
    std::vector<cv::RotatedRect> regions;
    for (int l = 1; l <= static_cast<int>(maximum); ++l) {
        cv::Mat mask = labels == l;
        std::vector<std::vector<cv::Point>> contours;
        cv::findContours(mask, contours, cv::RETR_CCOMP, cv::CHAIN_APPROX_SIMPLE);
        if (contours.empty()) continue;
        const cv::RotatedRect r = cv::minAreaRect(contours[0]);
        if (std::min(r.size.width, r.size.height) < 10.0f || r.size.width * r.size.height < 300.0f) continue;
        regions.push_back(r);
    }
    return regions;
}

}  // namespace

TEST(PixelLink, LabellingEqualsFloodFillOnRandomGrids) {
    std::mt19937 random(7);
    for (int trial = 0; trial < 60; ++trial) {
        const int h = 1 + static_cast<int>(random() % 30), w = 1 + static_cast<int>(random() % 30);
        const std::size_t plane = static_cast<std::size_t>(w) * h;
        std::vector<float> pixels(2 * plane), links(16 * plane);
        std::uniform_real_distribution<float> value(-3.0f, 3.0f);
        for (auto& v : pixels) v = value(random);
        for (auto& v : links) v = value(random);
        const PixelLinkScores scores{pixels.data(), links.data(), h, w};
        const cv::Mat fast = labelTextComponents(scores);
        const cv::Mat reference = floodFillLabels(scores);
        ASSERT_EQ(cv::countNonZero(fast != reference), 0) << "trial " << trial;

        const cv::Size working(w * 7, h * 5);
        const auto regions = decodePixelLink(scores, working);
        const auto expected = wholeImageRegions(reference, working);
        ASSERT_EQ(regions.size(), expected.size()) << "trial " << trial;
        for (std::size_t i = 0; i < regions.size(); ++i) {
            EXPECT_EQ(regions[i].center, expected[i].center);
            EXPECT_EQ(regions[i].size, expected[i].size);
            EXPECT_EQ(regions[i].angle, expected[i].angle);
        }
    }
}

TEST(PixelLink, OneWayLinksThresholdsAndFilters) {
    // Two positive pixels joined only by the link from the right one to the left.
    std::vector<float> pixels = {0, 0, 10, 10}, links(16 * 2, 10.0f);
    for (int k = 0; k < 8; ++k) links[(2 * k + 1) * 2 + 0] = links[(2 * k + 1) * 2 + 1] = 0.0f;  // no link: (10, 0)
    links[(2 * 3) * 2 + 1] = 0.0f;  // pixel 1, neighbour 3 (left): (0, 10)
    links[(2 * 3 + 1) * 2 + 1] = 10.0f;
    const cv::Mat joined = labelTextComponents({pixels.data(), links.data(), 1, 2});
    EXPECT_EQ(joined.at<int>(0, 0), 1);
    EXPECT_EQ(joined.at<int>(0, 1), 1);

    // A score of exactly 0.8 is positive: ln 4 makes softmax (0, ln 4) = 0.8.
    const float ln4 = std::log(4.0f);
    std::vector<float> edge = {0, ln4}, noLinks(16, 10.0f);
    for (int k = 0; k < 8; ++k) noLinks[2 * k + 1] = 0.0f;
    EXPECT_EQ(labelTextComponents({edge.data(), noLinks.data(), 1, 1}).at<int>(0, 0), 1);

    // On a 10x working scale: 4x3 cells give 39x29 (kept); 1 cell high gives 9 (dropped);
    // a 3x1 block gives 29x9 (dropped); 3x3 cells give 29x29 (kept).
    const auto grid = testing_support::pixelLinkGrid(6, 12, {"####.#......",
                                                            "####........",
                                                            "####..###...",
                                                            "......###...",
                                                            "......###..#",
                                                            "###........#"});
    const auto regions = decodePixelLink({grid.pixels.data(), grid.links.data(), 6, 12}, cv::Size(120, 60));
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_EQ(regions[0].size.area(), 39.0f * 29.0f);
    EXPECT_EQ(regions[1].size.area(), 29.0f * 29.0f);

    const float boxes[] = {10, 10, 40, 25, 0.9f, 0, 0, 8, 8, 0.5f, 5, 5, 60, 60, 0.0f, 1, 1, 90, 90, 0.9f};
    const auto decoded = decodeBoxes(boxes, 4, cv::Size(100, 50), cv::Size(200, 100));
    ASSERT_EQ(decoded.size(), 1u);  // the 16x16 box is too small; the zero confidence ends the list
    EXPECT_EQ(decoded[0].center, cv::Point2f(50, 35));
    EXPECT_EQ(decoded[0].size, cv::Size2f(60, 30));
}

TEST(TextRecognition, GreedyDecodingAndConfidence) {
    auto row = [](std::vector<float>& scores, char symbol) {
        std::vector<float> r(kAlphabet.size(), 0.0f);
        r[kAlphabet.find(symbol)] = 10.0f;
        scores.insert(scores.end(), r.begin(), r.end());
    };
    std::vector<float> scores;
    for (char c : std::string("aa#abb")) row(scores, c);
    const Reading reading = greedyDecode(scores.data(), 6, kAlphabet.size());
    EXPECT_EQ(reading.text, "aab");
    const double p = std::exp(10.0) / (std::exp(10.0) + 36.0);
    EXPECT_NEAR(reading.confidence, std::pow(p, 6), 1e-12);

    std::vector<float> tie(kAlphabet.size(), 0.0f);
    tie[3] = tie[7] = 5.0f;
    EXPECT_EQ(greedyDecode(tie.data(), 1, kAlphabet.size()).text, "3");
    // Uniform rows: confidence (1/37)^T falls below the 0.2 floor.
    std::vector<float> flat(2 * kAlphabet.size(), 1.0f);
    EXPECT_LT(greedyDecode(flat.data(), 2, kAlphabet.size()).confidence, kMinimumConfidence);
    std::vector<float> infinite(kAlphabet.size(), -INFINITY);
    infinite[0] = INFINITY;
    EXPECT_NO_THROW(greedyDecode(infinite.data(), 1, kAlphabet.size()));

    const std::array<cv::Point2f, 4> corners = {cv::Point2f(10.7f, 5.2f), cv::Point2f(40.1f, 5.0f),
                                                cv::Point2f(40.3f, 20.9f), cv::Point2f(10.2f, 21.4f)};
    EXPECT_EQ(lineText(regionFinding(corners, cv::Size(100, 100), "ab12")), "10,5,40,5,40,20,10,21,ab12");
    EXPECT_EQ(lineText(regionFinding(corners, cv::Size(20, 10), "x")), "10,5,19,5,19,9,10,9,x");
    EXPECT_EQ(startingCorner(corners), 0);  // x 10.2 and 10.7: the smaller y wins
    EXPECT_EQ(startingCorner({cv::Point2f(5, 9), cv::Point2f(9, 1), cv::Point2f(5, 1), cv::Point2f(1, 9)}), 3);
}

TEST(TextLines, WordsOfOneLineComeOutTogetherLeftToRight) {
    const std::vector<TextFinding> findings = {
        box(190, 10, 260, 30, "world"),  // gap 5 <= 0.75 * 9 in image pixels: joins "hello"
        box(120, 12, 180, 31, "hello"),
        box(10, 100, 60, 120, "second"),
        box(400, 11, 450, 29, "far"),    // gap 140 > 15: a group of its own
    };
    std::vector<std::string> lines;
    for (const auto& line : groupTextLines(findings, cv::Size(500, 200), cv::Size(250, 100))) lines.push_back(lineText(line));
    EXPECT_EQ(lines, (std::vector<std::string>{"60,5,130,5,130,15,60,15,hello world", "200,5,225,5,225,14,200,14,far",
                                        "5,50,30,50,30,60,5,60,second"}));
}
