#ifndef DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H
#define DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H

#include <cstdint>

#include "dev_io.h"
#include "format/block_geometry.h"
#include "format/index_tables.h"

namespace disk_access {

/// Flags of CSearchBlock::ReadBlockIndexList(): what to load.
constexpr unsigned int kLoadRecSegs = 1;
constexpr unsigned int kLoadEvents = 2;
constexpr unsigned int kLoadIFrames = 4;

/// Its results for a block that it could read.
constexpr int kIndexIncomplete = 0; ///< the recorder never closed the block
constexpr int kIndexComplete = 1;
constexpr int kCompleteByExtendedTail = 2;

} // namespace disk_access

/// The index tables of the block that was used last.
///
/// The counts belong to curBlock. The tables' memory is reused from block to block: with a count of zero, a
/// table may still have an earlier block's entries.
struct BlockIndexCache_t : public disk_access::IndexTables {
    dev_op_st* dev = nullptr; ///< owned by the partition object
    disk_access::BlockGeometry geometry = {};
    uint32_t baseOffs = 0;
    uint32_t curBlock = 0;

    uint64_t BlockStart(uint32_t block) const { return geometry.BlockStart(baseOffs, block); }
};

#endif // DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H
