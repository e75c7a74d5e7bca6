#ifndef RECORDINGS_BLOCK_FACTS_H
#define RECORDINGS_BLOCK_FACTS_H

#include <cstdint>
#include <optional>
#include <tuple>
#include <vector>

#include "disk_format.h"
#include "format/index_tables.h"
#include "recordings/block_index.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"

namespace recordings {

/// Segments of an index that was rebuilt from frames end this many bytes before their last frame does: a head counts 20
/// bytes there.
constexpr uint32_t kRebuiltEndBefore = sizeof(FrameHead_t) - disk_access::kHeadBytesInSegment;

/// How far the media frames of a block reach that were found so far. Seconds.
struct Reached {
    int64_t newest = 0;
    int64_t last = 0; ///< the one found last
};

/// What head, tail, neighbours and index of a block tell of its frames.
class BlockFacts {
public:
    /// @param disk must outlive the object
    BlockFacts(const Disk& disk, const Block& block);

    const Block& Of() const { return m_block; }
    uint32_t AreaSize() const { return m_areaSize; }
    /// Whether nothing is known of the block but its place: its head tells nothing.
    bool Headless() const { return m_block.unreadable || m_block.wiped; }
    /// The index; null when the recorder wrote none, or it cannot be read.
    const BlockIndex* Index() const { return m_index ? &*m_index : nullptr; }
    /// The recorder wrote an index, but it cannot be read.
    bool IndexLost() const { return m_block.closed && !m_index; }

    /// Where the index has media frames end, 0 without an index.
    uint32_t MediaEnd() const { return m_mediaEnd; }
    /// Whether a media frame that ends there is the last one of the index.
    bool EndsMedia(uint64_t end) const {
        return end == m_mediaEnd || end == uint64_t{m_mediaEnd} + kRebuiltEndBefore;
    }
    /// The last frame head that the index names.
    uint32_t LastListed() const { return m_lastListed; }

    /// The places of heads that the index names, in order.
    std::vector<uint32_t> NamedHeads() const;
    /// Takes the index for lost: what it says is not true of this block.
    void DropIndex();

    /// Whether the index names a key frame of this channel, place and time.
    bool ListsKeyFrame(uint32_t channel, uint32_t offset, int64_t time) const;
    /// Whether the index names a key frame of this channel and time, wherever it lies.
    bool ListsTimeOfKeyFrame(uint32_t channel, int64_t time) const;
    /// Whether a segment of the index begins with a frame at this place and second.
    bool ListsStart(uint32_t channel, uint32_t offset, int64_t seconds) const;
    /// Whether a segment of the index ends with a frame that reaches up to this place, in this second.
    bool ListsEnd(uint32_t channel, uint64_t end, int64_t seconds) const;
    /// Whether the index names an event of this place and time.
    bool ListsEvent(uint32_t offset, int64_t time) const;

    /// Seconds: a media frame that is older is left over from the ring's previous turn.
    int64_t EarliestOwn() const { return m_earliestOwn; }
    /// Whether a frame is left over from the ring's previous turn, by its time alone.
    bool IsStale(int64_t seconds) const { return seconds < m_earliestOwn; }

    /// Seconds: when the recording in the next place of the ring began, if it is of the ring's previous turn. What that
    /// turn has left in this block is older.
    std::optional<int64_t> NextInRing() const;
    /// Whether nothing was recorded in the next place of the ring since the disk was formatted. What was recorded before
    /// may still lie there.
    bool IsFirstTurn() const;
    /// Whether the block has no tail, not even that of an earlier turn of the ring, though the blocks beside it have one.
    /// Never so for the newest block, which may never have been closed.
    bool LostItsTail() const;

    /// Whether the index has two frames of a channel in one record segment.
    bool InOneSegment(uint32_t channel, uint32_t first, uint32_t second) const;

    /// Whether a place where frames are looked for may hold a head of this block. Sound heads pass but for odd times.
    bool SeemsHead(const FrameHead_t& head, const Reached& reached) const;
    /// Whether a place holds a head from before the block was begun. Other channels may have been recorded then.
    bool SeemsLeftOver(const FrameHead_t& head) const;
    /// Whether some of what lies there still looks like a head of this block: then only a field of it is damaged.
    bool WasHead(const FrameHead_t& head, const Reached& reached) const;

private:
    /// What the index names: a place, a channel, and a time.
    using Name = std::tuple<uint32_t, uint32_t, int64_t>;

    std::optional<BlockHead_t> HeadOfNext() const;
    bool TailIsErased(uint32_t number) const;
    void TakeTimes();
    void TakeIndex();
    void TakeChannel(uint32_t channel);
    int64_t Latest(int64_t newest) const;

    const Disk& m_disk;
    Block m_block;
    uint32_t m_areaSize;
    std::optional<BlockIndex> m_index;
    uint32_t m_mediaEnd = 0;
    uint32_t m_lastListed = 0;
    std::vector<Name> m_keyFrames;     ///< sorted
    std::vector<Name> m_keyFrameTimes; ///< the same without their places
    std::vector<Name> m_starts;
    std::vector<Name> m_ends;
    std::vector<Name> m_events;
    ChannelSet m_channels;
    int64_t m_earliestOwn = 0; ///< seconds
    int64_t m_earliest = 0;
    int64_t m_latest = 0; ///< of a block that was closed
};

} // namespace recordings

#endif // RECORDINGS_BLOCK_FACTS_H
