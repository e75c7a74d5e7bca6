// CSearchDisk: the media search, plain or around alarms.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "format/ids.h"
#include "format/times.h"
#include "search/search_disk_state.h"
#include "search_disk.h"

using namespace disk_access;

namespace {

/// The time around one alarm, or around several whose times run into each other. Unsigned 32-bit seconds, as
/// on the disk. A start of 0 means that there is none yet.
struct AlarmWindow {
    uint32_t start = 0;
    uint32_t end = 0;

    bool Open() const { return start != 0; }
    bool Holds(uint32_t time) const { return start <= time && time <= end; }
};

/// Finds the records that meet a window, without looking at all of them for each window: a tree over stretches of the
/// list knows their earliest starts and latest ends.
class RecordFinder {
public:
    explicit RecordFinder(const CCommList<RecordItem_t>& records)
        : m_stretches((static_cast<size_t>(records.m_nCount) + kStretch - 1) / kStretch),
          m_leaves(LeavesFor(m_stretches.size())), m_spans(2 * m_leaves) {
        size_t place = 0;
        for (const auto* node = records.m_pHead; node != nullptr; node = node->pNext, ++place) {
            if (place % kStretch == 0) {
                m_stretches[place / kStretch] = node;
            }
        }
        for (size_t leaf = 0; leaf < m_stretches.size(); ++leaf) {
            ForEachOf(leaf, [&](const RecordItem_t& record) {
                m_spans[m_leaves + leaf].Take({record.startTime, record.endTime});
            });
        }
        for (size_t at = m_leaves - 1; at > 0; --at) {
            m_spans[at].Take(m_spans[2 * at]);
            m_spans[at].Take(m_spans[2 * at + 1]);
        }
    }

    /// Hands the records that may meet a window to @p visit, in the list's order.
    template <typename Visit>
    void Find(const AlarmWindow& window, const Visit& visit) const {
        for (size_t at = 1; at != 0;) {
            if (window.start > m_spans[at].end || m_spans[at].start > window.end) {
                at = Behind(at);
            } else if (at < m_leaves) {
                at *= 2;
            } else {
                ForEachOf(at - m_leaves, visit);
                at = Behind(at);
            }
        }
    }

private:
    static constexpr size_t kStretch = 16; ///< records

    /// From the earliest start to the latest end of records.
    struct Span {
        uint32_t start = UINT32_MAX;
        uint32_t end = 0;

        void Take(const Span& other) {
            start = std::min(start, other.start);
            end = std::max(end, other.end);
        }
    };

    static size_t LeavesFor(size_t stretches) {
        size_t leaves = 1;
        while (leaves < stretches) {
            leaves *= 2;
        }
        return leaves;
    }

    template <typename Visit>
    void ForEachOf(size_t stretch, const Visit& visit) const {
        const auto* node = stretch < m_stretches.size() ? m_stretches[stretch] : nullptr;
        for (size_t i = 0; i < kStretch && node != nullptr; ++i, node = node->pNext) {
            visit(node->data);
        }
    }

    /// The node that follows when nothing below one is wanted, or 0 behind the last.
    static size_t Behind(size_t at) {
        while (at % 2 != 0) {
            at /= 2;
        }
        return at == 0 ? 0 : at + 1;
    }

    std::vector<const CCommListNode<RecordItem_t>*> m_stretches; ///< their first records
    size_t m_leaves;                                             ///< of the tree: a power of two
    std::vector<Span> m_spans; ///< of its nodes: 1 the root, 2 n and 2 n + 1 below n
};

/// Cuts the records found to alarm windows, into the caller's list.
class AlarmRecords {
public:
    AlarmRecords(const CCommList<RecordItem_t>& records, uint64_t alarmMask, CCommList<RecordItem_t>& out)
        : m_records(records), m_finder(records), m_alarmMask(alarmMask), m_out(out) {}

    /// Appends the part of every record that lies inside the window.
    void Emit(const AlarmWindow& window) {
        m_finder.Find(window, [&](RecordItem_t record) {
            if (Cut(record, window)) {
                Append(record);
            }
        });
    }

    /// The same for the last window. Behind the part of each coarse record, made without an index, comes the
    /// record itself (cut already if it met the window): what lies in its block cannot be told, and must not
    /// be missed.
    void EmitLast(const AlarmWindow& window) {
        for (const auto* node = m_records.m_pHead; node != nullptr; node = node->pNext) {
            RecordItem_t record = node->data;
            if (Cut(record, window)) {
                Append(record);
            }
            if (record.flag == disk_access::kWholeBlockRecord) {
                Append(record);
            }
        }
    }

    int Count() const { return m_count; }

private:
    bool Cut(RecordItem_t& record, const AlarmWindow& window) const {
        unsigned int start = 0;
        unsigned int end = 0;
        if (IntervalIntersection(window.start, window.end, record.startTime, record.endTime, &start, &end) !=
            0) {
            return false;
        }
        record.startTime = start;
        record.endTime = end;
        record.alarmType = m_alarmMask;
        return true;
    }

    void Append(const RecordItem_t& record) {
        if (LongEnough(record.startTime, record.endTime)) {
            m_out.AddTail(record);
            ++m_count;
        }
    }

    const CCommList<RecordItem_t>& m_records;
    const RecordFinder m_finder;
    uint64_t m_alarmMask;
    CCommList<RecordItem_t>& m_out;
    int m_count = 0;
};

/// Searches the records around the events of the types asked for.
int SearchAlarmMedia(CSearchPart& part, SearchParam_t* param, unsigned int lockedMap,
                     CCommList<RecordItem_t>* out) {
    SearchParam_t plain = *param;
    plain.alarmMask = 0;
    CCommList<RecordItem_t> records;
    if (part.SearchMedia(&plain, lockedMap, &records) <= 0) {
        return 0;
    }
    CCommList<EventItem_t> events;
    if (part.SearchEvent(param, &events) <= 0) {
        return 0;
    }
    AlarmRecords found(records, param->alarmMask, *out);
    AlarmWindow window;
    while (events.m_nCount > 0) {
        const EventItem_t event = events.RemoveHead();
        unsigned int pre = 0;
        unsigned int post = 0;
        part.GetEventPara(event.eventId, &pre, &post);
        const uint32_t begin = event.time - pre;
        const uint32_t end = event.time + post;
        if (window.Open() && window.Holds(begin)) {
            window.end = end;
            continue;
        }
        if (window.Open()) {
            found.Emit(window);
        }
        window = {begin, end};
    }
    found.EmitLast(window);
    return found.Count();
}

} // namespace

int CSearchDisk::SearchMedia(SearchParam_t* param, CCommList<RecordItem_t>* out) {
    if (m_pState == nullptr || param == nullptr) {
        return -1;
    }
    if (param->alarmMask != 0) {
        return SearchAlarmMedia(*m_pState->searchPart, param, m_pState->lockedMap, out);
    }
    return std::max(m_pState->searchPart->SearchMedia(param, m_pState->lockedMap, out), 0);
}

int IntervalIntersection(unsigned int a0, unsigned int a1, unsigned int b0, unsigned int b1, unsigned int* o0,
                         unsigned int* o1) {
    if (a0 > b1) {
        return -1;
    }
    if (b0 > a1) {
        return 1;
    }
    *o0 = std::max(a0, b0);
    *o1 = std::min(a1, b1);
    return 0;
}
