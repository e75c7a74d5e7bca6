#ifndef RECORDINGS_FRAME_AREA_H
#define RECORDINGS_FRAME_AREA_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "recordings/block_frames.h"
#include "recordings/disk.h"

namespace recordings {

/// Memory that is read into. It outlives blocks, so that it is asked for once.
class FrameBuffer {
public:
    /// Memory for @p size bytes that nobody holds; the first @p kept of what was there before stay.
    uint8_t* Room(size_t size, size_t kept);
    /// Keeps the memory as it is for as long as the answer lives: from then on, other memory is read into.
    std::shared_ptr<const void> Hold() const { return m_memory.bytes; }

private:
    struct Memory {
        std::shared_ptr<uint8_t[]> bytes;
        size_t size = 0;
    };
    static bool Serves(const Memory& memory, size_t size);
    Memory Take(size_t size);

    Memory m_memory;
    std::vector<Memory>
        m_lent; ///< held by others, the oldest first; used again when nobody holds them any more
};

/// A stretch of a frame area: bytes from to to - 1.
struct Stretch {
    uint32_t from = 0;
    uint32_t to = 0;
};

/// The bytes of a block's frame area.
///
/// They are read in large pieces. Where the disk fails, smaller pieces are tried, down to a sector, so that only what
/// really fails is lost. When payloads are wanted, the area of a block of an ordinary size is kept, and each byte read
/// once. Of a block that is larger than any recorder makes, and when heads alone are wanted, a window is held that moves
/// along; it skips payloads where that saves reading.
class FrameArea {
public:
    /// @param disk, buffer must outlive the object
    /// @param breathe called before each read; it may throw
    FrameArea(const Disk& disk, uint32_t block, Want want, FrameBuffer& buffer,
              std::function<void()> breathe = {});

    uint32_t Size() const { return m_size; }

    /// The bytes @p offset to @p offset + @p size - 1. Valid until the next call, while the area is kept for ever.
    /// @return null when some of them cannot be read or lie outside
    const uint8_t* At(uint32_t offset, uint32_t size);

    /// Bytes that are at hand.
    struct Piece {
        const uint8_t* data = nullptr;
        uint32_t size = 0;
    };
    /// As many readable bytes from @p offset on as are at hand, for a search that reads everything. None where the disk
    /// fails, and at the end.
    Piece PieceAt(uint32_t offset);

    /// The first place from @p offset on that is not known to be unreadable.
    uint32_t AfterUnreadable(uint32_t offset) const;

    /// Reads on without skipping anything, and keeps it, unless the area is too large for that.
    /// @return whether the area is kept
    bool Keep();
    bool IsKept() const { return m_kept; }
    /// From now on payloads are read one after the other.
    void ReadInOrder();

    /// What the disk did not deliver so far: starts and ends.
    const std::map<uint32_t, uint32_t>& Unreadable() const { return m_unreadable; }
    uint64_t BytesRead() const { return m_bytesRead; }

private:
    bool Holds(uint32_t offset, uint32_t size) const { return offset >= m_from && offset + size <= m_to; }
    /// How much of the area's first @p offset bytes can be in memory: not what lies after the source's end.
    uint32_t There(uint32_t offset) const { return std::min(offset, m_there); }
    bool Readable(uint32_t offset, uint32_t size) const;
    void Load(uint32_t offset, uint32_t size);
    uint32_t WindowEnd(uint32_t offset, uint32_t size) const;
    void MoveWindow(uint32_t offset, uint32_t size);
    void Fill(uint32_t from, uint32_t to);
    uint32_t FillPage(uint32_t from, uint32_t to);
    uint32_t Read(uint32_t from, uint32_t to);
    uint32_t NextBoundary(uint32_t offset, uint32_t unit) const;
    void NoteUnreadable(uint32_t from, uint32_t to);

    const Disk& m_disk;
    FrameBuffer& m_buffer;
    std::function<void()> m_breathe;
    uint64_t m_start; ///< device offset of the area
    uint32_t m_size;
    uint32_t m_there; ///< bytes of it before the source's end
    bool m_kept;
    bool m_heads; ///< payloads are skipped
    uint8_t* m_data = nullptr;
    uint32_t m_from = 0; ///< what the buffer holds
    uint32_t m_to = 0;
    uint32_t m_piece; ///< bytes that are read at once
    std::map<uint32_t, uint32_t> m_unreadable;
    uint64_t m_bytesRead = 0;
};

} // namespace recordings

#endif // RECORDINGS_FRAME_AREA_H
