#ifndef RECORDINGS_SPANS_H
#define RECORDINGS_SPANS_H

/// @file spans.h
/// Stretches of recorded time, merged.

#include <cstdint>
#include <vector>

#include "recordings/export.h"
#include "recordings/query.h"

namespace recordings {

/// Seconds, both ends included.
struct Span {
    uint32_t start = 0;
    uint32_t end = 0;
};

/// Spans that are added in any order. Those that touch are merged at once, so that the list stays short.
class RECORDINGS_API SpanList {
public:
    /// @param span one that ends before it starts, as when the recorder's clock was set back, counts for its first second
    void Add(Span span);
    /// All spans: rising, apart from each other.
    const std::vector<Span>& All() const { return m_spans; }
    /// The spans that meet a range; those with at most @p silence seconds between them are joined.
    std::vector<Span> Within(const TimeRange& range, uint32_t silence) const;

private:
    std::vector<Span> m_spans;
};

} // namespace recordings

#endif // RECORDINGS_SPANS_H
