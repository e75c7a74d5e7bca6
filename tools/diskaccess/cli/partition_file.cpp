#include "cli/partition_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "cli/failure.h"
#include "cli/source.h"

namespace diskaccess {

namespace {

std::string HintFor(int error) {
    switch (error) {
    case ENOENT:
        return "; check the name";
    case EACCES:
    case EPERM:
        return "; run as root, or ask for the right to read it";
    case ENOMEDIUM:
        return "; put the disk in";
    default:
        return "";
    }
}

int Open(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw Failure(fmt::format("{}: cannot be opened: {}{}", path, std::strerror(errno), HintFor(errno)));
    }
    return fd;
}

} // namespace

PartitionFile::PartitionFile(const std::string& path, int standardOutput)
    : m_path(path), m_fd(Open(path)), m_identity(m_fd) {
    try {
        CheckKind();
        KeepOutputFrom(m_path, m_identity, standardOutput);
    } catch (...) {
        close(m_fd);
        throw;
    }
}

void PartitionFile::CheckKind() {
    struct stat status = {};
    const bool known = fstat(m_fd, &status) == 0;
    m_isBlockDevice = known && S_ISBLK(status.st_mode);
    if (!m_isBlockDevice && !(known && S_ISREG(status.st_mode))) {
        throw Failure(fmt::format(
            "{}: is {}; give the recorder's partition, like /dev/sdb5, or an image file of it", m_path,
            known && S_ISDIR(status.st_mode) ? "a directory" : "neither a block device nor a file"));
    }
}

PartitionFile::~PartitionFile() {
    close(m_fd);
}

PartAccess_t PartitionFile::Access() const {
    PartAccess_t access = {};
    // The library's descriptor holds 127 characters; a longer path is reached through the file held open.
    const std::string name =
        m_path.size() < sizeof access.PartName ? m_path : fmt::format("/proc/self/fd/{}", m_fd);
    name.copy(access.PartName, sizeof access.PartName);
    return access;
}

} // namespace diskaccess
