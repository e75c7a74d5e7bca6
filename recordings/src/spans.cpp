#include "recordings/spans.h"

#include <algorithm>

namespace recordings {

namespace {

/// Whether at most @p silence seconds lie after one span before another starts.
bool Reaches(const Span& one, const Span& other, uint32_t silence) {
    return int64_t{one.end} + 1 + silence >= other.start;
}

} // namespace

void SpanList::Add(Span span) {
    span.end = std::max(span.start, span.end);
    const auto from = std::partition_point(m_spans.begin(), m_spans.end(),
                                           [&span](const Span& each) { return !Reaches(each, span, 0); });
    auto to = from;
    for (; to != m_spans.end() && Reaches(span, *to, 0); ++to) {
        span.start = std::min(span.start, to->start);
        span.end = std::max(span.end, to->end);
    }
    if (from == to) {
        m_spans.insert(from, span);
    } else {
        *from = span;
        m_spans.erase(from + 1, to);
    }
}

std::vector<Span> SpanList::Within(const TimeRange& range, uint32_t silence) const {
    std::vector<Span> within;
    auto span = std::partition_point(m_spans.begin(), m_spans.end(),
                                     [&range](const Span& each) { return each.end < range.first; });
    for (; span != m_spans.end() && span->start <= range.last; ++span) {
        if (!within.empty() && Reaches(within.back(), *span, silence)) {
            within.back().end = span->end;
        } else {
            within.push_back(*span);
        }
    }
    return within;
}

} // namespace recordings
