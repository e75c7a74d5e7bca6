#include "search/alarm_periods.h"

namespace disk_access {

bool AlarmPeriods::Next(EventPeriodItem_t& period) {
    while (m_events.m_nCount > 0) {
        const EventItem_t event = m_events.RemoveHead();
        unsigned int pre = 0;
        unsigned int post = 0;
        m_part.GetEventPara(event.eventId, &pre, &post);
        const uint32_t begin = event.time - pre;
        const uint32_t end = event.time + post;
        if (m_open.startTime != 0 && m_open.startTime <= begin && begin <= m_open.endTime) {
            // The end becomes this event's end, even if that is earlier: delays differ from block to block.
            m_open.endTime = end;
            m_open.alarmType = m_open.alarmType | event.alarmType;
            continue;
        }
        period = m_open;
        m_open = {event.alarmType, begin, end};
        if (period.startTime != 0) {
            return true;
        }
    }
    return false;
}

} // namespace disk_access
