#include "search/alarm_finder.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "format/times.h"

namespace disk_access {

namespace {

/// This many tests of an event cost about as much as sorting.
constexpr uint64_t kWorthSorting = 1024;

/// A sort key: orders events by second, as a signed number, and then by entry.
constexpr uint64_t SortKey(int32_t second, uint32_t entry) {
    return uint64_t{static_cast<uint32_t>(second) ^ 0x80000000} << 32 | entry;
}

} // namespace

uint32_t FirstAlarm(const IndexTables& index, int32_t start, int32_t end, uint64_t mask) {
    for (uint32_t i = 0; i < index.Events(); ++i) {
        const EventIndexItem_t event = index.eventTab.At(i);
        const int32_t second = SecondsOf(event.pts);
        if (start <= second && second <= end && (event.type & mask) != 0) {
            return i;
        }
    }
    return kNoEvent;
}

AlarmFinder::AlarmFinder(const IndexTables& index, uint64_t mask, uint64_t spans)
    : m_index(index), m_mask(mask) {
    const uint32_t events = index.Events();
    if (spans * events < kWorthSorting) {
        return;
    }
    // One sort key and two tree nodes per event. Without memory, the events are tested one by one, which
    // takes longer.
    m_events =
        static_cast<uint64_t*>(std::malloc(size_t{events} * (sizeof *m_events + 2 * sizeof *m_firsts)));
    if (m_events != nullptr) {
        m_firsts = reinterpret_cast<uint32_t*>(m_events + events);
        TakeEvents();
        MakeTree();
    }
}

AlarmFinder::~AlarmFinder() {
    std::free(m_events);
}

void AlarmFinder::TakeEvents() {
    bool sorted = true; // as the recorder writes them
    for (uint32_t i = 0; i < m_index.Events(); ++i) {
        const EventIndexItem_t event = m_index.eventTab.At(i);
        if ((event.type & m_mask) != 0) {
            const uint64_t key = SortKey(SecondsOf(event.pts), i);
            sorted = sorted && (m_count == 0 || m_events[m_count - 1] < key);
            m_events[m_count++] = key;
        }
    }
    if (!sorted) {
        // Sorts in place, and never takes more than n log n steps.
        std::make_heap(m_events, m_events + m_count);
        std::sort_heap(m_events, m_events + m_count);
    }
}

void AlarmFinder::MakeTree() {
    for (uint32_t i = 0; i < m_count; ++i) {
        m_firsts[m_count + i] = static_cast<uint32_t>(m_events[i]);
    }
    for (size_t node = m_count; node-- > 1;) {
        m_firsts[node] = std::min(m_firsts[2 * node], m_firsts[2 * node + 1]);
    }
}

uint32_t AlarmFinder::First(int32_t start, int32_t end) const {
    if (m_events == nullptr) {
        return FirstAlarm(m_index, start, end, m_mask);
    }
    const uint64_t* const events = m_events;
    const auto* const from = std::lower_bound(events, events + m_count, SortKey(start, 0));
    const auto* const to = std::lower_bound(events, events + m_count, SortKey(end, kNoEvent));
    auto left = static_cast<size_t>(from - events) + m_count;
    auto right = static_cast<size_t>(to - events) + m_count;
    // Covers the range from left to before right with as few nodes as possible.
    uint32_t first = kNoEvent;
    for (; left < right; left /= 2, right /= 2) {
        if (left % 2 != 0) {
            first = std::min(first, m_firsts[left++]);
        }
        if (right % 2 != 0) {
            first = std::min(first, m_firsts[--right]);
        }
    }
    return first;
}

} // namespace disk_access
