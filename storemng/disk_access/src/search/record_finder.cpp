#include "search/record_finder.h"

#include <algorithm>
#include <cstdlib>

namespace disk_access {

namespace {

constexpr size_t kStretch = 16; ///< records

} // namespace

RecordFinder::RecordFinder(const CCommList<RecordItem_t>& records)
    : m_length(kStretch), m_first(records.m_pHead) {
    const size_t stretches = (static_cast<size_t>(records.m_nCount) + kStretch - 1) / kStretch;
    while (m_leaves < stretches) {
        m_leaves *= 2;
    }
    m_spans = static_cast<Span*>(std::malloc(2 * m_leaves * sizeof(Span) + stretches * sizeof(void*)));
    if (m_spans == nullptr) {
        m_length = static_cast<size_t>(records.m_nCount);
        m_leaves = 1;
        m_spans = m_allTime;
        m_stretches = &m_first;
        return;
    }
    m_stretches = reinterpret_cast<const Node**>(m_spans + 2 * m_leaves);
    FillLeaves(records.m_pHead);
    for (size_t at = m_leaves - 1; at > 0; --at) {
        m_spans[at] = m_spans[2 * at];
        m_spans[at].Take(m_spans[2 * at + 1]);
    }
}

RecordFinder::~RecordFinder() {
    if (m_spans != m_allTime) {
        std::free(m_spans);
    }
}

void RecordFinder::FillLeaves(const Node* node) {
    std::fill_n(m_spans + m_leaves, m_leaves, Span{UINT32_MAX, 0});
    for (size_t place = 0; node != nullptr; node = node->pNext, ++place) {
        if (place % kStretch == 0) {
            m_stretches[place / kStretch] = node;
        }
        m_spans[m_leaves + place / kStretch].Take({node->data.startTime, node->data.endTime});
    }
}

void RecordFinder::Span::Take(const Span& other) {
    start = std::min(start, other.start);
    end = std::max(end, other.end);
}

size_t RecordFinder::Behind(size_t at) {
    while (at % 2 != 0) {
        at /= 2;
    }
    return at == 0 ? 0 : at + 1;
}

} // namespace disk_access
