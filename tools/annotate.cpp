#include "tools/annotate.h"

#include <cstdio>
#include <vector>

#include <opencv2/imgproc.hpp>
#include <rapidjson/document.h>

namespace Tools {

namespace {

const cv::Scalar kFaceColour(0, 200, 0);
const cv::Scalar kTextColour(0, 0, 230);

void drawLabel(cv::Mat& canvas, const std::string& label, cv::Point at, const cv::Scalar& colour) {
    int baseline = 0;
    const double scale = std::max(0.4, canvas.cols / 1600.0);
    const cv::Size size = cv::getTextSize(label, cv::FONT_HERSHEY_SIMPLEX, scale, 1, &baseline);
    at.y = std::max(at.y, size.height + 2);
    cv::rectangle(canvas, at + cv::Point(0, baseline), at + cv::Point(size.width, -size.height - 2), colour, cv::FILLED);
    cv::putText(canvas, label, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(255, 255, 255), 1, cv::LINE_AA);
}

void drawFaces(cv::Mat& canvas, const rapidjson::Value& faces) {
    for (const auto& face : faces.GetArray()) {
        if (!face.HasMember("location") || !face["location"].HasMember("vertices")) continue;
        const auto& vertices = face["location"]["vertices"];
        if (!vertices.IsArray() || vertices.Size() != 4) continue;
        const cv::Point topLeft(vertices[0]["x"].GetInt(), vertices[0]["y"].GetInt());
        const cv::Point bottomRight(vertices[3]["x"].GetInt(), vertices[3]["y"].GetInt());
        cv::rectangle(canvas, topLeft, bottomRight, kFaceColour, 2);
        char label[32];
        std::snprintf(label, sizeof(label), "face %.1f", face["score"].GetDouble());
        drawLabel(canvas, label, topLeft - cv::Point(0, 4), kFaceColour);
    }
}

void drawTexts(cv::Mat& canvas, const rapidjson::Value& texts) {
    for (const auto& text : texts.GetArray()) {
        if (!text.IsString()) continue;
        const std::string line = text.GetString();
        std::vector<cv::Point> corners;
        std::size_t position = 0;
        for (int i = 0; i < 4; ++i) {
            int x = 0, y = 0;
            if (std::sscanf(line.c_str() + position, "%d,%d,", &x, &y) != 2) break;
            corners.emplace_back(x, y);
            for (int commas = 0; commas < 2 && position < line.size(); ++position) commas += line[position] == ',';
        }
        if (corners.size() != 4) continue;
        cv::polylines(canvas, corners, true, kTextColour, 2);
        drawLabel(canvas, line.substr(position), corners[0] - cv::Point(0, 4), kTextColour);
    }
}

}  // namespace

cv::Mat annotate(const cv::Mat& image, const std::string& document) {
    cv::Mat canvas = image.clone();
    rapidjson::Document parsed;
    if (parsed.Parse(document.c_str()).HasParseError() || !parsed.IsObject()) return canvas;
    if (parsed.HasMember("face_details") && parsed["face_details"].IsArray()) drawFaces(canvas, parsed["face_details"]);
    if (parsed.HasMember("text_details") && parsed["text_details"].IsArray()) drawTexts(canvas, parsed["text_details"]);
    return canvas;
}

}  // namespace Tools
