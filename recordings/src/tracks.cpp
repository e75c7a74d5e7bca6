#include "tracks.h"

#include <algorithm>

namespace recordings {

namespace {

/// With fewer steps from frame to frame there is no pace.
constexpr size_t kFewestSteps = 2;

/// What takes longer than an hour from frame to frame has no pace.
constexpr int64_t kLongestPace = 3600 * kMicros;

/// A track is regular when three of four steps, and four steps at least, lie within a quarter of the pace.
constexpr size_t kFewestRegularSteps = 4;

/// A track is steady when all steps, and four at least, lie within a tenth of the pace: but for two, as a frame that is
/// missing, or one too many, changes no more.
constexpr size_t kUnsteadySteps = 2;
constexpr size_t kFewestSteadySteps = 4;

} // namespace

Tracks::Tracks(const std::vector<FoundFrame>& frames) {
    for (size_t i = 0; i < m_tracks.size(); ++i) {
        m_tracks[i].channel = static_cast<uint32_t>(i / 2);
        m_tracks[i].audio = i % 2 != 0;
    }
    for (size_t entry = 0; entry < frames.size(); ++entry) {
        if (frames[entry].IsMedia()) {
            m_tracks[Of(frames[entry])].frames.push_back(entry);
        }
    }
    for (Track& track : m_tracks) {
        FindPace(frames, track);
    }
    FindNeighbours(frames);
}

void Tracks::FindPace(const std::vector<FoundFrame>& frames, Track& track) {
    std::vector<int64_t> steps;
    for (size_t i = 1; i < track.frames.size(); ++i) {
        const int64_t step = TimeBetween(frames[track.frames[i - 1]].time, frames[track.frames[i]].time);
        if (step > 0 && step <= kLongestPace) {
            steps.push_back(step);
        }
    }
    if (steps.size() < kFewestSteps) {
        return;
    }
    const auto middle = steps.begin() + static_cast<ptrdiff_t>((steps.size() - 1) / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    const int64_t pace = *middle;
    track.pace = pace;
    const auto near = [&](int64_t part) {
        return static_cast<size_t>(std::count_if(steps.begin(), steps.end(), [pace, part](int64_t step) {
            return TimeApart(step, pace) <= pace / part;
        }));
    };
    const size_t regular = near(4);
    track.regular = steps.size() >= kFewestRegularSteps && regular >= steps.size() - steps.size() / 4;
    const size_t steady = near(10);
    track.steady = steady >= kFewestSteadySteps && steady + kUnsteadySteps + 1 >= track.frames.size();
}

void Tracks::FindNeighbours(const std::vector<FoundFrame>& frames) {
    // The last media frame that was passed, and the last one of another track than that.
    struct Passed {
        uint32_t last = kNone;
        uint32_t other = kNone;
    };
    const auto pass = [&frames](Passed& passed, size_t entry, uint32_t& neighbour) {
        const bool sameTrack =
            passed.last != kNone && frames[entry].IsMedia() && Of(frames[passed.last]) == Of(frames[entry]);
        neighbour = sameTrack ? passed.other : passed.last;
        if (frames[entry].IsMedia()) {
            passed.other = sameTrack ? passed.other : passed.last;
            passed.last = static_cast<uint32_t>(entry);
        }
    };
    m_before.assign(frames.size(), kNone);
    m_after.assign(frames.size(), kNone);
    Passed before;
    for (size_t entry = 0; entry < frames.size(); ++entry) {
        pass(before, entry, m_before[entry]);
    }
    Passed after;
    for (size_t entry = frames.size(); entry-- > 0;) {
        pass(after, entry, m_after[entry]);
    }
}

} // namespace recordings
