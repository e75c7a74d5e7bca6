#include "sound_clock.h"

#include <algorithm>
#include <array>

#include "recordings/query.h"

namespace media {

namespace {

using recordings::kMicros;

/// Sound may be ahead of the picture by so many microseconds before silence is put in: a hundredth of a second.
constexpr int64_t kMostAhead = 10000;
/// Where the times of the pieces are those of their arrival, some come late and the next ones not. Sound that is after
/// its time by less than this stays whole.
constexpr int64_t kMostBehind = 40000;
/// What is missing for longer is a pause, which a file shows without packets.
constexpr int64_t kLongestSilence = kMicros;

constexpr std::array<uint32_t, 13> kAacRates = {7350,  8000,  11025, 12000, 16000, 22050, 24000,
                                                32000, 44100, 48000, 64000, 88200, 96000};
/// Below, no voice can be understood; above, no camera records.
constexpr uint32_t kLowestRate = 4000;
constexpr uint32_t kHighestRate = 192000;

} // namespace

std::optional<uint32_t> AacRateOf(uint32_t rate) {
    if (rate < kLowestRate || rate > kHighestRate) {
        return std::nullopt;
    }
    const auto* const found = std::lower_bound(kAacRates.begin(), kAacRates.end(), rate);
    return found == kAacRates.end() ? kAacRates.back() : *found;
}

/// Rounded up: no sample is lost.
int64_t SoundClock::Encoded(int64_t samples) const {
    return m_rate == m_encodedRate ? samples : (samples * m_encodedRate + m_rate - 1) / m_rate;
}

int64_t SoundClock::TimeOf(int64_t place) const {
    const int64_t rest = (place % kMicros) * m_encodedRate;
    return place / kMicros * m_encodedRate + (rest + (rest < 0 ? -kMicros : kMicros) / 2) / kMicros;
}

/// By how many microseconds a place lies after the end of what there is.
int64_t SoundClock::Late(int64_t place) const {
    const int64_t length = m_samples / m_rate * kMicros + m_samples % m_rate * kMicros / m_rate;
    return place - m_place - length;
}

bool SoundClock::Pauses(int64_t place) const {
    return m_inStretch && Late(place) > kLongestSilence;
}

void SoundClock::Begin(int64_t place) {
    m_inStretch = true;
    m_place = place;
    m_samples = 0;
    m_packets = 0;
    m_bases = {{0, TimeOf(place)}};
}

int64_t SoundClock::Take(int64_t place, int64_t samples) {
    if (!m_inStretch) {
        Begin(place);
    }
    const int64_t late = Late(place);
    int64_t silence = 0;
    if (late > kMostAhead) {
        silence = (late * m_rate + kMicros / 2) / kMicros;
    } else if (late < -kMostBehind) {
        // The times say that this was recorded while the piece before it was: all is kept, and follows the clock again.
        m_place += late;
        m_bases.push_back({Encoded(m_samples), TimeOf(m_place)});
    }
    m_samples += silence + samples;
    return silence;
}

/// Those that hold the stretch's samples.
int64_t SoundClock::Packets() const {
    return (Encoded(m_samples) + kAacSamples - 1) / kAacSamples;
}

/// The first packet has the time before the stretch.
int64_t SoundClock::PacketsLeft() const {
    return m_inStretch ? Packets() + 1 - m_packets : 0;
}

int64_t SoundClock::PacketTime() {
    const int64_t first = (m_packets++ - 1) * kAacSamples;
    while (m_bases.size() > 1 && m_bases[1].from <= first) {
        m_bases.pop_front();
    }
    m_last = std::max(m_bases.front().time + first, m_last == INT64_MIN ? INT64_MIN : m_last + 1);
    return m_last;
}

} // namespace media
