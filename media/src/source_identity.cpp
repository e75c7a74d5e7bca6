#include "media/source_identity.h"

#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

#include <fstream>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace media {

namespace fs = std::filesystem;

SourceIdentity::SourceIdentity(int source, fs::path kernel)
    : SourceIdentity(std::vector<int>{source}, std::move(kernel)) {}

SourceIdentity::SourceIdentity(const std::vector<int>& sources, fs::path kernel)
    : m_kernel(std::move(kernel)) {
    for (const int source : sources) {
        AddSource(source);
    }
}

void SourceIdentity::AddSource(int source) {
    struct stat status = {};
    if (fstat(source, &status) == 0) {
        Add(status);
    }
    if (S_ISBLK(status.st_mode)) {
        AddLoopFile(source);
    }
}

bool SourceIdentity::Includes(const struct stat& file) const {
    return S_ISBLK(file.st_mode) ? m_devices.count(file.st_rdev) != 0
                                 : m_files.count({file.st_dev, file.st_ino}) != 0;
}

/// The kernel's folder about a block device: /sys/devices/.../sdb/sdb5. Empty where there is none.
fs::path SourceIdentity::EntryOf(dev_t device) const {
    std::error_code none;
    return fs::canonical(m_kernel / "dev/block" / fmt::format("{}:{}", major(device), minor(device)), none);
}

void SourceIdentity::Add(const struct stat& file) {
    if (S_ISBLK(file.st_mode)) {
        AddDevice(file.st_rdev);
    } else {
        m_files.emplace(file.st_dev, file.st_ino);
        AddDevice(file.st_dev);
    }
}

void SourceIdentity::AddDevice(dev_t device) {
    const bool isNew = m_devices.insert(device).second;
    const fs::path entry = isNew ? EntryOf(device) : fs::path();
    if (entry.empty()) {
        return;
    }
    AddLoopFileOf(entry);
    std::error_code none;
    if (fs::exists(entry / "partition", none)) {
        AddDeviceOf(entry.parent_path());
    }
    for (fs::directory_iterator below(entry / "slaves", none); below != fs::directory_iterator();
         below.increment(none)) {
        AddDeviceOf(below->path());
    }
}

/// @param entry the kernel's folder about the device
void SourceIdentity::AddDeviceOf(const fs::path& entry) {
    std::ifstream file(entry / "dev");
    unsigned int majorNumber = 0;
    unsigned int minorNumber = 0;
    char colon = 0;
    if (file >> majorNumber >> colon >> minorNumber) {
        AddDevice(makedev(majorNumber, minorNumber));
    }
}

void SourceIdentity::AddLoopFileOf(const fs::path& entry) {
    std::ifstream file(entry / "loop" / "backing_file");
    std::string name;
    std::getline(file, name, '\0'); // a name may hold anything else
    if (!name.empty() && name.back() == '\n') {
        name.pop_back();
    }
    struct stat status = {};
    if (stat(name.c_str(), &status) == 0) {
        Add(status);
    }
}

/// Asks a loop device itself which file it shows: that file is found even if its name has gone.
void SourceIdentity::AddLoopFile(int source) {
    loop_info64 info = {};
    if (ioctl(source, LOOP_GET_STATUS64, &info) == 0) {
        m_files.emplace(info.lo_device, info.lo_inode);
    }
}

} // namespace media
