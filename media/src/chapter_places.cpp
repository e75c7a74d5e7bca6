#include "chapter_places.h"

#include <algorithm>

namespace media {

namespace {

/// An event may lie a little before the first frame of its block.
constexpr int64_t kBefore = recordings::kMicros;

/// The place of a time stamp in a segment, or the nearest number there is: time stamps on a disk may be any.
int64_t PlaceIn(const ClockSegment& segment, int64_t time) {
    int64_t since = 0;
    int64_t place = 0;
    if (__builtin_sub_overflow(time, segment.time, &since) ||
        __builtin_add_overflow(segment.place, since, &place)) {
        return time < segment.time ? 0 : INT64_MAX;
    }
    return std::max<int64_t>(place, 0);
}

/// The first place for a chapter after another one: players pass over one that begins where the one before it does. In MP4
/// places are milliseconds.
int64_t After(int64_t place) {
    constexpr int64_t kMilli = 1000;
    return place > INT64_MAX - kMilli ? place : place + kMilli;
}

} // namespace

void ChapterPlaces::Note(const recordings::Frame& frame, size_t segments) {
    const auto [order, isNew] = m_orders.emplace(frame.block, m_orders.size());
    if (isNew) {
        m_first = frame.time;
        m_last = frame.time;
    }
    if (segments > m_seams.size() + 1) {
        m_seams.push_back({order->second, m_first, m_last});
        m_first = frame.time;
    }
    m_first = std::min(m_first, frame.time);
    m_last = frame.time;
}

size_t ChapterPlaces::SegmentOf(const Chapter& chapter) const {
    const auto found = m_orders.find(chapter.block);
    const size_t order = found == m_orders.end() ? 0 : found->second;
    for (size_t seam = m_seams.size(); seam-- > 0;) {
        const Seam& at = m_seams[seam];
        const bool isBefore =
            order == at.order && at.first - kBefore <= chapter.time && chapter.time <= at.last;
        if (order >= at.order && !isBefore) {
            return seam + 1;
        }
    }
    return 0;
}

std::vector<Chapter> ChapterPlaces::Place(const std::vector<Chapter>& chapters,
                                          const std::vector<ClockSegment>& segments) const {
    std::vector<Chapter> placed = chapters;
    for (Chapter& chapter : placed) {
        chapter.time = PlaceIn(segments[SegmentOf(chapter)], chapter.time);
    }
    std::stable_sort(placed.begin(), placed.end(),
                     [](const Chapter& a, const Chapter& b) { return a.time < b.time; });
    for (size_t i = 1; i < placed.size(); ++i) {
        placed[i].time = std::max(placed[i].time, After(placed[i - 1].time));
    }
    return placed;
}

} // namespace media
