#include "head_search.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "found_frames.h"

namespace recordings {

namespace {

constexpr uint32_t kSyncAt = offsetof(FrameHead_t, sync);

} // namespace

/// Goes through the stretch piece by piece. Pieces overlap by a head but for a byte, so that one across their seam is
/// seen.
template <typename Accept>
std::optional<uint32_t> HeadSearch::Find(uint32_t from, uint32_t to, uint32_t sync, const Accept& accept) {
    uint64_t at = from;
    while (at < to && at + kHeadBytes <= m_area.Size()) {
        const auto offset = static_cast<uint32_t>(at);
        const FrameArea::Piece piece = m_area.PieceAt(offset);
        if (piece.size < kHeadBytes) {
            at = std::max<uint64_t>(at + 1, m_area.AfterUnreadable(offset + piece.size));
            continue;
        }
        const auto size = static_cast<uint32_t>(std::min<uint64_t>(piece.size, to - at + kHeadBytes - 1));
        const uint8_t* const end = piece.data + size;
        const uint8_t* search = piece.data + kSyncAt;
        while (const void* const found =
                   memmem(search, static_cast<size_t>(end - search), &sync, sizeof sync)) {
            const uint8_t* const head = static_cast<const uint8_t*>(found) - kSyncAt;
            if (end - head < static_cast<ptrdiff_t>(kHeadBytes)) {
                break;
            }
            if (accept(HeadAt(head))) {
                return static_cast<uint32_t>(at + static_cast<uint64_t>(head - piece.data));
            }
            search = static_cast<const uint8_t*>(found) + 1;
        }
        at += size - (kHeadBytes - 1);
    }
    return std::nullopt;
}

std::optional<uint32_t> HeadSearch::Head(uint32_t from, uint32_t to, const Reached& reached) {
    return Find(from, to, BLOCK_MAGIC,
                [&](const FrameHead_t& head) { return m_facts.SeemsHead(head, reached); });
}

std::optional<uint32_t> HeadSearch::LeftOver(uint32_t from, uint32_t to) {
    return Find(from, to, BLOCK_MAGIC, [&](const FrameHead_t& head) { return m_facts.SeemsLeftOver(head); });
}

std::optional<uint32_t> HeadSearch::EndMark(uint32_t from, uint32_t to) {
    return Find(from, to, disk_access::kErasedWord, disk_access::IsEndMark);
}

} // namespace recordings
