// CSearchBlock: loading a block's index tables, and printing those held.

#include <cstdint>

#include "format/index_loader.h"
#include "io/device.h"
#include "io/host.h"
#include "io/messages.h"
#include "search/search_block_state.h"
#include "search_block.h"

using namespace disk_access;

namespace {

/// What ReadBlockIndexList() is asked to load.
constexpr unsigned int kLoadRecSegs = 1;
constexpr unsigned int kLoadEvents = 2;
constexpr unsigned int kLoadIFrames = 4;

/// A new block starts with empty tables; their memory is kept for it.
void SwitchTo(BlockIndexCache_t& cache, uint32_t block) {
    if (block == cache.curBlock) {
        return;
    }
    cache.curBlock = block;
    cache.counts = {};
}

} // namespace

int CSearchBlock::ReadBlockIndexList(unsigned int block, unsigned int flags) {
    if (m_pCache == nullptr) {
        return -1;
    }
    BlockIndexCache_t& cache = *m_pCache;
    SwitchTo(cache, block);
    if (!cache.geometry.HoldsBlock()) {
        return -1;
    }
    BlockHead_t head = {};
    BlockTail_t tail = {};
    if (GetBlockInfo(block, &head, &tail, nullptr, nullptr) != 0) {
        return -1;
    }
    int status = 1;
    if (head.RecSeq != tail.RecSeq) {
        Message("Block %d Not complete\n", static_cast<int>(block));
        // Without an extended tail this stays zero: such a block is complete only if it was never recorded.
        BlockTailEx_t tailEx = {};
        if (GetBlockInfo(block, nullptr, nullptr, nullptr, &tailEx) != 0) {
            return -1;
        }
        if (head.RecSeq != tailEx.RecSeq) {
            return 0;
        }
        status = 2;
    }

    const uint64_t blockStart = cache.BlockStart(block);
    BlkIndexHead_t index = {};
    if (ReadAt(cache.dev, blockStart + cache.geometry.IndexAreaStart(), &index, sizeof index) != 0) {
        DISK_ACCESS_REPORT_FAILURE("ReadBlockIndexList");
        return -1;
    }

    const auto readBlock = [&cache, blockStart](uint64_t offset, void* buf, uint32_t len) {
        return ReadAt(cache.dev, blockStart + offset, buf, len);
    };
    IndexLoader loader(readBlock, cache.geometry);
    Load load = loader.ChannelTables(head.media_chn_bitmap, index.iframeCount, (flags & kLoadIFrames) != 0,
                                     cache.iframeTab, cache.counts.iframeCount);
    if (load == Load::Done) {
        load = loader.ChannelTables(head.media_chn_bitmap, index.recSegCount, (flags & kLoadRecSegs) != 0,
                                    cache.recSegTab, cache.counts.recSegCount);
    }
    if (load != Load::Done) {
        if (load == Load::ReadFailed) {
            DISK_ACCESS_REPORT_FAILURE("ReadBlockIndexList");
        }
        return -1;
    }

    cache.counts.eventCount = index.eventCount;
    if (index.eventCount != 0 && (flags & kLoadEvents) != 0) {
        load = loader.Table(cache.eventTab, index.eventCount);
        if (load == Load::NoMemory) {
            // A search can do without events, the segments are there; but not with those of another block.
            cache.eventTab.Forget();
        } else if (load != Load::Done) {
            return -1;
        }
    }
    return status;
}

int CSearchBlock::PrintIndex() {
    if (m_pCache == nullptr) {
        return -1;
    }
    const BlockIndexCache_t& cache = *m_pCache;
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        for (uint32_t j = 0; j < cache.IFrames(chn); ++j) {
            const IFrameItem_t item = cache.iframeTab[chn].At(j);
            Message("IFrame[%d][%d]  %lld, %d\n", static_cast<int>(chn), static_cast<int>(j),
                    static_cast<long long>(item.pts), static_cast<int>(item.pos));
        }
    }
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        for (uint32_t j = 0; j < cache.Segments(chn); ++j) {
            const RecSegItem_t seg = cache.recSegTab[chn].At(j);
            Message("RecSeg[%d][%d]  %d, %d, %d, %d\n", static_cast<int>(chn), static_cast<int>(j),
                    static_cast<int>(seg.s), static_cast<int>(seg.e), static_cast<int>(seg.spos),
                    static_cast<int>(seg.epos));
        }
    }
    for (uint32_t i = 0; i < cache.Events(); ++i) {
        const EventIndexItem_t event = cache.eventTab.At(i);
        Message("Event[%d]  %lld, %lld, %d\n", static_cast<int>(i), static_cast<long long>(event.type),
                static_cast<long long>(event.pts), static_cast<int>(event.pos));
    }
    return 0;
}
