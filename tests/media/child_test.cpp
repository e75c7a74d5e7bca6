// A child process: hears of what it answers, and confines what it may do.

#include "child.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "picture_codec.h"
#include "support/temp_dir.h"

namespace {

using Bytes = std::vector<uint8_t>;

media::ChildLimits Small() {
    media::ChildLimits limits;
    limits.seconds = 2;
    limits.memory = 64 << 20;
    limits.answer = 1000;
    return limits;
}

bool Answer(int descriptor, const std::string& text) {
    return write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

std::string TextOf(const std::optional<Bytes>& answer) {
    return answer ? std::string(answer->begin(), answer->end()) : "none";
}

TEST(Child, Answers) {
    EXPECT_EQ(TextOf(media::InChild([](int answer) { return Answer(answer, "done"); }, Small())), "done");
    EXPECT_EQ(TextOf(media::InChild([](int) { return true; }, Small())), "");
}

TEST(Child, ThatFailsHasNoAnswer) {
    EXPECT_FALSE(media::InChild([](int answer) { return Answer(answer, "half") && false; }, Small()));
    EXPECT_FALSE(media::InChild([](int) -> bool { throw std::runtime_error("no"); }, Small()));
    EXPECT_FALSE(
        media::InChild([](int) { return raise(SIGSEGV) == 0 && raise(SIGKILL) == 0 && false; }, Small()));
}

TEST(Child, ThatAnswersTooMuchIsNotHeard) {
    EXPECT_FALSE(media::InChild([](int answer) { return Answer(answer, std::string(1001, 'x')); }, Small()));
}

TEST(Child, ThatNeverEndsIsEnded) {
    media::ChildLimits limits = Small();
    limits.seconds = 1;
    EXPECT_FALSE(media::InChild(
        [](int) {
            for (volatile int i = 0;; i = i + 1) {
            }
            return true;
        },
        limits));
}

TEST(Child, IsEndedByWhatItsParentSeesMeanwhile) {
    media::ChildLimits limits = Small();
    limits.seconds = 60;
    int looks = 0;
    const auto look = [&looks] {
        if (++looks == 3) {
            throw std::runtime_error("enough");
        }
    };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(media::InChild(
                     [](int) {
                         for (volatile int i = 0;; i = i + 1) {
                         }
                         return true;
                     },
                     limits, look),
                 std::runtime_error);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
}

TEST(Child, GetsNoMoreMemoryThanItsLimit) {
    const auto maps = [](size_t bytes) {
        return [bytes](int) {
            return mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) !=
                   MAP_FAILED;
        };
    };
    EXPECT_TRUE(media::InChild(maps(16 << 20), Small()));
    EXPECT_FALSE(media::InChild(maps(size_t{1} << 30), Small()));
}

/// Whether a child may do something.
bool ChildMay(const std::function<bool()>& something) {
    return media::InChild([&](int) { return something(); }, Small()).has_value();
}

TEST(Child, CanDoNothingButCompute) {
    const test_support::TempDir directory;
    chmod(directory.File("").c_str(), 0777);
    const std::string path = directory.File("file");
    const int held = open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666);
    ASSERT_GE(held, 0);
    EXPECT_TRUE(ChildMay([] { return true; }));
    EXPECT_FALSE(ChildMay([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC) >= 0; }));
    EXPECT_FALSE(ChildMay([&] { return open("/", O_RDONLY | O_CLOEXEC) >= 0; }));
    EXPECT_FALSE(ChildMay([&] { return write(held, "x", 1) == 1; }));
    EXPECT_FALSE(ChildMay([] { return write(STDERR_FILENO, "x", 1) == 1; }));
    EXPECT_FALSE(ChildMay([] { return socket(AF_UNIX, SOCK_STREAM, 0) >= 0; }));
    EXPECT_FALSE(ChildMay([] { return fork() >= 0; }));
    EXPECT_FALSE(ChildMay([&] { return unlink(path.c_str()) == 0; }));
    EXPECT_FALSE(ChildMay([] { return kill(getppid(), 0) == 0; }));
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
    close(held);
}

TEST(ChildThatAnswers, IsHeardUpToItsEnd) {
    const auto work = [](int answer) {
        return media::WriteAll(answer, "half", 4) && media::WriteAll(-1, "x", 1);
    };
    const media::ChildAnswer answer = media::HearChild(work, {});
    EXPECT_FALSE(answer.complete);
    EXPECT_EQ(answer.bytes, (Bytes{'h', 'a', 'l', 'f'}));
}

TEST(ChildThatAnswers, IsEndedWhenItFallsSilent) {
    media::ChildLimits limits;
    limits.seconds = 600;
    limits.silence = 1;
    const auto work = [](int answer) {
        for (volatile int i = media::WriteAll(answer, "a", 1) ? 0 : 1;; i = i + 1) {
        }
        return true;
    };
    const media::ChildAnswer answer = media::HearChild(work, limits);
    EXPECT_FALSE(answer.complete);
    EXPECT_EQ(answer.bytes, Bytes{'a'});
}

} // namespace
