#include "support/test_pack.h"

#include "support/test_networks.h"

namespace testing_support {

void writeClassifierPack(const std::string& directory) {
    packNetwork(directory + "/vision-pro", 0, "100, Vision Pro, 1.0", "0,Background\n14,Drinks,50=30,80=60\n21,Smoke",
                channelMeansNetwork(16, 16, 255.0f));
    packNetwork(directory + "/vision-lite", 1, "101, Vision Lite, 1.0", "0,Background\n14,Drinks\n21,Smoke",
                channelMeansNetwork(24, 24, 510.0f));
}

}  // namespace testing_support
