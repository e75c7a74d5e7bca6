#ifndef RECORDINGS_RANGE_START_H
#define RECORDINGS_RANGE_START_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "frame_area.h"
#include "recordings/blocks.h"
#include "recordings/range_frames.h"

namespace recordings {

/// Blocks that follow one another in recording order without a gap: entries of the list, both included.
struct BlockRun {
    size_t first = 0;
    size_t last = 0;
};

/// Where a channel begins before the range.
struct StartPlace {
    size_t entry = 0; ///< of the list of blocks
    uint32_t offset = 0;
    int64_t time = 0;
};

/// Where the channels of a run of blocks begin, so that the range can be decoded from its first second on.
struct RangeStart {
    std::array<std::optional<StartPlace>, kChannels> places; ///< none: with the first frame in the range
    ChannelSet lost;  ///< channels whose key frame before the range is lost, or may be
    size_t first = 0; ///< entry of the first block that is needed
    uint64_t bytesRead = 0;
};

/// Looks for each channel's last key frame before the range: in the first blocks of the run, and, if need be, in those
/// that were recorded before it.
/// @param breathe called before each read; it may throw
RangeStart FindRangeStart(const Disk& disk, const BlockList& blocks, const BlockRun& run,
                          const FrameQuery& query, FrameBuffer& buffer, const std::function<void()>& breathe);

} // namespace recordings

#endif // RECORDINGS_RANGE_START_H
