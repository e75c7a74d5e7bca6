#ifndef RECORDINGS_JOURNEYS_H
#define RECORDINGS_JOURNEYS_H

/// @file journeys.h
/// Recordings joined into journeys: over blocks and channels, from one silence to the next.

#include <cstdint>
#include <vector>

#include "recordings/blocks.h"
#include "recordings/export.h"

namespace recordings {

/// A time in which something was recorded, without a long silence in it.
struct Journey {
    uint32_t number = 0; ///< among all journeys of the disk, from 1 on, whichever channels are asked for
    uint32_t start = 0;  ///< seconds: the first recorded one of any channel
    uint32_t end = 0;    ///< and the last, also of a block that was never closed
    ChannelSet channels; ///< those of the query with a recording in it; records and bytes are theirs
    uint64_t records = 0;
    uint64_t bytes = 0;
    uint64_t alarms = 0; ///< events
    uint64_t losses =
        0; ///< problems of that severity that are known without reading the frames of closed blocks
};

/// What counts as one journey.
struct JourneyQuery {
    ChannelSet channels = ChannelSet::All(); ///< a journey without any of them is left out
    uint32_t silence =
        300; ///< seconds without a recording of any channel that part two journeys, when there are more
};

/// The journeys of a disk, rising. Channels that the lock hides count as not recorded. A recording whose clock was set back
/// belongs where its times say.
/// @throws Error (Cancelled)
RECORDINGS_API std::vector<Journey> FindJourneys(const Disk& disk, const BlockList& blocks,
                                                 const JourneyQuery& query, const ProblemSink& problems,
                                                 const Watch& watch = {});

/// The last second that is recorded in a block: of one that was never closed, by its frames.
RECORDINGS_API uint32_t LastSecondOf(const Disk& disk, const Block& block, const ProblemSink& problems);

} // namespace recordings

#endif // RECORDINGS_JOURNEYS_H
