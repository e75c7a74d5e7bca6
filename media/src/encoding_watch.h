#ifndef MEDIA_SRC_ENCODING_WATCH_H
#define MEDIA_SRC_ENCODING_WATCH_H

#include <cstdint>
#include <map>
#include <vector>

#include "recordings/frame.h"
#include "track_key.h"

namespace media {

/// Notices frames from which on their track may be encoded otherwise: key frames with another sequence parameter set, and
/// the first audio of each block, whose head says how audio is encoded.
class EncodingWatch {
public:
    bool MayChangeAt(const recordings::Frame& frame);

private:
    std::map<TrackKey, std::vector<uint8_t>> m_sets;
    std::map<TrackKey, uint32_t> m_blocks;
};

} // namespace media

#endif // MEDIA_SRC_ENCODING_WATCH_H
