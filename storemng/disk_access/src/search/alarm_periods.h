#ifndef DISK_ACCESS_SEARCH_ALARM_PERIODS_H
#define DISK_ACCESS_SEARCH_ALARM_PERIODS_H

#include <cstdint>

#include "search_part.h"
#include "search_records.h"

namespace disk_access {

/// Makes periods of events: each from its block's pre-record time before it to its block's alarm delay after it,
/// joined with the next one if that begins inside. Unsigned 32-bit seconds, as on the disk; a start of 0 stands for
/// no period.
class AlarmPeriods {
public:
    /// @param events is emptied by and by
    AlarmPeriods(CSearchPart& part, CCommList<EventItem_t>& events) : m_part(part), m_events(events) {}

    /// Takes events up to one that begins another period.
    /// @return true with the period before it; false when the events have come to their end
    bool Next(EventPeriodItem_t& period);

    /// The period of the last events, which nothing has ended.
    const EventPeriodItem_t& Last() const { return m_open; }

private:
    CSearchPart& m_part;
    CCommList<EventItem_t>& m_events;
    EventPeriodItem_t m_open = {};
};

} // namespace disk_access

#endif // DISK_ACCESS_SEARCH_ALARM_PERIODS_H
