#ifndef DISK_ACCESS_SEARCH_SEARCH_PART_STATE_H
#define DISK_ACCESS_SEARCH_SEARCH_PART_STATE_H

#include <cstdint>

#include "dev_io.h"
#include "format/block_geometry.h"
#include "format/ring.h"
#include "search_block.h"
#include "search_part.h"

/// A partition open for searching.
struct PartSearchState_t {
    dev_op_st* dev;
    CSearchBlock* searchBlock;
    uint32_t BlkCount;  ///< as the head states it
    uint32_t RingCount; ///< blocks in use: fewer if the head states more than there can be
    uint32_t BlkSize;
    uint32_t FmtVersion;
    uint32_t BBTabOffs;
    uint32_t BBCounterOffs;
    uint8_t* badBlockTab;   ///< one bit per block; null until loaded
    uint8_t* possibleBBTab; ///< one byte per block; loaded with badBlockTab
    uint32_t LastBlockNum;
    uint32_t OldestBlockNum;
    uint32_t Encrypt;
    uint32_t EncryptMap;
    char CipherCode[128];

    disk_access::Ring TheRing() const { return {RingCount}; }

    /// Whether there is a block to use: a forged head may state no blocks, or blocks too small for their own
    /// head and index.
    bool HasBlocks() const { return BlkCount != 0 && Geometry().HoldsBlock(); }

    disk_access::BlockGeometry Geometry() const {
        return disk_access::BlockGeometry::Of(BlkSize, FmtVersion);
    }
};

namespace disk_access {

/// Looks for a valid block, forwards or backwards around the ring from @p from to @p limit, both included. The
/// interface also takes a mode and a sequence number, which mean something in playback alone.
/// @return whether there is one: it is in @p out, its head in @p head
inline bool NextValid(CSearchPart& part, uint32_t from, uint32_t limit, uint32_t& out, BlockHead_t& head) {
    return part.GetNextValidBlock(0, 0, from, limit, &out, &head) == 0;
}
inline bool PrevValid(CSearchPart& part, uint32_t from, uint32_t limit, uint32_t& out, BlockHead_t& head) {
    return part.GetPrevValidBlock(0, 0, from, limit, &out, &head) == 0;
}

/// Finds the oldest block: the one after the newest if the ring has wrapped, else the first of the ring. Sets
/// the state's OldestBlockNum, which does not change if no block is valid.
/// @param head gets the head of the block that was tested last
void FindOldest(CSearchPart& part, PartSearchState_t& state, BlockHead_t& head);

/// Counts the blocks from @p start forwards to the newest and prints how many there are, under an operation's
/// name.
/// @return the count; 0 if there are no blocks, or no bad-block tables (then no block is usable)
uint32_t AnnounceSpan(CSearchPart& part, const PartSearchState_t& state, const char* operation,
                      uint32_t start);

} // namespace disk_access

#endif // DISK_ACCESS_SEARCH_SEARCH_PART_STATE_H
