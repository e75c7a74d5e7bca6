// CSearchBlock: loading a block's index tables, and printing those in memory.

#include <cstdint>

#include "format/index_loader.h"
#include "io/device.h"
#include "io/host.h"
#include "io/messages.h"
#include "search/search_block_state.h"
#include "search_block.h"

using namespace disk_access;

namespace {

/// A new block starts with empty tables; the tables keep their memory.
void SwitchTo(BlockIndexCache_t& cache, uint32_t block) {
    if (block == cache.curBlock) {
        return;
    }
    cache.curBlock = block;
    cache.counts = {};
}

/// Tells whether the recorder finished a block's index.
/// @param head gets the block's head
/// @return kIndexComplete, kCompleteByExtendedTail or kIndexIncomplete; -1 if head or tails cannot be read
int IndexStatus(CSearchBlock& blocks, uint32_t block, BlockHead_t& head) {
    BlockTail_t tail = {};
    if (blocks.GetBlockInfo(block, &head, &tail, nullptr, nullptr) != 0) {
        return -1;
    }
    if (head.RecSeq == tail.RecSeq) {
        return kIndexComplete;
    }
    Message("Block %d Not complete\n", static_cast<int>(block));
    // In the normal layout this stays zero: the block then counts as complete only if it was never recorded.
    BlockTailEx_t tailEx = {};
    if (blocks.GetBlockInfo(block, nullptr, nullptr, nullptr, &tailEx) != 0) {
        return -1;
    }
    return head.RecSeq == tailEx.RecSeq ? kCompleteByExtendedTail : kIndexIncomplete;
}

/// Reads the index of a block that the recorder finished.
class IndexReader {
public:
    IndexReader(BlockIndexCache_t& cache, uint32_t block)
        : m_cache(cache), m_blockStart(cache.BlockStart(block)) {}

    /// Reads the index head, and the tables asked for of the channels that are present.
    bool LoadTables(uint32_t present, unsigned int flags) {
        BlkIndexHead_t head = {};
        if (!Read(m_cache.geometry.IndexAreaStart(), &head, sizeof head)) {
            DISK_ACCESS_REPORT_FAILURE("ReadBlockIndexList");
            return false;
        }
        const auto readBlock = [this](uint64_t offset, void* buf, uint32_t len) {
            return Read(offset, buf, len);
        };
        IndexLoader loader(readBlock, m_cache.geometry);
        return LoadChannels(loader, present, head, flags) && LoadEvents(loader, head.eventCount, flags);
    }

private:
    bool Read(uint64_t offset, void* buf, uint32_t len) const {
        return ReadAt(m_cache.dev, m_blockStart + offset, buf, len) == 0;
    }

    template <typename Loader>
    bool LoadChannels(Loader& loader, uint32_t present, const BlkIndexHead_t& head, unsigned int flags) {
        Load load = loader.ChannelTables(present, head.iframeCount, (flags & kLoadIFrames) != 0,
                                         m_cache.iframeTab, m_cache.counts.iframeCount);
        if (load == Load::Done) {
            load = loader.ChannelTables(present, head.recSegCount, (flags & kLoadRecSegs) != 0,
                                        m_cache.recSegTab, m_cache.counts.recSegCount);
        }
        if (load == Load::ReadFailed) {
            DISK_ACCESS_REPORT_FAILURE("ReadBlockIndexList");
        }
        return load == Load::Done;
    }

    template <typename Loader>
    bool LoadEvents(Loader& loader, uint32_t count, unsigned int flags) {
        m_cache.counts.eventCount = count;
        if (count == 0 || (flags & kLoadEvents) == 0) {
            return true;
        }
        const Load load = loader.Table(m_cache.eventTab, count);
        if (load == Load::NoMemory) {
            // A search needs the segments but not the events. It must not use the events of another block.
            m_cache.eventTab.Forget();
            return true;
        }
        return load == Load::Done;
    }

    BlockIndexCache_t& m_cache;
    uint64_t m_blockStart;
};

} // namespace

int CSearchBlock::ReadBlockIndexList(unsigned int block, unsigned int flags) {
    if (m_pCache == nullptr) {
        return -1;
    }
    SwitchTo(*m_pCache, block);
    if (!m_pCache->geometry.HoldsBlock()) {
        return -1;
    }
    BlockHead_t head = {};
    const int status = IndexStatus(*this, block, head);
    if (status != kIndexComplete && status != kCompleteByExtendedTail) {
        return status;
    }
    return IndexReader(*m_pCache, block).LoadTables(head.media_chn_bitmap, flags) ? status : -1;
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
