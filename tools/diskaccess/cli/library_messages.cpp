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

LibraryMessages::LibraryMessages() {
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

} // namespace diskaccess
