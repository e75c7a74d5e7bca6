#ifndef DISK_ACCESS_SEARCH_ALARM_FINDER_H
#define DISK_ACCESS_SEARCH_ALARM_FINDER_H

#include <cstdint>

#include "format/index_tables.h"

namespace disk_access {

/// No entry of an event table.
constexpr uint32_t kNoEvent = 0xFFFFFFFF;

/// The first entry of the event table, in its order, whose second is in [@p start, @p end] and whose type has
/// a bit of @p mask; or kNoEvent. Tests one event after the other.
uint32_t FirstAlarm(const IndexTables& index, int32_t start, int32_t end, uint64_t mask);

/// FirstAlarm() for many time spans. A forged block can have tens of thousands of segments and as many
/// events. For these, the events are sorted by time once, and a tree over them has the first entry of each
/// range.
class AlarmFinder {
public:
    /// @param index must not change while this object is used
    /// @param spans how many spans will be asked for: for a few, or with a short table, sorting does not pay
    AlarmFinder(const IndexTables& index, uint64_t mask, uint64_t spans);
    ~AlarmFinder();
    AlarmFinder(const AlarmFinder&) = delete;
    AlarmFinder& operator=(const AlarmFinder&) = delete;

    uint32_t First(int32_t start, int32_t end) const;

private:
    void TakeEvents();
    void MakeTree();

    const IndexTables& m_index;
    uint64_t m_mask;
    uint32_t m_count = 0;         ///< events that have a bit of the mask
    uint64_t* m_events = nullptr; ///< second and entry of each, sorted; null: test them one by one
    uint32_t* m_firsts =
        nullptr; ///< nodes of the tree: 1 is the root, 2 n and 2 n + 1 are below n, the last are the events
};

} // namespace disk_access

#endif // DISK_ACCESS_SEARCH_ALARM_FINDER_H
