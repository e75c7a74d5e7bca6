#include "small_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

namespace media {

namespace {

std::string ReadAll(int file, const std::string& path, size_t most, ErrorKind kind) {
    std::string bytes;
    char piece[0x4000];
    for (;;) {
        const ssize_t got = read(file, piece, sizeof piece);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw Error(kind, fmt::format("{}: cannot be read: {}", path, std::strerror(errno)));
        }
        if (got == 0) {
            return bytes;
        }
        bytes.append(piece, static_cast<size_t>(got));
        if (bytes.size() > most) {
            throw Error(kind, fmt::format("{}: is larger than {} bytes", path, most));
        }
    }
}

} // namespace

int OpenRegularFile(int folder, const std::string& path, const std::string& name, int flags, ErrorKind kind) {
    const int file = openat(folder, path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags);
    if (file < 0) {
        const char* const why = errno == ELOOP ? "it is a symbolic link" : std::strerror(errno);
        throw Error(kind, fmt::format("{}: cannot be opened: {}", name, why));
    }
    struct stat status = {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(file);
        throw Error(kind, name + ": is no file");
    }
    return file;
}

std::string ReadSmallFile(const std::string& path, size_t most, ErrorKind kind) {
    const int file = OpenRegularFile(AT_FDCWD, path, path, 0, kind);
    try {
        std::string bytes = ReadAll(file, path, most, kind);
        close(file);
        return bytes;
    } catch (...) {
        close(file);
        throw;
    }
}

} // namespace media
