#ifndef MEDIA_SRC_PICTURE_STATES_H
#define MEDIA_SRC_PICTURE_STATES_H

#include <cstdint>
#include <functional>
#include <vector>

#include "media/track.h"

namespace media {

/// Decodes frames, beginning with a key frame, in a child process; in another without the frame that it was at, when one
/// does not come to its end.
/// @param frames payloads, in recording order
/// @param meanwhile called several times a second; what it throws ends the decoding
/// @return for each of them whether a picture has come of it, and the decoder has met no error in it
/// @throws Error when no child can be started
std::vector<bool> DecodePictures(VideoCodec codec, const std::vector<std::vector<uint8_t>>& frames,
                                 const std::function<void()>& meanwhile = {});

} // namespace media

#endif // MEDIA_SRC_PICTURE_STATES_H
