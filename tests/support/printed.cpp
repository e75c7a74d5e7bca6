#include "support/printed.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <stdexcept>
#include <string_view>

namespace test_support {

namespace {

/// Puts a descriptor in the place of standard output for as long as it lives.
class Redirection {
public:
    explicit Redirection(int target) {
        std::fflush(stdout);
        m_saved = dup(STDOUT_FILENO);
        if (m_saved < 0 || dup2(target, STDOUT_FILENO) < 0) {
            throw std::runtime_error("cannot redirect standard output");
        }
    }
    ~Redirection() {
        std::fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        close(m_saved);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    int m_saved = -1;
};

/// Says what failed, where standard output goes nowhere.
class FailuresOnStandardError : public ::testing::EmptyTestEventListener {
public:
    void OnTestPartResult(const ::testing::TestPartResult& result) override {
        if (result.failed()) {
            std::fprintf(stderr, "%s:%d: %s\n", result.file_name(), result.line_number(), result.message());
        }
    }
};

std::string ReadAll(int fd) {
    std::string text(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    if (pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("cannot read what was printed");
    }
    return text;
}

/// Puts # in the place of each number that stands between @p before and one of @p behind.
std::string MaskNumbers(const std::string& text, std::string_view before,
                        std::initializer_list<std::string_view> behind) {
    std::string masked;
    size_t copied = 0;
    for (size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1)) {
        const size_t number = at + before.size();
        const size_t end = text.find_first_not_of("0123456789", number);
        const auto follows = [&](std::string_view with) { return text.compare(end, with.size(), with) == 0; };
        if (end != std::string::npos && end != number && std::any_of(behind.begin(), behind.end(), follows)) {
            masked.append(text, copied, number - copied) += '#';
            copied = end;
        }
    }
    return masked.append(text, copied);
}

} // namespace

std::string Printed(const std::function<void()>& action) {
    const bool failedBefore = ::testing::Test::HasFailure();
    const int file = memfd_create("printed", MFD_CLOEXEC);
    {
        const Redirection redirection(file);
        action();
    }
    std::string text = ReadAll(file);
    close(file);
    if (::testing::Test::HasFailure() && !failedBefore) {
        std::fprintf(stderr, "%s", text.c_str()); // it holds what the test framework said of the failure
    }
    return text;
}

std::string PrintedWithoutLines(const std::function<void()>& action) {
    return MaskNumbers(MaskNumbers(Printed(action), " : ", {", Failed"}), ", ", {" : fail", " : chn = "});
}

void Quietly(const std::function<void()>& action) {
    Printed(action);
}

void Silently(const std::function<void()>& action) {
    FailuresOnStandardError failures;
    auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
    listeners.Append(&failures);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    {
        const Redirection redirection(nowhere);
        action();
    }
    close(nowhere);
    listeners.Release(&failures);
}

} // namespace test_support
