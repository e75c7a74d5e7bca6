#include "index_totals.h"

#include <algorithm>
#include <utility>

#include "format/index_tables.h"

namespace recordings {

namespace {

/// Where a length swallows the next frame of its channel, 24 bytes more are payload, and a head that counts 20 is gone: the
/// index counts 4 bytes less. No more than this for several of them.
constexpr int64_t kSwallowedMost = 64;

} // namespace

IndexTotals::IndexTotals(FoundFrames& found, const BlockFacts& facts)
    : m_found(found), m_facts(facts), m_index(*facts.Index()) {
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        for (const IndexedSegment& segment : m_index.segments[channel]) {
            m_indexed[channel] += segment.bytes;
        }
    }
    Count();
}

void IndexTotals::Count() {
    m_payload = {};
    m_frames = {};
    for (const FoundFrame& frame : m_found.frames) {
        if (frame.IsMedia()) {
            m_payload[frame.channel] += frame.size;
            ++m_frames[frame.channel];
        }
    }
    m_headBytes = HeadBytesCounted();
}

/// Recorders count 20 bytes for a head; some count the 24 that it takes. What makes more channels complete holds, and
/// where that does not tell, what fits the ends of more segments.
uint32_t IndexTotals::HeadBytesCounted() const {
    const auto score = [this](uint32_t headBytes) {
        size_t complete = 0;
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            complete += m_frames[channel] != 0 && DifferenceBy(channel, headBytes) == 0 ? 1u : 0u;
        }
        return std::make_pair(complete, SegmentsEnding(kHeadBytes - headBytes));
    };
    return score(kHeadBytes) > score(disk_access::kHeadBytesInSegment) ? kHeadBytes
                                                                       : disk_access::kHeadBytesInSegment;
}

/// Segments of the index that end so many bytes before a frame does.
size_t IndexTotals::SegmentsEnding(uint32_t before) const {
    size_t count = 0;
    for (const auto& segments : m_index.segments) {
        for (const IndexedSegment& segment : segments) {
            const uint64_t end = uint64_t{segment.endOffset} + before;
            const auto at =
                std::lower_bound(m_found.frames.begin(), m_found.frames.end(), end,
                                 [](const FoundFrame& frame, uint64_t of) { return frame.End() < of; });
            count += at != m_found.frames.end() && at->End() == end ? 1u : 0u;
        }
    }
    return count;
}

/// Bytes that the index counts more than were found.
int64_t IndexTotals::DifferenceBy(uint32_t channel, uint32_t headBytes) const {
    return static_cast<int64_t>(m_indexed[channel]) -
           static_cast<int64_t>(m_payload[channel] + m_frames[channel] * headBytes);
}

bool IndexTotals::AllComplete() const {
    return ChannelsOff() == 0;
}

/// How many channels are not complete.
uint32_t IndexTotals::ChannelsOff() const {
    uint32_t count = 0;
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        count += Complete(channel) ? 0u : 1u;
    }
    return count;
}

void IndexTotals::Run() {
    Count();
    JudgeLength();
    JudgeMissing();
    TakeBackDropped();
    FindMoved();
    ReportEmptyChannels();
    // Of a channel that is complete nothing is lost, whatever is damaged.
    ChannelSet incomplete;
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if (!Complete(channel)) {
            incomplete.Add(channel);
        }
    }
    for (FoundFrame& frame : m_found.frames) {
        frame.lost = frame.lost.And(incomplete);
    }
}

/// Whether no frame can be missing: every byte belongs to one, and the last one ends where the index or an end mark says.
bool IndexTotals::Whole() const {
    if (!m_found.Unbroken() || m_found.frames.empty()) {
        return false;
    }
    const auto last = std::find_if(m_found.frames.rbegin(), m_found.frames.rend(),
                                   [](const FoundFrame& frame) { return frame.IsMedia(); });
    return m_found.marked || (last != m_found.frames.rend() && m_facts.EndsMedia(last->End()));
}

// ---- the end

/// Judges a last frame that reaches further than the index has frames end: its length is wrong, unless its channel is
/// complete as it is.
void IndexTotals::JudgeLength() {
    if (!m_found.lastEnd || Complete(m_found.frames.back().channel)) {
        return;
    }
    FoundFrame& last = m_found.frames.back();
    m_found.NoteDamaged(last);
    const uint32_t size = *m_found.lastEnd - last.offset - kHeadBytes;
    const int64_t exact = last.size + Difference(last.channel); // what makes the channel complete
    last.size = exact == int64_t{size} + kRebuiltEndBefore ? size + kRebuiltEndBefore : size;
    Count();
}

/// Judges what was not found at the end: when every channel is complete without it, the index is wrong.
void IndexTotals::JudgeMissing() {
    if (!m_found.missing) {
        return;
    }
    if (AllComplete() && !m_found.frames.empty()) {
        m_found.missing.reset();
        NoteIndex(std::nullopt, Severity::Note); // what is counted was found
    } else if (!LastIsTooShort()) {
        PassMissing();
    }
    Count();
}

/// Whether what is missing at the end belongs to the last frame: its length is too small.
bool IndexTotals::LastIsTooShort() {
    if (!m_found.lastInDoubt) {
        return false;
    }
    FoundFrame& last = m_found.frames.back();
    const Stretch missing = *m_found.missing;
    for (const uint32_t headBytes : {kHeadBytes, disk_access::kHeadBytesInSegment}) {
        const uint32_t bytes = missing.to - missing.from + kHeadBytes - headBytes;
        if (last.IsMedia() && DifferenceBy(last.channel, headBytes) == bytes &&
            IsUsual(last, last.size + bytes)) {
            last.size += bytes;
            m_found.NoteDamaged(last);
            m_found.missing.reset();
            return true;
        }
    }
    return false;
}

/// Whether a frame may be so large: one like it is.
bool IndexTotals::IsUsual(const FoundFrame& frame, uint32_t size) const {
    return std::any_of(m_found.frames.begin(), m_found.frames.end(), [&](const FoundFrame& each) {
        return each.offset != frame.offset && each.type == frame.type && each.channel == frame.channel &&
               each.size >= size;
    });
}

void IndexTotals::PassMissing() {
    Stretch missing = *m_found.missing;
    m_found.missing.reset();
    m_found.lostAtEnd = true;
    if (m_found.missingUnreadable) {
        return; // that is another problem
    }
    if (m_found.lastInDoubt) {
        missing.from = m_found.frames.back().offset;
        m_found.frames.pop_back();
    }
    m_found.AddDamage(missing.from, missing.to);
}

/// Takes frames back in that were dropped because something lies after them that is no head: when their channel lacks
/// exactly their bytes, it was but their length that was wrong.
void IndexTotals::TakeBackDropped() {
    for (const FoundFrame& dropped : m_found.dropped) {
        const auto stretch =
            std::lower_bound(m_found.damaged.begin(), m_found.damaged.end(), dropped.offset,
                             [](const Stretch& each, uint32_t from) { return each.from < from; });
        const bool lacksIt =
            dropped.IsMedia() && Difference(dropped.channel) == int64_t{dropped.size} + m_headBytes;
        if (!lacksIt || !IsUsual(dropped, dropped.size) || stretch == m_found.damaged.end() ||
            stretch->from != dropped.offset || stretch->to != dropped.End()) {
            continue;
        }
        const auto after = std::find_if(m_found.frames.begin(), m_found.frames.end(),
                                        [&](const FoundFrame& each) { return each.offset > dropped.offset; });
        if (after != m_found.frames.end()) {
            after->afterLoss = dropped.afterLoss;
            after->lost = dropped.lost;
        }
        const auto taken = m_found.frames.insert(after, dropped);
        m_found.NoteDamaged(*taken);
        m_found.damaged.erase(stretch);
        Count();
    }
}

// ---- frames whose type or channel was changed

void IndexTotals::FindMoved() {
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if (Difference(channel) > 0 && !MoveFromChannel(channel) && m_found.Unbroken()) {
            MoveFromOther(channel);
        }
    }
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if (Difference(channel) < 0) {
            MoveOut(channel);
        }
    }
    if (!m_found.Unbroken()) {
        return; // what is missing lies where something is damaged
    }
    // No byte is left for a frame that was not found: what the index counts is wrong. When a channel lacks what another
    // has too much, lengths may be.
    const uint32_t off = ChannelsOff();
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if (!Complete(channel) && m_frames[channel] != 0) {
            const int64_t difference = Difference(channel);
            const bool swallowed = difference < 0 && difference >= -kSwallowedMost;
            NoteIndex(channel, off == 1 && !swallowed && Whole() ? Severity::Note : Severity::Loss);
        }
    }
}

/// Moves a frame of another channel, which has too much by exactly this frame.
bool IndexTotals::MoveFromChannel(uint32_t to) {
    const int64_t bytes = Difference(to);
    for (uint32_t from = 0; from < kChannels; ++from) {
        const std::optional<size_t> entry = Difference(from) == -bytes ? FrameOf(from, bytes) : std::nullopt;
        if (entry) {
            m_found.NoteDamaged(m_found.frames[*entry]);
            m_found.frames[*entry].channel = to;
            Count();
            return true;
        }
    }
    return false;
}

/// Takes a frame that is no media for one of a channel that lacks exactly this frame.
bool IndexTotals::MoveFromOther(uint32_t to) {
    const int64_t bytes = Difference(to);
    std::vector<size_t> own; // frames that fit, of the channel itself and of others
    std::vector<size_t> others;
    for (size_t entry = 0; entry < m_found.frames.size(); ++entry) {
        const FoundFrame& frame = m_found.frames[entry];
        if (!frame.IsMedia() && int64_t{frame.size} + m_headBytes == bytes &&
            !m_facts.ListsEvent(frame.offset, frame.time)) {
            (frame.channel == to ? own : others).push_back(entry);
        }
    }
    const std::vector<size_t>& fitting = own.empty() ? others : own;
    if (!fitting.empty()) {
        const auto listed = std::find_if(fitting.begin(), fitting.end(), [&](size_t entry) {
            const FoundFrame& frame = m_found.frames[entry];
            return m_facts.ListsKeyFrame(to, frame.offset, frame.time);
        });
        Mend(listed != fitting.end() ? *listed : fitting.front(), to, fitting.size() == 1);
        Count();
    }
    return !fitting.empty();
}

/// Gives a frame the type that it must have had, as far as that can be told.
/// @param only whether no other frame may be meant
void IndexTotals::Mend(size_t entry, uint32_t channel, bool only) {
    FoundFrame& frame = m_found.frames[entry];
    m_found.NoteDamaged(frame);
    if (m_facts.ListsKeyFrame(channel, frame.offset, frame.time)) {
        frame.type = kKeyFrame;
    } else if (only && frame.channel == channel && !HasAudio(channel)) {
        frame.type = kPictureFrame;
    } else if (entry + 1 < m_found.frames.size()) {
        m_found.frames[entry + 1].afterLoss = true;
        m_found.frames[entry + 1].lost.Add(channel);
    }
}

bool IndexTotals::HasAudio(uint32_t channel) const {
    return std::any_of(m_found.frames.begin(), m_found.frames.end(), [channel](const FoundFrame& frame) {
        return frame.channel == channel && frame.IsAudio();
    });
}

/// Finds the frame that a channel has too much, and that no other channel lacks: it was no media.
bool IndexTotals::MoveOut(uint32_t channel) {
    const std::optional<size_t> entry = FrameOf(channel, -Difference(channel));
    if (entry) {
        m_found.NoteDamaged(m_found.frames[*entry]);
        m_payload[channel] -= m_found.frames[*entry].size;
        --m_frames[channel];
    }
    return entry.has_value();
}

/// The frame of a channel that counts for so many bytes. Of several the one that is out of place: its neighbours in its
/// track are nearest to each other.
std::optional<size_t> IndexTotals::FrameOf(uint32_t channel, int64_t bytes) const {
    const Tracks tracks(m_found.frames);
    std::optional<size_t> best;
    int64_t nearest = 0;
    for (const Track& track : tracks.All()) {
        for (size_t place = 0; track.channel == channel && place < track.frames.size(); ++place) {
            const FoundFrame& frame = m_found.frames[track.frames[place]];
            const int64_t apart = NeighboursApart(track, place);
            const bool fits = int64_t{frame.size} + m_headBytes == bytes &&
                              !m_facts.ListsKeyFrame(channel, frame.offset, frame.time);
            if (fits && (!best || apart < nearest)) {
                best = track.frames[place];
                nearest = apart;
            }
        }
    }
    return best;
}

/// How far the neighbours of a frame lie apart; at an end of its track, twice the step to the only one.
int64_t IndexTotals::NeighboursApart(const Track& track, size_t place) const {
    const auto timeOf = [&](size_t at) { return m_found.frames[track.frames[at]].time; };
    const size_t last = track.frames.size() - 1;
    if (last == 0) {
        return 0; // a track of its own
    }
    if (place == 0 || place == last) {
        return std::min(TimeApart(timeOf(place == 0 ? 1 : last - 1), timeOf(place)), INT64_MAX / 2) * 2;
    }
    return TimeApart(timeOf(place - 1), timeOf(place + 1));
}

// ---- reports

void IndexTotals::ReportEmptyChannels() {
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        const auto& segments = m_index.segments[channel];
        if (segments.empty() || m_frames[channel] != 0) {
            continue;
        }
        Problem problem;
        problem.kind = ProblemKind::FramesMissing;
        problem.channel = channel;
        problem.count = m_index.keyFrames[channel].size();
        problem.before = segments.front().start * kMicros;
        problem.after = segments.front().end * kMicros;
        for (const IndexedSegment& segment : segments) {
            problem.before = std::min(*problem.before, segment.start * kMicros);
            problem.after = std::max(*problem.after, segment.end * kMicros);
        }
        m_found.problems.push_back(problem);
    }
}

void IndexTotals::NoteIndex(std::optional<uint32_t> channel, Severity severity) {
    if (channel ? m_noted.Has(*channel) : m_notedWhole) {
        return;
    }
    Problem problem;
    problem.kind = ProblemKind::IndexDamaged;
    problem.severity = severity;
    problem.channel = channel;
    m_found.problems.push_back(problem);
    if (channel) {
        m_noted.Add(*channel);
    } else {
        m_notedWhole = true;
    }
}

} // namespace recordings
