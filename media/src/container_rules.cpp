#include "container_rules.h"

#include <algorithm>
#include <limits>

#include <fmt/format.h>

#include "aac_encoder.h"
#include "sound_clock.h"
#include "stream_parameters.h"

namespace media {

namespace {

constexpr const char* kMp4CountsUpTo = "2040-02-06T06:28:16";

AVRational RationalOf(ClockUnit unit) {
    return {unit.numerator, unit.denominator};
}

} // namespace

int64_t NextTime(ClockUnit unit, int64_t last, int64_t micros) {
    return std::max(av_rescale_q(micros, kMicroseconds, RationalOf(unit)), last + 1);
}

int64_t LargestGapOf(Container container, ClockUnit unit) {
    if (container != Container::Mp4 || unit.numerator <= 0) {
        return std::numeric_limits<int64_t>::max();
    }
    return av_rescale_q(std::numeric_limits<int32_t>::max(), RationalOf(unit), kMicroseconds);
}

int64_t DurationUntil(ClockUnit unit, int64_t time, int64_t end) {
    return std::max<int64_t>(av_rescale_q(end, kMicroseconds, RationalOf(unit)) - time, 1);
}

std::vector<uint8_t> TextPayload(Container container, const std::string& text) {
    std::vector<uint8_t> bytes(text.begin(), text.end());
    if (container == Container::Mp4) { // the length comes first, in two bytes
        bytes.resize(std::min<size_t>(bytes.size(), UINT16_MAX));
        bytes.insert(bytes.begin(),
                     {static_cast<uint8_t>(bytes.size() >> 8), static_cast<uint8_t>(bytes.size())});
    }
    return bytes;
}

std::string TitleOfTracks(uint32_t channel) {
    return fmt::format("channel {}", channel);
}

const char* KeyOfStart(Container container, const std::string& startTime) {
    return container == Container::Mp4 && startTime >= kMp4CountsUpTo ? "date" : "creation_time";
}

std::optional<LeftOutReason> RefusalOf(Container container, const Track& track,
                                       const recordings::Frame& frame) {
    Parameters unused;
    return Examine(container, track, frame, unused);
}

std::optional<Encoding> EncodingFor(Container container, const Track& track, LeftOutReason refusal) {
    const std::optional<uint32_t> rate = AacRateOf(track.audio.sampleRate);
    const bool can = container == Container::Mp4 && !track.isVideo &&
                     refusal == LeftOutReason::NotForContainer && rate && AacParameters(*rate) &&
                     OpenDecoder(*AudioParameters(CodecOf(track), track));
    return can ? std::optional(Encoding{"aac", AacEncoderName(), *rate}) : std::nullopt;
}

} // namespace media
