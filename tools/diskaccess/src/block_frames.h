#ifndef DISKACCESS_BLOCK_FRAMES_H
#define DISKACCESS_BLOCK_FRAMES_H

#include <cstdint>
#include <optional>
#include <vector>

#include "partition.h"
#include "recorded_blocks.h"

namespace diskaccess {

/// A payload buffer as the library resizes it.
class Payload {
public:
    Payload() = default;
    Payload(Payload&& other) noexcept : m_data(other.m_data) { other.m_data = nullptr; }
    Payload& operator=(Payload&& other) noexcept;
    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;
    ~Payload();

    const uint8_t* Data() const { return static_cast<const uint8_t*>(m_data); }
    void** Slot() { return &m_data; }

private:
    void* m_data = nullptr;
};

/// A frame and where it lies.
struct PlacedFrame {
    FrameHead_t head = {};
    uint32_t offset = 0; ///< in the block's frame area
    Payload payload;     ///< empty when only heads were asked for

    uint32_t Seconds() const { return static_cast<uint32_t>(head.pts / 1000000); }
};

/// A stretch of a block that was recorded and cannot be read as frames any more.
struct Loss {
    uint32_t block = 0;
    uint32_t offset = 0; ///< in the block's frame area
    uint64_t bytes = 0;
    std::optional<int64_t> before; ///< time stamp of the frame before it
    std::optional<int64_t> behind; ///< time stamp of the frame behind it
    bool unreadable = false;       ///< the disk failed to deliver it; else what lies there is no frame
};

/// Where the frames of every block of a disk lie.
struct FrameArea {
    uint32_t start = 0; ///< offset in the block
    uint32_t size = 0;  ///< bytes; 0 when no block could be opened
};

/// Asks the library where a block's frames may lie, by the first block that it can open: all are alike.
FrameArea FindFrameArea(Partition& disk, const std::vector<RecordedBlock>& blocks);

/// The frames of a block, one after the other, past whatever is damaged.
///
/// In a sound block these are the frames that the library reads, from the first to the last. Where no frame
/// follows though the index says that some should, or though later ones can be found, the stretch between is
/// noted as a loss. Part of it is the frame before, when another begins within it, since its length is then
/// wrong; and when nothing like a head follows it, since what was written over that head began within it.
class BlockFrames {
public:
    enum class Want { Heads, Payloads };

    BlockFrames(Partition& disk, const FrameArea& area, const RecordedBlock& block, Want want);
    ~BlockFrames();
    BlockFrames(const BlockFrames&) = delete;
    BlockFrames& operator=(const BlockFrames&) = delete;

    /// @return false at the end of the block. @p lost is set when a loss lies before the frame, or before the
    ///         end
    bool Next(PlacedFrame& frame, bool& lost);

    const std::vector<Loss>& Losses() const { return m_losses; }
    /// Whether the recorder wrote the block's index.
    bool HasIndex() const { return m_indexEnd != 0; }
    /// The record segments that the index has of a channel.
    std::vector<RecSegItem_t> SegmentsOf(uint32_t channel);

private:
    enum class Found { Frame, End, Damage };

    void ReadIndex();
    int ReadRaw(uint32_t offset, PlacedFrame& frame) const;
    Found ReadAt(uint32_t offset, PlacedFrame& frame);
    Found Judge(const FrameHead_t& head, uint32_t offset) const;
    bool Fits(const FrameHead_t& head, uint32_t offset) const;
    bool MarkedEnd(uint32_t offset) const;
    bool PassDamage();
    std::optional<uint32_t> BehindUnreadablePayload(const FrameHead_t& head) const;
    /// The first place from @p from on at which a frame of this recording seems to begin.
    std::optional<uint32_t> FindFrame(uint32_t from, bool& unreadable) const;
    bool SeemsFrame(const FrameHead_t& head, uint32_t offset) const;
    bool WasFrame(const FrameHead_t& head) const;
    void NoteLoss(uint32_t from, uint32_t to, bool unreadable);
    uint64_t DeviceOffset(uint32_t offset) const;

    Partition& m_disk;
    FrameArea m_area;
    RecordedBlock m_block;
    Want m_want;
    CReadBlock m_reader;
    bool m_opened;           ///< else the library refuses the block: its head or tail cannot be read
    uint32_t m_indexEnd = 0; ///< where the index says that the frames end; 0 without an index
    int64_t m_endTime = 0;   ///< second of the last media frame, as the tail or the index has it
    int64_t m_newest = 0;    ///< second of the newest media frame so far
    uint32_t m_offset = 0;   ///< where the next frame is read
    PlacedFrame m_next;
    PlacedFrame m_pending; ///< read, but not yet delivered: the one behind it must bear it out
    bool m_hasPending = false;
    bool m_pendingLost = false; ///< a loss lies before m_pending
    bool m_nextLost = false;    ///< a loss lies before the frame at m_offset
    bool m_ended = false;
    std::optional<int64_t> m_delivered; ///< time stamp of the frame delivered last
    std::vector<Loss> m_losses;
};

} // namespace diskaccess

#endif // DISKACCESS_BLOCK_FRAMES_H
