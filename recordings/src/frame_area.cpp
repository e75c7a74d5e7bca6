#include "frame_area.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

namespace recordings {

namespace {

/// What a disk fails to deliver in one is asked for in pages, and these in sectors.
constexpr uint32_t kPage = 4096;
constexpr uint32_t kSector = 512;

/// Bytes that are read at once: enough that a call costs nothing beside its copy.
constexpr uint32_t kPiece = 512 * 1024;
/// The same while payloads are skipped, at most: a longer read costs more than it saves.
constexpr uint32_t kHeadsPiece = 256 * 1024;

/// Frame areas up to this size are kept whole. Recorders use blocks of a few megabytes.
constexpr uint32_t kLargestKept = 64 * 1024 * 1024;

/// Memory that callers hold is looked at again for this many blocks: most give it back soon.
constexpr size_t kMostLent = 3;

/// Bytes of an area before the end of a source: a copy may have been cut off, and a forged head may state blocks that are
/// larger than the disk.
uint32_t BytesBeforeEnd(const Source& source, uint64_t start, uint32_t size) {
    const uint64_t end = source.Size();
    return static_cast<uint32_t>(std::min<uint64_t>(size, end > start ? end - start : 0));
}

} // namespace

bool FrameBuffer::Serves(const Memory& memory, size_t size) {
    if (memory.size < size || memory.bytes.use_count() != 1) {
        return false;
    }
    // Another thread may have been the last to hold it: what it read there comes before what is written now.
    std::atomic_thread_fence(std::memory_order_acquire);
    return true;
}

FrameBuffer::Memory FrameBuffer::Take(size_t size) {
    const auto spare = std::find_if(m_lent.begin(), m_lent.end(),
                                    [size](const Memory& memory) { return Serves(memory, size); });
    if (spare != m_lent.end()) {
        Memory memory = *spare;
        m_lent.erase(spare);
        return memory;
    }
    return {std::shared_ptr<uint8_t[]>(new uint8_t[size]), size}; // not cleared: it is read into
}

uint8_t* FrameBuffer::Room(size_t size, size_t kept) {
    if (size == 0 || Serves(m_memory, size)) {
        return m_memory.bytes.get();
    }
    const Memory before = m_memory;
    m_memory = Take(std::max(size, kept));
    if (kept != 0) {
        std::memcpy(m_memory.bytes.get(), before.bytes.get(), kept);
    }
    if (before.bytes.use_count() > 1) {
        m_lent.push_back(before);
    }
    if (m_lent.size() > kMostLent) {
        m_lent.erase(m_lent.begin()); // its last holder frees it
    }
    return m_memory.bytes.get();
}

FrameArea::FrameArea(const Disk& disk, uint32_t block, Want want, FrameBuffer& buffer,
                     std::function<void()> breathe)
    : m_disk(disk), m_buffer(buffer), m_breathe(std::move(breathe)),
      m_start(disk.StartOf(block) + disk.Layout().frames), m_size(disk.Layout().frameBytes),
      m_there(BytesBeforeEnd(disk.Bytes(), m_start, m_size)),
      m_kept(want == Want::Payloads && m_size <= kLargestKept), m_heads(!m_kept),
      m_piece(m_heads ? kPage : kPiece) {}

bool FrameArea::Keep() {
    if (!m_kept && m_size <= kLargestKept) {
        m_kept = true;
        m_from = m_to = 0;
    }
    return m_kept;
}

void FrameArea::ReadInOrder() {
    m_heads = false;
    m_piece = kPiece;
}

const uint8_t* FrameArea::At(uint32_t offset, uint32_t size) {
    if (uint64_t{offset} + size > m_size) {
        return nullptr;
    }
    if (!Holds(offset, size)) {
        Load(offset, size);
    }
    return Readable(offset, size) ? m_data + (offset - m_from) : nullptr;
}

FrameArea::Piece FrameArea::PieceAt(uint32_t offset) {
    if (offset >= m_size) {
        return {};
    }
    const uint32_t wanted = std::min(m_size - offset, kPage);
    if (!Holds(offset, wanted)) {
        Load(offset, wanted);
    }
    const auto after = m_unreadable.upper_bound(offset);
    if (after != m_unreadable.begin() && std::prev(after)->second > offset) {
        return {};
    }
    const uint32_t end = after == m_unreadable.end() ? m_to : std::min(m_to, after->first);
    return {m_data + (offset - m_from), end - offset};
}

uint32_t FrameArea::AfterUnreadable(uint32_t offset) const {
    const auto after = m_unreadable.upper_bound(offset);
    return after == m_unreadable.begin() ? offset : std::max(offset, std::prev(after)->second);
}

bool FrameArea::Readable(uint32_t offset, uint32_t size) const {
    if (m_unreadable.empty() || size == 0) {
        return true;
    }
    const auto after = m_unreadable.lower_bound(offset + size); // begins at the end or later
    return after == m_unreadable.begin() || std::prev(after)->second <= offset;
}

void FrameArea::Load(uint32_t offset, uint32_t size) {
    if (!m_kept) {
        MoveWindow(offset, size);
        return;
    }
    if (m_to == 0) {
        m_data = m_buffer.Room(m_there, 0);
    }
    while (m_to < offset + size) {
        const uint32_t to = m_to + std::min(m_size - m_to, kPiece);
        Fill(m_to, to);
        m_to = to;
    }
}

/// Makes the window begin at @p offset.
void FrameArea::MoveWindow(uint32_t offset, uint32_t size) {
    if (m_heads) {
        const bool skips = offset > m_to && offset - m_to > kPage;
        m_piece = skips ? std::max(kPage, m_piece / 4) : std::min(kHeadsPiece, m_piece * 2);
    }
    const uint32_t to = WindowEnd(offset, size);
    const uint32_t held = offset >= m_from && offset < m_to ? m_to - offset : 0;
    m_data = m_buffer.Room(There(to) - There(offset), There(m_to) - There(m_from));
    const uint32_t moved = There(offset + held) - There(offset);
    if (moved != 0) {
        std::memmove(m_data, m_data + (offset - m_from), moved);
    }
    m_from = offset;
    m_to = offset + held;
    if (m_to < to) {
        Fill(m_to, to);
        m_to = to;
    }
}

/// Where a window that begins at @p offset ends: with a page of the device, so that none is read twice.
uint32_t FrameArea::WindowEnd(uint32_t offset, uint32_t size) const {
    const uint64_t least = uint64_t{offset} + size;
    uint64_t end = std::max(least, uint64_t{offset} + m_piece);
    end -= (m_start + end) % kPage;
    if (end < least) {
        end += kPage;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(end, m_size));
}

/// Reads a stretch into its place in the buffer.
void FrameArea::Fill(uint32_t from, uint32_t to) {
    uint64_t step = to - from;
    while (from < to) { // each turn moves on: by what was read, or past the page that failed
        from = std::min(to, AfterUnreadable(from));
        const auto next = m_unreadable.lower_bound(from);
        const uint32_t limit = next == m_unreadable.end() ? to : std::min(to, next->first);
        const auto wanted = static_cast<uint32_t>(from + std::min<uint64_t>(limit - from, step));
        from += Read(from, wanted);
        step *= 2;
        if (from < wanted) {
            from = FillPage(from, std::min(limit, NextBoundary(from, kPage)));
            step = kPage; // where a disk fails once, it may fail again
        }
    }
}

/// Reads what is left of a page that failed, sector by sector.
/// @return its end
uint32_t FrameArea::FillPage(uint32_t from, uint32_t to) {
    while (from < to) {
        const uint32_t end = std::min(to, NextBoundary(from, kSector));
        from += Read(from, end);
        if (from < end) {
            NoteUnreadable(from, end);
            from = end;
        }
    }
    return to;
}

/// @return how many bytes could be read
uint32_t FrameArea::Read(uint32_t from, uint32_t to) {
    if (from >= to) {
        return 0;
    }
    if (from >= m_there) {
        NoteUnreadable(from, to); // there is nothing to ask for
        return to - from;
    }
    if (m_breathe) {
        m_breathe();
    }
    const size_t got = m_disk.Bytes().Read(m_start + from, m_data + (from - m_from), There(to) - from);
    m_bytesRead += got;
    return static_cast<uint32_t>(std::min<size_t>(got, to - from));
}

/// The next multiple of @p unit on the device, as an offset in the area.
uint32_t FrameArea::NextBoundary(uint32_t offset, uint32_t unit) const {
    return offset + unit - static_cast<uint32_t>((m_start + offset) % unit);
}

void FrameArea::NoteUnreadable(uint32_t from, uint32_t to) {
    auto at = m_unreadable.upper_bound(from);
    if (at != m_unreadable.begin() && std::prev(at)->second >= from) {
        at = std::prev(at);
        from = at->first;
        to = std::max(to, at->second);
        at = m_unreadable.erase(at);
    }
    while (at != m_unreadable.end() && at->first <= to) {
        to = std::max(to, at->second);
        at = m_unreadable.erase(at);
    }
    m_unreadable.emplace(from, to);
}

} // namespace recordings
