#ifndef MEDIA_PROVENANCE_H
#define MEDIA_PROVENANCE_H

/// @file provenance.h
/// What ties files to the disk they were made from, and to those who made them.

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "recordings/query.h"
#include "recordings/source.h"

namespace media {

/// An area of a source, and what it held.
struct AreaDigest {
    uint64_t offset = 0; ///< bytes from the source's start
    uint64_t size = 0;
    std::string sha256;      ///< in hexadecimal; bytes that the disk does not deliver count as zeros
    uint64_t unreadable = 0; ///< how many those are
};

/// Reads an area, and hashes it.
/// @param watch asked after each piece
/// @throws recordings::Error (Cancelled)
AreaDigest HashArea(const recordings::Source& source, uint64_t offset, uint64_t size,
                    const recordings::Watch& watch = {});

/// What a disk says of itself. Texts may hold any byte.
struct DeviceFacts {
    std::string model;  ///< empty: not known
    std::string serial; ///< the same
};

/// Asks the kernel what disk a block device is, or lies on.
/// @param kernel where it tells of its devices
DeviceFacts ReadDeviceFacts(dev_t device, const std::filesystem::path& kernel = "/sys");

/// The recorder's clock beside a true one, at one moment; RFC 3339.
struct ClockCheck {
    std::string recorderTime;
    std::string trueTime;
};

/// Who made files, with what, and of what.
struct Provenance {
    std::string program;                ///< name and version
    std::vector<std::string> arguments; ///< that it was called with; passwords are never among them
    std::optional<std::string> caseName;
    std::optional<std::string> operatorName;
    std::optional<std::string> note;

    std::string sourcePath; ///< absolute
    bool isBlockDevice = false;
    DeviceFacts device;
    std::optional<ClockCheck> clockCheck;

    /// Hashes the whole source; empty: that is not asked for. It takes as long as reading it does, and throws what ends
    /// it.
    std::function<AreaDigest()> hashSource;
};

} // namespace media

#endif // MEDIA_PROVENANCE_H
