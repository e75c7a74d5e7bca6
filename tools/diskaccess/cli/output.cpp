#include "cli/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/failure.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

constexpr size_t kBufferSize = 0x8000;

} // namespace

Output::Output()
    : m_descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
      m_bufferSize(isatty(STDOUT_FILENO) == 1 ? 0 : kBufferSize) {
    if (m_descriptor < 0) {
        throw Failure(std::string("cannot set up the output: ") + std::strerror(errno));
    }
}

Output::~Output() {
    try {
        Flush();    // of an answer that was broken off, what there is
    } catch (...) { // NOLINT(bugprone-empty-catch): what broke it off is reported
    }
    close(m_descriptor);
}

void Output::Write(const std::string& text) {
    m_buffer += text;
    if (m_buffer.size() >= m_bufferSize) {
        Flush();
    }
}

void Output::Flush() {
    for (size_t written = 0; written < m_buffer.size();) {
        const ssize_t put = write(m_descriptor, m_buffer.data() + written, m_buffer.size() - written);
        if (put >= 0) {
            written += static_cast<size_t>(put);
        } else if (errno == EPIPE) {
            throw NobodyReads();
        } else if (errno != EINTR) {
            throw Failure(std::string("standard output cannot be written: ") + std::strerror(errno));
        }
    }
    m_buffer.clear();
}

void Complain(const std::string& line) {
    std::fprintf(stderr, "diskaccess: %s\n", Printable(line).c_str());
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
