#ifndef MEDIA_SRC_CONTAINER_CLOCK_H
#define MEDIA_SRC_CONTAINER_CLOCK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "chapter_places.h"
#include "clock_text.h"
#include "media/sink.h"
#include "recordings/frame.h"
#include "timeline.h"

namespace media {

/// Where the frames, texts and chapters of a container lie in its time. Files are made by it, and verified by it.
class ContainerClock {
public:
    /// @param start time stamp that becomes zero
    /// @param largestGap from one frame of a track to the next that the container can show, microseconds
    /// @param tracks of media
    /// @param words of the text track, by time stamp; empty: there is none
    ContainerClock(Container container, int64_t start, int64_t largestGap, size_t tracks,
                   std::function<std::string(int64_t)> words);

    struct Spot {
        int64_t place = 0;                  ///< of the frame, microseconds
        std::optional<ClockText::Cue> text; ///< that begins with it
    };
    /// Takes a track's next frame.
    Spot Take(size_t track, const recordings::Frame& frame);

    const Timeline& Time() const { return m_timeline; }
    /// What the text track says of a time stamp; nothing when there is none.
    std::optional<std::string> TextOf(int64_t time) const;

    /// Chapters with places as times, as far as it is known by now where they lie.
    /// @param latest place of the last frame. After a pause that the file cannot show, another one goes on
    std::vector<Chapter> Place(const std::vector<Chapter>& chapters, int64_t latest) const;

private:
    Container m_container;
    int64_t m_largestGap;
    Timeline m_timeline;
    ChapterPlaces m_chapterPlaces;
    std::optional<ClockText> m_text;
};

} // namespace media

#endif // MEDIA_SRC_CONTAINER_CLOCK_H
