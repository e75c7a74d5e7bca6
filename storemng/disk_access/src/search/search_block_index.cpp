// CSearchBlock: loading a block's index tables, and printing those held.

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "format/channels.h"
#include "io/device.h"
#include "io/messages.h"
#include "search/search_block_state.h"
#include "search_block.h"

using namespace disk_access;

namespace {

/// What ReadBlockIndexList() is asked to load.
constexpr unsigned int kLoadRecSegs = 1;
constexpr unsigned int kLoadEvents = 2;
constexpr unsigned int kLoadIFrames = 4;

/// How a table load ended.
enum class Load { Done, OutOfBlock, NoMemory, ReadFailed };

/// The place in the index area that the next table starts at. Tables lie back to back, so one that is not
/// wanted still moves the next. Counts come from the disk: the offset is kept in 64 bits, in which no sum of
/// them wraps.
class TableReader {
public:
    TableReader(dev_op_st* dev, uint64_t blockStart, const BlockGeometry& geometry)
        : m_dev(dev), m_blockStart(blockStart), m_blkSize(geometry.blkSize),
          m_offset(uint64_t{geometry.IndexAreaStart()} + sizeof(BlkIndexHead_t)) {}

    template <typename Entry>
    void Skip(uint32_t count) {
        m_offset += uint64_t{count} * sizeof(Entry);
    }

    /// Loads a table of @p count entries, at least one, without moving on. A table that would not end within
    /// the block is a forgery, and gets no memory.
    template <typename Entry>
    Load Read(IndexTable<Entry>& table, uint32_t count) {
        const uint64_t bytes = uint64_t{count} * sizeof(Entry);
        if (m_offset + bytes > m_blkSize) {
            return Load::OutOfBlock;
        }
        if (!table.Resize(count)) {
            return Load::NoMemory;
        }
        if (ReadAt(m_dev, m_blockStart + m_offset, table.Data(), static_cast<uint32_t>(bytes)) != 0) {
            table.Forget(); // half of it may have been read
            return Load::ReadFailed;
        }
        return Load::Done;
    }

private:
    dev_op_st* m_dev;
    uint64_t m_blockStart;
    uint32_t m_blkSize;
    uint64_t m_offset;
};

/// Walks one kind of per-channel tables: every channel that is present and has entries takes its space, and
/// is loaded if wanted.
template <typename Entry>
Load ReadChannelTables(TableReader& reader, uint32_t present, const uint32_t* counts, bool wanted,
                       IndexTable<Entry>* tables, uint32_t* heldCounts) {
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        if (!HasChannel(present, chn) || counts[chn] == 0) {
            continue;
        }
        if (wanted) {
            const Load load = reader.Read(tables[chn], counts[chn]);
            if (load != Load::Done) {
                return load;
            }
            heldCounts[chn] = counts[chn];
        }
        reader.Skip<Entry>(counts[chn]);
    }
    return Load::Done;
}

/// A new block starts with empty tables; their memory is kept for it.
void SwitchTo(BlockIndexCache_t& cache, uint32_t block) {
    if (block == cache.curBlock) {
        return;
    }
    cache.curBlock = block;
    std::fill_n(cache.iframeCount, kChannels, 0u);
    std::fill_n(cache.recSegCount, kChannels, 0u);
    cache.eventCount = 0;
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
        std::printf("Block %d Not complete\n", static_cast<int>(block));
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

    TableReader reader(cache.dev, blockStart, cache.geometry);
    Load load = ReadChannelTables(reader, head.media_chn_bitmap, index.iframeCount,
                                  (flags & kLoadIFrames) != 0, cache.iframeTab, cache.iframeCount);
    if (load == Load::Done) {
        load = ReadChannelTables(reader, head.media_chn_bitmap, index.recSegCount,
                                 (flags & kLoadRecSegs) != 0, cache.recSegTab, cache.recSegCount);
    }
    if (load != Load::Done) {
        if (load == Load::ReadFailed) {
            DISK_ACCESS_REPORT_FAILURE("ReadBlockIndexList");
        }
        return -1;
    }

    cache.eventCount = index.eventCount;
    if (index.eventCount != 0 && (flags & kLoadEvents) != 0) {
        load = reader.Read(cache.eventTab, index.eventCount);
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
            std::printf("IFrame[%d][%d]  %lld, %d\n", static_cast<int>(chn), static_cast<int>(j),
                        static_cast<long long>(item.pts), static_cast<int>(item.pos));
        }
    }
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        for (uint32_t j = 0; j < cache.Segments(chn); ++j) {
            const RecSegItem_t seg = cache.recSegTab[chn].At(j);
            std::printf("RecSeg[%d][%d]  %d, %d, %d, %d\n", static_cast<int>(chn), static_cast<int>(j),
                        static_cast<int>(seg.s), static_cast<int>(seg.e), static_cast<int>(seg.spos),
                        static_cast<int>(seg.epos));
        }
    }
    for (uint32_t i = 0; i < cache.Events(); ++i) {
        const EventIndexItem_t event = cache.eventTab.At(i);
        std::printf("Event[%d]  %lld, %lld, %d\n", static_cast<int>(i), static_cast<long long>(event.type),
                    static_cast<long long>(event.pts), static_cast<int>(event.pos));
    }
    return 0;
}
