#ifndef DISK_ACCESS_SEARCH_RECORD_FINDER_H
#define DISK_ACCESS_SEARCH_RECORD_FINDER_H

#include <cstddef>
#include <cstdint>

#include "search_records.h"

namespace disk_access {

/// Finds the records of a list that overlap a time span, without testing all of them each time. The list is
/// divided into stretches, and a tree over them has their earliest starts and latest ends. If there is no
/// memory for the tree, all records are one stretch.
class RecordFinder {
public:
    /// @param records must not change while this object is used
    explicit RecordFinder(const CCommList<RecordItem_t>& records);
    ~RecordFinder();
    RecordFinder(const RecordFinder&) = delete;
    RecordFinder& operator=(const RecordFinder&) = delete;

    /// Calls @p visit with each record that may overlap [@p start, @p end], in the list's order.
    /// @pre @p start is not 0: a span of all times would overlap the leaves without records, too
    template <typename Visit>
    void Find(uint32_t start, uint32_t end, const Visit& visit) const {
        for (size_t at = 1; at != 0;) {
            if (start > m_spans[at].end || m_spans[at].start > end) {
                at = Behind(at);
            } else if (at < m_leaves) {
                at *= 2;
            } else {
                const Node* node = m_stretches[at - m_leaves];
                for (size_t i = 0; i < m_length && node != nullptr; ++i, node = node->pNext) {
                    visit(node->data);
                }
                at = Behind(at);
            }
        }
    }

private:
    using Node = CCommListNode<RecordItem_t>;

    /// A time span from the earliest start to the latest end of records.
    struct Span {
        uint32_t start;
        uint32_t end;

        void Take(const Span& other);
    };

    void FillLeaves(const Node* node);

    /// The next node if nothing below node @p at is wanted; 0 after the last.
    static size_t Behind(size_t at);

    size_t m_length;          ///< records in a stretch
    size_t m_leaves = 1;      ///< of the tree: a power of two
    Span* m_spans;            ///< of its nodes: 1 is the root, 2 n and 2 n + 1 are below n
    const Node** m_stretches; ///< the first record of each
    Span m_allTime[2] = {{0, 0}, {0, UINT32_MAX}}; ///< without memory: a tree of one stretch
    const Node* m_first;
};

} // namespace disk_access

#endif // DISK_ACCESS_SEARCH_RECORD_FINDER_H
