#ifndef RECORDINGS_TIME_CHECK_H
#define RECORDINGS_TIME_CHECK_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "block_facts.h"
#include "found_frames.h"
#include "tracks.h"

namespace recordings {

/// Drops the frames at the end of a block that an earlier turn of the ring has left there: those that are too old for the
/// block, and after which no frames of its own time follow.
void DropLeftOver(FoundFrames& found, const BlockFacts& facts);

/// Finds time stamps that contradict their neighbours.
///
/// Within a track times rise. Where they do not, the clock was set back, and all frames that follow are earlier; or one
/// time stamp is damaged, and what follows goes on from before it. The latter gets a time between its neighbours.
class TimeCheck {
public:
    /// @param found, facts, tracks must outlive the object; the tracks are those of the frames found
    TimeCheck(FoundFrames& found, const BlockFacts& facts, const Tracks& tracks);

    void Run();

private:
    int64_t UsualOutside() const;
    void CheckTrack(const Track& track);
    bool IsOdd(const Track& track, size_t place) const;
    std::optional<int64_t> Outside(size_t entry) const;
    int64_t BeforeTheRest(const Track& track) const;
    int64_t OutOfOrder(const Track& track, size_t place) const;
    void FindLongestSteps(const Track& track);
    int64_t LongestStepElsewhere(size_t place) const;
    bool Confirmed(const Track& track, size_t place, int64_t apart) const;
    void Mend(const Track& track);
    bool NearMedia(size_t entry) const;

    const FoundFrame& At(const Track& track, size_t place) const { return m_frames[track.frames[place]]; }
    int64_t TimeOf(const Track& track, size_t place) const { return At(track, place).time; }

    FoundFrames& m_found;
    std::vector<FoundFrame>& m_frames;
    const BlockFacts& m_facts;
    const Tracks& m_tracks;
    int64_t m_usual = 0; ///< how far a frame usually is from the times around it
    std::vector<std::pair<int64_t, size_t>>
        m_steps;                ///< the longest of the track at hand, each with where it leads
    bool m_fewSteps = false;    ///< it has too few
    std::vector<size_t> m_good; ///< its places whose time is in order
    std::vector<size_t> m_odd;  ///< and those whose time is damaged
};

} // namespace recordings

#endif // RECORDINGS_TIME_CHECK_H
