#ifndef DISKACCESS_NAMED_H
#define DISKACCESS_NAMED_H

/// @file named.h
/// Records, events and journeys by the names that list, events and journeys show them under.

#include <cstdint>
#include <string>
#include <vector>

#include "cli/context.h"
#include "recordings/journeys.h"
#include "recordings/records.h"

namespace diskaccess {

/// BLOCK/CHANNEL/SEGMENT.
struct RecordName {
    uint32_t block = 0;
    uint32_t channel = 0;
    uint32_t segment = 0;
};

/// BLOCK/ENTRY.
struct EventName {
    uint32_t block = 0;
    uint32_t entry = 0;
};

/// @throws WrongUse
RecordName ReadRecordName(const std::string& text);
/// @throws WrongUse
EventName ReadEventName(const std::string& text);

/// The record of this name, in a block that can be read; nothing when it has none.
std::optional<recordings::Record> FindRecord(Context& context, const recordings::Block& block,
                                             const RecordName& name);

/// The record that --record names.
/// @throws Failure when there is none
recordings::Record NamedRecord(Context& context);
/// The event that --event names.
/// @throws Failure when there is none
recordings::Event NamedEvent(Context& context);

/// The journeys that have a channel that is asked for, parted by --silence. Their numbers are those among all journeys.
std::vector<recordings::Journey> AskedJourneys(Context& context);
/// The journey that --journey names.
/// @throws Failure when there is none, or it has no channel that is asked for
recordings::Journey NamedJourney(Context& context);

} // namespace diskaccess

#endif // DISKACCESS_NAMED_H
