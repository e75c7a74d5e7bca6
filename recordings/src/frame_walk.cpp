#include "frame_walk.h"

#include <algorithm>
#include <utility>

namespace recordings {

namespace {

/// Searches in an area that is too large to be kept: each moves the window back, and reads some of it again.
constexpr uint32_t kMostSearches = 256;

/// An end mark further than this from where a length leads is that of an earlier turn.
constexpr uint32_t kMarkReach = 0x10000;

/// A picture does not end in so many zeros.
constexpr uint32_t kErasedBytes = 32;

bool IsZero(const uint8_t* bytes, uint32_t size) {
    return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

} // namespace

FrameWalk::FrameWalk(FrameArea& area, const BlockFacts& facts)
    : m_area(area), m_facts(facts),
      m_search(area, facts), m_reached{facts.Headless() ? 0 : facts.Of().start,
                                       facts.Headless() ? UINT32_MAX : facts.Of().start} {}

/// Each turn moves on: a frame takes the bytes of its head at least, and the next one is looked for after those.
FoundFrames FrameWalk::Run() {
    std::optional<uint32_t> at = 0;
    while (at) {
        at = Take(*at) ? static_cast<uint32_t>(m_found.frames.back().End()) : Resume(*at);
    }
    return std::move(m_found);
}

std::optional<FrameHead_t> FrameWalk::Head(uint32_t at) {
    const uint8_t* const bytes = m_area.At(at, kHeadBytes);
    return bytes == nullptr ? std::nullopt : std::optional<FrameHead_t>(HeadAt(bytes));
}

/// Whether a head is one of the ring's previous turn, by its time.
bool FrameWalk::IsStale(const FrameHead_t& head) const {
    return head.sync == BLOCK_MAGIC && disk_access::IsMedia(head.type) && m_facts.IsStale(head.pts / kMicros);
}

/// Whether a head after the end of the index is one of the ring's previous turn.
bool FrameWalk::IsLeftOver(const FrameHead_t& head, uint32_t at) const {
    return m_facts.Index() != nullptr && at >= m_facts.MediaEnd() && IsStale(head);
}

bool FrameWalk::Take(uint32_t at) {
    const std::optional<FrameHead_t> head = Head(at);
    const bool sound = head && head->sync == BLOCK_MAGIC && head->chn < kChannels &&
                       at + disk_access::FrameSpan(*head) <= m_area.Size() && !IsLeftOver(*head, at) &&
                       (!m_facts.Headless() || m_facts.SeemsHead(*head, m_reached));
    if (sound) {
        Append(*head, at);
    }
    return sound;
}

void FrameWalk::Append(const FrameHead_t& head, uint32_t at) {
    FoundFrame frame(head, at);
    if (std::exchange(m_nextLost, false)) {
        frame.afterLoss = true;
        frame.lost = ChannelSet::All();
    }
    if (frame.IsMedia()) {
        m_reached.newest = std::max(m_reached.newest, frame.Seconds());
        m_reached.last = frame.Seconds();
    }
    m_found.frames.push_back(frame);
}

/// The frame whose length leads to a place.
FoundFrame* FrameWalk::LastThatEndsAt(uint32_t at) {
    auto& frames = m_found.frames;
    return frames.empty() || m_nextLost || frames.back().End() != at ? nullptr : &frames.back();
}

/// Finds where frames go on when none begins at a place.
/// @return nothing at the end of the frames
std::optional<uint32_t> FrameWalk::Resume(uint32_t at) {
    FoundFrame* const last = LastThatEndsAt(at);
    if (EndsAt(at, last)) {
        return std::nullopt;
    }
    const std::optional<FrameHead_t> head = Head(at);
    if (head && m_facts.SeemsHead(*head, m_reached)) { // all but its length is sound
        return TakeWithoutLength(*head, at);
    }
    const std::optional<uint32_t> next = Search(last != nullptr ? last->offset + kHeadBytes : at + 1);
    if (!next) {
        End(at, last);
    } else if (*next < at) {
        Cut(*last, *next);
    } else {
        PassTo(*next, at, last);
    }
    return next;
}

/// Takes a frame whose length would lead out of the area: it ends where the next one begins.
std::optional<uint32_t> FrameWalk::TakeWithoutLength(const FrameHead_t& head, uint32_t at) {
    std::optional<uint32_t> next = Search(at + kHeadBytes);
    if (!next && at + kHeadBytes <= m_facts.MediaEnd() && !m_gaveUp) {
        next = m_facts.MediaEnd();
    }
    if (!next && m_gaveUp) {
        End(at, nullptr);
        return std::nullopt;
    }
    if (!next) {
        NoteDamagedLast(head, at);
        return std::nullopt;
    }
    Append(head, at);
    Cut(m_found.frames.back(), *next);
    return next;
}

std::optional<uint32_t> FrameWalk::Search(uint32_t from) {
    if (!m_area.Keep() && ++m_searches > kMostSearches) {
        m_gaveUp = true;
        return std::nullopt;
    }
    return m_search.Head(from, m_area.Size(), m_reached);
}

/// Makes a frame end where another one begins: its length is wrong.
void FrameWalk::Cut(FoundFrame& frame, uint32_t end) {
    frame.size = end - frame.offset - kHeadBytes;
    m_found.NoteDamaged(frame);
}

void FrameWalk::PassTo(uint32_t next, uint32_t at, const FoundFrame* last) {
    const std::optional<FrameHead_t> head = Head(at);
    if (!head) {
        m_nextLost = true; // the disk does not deliver it: that is another problem
    } else if (last == nullptr || m_facts.WasHead(*head, m_reached)) {
        NoteDamage(at, next);
    } else {
        FoundFrame dropped = *last;
        m_found.frames.pop_back();
        dropped.size = next - dropped.offset - kHeadBytes;
        m_found.dropped.push_back(dropped);
        NoteDamage(dropped.offset, next);
    }
}

void FrameWalk::NoteDamage(uint32_t from, uint32_t to) {
    m_nextLost = true;
    m_found.AddDamage(from, to);
}

// ---- the end of the frames

bool FrameWalk::EndsAt(uint32_t at, const FoundFrame* last) {
    const std::optional<FrameHead_t> head = Head(at);
    if (m_facts.MediaEnd() != 0) {
        return EndsIndexed(at, last, head);
    }
    return head && disk_access::IsEndMark(*head) && IsMarked(at, last);
}

/// Whether an end mark holds: a length that is wrong may lead to it too, past other frames.
bool FrameWalk::IsMarked(uint32_t at, const FoundFrame* last) {
    m_found.marked = last == nullptr || !m_search.Head(last->offset + kHeadBytes, at, m_reached);
    return m_found.marked;
}

/// With an index: the last frame must end where the index says so. Only frames that are no media may follow.
bool FrameWalk::EndsIndexed(uint32_t at, const FoundFrame* last, const std::optional<FrameHead_t>& head) {
    if (at < m_facts.MediaEnd() || at <= m_facts.LastListed()) {
        return false;
    }
    if (head && disk_access::IsEndMark(*head)) {
        return IsMarked(at, last);
    }
    if (last != nullptr && last->offset < m_facts.MediaEnd() && !m_facts.EndsMedia(at)) {
        return false; // its length is wrong, or the index
    }
    if (!head || IsLeftOver(*head, at)) {
        return true;
    }
    const bool trailing = last != nullptr && last->offset >= m_facts.MediaEnd();
    return !trailing && !m_facts.WasHead(*head, m_reached);
}

/// Judges an end that is not clean.
void FrameWalk::End(uint32_t at, FoundFrame* last) {
    if (m_gaveUp) {
        NoteDamage(at, m_area.Size());
        m_found.lostAtEnd = true;
    } else if (m_facts.MediaEnd() != 0) {
        EndIndexed(at, last);
    } else {
        EndOpen(at, last);
    }
}

void FrameWalk::EndIndexed(uint32_t at, FoundFrame* last) {
    const uint32_t mediaEnd = m_facts.MediaEnd();
    if (at < mediaEnd) {
        const std::optional<FrameHead_t> head = Head(at);
        const bool room = m_area.Size() - at >= kHeadBytes;
        m_found.missing = Stretch{at, mediaEnd};
        m_found.missingUnreadable = room && !head;
        m_found.lastInDoubt = last != nullptr && (!room || (head && !m_facts.WasHead(*head, m_reached)));
    } else if (last != nullptr && last->offset + kHeadBytes <= mediaEnd && !m_facts.EndsMedia(at)) {
        m_found.lastEnd = mediaEnd;
    } else {
        EndTrailing(at, last);
    }
}

/// The end of frames that are no media, after the last media frame. An end mark elsewhere may be that of an earlier turn;
/// but an event of another size than events have shows that its length is wrong.
void FrameWalk::EndTrailing(uint32_t at, FoundFrame* last) {
    const uint32_t from = last != nullptr ? last->offset + kHeadBytes : at;
    const auto reach = static_cast<uint32_t>(std::min<uint64_t>(m_area.Size(), uint64_t{at} + kMarkReach));
    const std::optional<uint32_t> mark = m_search.EndMark(from, reach);
    const std::optional<FrameHead_t> head = Head(at);
    const bool noEvent = last != nullptr && last->type == kEventFrame && last->size != sizeof(EventHead_t);
    m_found.marked = mark && noEvent && last->offset >= m_facts.MediaEnd();
    if (m_found.marked) {
        Cut(*last, *mark);
    } else if (head && m_facts.WasHead(*head, m_reached)) {
        NoteDamagedLast(*head, at);
    }
}

void FrameWalk::EndOpen(uint32_t at, FoundFrame* last) {
    const std::optional<FrameHead_t> head = Head(at);
    const bool lastIsStale = last != nullptr && last->IsMedia() && m_facts.IsStale(last->Seconds());
    if (lastIsStale || (head && IsStale(*head))) {
        return;
    }
    if (head && last != nullptr && m_facts.LostItsTail() && IsErasedInside(*last) && IsErasedFrom(at)) {
        NoteDamage(at, m_area.Size());
        m_found.lostAtEnd = true;
        return;
    }
    // What cannot be read after the last frame may have held more of them.
    const auto unreadable = m_area.Unreadable().upper_bound(at);
    m_found.lostAtEnd = unreadable != m_area.Unreadable().end() || m_area.AfterUnreadable(at) != at;
    const bool room = m_area.Size() - at >= kHeadBytes;
    if (head && m_facts.WasHead(*head, m_reached)) {
        NoteDamagedLast(*head, at);
    } else if ((head || !room) && last != nullptr && !MayEnd(*last)) {
        m_found.NoteDamaged(*last);
    }
}

/// Whether the end of a picture is erased. Silence may be zeros.
bool FrameWalk::IsErasedInside(const FoundFrame& frame) {
    if (!frame.IsMedia() || frame.IsAudio() || frame.size < kErasedBytes) {
        return false;
    }
    const auto end = static_cast<uint32_t>(frame.End());
    const uint8_t* const bytes = m_area.At(end - kErasedBytes, kErasedBytes);
    return bytes != nullptr && IsZero(bytes, kErasedBytes);
}

/// Whether the area holds nothing but zeros from a place on.
bool FrameWalk::IsErasedFrom(uint32_t at) {
    while (at < m_area.Size()) {
        const FrameArea::Piece piece = m_area.PieceAt(at);
        if (piece.size == 0 || !IsZero(piece.data, piece.size)) {
            return false;
        }
        at += piece.size;
    }
    return true;
}

/// Notes the last frame of a block as lost: its head is damaged.
void FrameWalk::NoteDamagedLast(const FrameHead_t& head, uint32_t at) {
    const uint64_t end = at + disk_access::FrameSpan(head);
    NoteDamage(at, end <= m_area.Size() ? static_cast<uint32_t>(end) : at + kHeadBytes);
    m_found.lostAtEnd = true;
}

/// Whether the last frame of a block that was never closed may end where its length says so. It holds no frames of an
/// earlier turn. Before the ring has wrapped erased space begins after it, or old frames of a disk that was formatted
/// again: with a few other bytes there the length is too short. Where nothing tells the answer is yes.
bool FrameWalk::MayEnd(const FoundFrame& last) {
    const auto end = static_cast<uint32_t>(last.End());
    const uint32_t rest = m_area.Size() - end;
    const uint8_t* const bytes = m_area.Keep() && rest >= kHeadBytes ? m_area.At(end, rest) : nullptr;
    if (last.size >= kHeadBytes && m_search.LeftOver(last.offset + kHeadBytes, end - kHeadBytes + 1)) {
        return false;
    }
    if (bytes == nullptr || !m_facts.IsFirstTurn() || (bytes[rest - 1] != 0 && bytes[rest - 1] != 0xFF)) {
        return true;
    }
    uint32_t left = rest; // bytes before the erased ones at the end of the area
    while (left != 0 && bytes[left - 1] == bytes[rest - 1]) {
        --left;
    }
    return left == 0 || left > std::min(LargestPayload(), rest / 2) || m_search.EndMark(end, end + left) ||
           m_search.LeftOver(end, end + left);
}

uint32_t FrameWalk::LargestPayload() const {
    uint32_t largest = 0;
    for (const FoundFrame& frame : m_found.frames) {
        largest = std::max(largest, frame.size);
    }
    return largest;
}

} // namespace recordings
