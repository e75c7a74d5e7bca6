#ifndef TESTS_CONFORMANCE_DISKS_H
#define TESTS_CONFORMANCE_DISKS_H

/// @file disks.h
/// The partitions that calls are made on: recorded again in every run, by the same program that makes the calls.

#include <string>
#include <vector>

#include "conformance/transcript.h"
#include "sample_recorder/partition_image.h"

namespace conformance {

/// A partition in the current directory, and what is worth asking about it.
struct Disk {
    PartAccess_t access = {};
    PartHead_t head = {};
    bool small = true;            ///< every block may be walked, again and again
    std::vector<uint32_t> blocks; ///< those of the ring that differ, its ends, and some outside it
    std::vector<uint32_t> times;  ///< where those blocks begin and end, seconds beside that, and the extremes

    uint32_t Time(Random& random) const { return random.Of(times); }
    uint32_t Block(Random& random) const { return random.Of(blocks); }
    /// A time stamp, microseconds.
    uint64_t Stamp(Random& random) const {
        const uint64_t second = Time(random);
        return second * 1000000 + random.Below(1000000);
    }
    /// The id of a record of channel @p chn.
    uint32_t RecordId(Random& random, uint32_t chn, uint32_t segments) const {
        const uint32_t block = Block(random);
        return block << 16 | (chn & 0x7F) << 9 | random.Below(segments);
    }
};

/// The names of all disks.
const std::vector<std::string>& DiskNames();

/// Makes the disk of that name, if it was not made yet.
const Disk& DiskOf(const std::string& name);

/// A disk as it now lies in a file.
Disk Describe(const sample_recorder::PartitionImage& image);

} // namespace conformance

#endif // TESTS_CONFORMANCE_DISKS_H
