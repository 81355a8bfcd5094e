#pragma once

#include <string>

namespace testing_support {

// The generated classifier pack: "Vision Pro" (resource 100; categories
// 14 Drinks with calibration points and 21 Smoke, reading the green and red
// channel means) and its second stage "Vision Lite" (resource 101).
void writeClassifierPack(const std::string& directory);

}  // namespace testing_support
