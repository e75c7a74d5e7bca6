#include "time_check.h"

#include <algorithm>
#include <functional>
#include <map>

namespace recordings {

namespace {

constexpr int64_t kStale = disk_access::kStaleSeconds;

/// A step that is this many times as long as usual, and a second at least, is a jump.
constexpr int64_t kJumpPaces = 4;
constexpr int64_t kShortestJump = kMicros;

/// Recorders begin a new segment after a longer pause than this.
constexpr int64_t kGap = (disk_access::kMergeGap - 1) * kMicros;

/// A frame that is no media, and whose time is further than this from the media beside it, is damaged. Events may be
/// written some time after they happened.
constexpr int64_t kOtherReach = 3600 * kMicros;

/// Finds what the ring's previous turn has left at the end of a block.
class LeftOver {
public:
    LeftOver(const std::vector<FoundFrame>& frames, const BlockFacts& facts)
        : m_frames(frames), m_facts(facts) {}

    /// The entry of its first frame.
    size_t First() const {
        size_t first = m_frames.size();
        for (size_t i = m_frames.size(); i-- > 0 && m_frames[i].offset >= m_facts.MediaEnd();) {
            if (m_frames[i].IsMedia() && !IsStale(m_frames[i])) {
                break;
            }
            first = m_frames[i].IsMedia() ? i : first;
        }
        while (first != 0 && first != m_frames.size() && m_frames[first - 1].type == kEventFrame &&
               IsStale(m_frames[first - 1])) {
            --first;
        }
        return first;
    }

private:
    /// Where the block's head is damaged, its first frame tells when it began.
    bool IsStale(const FoundFrame& frame) const {
        return m_facts.IsStale(frame.Seconds()) &&
               (m_facts.Of().headSound || frame.Seconds() + kStale < m_frames.front().Seconds());
    }

    const std::vector<FoundFrame>& m_frames;
    const BlockFacts& m_facts;
};

} // namespace

void DropLeftOver(FoundFrames& found, const BlockFacts& facts) {
    auto& frames = found.frames;
    const size_t first = LeftOver(frames, facts).First();
    if (first == frames.size()) {
        return;
    }
    // Frames that are not older than the block before this one are its own: its head's time is wrong.
    const Block& block = facts.Of();
    if (first == 0 && block.previousEnd != 0 && frames.front().Seconds() + kStale >= block.previousEnd) {
        Problem problem;
        problem.kind = ProblemKind::HeadDamaged;
        problem.severity = Severity::Note;
        found.problems.push_back(problem);
        return;
    }
    const bool single = first + 1 == frames.size() && first != 0 && !found.marked && facts.MediaEnd() == 0;
    if (single) {
        found.NoteDamaged(frames.back());
        return;
    }
    const uint32_t end = frames[first].offset;
    frames.erase(frames.begin() + static_cast<ptrdiff_t>(first), frames.end());
    auto& damaged = found.damaged;
    damaged.erase(std::find_if(damaged.begin(), damaged.end(),
                               [end](const Stretch& stretch) { return stretch.from >= end; }),
                  damaged.end());
    found.lostAtEnd = !damaged.empty() && damaged.back().to == end;
}

TimeCheck::TimeCheck(FoundFrames& found, const BlockFacts& facts, const Tracks& tracks)
    : m_found(found), m_frames(found.frames), m_facts(facts), m_tracks(tracks),
      m_usualDistance(UsualDistance()) {}

/// The largest distance of a frame from the other tracks, but for a damaged one and its neighbour.
int64_t TimeCheck::UsualDistance() const {
    constexpr size_t kLeftOut = 2;
    std::vector<int64_t> largest; // in falling order
    for (size_t entry = 0; entry < m_frames.size(); ++entry) {
        const int64_t distance = m_frames[entry].IsMedia() ? Distance(entry).value_or(0) : 0;
        if (largest.size() <= kLeftOut || distance > largest.back()) {
            largest.insert(std::upper_bound(largest.begin(), largest.end(), distance, std::greater<>()),
                           distance);
            largest.resize(std::min(largest.size(), kLeftOut + 1));
        }
    }
    return largest.size() > kLeftOut ? largest.back() : INT64_MAX;
}

/// Whether a frame is further from the other tracks than any usual one.
bool TimeCheck::FarOff(size_t entry) const {
    const int64_t distance = Distance(entry).value_or(0);
    return distance > kShortestJump && (distance - kShortestJump) / 2 > m_usualDistance;
}

void TimeCheck::Run() {
    for (const Track& track : m_tracks.All()) {
        CheckTrack(track);
    }
    // Types that nobody knows may bear any time, unless most of their frames keep to that of the media.
    std::map<uint32_t, int64_t> nearer; // by type: frames that do, less those that do not
    for (size_t entry = 0; entry < m_frames.size(); ++entry) {
        if (!m_frames[entry].IsMedia()) {
            nearer[m_frames[entry].type] += NearNeighbours(entry) ? 1 : -1;
        }
    }
    for (size_t entry = 0; entry < m_frames.size(); ++entry) {
        FoundFrame& frame = m_frames[entry];
        const bool keepsTime = frame.type == kEventFrame || (!frame.IsMedia() && nearer[frame.type] > 0);
        if (keepsTime && !NearNeighbours(entry) && !m_facts.ListsEvent(frame.offset, frame.time)) {
            m_found.NoteDamaged(frame);
        }
    }
}

void TimeCheck::CheckTrack(const Track& track) {
    m_good.clear();
    m_odd.clear();
    for (size_t place = 0; place < track.frames.size(); ++place) {
        if (m_good.empty() || TimeOf(track, place) >= TimeOf(track, m_good.back())) {
            m_good.push_back(place);
            continue;
        }
        const size_t before = m_good.back();
        const bool high = IsHigh(track, before, place);
        const bool low = IsLow(track, before, place);
        if (high && (!low || DisorderWithout(track, before) <= DisorderWithout(track, place))) {
            m_odd.push_back(before);
            m_good.back() = place;
        } else if (low) {
            m_odd.push_back(place);
        } else {
            m_good.push_back(place); // the clock was set back
        }
    }
    CheckEnds(track);
    Mend(track);
}

/// Whether the frame at @p place is later than the one at @p next because its time is damaged.
bool TimeCheck::IsHigh(const Track& track, size_t place, size_t next) const {
    if (Confirmed(track, place, TimeApart(TimeOf(track, place), TimeOf(track, next)))) {
        return false;
    }
    if (m_good.size() < 2) {
        return StandsOut(track, place, next);
    }
    const int64_t before = TimeOf(track, m_good[m_good.size() - 2]);
    return TimeOf(track, next) >= before &&
           LeavesRoom(track, before, TimeOf(track, place), TimeOf(track, next));
}

/// Whether the frame at @p place is earlier than the one before it because its time is damaged.
bool TimeCheck::IsLow(const Track& track, size_t before, size_t place) const {
    if (Confirmed(track, place, TimeApart(TimeOf(track, before), TimeOf(track, place)))) {
        return false;
    }
    if (place + 1 == track.frames.size()) {
        return StandsOut(track, place, before);
    }
    const int64_t after = TimeOf(track, place + 1);
    return after >= TimeOf(track, before) &&
           LeavesRoom(track, TimeOf(track, before), TimeOf(track, place), after);
}

/// Whether a frame that is out of order is missing between its neighbours: they are two paces apart, or it is far from
/// both. Else the clock was set by less than a pace.
bool TimeCheck::LeavesRoom(const Track& track, int64_t before, int64_t time, int64_t after) const {
    const int64_t away = std::min(TimeApart(before, time), TimeApart(time, after));
    return TimeBetween(before, after) >= track.pace + track.pace / 2 ||
           away > std::max(kShortestJump, kJumpPaces * track.pace);
}

/// How far the track is from its pace where a frame is left out.
int64_t TimeCheck::DisorderWithout(const Track& track, size_t place) const {
    if (place == 0 || place + 1 >= track.frames.size()) {
        return 0;
    }
    return TimeApart(TimeBetween(TimeOf(track, place - 1), TimeOf(track, place + 1)), 2 * track.pace);
}

/// Whether the index bears out the time of a frame. Of those that are no key frames it has the seconds alone.
/// @param apart how far the time is from what is expected
bool TimeCheck::Confirmed(const Track& track, size_t place, int64_t apart) const {
    const FoundFrame& frame = At(track, place);
    return m_facts.ListsKeyFrame(frame.channel, frame.offset, frame.time) ||
           (apart > kMicros && (m_facts.ListsStart(frame.channel, frame.offset, frame.Seconds()) ||
                                m_facts.ListsEnd(frame.channel, frame.End(), frame.Seconds())));
}

/// The first and the last frame of a track have one neighbour in it; other tracks must tell, or the index.
void TimeCheck::CheckEnds(const Track& track) {
    const size_t count = track.frames.size();
    const int64_t distance = count == 1 ? Distance(track.frames.front()).value_or(0) : 0;
    if (distance > kGap && !Confirmed(track, 0, distance)) {
        m_good.clear();
        m_odd.push_back(0);
    }
    if (m_good.size() < 2) {
        return;
    }
    if (m_good.front() == 0 && FirstIsEarly(track)) {
        m_odd.push_back(0);
        m_good.erase(m_good.begin());
    }
    if (m_good.size() >= 2 && m_good.back() + 1 == count && LastIsLate(track)) {
        m_odd.push_back(m_good.back());
        m_good.pop_back();
    }
}

bool TimeCheck::FirstIsEarly(const Track& track) const {
    const int64_t step = TimeApart(TimeOf(track, 0), TimeOf(track, m_good[1]));
    if (FarOff(track.frames[0])) {
        return !Confirmed(track, 0, step);
    }
    if (!Jumps(track, step) || Confirmed(track, 0, step)) {
        return false;
    }
    const bool alone = !Distance(track.frames[0]);
    return alone ? At(track, 0).Seconds() < m_facts.Of().start : StandsOut(track, 0, m_good[1]);
}

bool TimeCheck::LastIsLate(const Track& track) const {
    const size_t last = m_good.back();
    const size_t before = m_good[m_good.size() - 2];
    const int64_t step = TimeApart(TimeOf(track, before), TimeOf(track, last));
    if (FarOff(track.frames[last])) {
        return !Confirmed(track, last, step);
    }
    if (!Jumps(track, step) || Confirmed(track, last, step)) {
        return false;
    }
    const bool alone = !Distance(track.frames[last]);
    return alone ? step > kGap : StandsOut(track, last, before);
}

/// Whether a step is longer than usual.
bool TimeCheck::Jumps(const Track& track, int64_t step) const {
    return step >
           (track.regular ? track.pace + track.pace / 2 : std::max(kShortestJump, kJumpPaces * track.pace));
}

/// How far a frame's time is from that of the media of other tracks beside it. Nothing where there are none.
std::optional<int64_t> TimeCheck::Distance(size_t entry) const {
    std::optional<int64_t> distance;
    for (const std::optional<size_t>& other : {m_tracks.OtherBefore(entry), m_tracks.OtherAfter(entry)}) {
        if (other) {
            const int64_t apart = TimeApart(m_frames[entry].time, m_frames[*other].time);
            distance = std::min(apart, distance.value_or(apart));
        }
    }
    return distance;
}

/// Whether a frame is further from the other tracks than the one beside it in its own. Where there is no other track,
/// the answer is yes.
bool TimeCheck::StandsOut(const Track& track, size_t place, size_t beside) const {
    const std::optional<int64_t> distance = Distance(track.frames[place]);
    const int64_t usual = Distance(track.frames[beside]).value_or(0);
    return !distance || *distance / 2 - track.pace / 2 > usual;
}

/// Gives damaged frames a time between their neighbours.
void TimeCheck::Mend(const Track& track) {
    for (const size_t place : m_odd) {
        FoundFrame& frame = m_frames[track.frames[place]];
        m_found.NoteDamaged(frame);
        const auto after = std::lower_bound(m_good.begin(), m_good.end(), place);
        const bool hasAfter = after != m_good.end();
        const bool hasBefore = after != m_good.begin();
        if (hasBefore) {
            const int64_t before = TimeOf(track, *std::prev(after));
            const int64_t step =
                hasAfter ? std::max<int64_t>(0, TimeBetween(before, TimeOf(track, *after))) / 2 : track.pace;
            frame.time = TimeAfter(before, step);
        } else if (hasAfter) {
            frame.time = TimeAfter(TimeOf(track, *after), -track.pace);
        }
    }
}

/// Whether the time of a frame that is no media lies near that of the media beside it, as far as there is any.
bool TimeCheck::NearNeighbours(size_t entry) const {
    return Distance(entry).value_or(0) <= kOtherReach;
}

} // namespace recordings
