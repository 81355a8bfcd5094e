#include <sstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/log_stream.h"

TEST(LogStream, PrefixOpensEveryLineOnly) {
    std::ostringstream out;
    slog::LogStream stream("ERROR", out);
    stream << "first" << " piece" << 42 << std::endl;
    stream << "second" << std::endl;
    stream << "unfinished ";
    stream << "continued" << std::endl;
    EXPECT_EQ(out.str(), "[ ERROR ] first piece42\n[ ERROR ] second\n[ ERROR ] unfinished continued\n");
}

TEST(LogStream, ConcurrentLinesDoNotTear) {
    std::ostringstream out;
    slog::LogStream stream("INFO", out);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&stream] {
            for (int i = 0; i < 200; ++i) stream << std::string("line") << std::endl;
        });
    }
    for (auto& thread : threads) thread.join();
    // Pieces never tear and none is lost; which line a piece lands on depends
    // on how the threads interleave.
    const std::string text = out.str();
    int pieces = 0;
    for (auto at = text.find("line"); at != std::string::npos; at = text.find("line", at + 4)) ++pieces;
    EXPECT_EQ(pieces, 800);
}
