#include "key_frame_grid.h"

#include <algorithm>
#include <vector>

#include "disk_format.h"
#include "found_frames.h"
#include "recordings/block_index.h"

namespace recordings {

namespace {

/// Places that are passed over, because they are marked bad.
constexpr uint32_t kMostSteps = 8;

/// Cameras send key frames every few seconds.
constexpr int64_t kLongestKeyFrameDistance = 600 * kMicros;

/// The block recorded before another one, if it was closed and lies where it should.
std::optional<Block> BlockBefore(const Disk& disk, const Block& block) {
    const uint32_t count = disk.BlockCount();
    for (uint32_t step = 1; step < std::min(count, kMostSteps); ++step) {
        const uint32_t number = (block.number + count - step) % count;
        if (disk.MarkOf(number) == BlockMark::Bad) {
            continue;
        }
        BlockHead_t head = {};
        BlockTail_t tail = {};
        const bool read =
            disk.Bytes().ReadWhole(disk.StartOf(number), &head, sizeof head) &&
            disk.Bytes().ReadWhole(disk.StartOf(number) + disk.Layout().tail, &tail, sizeof tail);
        if (!read || head.RecSeq + 1 != block.sequence || tail.RecSeq != head.RecSeq) {
            return std::nullopt;
        }
        Block before;
        before.number = number;
        before.channels = {head.media_chn_bitmap};
        before.closed = true;
        return before;
    }
    return std::nullopt;
}

/// The distance that most key frames of a list keep, 0 when they keep none.
int64_t DistanceOf(const std::vector<IndexedKeyFrame>& keys) {
    constexpr size_t kFewest = 2;
    std::vector<int64_t> distances;
    for (size_t i = 1; i < keys.size(); ++i) {
        distances.push_back(TimeBetween(keys[i - 1].time, keys[i].time));
    }
    if (distances.size() < kFewest) {
        return 0;
    }
    std::sort(distances.begin(), distances.end());
    const int64_t usual = distances[distances.size() / 2];
    const auto keeping =
        static_cast<size_t>(std::count_if(distances.begin(), distances.end(), [usual](int64_t each) {
            return TimeApart(each, usual) <= usual / 16;
        }));
    return usual > 0 && usual <= kLongestKeyFrameDistance &&
                   keeping >= distances.size() - distances.size() / 4
               ? usual
               : 0;
}

} // namespace

KeyFrameGrids ReadKeyFrameGrids(const Disk& disk, const Block& block) {
    KeyFrameGrids grids;
    if (const std::optional<BlockIdentity> identity = ReadIdentity(disk, block.number)) {
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            grids.at(channel).frames = identity->properties[channel].keyFrameDistance;
        }
    }
    const std::optional<Block> before = BlockBefore(disk, block);
    const std::optional<BlockIndex> index =
        before ? ReadIndex(disk, *before, {true, false, false}) : std::nullopt;
    for (uint32_t channel = 0; index && channel < kChannels; ++channel) {
        const std::vector<IndexedKeyFrame>& keys = index->keyFrames[channel];
        grids.at(channel).distance = DistanceOf(keys);
        grids.at(channel).last = keys.empty() ? std::nullopt : std::optional<int64_t>(keys.back().time);
    }
    return grids;
}

} // namespace recordings
