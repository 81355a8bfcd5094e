#include "support/test_pack.h"

#include "nubex_engine.h"
#include "support/test_networks.h"

namespace testing_support {

void writeClassifierPack(const std::string& directory) {
    packNetwork(directory + "/vision-pro", 0, "100, Vision Pro, 1.0", "0,Background\n14,Drinks,50=30,80=60\n21,Smoke",
                channelMeansNetwork(16, 16, 255.0f));
    packNetwork(directory + "/vision-lite", 1, "101, Vision Lite, 1.0", "0,Background\n14,Drinks\n21,Smoke",
                channelMeansNetwork(24, 24, 510.0f));
}

void writeDetectorPack(const std::string& directory) {
    packNetwork(directory + "/faces", 0, "8337, Faces, 1.0", "0,Background\n8337,Face",
                fixedFaceNetwork({{0, 1, 0.9f, 0.1f, 0.2f, 0.3f, 0.5f},
                                  {0, 2, 0.5f, 0.1f, 0.1f, 0.2f, 0.2f},
                                  {0, 1, 0.75f, -0.05f, -0.1f, 0.15f, 0.2f},
                                  {-1, 1, 0.99f, 0.1f, 0.1f, 0.2f, 0.2f},
                                  {0, 1, 0.99f, 0.1f, 0.1f, 0.2f, 0.2f}}));
    // Two words side by side and one below them; a one-cell speck is too small.
    const auto grid = pixelLinkGrid(6, 12, {"###.###....#",
                                            "###.###.....",
                                            "###.###.....",
                                            "............",
                                            "#####.......",
                                            "#####......."});
    packNetwork(directory + "/text-detector", 0, "9112, Text Detector, 1.0", "0,Background\n5,Text",
                fixedPixelLinkNetwork(6, 12, grid.pixels, grid.links));
    packNetwork(directory + "/text-presence", 1, "9113, Text Presence, 1.0", "0,Background\n5,Text",
                channelMeansNetwork(8, 8, 255.0f));
    packNetwork(directory + "/text-reader", 2, "19112, Text Reader, 1.0", "1,Symbols",
                fixedRecogniserNetwork("ab#b1122"));
}

std::string scanDocument(const std::vector<std::uint8_t>& pixels, int width, int height, const char* categories) {
    float scores[8] = {};
    char* document = ScanImage(pixels.data(), static_cast<int32_t>(pixels.size()), width, height, categories, scores, 50.0f);
    std::string text = document;
    ReleaseNubexMemory(document);
    return text;
}

}  // namespace testing_support
