#include "detectors/text_lines.h"

#include <algorithm>

#include "base/numeric.h"

namespace Detectors {

using Base::truncateToInt;

namespace {

struct Box {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    int height() const { return bottom - top; }
    int middle() const { return top + (bottom - top) / 2; }
};

Box boxOf(const TextFinding& finding) {
    Box box{finding.corners[0].x, finding.corners[0].y, finding.corners[0].x, finding.corners[0].y};
    for (const auto& corner : finding.corners) {
        box.left = std::min(box.left, corner.x);
        box.right = std::max(box.right, corner.x);
        box.top = std::min(box.top, corner.y);
        box.bottom = std::max(box.bottom, corner.y);
    }
    return box;
}

int scaled(int value, int from, int to) {
    if (from <= 0) return value;
    const int mapped = truncateToInt(static_cast<double>(value) * to / from);
    return std::clamp(mapped, 0, std::max(0, to - 1));
}

struct Word {
    Box box;
    std::string reading;
};

TextFinding lineOfGroup(const std::vector<Word>& group) {
    Box box = group.front().box;
    std::string reading;
    for (const auto& word : group) {
        box.left = std::min(box.left, word.box.left);
        box.right = std::max(box.right, word.box.right);
        box.top = std::min(box.top, word.box.top);
        box.bottom = std::max(box.bottom, word.box.bottom);
        if (!reading.empty()) reading += ' ';
        reading += word.reading;
    }
    TextFinding finding;
    finding.corners = {cv::Point(box.left, box.top), cv::Point(box.right, box.top), cv::Point(box.right, box.bottom),
                       cv::Point(box.left, box.bottom)};
    finding.reading = reading;
    return finding;
}

void cutRow(std::vector<Word>& row, std::vector<TextFinding>& lines) {
    std::stable_sort(row.begin(), row.end(), [](const Word& a, const Word& b) { return a.box.left < b.box.left; });
    std::vector<Word> group;
    for (const auto& word : row) {
        if (!group.empty()) {
            const Box& previous = group.back().box;
            if (word.box.left - previous.right > 0.75 * previous.height()) {
                lines.push_back(lineOfGroup(group));
                group.clear();
            }
        }
        group.push_back(word);
    }
    if (!group.empty()) lines.push_back(lineOfGroup(group));
}

}  // namespace

TextFinding regionFinding(const std::array<cv::Point2f, 4>& corners, cv::Size imageSize, std::string reading) {
    TextFinding finding;
    for (std::size_t i = 0; i < corners.size(); ++i) {
        finding.corners[i].x = std::clamp(truncateToInt(corners[i].x), 0, std::max(0, imageSize.width - 1));
        finding.corners[i].y = std::clamp(truncateToInt(corners[i].y), 0, std::max(0, imageSize.height - 1));
    }
    finding.reading = std::move(reading);
    return finding;
}

std::vector<TextFinding> groupTextLines(const std::vector<TextFinding>& findings, cv::Size workingSize,
                                        cv::Size imageSize) {
    std::vector<Word> words;
    for (TextFinding finding : findings) {
        for (auto& corner : finding.corners) {
            corner.x = scaled(corner.x, workingSize.width, imageSize.width);
            corner.y = scaled(corner.y, workingSize.height, imageSize.height);
        }
        words.push_back({boxOf(finding), std::move(finding.reading)});
    }
    std::stable_sort(words.begin(), words.end(), [](const Word& a, const Word& b) {
        return a.box.top != b.box.top ? a.box.top < b.box.top : a.box.left < b.box.left;
    });
    std::vector<TextFinding> lines;
    std::vector<Word> row;
    for (const auto& word : words) {
        if (!row.empty()) {
            const Box& previous = row.back().box;
            if (word.box.middle() < previous.top || word.box.middle() > previous.bottom) {
                cutRow(row, lines);
                row.clear();
            }
        }
        row.push_back(word);
    }
    if (!row.empty()) cutRow(row, lines);
    return lines;
}

}  // namespace Detectors
