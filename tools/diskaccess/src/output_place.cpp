#include "output_place.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "cli/failure.h"

namespace diskaccess {

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
        throw Failure(m_path + ": is the source, or what the source is stored in, and is never written; give "
                               "another --output");
    }
    if (!S_ISREG(entry.st_mode)) {
        throw Failure(fmt::format("{}: is {}, and only files are replaced; give another --output", m_path,
                                  KindOf(entry.st_mode)));
    }
    if (!rules.replace) {
        throw Failure(m_path + ": exists already; give another --output, or --force to replace it");
    }
}

void OutputPlace::CannotBeMade(int error) const {
    throw Failure(fmt::format("{}: cannot be made: {}; give another --output", m_path, std::strerror(error)));
}

} // namespace diskaccess
