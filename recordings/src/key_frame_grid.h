#ifndef RECORDINGS_KEY_FRAME_GRID_H
#define RECORDINGS_KEY_FRAME_GRID_H

#include <array>
#include <cstdint>
#include <optional>

#include "recordings/blocks.h"
#include "recordings/disk.h"

namespace recordings {

/// When key frames of a channel come, as far as a block's head and the block before it tell.
struct KeyFrameGrid {
    uint32_t frames = 0;         ///< from one key frame to the next, as the block's head has it; 0: not known
    int64_t distance = 0;        ///< the same in microseconds, as it was in the block before; 0: not known
    std::optional<int64_t> last; ///< time stamp of the last key frame of the block before
};

using KeyFrameGrids = std::array<KeyFrameGrid, kChannels>;

/// Asks the head of a block, and the index of the one recorded before it.
KeyFrameGrids ReadKeyFrameGrids(const Disk& disk, const Block& block);

} // namespace recordings

#endif // RECORDINGS_KEY_FRAME_GRID_H
