#ifndef DISKACCESS_RECORDED_BLOCKS_H
#define DISKACCESS_RECORDED_BLOCKS_H

#include <cstdint>
#include <vector>

#include "job.h"

namespace diskaccess {

/// A block that holds frames.
struct RecordedBlock {
    uint32_t number = 0;
    uint32_t sequence = 0;  ///< its place in recording order
    uint32_t startTime = 0; ///< of the disk
    uint32_t channels = 0;  ///< those present
    bool suspect = false;   ///< the recorder has met errors on it; it is read all the same
};

/// Blocks in the order they were recorded in.
struct BlockSequence {
    std::vector<RecordedBlock> blocks;
    size_t start = 0;    ///< the block that was being recorded at the range's start, or the first behind it
    bool inOrder = true; ///< else frames of the range may lie in any of the blocks
};

/// Every block that the recorder wrote to, suspect ones too, in the order of the sequence numbers.
std::vector<RecordedBlock> AllBlocks(Job& job);

/// Whether blocks in recording order follow each other round the ring, and none begins before the one before it:
/// what searches by time rely on. A clock that was set, or a damaged head, breaks it.
bool InOrder(const std::vector<RecordedBlock>& blocks);

/// Whether a search by time that found nothing may have been led astray, so that every block is to be asked.
bool TimesMislead(Job& job);

/// The blocks that hold frames of a range, with some before them: a key frame before the range's start may lie
/// there. Suspect blocks are among them. Where reads fail, every block of the ring is asked.
BlockSequence FindBlocks(Job& job, const Range& range);

} // namespace diskaccess

#endif // DISKACCESS_RECORDED_BLOCKS_H
