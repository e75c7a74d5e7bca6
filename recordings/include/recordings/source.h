#ifndef RECORDINGS_SOURCE_H
#define RECORDINGS_SOURCE_H

/// @file source.h
/// Where the bytes of a partition come from.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recordings/export.h"

namespace recordings {

/// A partition of a disk's partition table.
struct Partition {
    uint32_t number = 0;   ///< as the system numbers it: that of /dev/sdb5 is 5
    uint64_t start = 0;    ///< bytes from the start of the disk
    uint64_t size = 0;     ///< bytes, as far as the disk reaches
    bool recorder = false; ///< it begins with a recorder's partition head
};

/// The bytes of a partition or a disk, read-only. Several threads may read one source at once.
class RECORDINGS_API Source {
public:
    virtual ~Source() = default;

    /// The name it was opened by.
    virtual const std::string& Name() const = 0;
    /// Bytes.
    virtual uint64_t Size() const = 0;
    virtual bool IsBlockDevice() const { return false; }
    /// The partition of a larger disk that it is; nothing: it is all of what its name stands for.
    virtual std::optional<Partition> PartOfDisk() const { return std::nullopt; }
    /// Descriptors of all files and devices that the bytes come from. They stay open as long as the source.
    virtual std::vector<int> Descriptors() const { return {}; }
    /// Reads bytes @p offset to @p offset + @p size - 1.
    /// @return how many could be read from @p offset on: fewer at the source's end, or where the disk fails
    virtual size_t Read(uint64_t offset, void* data, size_t size) const = 0;
    /// Says that bytes will be read soon. A hint: it may do nothing, and never fails.
    virtual void WillNeed(uint64_t offset, size_t size) const {
        static_cast<void>(offset);
        static_cast<void>(size);
    }

    /// Reads all of the bytes.
    /// @return false when not all of them can be read; what is in @p data is then undefined
    bool ReadWhole(uint64_t offset, void* data, size_t size) const {
        return Read(offset, data, size) == size;
    }
};

/// Opens a partition, for reading only. @p path names a block device or an image file: a plain one, the first part of a
/// split one (.001 or .aa, with .002 or .ab beside it), or the first part of an E01 image. If it does not begin with a
/// recorder's partition head, but is a whole disk with a partition table, the recorder's partition on it is opened.
///
/// Everything is held open until the source is destroyed, so that it stays the same when names are given to others. Each
/// part of a split image takes a descriptor.
/// @param partition number of the partition in the disk's table; without it there must be only one of a recorder
/// @throws Error (CannotOpen, PartMissing, NotSupported) for what cannot be opened, (SeveralPartitions, NoSuchPartition)
///         where the partition is not clear
RECORDINGS_API std::unique_ptr<Source> OpenSource(const std::string& path,
                                                  std::optional<uint32_t> partition = std::nullopt);

/// Opens the same as it is, from its first byte to its last.
/// @throws Error (CannotOpen, PartMissing, NotSupported)
RECORDINGS_API std::unique_ptr<Source> OpenWhole(const std::string& path);

/// Goes on to the partition, as OpenSource does.
/// @throws Error (SeveralPartitions, NoSuchPartition; CannotOpen for a later part of a split image)
RECORDINGS_API std::unique_ptr<Source> FindPartition(std::unique_ptr<Source> source,
                                                     std::optional<uint32_t> partition = std::nullopt);

/// The first part of the split image that @p path is a later part of; empty when it is none.
RECORDINGS_API std::string FirstPartOf(const std::string& path);

/// Whether the magic of a recorder's partition head stands at @p offset.
RECORDINGS_API bool BearsPartitionHead(const Source& source, uint64_t offset = 0);

/// Reads the partition table of a disk: MBR with its extended partitions, GPT, or another that libblkid knows. Reads a few
/// megabytes at most.
/// @return those partitions that begin inside the disk, in the table's order; none where there is no table
RECORDINGS_API std::vector<Partition> ReadPartitionTable(const Source& disk);

/// The partitions of a disk that hold recorded blocks, but have no head any more; the disk itself as number 0, if it is
/// one.
RECORDINGS_API std::vector<Partition> HeadlessPartitions(const Source& disk);

/// What is wrong with one of them, and what to do.
RECORDINGS_API std::string DescribeHeadless(const Source& disk, const Partition& partition);

/// The bytes of one partition.
RECORDINGS_API std::unique_ptr<Source> OpenPartition(std::unique_ptr<Source> disk,
                                                     const Partition& partition);

} // namespace recordings

#endif // RECORDINGS_SOURCE_H
