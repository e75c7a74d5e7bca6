#include "elementary.h"

#include <array>
#include <utility>

#include "cli/failure.h"

namespace diskaccess {

namespace {

constexpr std::array<std::pair<const char*, const char*>, 3> kAudioNames = {
    {{"alaw", "pcm_alaw"}, {"mulaw", "pcm_mulaw"}, {"pcm16", "pcm_s16le"}}};

/// The first bytes of the NAL unit behind the next start code (00 00 01), or null.
const uint8_t* NextUnit(const uint8_t* at, const uint8_t* end) {
    for (; end - at > 4; ++at) {
        if (at[0] == 0 && at[1] == 0 && at[2] == 1) {
            return at + 3;
        }
    }
    return nullptr;
}

} // namespace

VideoCodec DetectVideo(const uint8_t* data, size_t size) {
    const uint8_t* const end = data + size;
    for (const uint8_t* unit = NextUnit(data, end); unit != nullptr; unit = NextUnit(unit, end)) {
        // H.265: video, sequence or picture parameter set of the base layer.
        if ((unit[0] == 0x40 || unit[0] == 0x42 || unit[0] == 0x44) && unit[1] == 1) {
            return VideoCodec::H265;
        }
        // H.264: sequence parameter set.
        if ((unit[0] & 0x9F) == 7) {
            return VideoCodec::H264;
        }
    }
    return VideoCodec::Unknown;
}

const char* CodecName(VideoCodec codec) {
    switch (codec) {
    case VideoCodec::H264:
        return "h264";
    case VideoCodec::H265:
        return "h265";
    default:
        return "unknown";
    }
}

AudioCodec AudioOf(const ChnProp_t& properties) {
    if (properties.AType == 0 || properties.AType > kAudioNames.size()) {
        return {};
    }
    return {kAudioNames.at(properties.AType - 1u).second, properties.Sample};
}

AudioCodec ReadAudioCodec(const std::string& text) {
    const size_t colon = text.find(':');
    const std::string rate = colon == std::string::npos ? "" : text.substr(colon + 1);
    std::string name = text.substr(0, colon);
    for (const auto& [shortName, codec] : kAudioNames) {
        if (name == shortName) {
            name = codec;
        }
    }
    if (name.empty() || rate.empty() || rate.size() > 6 ||
        rate.find_first_not_of("0123456789") != std::string::npos || std::stoul(rate) == 0) {
        throw WrongUse("--audio: '" + text + "' is no codec and rate; give them like alaw:8000");
    }
    return {name, static_cast<uint32_t>(std::stoul(rate))};
}

} // namespace diskaccess
