#ifndef MEDIA_SRC_PICTURE_DECODER_H
#define MEDIA_SRC_PICTURE_DECODER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "media/stills.h"
#include "media/track.h"

namespace media {

/// A decoded picture, and whether all of it is what the camera sent.
struct Decoded {
    Picture picture;
    bool damaged = false;
};

/// Decodes frames, beginning with a key frame, in a child process.
/// @param frames payloads, in recording order
/// @param meanwhile called several times a second; what it throws ends the decoding
/// @return the picture of the last one; nothing when none comes of it
std::optional<Decoded> DecodeLast(VideoCodec codec, const std::vector<std::vector<uint8_t>>& frames,
                                  const std::function<void()>& meanwhile);

} // namespace media

#endif // MEDIA_SRC_PICTURE_DECODER_H
