#include "findings.h"

#include <algorithm>
#include <limits>
#include <map>

namespace diskaccess {

namespace {

/// The channel argument of a search: one channel, or all of them.
uint32_t SearchedChannel(uint32_t set) {
    for (uint32_t chn = 0; chn < 32; ++chn) {
        if (set == 1u << chn) {
            return chn;
        }
    }
    return 0xFFFFFFFF;
}

/// Cuts off what lies outside the range: the search may have begun earlier, and a block asked by itself gives
/// all it has. Coarse records are left as they are.
/// @return false when nothing worth a line is left
bool Clip(RecordItem_t& record, uint32_t first, uint32_t end) {
    if (record.flag == 1) {
        return record.startTime < end;
    }
    const uint32_t clipStart = std::max(record.startTime, first);
    const uint32_t clipEnd = record.endTime > end + 1 ? end : record.endTime;
    if (clipStart + 1 >= clipEnd) {
        return false;
    }
    if (clipStart != record.startTime || clipEnd != record.endTime) {
        record.size = (clipEnd - clipStart) * (record.size / (record.endTime - record.startTime));
        record.startTime = clipStart;
        record.endTime = clipEnd;
    }
    return true;
}

/// Asks every recorded block by itself.
void SalvageRecords(Job& job, CCommList<RecordItem_t>& found) {
    CCommList<UnitItem_t> units;
    job.Search().GetUnitInfo(&units);
    for (const auto* node = units.m_pHead; node != nullptr; node = node->pNext) {
        job.Search().SearchUnitMedia(node->data.unitId, &found, nullptr);
    }
}

/// Adds the events of the oldest recording's first second, in which every search begins, and which it leaves
/// out.
void AddFirstEvents(Job& job, const Range& range, uint64_t mask, std::vector<EventItem_t>& events) {
    const auto ring = job.Disk().RecordedRing();
    const auto ends = ring ? job.Disk().EndsOf(ring->oldest) : std::nullopt;
    if (!ends || ends->head.RecTime < range.first || ends->head.RecTime > range.last) {
        return;
    }
    CCommList<RecordItem_t> records;
    CCommList<EventItem_t> found;
    job.Search().SearchUnitMedia(ring->oldest, &records, &found);
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        if (node->data.time == ends->head.RecTime && (node->data.alarmType & mask) != 0) {
            events.push_back(node->data);
        }
    }
}

} // namespace

std::vector<EventItem_t> FindEvents(Job& job, uint64_t mask) {
    const Range range = job.WantedRange();
    // The search leaves out its two end seconds; a user who names them means them.
    const uint32_t start = job.Disk().SafeSearchStart(range.first);
    const uint32_t before = start == 0 ? 0 : start - 1;
    const uint32_t behind = range.last == 0x7FFFFFFF ? range.last : range.last + 1;
    SearchParam_t request = {mask, before, behind, 0xFFFFFFFF};
    CCommList<EventItem_t> found;
    job.Search().SearchEvent(&request, &found);
    std::vector<EventItem_t> events;
    AddFirstEvents(job, range, mask, events);
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        if (node->data.time >= range.first) {
            events.push_back(node->data);
        }
    }
    return events;
}

AlarmTags::AlarmTags(Job& job, const std::vector<EventItem_t>& events, bool aroundAlarms) {
    std::map<uint32_t, std::pair<uint32_t, uint32_t>> timesOfBlock;
    for (const EventItem_t& event : events) {
        const uint32_t block = event.eventId >> 16;
        auto times = timesOfBlock.find(block);
        if (times == timesOfBlock.end()) {
            const auto ends = aroundAlarms ? job.Disk().EndsOf(block) : std::nullopt;
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

std::vector<RecordItem_t> FindRecords(Job& job, const Range& range, uint64_t alarms, const AlarmTags& tags) {
    const uint32_t channels = job.WantedChannels();
    SearchParam_t request = {alarms, job.Disk().SafeSearchStart(range.first), range.endOfMedia,
                             SearchedChannel(channels)};
    CCommList<RecordItem_t> found;
    job.Search().SearchMedia(&request, &found);
    const bool salvaged = job.ReadsFailed();
    if (salvaged) {
        found.RemoveAll();
        SalvageRecords(job, found);
    }
    std::vector<RecordItem_t> records;
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        RecordItem_t record = node->data;
        const bool wanted = record.chn < 32 && (channels >> record.chn & 1) != 0 &&
                            Clip(record, range.first, range.endOfMedia);
        const bool besideAlarms =
            salvaged && alarms != 0 && (tags.TypesOf(record.startTime, record.endTime) & alarms) == 0;
        if (wanted && !besideAlarms) {
            records.push_back(record);
        }
    }
    return records;
}

std::vector<RecordItem_t> FindMixedRecords(Job& job) {
    CCommList<RecordItem_t> whole;
    std::map<uint32_t, RecordItem_t> byId;
    for (const RecordItem_t& record : FindRecords(job, job.WantedRange(), 0, AlarmTags(job, {}, false))) {
        whole.AddTail(record);
        byId[record.recId] = record;
    }
    CCommList<EventItem_t> events;
    for (const EventItem_t& event : FindEvents(job, std::numeric_limits<uint64_t>::max())) {
        events.AddTail(event);
    }
    SearchParam_t request = {job.WantedAlarms().value_or(0), 0, 0, 0};
    CCommList<RecordItem_t> pieces;
    job.Search().MixBuildList(&whole, &events, &request, &pieces);
    std::vector<RecordItem_t> records;
    for (const auto* node = pieces.m_pHead; node != nullptr; node = node->pNext) {
        RecordItem_t piece = node->data;
        const RecordItem_t& record = byId[piece.recId];
        const uint64_t length = record.endTime - record.startTime;
        if (piece.startTime < piece.endTime && length != 0) {
            piece.size =
                static_cast<uint32_t>(record.size * uint64_t{piece.endTime - piece.startTime} / length);
            records.push_back(piece);
        }
    }
    return records;
}

} // namespace diskaccess
