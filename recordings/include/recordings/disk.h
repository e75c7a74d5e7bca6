#ifndef RECORDINGS_DISK_H
#define RECORDINGS_DISK_H

/// @file disk.h
/// A recorder's partition, opened.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recordings/export.h"
#include "recordings/problem.h"
#include "recordings/query.h"
#include "recordings/source.h"

namespace recordings {

/// The partition head lies at the start of the partition, and has so many bytes.
constexpr uint32_t kPartitionHeadBytes = 200;

/// What the partition head says. Texts are bounded copies; they may hold any byte.
struct DiskFacts {
    uint32_t magic = 0;
    bool extendedLayout = false; ///< of blocks: head area 2048 bytes, tail area 512; else 840 and 20
    uint32_t blockCount = 0;     ///< as the head states it
    uint32_t blockSize = 0;      ///< bytes
    uint32_t badBlockTable = 0;  ///< device offsets of the tables and their backup copies
    uint32_t badBlockTableBackup = 0;
    uint32_t suspectTable = 0;
    uint32_t suspectTableBackup = 0;
    std::string description;
    bool locked = false;  ///< the access lock is on
    ChannelSet lockedSet; ///< channels that it hides
};

/// What the bad-block tables say of a block.
enum class BlockMark : uint8_t {
    None,
    Suspect, ///< the recorder has met errors on it
    Bad      ///< the recorder does not use it any more
};

/// Where the parts of each block lie, in bytes from the block's start.
struct BlockLayout {
    uint32_t frames = 0;     ///< start of the frame area: the size of the head area
    uint32_t frameBytes = 0; ///< its size
    uint32_t index = 0;      ///< start of the index area
    uint32_t tail = 0;       ///< start of the tail
};

/// A partition. One thread uses one object at a time; a process may have many. It never writes.
class RECORDINGS_API Disk {
public:
    /// Opens a partition. The disk owns the source.
    /// @param diskType the recorder's disk type code; without it the head's magic decides
    /// @throws Error when there is no partition that can be read
    explicit Disk(std::unique_ptr<Source> source, std::optional<int> diskType = std::nullopt);
    ~Disk();
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    const Source& Bytes() const;
    const DiskFacts& Facts() const;
    /// The disk type code that it was opened with, or that the head's magic stands for.
    int DiskType() const;
    const BlockLayout& Layout() const;

    /// Blocks of the ring that are looked at: those that begin inside the device, and at most as many as the numbers
    /// of recordings can name.
    uint32_t BlockCount() const;
    /// Of these, blocks that lie wholly inside the device.
    uint32_t WholeBlocks() const;
    BlockMark MarkOf(uint32_t block) const;
    /// Device offset of a block.
    uint64_t StartOf(uint32_t block) const;

    /// Channels that the access lock hides for now.
    ChannelSet Hidden() const;
    /// Opens the access lock, if there is one.
    /// @return false when the password is wrong: the channels stay hidden
    bool Unlock(const std::string& password);

    /// What was met when the disk was opened, for example tables that cannot be read.
    const std::vector<Problem>& OpeningProblems() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace recordings

#endif // RECORDINGS_DISK_H
