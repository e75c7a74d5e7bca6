#ifndef RECORDINGS_BLOCK_JUDGE_H
#define RECORDINGS_BLOCK_JUDGE_H

#include "found_frames.h"
#include "frame_area.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"

namespace recordings {

/// Finds the frames of a block, and holds them against each other and against the index. Of a block whose head tells
/// nothing, what looks like frames is all that is found, and nothing is said of it: the list of blocks names the block.
FoundFrames JudgeBlock(const Disk& disk, const Block& block, FrameArea& area);

} // namespace recordings

#endif // RECORDINGS_BLOCK_JUDGE_H
