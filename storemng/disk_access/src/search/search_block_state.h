#ifndef DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H
#define DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H

#include <cstdint>

#include "dev_io.h"
#include "disk_format.h"
#include "format/block_geometry.h"
#include "format/channels.h"
#include "format/index_table.h"

/// The index tables of the block that was asked for last.
///
/// Counts and tables are kept apart. A count belongs to curBlock; a table is memory that is reused from block
/// to block, and may hold an earlier block's entries behind a count of zero, or fewer entries than its count
/// says.
struct BlockIndexCache_t {
    dev_op_st* dev = nullptr; ///< owned by the partition object
    disk_access::BlockGeometry geometry = {};
    uint32_t baseOffs = 0;
    uint32_t curBlock = 0;
    uint32_t iframeCount[disk_access::kChannels] = {};
    uint32_t recSegCount[disk_access::kChannels] = {};
    uint32_t eventCount = 0;
    disk_access::IndexTable<IFrameItem_t> iframeTab[disk_access::kChannels];
    disk_access::IndexTable<RecSegItem_t> recSegTab[disk_access::kChannels];
    disk_access::IndexTable<EventIndexItem_t> eventTab;

    uint64_t BlockStart(uint32_t block) const { return geometry.BlockStart(baseOffs, block); }

    uint32_t IFrames(uint32_t chn) const { return iframeTab[chn].Held(iframeCount[chn]); }
    uint32_t Segments(uint32_t chn) const { return recSegTab[chn].Held(recSegCount[chn]); }
    uint32_t Events() const { return eventTab.Held(eventCount); }
};

#endif // DISK_ACCESS_SEARCH_SEARCH_BLOCK_STATE_H
