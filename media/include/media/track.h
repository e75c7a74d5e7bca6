#ifndef MEDIA_TRACK_H
#define MEDIA_TRACK_H

/// @file track.h
/// What the streams of a recording are.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "recordings/blocks.h"

namespace media {

/// How a camera encodes.
enum class VideoCodec : uint8_t { Unknown, H264, H265 };

/// What a key frame is encoded in, as the parameter sets tell that it begins with.
VideoCodec DetectVideo(const uint8_t* keyFrame, size_t size);

/// The sequence parameter set that a key frame carries near its beginning, which tells size and timing; empty without one.
std::vector<uint8_t> SequenceSet(const uint8_t* keyFrame, size_t size);

/// "h264", "h265", "unknown"
const char* NameOf(VideoCodec codec);

/// How audio frames are encoded.
struct AudioCodec {
    std::string name;        ///< as libavcodec names it: "pcm_alaw"; empty when not known
    uint32_t sampleRate = 0; ///< samples a second

    bool Known() const { return !name.empty() && sampleRate != 0; }
    bool operator==(const AudioCodec& other) const {
        return name == other.name && sampleRate == other.sampleRate;
    }
};

/// How audio is encoded where that is known better than the disk does.
struct AudioCodecs {
    AudioCodec all;                          ///< of channels that are not named
    std::map<uint32_t, AudioCodec> channels; ///< of those that are

    const AudioCodec& Of(uint32_t channel) const {
        const auto own = channels.find(channel);
        return own == channels.end() ? all : own->second;
    }
};

/// Whether libavcodec decodes audio of this name; true where it was not there when the library was built.
bool CanDecodeAudio(const std::string& name);

/// The audio of a channel, as its block's head has it. The codes are the recorder's own; known here are 1 A-law, 2
/// mu-law, 3 16-bit PCM, with the least significant byte first.
AudioCodec AudioOf(const recordings::ChannelProperties& properties);

/// What a file holds in place of what was recorded.
struct Encoding {
    std::string codec;       ///< as libavcodec names it: "aac"
    std::string encoder;     ///< that has made it, and its version
    uint32_t sampleRate = 0; ///< samples a second
};

/// One stream of an export: the video or the audio of a channel.
struct Track {
    uint32_t channel = 0;
    bool isVideo = true;
    VideoCodec video = VideoCodec::Unknown;
    AudioCodec audio;                ///< as recorded
    std::optional<Encoding> encoded; ///< nothing: the file holds what was recorded

    uint64_t frames = 0;
    uint64_t keyFrames = 0; ///< of video
    uint64_t bytes = 0;     ///< of payload
    int64_t first = 0;      ///< the earliest time stamp, microseconds on the recorder's clock
    int64_t last = 0;       ///< and the latest
    size_t output = 0;      ///< entry of the outputs that it lies in

    /// "h264", "pcm_alaw", "unknown"
    std::string Codec() const;
};

} // namespace media

#endif // MEDIA_TRACK_H
