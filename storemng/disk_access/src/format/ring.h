#ifndef DISK_ACCESS_FORMAT_RING_H
#define DISK_ACCESS_FORMAT_RING_H

#include <cstdint>

namespace disk_access {

/// Arithmetic of a ring of @p count blocks. Sums have 64 bits: a forged count may be near 2^32. In a ring
/// without blocks only Span() may be called.
struct Ring {
    uint32_t count;

    constexpr uint32_t Next(uint32_t block) const { return Ahead(block, 1); }
    constexpr uint32_t Prev(uint32_t block) const { return Ahead(block, uint64_t{count} - 1); }

    /// The block @p steps ahead of @p block.
    constexpr uint32_t Ahead(uint32_t block, uint64_t steps) const {
        return static_cast<uint32_t>((block + steps) % count);
    }

    /// Number of blocks from @p from forwards to @p to, both included: 1 to count; 0 in a ring without
    /// blocks.
    constexpr uint32_t Span(uint32_t from, uint32_t to) const {
        if (count == 0) {
            return 0;
        }
        const auto span = static_cast<uint32_t>((uint64_t{count} + to + 1 - from % count) % count);
        return span == 0 ? count : span;
    }

    /// The block in the middle between @p from and, forwards, @p to.
    constexpr uint32_t Middle(uint32_t from, uint32_t to) const {
        const uint64_t sum = uint64_t{from} + to;
        return static_cast<uint32_t>(from < to ? sum / 2 : (sum + count) / 2 % count);
    }
};

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_RING_H
