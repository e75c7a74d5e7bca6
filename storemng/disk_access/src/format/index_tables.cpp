#include "format/index_tables.h"

#include <cstdlib>

#include "format/frames.h"
#include "format/times.h"

namespace disk_access {

namespace {

/// Appends an entry after those in memory, and counts it.
template <typename Entry>
void Append(IndexTable<Entry>& table, uint32_t& count, const Entry& entry) {
    const uint32_t held = table.Held(count);
    if (table.Resize(held + 1)) {
        table.Put(held, entry);
        count = held + 1;
    }
}

} // namespace

void IndexTables::ReleaseTables() {
    for (IndexTable<IFrameItem_t>& table : iframeTab) {
        table.Release();
    }
    for (IndexTable<RecSegItem_t>& table : recSegTab) {
        table.Release();
    }
    eventTab.Release();
}

void IndexTables::AddFrame(const FrameInfo_t& frame, uint32_t pos, const EventHead_t* eventHead) {
    if (frame.chn >= kChannels) {
        return;
    }
    const auto pts = static_cast<int64_t>(frame.pts);
    if (frame.type == kIFrame) {
        Append(iframeTab[frame.chn], counts.iframeCount[frame.chn], IFrameItem_t{pts, pos, 0});
    }
    if (frame.type == kEventFrame && eventHead != nullptr && eventHead->Indexed == 1) {
        Append(eventTab, counts.eventCount, EventIndexItem_t{eventHead->type, pts, pos, 0});
    }
    if (IsMedia(frame.type)) {
        AddToSegments(frame, pos);
    }
}

void IndexTables::AddToSegments(const FrameInfo_t& frame, uint32_t pos) {
    IndexTable<RecSegItem_t>& segments = recSegTab[frame.chn];
    const auto time = static_cast<uint32_t>(SecondsOf(static_cast<int64_t>(frame.pts)));
    const uint32_t bytes = frame.len + kHeadBytesInSegment;
    const uint32_t held = Segments(frame.chn);
    if (held != 0) {
        RecSegItem_t last = segments.At(held - 1);
        if (std::abs(int64_t{Signed(time - last.e)}) < kMergeGap) {
            last.e = time;
            last.epos = pos + bytes;
            last.totalsize += bytes;
            segments.Put(held - 1, last);
            return;
        }
    }
    if (held == 0) {
        segments.Release(); // entries of an earlier block must not appear if there is no memory
    }
    Append(segments, counts.recSegCount[frame.chn], RecSegItem_t{time, time, pos, pos + bytes, bytes});
}

} // namespace disk_access
