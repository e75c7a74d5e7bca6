#include "support/printed.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <regex>
#include <stdexcept>

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
    const std::string masked =
        std::regex_replace(Printed(action), std::regex(" : [0-9]+, Failed"), " : #, Failed");
    return std::regex_replace(masked, std::regex(", [0-9]+ : (fail|chn = )"), ", # : $1");
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
