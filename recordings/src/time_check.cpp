#include "time_check.h"

#include <algorithm>
#include <functional>
#include <map>

namespace recordings {

namespace {

constexpr int64_t kStale = disk_access::kStaleSeconds;

/// Streams of one recording may be as far apart, and clocks be set by as much, without a word.
constexpr int64_t kShortestJump = kMicros;

/// Frames before and after one whose times are looked at: when the clock is set, some have the old time, some the new.
constexpr size_t kAround = 16;

/// Steps of a track that tell how long its steps are.
constexpr size_t kFewestSteps = 6;

/// A frame that is no media, and whose time is further than this from the media beside it, is damaged. Events may be
/// written some time after they happened.
constexpr int64_t kOtherReach = 3600 * kMicros;

/// Between two frames further apart than this, the recorder begins another record segment.
constexpr int64_t kSegmentGap = 16 * kMicros;

/// Finds what the ring's previous turn has left at the end of a block.
class LeftOver {
public:
    LeftOver(const std::vector<FoundFrame>& frames, const BlockFacts& facts)
        : m_frames(frames), m_facts(facts) {}

    /// The entry of its first frame.
    size_t First() const {
        size_t first = m_frames.size();
        while (first != 0 && m_frames[first - 1].offset >= m_facts.MediaEnd() &&
               (IsStale(m_frames[first - 1]) || !m_frames[first - 1].IsMedia())) {
            --first;
        }
        // What is no media is left over too, unless frames of its type have any time, or that of the block.
        while (first != m_frames.size() && !m_frames[first].IsMedia() && !KeepsTime(first)) {
            ++first;
        }
        return first;
    }

private:
    /// Where the block's head is damaged, its first frame tells when it began.
    bool IsStale(const FoundFrame& frame) const {
        return m_facts.IsStale(frame.Seconds()) &&
               (m_facts.Of().headSound || frame.Seconds() + kStale < m_frames.front().Seconds());
    }

    /// Whether a frame at the end of the block is stale, and no other of its type was before.
    bool KeepsTime(size_t entry) const {
        return IsStale(m_frames[entry]) &&
               std::none_of(m_frames.begin(), m_frames.begin() + static_cast<ptrdiff_t>(entry),
                            [&](const FoundFrame& frame) {
                                return frame.type == m_frames[entry].type && IsStale(frame);
                            });
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
    const bool single = first + 1 == frames.size() && first != 0;
    if (single && frames.back().time < 0) {
        found.NoteDamaged(frames.back()); // no clock ever goes there
        return;
    }
    // Nor are frames left over that are newer than what the earlier turn has left in the next block: the clock was set
    // back. In the ring's first turn there is no such block. But the disk may have been formatted again without being
    // erased, so that old frames are no proof of a clock that was set.
    const std::optional<int64_t> next = first == 0 ? std::nullopt : facts.NextInRing();
    if (next && frames[first].Seconds() > *next + kStale) {
        return;
    }
    const uint32_t end = frames[first].offset;
    frames.erase(frames.begin() + static_cast<ptrdiff_t>(first), frames.end());
    auto& damaged = found.damaged;
    damaged.erase(std::find_if(damaged.begin(), damaged.end(),
                               [end](const Stretch& stretch) { return stretch.from >= end; }),
                  damaged.end());
    found.lostAtEnd = !damaged.empty() && damaged.back().to == end;
    auto& problems = found.problems;
    problems.erase(std::remove_if(problems.begin(), problems.end(),
                                  [end](const Problem& problem) { return problem.offset >= end; }),
                   problems.end());
}

TimeCheck::TimeCheck(FoundFrames& found, const BlockFacts& facts, const Tracks& tracks)
    : m_found(found), m_frames(found.frames), m_facts(facts), m_tracks(tracks), m_usual(UsualOutside()) {}

/// The largest distance of a frame from the times around it, but for two that may be damaged.
int64_t TimeCheck::UsualOutside() const {
    constexpr size_t kLeftOut = 2;
    std::vector<int64_t> largest; // in falling order
    for (size_t entry = 0; entry < m_frames.size(); ++entry) {
        const int64_t distance = m_frames[entry].IsMedia() ? Outside(entry).value_or(0) : 0;
        if (largest.size() <= kLeftOut || distance > largest.back()) {
            largest.insert(std::upper_bound(largest.begin(), largest.end(), distance, std::greater<>()),
                           distance);
            largest.resize(std::min(largest.size(), kLeftOut + 1));
        }
    }
    return largest.size() > kLeftOut ? largest.back() : INT64_MAX;
}

void TimeCheck::Run() {
    for (const Track& track : m_tracks.All()) {
        CheckTrack(track);
    }
    // Types that nobody knows may have any time, unless most of their frames keep to that of the media.
    std::map<uint32_t, int64_t> nearer; // by type: frames that do, less those that do not
    for (size_t entry = 0; entry < m_frames.size(); ++entry) {
        if (!m_frames[entry].IsMedia()) {
            nearer[m_frames[entry].type] += NearMedia(entry) ? 1 : -1;
        }
    }
    for (size_t entry = 0; entry < m_frames.size(); ++entry) {
        FoundFrame& frame = m_frames[entry];
        const bool keepsTime = frame.type == kEventFrame || (!frame.IsMedia() && nearer[frame.type] > 0);
        if (keepsTime && !NearMedia(entry) && !m_facts.ListsEvent(frame.offset, frame.time)) {
            m_found.NoteDamaged(frame);
        }
    }
}

void TimeCheck::CheckTrack(const Track& track) {
    m_good.clear();
    m_odd.clear();
    FindLongestSteps(track);
    for (size_t place = 0; place < track.frames.size(); ++place) {
        (IsOdd(track, place) ? m_odd : m_good).push_back(place);
    }
    Mend(track);
}

bool TimeCheck::IsOdd(const Track& track, size_t place) const {
    const int64_t seconds = At(track, place).Seconds();
    if (seconds < 0 || seconds > UINT32_MAX) {
        return true; // no clock of a recorder goes there
    }
    const int64_t outside = Outside(track.frames[place]).value_or(0);
    const bool farOff = outside > kShortestJump && (outside - kShortestJump) / 2 > m_usual;
    const int64_t apart = farOff ? outside : place == 0 ? BeforeTheRest(track) : OutOfOrder(track, place);
    return apart != 0 && !Confirmed(track, place, apart);
}

/// How far the time of a frame is from all those of other tracks around it on the disk. Nothing where there are none on
/// one side: the clock may have been set there.
std::optional<int64_t> TimeCheck::Outside(size_t entry) const {
    const std::optional<size_t> before = m_tracks.OtherBefore(entry);
    const std::optional<size_t> after = m_tracks.OtherAfter(entry);
    if (!before || !after) {
        return std::nullopt;
    }
    int64_t earliest = std::min(m_frames[*before].time, m_frames[*after].time);
    int64_t latest = std::max(m_frames[*before].time, m_frames[*after].time);
    const size_t own = Tracks::Of(m_frames[entry]);
    const size_t end = std::min(m_frames.size(), entry + kAround + 1);
    for (size_t i = entry - std::min(entry, kAround); i < end; ++i) {
        const FoundFrame& frame = m_frames[i];
        if (i != entry && frame.IsMedia() && (!m_frames[entry].IsMedia() || Tracks::Of(frame) != own)) {
            earliest = std::min(earliest, frame.time);
            latest = std::max(latest, frame.time);
        }
    }
    const int64_t time = m_frames[entry].time;
    return time < earliest ? TimeBetween(time, earliest) : time > latest ? TimeBetween(latest, time) : 0;
}

/// How far the block's very first frame is from the start that the block's head states, when the next one of its track is
/// near to it; else 0.
int64_t TimeCheck::BeforeTheRest(const Track& track) const {
    const int64_t start = int64_t{m_facts.Of().start} * kMicros;
    const bool told = m_facts.Of().headSound && track.frames.size() > 1 && track.frames.front() == 0 &&
                      TimeApart(TimeOf(track, 1), start) <= kStale * kMicros;
    const int64_t apart = TimeApart(TimeOf(track, 0), start);
    return told && apart > kStale * kMicros ? apart : 0;
}

/// How far a frame is from the stretch between its neighbours in its track, when nothing but damage explains it; else 0.
/// When the clock was set back between two frames, one of them leaves that stretch too. But then the other steps of the
/// track are as long, or its pace is broken.
int64_t TimeCheck::OutOfOrder(const Track& track, size_t place) const {
    if (place + 1 == track.frames.size()) {
        return 0;
    }
    const int64_t before = TimeOf(track, place - 1);
    const int64_t time = TimeOf(track, place);
    const int64_t after = TimeOf(track, place + 1);
    if (before > after || (before <= time && time <= after)) {
        return 0;
    }
    const int64_t away = time < before ? TimeBetween(time, before) : TimeBetween(after, time);
    const int64_t both = TimeBetween(before, after);
    if (track.steady && TimeApart(both, 2 * track.pace) <= track.pace / 4) {
        return away;
    }
    if (away > kSegmentGap && m_facts.InOneSegment(At(track, place - 1).channel, At(track, place - 1).offset,
                                                   At(track, place + 1).offset)) {
        return away;
    }
    const int64_t leap = std::max(TimeBetween(before, time), TimeBetween(time, after));
    const int64_t longest = LongestStepElsewhere(place);
    const bool leaps = longest != 0 && leap > kShortestJump && leap / 2 > longest && both / 2 <= longest;
    return leaps ? away : 0;
}

/// Finds the longest steps of a track: three, since two of them may be those to and from the frame in question.
void TimeCheck::FindLongestSteps(const Track& track) {
    m_steps.clear();
    for (size_t place = 1; place < track.frames.size(); ++place) {
        m_steps.emplace_back(TimeBetween(TimeOf(track, place - 1), TimeOf(track, place)), place);
    }
    const size_t kept = std::min<size_t>(m_steps.size(), 3);
    std::partial_sort(m_steps.begin(), m_steps.begin() + static_cast<ptrdiff_t>(kept), m_steps.end(),
                      std::greater<>());
    m_fewSteps = m_steps.size() < kFewestSteps;
    m_steps.resize(kept);
}

/// The longest step of the track but those to and from a frame; 0 when there are too few to tell.
int64_t TimeCheck::LongestStepElsewhere(size_t place) const {
    const auto elsewhere = std::find_if(m_steps.begin(), m_steps.end(), [place](const auto& step) {
        return step.second != place && step.second != place + 1;
    });
    return m_fewSteps || elsewhere == m_steps.end() ? 0 : elsewhere->first;
}

/// Whether the index confirms the time of a frame. Of those that are no key frames it has the seconds alone.
/// @param apart how far the time is from what is expected
bool TimeCheck::Confirmed(const Track& track, size_t place, int64_t apart) const {
    const FoundFrame& frame = At(track, place);
    return m_facts.ListsKeyFrame(frame.channel, frame.offset, frame.time) ||
           (apart > kMicros && (m_facts.ListsStart(frame.channel, frame.offset, frame.Seconds()) ||
                                m_facts.ListsEnd(frame.channel, frame.End(), frame.Seconds())));
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

/// Whether the time of a frame that is no media lies near that of the media around it, as far as there is any.
bool TimeCheck::NearMedia(size_t entry) const {
    return Outside(entry).value_or(0) <= kOtherReach;
}

} // namespace recordings
