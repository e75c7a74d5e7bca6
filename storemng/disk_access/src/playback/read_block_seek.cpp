// CReadBlock: seeking by time and by position, which also sets the window for reads.

#include <cstdint>

#include "format/frames.h"
#include "format/ids.h"
#include "format/times.h"
#include "io/host.h"
#include "playback/read_block_state.h"
#include "read_block.h"

using namespace disk_access;

namespace {

constexpr uint32_t kEndOfTime = 0xFFFFFFFF;

/// The start of a window that has no segment to start with.
constexpr uint32_t kNowhere = 0xFFFFFFFF;

/// Selects what is played.
void Choose(ReadCursor_st& cursor, int allChn, const RecordItem_t& record) {
    cursor.allChn = static_cast<uint32_t>(allChn);
    cursor.recId = record.recId;
    cursor.iframePosValid = 0;
}

void SetWindow(ReadCursor_st& cursor, uint32_t start, uint32_t end, uint32_t offs) {
    cursor.winStart = start;
    cursor.winEnd = end;
    cursor.winOffs = offs;
}

/// A failed seek opens the window to all times, so that a player still gets frames from the old position.
int FailSeek(ReadCursor_st& cursor) {
    SetWindow(cursor, 0, kEndOfTime, 0);
    return -1;
}

/// Whether a channel has the segment that a record names.
bool HasSegment(const IndexTables& index, uint32_t chn, const RecordItem_t& record) {
    return chn < kChannels && SegmentOfId(record.recId) < index.Segments(chn);
}

/// Clips an end of the window to the record's, if that is inside the segment.
void Clip(uint32_t& end, const RecSegItem_t& segment, uint32_t recordEnd) {
    if (segment.s < recordEnd && recordEnd < segment.e) {
        end = recordEnd;
    }
}

/// A position seek uses the record's end, but not its start: bytes are counted from the segment's start.
void SetWindowToSegment(ReadCursor_st& cursor, const RecSegItem_t& segment, const RecordItem_t& record) {
    SetWindow(cursor, segment.s, segment.e, segment.spos);
    Clip(cursor.winEnd, segment, record.endTime);
}

/// Sets the window of a reader of all channels. Of the channels' segments with the record's segment number,
/// takes the one that begins first in the block and has a start time and a length. If no segment has both,
/// the window begins at kNowhere.
/// @return false if no channel has a segment with that number
bool SetWindowToFirstSegment(ReadCursor_st& cursor, const IndexTables& index, const RecordItem_t& record) {
    bool found = false;
    cursor.winOffs = kNowhere;
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        if (!HasSegment(index, chn, record)) {
            continue;
        }
        found = true;
        const RecSegItem_t segment = index.recSegTab[chn].At(SegmentOfId(record.recId));
        if (segment.s != 0 && segment.s != segment.e && segment.spos < cursor.winOffs) {
            SetWindowToSegment(cursor, segment, record);
        }
    }
    return found;
}

/// @return false if the record's segment does not exist
bool SetWindowToRecord(ReadCursor_st& cursor, const IndexTables& index, const RecordItem_t& record) {
    if (record.flag == kOwnWindowRecord) {
        SetWindow(cursor, record.startTime, record.endTime, record.size);
        return true;
    }
    if (record.flag != kIndexedRecord) {
        SetWindow(cursor, 0, kEndOfTime, 0);
        return true;
    }
    if (cursor.allChn != 0) {
        return SetWindowToFirstSegment(cursor, index, record);
    }
    const uint32_t chn = ChannelOfId(record.recId);
    if (!HasSegment(index, chn, record)) {
        return false;
    }
    SetWindowToSegment(cursor, index.recSegTab[chn].At(SegmentOfId(record.recId)), record);
    return true;
}

/// Window position at which a seek begins to look for frames. It is computed in 64 bits: so offsets from a
/// forged index are beyond the block. If a window of all channels begins at kNowhere, the seek begins one
/// byte before the frame area: that is the result of the recorder's 32-bit sum.
uint64_t FirstPosition(const BlkReadState_st& state, const RecordItem_t& record) {
    const ReadCursor_st& cursor = *state.pCursor;
    const bool nowhere = cursor.allChn != 0 && record.flag == kIndexedRecord && cursor.winOffs == kNowhere;
    return nowhere ? state.geometry.headAreaSize - 1 : uint64_t{state.geometry.headAreaSize} + cursor.winOffs;
}

/// The channel whose I-frames a time seek uses, or kChannels.
uint32_t SeekChannel(const IndexTables& index, bool allChn, const RecordItem_t& record) {
    if (!allChn) {
        const uint32_t chn = ChannelOfId(record.recId);
        return HasSegment(index, chn, record) ? chn : kChannels;
    }
    uint32_t chn = 0;
    while (chn < kChannels && !HasSegment(index, chn, record)) {
        ++chn;
    }
    return chn;
}

/// The segment's first I-frame at or after @p time, or else its last.
/// @return its entry in the channel's table, or kNoIFrame if the segment has none
uint32_t FindIFrame(const IndexTables& index, uint32_t chn, const RecSegItem_t& segment, int32_t time) {
    uint32_t last = kNoIFrame;
    for (uint32_t i = 0; i < index.IFrames(chn); ++i) {
        const int32_t at = SecondsOf(index.iframeTab[chn].At(i).pts);
        if (segment.s <= static_cast<uint32_t>(at) && static_cast<uint32_t>(at) <= segment.e) {
            last = i;
            if (time <= at) {
                break;
            }
        }
    }
    return last;
}

} // namespace

#define REPORT_SEEK_FAILURE(operation) Message("%s, %d : fail\n", (operation), __LINE__)

int CReadBlock::SeekTime(int allChn, RecordItem_t* record, long time) {
    if (m_pState == nullptr || record == nullptr) {
        return -1;
    }
    const IndexTables& index = m_pState->index;
    ReadCursor_st& cursor = *m_pState->pCursor;
    Choose(cursor, allChn, *record);
    const uint32_t chn = SeekChannel(index, allChn != 0, *record);
    if (chn == kChannels) {
        if (allChn != 0) {
            REPORT_SEEK_FAILURE("SeekTime");
        } else {
            Message("%s, %d : chn = %d , fail\n", "SeekTime", __LINE__,
                    static_cast<int>(ChannelOfId(record->recId)));
        }
        return FailSeek(cursor);
    }

    const RecSegItem_t segment = index.recSegTab[chn].At(SegmentOfId(record->recId));
    SetWindowToSegment(cursor, segment, *record);
    Clip(cursor.winStart, segment, record->startTime);

    const int32_t seconds = Seconds32(time);
    const uint32_t target = FindIFrame(index, chn, segment, seconds);
    if (target == kNoIFrame) {
        return FailSeek(cursor);
    }
    const IFrameItem_t iframe = index.iframeTab[chn].At(target);
    cursor.readOffs = iframe.pos;
    Message("%s : Offset %d (seek:%d)(%d, %d, %d)(%lld, %d)\n", "SeekTime", static_cast<int>(iframe.pos),
            seconds, static_cast<int>(segment.s), static_cast<int>(segment.e), static_cast<int>(segment.spos),
            static_cast<long long>(iframe.pts), static_cast<int>(iframe.pos));
    return 0;
}

int CReadBlock::SeekOffs(int allChn, RecordItem_t* record, unsigned int pos, int keyFrames) {
    if (m_pState == nullptr || record == nullptr) {
        return -1;
    }
    ReadCursor_st& cursor = *m_pState->pCursor;
    Choose(cursor, allChn, *record);
    if (!SetWindowToRecord(cursor, m_pState->index, *record)) {
        REPORT_SEEK_FAILURE("SeekOffs");
        return FailSeek(cursor);
    }
    const uint64_t start = FirstPosition(*m_pState, *record);
    if (!SeekInBlock(m_pState->blkOp, start)) {
        REPORT_SEEK_FAILURE("SeekOffs");
        return FailSeek(cursor);
    }
    uint64_t payloads = 0;
    for (uint64_t position = start;;) {
        FrameHead_t head = {};
        if (block_read(m_pState->blkOp, &head, sizeof head) != 0 || head.sync != BLOCK_MAGIC) {
            REPORT_SEEK_FAILURE("SeekOffs");
            return FailSeek(cursor);
        }
        const uint64_t next = position + FrameSpan(head);
        if (!SeekInBlock(m_pState->blkOp, next)) {
            REPORT_SEEK_FAILURE("SeekOffs");
            return FailSeek(cursor);
        }
        if (CheckValidChn(&head) == 0) {
            const auto time = static_cast<uint32_t>(SecondsOf(head.pts));
            if (IsMedia(head.type) && (time < cursor.winStart || time > cursor.winEnd)) {
                return FailSeek(cursor);
            }
            payloads += head.len;
            if (payloads > pos && (keyFrames == 0 || (keyFrames == 1 && head.type == kIFrame))) {
                cursor.readOffs = static_cast<uint32_t>(position) - m_pState->geometry.headAreaSize;
                return 0;
            }
        }
        position = next;
    }
}
