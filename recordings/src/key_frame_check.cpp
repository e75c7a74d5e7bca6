#include "key_frame_check.h"

#include <algorithm>
#include <optional>

namespace recordings {

namespace {

/// Of the payloads that tell something, so many must confirm their types for each that does not.
constexpr size_t kWitnesses = 8;

/// Cameras send key frames every few seconds.
constexpr int64_t kLongestDistance = 600 * kMicros;

/// Key frames that make a distance.
constexpr size_t kFewestKeyFrames = 5;

/// Pictures that make a size.
constexpr size_t kFewestPictures = 4;

} // namespace

KeyFrameCheck::KeyFrameCheck(FoundFrames& found, FrameArea& area, const KeyFrameGrids& grids)
    : m_found(found), m_frames(found.frames), m_area(area), m_grids(grids) {}

void KeyFrameCheck::Run(const Tracks& tracks) {
    for (const Track& track : tracks.All()) {
        if (!track.audio && !track.frames.empty()) {
            CheckPayloads(track);
            CheckDistances(track);
        }
    }
}

void KeyFrameCheck::CheckPayloads(const Track& track) {
    size_t right = 0;
    std::vector<size_t> wrong;
    for (const size_t entry : track.frames) {
        const PictureKind kind = PictureKindAt(m_area, m_frames[entry]);
        const bool key = m_frames[entry].type == kKeyFrame;
        if (kind == (key ? PictureKind::Key : PictureKind::Other)) {
            ++right;
        } else if (kind != PictureKind::Unknown) {
            wrong.push_back(entry);
        }
    }
    if (right < wrong.size() * kWitnesses) {
        return; // of an encoding that only looks familiar
    }
    for (const size_t entry : wrong) {
        FoundFrame& frame = m_frames[entry];
        m_found.NoteDamaged(frame);
        frame.type = frame.type == kKeyFrame ? kPictureFrame : kKeyFrame;
    }
}

/// Where key frames come at one distance, a single one that comes between, or does not come, is damaged. An encoder that
/// sends one when it is told to begins to count again: then more than one is off.
void KeyFrameCheck::CheckDistances(const Track& track) {
    std::vector<size_t> keys;
    for (const size_t entry : track.frames) {
        if (m_frames[entry].type == kKeyFrame) {
            keys.push_back(entry);
        }
    }
    const int64_t distance = track.regular ? UsualDistance(track, keys) : 0;
    if (distance <= track.pace + track.pace / 2) {
        return;
    }
    // Counted from the last key frame of the block before, if the recording goes on from there; else from one of the
    // first in this one: one of them may be wrong.
    const std::optional<int64_t>& last = m_grids.at(track.channel).last;
    const int64_t begin = m_frames[track.frames.front()].time;
    std::vector<int64_t> anchors;
    if (last && *last < begin && TimeBetween(*last, begin) <= distance + track.pace) {
        anchors.push_back(*last);
    } else {
        for (size_t i = 0; i < std::min<size_t>(keys.size(), 2); ++i) {
            anchors.push_back(m_frames[keys[i]].time);
        }
    }
    std::optional<std::vector<size_t>> off;
    for (const int64_t anchor : anchors) {
        std::vector<size_t> each = OffGrid(track, anchor, distance);
        off = !off || each.size() < off->size() ? each : *off;
    }
    if (off && off->size() == 1 && PictureKindAt(m_area, m_frames[off->front()]) == PictureKind::Unknown &&
        HasSizeOfOthers(track, off->front())) {
        m_found.NoteDamaged(m_frames[off->front()]);
    }
}

/// Whether a frame that is marked as a key frame has the size of other pictures, or the other way round. An encoder may
/// send a key frame when it is told to, or leave one out; but each kind has its size.
bool KeyFrameCheck::HasSizeOfOthers(const Track& track, size_t entry) const {
    int64_t largestPicture = 0;
    int64_t smallestKey = UINT32_MAX;
    size_t pictures = 0;
    for (const size_t each : track.frames) {
        const FoundFrame& frame = m_frames[each];
        if (each != entry && frame.type == kKeyFrame) {
            smallestKey = std::min<int64_t>(smallestKey, frame.size);
        } else if (each != entry) {
            largestPicture = std::max<int64_t>(largestPicture, frame.size);
            ++pictures;
        }
    }
    if (pictures < kFewestPictures || largestPicture >= smallestKey) {
        return false;
    }
    const int64_t size = m_frames[entry].size;
    const bool key = m_frames[entry].type == kKeyFrame;
    if (key && smallestKey == UINT32_MAX) {
        return false; // no other one tells how large key frames are
    }
    return key ? size - largestPicture < smallestKey - size : size > largestPicture + largestPicture / 8;
}

/// The distance in time that key frames keep: that of the block before, the one that the block's head states, or the one
/// that most of them keep.
/// @return 0 when they keep none
int64_t KeyFrameCheck::UsualDistance(const Track& track, const std::vector<size_t>& keys) const {
    const KeyFrameGrid& grid = m_grids.at(track.channel);
    if (grid.distance != 0) {
        return grid.distance;
    }
    std::vector<int64_t> distances;
    for (size_t i = 1; i < keys.size(); ++i) {
        distances.push_back(TimeBetween(m_frames[keys[i - 1]].time, m_frames[keys[i]].time));
    }
    const auto keeping = [&](int64_t usual) {
        return static_cast<size_t>(std::count_if(distances.begin(), distances.end(), [&](int64_t each) {
            return TimeApart(each, usual) < track.pace / 2;
        }));
    };
    const int64_t stated = grid.frames * track.pace;
    const size_t keepingStated = stated != 0 ? keeping(stated) + keeping(2 * stated) : 0;
    if (keepingStated != 0 && 4 * keepingStated >= distances.size()) {
        return stated;
    }
    if (keys.size() < kFewestKeyFrames) {
        return 0;
    }
    std::vector<int64_t> sorted = distances;
    std::sort(sorted.begin(), sorted.end());
    const int64_t usual = sorted[sorted.size() / 2];
    // One key frame too many, or too few, changes two distances.
    const bool kept =
        usual < kLongestDistance && keeping(usual) + 2 + distances.size() / 4 >= distances.size();
    return kept ? usual : 0;
}

/// Key frames that come between, and frames that should be key frames, counted from an anchor in both directions.
std::vector<size_t> KeyFrameCheck::OffGrid(const Track& track, int64_t anchor, int64_t distance) const {
    const auto after =
        std::upper_bound(track.frames.begin(), track.frames.end(), anchor,
                         [this](int64_t wanted, size_t entry) { return wanted < m_frames[entry].time; });
    const auto place = static_cast<size_t>(after - track.frames.begin());
    std::vector<size_t> off;
    OffGridFrom(track, place, true, anchor, distance, off);
    OffGridFrom(track, place, false, anchor, distance, off);
    return off;
}

/// @param place of the first frame that is looked at when it goes forwards, and after it when it goes backwards
void KeyFrameCheck::OffGridFrom(const Track& track, size_t place, bool forwards, int64_t anchor,
                                int64_t distance, std::vector<size_t>& off) const {
    const size_t count = forwards ? track.frames.size() - place : place;
    int64_t next = TimeAfter(anchor, forwards ? distance : -distance);
    for (size_t i = 0; i < count; ++i) {
        const size_t entry = track.frames[forwards ? place + i : place - 1 - i];
        const FoundFrame& frame = m_frames[entry];
        const bool key = frame.type == kKeyFrame;
        const bool due = TimeApart(frame.time, next) < track.pace / 2;
        const bool passed = forwards ? frame.time > next : frame.time < next;
        if (due) {
            if (!key) {
                off.push_back(entry);
            }
            next = TimeAfter(key ? frame.time : next, forwards ? distance : -distance);
        } else if (key && passed) {
            next = TimeAfter(frame.time, forwards ? distance : -distance); // the one due is lost
        } else if (key && frame.time != anchor) {
            off.push_back(entry);
        }
    }
}

} // namespace recordings
