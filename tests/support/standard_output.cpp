#include "support/standard_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
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
        throw std::runtime_error("cannot read what was written");
    }
    return text;
}

} // namespace

std::string WrittenToStandardOutput(const std::function<void()>& action) {
    const int file = memfd_create("output", MFD_CLOEXEC);
    {
        const Redirection redirection(file);
        action();
    }
    std::string text = ReadAll(file);
    close(file);
    return text;
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
