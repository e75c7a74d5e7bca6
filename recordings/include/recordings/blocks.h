#ifndef RECORDINGS_BLOCKS_H
#define RECORDINGS_BLOCKS_H

/// @file blocks.h
/// The blocks of a ring that hold recordings, in the order they were recorded in. Every other question goes by this list.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "recordings/disk.h"
#include "recordings/export.h"

namespace recordings {

/// A block that holds a recording, or must have held one.
struct Block {
    uint32_t number = 0;   ///< place in the ring
    uint32_t sequence = 0; ///< place in recording order, from 1 on
    uint32_t start =
        0; ///< seconds: the start of its recording, from its head, or from its tail where the head is wrong
    uint32_t end =
        0; ///< seconds: its last frame, from its tail; of a block that was not closed the same as start
    ChannelSet channels;      ///< present in the block, as its head says
    uint32_t previousEnd = 0; ///< seconds: the end of the block recorded before it; 0: not known
    uint32_t nextStart =
        0xFFFFFFFF; ///< seconds: the start of the block recorded after it; 0xFFFFFFFF: not known
    BlockMark mark = BlockMark::None;
    bool closed = false;   ///< the recorder finished it: its index holds
    bool headSound = true; ///< else fields of the head were made up from its tail and neighbours
    bool unreadable =
        false; ///< nothing is known but that it must have been recorded: the disk does not deliver it
    bool wiped = false; ///< the same, but the disk delivers something else
};

/// The vehicle and how channels are encoded, from the head of a block.
struct ChannelProperties {
    uint32_t bitrate = 0;  ///< bits a second
    uint8_t videoCode = 0; ///< the recorder's own codes, passed through
    uint8_t frameRate = 0; ///< frames a second
    uint8_t resolutionCode = 0;
    uint8_t keyFrameDistance = 0; ///< frames from one key frame to the next
    uint8_t audioCode = 0;
    uint32_t sampleRate = 0; ///< samples a second
    uint32_t sampleBits = 0;
    uint32_t audioFrameBytes = 0;
};
struct BlockIdentity {
    std::string vehicleNumber;
    std::string vehicleId;
    uint32_t preRecordSeconds = 0;  ///< recorded before an alarm
    uint32_t alarmDelaySeconds = 0; ///< recorded after an alarm
    ChannelSet channels;
    ChannelProperties properties[kChannels];
};

/// All blocks of a disk that hold recordings. Made by one pass over heads and tails; a read a block.
class RECORDINGS_API BlockList {
public:
    /// Reads every head and tail, asking for those ahead in advance.
    /// @throws Error (Cancelled)
    static BlockList Read(const Disk& disk, const Watch& watch = {});

    /// In recording order. Blocks that must have been recorded and cannot be read are among them.
    const std::vector<Block>& All() const& { return m_blocks; }
    void All() && = delete;
    /// Blocks that hold no recording: formatted, but not written yet.
    uint32_t EmptyCount() const { return m_emptyCount; }
    /// Places of the ring that hold neither a recording nor the recorder's format, rising: no head, or none that can be
    /// read.
    const std::vector<uint32_t>& Headless() const& { return m_headless; }
    void Headless() && = delete;
    /// The newest block; null when nothing was recorded.
    const Block* Newest() const { return m_blocks.empty() ? nullptr : &m_blocks.back(); }
    const Block* Oldest() const { return m_blocks.empty() ? nullptr : &m_blocks.front(); }
    /// The entry of block @p number, or nothing.
    std::optional<size_t> Find(uint32_t number) const;

    /// Entries whose frames may lie in the range, in recording order. A block is left out only when its head, its tail
    /// and its neighbours all say that it lies elsewhere.
    std::vector<size_t> Candidates(const TimeRange& range) const;

    /// Reports what is wrong with the blocks that may lie in the range, and between them.
    void Report(const TimeRange& range, const ProblemSink& problems) const;

private:
    friend class BlockListMaker;

    /// A problem, and the time that it concerns.
    struct Placed {
        TimeRange time;
        Problem problem;
    };

    std::vector<Block> m_blocks;
    std::vector<TimeRange> m_spans; ///< of each block: the time in which its frames may lie
    std::vector<Placed> m_problems;
    std::vector<uint32_t> m_headless;
    uint32_t m_emptyCount = 0;
};

/// Reads what the head of a block says beside its times.
/// @return nothing when the head cannot be read
RECORDINGS_API std::optional<BlockIdentity> ReadIdentity(const Disk& disk, uint32_t block);

} // namespace recordings

#endif // RECORDINGS_BLOCKS_H
