#include "cli/library_messages.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli/failure.h"

namespace diskaccess {

namespace {

size_t CountFailures(const std::string& messages) {
    size_t failures = 0;
    for (size_t at = messages.find(", Failed\n"); at != std::string::npos;
         at = messages.find(", Failed\n", at + 1)) {
        ++failures;
    }
    return failures;
}

} // namespace

LibraryMessages::LibraryMessages(bool show) : m_show(show) {
    std::fflush(stdout);
    m_standardOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    m_messages = memfd_create("library-messages", MFD_CLOEXEC);
    if (m_standardOutput < 0 || m_messages < 0 || dup2(m_messages, STDOUT_FILENO) < 0) {
        throw Failure(std::string("cannot set up the output: ") + std::strerror(errno));
    }
}

LibraryMessages::~LibraryMessages() {
    std::fflush(stdout);
    dup2(m_standardOutput, STDOUT_FILENO);
    close(m_standardOutput);
    close(m_messages);
}

size_t LibraryMessages::TakeFailures() const {
    std::fflush(stdout);
    const off_t size = lseek(m_messages, 0, SEEK_END);
    std::string messages(size < 0 ? 0 : static_cast<size_t>(size), '\0');
    const ssize_t got = pread(m_messages, messages.data(), messages.size(), 0);
    messages.resize(got < 0 ? 0 : static_cast<size_t>(got));
    if (ftruncate(m_messages, 0) == 0) {
        lseek(m_messages, 0, SEEK_SET);
    }
    if (m_show) {
        std::fwrite(messages.data(), 1, messages.size(), stderr);
    }
    return CountFailures(messages);
}

} // namespace diskaccess
