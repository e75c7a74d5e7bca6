#ifndef RECORDINGS_RECORDS_H
#define RECORDINGS_RECORDS_H

/// @file records.h
/// Recordings and events of a time range, wherever on the disk they lie.

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "recordings/blocks.h"
#include "recordings/export.h"

namespace recordings {

/// One continuous stretch of one channel inside one block.
struct Record {
    uint32_t block = 0;
    uint32_t channel = 0;
    uint32_t segment = 0; ///< number of the channel's segment in the block, from 0 on
    uint32_t start = 0;   ///< seconds, both ends included
    uint32_t end = 0;
    uint64_t bytes = 0; ///< of the whole record; cut to a range, its share by time
    bool closed = true; ///< else made from the frames of a block that has no index
    BlockMark mark = BlockMark::None;
};

/// An event.
struct Event {
    uint32_t block = 0;
    uint32_t entry = 0;              ///< number of the event in its block, from 0 on
    uint32_t time = 0;               ///< seconds
    int64_t micros = 0;              ///< the same, microseconds
    uint64_t type = 0;               ///< type bits
    std::optional<uint32_t> offset;  ///< of its frame in the frame area, where an index tells it
    std::optional<uint32_t> channel; ///< of its frame, where that was read
    bool indexed = true;             ///< else taken from the frames of a block that has no index
};

/// What is asked for.
struct RecordQuery {
    TimeRange range;
    ChannelSet channels = ChannelSet::All();
};

/// Hands each record that has a second in common with the range to @p take, block by block in recording order, uncut;
/// within a block segment 0 of every channel, then segment 1 of every channel, and so on. Memory does not grow with the
/// number of records. Records of a block that has no index, or whose index is damaged, are made from its frames.
/// @throws Error (Cancelled)
RECORDINGS_API void ForEachRecord(const Disk& disk, const BlockList& blocks, const RecordQuery& query,
                                  const ProblemSink& problems, const Watch& watch,
                                  const std::function<void(const Record&)>& take);

/// Takes what a disk holds, as it is found.
struct RecordsAndEvents {
    std::function<void(const Record&)> record;
    std::function<void(const Event&)> event;
};

/// Hands over the records of the range and all its events, block by block: the same as ForEachRecord and FindEvents do, with
/// each index read once.
/// @throws Error (Cancelled)
RECORDINGS_API void ForEachRecordAndEvent(const Disk& disk, const BlockList& blocks, const RecordQuery& query,
                                          const ProblemSink& problems, const Watch& watch,
                                          const RecordsAndEvents& take);

/// The records of one block, in the same order.
RECORDINGS_API std::vector<Record> RecordsOf(const Disk& disk, const Block& block,
                                             const ProblemSink& problems);

/// What one block holds: its records in the same order, and its events.
struct BlockContents {
    std::vector<Record> records;
    std::vector<Event> events;
};
RECORDINGS_API BlockContents ReadContents(const Disk& disk, const Block& block, const ProblemSink& problems);

/// The events of the range whose type meets the mask, block by block in recording order, both end seconds included.
/// @throws Error (Cancelled)
RECORDINGS_API std::vector<Event> FindEvents(const Disk& disk, const BlockList& blocks,
                                             const TimeRange& range, EventMask mask,
                                             const ProblemSink& problems, const Watch& watch = {});

/// The channel of an event: that of its frame, which is read if need be.
/// @return nothing when the frame is not where the index says, or its channel is locked
RECORDINGS_API std::optional<uint32_t> ChannelOf(const Disk& disk, const Event& event);

} // namespace recordings

#endif // RECORDINGS_RECORDS_H
