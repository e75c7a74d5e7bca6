#ifndef MEDIA_SRC_TIMELINE_H
#define MEDIA_SRC_TIMELINE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "media/sink.h"

namespace media {

/// Where frames lie in a container's time. It follows the recorder's clock. Where that was set back, the file goes on in
/// a segment of its own; where it was set right again, the file is as far after its start as the clock is. A gap that the
/// container cannot show is left out, and begins a segment too.
class Timeline {
public:
    /// @param start time stamp that becomes zero
    /// @param largestGap from one frame of a track to the next that the container can show, microseconds
    explicit Timeline(int64_t start, int64_t largestGap = INT64_MAX)
        : m_start(start), m_largestGap(largestGap), m_latestTime(start), m_segments{{0, start}} {}

    /// @return the number of the track, counted from 0 on
    size_t AddTrack();
    /// The place of a track's next frame, in microseconds.
    int64_t PlaceOf(size_t track, int64_t time);
    /// The last place that was given, of all tracks.
    int64_t Latest() const { return m_latest; }
    /// Whether a track has reached the newest of the stretches in which the file follows the clock.
    bool IsInNewest(size_t track) const { return m_tracks[track].segment + 1 == m_segments.size(); }
    /// How long the frame placed last may be taken to last, in microseconds: as long as the one before it did.
    int64_t IntervalOf(size_t track) const { return m_tracks[track].interval; }
    /// The place of a time stamp, if the clock is not set.
    int64_t PlaceOf(int64_t time) const { return time > m_start ? time - m_start : 0; }
    /// The stretches in which the file follows the clock, in order; one if it was not set.
    const std::vector<ClockSegment>& Segments() const { return m_segments; }

private:
    struct TrackTime {
        int64_t interval;                ///< from the frame before the last one
        size_t segment = 0;              ///< that it has reached
        std::optional<int64_t> lastTime; ///< time stamp of its last frame in that
        int64_t lastPlace = 0;
    };

    void Choose(TrackTime& track, int64_t time);
    bool IsSetRight(int64_t time) const;
    void Begin(TrackTime& track, int64_t place, int64_t time);
    int64_t PlaceIn(size_t segment, int64_t time) const;

    int64_t m_start;
    int64_t m_largestGap;
    int64_t m_latest = 0;     ///< place, of all tracks
    int64_t m_latestTime = 0; ///< time stamp in the newest segment
    std::vector<ClockSegment> m_segments;
    std::vector<TrackTime> m_tracks;
};

} // namespace media

#endif // MEDIA_SRC_TIMELINE_H
