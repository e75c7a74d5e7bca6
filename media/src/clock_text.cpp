#include "clock_text.h"

#include "recordings/query.h"

namespace media {

namespace {

using recordings::kMicros;

/// Time stamps may be anything that 64 bits hold.
int64_t SecondOf(int64_t time) {
    return time / kMicros - (time % kMicros < 0 ? 1 : 0);
}

} // namespace

std::optional<ClockText::Cue> ClockText::Next(int64_t time, int64_t place, size_t segment) {
    const int64_t second = SecondOf(time);
    // The cameras' frames come a little out of order.
    if (m_second && segment == m_segment && second <= *m_second) {
        return std::nullopt;
    }
    m_second = second;
    m_segment = segment;
    return Cue{place, EndOf(time, place), m_words(time)};
}

int64_t ClockText::EndOf(int64_t time, int64_t place) {
    return place + kMicros - (time - SecondOf(time) * kMicros);
}

std::function<std::string(int64_t)> WithChannels(std::function<std::string(int64_t)> words,
                                                 const std::vector<uint32_t>& channels) {
    std::string list;
    std::optional<uint32_t> last;
    for (const uint32_t channel : channels) {
        list += channel == last ? "" : (last ? ", " : "") + std::to_string(channel);
        last = channel;
    }
    const bool isOne = list.find(',') == std::string::npos;
    return [words = std::move(words), suffix = (isOne ? ", channel " : ", channels ") + list](int64_t time) {
        return words(time) + suffix;
    };
}

} // namespace media
