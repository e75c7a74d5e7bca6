#ifndef RECORDINGS_BLOCK_READER_H
#define RECORDINGS_BLOCK_READER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>

#include "found_frames.h"
#include "frame_area.h"
#include "recordings/block_frames.h"

namespace recordings {

/// What is lost before a frame, or before the end.
struct Lost {
    bool any = false;
    ChannelSet media; ///< channels whose media may be
};

/// Finds all frames of a block, judges them, and then delivers them one after the other.
class BlockReader {
public:
    /// Reads what it takes to judge the block: all of it, unless heads alone are wanted.
    /// @param disk, buffer must outlive the reader
    /// @param breathe called before each read; it may throw
    BlockReader(const Disk& disk, const Block& block, Want want, FrameBuffer& buffer,
                std::function<void()> breathe = {});

    /// What is wrong with the block, in the order of offsets. Payloads of blocks that are too large to be kept are read
    /// as they are delivered: then problems are added.
    const std::vector<Problem>& Problems() const { return m_found.problems; }

    /// @return false at the end
    bool Next(Frame& frame, Lost& lost);

    /// Bytes of the frame area that are done with.
    uint32_t Done() const { return m_done; }
    uint64_t BytesRead() const { return m_area.BytesRead(); }

private:
    void ReportUnreadable(const FoundFrame& found);

    Want m_want;
    uint32_t m_block;
    FrameArea m_area;
    FoundFrames m_found;
    std::map<uint32_t, uint32_t> m_reported; ///< unreadable stretches that problems name
    size_t m_next = 0;
    uint32_t m_done = 0;
};

} // namespace recordings

#endif // RECORDINGS_BLOCK_READER_H
