#include <stdexcept>

#include <gtest/gtest.h>

#include "inference/device_config.h"

using namespace Inference;

TEST(DeviceConfig, StreamCountFromProcessors) {
    EXPECT_EQ(streamCountFor(0), 1u);
    EXPECT_EQ(streamCountFor(1), 1u);
    EXPECT_EQ(streamCountFor(4), 1u);
    EXPECT_EQ(streamCountFor(7), 1u);
    EXPECT_EQ(streamCountFor(8), 2u);
    EXPECT_EQ(streamCountFor(11), 2u);
    EXPECT_EQ(streamCountFor(32), 8u);
}

TEST(DeviceConfig, DeviceListAndStreams) {
    EXPECT_EQ(parseDeviceList("CPU"), (std::vector<std::string>{"CPU"}));
    EXPECT_EQ(parseDeviceList("HETERO:CPU,GPU"), (std::vector<std::string>{"CPU", "GPU"}));

    const std::vector<std::string> cpu{"CPU"};
    EXPECT_EQ(parseDeviceStreams(cpu, "CPU:3,GPU:2"), (std::map<std::string, uint32_t>{{"CPU", 3}}));
    EXPECT_EQ(parseDeviceStreams({"CPU", "GPU"}, "4"), (std::map<std::string, uint32_t>{{"CPU", 4}, {"GPU", 4}}));

    try {
        parseDeviceStreams(cpu, "a:b:c");
        FAIL();
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "Unknown string format: a:b:c");
    }
    try {
        parseDeviceStreams(cpu, "CPU:x");
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "invalid stoi argument");
    }
    try {
        parseDeviceStreams(cpu, "99999999999");
        FAIL();
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "stoi argument out of range");
    }
}
