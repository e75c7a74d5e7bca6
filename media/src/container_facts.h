#ifndef MEDIA_SRC_CONTAINER_FACTS_H
#define MEDIA_SRC_CONTAINER_FACTS_H

#include <cstddef>
#include <vector>

#include "media/request.h"
#include "media/sink.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/frame.h"
#include "recordings/records.h"

namespace media {

/// Tells what the containers of an export say of themselves. Files are made with it, and verified with it.
class ContainerDescriber {
public:
    /// What is handed over must outlive the object, and the wording what it tells.
    /// @param events of the range
    /// @param clockText whether there is a text track
    ContainerDescriber(const recordings::Disk& disk, const recordings::BlockList& blocks,
                       const Wording& wording, const std::vector<recordings::Event>& events, bool clockText)
        : m_disk(disk), m_blocks(blocks), m_wording(wording), m_events(events), m_clockText(clockText) {}

    /// Of the first container.
    /// @param first the earliest frame that shows a track
    ContainerFacts OfFirst(const recordings::Frame& first) const;
    /// Of another one.
    /// @param first its first frame
    /// @param goesOn whether it goes on after a pause that the first cannot show: the events from there on are its own
    ContainerFacts OfPart(const recordings::Frame& first, bool goesOn) const;

    /// Events that are too many to be shown.
    size_t EventsWithoutChapter() const;

private:
    ContainerFacts Of(const recordings::Frame& first) const;
    std::vector<Chapter> Chapters() const;
    std::vector<Chapter> ChaptersFrom(uint32_t block) const;
    int64_t StartOf(const recordings::Frame& first, const std::vector<Chapter>& chapters) const;

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    const Wording& m_wording;
    const std::vector<recordings::Event>& m_events;
    bool m_clockText;
};

} // namespace media

#endif // MEDIA_SRC_CONTAINER_FACTS_H
