#ifndef DISKACCESS_PARTITION_H
#define DISKACCESS_PARTITION_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "disk_access.h"
#include "partition_file.h"

namespace diskaccess {

/// Why a block is not used.
enum class BlockState { Usable, Bad, Suspect, Missing };

/// A partition opened for a command, with the checks that a user deserves and the library leaves to its
/// caller.
class Partition {
public:
    /// Opens a block device or image file, read-only.
    /// @param diskType the recorder's type code; without it the magic on the disk decides
    /// @param standardOutput where the program's output goes: not into the partition
    /// @throws Failure that says what is wrong with it
    Partition(const std::string& path, std::optional<int> diskType, int standardOutput);
    ~Partition();
    Partition(const Partition&) = delete;
    Partition& operator=(const Partition&) = delete;

    const std::string& Path() const { return m_path; }
    const PartHead_t& Head() const { return m_head; }
    uint64_t Size() const { return m_size; }
    bool IsBlockDevice() const { return m_file.IsBlockDevice(); }
    /// Tells what must not be written.
    const SourceIdentity& Source() const { return m_file.Identity(); }
    PartAccess_t Access() const { return m_access; }
    CSearchDisk& Search() { return m_search; }

    /// Blocks that lie beyond the end of the device, wholly or in part: a copy that was cut off.
    uint32_t MissingBlocks() const;
    /// What the bad-block tables say of a block, or that the device ends before its end.
    BlockState StateOf(uint32_t block) const;
    /// Blocks that the tables mark, bad and suspect.
    uint32_t CountOf(BlockState state) const;
    /// Blocks inside the device whose head or tail cannot be read.
    std::vector<uint32_t> UnreadableBlocks();

    /// A block's head and tail; nothing when they cannot be read.
    struct Ends {
        BlockHead_t head;
        BlockTail_t tail;
        bool closed; ///< the recorder finished the block, so that its tail and index hold
    };
    std::optional<Ends> EndsOf(uint32_t block);

    /// The oldest and newest block of the ring, if anything was recorded.
    struct Ring {
        uint32_t oldest;
        uint32_t newest;
    };
    std::optional<Ring> RecordedRing();

    /// The block at which a search from @p time on begins: the one that was being recorded then, or one near
    /// it if that cannot be used.
    uint32_t StartBlockOf(uint32_t time) const;

    /// Reads bytes of the device.
    /// @return false when not all of them can be read
    bool Read(uint64_t offset, void* data, size_t size) const;

    /// Where a search must begin to miss nothing from @p time on; at or before it.
    ///
    /// The library looks for no events when a search begins after the newest block did; and it looks for the
    /// start block by halving, and may come out at an unusable block behind the one that was being recorded
    /// at that time. A search from just before that block, the newest or the one recorded, finds it.
    uint32_t SafeSearchStart(uint32_t time);

private:
    void ReadHead(std::optional<int> diskType);
    void ReadTables();

    std::string m_path;
    PartitionFile m_file;
    PartAccess_t m_access;
    int m_fd; ///< the file's
    uint64_t m_size = 0;
    dev_op_st* m_dev = nullptr;
    PartHead_t m_head = {};
    std::vector<uint8_t> m_bits;
    std::vector<uint8_t> m_counters;
    CSearchDisk m_search;
};

} // namespace diskaccess

#endif // DISKACCESS_PARTITION_H
