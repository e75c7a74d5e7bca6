#ifndef RECORDINGS_QUERY_H
#define RECORDINGS_QUERY_H

/// @file query.h
/// What is asked of a disk, as values.

#include <cstdint>
#include <functional>

namespace recordings {

/// Channels of a recorder: numbers 0 to 31.
constexpr uint32_t kChannels = 32;

/// A set of channels.
struct ChannelSet {
    uint32_t bits = 0; ///< bit n: channel n

    static constexpr ChannelSet All() { return {0xFFFFFFFF}; }
    constexpr bool Has(uint32_t channel) const { return channel < kChannels && (bits >> channel & 1u) != 0; }
    constexpr bool Empty() const { return bits == 0; }
    constexpr void Add(uint32_t channel) { bits |= channel < kChannels ? 1u << channel : 0; }
    constexpr ChannelSet Without(ChannelSet other) const { return {bits & ~other.bits}; }
    constexpr ChannelSet And(ChannelSet other) const { return {bits & other.bits}; }
};

/// Event types that are wanted: an event meets the mask when it has a bit in common with it.
using EventMask = uint64_t;
constexpr EventMask kAllEvents = 0xFFFFFFFFFFFFFFFF;

/// Seconds since 1970 on the recorder's own clock, both ends included.
struct TimeRange {
    uint32_t first = 0;
    uint32_t last = 0xFFFFFFFF;

    constexpr bool Holds(int64_t seconds) const { return first <= seconds && seconds <= last; }
    /// Whether the stretch from @p from to @p to, both included, has a second in common with the range.
    constexpr bool Meets(int64_t from, int64_t to) const { return from <= last && first <= to; }
};

constexpr int64_t kMicros = 1000000; ///< microseconds in a second

/// The second that a time lies in: microseconds of the recorder's clock, which a forged disk may have set to anything.
constexpr uint32_t SecondOf(int64_t micros) {
    const int64_t second = micros / kMicros;
    return second < 0 ? 0 : static_cast<uint32_t>(second < 0xFFFFFFFF ? second : 0xFFFFFFFF);
}

/// How far a long piece of work has come.
struct Progress {
    uint64_t done = 0;
    uint64_t total = 0;
    uint64_t bytes = 0; ///< read so far
};

/// Called every now and then during long work, at least several times a second while the disk delivers.
/// @return false to end the work: it then throws Error (Cancelled). An empty function never ends it.
using Watch = std::function<bool(const Progress&)>;

} // namespace recordings

#endif // RECORDINGS_QUERY_H
