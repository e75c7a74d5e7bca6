#include "findings.h"

#include <algorithm>
#include <limits>
#include <map>

#include "recorded_blocks.h"

namespace diskaccess {

namespace {

constexpr uint32_t kAllChannels = 0xFFFFFFFF;

/// The longest time before or after an event that a recorder is expected to count as its alarm.
constexpr uint32_t kLongestAlarm = 3600;

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

/// Asks every block by itself, in recording order.
void SearchEveryBlock(Job& job, CCommList<RecordItem_t>& records, CCommList<EventItem_t>* events) {
    for (const RecordedBlock& block : AllBlocks(job)) {
        if (!block.suspect) {
            job.Search().SearchUnitMedia(block.number, &records, events);
        }
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

/// The events of a range that a search by time finds.
std::vector<EventItem_t> SearchEvents(Job& job, const Range& range, uint64_t mask) {
    // The search leaves out its two end seconds; a user who names them means them.
    const uint32_t start = job.Disk().SafeSearchStart(range.first);
    const uint32_t before = start == 0 ? 0 : start - 1;
    const uint32_t behind = range.last == 0x7FFFFFFF ? range.last : range.last + 1;
    SearchParam_t request = {mask, before, behind, kAllChannels};
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

/// The events of a range, wherever they lie.
std::vector<EventItem_t> EventsOfEveryBlock(Job& job, const Range& range, uint64_t mask) {
    CCommList<RecordItem_t> records;
    CCommList<EventItem_t> found;
    SearchEveryBlock(job, records, &found);
    std::vector<EventItem_t> events;
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        const EventItem_t& event = node->data;
        if (event.time >= range.first && event.time <= range.last && (event.alarmType & mask) != 0) {
            events.push_back(event);
        }
    }
    return events;
}

/// Those of the channels asked for, cut to the range.
std::vector<RecordItem_t> Wanted(const Job& job, const Range& range, const CCommList<RecordItem_t>& found) {
    const uint32_t channels = job.WantedChannels();
    std::vector<RecordItem_t> records;
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        RecordItem_t record = node->data;
        if (record.chn < 32 && (channels >> record.chn & 1) != 0 &&
            Clip(record, range.first, range.endOfMedia)) {
            records.push_back(record);
        }
    }
    return records;
}

std::vector<RecordItem_t> SearchRecords(Job& job, const Range& range) {
    // All channels, since a search for one ends at the first open block that lacks it.
    SearchParam_t request = {0, job.Disk().SafeSearchStart(range.first), range.endOfMedia, kAllChannels};
    CCommList<RecordItem_t> found;
    job.Search().SearchMedia(&request, &found);
    return Wanted(job, range, found);
}

std::vector<RecordItem_t> RecordsOfEveryBlock(Job& job, const Range& range) {
    CCommList<RecordItem_t> found;
    SearchEveryBlock(job, found, nullptr);
    return Wanted(job, range, found);
}

} // namespace

std::vector<EventItem_t> FindEvents(Job& job, const Range& range, uint64_t mask) {
    return job.AsksEveryBlock() ? EventsOfEveryBlock(job, range, mask) : SearchEvents(job, range, mask);
}

Range AlarmRange(const Range& range) {
    Range wider = range;
    wider.first -= std::min(range.first, kLongestAlarm);
    wider.last += std::min(0x7FFFFFFF - range.last, kLongestAlarm);
    return wider;
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

std::vector<AlarmTags::Stretch> AlarmTags::Stretches() const {
    std::vector<Stretch> stretches;
    for (const Span& span : m_spans) {
        const auto first = static_cast<uint32_t>(std::clamp<int64_t>(span.first, 0, 0x7FFFFFFF));
        const auto last = static_cast<uint32_t>(std::clamp<int64_t>(span.last, 0, 0x7FFFFFFF));
        if (!stretches.empty() && first <= stretches.back().last) {
            stretches.back().last = std::max(stretches.back().last, last);
        } else {
            stretches.push_back({first, last});
        }
    }
    return stretches;
}

std::vector<RecordItem_t> FindRecords(Job& job, const Range& range) {
    if (!job.AsksEveryBlock()) {
        std::vector<RecordItem_t> records = SearchRecords(job, range);
        if (!job.ReadsFailed()) { // else the search has ended where they did
            return records;
        }
    }
    return RecordsOfEveryBlock(job, range);
}

std::vector<RecordItem_t> CutAroundAlarms(const std::vector<RecordItem_t>& records, const AlarmTags& tags) {
    const std::vector<AlarmTags::Stretch> stretches = tags.Stretches();
    std::vector<RecordItem_t> parts;
    for (const RecordItem_t& record : records) {
        if (record.flag == 1) { // whose alarms are not indexed
            parts.insert(parts.end(), stretches.empty() ? 0 : 1, record);
            continue;
        }
        auto stretch =
            std::lower_bound(stretches.begin(), stretches.end(), record.startTime,
                             [](const AlarmTags::Stretch& each, uint32_t time) { return each.last < time; });
        for (; stretch != stretches.end() && stretch->first < record.endTime; ++stretch) {
            RecordItem_t part = record;
            if (Clip(part, stretch->first, stretch->last)) {
                parts.push_back(part);
            }
        }
    }
    return parts;
}

std::vector<RecordItem_t> FindMixedRecords(Job& job) {
    CCommList<RecordItem_t> whole;
    std::map<uint32_t, RecordItem_t> byId;
    for (const RecordItem_t& record : FindRecords(job, job.WantedRange())) {
        whole.AddTail(record);
        byId[record.recId] = record;
    }
    CCommList<EventItem_t> events;
    for (const EventItem_t& event :
         FindEvents(job, job.WantedRange(), std::numeric_limits<uint64_t>::max())) {
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
