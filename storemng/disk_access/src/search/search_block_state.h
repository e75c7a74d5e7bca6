#ifndef DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H
#define DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H

#include <cstdint>

#include "dev_io.h"
#include "format/block_geometry.h"
#include "format/index_tables.h"

namespace disk_access {

/// What CSearchBlock::ReadBlockIndexList() is asked to load.
constexpr unsigned int kLoadRecSegs = 1;
constexpr unsigned int kLoadEvents = 2;
constexpr unsigned int kLoadIFrames = 4;

/// What it answers of a block that it could read.
constexpr int kIndexIncomplete = 0; ///< the recorder never closed the block
constexpr int kIndexComplete = 1;
constexpr int kCompleteByExtendedTail = 2;

} // namespace disk_access

/// The index tables of the block that was asked for last.
///
/// A count belongs to curBlock; a table is memory that is reused from block to block, and may hold an earlier
/// block's entries behind a count of zero.
struct BlockIndexCache_t : public disk_access::IndexTables {
    dev_op_st* dev = nullptr; ///< owned by the partition object
    disk_access::BlockGeometry geometry = {};
    uint32_t baseOffs = 0;
    uint32_t curBlock = 0;

    uint64_t BlockStart(uint32_t block) const { return geometry.BlockStart(baseOffs, block); }
};

#endif // DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H
