#include <limits>

#include "commands/commands.h"
#include "findings.h"
#include "recorded_blocks.h"

namespace diskaccess {

Report Events(Job& job) {
    const uint64_t mask = job.WantedAlarms().value_or(std::numeric_limits<uint64_t>::max());
    Table events = {
        "events", {{"time", "TIME"}, {"event_types", "TYPE"}, {"block", "BLOCK"}, {"entry", "ENTRY"}}, {}};
    std::vector<EventItem_t> found = FindEvents(job, job.WantedRange(), mask);
    if (found.empty() && TimesMislead(job)) {
        job.AskEveryBlock();
        found = FindEvents(job, job.WantedRange(), mask);
    }
    for (const EventItem_t& event : found) {
        events.rows.push_back({job.TrueTime(event.time), Mask{event.alarmType}, uint64_t{event.eventId >> 16},
                               uint64_t{event.eventId & 0xFFFF}});
    }
    Facts count = {{"event_count", "Events", uint64_t{events.rows.size()}}};
    return {{std::move(events), std::move(count)}};
}

} // namespace diskaccess
