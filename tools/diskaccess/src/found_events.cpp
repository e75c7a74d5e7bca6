#include "found_events.h"

#include <algorithm>
#include <map>

namespace diskaccess {

std::vector<EventItem_t> FindEvents(Session& session, uint64_t mask) {
    const Range range = session.WantedRange();
    // The search leaves out its two end seconds; a user who names them means them.
    const uint32_t start = session.Disk().SafeSearchStart(range.first);
    const uint32_t before = start == 0 ? 0 : start - 1;
    const uint32_t behind = range.last == 0x7FFFFFFF ? range.last : range.last + 1;
    SearchParam_t request = {mask, before, behind, 0xFFFFFFFF};
    CCommList<EventItem_t> found;
    session.Search().SearchEvent(&request, &found);
    std::vector<EventItem_t> events;
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        if (node->data.time >= range.first) {
            events.push_back(node->data);
        }
    }
    return events;
}

AlarmTags::AlarmTags(Session& session, const std::vector<EventItem_t>& events, bool aroundAlarms) {
    std::map<uint32_t, std::pair<uint32_t, uint32_t>> timesOfBlock;
    for (const EventItem_t& event : events) {
        const uint32_t block = event.eventId >> 16;
        auto times = timesOfBlock.find(block);
        if (times == timesOfBlock.end()) {
            const auto ends = aroundAlarms ? session.Disk().EndsOf(block) : std::nullopt;
            times = timesOfBlock
                        .emplace(block, ends ? std::pair(ends->head.pre_RecTime, ends->head.AlmDelayTime)
                                             : std::pair(0u, 0u))
                        .first;
        }
        const Span span = {int64_t{event.time} - times->second.first,
                           int64_t{event.time} + times->second.second, event.alarmType};
        m_longest = std::max(m_longest, span.last - span.first);
        m_spans.push_back(span);
    }
    std::sort(m_spans.begin(), m_spans.end(), [](const Span& a, const Span& b) { return a.first < b.first; });
}

uint64_t AlarmTags::TypesOf(uint32_t start, uint32_t end) const {
    uint64_t types = 0;
    auto span = std::lower_bound(m_spans.begin(), m_spans.end(), int64_t{start} - m_longest,
                                 [](const Span& s, int64_t time) { return s.first < time; });
    for (; span != m_spans.end() && span->first <= end; ++span) {
        types |= span->last >= start ? span->type : 0;
    }
    return types;
}

} // namespace diskaccess
