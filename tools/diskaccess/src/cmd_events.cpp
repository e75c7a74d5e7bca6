#include <limits>

#include "commands.h"
#include "findings.h"

namespace diskaccess {

Report Events(Job& job) {
    const uint64_t mask = job.WantedAlarms().value_or(std::numeric_limits<uint64_t>::max());
    Table events = {
        "events", {{"time", "TIME"}, {"type", "TYPE"}, {"block", "BLOCK"}, {"entry", "ENTRY"}}, {}};
    for (const EventItem_t& event : FindEvents(job, mask)) {
        events.rows.push_back({job.TrueTime(event.time), Mask{event.alarmType}, uint64_t{event.eventId >> 16},
                               uint64_t{event.eventId & 0xFFFF}});
    }
    Report report;
    report.facts = {{"event_count", "Events", uint64_t{events.rows.size()}}};
    report.tables = {std::move(events)};
    return report;
}

} // namespace diskaccess
