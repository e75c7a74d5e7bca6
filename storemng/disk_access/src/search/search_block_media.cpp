// CSearchBlock: the records and events from a block's index.

#include <algorithm>
#include <cstdint>

#include "format/channels.h"
#include "format/ids.h"
#include "format/times.h"
#include "search/alarm_finder.h"
#include "search/search_block_state.h"
#include "search_block.h"

using namespace disk_access;

namespace {

/// The span of a search, in the recorder's signed seconds.
struct Span {
    int32_t start;
    int32_t end;

    bool Overlaps(int32_t s, int32_t e) const { return (start <= s && s < end) || (s < start && start <= e); }
    bool Holds(int32_t time) const { return start < time && time < end; }
};

/// A record made without an index lasts at most this long.
constexpr uint32_t kNoIndexRecordSeconds = 12 * 60 * 60;

/// The bytes of the part of a segment that a record covers, estimated from the segment's average rate.
/// Divides first, because the recorder computes in 32 bits.
uint32_t ClippedSize(const RecSegItem_t& seg, uint32_t clipStart, uint32_t clipEnd) {
    if ((seg.s == clipStart && seg.e == clipEnd) || seg.s == seg.e) {
        return seg.totalsize;
    }
    return (clipEnd - clipStart) * (seg.totalsize / (seg.e - seg.s));
}

/// The types that an alarm mask asks for. Without a mask, records are tagged with events of the lower types.
uint64_t AlarmTypes(int64_t alarmMask) {
    return alarmMask == 0 ? 0xFFFFFFFFu : static_cast<uint64_t>(alarmMask);
}

/// The alarm type of a record with this event. Without an event: 0 if the mask is 0, else -1, which means
/// that the record does not belong to the search.
int64_t AlarmType(const IndexTables& index, uint32_t event, int64_t alarmMask) {
    if (event == kNoEvent) {
        return alarmMask == 0 ? 0 : -1;
    }
    return static_cast<int64_t>(index.eventTab.At(event).type);
}

/// The parameters that are the same for all segments of one search.
struct MediaQuery {
    uint32_t block;
    Span span;
    uint32_t skipChnMask;
    int64_t alarmMask;
    uint32_t offsetMode;
};

/// Makes the record of a segment that overlaps the search. A segment that ends one second after the search
/// keeps its own end.
RecordItem_t MakeRecord(const MediaQuery& query, uint32_t chn, uint32_t segment, const RecSegItem_t& seg,
                        int64_t alarmType) {
    const int32_t s = Signed(seg.s);
    const int32_t e = Signed(seg.e);
    RecordItem_t record = {};
    record.alarmType = static_cast<uint64_t>(alarmType);
    record.recId = MakeRecordId(query.block, chn, segment);
    record.chn = chn;
    record.startTime = static_cast<uint32_t>(std::max(s, query.span.start));
    record.endTime = static_cast<uint32_t>(e > int64_t{query.span.end} + 1 ? query.span.end : e);
    record.size = query.offsetMode != 0 ? seg.spos : ClippedSize(seg, record.startTime, record.endTime);
    record.flag = query.offsetMode;
    return record;
}

/// Appends the record of one segment in memory, if it belongs to the search.
/// @return the number appended: 0 or 1
int AddSegment(const BlockIndexCache_t& cache, const AlarmFinder& alarms, const MediaQuery& query,
               uint32_t chn, uint32_t segment, CCommList<RecordItem_t>* recList) {
    const RecSegItem_t seg = cache.recSegTab[chn].At(segment);
    const int32_t s = Signed(seg.s);
    const int32_t e = Signed(seg.e);
    if (!query.span.Overlaps(s, e) || HasChannel(query.skipChnMask, chn)) {
        return 0;
    }
    const int64_t alarmType = AlarmType(cache, alarms.First(s, e), query.alarmMask);
    if (alarmType < 0) {
        return 0;
    }
    const RecordItem_t record = MakeRecord(query, chn, segment, seg, alarmType);
    if (!LongEnough(record.startTime, record.endTime)) {
        return 0;
    }
    recList->AddTail(record);
    return 1;
}

/// Appends the events in memory that are inside the span (both ends excluded) and whose type has a bit of the
/// mask. Mask 0 selects every event.
/// @return the number appended
int AddEvents(const BlockIndexCache_t& cache, uint32_t block, const Span& span, int64_t alarmMask,
              CCommList<EventItem_t>* list) {
    const auto mask = static_cast<uint64_t>(alarmMask);
    int appended = 0;
    for (uint32_t i = 0; i < cache.Events(); ++i) {
        const EventIndexItem_t entry = cache.eventTab.At(i);
        const int32_t time = SecondsOf(entry.pts);
        if (!span.Holds(time) || (mask != 0 && (entry.type & mask) == 0)) {
            continue;
        }
        EventItem_t event = {};
        event.alarmType = entry.type;
        event.eventId = MakeEventId(block, i);
        event.time = static_cast<uint32_t>(time);
        list->AddTail(event);
        ++appended;
    }
    return appended;
}

} // namespace

long long CSearchBlock::CheckAlarmContition(long start, long end, long long alarmMask) {
    if (m_pCache == nullptr) {
        return alarmMask == 0 ? 0 : -1;
    }
    // The table may be an earlier block's: a search without events does not load this block's table. Only
    // entries in memory are tested, whatever the count says.
    const uint32_t event = FirstAlarm(*m_pCache, Seconds32(start), Seconds32(end), AlarmTypes(alarmMask));
    return AlarmType(*m_pCache, event, alarmMask);
}

int CSearchBlock::GetEventList(unsigned int block, long start, long end, long long alarmMask,
                               CCommList<EventItem_t>* list) {
    const Span span = {Seconds32(start), Seconds32(end)};
    if (m_pCache == nullptr || alarmMask == 0 || list == nullptr || span.start >= span.end) {
        return -1;
    }
    // Only events of a block that is complete by its tail are used; the extended tail is not enough.
    if (ReadBlockIndexList(block, kLoadEvents) != kIndexComplete) {
        return -1;
    }
    if (!m_pCache->eventTab.Allocated() || m_pCache->counts.eventCount == 0) {
        return -1;
    }
    return AddEvents(*m_pCache, block, span, alarmMask, list);
}

int CSearchBlock::GetMediaList(unsigned int block, long start, long end, unsigned int chn,
                               unsigned int skipChnMask, long long alarmMask,
                               CCommList<RecordItem_t>* recList, CCommList<EventItem_t>* evList) {
    const bool channelKnown = chn < kChannels || chn == kAllChannels;
    if (m_pCache == nullptr || Seconds32(start) > Seconds32(end) || recList == nullptr || !channelKnown) {
        return -1;
    }
    switch (ReadBlockIndexList(block, evList != nullptr ? kLoadRecSegs | kLoadEvents : kLoadRecSegs)) {
    case kIndexComplete:
        return chn == kAllChannels
                   ? GetAllChnMediaList(block, start, end, skipChnMask, alarmMask, 0, recList, evList)
                   : GetSigleChnMediaList(block, start, end, chn, skipChnMask, alarmMask, 0, recList, evList);
    case kIndexIncomplete:
    case kCompleteByExtendedTail:
        return GetNoIndexMediaList(block, chn, skipChnMask, recList);
    default:
        return -1;
    }
}

int CSearchBlock::GetSigleChnMediaList(unsigned int block, long start, long end, unsigned int chn,
                                       unsigned int skipChnMask, long long alarmMask, unsigned int offsetMode,
                                       CCommList<RecordItem_t>* recList, CCommList<EventItem_t>* evList) {
    if (m_pCache == nullptr || chn >= kChannels || !m_pCache->recSegTab[chn].Allocated()) {
        return -1;
    }
    const MediaQuery query = {block, {Seconds32(start), Seconds32(end)}, skipChnMask, alarmMask, offsetMode};
    const AlarmFinder alarms(*m_pCache, AlarmTypes(alarmMask), m_pCache->Segments(chn));
    int appended = 0;
    for (uint32_t i = 0; i < m_pCache->Segments(chn); ++i) {
        appended += AddSegment(*m_pCache, alarms, query, chn, i, recList);
    }
    if (evList != nullptr) {
        AddEvents(*m_pCache, block, query.span, alarmMask, evList);
    }
    return appended;
}

int CSearchBlock::GetAllChnMediaList(unsigned int block, long start, long end, unsigned int skipChnMask,
                                     long long alarmMask, unsigned int offsetMode,
                                     CCommList<RecordItem_t>* recList, CCommList<EventItem_t>* evList) {
    if (m_pCache == nullptr) {
        return -1;
    }
    const MediaQuery query = {block, {Seconds32(start), Seconds32(end)}, skipChnMask, alarmMask, offsetMode};
    uint32_t most = 0;
    uint64_t all = 0;
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        most = std::max(most, m_pCache->Segments(chn));
        all += m_pCache->Segments(chn);
    }
    const AlarmFinder alarms(*m_pCache, AlarmTypes(alarmMask), all);
    int appended = 0;
    for (uint32_t i = 0; i < most; ++i) {
        for (uint32_t chn = 0; chn < kChannels; ++chn) {
            if (i < m_pCache->Segments(chn)) {
                appended += AddSegment(*m_pCache, alarms, query, chn, i, recList);
            }
        }
    }
    if (evList != nullptr) {
        AddEvents(*m_pCache, block, query.span, alarmMask, evList);
    }
    return appended;
}

int CSearchBlock::GetNoIndexMediaList(unsigned int block, unsigned int chn, unsigned int skipChnMask,
                                      CCommList<RecordItem_t>* recList) {
    BlockHead_t head = {};
    if (m_pCache == nullptr || !m_pCache->geometry.HoldsBlock() ||
        GetBlockInfo(block, &head, nullptr, nullptr, nullptr) != 0) {
        return -1;
    }
    const uint32_t midnight = (head.RecTime + (kSecondsPerDay - 1)) / kSecondsPerDay * kSecondsPerDay;
    const uint32_t first = chn == kAllChannels ? 0 : chn;
    const uint32_t last = chn == kAllChannels ? kChannels - 1 : chn;
    int appended = 0;
    for (uint32_t c = first; c <= last; ++c) {
        if (!HasChannel(head.media_chn_bitmap, c) || HasChannel(skipChnMask, c)) {
            continue;
        }
        RecordItem_t record = {};
        record.recId = MakeRecordId(block, c, 0);
        record.chn = c;
        record.startTime = head.RecTime;
        record.endTime = std::min(head.RecTime + kNoIndexRecordSeconds, midnight);
        record.size = NO_INDEX_RECORD_SIZE;
        record.flag = kWholeBlockRecord;
        recList->AddTail(record);
        ++appended;
    }
    return appended;
}
