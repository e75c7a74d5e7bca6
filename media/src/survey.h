#ifndef MEDIA_SRC_SURVEY_H
#define MEDIA_SRC_SURVEY_H

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "media/sink.h"
#include "recordings/range_frames.h"
#include "track_key.h"

namespace media {

/// Where channels appear for the first time.
struct Beginning {
    uint32_t block = 0; ///< number
    recordings::TimeRange range;
    recordings::ChannelSet channels;
};

/// What lies in a range, as indexes tell and, where there are none and at the range's ends, heads of frames. It costs a
/// read a block and is mostly right; nothing that is exported depends on it.
struct Survey {
    /// How many bytes tracks have, with the heads of their frames. An index does not tell a channel's video from its
    /// audio: where one of them is not wanted, its share is taken to be that of the frames that were seen.
    uint64_t BytesOf(const std::set<TrackKey>& tracks) const;

    std::vector<Beginning> beginnings; ///< in recording order
    uint64_t keyFrames = 0;
    uint64_t seconds = 0;                                          ///< in which there are frames
    std::map<TrackKey, LastFrame> lastFrames;                      ///< of tracks, by time
    std::map<TrackKey, uint64_t> seenBytes;                        ///< of frames whose heads were read
    std::array<uint64_t, recordings::kChannels> indexedBytes = {}; ///< of the others, by channel
};

Survey MakeSurvey(const recordings::Disk& disk, const recordings::BlockList& blocks,
                  const recordings::FrameQuery& query, const recordings::Watch& watch);

} // namespace media

#endif // MEDIA_SRC_SURVEY_H
