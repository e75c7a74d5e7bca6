#include "container_clock.h"

#include <algorithm>
#include <utility>

namespace media {

ContainerClock::ContainerClock(Container container, int64_t start, int64_t largestGap, size_t tracks,
                               std::function<std::string(int64_t)> words)
    : m_container(container), m_largestGap(largestGap), m_timeline(start, largestGap) {
    for (size_t track = 0; track < tracks; ++track) {
        m_timeline.AddTrack();
    }
    if (words) {
        m_text.emplace(std::move(words));
    }
}

ContainerClock::Spot ContainerClock::Take(size_t track, const recordings::Frame& frame) {
    Spot spot;
    spot.place = m_timeline.PlaceOf(track, frame.time);
    m_chapterPlaces.Note(frame, m_timeline.Segments().size());
    if (m_text && m_timeline.IsInNewest(track)) {
        spot.text = m_text->Next(frame.time, spot.place, m_timeline.Segments().size());
    }
    return spot;
}

std::optional<std::string> ContainerClock::TextOf(int64_t time) const {
    return m_text ? std::optional(m_text->TextOf(time)) : std::nullopt;
}

std::vector<Chapter> ContainerClock::Place(const std::vector<Chapter>& chapters, int64_t latest) const {
    std::vector<Chapter> placed = m_chapterPlaces.Place(chapters, m_timeline.Segments());
    const int64_t reach = std::min(kChapterReach, m_largestGap);
    while (!placed.empty() && placed.back().time - latest > reach) {
        placed.pop_back();
    }
    placed.resize(std::min(placed.size(), kMostChapters));
    if (m_container == Container::Mp4 && !placed.empty() && placed.front().time > 0) {
        // Many players of MP4 take the first chapter for one that begins with the file.
        placed.insert(placed.begin(), Chapter{0, "beginning"});
    }
    return placed;
}

} // namespace media
