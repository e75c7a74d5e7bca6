#ifndef DISK_ACCESS_FORMAT_BLOCK_GEOMETRY_H
#define DISK_ACCESS_FORMAT_BLOCK_GEOMETRY_H

#include <cstddef>
#include <cstdint>

#include "disk_format.h"

namespace disk_access {

// The structures are read whole into these records, so a byte out of place is a format broken.
static_assert(sizeof(PartHead_t) == 200 && offsetof(PartHead_t, CipherCode) == 72, "partition head");
static_assert(sizeof(ChnProp_t) == 24 && offsetof(ChnProp_t, AType) == 20, "channel properties");
static_assert(sizeof(BlockHead_t) == 840 && offsetof(BlockHead_t, prop) == 72, "block head");
static_assert(sizeof(BlkExtHead_t) == 64, "extended block head");
static_assert(sizeof(BlockTail_t) == 20 && offsetof(BlockTail_t, RecSeq) == 8, "block tail");
static_assert(sizeof(BlockTailEx_t) == 12, "extended block tail");
static_assert(sizeof(BlkIndexHead_t) == 260 && offsetof(BlkIndexHead_t, eventCount) == 256, "index head");
static_assert(sizeof(IFrameItem_t) == 16 && sizeof(RecSegItem_t) == 20, "index entries");
static_assert(sizeof(EventIndexItem_t) == 24 && offsetof(EventIndexItem_t, pos) == 16, "event entry");
static_assert(sizeof(FrameHead_t) == 24 && offsetof(FrameHead_t, len) == 20, "frame head");
static_assert(sizeof(EventHead_t) == 16 && offsetof(EventHead_t, Indexed) == 9, "event head");

/// Where the parts of a block lie. Sizes and offsets in bytes.
struct BlockGeometry {
    uint32_t blkSize;
    uint32_t headAreaSize;
    uint32_t tailAreaSize;

    /// @param fmtVersion PartHead_t::FmtVersion
    static constexpr BlockGeometry Of(uint32_t blkSize, uint32_t fmtVersion) {
        return fmtVersion == 1 ? BlockGeometry{blkSize, 2048, 512} : BlockGeometry{blkSize, 840, 20};
    }

    constexpr bool Extended() const { return headAreaSize == 2048; }

    /// The index area takes 1/256 of the block and the tail area behind it, in whole 4 KiB pages.
    constexpr uint32_t IndexAreaSize() const { return (tailAreaSize + (blkSize >> 8) + 4095) & ~0xFFFu; }

    /// Whether the areas fit at all; with a smaller block every difference below would wrap.
    constexpr bool HoldsBlock() const { return blkSize >= uint64_t{headAreaSize} + IndexAreaSize(); }

    constexpr uint32_t IndexAreaStart() const { return blkSize - IndexAreaSize(); }
    constexpr uint32_t FrameAreaSize() const { return IndexAreaStart() - headAreaSize; }
    constexpr uint32_t TailStart() const { return blkSize - tailAreaSize; }

    /// Device offset of a block, for blocks of @p blkSize bytes from @p baseOffs on.
    constexpr uint64_t BlockStart(uint32_t baseOffs, uint32_t block) const {
        return baseOffs + uint64_t{block} * blkSize;
    }
};

/// Device offset of the extended head within its block: it follows the head directly.
constexpr uint32_t kExtHeadStart = sizeof(BlockHead_t);

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_BLOCK_GEOMETRY_H
