// CSearchDisk: the mixed search, which cuts records where alarms begin and end.

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "format/channels.h"
#include "format/ids.h"
#include "format/times.h"
#include "search/alarm_periods.h"
#include "search/search_disk_state.h"
#include "search_disk.h"

using namespace disk_access;

namespace {

constexpr uint64_t kEveryAlarm = 0xFFFFFFFFFFFFFFFF;

using RecordList = CCommList<RecordItem_t>;
using EventList = CCommList<EventItem_t>;
using PeriodList = CCommList<EventPeriodItem_t>;

void TakePeriods(CSearchPart& part, EventList& events, PeriodList& periods) {
    AlarmPeriods source(part, events);
    EventPeriodItem_t period = {};
    while (source.Next(period)) {
        periods.AddTail(period);
    }
    if (source.Last().startTime != 0) {
        periods.AddTail(source.Last());
    }
}

/// The same segment of several channels of one block. A search of all channels lists them one after the
/// other, and they are cut together, by the time span of the first.
class Group {
public:
    /// Removes the records that belong together from the head of a list, which must not be empty.
    void TakeFrom(RecordList& records) {
        m_count = 0;
        do {
            m_records.at(m_count++) = records.RemoveHead();
        } while (records.m_nCount > 0 && m_count < m_records.size() && Belongs(records.m_pHead->data));
    }

    RecordItem_t* begin() { return m_records.data(); }
    RecordItem_t* end() { return m_records.data() + m_count; }
    const RecordItem_t& First() const { return m_records.front(); }

private:
    bool Belongs(const RecordItem_t& record) const {
        return BlockOfId(record.recId) == BlockOfId(First().recId) &&
               SegmentOfId(record.recId) == SegmentOfId(First().recId);
    }

    std::array<RecordItem_t, kChannels> m_records = {};
    size_t m_count = 0;
};

/// Takes all records out of a list. Records that are appended to that list later are not included.
class TakenRecords : public RecordList {
public:
    explicit TakenRecords(RecordList& from) {
        std::swap(m_pHead, from.m_pHead);
        std::swap(m_pTail, from.m_pTail);
        std::swap(m_nCount, from.m_nCount);
    }
};

/// Where a period is in relation to a record.
enum class Side { Before, Inside, Behind };

/// Cuts groups of records by periods, and appends the pieces to the caller's list.
class Cutter {
public:
    Cutter(CSearchPart& part, PeriodList& periods, uint64_t alarmMask, RecordList& out)
        : m_part(part), m_periods(periods), m_alarmMask(alarmMask), m_out(out) {}

    /// @return the number of records appended
    int Run(RecordList& records) {
        FetchPeriod();
        while (records.m_nCount > 0) {
            m_group.TakeFrom(records);
            m_part.GetRecordExtPara(m_group.First().recId, &m_channels);
            // A group may extend beyond a period, into the next one.
            while (CutByPeriod()) {
                FetchPeriod();
            }
        }
        return m_count;
    }

private:
    /// Makes the next period current. After the last period there is none, which counts as after every
    /// record. This is a state of its own and not a time, because a record may state the last possible second
    /// as its end.
    void FetchPeriod() {
        m_periodsLeft = m_periods.m_nCount > 0;
        if (m_periodsLeft) {
            m_period = m_periods.RemoveHead();
        }
    }

    Side SideOfPeriod() const {
        if (!m_periodsLeft) {
            return Side::Behind;
        }
        unsigned int start = 0;
        unsigned int end = 0;
        const int side = IntervalIntersection(m_period.startTime, m_period.endTime, m_group.First().startTime,
                                              m_group.First().endTime, &start, &end);
        return side < 0 ? Side::Behind : side > 0 ? Side::Before : Side::Inside;
    }

    /// @return true if the group must be cut by the next period too
    bool CutByPeriod() {
        switch (SideOfPeriod()) {
        case Side::Before:
            return true;
        case Side::Behind:
            EmitPlain();
            return false;
        default:
            EmitBefore();
            EmitInside();
            return MoveBehind();
        }
    }

    /// Appends the whole group, as plain recording.
    void EmitPlain() {
        for (RecordItem_t& record : m_group) {
            if (Visible(record) && LongEnough(record.startTime, record.endTime) && m_alarmMask == 0) {
                record.alarmType = 0;
                Append(record);
            }
        }
    }

    /// Appends what is before the period, as plain recording. The whole record must be long enough, not this
    /// piece.
    void EmitBefore() {
        for (RecordItem_t& record : m_group) {
            if (record.startTime >= m_period.startTime) {
                continue;
            }
            record.alarmType = 0;
            if (Visible(record) && LongEnough(record.startTime, record.endTime) && m_alarmMask == 0) {
                RecordItem_t piece = record;
                piece.endTime = m_period.startTime;
                Append(piece);
            }
            record.startTime = m_period.startTime;
        }
    }

    /// Appends what is inside the period, as recording of its alarms, for every channel.
    void EmitInside() {
        const bool wanted = m_alarmMask == 0 || (m_alarmMask & m_period.alarmType) != 0;
        for (RecordItem_t& record : m_group) {
            if (!LongEnough(record.startTime, record.endTime) || !wanted) {
                continue;
            }
            record.alarmType = m_period.alarmType;
            RecordItem_t piece = record;
            piece.endTime = std::min(piece.endTime, m_period.endTime);
            Append(piece);
        }
    }

    /// Keeps only what is after the period.
    /// @return whether there is anything after it
    bool MoveBehind() {
        bool more = false;
        for (RecordItem_t& record : m_group) {
            const bool usedUp = record.endTime < m_period.endTime;
            record.startTime = usedUp ? record.endTime : m_period.endTime;
            more = more || !usedUp;
        }
        return more;
    }

    /// Whether the recorder shows a record's channel outside alarms.
    bool Visible(const RecordItem_t& record) const {
        return HasChannel(m_channels, ChannelOfId(record.recId));
    }

    void Append(const RecordItem_t& record) {
        m_out.AddTail(record);
        ++m_count;
    }

    CSearchPart& m_part;
    PeriodList& m_periods;
    uint64_t m_alarmMask;
    RecordList& m_out;
    Group m_group;
    EventPeriodItem_t m_period = {};
    bool m_periodsLeft = false;
    unsigned int m_channels = 0xFFFFFFFF;
    int m_count = 0;
};

} // namespace

int CSearchDisk::MixSearch(SearchParam_t* param, CCommList<RecordItem_t>* out) {
    if (m_pState == nullptr || param == nullptr) {
        return -1;
    }
    SearchParam_t request = *param;
    request.alarmMask = 0;
    RecordList records;
    if (m_pState->searchPart->SearchMedia(&request, m_pState->lockedMap, &records) <= 0) {
        return 0;
    }
    request.alarmMask = kEveryAlarm;
    EventList events;
    m_pState->searchPart->SearchEvent(&request, &events);
    return MixBuildList(&records, &events, param, out);
}

int CSearchDisk::MixSearchUnit(unsigned int unit, CCommList<RecordItem_t>* out,
                               CCommList<EventItem_t>* evOut) {
    if (m_pState == nullptr) {
        return -1;
    }
    RecordList records;
    m_pState->searchPart->SearchUnitMedia(unit, m_pState->lockedMap, &records, evOut);
    EventList noEvents;
    SearchParam_t everything = {};
    return MixBuildList(&records, &noEvents, &everything, out);
}

int CSearchDisk::MixBuildList(CCommList<RecordItem_t>* recs, CCommList<EventItem_t>* events,
                              SearchParam_t* param, CCommList<RecordItem_t>* out) {
    if (m_pState == nullptr || recs == nullptr || events == nullptr || param == nullptr || out == nullptr) {
        return 0;
    }
    PeriodList periods;
    TakePeriods(*m_pState->searchPart, *events, periods);
    // If one list were both input and output, its pieces would be cut without end.
    TakenRecords records(*recs);
    return Cutter(*m_pState->searchPart, periods, param->alarmMask, *out).Run(records);
}
