#include "opened_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "small_file.h"

namespace media {

namespace {

uint64_t SizeOf(int file) {
    struct stat status = {};
    return fstat(file, &status) == 0 ? static_cast<uint64_t>(std::max<off_t>(status.st_size, 0)) : 0;
}

} // namespace

OpenedFile::OpenedFile(int folder, const std::string& name)
    : m_name(name), m_file(OpenRegularFile(folder, name, name, O_NOFOLLOW, ErrorKind::CannotReadBack)),
      m_size(SizeOf(m_file)) {}

OpenedFile::~OpenedFile() {
    close(m_file);
}

size_t OpenedFile::Read(uint64_t offset, void* data, size_t size) const {
    if (offset >= m_size) {
        return 0;
    }
    auto* const bytes = static_cast<uint8_t*>(data);
    size_t done = 0;
    while (done < size) {
        const ssize_t got = pread(m_file, bytes + done, size - done, static_cast<off_t>(offset + done));
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

} // namespace media
