#ifndef DISKACCESS_FINDINGS_H
#define DISKACCESS_FINDINGS_H

/// @file findings.h
/// What the user asked for, found: the library's searches, made to miss nothing that can still be read.

#include <cstdint>
#include <vector>

#include "job.h"

namespace diskaccess {

/// The events of the range asked for whose type meets @p mask, both its end seconds included.
std::vector<EventItem_t> FindEvents(Job& job, uint64_t mask);

/// Tells which alarms a stretch of recording belongs to.
class AlarmTags {
public:
    /// @param aroundAlarms a stretch belongs to an event also when it lies in the time that is recorded
    ///                     before and after it; else only when the event lies in the stretch
    AlarmTags(Job& job, const std::vector<EventItem_t>& events, bool aroundAlarms);

    /// The type bits of all events that the stretch belongs to. Times of the disk, both ends included.
    uint64_t TypesOf(uint32_t start, uint32_t end) const;

private:
    /// An event's time, with the recording before and behind it.
    struct Span {
        int64_t first;
        int64_t last;
        uint64_t type;
    };
    std::vector<Span> m_spans; ///< by their first second
    int64_t m_longest = 0;
};

/// The records of a range and of the channels asked for, cut to the range; with alarms to look for, only those
/// around them.
///
/// A search ends at the first block that cannot be read. Where reads failed, every block is asked by itself
/// instead, and what was recorded around alarms then comes uncut.
std::vector<RecordItem_t> FindRecords(Job& job, const Range& range, uint64_t alarms, const AlarmTags& tags);

/// The records of the range and channels asked for, cut where alarms begin and end: each piece bears the types
/// of the alarms it belongs to, and its share of the record's bytes. With alarms asked for, only their pieces.
std::vector<RecordItem_t> FindMixedRecords(Job& job);

} // namespace diskaccess

#endif // DISKACCESS_FINDINGS_H
