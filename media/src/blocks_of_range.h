#ifndef MEDIA_SRC_BLOCKS_OF_RANGE_H
#define MEDIA_SRC_BLOCKS_OF_RANGE_H

#include <cstdint>
#include <set>

#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/problem.h"
#include "recordings/query.h"

namespace media {

/// What an extract copies: the blocks of the range's frames and events, those with the key frames that it begins with, and those
/// in which something of it may lie that cannot be read, or is locked.
std::set<uint32_t> BlocksOfRange(const recordings::Disk& disk, const recordings::BlockList& blocks,
                                 recordings::TimeRange range, recordings::ChannelSet channels,
                                 const recordings::ProblemSink& problems, const recordings::Watch& watch);

} // namespace media

#endif // MEDIA_SRC_BLOCKS_OF_RANGE_H
