#ifndef CATALOG_SRC_SPANS_H
#define CATALOG_SRC_SPANS_H

#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace catalog {

/// Stretches of a channel that lie no further apart than this are one: recorders begin a new record after a longer pause.
constexpr int64_t kJoinSeconds = 15;
/// A span grows no longer than this, so that those of a time are found by where they start.
constexpr int64_t kLongestSpan = 3600;

/// A stretch in which a channel was recorded, over blocks that were recorded one after the other. True time, both ends
/// included.
struct Span {
    std::optional<int64_t> row; ///< its row in the catalogue, if it has one
    int64_t vehicle = 0;
    uint32_t channel = 0;
    int64_t start = 0;
    int64_t end = 0;
    uint32_t firstSequence = 0; ///< of the blocks it lies in
    uint32_t lastSequence = 0;
    bool changed = false; ///< it differs from its row
};

/// When a block was recorded. True time.
struct BlockTime {
    int64_t start = 0;
    int64_t end = 0;
};
using BlockTimes = std::map<uint32_t, BlockTime>; ///< by sequence

/// The spans of a disk, from one reading of it to the next.
class Spans {
public:
    Spans() = default;
    explicit Spans(std::vector<Span> known);

    /// Leaves what lies in these blocks. A span of which blocks are gone ends where its other blocks do: it went on
    /// beyond them, so that this is no further off than kJoinSeconds.
    void Keep(const BlockTimes& blocks);
    /// Adds a record.
    void Add(const Span& record);

    const std::vector<Span>& All() const { return m_spans; }
    /// Rows of those that are gone.
    const std::vector<int64_t>& Gone() const { return m_gone; }
    int64_t Longest() const;

private:
    std::vector<Span> PartsIn(const BlockTimes& blocks, const Span& span) const;
    Span* Before(const Span& record);

    std::vector<Span> m_spans;
    std::vector<int64_t> m_gone;
    std::map<std::pair<uint32_t, uint32_t>, size_t>
        m_last; ///< by channel and last block: the span that ends last there
};

} // namespace catalog

#endif // CATALOG_SRC_SPANS_H
