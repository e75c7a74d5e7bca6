#ifndef RECORDINGS_BLOCK_ENDS_H
#define RECORDINGS_BLOCK_ENDS_H

#include <cstdint>
#include <vector>

#include "disk_format.h"
#include "recordings/disk.h"
#include "recordings/query.h"

namespace recordings {

/// What stands in a block's head and tail.
struct BlockEnds {
    bool headRead = false;
    bool tailRead = false;
    uint32_t validFlag = 0;
    uint32_t recTime = 0;
    uint32_t recSeq = 0;
    uint32_t channels = 0;
    BlockTail_t tail = {};
    BlockTailEx_t tailEx = {}; ///< zero in the normal layout

    bool HeadValid() const { return headRead && validFlag == BLOCK_MAGIC; }
    /// Whether the recorder has written to the block since it was formatted.
    bool Written() const { return recSeq != 0 || recTime != 0; }
    /// Whether the tail, or the extended tail, has the head's number: the block was finished.
    bool Closed() const {
        return tailRead && recSeq != 0 && (tail.RecSeq == recSeq || tailEx.RecSeq == recSeq);
    }
};

/// Reads heads and tails of all blocks of the ring. The tail of a block lies just before the head of the next, so that
/// one read fetches both; where it fails, each is read by itself.
/// @throws Error (Cancelled)
std::vector<BlockEnds> ReadBlockEnds(const Disk& disk, const Watch& watch);

} // namespace recordings

#endif // RECORDINGS_BLOCK_ENDS_H
