#ifndef DISK_ACCESS_FORMAT_BLOCK_GEOMETRY_H
#define DISK_ACCESS_FORMAT_BLOCK_GEOMETRY_H

#include <cstddef>
#include <cstdint>

#include "disk_format.h"

namespace disk_access {

// The structures are read directly into these records: a byte in the wrong place would be another format.
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

/// Where the parts of a block are. Sizes and offsets in bytes.
struct BlockGeometry {
    uint32_t blkSize;
    uint32_t headAreaSize;
    uint32_t tailAreaSize;

    /// @param fmtVersion PartHead_t::FmtVersion
    static constexpr BlockGeometry Of(uint32_t blkSize, uint32_t fmtVersion) {
        return fmtVersion == 1 ? BlockGeometry{blkSize, 2048, 512} : BlockGeometry{blkSize, 840, 20};
    }

    constexpr bool Extended() const { return headAreaSize == 2048; }

    /// The index area is 1/256 of the block plus the tail area at its end, rounded up to 4 KiB.
    constexpr uint32_t IndexAreaSize() const { return (tailAreaSize + (blkSize >> 8) + 4095) & ~0xFFFu; }

    /// Whether the block has room for its own areas. If it has not, every difference below would wrap.
    constexpr bool HoldsBlock() const { return blkSize >= uint64_t{headAreaSize} + IndexAreaSize(); }

    constexpr uint32_t IndexAreaStart() const { return blkSize - IndexAreaSize(); }
    constexpr uint32_t FrameAreaSize() const { return IndexAreaStart() - headAreaSize; }
    constexpr uint32_t TailStart() const { return blkSize - tailAreaSize; }

    /// Device offset of a block. Block 0 begins at @p baseOffs.
    constexpr uint64_t BlockStart(uint32_t baseOffs, uint32_t block) const {
        return baseOffs + uint64_t{block} * blkSize;
    }
};

/// Offset of the extended head within its block: directly after the head.
constexpr uint32_t kExtHeadStart = sizeof(BlockHead_t);

/// Number of blocks that begin inside a device of @p deviceSize bytes; 0 if blocks have no room for their own
/// areas.
constexpr uint32_t BlocksInside(const BlockGeometry& geometry, uint64_t deviceSize) {
    if (!geometry.HoldsBlock() || deviceSize <= BLOCK_BASE_OFFSET) {
        return 0;
    }
    const uint64_t inside = (deviceSize - BLOCK_BASE_OFFSET + geometry.blkSize - 1) / geometry.blkSize;
    return inside > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<uint32_t>(inside);
}

/// Number of blocks that record and event ids can name: no recorder makes a larger ring.
constexpr uint32_t kBlocksOfIds = 0x10000;

/// The number of blocks of a ring of @p blkCount to use. A head may state more than begin inside the device.
/// It may be a copy that was cut off: its missing blocks fail when they are read. Or it may be a forgery with
/// billions of blocks: of these, only as many are used as ids can name.
constexpr uint32_t CredibleBlocks(uint32_t blkCount, const BlockGeometry& geometry, uint64_t deviceSize) {
    const uint32_t inside = BlocksInside(geometry, deviceSize);
    const uint32_t most = inside > kBlocksOfIds ? inside : kBlocksOfIds;
    return blkCount < most ? blkCount : most;
}

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_BLOCK_GEOMETRY_H
