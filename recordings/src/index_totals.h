#ifndef RECORDINGS_INDEX_TOTALS_H
#define RECORDINGS_INDEX_TOTALS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "block_facts.h"
#include "found_frames.h"
#include "tracks.h"

namespace recordings {

/// Holds the bytes that the index counts for each channel against those of the frames that were found.
///
/// A frame that is missing, or counted for another channel, leaves a difference of exactly its size. So the difference
/// tells which one it was.
class IndexTotals {
public:
    /// @param found, facts must outlive the object; the block has an index
    IndexTotals(FoundFrames& found, const BlockFacts& facts);

    void Run();

    /// Whether what the index counts of a channel was found, to the byte.
    bool Complete(uint32_t channel) const { return Difference(channel) == 0; }
    bool AllComplete() const;
    bool Whole() const;
    /// Reports the index as damaged, once a channel.
    void NoteIndex(std::optional<uint32_t> channel, Severity severity);

private:
    void JudgeLength();
    void JudgeMissing();
    void TakeBackDropped();
    void FindMoved();
    void ReportEmptyChannels();

    void Count();
    uint32_t HeadBytesCounted() const;
    size_t SegmentsEnding(uint32_t before) const;
    int64_t Difference(uint32_t channel) const { return DifferenceBy(channel, m_headBytes); }
    int64_t DifferenceBy(uint32_t channel, uint32_t headBytes) const;
    uint32_t ChannelsOff() const;
    bool LastIsTooShort();
    bool IsUsual(const FoundFrame& frame, uint32_t size) const;
    void PassMissing();

    bool MoveFromChannel(uint32_t to);
    bool MoveFromOther(uint32_t to);
    bool MoveOut(uint32_t channel);
    std::optional<size_t> FrameOf(uint32_t channel, int64_t bytes) const;
    int64_t NeighboursApart(const Track& track, size_t place) const;
    void Mend(size_t entry, uint32_t channel, bool only);
    bool HasAudio(uint32_t channel) const;

    FoundFrames& m_found;
    const BlockFacts& m_facts;
    const BlockIndex& m_index;
    std::array<uint64_t, kChannels> m_indexed = {}; ///< bytes that the index counts
    std::array<uint64_t, kChannels> m_payload = {}; ///< bytes of payload found
    std::array<uint64_t, kChannels> m_frames = {};
    uint32_t m_headBytes = 0; ///< what the recorder counts for a head
    ChannelSet m_noted;
    bool m_notedWhole = false;
};

} // namespace recordings

#endif // RECORDINGS_INDEX_TOTALS_H
