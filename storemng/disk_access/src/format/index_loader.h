#ifndef DISK_ACCESS_FORMAT_INDEX_LOADER_H
#define DISK_ACCESS_FORMAT_INDEX_LOADER_H

#include <cstdint>

#include "disk_format.h"
#include "format/block_geometry.h"
#include "format/channels.h"
#include "format/index_table.h"

namespace disk_access {

/// How a table load ended.
enum class Load { Done, OutOfBlock, NoMemory, ReadFailed };

/// Loads index tables, and keeps the offset at which the next table starts. Tables follow each other
/// directly, so a table that is not wanted also moves the offset. Counts come from the disk: the offset has
/// 64 bits, so no sum of them wraps.
/// @tparam ReadBlock a function (uint64_t block offset, void* buffer, uint32_t bytes) that returns whether it read
template <typename ReadBlock>
class IndexLoader {
public:
    IndexLoader(ReadBlock readBlock, const BlockGeometry& geometry)
        : m_readBlock(readBlock), m_blkSize(geometry.blkSize),
          m_offset(uint64_t{geometry.IndexAreaStart()} + sizeof(BlkIndexHead_t)) {}

    /// Passes over one kind of per-channel tables. Every channel that is present and has entries has a table;
    /// it is loaded if @p wanted.
    /// @param heldCounts gets the counts of the tables loaded
    template <typename Entry>
    Load ChannelTables(uint32_t present, const uint32_t* counts, bool wanted, IndexTable<Entry>* tables,
                       uint32_t* heldCounts) {
        for (uint32_t chn = 0; chn < kChannels; ++chn) {
            if (!HasChannel(present, chn) || counts[chn] == 0) {
                continue;
            }
            if (wanted) {
                const Load load = Table(tables[chn], counts[chn]);
                if (load != Load::Done) {
                    return load;
                }
                heldCounts[chn] = counts[chn];
            }
            m_offset += uint64_t{counts[chn]} * sizeof(Entry);
        }
        return Load::Done;
    }

    /// Loads a table of @p count entries, at least one, at the current offset, which does not move. A table
    /// that would not end within the block is forged: no memory is allocated for it.
    template <typename Entry>
    Load Table(IndexTable<Entry>& table, uint32_t count) {
        const uint64_t bytes = uint64_t{count} * sizeof(Entry);
        if (m_offset + bytes > m_blkSize) {
            return Load::OutOfBlock;
        }
        if (!table.Resize(count)) {
            return Load::NoMemory;
        }
        if (!m_readBlock(m_offset, table.Data(), static_cast<uint32_t>(bytes))) {
            table.Forget(); // a part of it may have been read
            return Load::ReadFailed;
        }
        return Load::Done;
    }

private:
    ReadBlock m_readBlock;
    uint32_t m_blkSize;
    uint64_t m_offset;
};

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_INDEX_LOADER_H
