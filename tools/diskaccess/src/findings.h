#ifndef DISKACCESS_FINDINGS_H
#define DISKACCESS_FINDINGS_H

/// @file findings.h
/// What the user asked for, found: the library's searches, made to miss nothing that can still be read.

#include <cstdint>
#include <vector>

#include "job.h"

namespace diskaccess {

/// The events of a range whose type meets @p mask, both its end seconds included.
std::vector<EventItem_t> FindEvents(Job& job, const Range& range, uint64_t mask);

/// The range in which events may lie whose alarms reach into @p range.
Range AlarmRange(const Range& range);

/// Tells which alarms a stretch of recording belongs to.
class AlarmTags {
public:
    /// @param aroundAlarms a stretch belongs to an event also when it lies in the time that is recorded
    ///                     before and after it; else only when the event lies in the stretch
    AlarmTags(Job& job, const std::vector<EventItem_t>& events, bool aroundAlarms);

    /// The type bits of all events that the stretch belongs to. Times of the disk, both ends included.
    uint64_t TypesOf(uint32_t start, uint32_t end) const;

    /// A time in which something was the matter, both ends included.
    struct Stretch {
        uint32_t first;
        uint32_t last;
    };
    /// The times that events belong to, in order, those that meet each other as one.
    std::vector<Stretch> Stretches() const;

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

/// The records of a range and of the channels asked for, cut to the range.
///
/// A search by time ends at the first block that cannot be read: then every block is asked by itself.
std::vector<RecordItem_t> FindRecords(Job& job, const Range& range);

/// The parts of records that lie around alarms, with their share of the bytes. Blocks that were never closed
/// come whole, if there are alarms at all.
std::vector<RecordItem_t> CutAroundAlarms(const std::vector<RecordItem_t>& records, const AlarmTags& tags);

/// The records of the range and channels asked for, cut where alarms begin and end: each piece bears the types
/// of the alarms it belongs to, and its share of the record's bytes. With alarms asked for, only their pieces.
std::vector<RecordItem_t> FindMixedRecords(Job& job);

} // namespace diskaccess

#endif // DISKACCESS_FINDINGS_H
