// A child process that is asked and answers.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "child.h"

namespace {

using namespace media;
using namespace std::chrono_literals;

/// Answers each number with the sum of all so far.
bool AddUp(int questions, int answers) {
    uint64_t sum = 0;
    for (uint64_t number = 0; ReadAll(questions, &number, sizeof number);) {
        sum += number;
        if (!WriteAll(answers, &sum, sizeof sum)) {
            return false;
        }
    }
    return true;
}

uint64_t Ask(AskedChild& child, uint64_t number) {
    uint64_t answer = 0;
    EXPECT_TRUE(child.Send(&number, sizeof number));
    EXPECT_TRUE(child.Receive(&answer, sizeof answer));
    return answer;
}

TEST(AskedChildren, RememberWhatTheyWereAsked) {
    AskedChild child(AddUp, {});
    AskedChild other(AddUp, {});
    EXPECT_EQ(Ask(child, 5), 5u);
    EXPECT_EQ(Ask(other, 1), 1u);
    EXPECT_EQ(Ask(child, 7), 12u);
    EXPECT_EQ(Ask(other, 2), 3u);
}

TEST(AskedChildren, TakeMoreThanAPipeHolds) {
    AskedChild child(
        [](int questions, int answers) {
            std::vector<uint8_t> bytes(1 << 20);
            return ReadAll(questions, bytes.data(), bytes.size()) &&
                   WriteAll(answers, bytes.data(), bytes.size());
        },
        {});
    std::vector<uint8_t> bytes(1 << 20, 7);
    std::vector<uint8_t> answer(bytes.size());
    EXPECT_TRUE(child.Send(bytes.data(), bytes.size()));
    EXPECT_TRUE(child.Receive(answer.data(), answer.size()));
    EXPECT_TRUE(answer == bytes);
}

TEST(AskedChildren, AreOfNoUseWhenTheyHaveEnded) {
    AskedChild child(
        [](int questions, int answers) {
            uint64_t number = 0;
            ReadAll(questions, &number, sizeof number);
            return WriteAll(answers, "x", 1);
        },
        {});
    uint64_t number = 1;
    EXPECT_TRUE(child.Send(&number, sizeof number));
    EXPECT_FALSE(child.Receive(&number, sizeof number)); // a byte of eight
    // Nor does what nobody reads end this process.
    const auto before = std::signal(SIGPIPE, SIG_DFL);
    bool sent = true;
    for (int i = 0; sent && i < 1000; ++i) { // the system takes a moment to end it
        sent = child.Send(&number, sizeof number);
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_FALSE(sent);
    std::signal(SIGPIPE, before);
}

TEST(AskedChildren, AreWaitedForSoLong) {
    ChildLimits limits;
    limits.silence = 1;
    AskedChild child(
        [](int, int) {
            for (;;) {
                getpid();
            }
            return true;
        },
        limits);
    const auto begin = std::chrono::steady_clock::now();
    uint8_t byte = 0;
    EXPECT_FALSE(child.Receive(&byte, 1));
    const std::vector<uint8_t> much(1 << 20);
    EXPECT_FALSE(child.Send(much.data(), much.size()));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1990ms); // poll() waits in whole milliseconds
}

/// A user who presses Ctrl-C must not wait as long as for a child that is silent.
TEST(AskedChildren, AreNotWaitedForWhenTheCallerHasEnough) {
    ChildLimits limits;
    limits.silence = 3600;
    int calls = 0;
    AskedChild child([](int questions, int) { return ReadAll(questions, &questions, sizeof questions); },
                     limits,
                     [&calls] {
                         if (++calls == 3) {
                             throw std::runtime_error("enough");
                         }
                     });
    uint8_t byte = 0;
    EXPECT_THROW(child.Receive(&byte, 1), std::runtime_error);
    EXPECT_EQ(calls, 3);
}

TEST(AskedChildren, CanDoNothingButAnswer) {
    const std::vector<std::function<bool()>> deeds = {
        [] { return open("/etc/passwd", O_RDONLY | O_CLOEXEC) >= 0; }, [] { return fork() >= 0; },
        [] { return write(STDOUT_FILENO, "x", 1) == 1; }, [] { return read(STDIN_FILENO, nullptr, 0) == 0; },
        [] { return dup(0) >= 0; }};
    for (const auto& deed : deeds) {
        AskedChild child(
            [&deed](int, int answers) {
                const uint8_t done = deed() ? 1 : 0;
                return WriteAll(answers, &done, 1);
            },
            {});
        uint8_t done = 2;
        EXPECT_TRUE(child.Receive(&done, 1));
        EXPECT_EQ(done, 0);
    }
}

} // namespace
