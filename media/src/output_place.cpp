#include "output_place.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "media/error.h"

namespace media {

namespace {

const char* KindOf(mode_t mode) {
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return "a folder";
    case S_IFLNK:
        return "a symbolic link";
    case S_IFIFO:
        return "a FIFO";
    case S_IFSOCK:
        return "a socket";
    default:
        return "a device";
    }
}

} // namespace

OutputPlace::OutputPlace(std::string path) : m_path(std::move(path)) {
    const size_t begin = m_path.rfind('/') + 1; // 0 without any
    m_name = m_path.substr(begin);
    const std::string folder = begin == 0 ? "." : m_path.substr(0, begin);
    m_folder = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (m_folder < 0) {
        CannotBeMade(errno);
    }
}

OutputPlace::~OutputPlace() {
    close(m_folder);
}

void OutputPlace::CheckEntry(const std::string& name, const OutputRules& rules) const {
    struct stat entry = {};
    if (fstatat(m_folder, name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) {
            return;
        }
        CannotBeMade(errno);
    }
    struct stat target = {};
    const bool leads = fstatat(m_folder, name.c_str(), &target, 0) == 0;
    if (rules.source.Includes(entry) || (leads && rules.source.Includes(target))) {
        throw Error(ErrorKind::OutputIsSource,
                    m_path + ": is the source, or what the source is stored in, and is never written");
    }
    if (!S_ISREG(entry.st_mode)) {
        throw Error(ErrorKind::OutputIsNoFile,
                    fmt::format("{}: is {}, and only files are replaced", m_path, KindOf(entry.st_mode)));
    }
    if (!rules.replace) {
        throw Error(ErrorKind::OutputExists, m_path + ": exists already");
    }
}

void OutputPlace::CannotBeMade(int error) const {
    throw Error(ErrorKind::CannotMake, fmt::format("{}: cannot be made: {}", m_path, std::strerror(error)),
                error);
}

} // namespace media
