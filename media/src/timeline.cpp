#include "timeline.h"

#include <algorithm>
#include <cstdlib>

namespace media {

namespace {

/// A longer step back than this, in microseconds, is no jitter: the recorder's clock was set.
constexpr int64_t kClockSet = 1000000;
/// A clock that is set right again may come out a little behind where the file is by then: by no more than this, and a
/// tenth of what it was wrong by.
constexpr int64_t kSetRight = 60 * kClockSet;
/// From the last frame before the clock was set to the first after it, where a track's own pace is not known.
constexpr int64_t kUsualInterval = 40000;

} // namespace

size_t Timeline::AddTrack() {
    m_tracks.push_back({kUsualInterval, 0, std::nullopt, 0});
    return m_tracks.size() - 1;
}

int64_t Timeline::PlaceIn(size_t segment, int64_t time) const {
    return m_segments[segment].place + time - m_segments[segment].time;
}

void Timeline::Begin(TrackTime& track, int64_t place, int64_t time) {
    m_segments.push_back({place, time});
    track.segment = m_segments.size() - 1;
    track.lastTime.reset();
    m_latestTime = time;
}

/// Finds out which segment a track's next frame belongs to.
void Timeline::Choose(TrackTime& track, int64_t time) {
    const size_t newest = m_segments.size() - 1;
    if (track.segment != newest) {
        // What was recorded before the clock was set may come a little after what was recorded then.
        const bool goesOn = track.lastTime && std::abs(time - *track.lastTime) <= kClockSet;
        if (goesOn) {
            return;
        }
        track.segment = newest;
        track.lastTime.reset();
    }
    if (track.lastTime && time + kClockSet < *track.lastTime) {
        Begin(track, std::max(m_latest + track.interval, time - m_start), time);
        return;
    }
    if (track.lastTime && time - *track.lastTime > m_largestGap) {
        Begin(track, m_latest + track.interval, time);
    } else if (IsSetRight(time)) {
        const bool isLater = time - m_start > m_latest;
        Begin(track, isLater ? time - m_start : m_latest + track.interval, time);
    }
}

bool Timeline::IsSetRight(int64_t time) const {
    const int64_t wrongBy = PlaceIn(m_segments.size() - 1, time) - (time - m_start);
    const int64_t tolerance = std::min(kSetRight, wrongBy / 10);
    return wrongBy > 0 && time > m_latestTime + kClockSet && time - m_start + tolerance > m_latest;
}

int64_t Timeline::PlaceOf(size_t track, int64_t time) {
    TrackTime& own = m_tracks[track];
    Choose(own, time);
    const int64_t place = std::max<int64_t>(PlaceIn(own.segment, time), 0);
    const bool follows = own.lastTime && place > own.lastPlace;
    if (follows) {
        own.interval = std::min(place - own.lastPlace, kClockSet);
    }
    if (own.segment + 1 == m_segments.size()) {
        m_latestTime = std::max(m_latestTime, time);
    }
    own.lastTime = time;
    own.lastPlace = place;
    m_latest = std::max(m_latest, place);
    return place;
}

} // namespace media
