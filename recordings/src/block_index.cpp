#include "recordings/block_index.h"

#include <cstring>

#include "disk_format.h"
#include "format/block_geometry.h"
#include "format/index_loader.h"

namespace recordings {

namespace {

using disk_access::BlockGeometry;
using disk_access::IndexTable;
using disk_access::Load;

constexpr uint32_t kPage = 4096;

struct RawTables {
    IndexTable<IFrameItem_t> keyFrames[kChannels];
    IndexTable<RecSegItem_t> segments[kChannels];
    IndexTable<EventIndexItem_t> events;
};

/// The channels whose tables are there: those of the head; where that is damaged, those that have entries.
uint32_t ChannelsOf(const Block& block, const BlkIndexHead_t& counts) {
    if (block.headSound) {
        return block.channels.bits;
    }
    ChannelSet present;
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if (counts.iframeCount[channel] != 0 || counts.recSegCount[channel] != 0) {
            present.Add(channel);
        }
    }
    return present.bits;
}

/// Reads from the index area. Most indexes fit into its first page: that is read once.
class IndexBytes {
public:
    IndexBytes(const Disk& disk, const Block& block)
        : m_disk(disk), m_start(disk.StartOf(block.number)), m_from(disk.Layout().index),
          m_held(kPage < disk.Layout().tail - m_from ? kPage : disk.Layout().tail - m_from) {
        m_whole = disk.Bytes().ReadWhole(m_start + m_from, m_page, m_held);
    }

    /// @param offset in the block
    bool Read(uint64_t offset, void* data, uint32_t bytes) const {
        if (m_whole && offset >= m_from && offset + bytes <= uint64_t{m_from} + m_held) {
            std::memcpy(data, m_page + (offset - m_from), bytes);
            return true;
        }
        return m_disk.Bytes().ReadWhole(m_start + offset, data, bytes);
    }

private:
    const Disk& m_disk;
    uint64_t m_start;
    uint32_t m_from;
    uint32_t m_held;
    bool m_whole = false;
    uint8_t m_page[kPage];
};

/// @return false when a table that is wanted cannot be read or would not end within the block
bool LoadTables(const Disk& disk, const IndexBytes& bytes, uint32_t present, const BlkIndexHead_t& counts,
                const IndexParts& parts, RawTables& tables) {
    const auto read = [&](uint64_t offset, void* buffer, uint32_t size) {
        return bytes.Read(offset, buffer, size);
    };
    const DiskFacts& facts = disk.Facts();
    disk_access::IndexLoader loader(read, BlockGeometry::Of(facts.blockSize, facts.extendedLayout ? 1 : 0));
    uint32_t held[kChannels] = {};
    Load load = loader.ChannelTables(present, counts.iframeCount, parts.keyFrames, tables.keyFrames, held);
    if (load == Load::Done) {
        load = loader.ChannelTables(present, counts.recSegCount, parts.segments, tables.segments, held);
    }
    if (load == Load::Done && counts.eventCount != 0 && parts.events) {
        load = loader.Table(tables.events, counts.eventCount);
    }
    return load == Load::Done;
}

/// The entries of a table as values.
template <typename Raw, typename Convert>
auto Values(const IndexTable<Raw>& table, const Convert& convert) {
    std::vector<decltype(convert(Raw()))> values;
    const uint32_t count = table.Held(UINT32_MAX);
    values.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        values.push_back(convert(table.At(i)));
    }
    return values;
}

} // namespace

std::optional<BlockIndex> ReadIndex(const Disk& disk, const Block& block, const IndexParts& parts) {
    const IndexBytes bytes(disk, block);
    BlkIndexHead_t counts = {};
    if (!bytes.Read(disk.Layout().index, &counts, sizeof counts)) {
        return std::nullopt;
    }
    RawTables tables;
    if (!LoadTables(disk, bytes, ChannelsOf(block, counts), counts, parts, tables)) {
        return std::nullopt;
    }
    BlockIndex index;
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        index.keyFrames[channel] = Values(tables.keyFrames[channel], [](const IFrameItem_t& item) {
            return IndexedKeyFrame{item.pts, item.pos};
        });
        index.segments[channel] = Values(tables.segments[channel], [](const RecSegItem_t& item) {
            return IndexedSegment{item.s, item.e, item.spos, item.epos, item.totalsize};
        });
    }
    index.events = Values(tables.events, [](const EventIndexItem_t& item) {
        return IndexedEvent{item.type, item.pts, item.pos};
    });
    return index;
}

void AskForIndex(const Disk& disk, const Block& block) {
    disk.Bytes().WillNeed(disk.StartOf(block.number) + disk.Layout().index, kPage);
}

} // namespace recordings
