#include "timeline.h"

#include <algorithm>

namespace media {

namespace {

/// A longer step back than this, in microseconds, is no jitter: the recorder's clock was set.
constexpr int64_t kClockSet = 1000000;
/// From the last frame before the clock was set to the first after it, where a track's own pace is not known.
constexpr int64_t kUsualInterval = 40000;

} // namespace

size_t Timeline::AddTrack() {
    m_tracks.push_back({std::nullopt, kUsualInterval});
    return m_tracks.size() - 1;
}

int64_t Timeline::PlaceOf(size_t track, int64_t time) {
    TrackTime& own = m_tracks[track];
    int64_t place = time - m_start + m_shift;
    if (own.last && place + kClockSet < *own.last) {
        m_shift += m_latest + own.interval - place;
        place = time - m_start + m_shift;
    }
    place = std::max<int64_t>(place, 0);
    if (own.last && place > *own.last) {
        own.interval = std::min(place - *own.last, kClockSet);
    }
    own.last = place;
    m_latest = std::max(m_latest, place);
    return place;
}

} // namespace media
