// The media search around alarms.

#include "search/search_disk_alarm.h"

#include <algorithm>
#include <cstdint>

#include "format/ids.h"
#include "format/list_elements.h"
#include "format/times.h"
#include "search/alarm_periods.h"
#include "search/record_finder.h"
#include "search_disk.h"

namespace disk_access {

namespace {

/// Cuts the records to alarm windows, and appends the parts to the caller's list.
class AlarmRecords {
public:
    AlarmRecords(const CCommList<RecordItem_t>& records, uint64_t alarmMask, CCommList<RecordItem_t>& out)
        : m_records(records), m_finder(records), m_alarmMask(alarmMask), m_out(out) {}

    /// Appends the part of every record that is inside the window.
    void Emit(const EventPeriodItem_t& window) {
        m_finder.Find(window.startTime, window.endTime, [&](RecordItem_t record) {
            if (Cut(record, window)) {
                Append(record);
            }
        });
    }

    /// The same for the last window. After the part of each coarse record (made without an index) the record
    /// itself is appended, already cut if it overlaps the window: its block may contain events that are not
    /// known.
    void EmitLast(const EventPeriodItem_t& window) {
        for (RecordItem_t record : ListElements(m_records)) {
            if (Cut(record, window)) {
                Append(record);
            }
            if (record.flag == kWholeBlockRecord) {
                Append(record);
            }
        }
    }

    int Count() const { return m_count; }

private:
    bool Cut(RecordItem_t& record, const EventPeriodItem_t& window) const {
        unsigned int start = 0;
        unsigned int end = 0;
        if (IntervalIntersection(window.startTime, window.endTime, record.startTime, record.endTime, &start,
                                 &end) != 0) {
            return false;
        }
        record.startTime = start;
        record.endTime = end;
        record.alarmType = m_alarmMask;
        return true;
    }

    void Append(const RecordItem_t& record) {
        if (LongEnough(record.startTime, record.endTime)) {
            m_out.AddTail(record);
            ++m_count;
        }
    }

    const CCommList<RecordItem_t>& m_records;
    const RecordFinder m_finder;
    uint64_t m_alarmMask;
    CCommList<RecordItem_t>& m_out;
    int m_count = 0;
};

} // namespace

int SearchAlarmMedia(CSearchPart& part, SearchParam_t* param, unsigned int lockedMap,
                     CCommList<RecordItem_t>* out) {
    SearchParam_t plain = *param;
    plain.alarmMask = 0;
    CCommList<RecordItem_t> records;
    if (part.SearchMedia(&plain, lockedMap, &records) <= 0) {
        return 0;
    }
    CCommList<EventItem_t> events;
    if (part.SearchEvent(param, &events) <= 0) {
        return 0;
    }
    AlarmRecords found(records, param->alarmMask, *out);
    AlarmPeriods periods(part, events);
    EventPeriodItem_t window = {};
    while (periods.Next(window)) {
        found.Emit(window);
    }
    found.EmitLast(periods.Last());
    return found.Count();
}

} // namespace disk_access

int IntervalIntersection(unsigned int a0, unsigned int a1, unsigned int b0, unsigned int b1, unsigned int* o0,
                         unsigned int* o1) {
    if (a0 > b1) {
        return -1;
    }
    if (b0 > a1) {
        return 1;
    }
    *o0 = std::max(a0, b0);
    *o1 = std::min(a1, b1);
    return 0;
}
