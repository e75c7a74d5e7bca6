#ifndef MEDIA_SRC_CHAPTER_PLACES_H
#define MEDIA_SRC_CHAPTER_PLACES_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "media/sink.h"
#include "recordings/frame.h"
#include "recordings/query.h"

namespace media {

/// Events may be written some time after they happened, and clocks are set over hours. The time of one that lies further
/// than this from the frames is damaged, and is no place in a file, in microseconds.
constexpr int64_t kChapterReach = 86400 * recordings::kMicros;

/// Finds the places of chapters in a container whose time follows the recorder's clock in segments. Where the clock was
/// set back, one time comes twice: the block that an event lies in tells which it is.
class ChapterPlaces {
public:
    /// Notes a frame of the container.
    /// @param segments how many there are by then
    void Note(const recordings::Frame& frame, size_t segments);

    /// The chapters in order, with places in the container, in microseconds, as times.
    std::vector<Chapter> Place(const std::vector<Chapter>& chapters,
                               const std::vector<ClockSegment>& segments) const;

private:
    /// Where a segment begins.
    struct Seam {
        size_t order;  ///< of the block that it begins in
        int64_t first; ///< the earliest time stamp of that block before it
        int64_t last;  ///< and the last
    };

    size_t SegmentOf(const Chapter& chapter) const;

    std::map<uint32_t, size_t> m_orders; ///< of blocks, in the order that frames came in
    std::vector<Seam> m_seams;           ///< of the segments but the first
    int64_t m_first = 0;                 ///< time stamps of the block at hand
    int64_t m_last = 0;
};

} // namespace media

#endif // MEDIA_SRC_CHAPTER_PLACES_H
