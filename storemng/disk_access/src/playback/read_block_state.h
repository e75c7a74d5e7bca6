#ifndef DISK_ACCESS_PLAYBACK_READ_BLOCK_STATE_H
#define DISK_ACCESS_PLAYBACK_READ_BLOCK_STATE_H

#include <cstdint>

#include "dev_io.h"
#include "disk_format.h"
#include "format/block_geometry.h"
#include "format/channels.h"
#include "format/frames.h"
#include "format/index_tables.h"

/// The position of reads, and what they accept. All fields are zero after the block was opened: the window
/// then ends at second 0, and only a seek changes it.
struct ReadCursor_st {
    uint32_t allChn;                            ///< nonzero: every channel; zero: that of recId
    uint32_t recId;                             ///< the record being played
    uint32_t readOffs;                          ///< frame offset of the next frame to read
    uint32_t iframePosValid;                    ///< nonzero: iframePos belongs to the read position
    uint32_t iframePos[disk_access::kChannels]; ///< per channel: entry of its I-frame table, or kNoIFrame
    uint32_t winStart;                          ///< first second wanted
    uint32_t winEnd;                            ///< last second wanted
    uint32_t winOffs;                           ///< lowest frame offset that may be read
};

/// A block open for reading.
struct BlkReadState_st {
    bolck_op_st* blkOp = nullptr; ///< null until the window is open
    disk_access::BlockGeometry geometry = {};
    BlockHead_t blockHead = {};
    BlockTail_t blockTail = {};
    BlockTailEx_t blockTailEx = {}; ///< zero in the normal layout
    disk_access::IndexTables index;
    ReadCursor_st* pCursor = nullptr;
};

namespace disk_access {

/// No I-frame position.
constexpr uint32_t kNoIFrame = 0xFFFFFFFF;

/// The frame offset after a frame. If only the head was read, the length was not checked. A forged length may
/// lead beyond all offsets, but must not lead back.
inline uint32_t OffsetBehind(uint64_t offs, const FrameHead_t& head) {
    const uint64_t next = offs + FrameSpan(head);
    return next > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<uint32_t>(next);
}

/// Seeks within a block's window. Offsets beyond 32 bits are beyond every window.
inline bool SeekInBlock(bolck_op_st* window, uint64_t offset) {
    return offset <= 0xFFFFFFFF && block_seek(window, static_cast<uint32_t>(offset)) == 0;
}

/// Seeks and reads within a block's window.
/// @return 0 or -1
inline int ReadInBlock(bolck_op_st* window, uint64_t offset, void* buf, uint32_t len) {
    return SeekInBlock(window, offset) ? block_read(window, buf, len) : -1;
}

} // namespace disk_access

#endif // DISK_ACCESS_PLAYBACK_READ_BLOCK_STATE_H
