#ifndef MEDIA_SRC_STREAM_PARAMETERS_H
#define MEDIA_SRC_STREAM_PARAMETERS_H

#include <optional>

#include "libav.h"
#include "media/sink.h"
#include "media/track.h"
#include "recordings/frame.h"

namespace media {

/// libavcodec's number of a track's encoding; none when it is not known.
AVCodecID CodecOf(const Track& track);

/// What a container must know of a video track.
/// @return null when the key frame does not tell
Parameters VideoParameters(AVCodecID codec, const recordings::Frame& keyFrame);

/// The same of an audio track, whose encoding is known.
Parameters AudioParameters(AVCodecID codec, const Track& track);

/// The same of a track of texts.
Parameters TextParameters(Container container);

/// A decoder that is ready for packets.
/// @return null when there is none, or when it takes to know more than the parameters tell
Codec OpenDecoder(const AVCodecParameters& parameters);

/// What a container must know of a track.
/// @param parameters set when it can take the track
/// @return why it cannot; see Sink::Refusal()
std::optional<LeftOutReason> Examine(Container container, const Track& track, const recordings::Frame& frame,
                                     Parameters& parameters);

/// Whether a container with these parameters wants a length before each NAL unit; else libavformat turns start codes
/// into lengths itself, slowly.
bool WantsLengths(const AVCodecParameters& parameters);

} // namespace media

#endif // MEDIA_SRC_STREAM_PARAMETERS_H
