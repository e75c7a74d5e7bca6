#include "encoding_watch.h"

#include <utility>

#include "media/track.h"

namespace media {

bool EncodingWatch::MayChangeAt(const recordings::Frame& frame) {
    const TrackKey key = TrackKey::Of(frame);
    if (frame.IsAudio()) {
        const auto [block, isNew] = m_blocks.emplace(key, frame.block);
        const bool isOther = !isNew && block->second != frame.block;
        block->second = frame.block;
        return isOther;
    }
    if (frame.type != recordings::kKeyFrame) {
        return false;
    }
    std::vector<uint8_t> set = SequenceSet(frame.data, frame.size);
    const auto [known, isNew] = m_sets.emplace(key, set);
    const bool isOther = !isNew && known->second != set;
    known->second = std::move(set);
    return isOther;
}

} // namespace media
