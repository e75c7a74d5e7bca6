#ifndef MEDIA_SRC_TRACK_KEY_H
#define MEDIA_SRC_TRACK_KEY_H

#include <cstdint>
#include <tuple>

#include "recordings/frame.h"

namespace media {

/// Channel and kind: what makes a track. A channel's video comes before its audio.
struct TrackKey {
    uint32_t channel = 0;
    bool isAudio = false;

    static TrackKey Of(const recordings::Frame& frame) { return {frame.channel, !frame.IsVideo()}; }
    bool operator==(const TrackKey& other) const {
        return channel == other.channel && isAudio == other.isAudio;
    }
    bool operator<(const TrackKey& other) const {
        return std::tie(channel, isAudio) < std::tie(other.channel, other.isAudio);
    }
};

} // namespace media

#endif // MEDIA_SRC_TRACK_KEY_H
