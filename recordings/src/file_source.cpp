#include "file_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "recordings/error.h"

namespace recordings {

namespace {

/// Opens a file so that not even the time of its last access changes, where the caller may ask for that: it takes the
/// file's owner, or root.
int OpenUntouched(const char* path) {
    // A pipe without a writer would wait for one; such an open must come back to be refused.
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const int fd = open(path, kFlags | O_NOATIME);
    return fd < 0 && errno == EPERM ? open(path, kFlags) : fd;
}

} // namespace

FileSource::FileSource(std::string path) : m_path(std::move(path)), m_fd(OpenUntouched(m_path.c_str())) {
    if (m_fd < 0) {
        const int error = errno;
        throw Error(ErrorKind::CannotOpen, m_path + ": cannot be opened: " + std::strerror(error), error);
    }
    try {
        Examine();
    } catch (...) {
        close(m_fd);
        throw;
    }
}

FileSource::~FileSource() {
    close(m_fd);
}

void FileSource::Examine() {
    struct stat status = {};
    const bool known = fstat(m_fd, &status) == 0;
    m_isBlockDevice = known && S_ISBLK(status.st_mode);
    if (!m_isBlockDevice && !(known && S_ISREG(status.st_mode))) {
        throw Error(
            ErrorKind::CannotOpen,
            m_path + ": is " +
                (known && S_ISDIR(status.st_mode) ? "a directory" : "neither a block device nor a file") +
                "; give the recorder's partition, like /dev/sdb5, or an image file of it");
    }
    const off_t end = lseek(m_fd, 0, SEEK_END);
    m_size = end < 0 ? 0 : static_cast<uint64_t>(end);
}

size_t FileSource::Read(uint64_t offset, void* data, size_t size) const {
    size_t done = 0;
    while (done < size && offset + done <= static_cast<uint64_t>(LLONG_MAX)) {
        const ssize_t got =
            pread(m_fd, static_cast<uint8_t*>(data) + done, size - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        done += static_cast<size_t>(got);
    }
    return done;
}

void FileSource::WillNeed(uint64_t offset, size_t size) const {
    posix_fadvise(m_fd, static_cast<off_t>(offset), static_cast<off_t>(size), POSIX_FADV_WILLNEED);
}

} // namespace recordings
