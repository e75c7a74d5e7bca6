#ifndef DISKACCESS_ELEMENTARY_H
#define DISKACCESS_ELEMENTARY_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "disk_access.h"

namespace diskaccess {

enum class VideoCodec { Unknown, H264, H265 };

/// What a camera's key frame is encoded in, by the parameter sets at its beginning.
VideoCodec DetectVideo(const uint8_t* data, size_t size);

/// "h264", "h265", "unknown"
const char* CodecName(VideoCodec codec);

/// How audio frames are encoded.
struct AudioCodec {
    std::string name; ///< as libavcodec names it: "pcm_alaw"; empty when not known
    uint32_t samplesASecond = 0;

    bool Known() const { return !name.empty() && samplesASecond != 0; }
};

/// The audio of a channel, as its properties tell. The codes are the recorder's own: those of the sample
/// recorder are known here (1 A-law, 2 mu-law, 3 16-bit PCM), the user names others.
AudioCodec AudioOf(const ChnProp_t& properties);

/// Reads "CODEC:RATE" (alaw, mulaw, pcm16, or a name of libavcodec's; samples a second).
/// @throws WrongUse when it is none
AudioCodec ReadAudioCodec(const std::string& text);

} // namespace diskaccess

#endif // DISKACCESS_ELEMENTARY_H
