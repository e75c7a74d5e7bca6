#include "support/loop_device.h"

#include <fcntl.h>
#include <linux/blkpg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace test_support {

namespace {

/// Runs losetup, and gives what it printed; nothing when it failed.
std::string Losetup(const std::string& arguments) {
    std::FILE* const pipe =
        popen(("PATH=$PATH:/usr/sbin:/sbin losetup " + arguments + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot start a shell");
    }
    std::string text;
    char piece[256];
    while (std::fgets(piece, sizeof piece, pipe) != nullptr) {
        text += piece;
    }
    return pclose(pipe) == 0 ? text : "";
}

} // namespace

LoopDevice::LoopDevice(const std::string& file)
    : m_path(Losetup("--find --show --read-only --partscan '" + file + "'")) {
    m_path.erase(m_path.find_last_not_of('\n') + 1);
}

LoopDevice::~LoopDevice() {
    if (Attached()) {
        Losetup("--detach " + m_path);
    }
}

std::string LoopDevice::AddPartition(uint64_t start, uint64_t bytes) const {
    blkpg_partition partition = {};
    partition.start = static_cast<long long>(start);
    partition.length = static_cast<long long>(bytes);
    partition.pno = 1;
    blkpg_ioctl_arg request = {BLKPG_ADD_PARTITION, 0, sizeof partition, &partition};
    const int device = open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool added = ioctl(device, BLKPG, &request) == 0;
    close(device);
    return added ? m_path + "p1" : "";
}

std::string LoopDevice::Of(const std::string& file) {
    return Losetup("--noheadings --output NAME --associated '" + file + "'");
}

} // namespace test_support
