#include "recordings/host_disks.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace recordings {

namespace {

namespace fs = std::filesystem;

/// The kernel counts the sizes of all devices in these.
constexpr uint64_t kSectorSize = 512;
const char* const kDevices = "/dev/";

/// The number that a file of the kernel's holds; 0 where there is none.
uint64_t NumberIn(const fs::path& path) {
    std::ifstream file(path);
    uint64_t number = 0;
    return file >> number ? number : 0;
}

/// A folder's entries by name. The kernel writes "!" for the "/" in a device's name.
std::string DeviceName(const fs::path& entry) {
    std::string name = entry.filename().string();
    std::replace(name.begin(), name.end(), '!', '/');
    return kDevices + name;
}

} // namespace

std::vector<HostDisk> HostDisks(const std::string& kernel) {
    std::vector<HostDisk> disks;
    std::error_code none;
    for (fs::directory_iterator i(fs::path(kernel) / "block", none); i != fs::directory_iterator();
         i.increment(none)) {
        const uint64_t sectors = NumberIn(i->path() / "size");
        if (sectors != 0) {
            disks.push_back({DeviceName(i->path()), sectors * kSectorSize});
        }
    }
    std::sort(disks.begin(), disks.end(),
              [](const HostDisk& a, const HostDisk& b) { return a.path < b.path; });
    return disks;
}

std::string PartitionPath(const std::string& disk, uint32_t number, const std::string& kernel) {
    std::error_code none;
    const fs::path folder = fs::path(kernel) / "class" / "block" / fs::path(disk).filename();
    for (fs::directory_iterator i(folder, none); i != fs::directory_iterator(); i.increment(none)) {
        if (NumberIn(i->path() / "partition") == number && number != 0) {
            return DeviceName(i->path());
        }
    }
    return "";
}

} // namespace recordings
