#include "container_facts.h"

#include <algorithm>

#include <fmt/format.h>

#include "chapter_places.h"

namespace media {

using recordings::Frame;

namespace {

/// Whether an event may have happened so long before a frame.
bool ReachesTo(int64_t frame, int64_t event) {
    const uint64_t between = static_cast<uint64_t>(frame) - static_cast<uint64_t>(event);
    return event < frame && between <= static_cast<uint64_t>(kChapterReach);
}

} // namespace

ContainerFacts ContainerDescriber::Of(const Frame& first) const {
    ContainerFacts facts;
    facts.title = m_wording.readableSecond(first.time); // not the file's name: one range gives the same bytes
    const auto identity = recordings::ReadIdentity(m_disk, first.block);
    if (m_clockText) {
        facts.clockText = [&wording = m_wording,
                           vehicle = identity ? ", " + m_wording.printable(identity->vehicleNumber)
                                              : std::string()](int64_t time) {
            return wording.readableSecond(time) + vehicle;
        };
    }
    if (identity) {
        facts.title = m_wording.printable(identity->vehicleNumber) + " " + facts.title;
        facts.comment = fmt::format("vehicle {}, {}", m_wording.printable(identity->vehicleNumber),
                                    m_wording.printable(identity->vehicleId));
    }
    return facts;
}

ContainerFacts ContainerDescriber::OfFirst(const Frame& first) const {
    ContainerFacts facts = Of(first);
    facts.chapters = Chapters();
    facts.start = StartOf(first, facts.chapters);
    facts.startTime = m_wording.utcTimestamp(facts.start);
    return facts;
}

ContainerFacts ContainerDescriber::OfPart(const Frame& first, bool goesOn) const {
    ContainerFacts facts = Of(first);
    facts.chapters = goesOn ? ChaptersFrom(first.block) : std::vector<Chapter>();
    facts.start = first.time;
    facts.startTime = m_wording.utcTimestamp(facts.start);
    return facts;
}

size_t ContainerDescriber::EventsWithoutChapter() const {
    return m_events.size() - std::min(m_events.size(), kMostChapters);
}

/// The time stamp that becomes zero: that of the first frame, or of an event before it in the same block or an earlier
/// one.
int64_t ContainerDescriber::StartOf(const Frame& first, const std::vector<Chapter>& chapters) const {
    int64_t start = first.time;
    const auto block = m_blocks.Find(first.block);
    for (const Chapter& chapter : chapters) {
        const auto own = m_blocks.Find(chapter.block);
        const bool isBefore = ReachesTo(first.time, chapter.time);
        start = isBefore && own && block && *own <= *block ? std::min(start, chapter.time) : start;
    }
    return start;
}

/// The events, in order of time, up to as many as players can show.
std::vector<Chapter> ContainerDescriber::Chapters() const {
    std::vector<const recordings::Event*> events;
    events.reserve(m_events.size());
    for (const recordings::Event& event : m_events) {
        events.push_back(&event);
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const auto* a, const auto* b) { return a->micros < b->micros; });
    events.resize(std::min(events.size(), kMostChapters));
    std::vector<Chapter> chapters;
    chapters.reserve(events.size());
    for (const recordings::Event* const event : events) {
        chapters.push_back(
            {event->micros,
             fmt::format("event 0x{:x}, {}", event->type, m_wording.readableSecond(event->micros)),
             event->block});
    }
    return chapters;
}

/// The events from a block on.
std::vector<Chapter> ContainerDescriber::ChaptersFrom(uint32_t block) const {
    std::vector<Chapter> chapters = Chapters();
    const auto first = m_blocks.Find(block);
    const auto isEarlier = [&](const Chapter& chapter) {
        const auto own = m_blocks.Find(chapter.block);
        return !own || !first || *own < *first;
    };
    chapters.erase(std::remove_if(chapters.begin(), chapters.end(), isEarlier), chapters.end());
    return chapters;
}

} // namespace media
