#ifndef DISK_ACCESS_FORMAT_INDEX_TABLES_H
#define DISK_ACCESS_FORMAT_INDEX_TABLES_H

#include <cstdint>

#include "disk_format.h"
#include "format/channels.h"
#include "format/index_table.h"
#include "play_records.h"

namespace disk_access {

/// Whether playback rebuilds the index of a block that was never closed from its frames: only with 1.
constexpr int kNoRebuild = 0;
constexpr int kRebuild = 1;

/// A time difference of this many seconds ends a record segment: a pause, or a clock that was set back.
constexpr int64_t kMergeGap = 16;

/// The bytes that a frame's head adds to its segment. The recorder counts 20 bytes for a head that takes 24
/// on the disk, and a rebuilt index must be the one that the recorder would have written.
constexpr uint32_t kHeadBytesInSegment = 20;

/// The index of a block in memory: the counts from its index head, and the tables. A table may be missing, or
/// have fewer entries than its count says.
struct IndexTables {
    BlkIndexHead_t counts = {};
    IndexTable<IFrameItem_t> iframeTab[kChannels];
    IndexTable<RecSegItem_t> recSegTab[kChannels];
    IndexTable<EventIndexItem_t> eventTab;

    /// Numbers of entries that may be read.
    uint32_t IFrames(uint32_t chn) const { return iframeTab[chn].Held(counts.iframeCount[chn]); }
    uint32_t Segments(uint32_t chn) const { return recSegTab[chn].Held(counts.recSegCount[chn]); }
    uint32_t Events() const { return eventTab.Held(counts.eventCount); }

    /// Frees every table; the counts stay.
    void ReleaseTables();

    /// Adds one frame of a block that was never closed to the index. An I-frame, or an event that is marked
    /// for the index, becomes an entry of its table. A media frame extends its channel's last record segment
    /// or begins a new one. An entry for which there is no memory is left out. A channel above 31 has no
    /// tables.
    /// @param pos       the frame's offset in the frame area
    /// @param eventHead for an event frame: the start of its payload
    void AddFrame(const FrameInfo_t& frame, uint32_t pos, const EventHead_t* eventHead);

private:
    void AddToSegments(const FrameInfo_t& frame, uint32_t pos);
};

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_INDEX_TABLES_H
