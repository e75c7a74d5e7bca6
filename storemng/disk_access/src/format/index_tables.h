#ifndef DISK_ACCESS_FORMAT_INDEX_TABLES_H
#define DISK_ACCESS_FORMAT_INDEX_TABLES_H

#include <cstdint>

#include "disk_format.h"
#include "format/channels.h"
#include "format/index_table.h"
#include "play_records.h"

namespace disk_access {

/// Whether playback has the index of a block that was never closed made from its frames. Other numbers than 1 mean no.
constexpr int kNoRebuild = 0;
constexpr int kRebuild = 1;

/// The index of a block in memory: the counts that its index head states, and the tables. The two are kept
/// apart: a table may be missing behind its count, or hold fewer entries than that says.
struct IndexTables {
    BlkIndexHead_t counts = {};
    IndexTable<IFrameItem_t> iframeTab[kChannels];
    IndexTable<RecSegItem_t> recSegTab[kChannels];
    IndexTable<EventIndexItem_t> eventTab;

    /// Entries that may be looked at.
    uint32_t IFrames(uint32_t chn) const { return iframeTab[chn].Held(counts.iframeCount[chn]); }
    uint32_t Segments(uint32_t chn) const { return recSegTab[chn].Held(counts.recSegCount[chn]); }
    uint32_t Events() const { return eventTab.Held(counts.eventCount); }

    /// Frees every table; the counts stay.
    void ReleaseTables();

    /// Folds one frame of a block that was never closed into the index: an I-frame, or an event that is meant
    /// for the index, becomes an entry of its table, and a media frame extends its channel's last record
    /// segment or begins a new one. What memory is short for is left out. A channel above 31 has no tables.
    /// @param pos       the frame's offset in the frame area
    /// @param eventHead of an event frame: the start of its payload
    void AddFrame(const FrameInfo_t& frame, uint32_t pos, const EventHead_t* eventHead);

private:
    void AddToSegments(const FrameInfo_t& frame, uint32_t pos);
};

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_INDEX_TABLES_H
