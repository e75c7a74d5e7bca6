#ifndef MEDIA_SRC_TIMELINE_H
#define MEDIA_SRC_TIMELINE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace media {

/// Where frames lie in a container's time. It follows the recorder's clock; where that was set back, it goes on.
class Timeline {
public:
    /// @param start time stamp that becomes zero
    explicit Timeline(int64_t start) : m_start(start) {}

    /// @return the number of the track, counted from 0 on
    size_t AddTrack();
    /// The place of a track's next frame, in microseconds.
    int64_t PlaceOf(size_t track, int64_t time);
    /// How long the frame placed last may be taken to last, in microseconds: as long as the one before it did.
    int64_t IntervalOf(size_t track) const { return m_tracks[track].interval; }
    /// The place of a time stamp, if the clock is not set.
    int64_t PlaceOf(int64_t time) const { return time > m_start ? time - m_start : 0; }

private:
    struct TrackTime {
        std::optional<int64_t> last;
        int64_t interval; ///< from the frame before the last one
    };

    int64_t m_start;
    int64_t m_shift = 0;  ///< how far the clock was set back in all
    int64_t m_latest = 0; ///< of all tracks
    std::vector<TrackTime> m_tracks;
};

} // namespace media

#endif // MEDIA_SRC_TIMELINE_H
