#ifndef DISK_ACCESS_SEARCH_ALARM_PERIODS_H
#define DISK_ACCESS_SEARCH_ALARM_PERIODS_H

#include <cstdint>

#include "search_part.h"
#include "search_records.h"

namespace disk_access {

/// Makes periods from events. A period goes from the pre-record time before its event to the alarm delay
/// after it (both from the head of the event's block). If the next period begins inside, the two are joined.
/// Times are unsigned 32-bit seconds, as on the disk; a start of 0 means that there is no period.
class AlarmPeriods {
public:
    /// @param events events are removed as they are used
    AlarmPeriods(CSearchPart& part, CCommList<EventItem_t>& events) : m_part(part), m_events(events) {}

    /// Takes events up to one that begins another period.
    /// @return true with the period before it; false if there are no more events
    bool Next(EventPeriodItem_t& period);

    /// The period of the last events, after which no other period began.
    const EventPeriodItem_t& Last() const { return m_open; }

private:
    CSearchPart& m_part;
    CCommList<EventItem_t>& m_events;
    EventPeriodItem_t m_open = {};
};

} // namespace disk_access

#endif // DISK_ACCESS_SEARCH_ALARM_PERIODS_H
