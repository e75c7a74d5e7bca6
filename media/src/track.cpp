#include "media/track.h"

#include <algorithm>
#include <array>

#include "byte_stream.h"

namespace media {

namespace {

/// By the recorder's codes, from 1 on.
constexpr std::array<const char*, 3> kAudioNames = {"pcm_alaw", "pcm_mulaw", "pcm_s16le"};

constexpr uint8_t kH265SequenceSet = 0x42;
/// Parameter sets lie before everything else that is large.
constexpr size_t kSetsWithin = 4096;

/// H.265: the video, sequence or picture parameter set of the base layer.
bool IsH265ParameterSet(const uint8_t* unit) {
    return (unit[0] == 0x40 || unit[0] == 0x42 || unit[0] == 0x44) && unit[1] == 1;
}

bool IsH264SequenceSet(const uint8_t* unit) {
    return (unit[0] & 0x9F) == 7;
}

} // namespace

VideoCodec DetectVideo(const uint8_t* keyFrame, size_t size) {
    const uint8_t* const end = keyFrame + size;
    const uint8_t* code = FindStartCode(keyFrame, end);
    // A unit of two bytes can be told apart.
    for (; end - code >= 5; code = FindStartCode(code + 3, end)) {
        if (IsH265ParameterSet(code + 3)) {
            return VideoCodec::H265;
        }
        if (IsH264SequenceSet(code + 3)) {
            return VideoCodec::H264;
        }
    }
    return VideoCodec::Unknown;
}

std::vector<uint8_t> SequenceSet(const uint8_t* keyFrame, size_t size) {
    const uint8_t* const end = keyFrame + std::min(size, kSetsWithin);
    const uint8_t* code = FindStartCode(keyFrame, end);
    while (end - code >= 5) {
        const uint8_t* const unit = code + 3;
        code = FindStartCode(unit, end);
        const bool isH265 = unit[0] == kH265SequenceSet && unit[1] == 1;
        if (isH265 || (!IsH265ParameterSet(unit) && IsH264SequenceSet(unit))) {
            const uint8_t* last = code;
            while (last != unit && last[-1] == 0) {
                --last; // zeros belong to the next start code
            }
            return {unit, last};
        }
    }
    return {};
}

const char* NameOf(VideoCodec codec) {
    switch (codec) {
    case VideoCodec::H264:
        return "h264";
    case VideoCodec::H265:
        return "h265";
    default:
        return "unknown";
    }
}

AudioCodec AudioOf(const recordings::ChannelProperties& properties) {
    if (properties.audioCode == 0 || properties.audioCode > kAudioNames.size()) {
        return {};
    }
    return {kAudioNames.at(properties.audioCode - 1u), properties.sampleRate};
}

std::string Track::Codec() const {
    if (isVideo) {
        return NameOf(video);
    }
    return audio.name.empty() ? "unknown" : audio.name;
}

} // namespace media
