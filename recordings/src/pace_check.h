#ifndef RECORDINGS_PACE_CHECK_H
#define RECORDINGS_PACE_CHECK_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "block_facts.h"
#include "found_frames.h"
#include "frame_area.h"
#include "tracks.h"

namespace recordings {

/// Finds frames whose type or channel was changed, by the pace of the tracks: one of them has a hole, in time and on the
/// disk, where a frame lies that does not fit its own.
///
/// Where there is an index, it tells most of this better: then only video and audio of one channel are looked at.
class PaceCheck {
public:
    /// @param found, facts, area, tracks must outlive the object; the tracks are those of the frames found
    PaceCheck(FoundFrames& found, const BlockFacts& facts, FrameArea& area, const Tracks& tracks);

    void Run();

private:
    /// A place in time and on the disk where a track lacks a frame, or may lack one.
    struct Slot {
        const Track* track;
        int64_t time;
        size_t from; ///< entries between which it lies
        size_t to;
        bool due;    ///< a frame must have been there; else the track may have begun later, or ended before
        bool inside; ///< between two frames of the track
    };

    void CheckSlots(const Track& track);
    void CheckSlot(const Slot& slot);
    bool Fills(const Slot& slot, const FoundFrame& frame, size_t entry);
    bool PayloadTells(const Track& track, const FoundFrame& frame);
    size_t BestOf(const Slot& slot, const std::vector<size_t>& fitting);
    bool LostBetween(size_t from, size_t to) const;
    void MoveInto(const Slot& slot, FoundFrame& frame);

    bool IsAloneBeside(const Slot& slot, const FoundFrame& frame) const;
    bool HasSizeOf(const Track& track, const FoundFrame& frame) const;
    bool HasSizeAsOf(const Track& track, const FoundFrame& frame) const;
    bool IsAlien(size_t entry) const;
    bool HasOddSize(const Track& track, size_t place) const;
    bool Usual(const Track& track, size_t place) const;
    bool IsExtra(const Track& track, size_t place) const;
    bool Declared(uint32_t channel) const;
    void ReportEvents();
    void ReportUnknownChannels();

    int64_t TimeOf(const Track& track, size_t place) const { return m_frames[track.frames[place]].time; }

    FoundFrames& m_found;
    std::vector<FoundFrame>& m_frames;
    const BlockFacts& m_facts;
    FrameArea& m_area;
    const Tracks& m_tracks;
    std::map<uint32_t, size_t> m_ofType; ///< how many frames there are of each type
};

} // namespace recordings

#endif // RECORDINGS_PACE_CHECK_H
