#include "hidden_frames.h"

#include <algorithm>
#include <iterator>

namespace recordings {

HiddenFrames::HiddenFrames(FoundFrames& found, const BlockFacts& facts, FrameArea& area)
    : m_found(found), m_facts(facts), m_area(area), m_search(area, facts), m_looked(found.frames.size()) {
    for (const FoundFrame& frame : found.frames) {
        if (frame.IsMedia()) {
            m_reached.newest = std::max(m_reached.newest, frame.Seconds());
            m_reached.last = std::min(m_reached.last, frame.Seconds());
        }
    }
}

void HiddenFrames::Find(const Tracks& tracks) {
    LookAtNamedHeads();
    LookIntoHoles(tracks);
    Insert();
}

void HiddenFrames::FindAll() {
    for (size_t entry = 0; entry < m_looked.size(); ++entry) {
        LookInto(entry);
    }
    Insert();
}

void HiddenFrames::LookAtNamedHeads() {
    auto& frames = m_found.frames;
    for (const uint32_t place : m_facts.NamedHeads()) {
        // The last frame that begins at the place or before it.
        const auto after =
            std::upper_bound(frames.begin(), frames.end(), place,
                             [](uint32_t wanted, const FoundFrame& frame) { return wanted < frame.offset; });
        if (after == frames.begin() || std::prev(after)->offset == place ||
            std::prev(after)->End() <= place) {
            continue;
        }
        const uint8_t* const bytes = m_area.At(place, kHeadBytes);
        if (bytes != nullptr && m_facts.SeemsHead(HeadAt(bytes), m_reached)) {
            LookInto(static_cast<size_t>(std::prev(after) - frames.begin()));
        }
    }
}

void HiddenFrames::LookIntoHoles(const Tracks& tracks) {
    for (const Track& track : tracks.All()) {
        for (size_t place = 1; track.regular && place < track.frames.size(); ++place) {
            const size_t from = track.frames[place - 1];
            const size_t to = track.frames[place];
            const int64_t step = TimeBetween(m_found.frames[from].time, m_found.frames[to].time);
            if (step > track.pace + track.pace / 2) {
                for (size_t entry = from; entry < to; ++entry) {
                    LookInto(entry);
                }
            }
        }
    }
}

void HiddenFrames::LookInto(size_t entry) {
    FoundFrame& frame = m_found.frames[entry];
    if (m_looked[entry] || frame.damaged) {
        return;
    }
    m_looked[entry] = true;
    const auto end = static_cast<uint32_t>(frame.End());
    const auto hidden = m_search.Head(frame.offset + kHeadBytes, end, m_reached);
    const std::vector<FoundFrame> frames = hidden ? FramesFrom(*hidden, end) : std::vector<FoundFrame>();
    if (!frames.empty()) {
        frame.size = *hidden - frame.offset - kHeadBytes;
        m_found.NoteDamaged(frame);
        m_hidden.insert(m_hidden.end(), frames.begin(), frames.end());
    }
}

/// The frames from a place on that lead, one after the other, exactly to an end; none when they do not.
std::vector<FoundFrame> HiddenFrames::FramesFrom(uint32_t offset, uint64_t end) {
    std::vector<FoundFrame> frames;
    uint64_t at = offset;
    while (at < end) {
        const uint8_t* const bytes = m_area.At(static_cast<uint32_t>(at), kHeadBytes);
        if (bytes == nullptr || !m_facts.SeemsHead(HeadAt(bytes), m_reached)) {
            return {};
        }
        frames.emplace_back(HeadAt(bytes), static_cast<uint32_t>(at));
        at = frames.back().End();
    }
    return at == end ? frames : std::vector<FoundFrame>();
}

void HiddenFrames::Insert() {
    if (m_hidden.empty()) {
        return;
    }
    auto& frames = m_found.frames;
    const auto middle = static_cast<ptrdiff_t>(frames.size());
    const auto before = [](const FoundFrame& a, const FoundFrame& b) { return a.offset < b.offset; };
    std::sort(m_hidden.begin(), m_hidden.end(), before);
    frames.insert(frames.end(), m_hidden.begin(), m_hidden.end());
    std::inplace_merge(frames.begin(), frames.begin() + middle, frames.end(), before);
}

} // namespace recordings
