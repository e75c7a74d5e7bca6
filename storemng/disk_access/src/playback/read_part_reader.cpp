// CReadPart: readers. Opening one at a record's start, seeking, reading, and continuing in the next block.

#include <cstdint>
#include <cstdlib>
#include <new>

#include "format/channels.h"
#include "format/frames.h"
#include "format/ids.h"
#include "format/times.h"
#include "io/host.h"
#include "playback/read_part_state.h"
#include "playback/usable_blocks.h"
#include "read_part.h"

using namespace disk_access;

namespace {

constexpr int kAnyFrame = 0;
constexpr int kKeyFrame = 1;

/// The test mode for the block of a continuation: its closing state is not 1, or its number is not below the
/// current block's.
constexpr unsigned int kContinuationMode = 1;

/// A reader of one channel starts at an I-frame, because a decoder must start there; a reader of all channels
/// starts at the first frame.
int StartAtBeginning(PartReadHandle_st& reader) {
    const int what = reader.ChnType == kAllChannelReader ? kAnyFrame : kKeyFrame;
    return reader.pBlockObj->SeekOffs(reader.ChnType, &reader.RecItem, 0, what);
}

/// Start of the segment from which a record was made; 0 if it is not found.
uint32_t SegmentStart(ReadPartState_st& part, RecordItem_t& record) {
    BriefBlock block(part, BlockOfId(record.recId), kNoRebuild);
    if (!block.Opened()) {
        return record.startTime;
    }
    RecSegItem_t segment = {};
    block->GetRecSegInfo(&record, &segment); // without a segment, its substitute is used
    return segment.s;
}

void StartIndexed(ReadPartState_st& part, PartReadHandle_st& reader) {
    RecordItem_t& record = reader.RecItem;
    if (SegmentStart(part, record) != record.startTime) {
        reader.pBlockObj->SeekTime(reader.ChnType, &record, Signed(record.startTime));
    } else {
        StartAtBeginning(reader);
    }
}

void StartOwnWindow(PartReadHandle_st& reader) {
    RecordItem_t& record = reader.RecItem;
    const int result = reader.pBlockObj->SeekOffs(reader.ChnType, &record, 0, kKeyFrame);
    if (result != 0) {
        Message("\n----------->%s BlockNum = %d, ChnType=%d, (%d, %d, %d, %d) "
                "pReader->pBlockObj->SeekOffs:%d\n",
                "BeginReader", static_cast<int>(reader.BlockNum), reader.ChnType,
                static_cast<int>(record.startTime), static_cast<int>(record.endTime),
                static_cast<int>(record.flag), static_cast<int>(record.size), result);
    }
}

void MoveToStart(ReadPartState_st& part, PartReadHandle_st& reader) {
    switch (reader.RecItem.flag) {
    case kIndexedRecord:
        StartIndexed(part, reader);
        break;
    case kWholeBlockRecord:
        StartAtBeginning(reader);
        break;
    case kOwnWindowRecord:
        StartOwnWindow(reader);
        break;
    default:
        break; // the window stays empty
    }
}

/// Whether the reader has left the record's own block.
bool HasCrossed(const PartReadHandle_st& reader) {
    return reader.BlockNum != BlockOfId(reader.RecItem.recId);
}

uint32_t SequenceOf(CReadBlock& block) {
    BlockHead_t head = {};
    block.GetBlockInfo(&head, nullptr);
    return head.RecSeq;
}

/// Moves a reader to the block that continues its recording: the next usable block of the ring, if it has the
/// next number.
/// @return false if the recording ends here; the reader may then be in a block of another recording
bool CrossInto(CReadPart& partReader, ReadPartState_st& part, PartReadHandle_st& reader) {
    const Ring ring = MeasureRing(part);
    if (ring.count == 0) {
        return false;
    }
    const uint32_t sequence = SequenceOf(*reader.pBlockObj);
    unsigned int next = 0;
    if (partReader.GetNextValidBlock(kContinuationMode, sequence, ring.Next(reader.BlockNum),
                                     ring.Prev(reader.BlockNum), &next) != 0) {
        return false;
    }
    reader.pBlockObj->CloseBlock();
    reader.BlockNum = next;
    if (part.OpenBlock(*reader.pBlockObj, next, kNoRebuild) != 0 ||
        SequenceOf(*reader.pBlockObj) != sequence + 1) {
        return false;
    }
    Message("%s BlockNum = %d \n", "ReadFrame", static_cast<int>(next));
    reader.pBlockObj->SeekOffs(reader.ChnType, &reader.RecItem, 0, kAnyFrame);
    return true;
}

/// Reads in a continuation block, up to its first I-frame: the block's own record segments begin there.
int ReadContinuation(CReadBlock& block, FrameInfo_t* info, void** payload) {
    FrameHead_t head = {};
    if (block.ReadFrame(&head, payload) != 0) {
        return -1;
    }
    if (head.type == kIFrame) {
        return kReadEnds;
    }
    *info = InfoOf(head);
    return 0;
}

} // namespace

PartReadHandle_st* CReadPart::BeginReader(int ChnType, RecordItem_t* record) {
    if (m_pState == nullptr || record == nullptr) {
        return nullptr;
    }
    auto* const reader = static_cast<PartReadHandle_st*>(std::calloc(1, sizeof(PartReadHandle_st)));
    if (reader == nullptr) {
        return nullptr;
    }
    reader->ChnType = ChnType;
    reader->RecItem = *record;
    reader->BlockNum = BlockOfId(record->recId);
    reader->pBlockObj = new (std::nothrow) CReadBlock;
    if (reader->pBlockObj == nullptr) {
        std::free(reader);
        return nullptr;
    }
    m_pState->OpenBlock(*reader->pBlockObj, reader->BlockNum, kNoRebuild); // if this fails, its reads fail
    Message("%s BlockNum = %d, ChnType=%d, (%d, %d, %d, %d) \n", "BeginReader",
            static_cast<int>(reader->BlockNum), ChnType, static_cast<int>(record->startTime),
            static_cast<int>(record->endTime), static_cast<int>(record->flag),
            static_cast<int>(record->size));
    MoveToStart(*m_pState, *reader);
    return reader;
}

int CReadPart::EndReader(PartReadHandle_st* reader) {
    if (reader == nullptr) {
        return -1;
    }
    reader->pBlockObj->CloseBlock();
    delete reader->pBlockObj;
    std::free(reader);
    return 0;
}

// NOLINTNEXTLINE(readability-non-const-parameter): callers may pass a plain pointer
int CReadPart::SeekTime(PartReadHandle_st* reader, long* time) {
    if (reader == nullptr || time == nullptr) {
        return -1;
    }
    return reader->pBlockObj->SeekTime(reader->ChnType, &reader->RecItem, *time);
}

// NOLINTNEXTLINE(readability-non-const-parameter)
int CReadPart::SeekPos(PartReadHandle_st* reader, unsigned int* pos) {
    if (reader == nullptr || pos == nullptr) {
        return -1;
    }
    reader->pBlockObj->SeekOffs(reader->ChnType, &reader->RecItem, *pos, kKeyFrame);
    return 0;
}

int CReadPart::ReadFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload) {
    if (m_pState == nullptr || reader == nullptr || info == nullptr) {
        return -1;
    }
    if (!HasCrossed(*reader)) {
        FrameHead_t head = {};
        const int result = reader->pBlockObj->ReadFrame(&head, payload);
        if (result == 0) {
            *info = InfoOf(head);
        }
        if (result != kNoMoreFrames) {
            return result;
        }
        if (reader->ChnType != 0 || !CrossInto(*this, *m_pState, *reader)) {
            return kReadEnds;
        }
    }
    return ReadContinuation(*reader->pBlockObj, info, payload);
}

int CReadPart::ReadNextIFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload) {
    if (m_pState == nullptr || reader == nullptr || info == nullptr) {
        return -1;
    }
    if (HasCrossed(*reader)) {
        return kReadEnds;
    }
    FrameHead_t head = {};
    const int result = reader->pBlockObj->ReadNextIFrame(&head, payload);
    if (result == 0) {
        *info = InfoOf(head);
    }
    return result;
}

int CReadPart::ReadPrevIFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload) {
    if (m_pState == nullptr || reader == nullptr || info == nullptr) {
        return -1;
    }
    if (HasCrossed(*reader)) {
        return kReadEnds;
    }
    FrameHead_t head = {};
    const int result = reader->pBlockObj->ReadPrevIFrame(&head, payload);
    if (result == 0) {
        *info = InfoOf(head);
    }
    return result;
}

int CReadPart::ReadUnitFrame(PartReadHandle_st* reader, FrameInfo_t* info, void** payload) {
    if (m_pState == nullptr || reader == nullptr || info == nullptr) {
        return -1;
    }
    FrameHead_t head = {};
    const int result = reader->pBlockObj->ReadBlockFrame(&head, payload);
    if (result == 0) {
        *info = InfoOf(head);
    }
    return result == kNoMoreFrames ? kReadEnds : result;
}
