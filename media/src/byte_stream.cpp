#include "byte_stream.h"

#include <cstring>

namespace media {

namespace {

constexpr size_t kLengthBytes = 4;
constexpr ptrdiff_t kStartCodeBytes = 3;
/// Zeros after the converted bytes: as many as libavcodec's parsers read beyond the end.
constexpr size_t kPadding = 64;

uint8_t* PutUnit(uint8_t* to, const uint8_t* unit, size_t size) {
    to[0] = static_cast<uint8_t>(size >> 24);
    to[1] = static_cast<uint8_t>(size >> 16);
    to[2] = static_cast<uint8_t>(size >> 8);
    to[3] = static_cast<uint8_t>(size);
    std::memcpy(to + kLengthBytes, unit, size);
    return to + kLengthBytes + size;
}

/// Bytes that are looked at together.
using Lane = uint8_t __attribute__((vector_size(16)));
constexpr ptrdiff_t kStep = 2 * sizeof(Lane);

Lane LaneAt(const uint8_t* at) {
    Lane lane;
    std::memcpy(&lane, at, sizeof lane);
    return lane;
}

/// Whether one of the bytes in a step is zero, and the byte after it too. Reads a byte more than the step.
bool HasZeroPair(const uint8_t* at) {
    const uint8_t* const next = at + sizeof(Lane);
    const auto pairs = ((LaneAt(at) | LaneAt(at + 1)) == 0) | ((LaneAt(next) | LaneAt(next + 1)) == 0);
    uint64_t halves[2];
    static_assert(sizeof halves == sizeof pairs);
    std::memcpy(halves, &pairs, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

bool IsStartCode(const uint8_t* at) {
    return at[0] == 0 && at[1] == 0 && at[2] == 1;
}

} // namespace

const uint8_t* FindStartCode(const uint8_t* from, const uint8_t* end) {
    // Two zeros in a row are rare in encoded video: most of it is passed by in large steps.
    for (; end - from > kStep + 1; from += kStep) {
        if (HasZeroPair(from)) {
            for (const uint8_t* at = from; at != from + kStep; ++at) {
                if (IsStartCode(at)) {
                    return at;
                }
            }
        }
    }
    for (; end - from >= kStartCodeBytes; ++from) {
        if (IsStartCode(from)) {
            return from;
        }
    }
    return end;
}

LengthPrefixer::Bytes LengthPrefixer::Convert(const uint8_t* data, size_t size) {
    // A unit takes one byte more than a start code of three; the bytes before the first one take four more.
    Reserve(size + size / kStartCodeBytes + kLengthBytes + kPadding);
    uint8_t* to = m_bytes.get();
    const uint8_t* const end = data + size;
    for (const uint8_t* unit = data; unit != end;) {
        const uint8_t* const next = FindStartCode(unit, end);
        const uint8_t* unitEnd = next;
        while (next != end && unitEnd != unit && unitEnd[-1] == 0) {
            --unitEnd;
        }
        if (unitEnd != unit) {
            to = PutUnit(to, unit, static_cast<size_t>(unitEnd - unit));
        }
        unit = next == end ? end : next + kStartCodeBytes;
    }
    std::memset(to, 0, kPadding);
    return {m_bytes.get(), static_cast<size_t>(to - m_bytes.get())};
}

void LengthPrefixer::Reserve(size_t size) {
    if (size > m_capacity) {
        m_bytes.reset(new uint8_t[size]); // not cleared: all that is read of it is written first
        m_capacity = size;
    }
}

} // namespace media
