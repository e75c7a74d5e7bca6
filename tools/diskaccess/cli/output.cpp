#include "cli/output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

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

Output::Output(bool verbose) : m_verbose(verbose) {
    std::fflush(stdout);
    m_own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    m_library = memfd_create("library-messages", MFD_CLOEXEC);
    if (m_own < 0 || m_library < 0 || dup2(m_library, STDOUT_FILENO) < 0) {
        throw Failure(std::string("cannot set up the output: ") + std::strerror(errno));
    }
}

Output::~Output() {
    std::fflush(stdout);
    dup2(m_own, STDOUT_FILENO);
    close(m_own);
    close(m_library);
}

bool Output::Write(const std::string& text) const {
    for (size_t written = 0; written < text.size();) {
        const ssize_t put = write(m_own, text.data() + written, text.size() - written);
        if (put >= 0) {
            written += static_cast<size_t>(put);
        } else if (errno == EPIPE) {
            return false;
        } else if (errno != EINTR) {
            throw Failure(std::string("standard output cannot be written: ") + std::strerror(errno));
        }
    }
    return true;
}

size_t Output::TakeLibraryFailures() const {
    std::fflush(stdout);
    const off_t size = lseek(m_library, 0, SEEK_END);
    std::string messages(size < 0 ? 0 : static_cast<size_t>(size), '\0');
    const ssize_t got = pread(m_library, messages.data(), messages.size(), 0);
    messages.resize(got < 0 ? 0 : static_cast<size_t>(got));
    if (ftruncate(m_library, 0) == 0) {
        lseek(m_library, 0, SEEK_SET);
    }
    if (m_verbose) {
        std::fwrite(messages.data(), 1, messages.size(), stderr);
    }
    return CountFailures(messages);
}

void Complain(const std::string& line) {
    std::fprintf(stderr, "diskaccess: %s\n", line.c_str());
}

void OccupyStandardDescriptors() {
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) {
        close(fd);
    }
}

} // namespace diskaccess
