#ifndef RECORDINGS_HOST_DISKS_H
#define RECORDINGS_HOST_DISKS_H

/// @file host_disks.h
/// The disks of this machine.

#include <cstdint>
#include <string>
#include <vector>

#include "recordings/export.h"

namespace recordings {

/// A block device that is no partition of another one.
struct HostDisk {
    std::string path;  ///< "/dev/sdb"
    uint64_t size = 0; ///< bytes
};

/// All block devices that have a medium in them, by name. This takes no permission; opening them does.
/// @param kernel where the kernel tells of its devices
RECORDINGS_API std::vector<HostDisk> HostDisks(const std::string& kernel = "/sys");

/// The name of a partition of a block device: "/dev/sdb5".
/// @return nothing when the kernel knows none of that number
RECORDINGS_API std::string PartitionPath(const std::string& disk, uint32_t number,
                                         const std::string& kernel = "/sys");

} // namespace recordings

#endif // RECORDINGS_HOST_DISKS_H
