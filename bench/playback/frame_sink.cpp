#include "playback/frame_sink.h"

#include <algorithm>
#include <cstring>

namespace playback_bench {

namespace {

constexpr uint64_t kPrime = 0x9E3779B97F4A7C15;
constexpr int kAccessUnitDelimiter = 9;

uint64_t Mix(uint64_t sum, uint64_t word) {
    sum = (sum ^ word) * kPrime;
    return sum ^ sum >> 29;
}

/// A sum of bytes, their order and their number.
uint64_t SumOf(uint64_t sum, const uint8_t* data, size_t size) {
    sum = Mix(sum, size);
    for (; size >= sizeof(uint64_t); data += sizeof(uint64_t), size -= sizeof(uint64_t)) {
        uint64_t word = 0;
        std::memcpy(&word, data, sizeof word);
        sum = Mix(sum, word);
    }
    for (; size > 0; ++data, --size) {
        sum = Mix(sum, *data);
    }
    return sum;
}

/// Adds a NAL unit, zeros behind its end left out.
uint64_t AddNal(uint64_t sum, const uint8_t* begin, const uint8_t* end) {
    while (end > begin && end[-1] == 0) {
        --end;
    }
    if (begin == end || (*begin & 0x1F) == kAccessUnitDelimiter) {
        return sum;
    }
    return SumOf(sum, begin, static_cast<size_t>(end - begin));
}

/// The next 00 00 01, or the end.
const uint8_t* FindStartCode(const uint8_t* from, const uint8_t* end) {
    static constexpr uint8_t kStartCode[] = {0, 0, 1};
    while (end - from >= 3) {
        const auto* const one =
            static_cast<const uint8_t*>(std::memchr(from + 2, 1, static_cast<size_t>(end - from - 2)));
        if (one == nullptr) {
            return end;
        }
        if (std::equal(one - 2, one + 1, kStartCode)) {
            return one - 2;
        }
        from = one - 1;
    }
    return end;
}

uint64_t SumOfStartCoded(const uint8_t* data, const uint8_t* end) {
    uint64_t sum = 0;
    const uint8_t* at = FindStartCode(data, end);
    while (at != end) {
        const uint8_t* const nal = at + 3;
        at = FindStartCode(nal, end);
        sum = AddNal(sum, nal, at);
    }
    return sum;
}

uint64_t SumOfLengthPrefixed(const uint8_t* data, const uint8_t* end) {
    uint64_t sum = 0;
    while (end - data >= 4) {
        const size_t length =
            size_t{data[0]} << 24 | size_t{data[1]} << 16 | size_t{data[2]} << 8 | size_t{data[3]};
        const uint8_t* const nal = data + 4;
        data = nal + std::min(length, static_cast<size_t>(end - nal));
        sum = AddNal(sum, nal, data);
    }
    return sum;
}

} // namespace

void SummingSink::Take(const FrameView& frame) {
    const uint8_t* const end = frame.payload + frame.length;
    const size_t stream = 2 * (frame.channel % kChannels) + (frame.audio ? 1 : 0);
    uint64_t sum = Mix(stream, m_places.at(stream)++);
    if (frame.audio) {
        sum = Mix(sum, SumOf(0, frame.payload, frame.length));
    } else if (m_form == NalForm::StartCodes) {
        sum = Mix(sum, SumOfStartCoded(frame.payload, end));
    } else {
        sum = Mix(sum, SumOfLengthPrefixed(frame.payload, end));
    }
    m_sum += sum;
}

} // namespace playback_bench
