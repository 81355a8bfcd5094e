#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

// The generated classifier pack: "Vision Pro" (resource 100; categories
// 14 Drinks with calibration points and 21 Smoke, reading the green and red
// channel means) and its second stage "Vision Lite" (resource 101).
void writeClassifierPack(const std::string& directory);

// The generated detector packs: faces (8337, category 8337 Face) with fixed
// DetectionOutput rows, and the text set (9112 detector with category 5 Text,
// 9113 presence classifier reading the green channel, 19112 recogniser that
// reads "abb12" from every region).
void writeDetectorPack(const std::string& directory);

// Scans a pixel buffer of the engine's layout (text threshold 50) and
// returns the document.
std::string scanDocument(const std::vector<std::uint8_t>& pixels, int width, int height, const char* categories);

}  // namespace testing_support
