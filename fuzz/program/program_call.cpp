#include "program/program_call.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "program.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/common_interface_defs.h>
#define FUZZING_WITH_REPORTS 1
#endif
#endif

namespace fuzzing {

namespace {

int MemoryFile() {
    const int fd = memfd_create("program", MFD_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error("cannot make a file in memory");
    }
    return fd;
}

void Empty(int fd) {
    if (ftruncate(fd, 0) != 0 || lseek(fd, 0, SEEK_SET) != 0) {
        throw std::runtime_error("cannot empty a file in memory");
    }
}

diskaccess::Confinement StayFree(const diskaccess::Needs& /*needs*/) {
    return {};
}

/// Where the sanitizers' reports go. A process that was forked must say it again: else they go to a file.
void LeadReportsTo([[maybe_unused]] int fd) {
#ifdef FUZZING_WITH_REPORTS
    // NOLINTNEXTLINE(performance-no-int-to-ptr): this is how the sanitizers take a descriptor
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(fd)));
#endif
}

int CallProgram(const CommandLine& line) {
    std::vector<std::string> words = line;
    words.insert(words.begin(), "diskaccess");
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return diskaccess::RunProgram(static_cast<int>(words.size()), arguments.data(), StayFree);
}

} // namespace

ProgramCall::ProgramCall()
    : m_out(MemoryFile()), m_err(MemoryFile()), m_standardOutput(dup(STDOUT_FILENO)),
      m_standardError(dup(STDERR_FILENO)) {}

ProgramCall::~ProgramCall() {
    for (const int fd : {m_out, m_err, m_standardOutput}) {
        close(fd);
    }
    // The sanitizers' last report, of leaks, is still to come: standard error stays open.
}

std::string ProgramCall::Contents(int fd) {
    struct stat status = {};
    fstat(fd, &status);
    std::string text(static_cast<size_t>(status.st_size), '\0');
    const ssize_t got = pread(fd, text.data(), text.size(), 0);
    text.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return text;
}

ProgramEnd ProgramCall::Run(const CommandLine& line, const Meanwhile& meanwhile) {
    LeadReportsTo(m_standardError);
    Empty(m_out);
    Empty(m_err);
    dup2(m_out, STDOUT_FILENO);
    dup2(m_err, STDERR_FILENO);
    std::atomic<bool> stopped = false;
    std::thread other;
    if (meanwhile) {
        other = std::thread(
            [&] { meanwhile([this] { return Contents(m_out); }, [&stopped] { return stopped.load(); }); });
    }
    ProgramEnd end;
    end.exitCode = CallProgram(line);
    stopped = true;
    if (other.joinable()) {
        other.join();
    }
    std::cout.flush();
    std::fflush(stdout);
    dup2(m_standardOutput, STDOUT_FILENO);
    dup2(m_standardError, STDERR_FILENO);
    end.out = Contents(m_out);
    end.err = Contents(m_err);
    return end;
}

} // namespace fuzzing
