#include "index_check.h"

#include <algorithm>
#include <array>

#include "event_payload.h"

namespace recordings {

IndexCheck::IndexCheck(FoundFrames& found, const BlockFacts& facts, FrameArea& area, IndexTotals& totals)
    : m_found(found), m_facts(facts), m_index(*facts.Index()), m_area(area), m_totals(totals) {}

/// Whether a place lies where something is damaged: then it is no wonder that nothing was found there.
bool IndexCheck::Explained(uint32_t place) const {
    const auto& stretches = m_found.damaged;
    const auto before = static_cast<size_t>(
        std::upper_bound(stretches.begin(), stretches.end(), place,
                         [](uint32_t wanted, const Stretch& each) { return wanted < each.from; }) -
        stretches.begin());
    const bool damaged = before != 0 && place < stretches[before - 1].to;
    const bool missing = m_found.missing && place >= m_found.missing->from;
    return damaged || missing || m_area.AfterUnreadable(place) != place;
}

bool IndexCheck::Useless() const {
    // Tables lie one after the other: one wrong count makes nonsense of all that follow, segments first of all.
    struct Tally {
        size_t good = 0;
        size_t bad = 0;
    };
    Tally segments;
    Tally keyFrames;
    const auto count = [&](Tally& tally, uint32_t place, bool found) {
        tally.good += found ? 1u : 0u;
        tally.bad += found || Explained(place) ? 0u : 1u;
    };
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        for (const IndexedSegment& segment : m_index.segments[channel]) {
            count(segments, segment.startOffset, MediaAt(channel, segment.startOffset).has_value());
            count(segments, segment.endOffset, MediaEndingAt(channel, segment.endOffset).has_value());
        }
        for (const IndexedKeyFrame& key : m_index.keyFrames[channel]) {
            count(keyFrames, key.offset, MediaAt(channel, key.offset).has_value());
        }
    }
    return segments.bad > segments.good || segments.bad + keyFrames.bad > segments.good + keyFrames.good;
}

void IndexCheck::Run() {
    TakeTimes();
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        CheckSegments(channel);
        CheckKeyFrames(channel);
    }
    ReportUnlisted();
    CheckEvents();
}

// ---- segments

std::optional<size_t> IndexCheck::MediaAt(uint32_t channel, uint32_t offset) const {
    const std::optional<size_t> entry = m_found.EntryAt(offset);
    const bool found = entry && m_found.frames[*entry].IsMedia() && m_found.frames[*entry].channel == channel;
    return found ? entry : std::nullopt;
}

/// The frame that ends where the index has a segment end.
std::optional<size_t> IndexCheck::MediaEndingAt(uint32_t channel, uint32_t end) const {
    const auto& frames = m_found.frames;
    for (const uint64_t wanted : {uint64_t{end}, uint64_t{end} + kRebuiltEndBefore}) {
        const auto at = std::lower_bound(frames.begin(), frames.end(), wanted,
                                         [](const FoundFrame& each, uint64_t of) { return each.End() < of; });
        if (at != frames.end() && at->End() == wanted && at->IsMedia() && at->channel == channel) {
            return static_cast<size_t>(at - frames.begin());
        }
    }
    return std::nullopt;
}

void IndexCheck::CheckSegments(uint32_t channel) {
    for (const IndexedSegment& segment : m_index.segments[channel]) {
        const std::optional<size_t> first = MediaAt(channel, segment.startOffset);
        const std::optional<size_t> last = MediaEndingAt(channel, segment.endOffset);
        // Where every frame is there, a place at which none is must be wrong.
        if ((!first || !last) && m_totals.Complete(channel) && m_found.Unbroken()) {
            m_totals.NoteIndex(channel, m_totals.Whole() ? Severity::Note : Severity::Loss);
        }
        CheckEdge(first, channel, segment.start);
        CheckEdge(last, channel, segment.end);
    }
}

/// Holds the second of the first or the last frame of a segment against that of the index.
void IndexCheck::CheckEdge(std::optional<size_t> entry, uint32_t channel, int64_t seconds) {
    if (!entry) {
        return;
    }
    FoundFrame& frame = m_found.frames[*entry];
    if (frame.Seconds() == seconds || frame.damaged) {
        return;
    }
    if (m_facts.ListsKeyFrame(channel, frame.offset, frame.time)) {
        m_totals.NoteIndex(channel, Severity::Note); // two against one
    } else {
        m_found.NoteDamaged(frame); // one of the two is wrong, and nothing tells which
    }
}

// ---- key frames

void IndexCheck::CheckKeyFrames(uint32_t channel) {
    for (const IndexedKeyFrame& key : m_index.keyFrames[channel]) {
        CheckKeyFrame(channel, key);
    }
}

void IndexCheck::CheckKeyFrame(uint32_t channel, const IndexedKeyFrame& key) {
    const std::optional<size_t> entry = m_found.EntryAt(key.offset);
    if (!entry) {
        if (!Explained(key.offset)) {
            const bool elsewhere = Sure() && KeyFrameOfTime(channel, key.time);
            m_totals.NoteIndex(channel, elsewhere ? Severity::Note : Severity::Loss);
        }
        return;
    }
    FoundFrame& frame = m_found.frames[*entry];
    const bool ofChannel = frame.channel == channel;
    const bool ofTime = frame.time == key.time;
    if (ofChannel && frame.type == kKeyFrame) {
        m_listed[*entry] = true;
        CheckTimeOfKeyFrame(frame, key);
    } else if (ofTime && (ofChannel || frame.type == kKeyFrame)) {
        m_listed[*entry] = true;
        m_found.NoteDamaged(frame);
        frame.type = kKeyFrame;
        frame.channel = channel;
    } else {
        const bool elsewhere = Sure() && KeyFrameOfTime(channel, key.time);
        m_totals.NoteIndex(channel, elsewhere ? Severity::Note : Severity::Loss);
    }
}

void IndexCheck::CheckTimeOfKeyFrame(FoundFrame& frame, const IndexedKeyFrame& key) {
    if (frame.time == key.time) {
        return;
    }
    if (frame.damaged) {
        frame.time = key.time; // the index knows better than its neighbours
        return;
    }
    const auto entry = static_cast<size_t>(&frame - m_found.frames.data());
    if (!Fits(entry, key.time)) {
        m_totals.NoteIndex(frame.channel, m_totals.Whole() ? Severity::Note : Severity::Loss);
        return;
    }
    m_found.NoteDamaged(frame);
}

/// Key frames that the index does not name: one is a frame whose type was changed; several are names that are gone.
void IndexCheck::ReportUnlisted() {
    std::array<std::vector<size_t>, kChannels> unlisted;
    for (size_t entry = 0; entry < m_found.frames.size(); ++entry) {
        const FoundFrame& frame = m_found.frames[entry];
        if (frame.type == kKeyFrame && !m_listed[entry] && !frame.damaged &&
            !m_facts.ListsTimeOfKeyFrame(frame.channel, frame.time)) {
            unlisted.at(frame.channel).push_back(entry);
        }
    }
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        const std::vector<size_t>& entries = unlisted.at(channel);
        if (entries.size() == 1) {
            m_found.NoteDamaged(m_found.frames[entries.front()]);
        } else if (!entries.empty()) {
            m_totals.NoteIndex(channel, Sure() ? Severity::Note : Severity::Loss);
        }
    }
}

// ---- events

void IndexCheck::CheckEvents() {
    for (const IndexedEvent& event : m_index.events) {
        CheckEvent(event);
    }
    for (size_t entry = 0; entry < m_found.frames.size(); ++entry) {
        const FoundFrame& frame = m_found.frames[entry];
        if (frame.type != kEventFrame || m_listed[entry] || frame.damaged) {
            continue;
        }
        const std::optional<EventHead_t> head = EventAt(m_area, frame);
        if (head && head->Indexed == 1) {
            m_totals.NoteIndex(std::nullopt, Sure() ? Severity::Note : Severity::Loss);
        }
    }
}

void IndexCheck::CheckEvent(const IndexedEvent& event) {
    const std::optional<size_t> entry = m_found.EntryAt(event.offset);
    if (!entry) {
        if (!Explained(event.offset)) {
            const bool elsewhere = Sure() && EventOfTime(event.time);
            m_totals.NoteIndex(std::nullopt, elsewhere ? Severity::Note : Severity::Loss);
        }
        return;
    }
    FoundFrame& frame = m_found.frames[*entry];
    if (frame.type != kEventFrame && frame.time != event.time) {
        m_totals.NoteIndex(std::nullopt, Severity::Loss);
        return;
    }
    m_listed[*entry] = true;
    if (frame.type != kEventFrame) {
        m_found.NoteDamaged(frame);
        frame.type = kEventFrame;
    } else if (frame.time != event.time) {
        m_found.NoteDamaged(frame); // one of the two is wrong, and nothing tells which
    }
    // The type bits stand in the index and in the frame.
    const std::optional<EventHead_t> head = EventAt(m_area, frame);
    if (head && head->type != event.type) {
        m_totals.NoteIndex(std::nullopt, Severity::Loss);
    }
}

// ---- times

void IndexCheck::TakeTimes() {
    m_listed.assign(m_found.frames.size(), false);
    for (const FoundFrame& frame : m_found.frames) {
        if (frame.type == kKeyFrame) {
            m_keyFrameTimes.emplace_back(frame.channel, frame.time);
        } else if (frame.type == kEventFrame) {
            m_eventTimes.push_back(frame.time);
        }
    }
    std::sort(m_keyFrameTimes.begin(), m_keyFrameTimes.end());
    std::sort(m_eventTimes.begin(), m_eventTimes.end());
}

bool IndexCheck::KeyFrameOfTime(uint32_t channel, int64_t time) const {
    return std::binary_search(m_keyFrameTimes.begin(), m_keyFrameTimes.end(), std::make_pair(channel, time));
}

bool IndexCheck::EventOfTime(int64_t time) const {
    return std::binary_search(m_eventTimes.begin(), m_eventTimes.end(), time);
}

/// Whether a frame may have a time: it lies between those of its neighbours in its track.
bool IndexCheck::Fits(size_t entry, int64_t time) {
    const auto& frames = m_found.frames;
    if (!m_tracks) {
        m_tracks.emplace(frames);
    }
    const std::vector<size_t>& track = m_tracks->All().at(Tracks::Of(frames[entry])).frames;
    const auto place =
        static_cast<size_t>(std::lower_bound(track.begin(), track.end(), entry) - track.begin());
    const bool afterBefore = place == 0 || time >= frames[track[place - 1]].time;
    return afterBefore && (place + 1 >= track.size() || time <= frames[track[place + 1]].time);
}

} // namespace recordings
