// CSearchBlock: constructor and destructor, and reading a block's head and tail.

#include <cstdint>

#include "format/channels.h"
#include "format/state.h"
#include "io/device.h"
#include "io/messages.h"
#include "search/search_block_state.h"
#include "search_block.h"

using namespace disk_access;

namespace {

/// Reads a complete structure, or leaves @p out unchanged. After a failed read searches use the previous
/// contents of a buffer, and these must not be mixed with the first part of another structure.
template <typename Structure>
bool ReadWhole(dev_op_st* dev, uint64_t offset, Structure& out) {
    Structure read;
    if (ReadAt(dev, offset, &read, sizeof read) != 0) {
        return false;
    }
    out = read;
    return true;
}

} // namespace

CSearchBlock::CSearchBlock(dev_op_st* dev, unsigned int blkSize, unsigned int baseOffs,
                           unsigned int fmtVersion)
    : m_pCache(MakeState<BlockIndexCache_t>()) {
    if (m_pCache != nullptr) {
        m_pCache->dev = dev;
        m_pCache->geometry = BlockGeometry::Of(blkSize, fmtVersion);
        m_pCache->baseOffs = baseOffs;
    }
}

CSearchBlock::~CSearchBlock() {
    DropState(m_pCache);
}

int CSearchBlock::GetBlockInfo(unsigned int block, BlockHead_t* head, BlockTail_t* tail,
                               BlkExtHead_t* extHead, BlockTailEx_t* tailEx) {
    if (m_pCache == nullptr) {
        return -1;
    }
    const BlockGeometry& geometry = m_pCache->geometry;
    const uint64_t start = m_pCache->BlockStart(block);
    const uint64_t tailStart = start + geometry.blkSize - geometry.tailAreaSize;

    if (head != nullptr && !ReadWhole(m_pCache->dev, start, *head)) {
        DISK_ACCESS_REPORT_FAILURE("GetBlockInfo");
        return -1;
    }
    if (extHead != nullptr && !geometry.Extended()) {
        extHead->ExtParaValid = 0;
        extHead->ExtPara = 0xFFFFFFFF;
    } else if (extHead != nullptr && !ReadWhole(m_pCache->dev, start + kExtHeadStart, *extHead)) {
        DISK_ACCESS_REPORT_FAILURE("GetBlockInfo");
        return -1;
    }
    if (tail != nullptr && !ReadWhole(m_pCache->dev, tailStart, *tail)) {
        DISK_ACCESS_REPORT_FAILURE("GetBlockInfo");
        return -1;
    }
    if (tailEx != nullptr && geometry.Extended() &&
        !ReadWhole(m_pCache->dev, tailStart + sizeof(BlockTail_t), *tailEx)) {
        DISK_ACCESS_REPORT_FAILURE("GetBlockInfo");
        return -1;
    }
    return 0;
}

int CSearchBlock::GetUnitRecMap(unsigned int block) {
    if (m_pCache == nullptr) {
        return -1;
    }
    // The counts stay: this only reads head and tail, and a later load of the index starts with the tables in
    // memory.
    m_pCache->curBlock = block;
    BlockHead_t head = {};
    BlockTail_t tail = {};
    if (!m_pCache->geometry.HoldsBlock() || GetBlockInfo(block, &head, &tail, nullptr, nullptr) != 0) {
        return -1;
    }
    return CountChannels(head.media_chn_bitmap);
}
