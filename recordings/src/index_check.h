#ifndef RECORDINGS_INDEX_CHECK_H
#define RECORDINGS_INDEX_CHECK_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "block_facts.h"
#include "found_frames.h"
#include "frame_area.h"
#include "index_totals.h"

namespace recordings {

/// Holds what the index says of segments, key frames and events against the frames that were found.
class IndexCheck {
public:
    /// @param found, facts, area, totals must outlive the object; the block has an index
    IndexCheck(FoundFrames& found, const BlockFacts& facts, FrameArea& area, IndexTotals& totals);

    /// Whether so little of the index is true that it is damaged as a whole, and of no use.
    bool Useless() const;

    void Run();

private:
    void TakeTimes();
    bool Explained(uint32_t place) const;
    /// Whether nothing can be missing, whatever the index says.
    bool Sure() const { return m_totals.Whole() && m_totals.AllComplete(); }

    void CheckSegments(uint32_t channel);
    void CheckEdge(std::optional<size_t> entry, uint32_t channel, int64_t seconds);
    std::optional<size_t> MediaAt(uint32_t channel, uint32_t offset) const;
    std::optional<size_t> MediaEndingAt(uint32_t channel, uint32_t end) const;

    void CheckKeyFrames(uint32_t channel);
    void CheckKeyFrame(uint32_t channel, const IndexedKeyFrame& key);
    void CheckTimeOfKeyFrame(FoundFrame& frame, const IndexedKeyFrame& key);
    void ReportUnlisted();

    void CheckEvents();
    void CheckEvent(const IndexedEvent& event);
    bool KeyFrameOfTime(uint32_t channel, int64_t time) const;
    bool EventOfTime(int64_t time) const;
    bool Fits(size_t entry, int64_t time);

    FoundFrames& m_found;
    const BlockFacts& m_facts;
    const BlockIndex& m_index;
    FrameArea& m_area;
    IndexTotals& m_totals;
    std::vector<bool> m_listed;                                ///< by entry: an index entry names the frame
    std::vector<std::pair<uint32_t, int64_t>> m_keyFrameTimes; ///< channel and time of those found; sorted
    std::vector<int64_t> m_eventTimes;                         ///< of those found; sorted
    std::optional<Tracks> m_tracks;                            ///< made when it is needed
};

} // namespace recordings

#endif // RECORDINGS_INDEX_CHECK_H
