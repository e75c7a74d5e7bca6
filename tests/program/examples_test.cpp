// The examples do what they say, on the sample partition.

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "support/run_program.h"

namespace {

using test_support::RunProgram;

const std::string kSample = std::string(SAMPLE_DIRECTORY) + "/sample.img";

std::vector<std::string> LinesOf(const std::vector<std::string>& command) {
    const auto result = RunProgram(command);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    std::istringstream stream(result.out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

TEST(Examples, SearchScreen) {
    const auto lines = LinesOf({EXAMPLE_SEARCH_SCREEN, kSample});
    ASSERT_EQ(lines.size(), 2u + 10 * 4 + 2); // days, ten blocks of four channels, events
    EXPECT_EQ(lines[0], "recorded on 2026-11-18");
    EXPECT_EQ(lines[1], "recorded on 2026-11-20");
    EXPECT_EQ(lines[2].substr(0, 54), "channel  0  2026-11-20 16:20:00  2026-11-20 16:20:16  ");
    EXPECT_EQ(lines[41], "channel  3  2026-11-20 16:22:29  still being recorded");
    EXPECT_EQ(lines[42], "event       2026-11-20 16:20:40  0x10");
    const auto first = LinesOf({EXAMPLE_SEARCH_SCREEN, kSample, "2026-11-18"});
    EXPECT_EQ(first.size(), 2u + 4 * 4 + 3);
    EXPECT_EQ(LinesOf({EXAMPLE_SEARCH_SCREEN, "/dev/null"}),
              std::vector<std::string>{"nothing is recorded here"});
    EXPECT_EQ(RunProgram({EXAMPLE_SEARCH_SCREEN}).exitCode, 2);
}

TEST(Examples, PlayerLoop) {
    // From 16:22:00 on: the camera of channel 3 delivers ten frames a second, a key frame every two seconds.
    const std::string from = "1795191720";
    const auto frames = LinesOf({EXAMPLE_PLAYER_LOOP, kSample, "3", "--from", from, "--fast"});
    ASSERT_EQ(frames.size(), 401u); // forty seconds, and the sum
    EXPECT_EQ(frames[0].substr(0, 25), "1795191720.000000  type 1");
    EXPECT_EQ(frames[0].substr(frames[0].size() - 8), "first 00"); // a start code
    EXPECT_EQ(frames.back(), "400 frames");
    // The block that was never closed has no key frames to step by: only its first one shows.
    const auto keys = LinesOf({EXAMPLE_PLAYER_LOOP, kSample, "3", "--from", from, "--fast", "--keys"});
    EXPECT_EQ(keys.size(), 15u + 1 + 1);
    EXPECT_EQ(RunProgram({EXAMPLE_PLAYER_LOOP}).exitCode, 2);
}

} // namespace
