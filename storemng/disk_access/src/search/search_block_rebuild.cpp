// CSearchBlock: building the index of a block that was never closed from its frames.

#include <algorithm>
#include <cstdint>

#include "format/frames.h"
#include "io/device.h"
#include "io/host.h"
#include "io/messages.h"
#include "search/search_block_state.h"
#include "search_block.h"

using namespace disk_access;

namespace {

/// The mode that starts after the last I-frame in memory; every other mode starts at the first frame.
constexpr unsigned int kResume = 2;

/// Device offset of a frame position. In 64 bits, so that no forged length makes it wrap.
uint64_t FrameStart(const BlockIndexCache_t& cache, uint32_t block, uint64_t pos) {
    return cache.BlockStart(block) + cache.geometry.headAreaSize + pos;
}

/// Whether a frame head at this position is inside the block: positions in an index come from the disk.
bool HeadInBlock(const BlockGeometry& geometry, uint64_t pos) {
    return geometry.headAreaSize + pos + sizeof(FrameHead_t) <= geometry.blkSize;
}

/// The highest position of the last I-frames in memory of all channels that are present; 0 if there is none.
uint32_t LastIFrame(const BlockIndexCache_t& cache, uint32_t present) {
    uint32_t last = 0;
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        const uint32_t held = cache.IFrames(chn);
        if (HasChannel(present, chn) && held != 0) {
            last = std::max(last, cache.iframeTab[chn].At(held - 1).pos);
        }
    }
    return last;
}

void PrintCounts(const BlockIndexCache_t& cache, uint32_t block, const BlockHead_t& head) {
    Message("%s, Rebuild Index Block=%d(%d):\n", "RebuildRecSegInfo", static_cast<int>(block),
            static_cast<int>(head.RecSeq));
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        if (HasChannel(head.media_chn_bitmap, chn)) {
            Message("  [%d] rec count = %d\n", static_cast<int>(chn),
                    static_cast<int>(cache.counts.recSegCount[chn]));
        }
    }
}

} // namespace

int CSearchBlock::RebuildRecSegInfo(unsigned int block, unsigned int flags, unsigned int mode) {
    BlockHead_t head = {};
    if (m_pCache == nullptr || GetBlockInfo(block, &head, nullptr, nullptr, nullptr) != 0) {
        return -1;
    }
    BlockIndexCache_t& cache = *m_pCache;
    if (!cache.geometry.HoldsBlock()) {
        return -1;
    }
    uint64_t pos = 0;
    if (mode == kResume) {
        ReadBlockIndexList(block, flags); // if this fails, the index is built from the frames
        pos = LastIFrame(cache, head.media_chn_bitmap);
        FrameHead_t last = {};
        if (!HeadInBlock(cache.geometry, pos) ||
            ReadAt(cache.dev, FrameStart(cache, block, pos), &last, sizeof last) != 0) {
            DISK_ACCESS_REPORT_FAILURE("RebuildRecSegInfo");
            return -1;
        }
        if (last.sync == BLOCK_MAGIC && last.chn < kChannels) {
            pos += FrameSpan(last);
        }
    }
    while (pos < cache.geometry.FrameAreaSize()) {
        FrameHead_t frame = {};
        if (ReadAt(cache.dev, FrameStart(cache, block, pos), &frame, sizeof frame) != 0) {
            return -1;
        }
        if (frame.sync != BLOCK_MAGIC || IsStale(frame, head.RecTime)) {
            break;
        }
        FrameInfo_t info = InfoOf(frame);
        EventHead_t event = {};
        if (info.type == kEventFrame && dev_read(cache.dev, &event, sizeof event) != 0) {
            return -1;
        }
        RefreshRecSegInfo(&info, static_cast<uint32_t>(pos), &event);
        pos += FrameSpan(frame);
    }
    PrintCounts(cache, block, head);
    return 0;
}

int CSearchBlock::RefreshRecSegInfo(FrameInfo_t* info, unsigned int pos, EventHead_t* eventHead) {
    if (m_pCache == nullptr || info == nullptr) {
        return -1;
    }
    m_pCache->AddFrame(*info, pos, eventHead);
    return 0;
}
