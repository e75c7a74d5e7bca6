#include "block_ends.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "read_ahead.h"
#include "recordings/error.h"

namespace recordings {

namespace {

/// Blocks between two calls of a watch.
constexpr uint32_t kBlocksAWatch = 64;

/// As much of a head as is looked at here: up to the channel set.
constexpr size_t kHeadBytes = offsetof(BlockHead_t, prop);
constexpr size_t kTailBytes = sizeof(BlockTail_t) + sizeof(BlockTailEx_t);

class EndsReader {
public:
    EndsReader(const Disk& disk, const Watch& watch)
        : m_disk(disk), m_watch(watch), m_tailArea(disk.Facts().blockSize - disk.Layout().tail),
          m_ends(disk.BlockCount()) {}

    std::vector<BlockEnds> Read() {
        const uint32_t count = m_disk.BlockCount();
        ReadAhead ahead(count, [this](size_t block) { AskFor(static_cast<uint32_t>(block)); });
        for (uint32_t block = 0; block < count; ++block) {
            if (block % kBlocksAWatch == 0 && m_watch && !m_watch({block, count, m_bytes})) {
                throw Error(ErrorKind::Cancelled, m_disk.Bytes().Name() + ": interrupted");
            }
            ahead.Before(block);
            ReadBoundary(block);
        }
        if (count != 0) {
            ReadTail(count - 1);
        }
        return std::move(m_ends);
    }

private:
    /// Device offset of the boundary before a block: of the tail of the block before it.
    uint64_t BoundaryOf(uint32_t block) const {
        return m_disk.StartOf(block) - (block == 0 ? 0 : m_tailArea);
    }

    void AskFor(uint32_t block) const { m_disk.Bytes().WillNeed(BoundaryOf(block), m_tailArea + kHeadBytes); }

    void ReadBoundary(uint32_t block) {
        std::array<uint8_t, kLargestTailArea + kHeadBytes> bytes;
        const uint64_t from = BoundaryOf(block);
        const auto tailArea = static_cast<size_t>(m_disk.StartOf(block) - from);
        const size_t size = tailArea + kHeadBytes;
        m_bytes += size;
        if (!m_disk.Bytes().ReadWhole(from, bytes.data(), size)) {
            ReadHead(block);
            if (block != 0) {
                ReadTail(block - 1);
            }
            return;
        }
        TakeHead(block, bytes.data() + tailArea);
        if (block != 0) {
            TakeTail(block - 1, bytes.data(), std::min(tailArea, kTailBytes));
        }
    }

    void ReadHead(uint32_t block) {
        std::array<uint8_t, kHeadBytes> bytes;
        if (m_disk.Bytes().ReadWhole(m_disk.StartOf(block), bytes.data(), bytes.size())) {
            TakeHead(block, bytes.data());
        }
    }

    void ReadTail(uint32_t block) {
        std::array<uint8_t, kTailBytes> bytes;
        const size_t size = std::min<size_t>(m_tailArea, kTailBytes);
        if (m_disk.Bytes().ReadWhole(m_disk.StartOf(block) + m_disk.Layout().tail, bytes.data(), size)) {
            TakeTail(block, bytes.data(), size);
        }
    }

    void TakeHead(uint32_t block, const uint8_t* bytes) {
        BlockHead_t head = {};
        std::memcpy(&head, bytes, kHeadBytes);
        BlockEnds& ends = m_ends[block];
        ends.headRead = true;
        ends.validFlag = head.ValidFlag;
        ends.recTime = head.RecTime;
        ends.recSeq = head.RecSeq;
        ends.channels = head.media_chn_bitmap;
    }

    void TakeTail(uint32_t block, const uint8_t* bytes, size_t size) {
        BlockEnds& ends = m_ends[block];
        ends.tailRead = true;
        std::memcpy(&ends.tail, bytes, sizeof ends.tail);
        if (size == kTailBytes) {
            std::memcpy(&ends.tailEx, bytes + sizeof ends.tail, sizeof ends.tailEx);
        }
    }

    static constexpr size_t kLargestTailArea = 512;

    const Disk& m_disk;
    const Watch& m_watch;
    uint32_t m_tailArea;
    std::vector<BlockEnds> m_ends;
    uint64_t m_bytes = 0;
};

} // namespace

std::vector<BlockEnds> ReadBlockEnds(const Disk& disk, const Watch& watch) {
    return EndsReader(disk, watch).Read();
}

} // namespace recordings
