// CReadBlock: the index tables, loaded from the index area or rebuilt from the frames.

#include <cstdint>

#include "format/frames.h"
#include "format/index_loader.h"
#include "format/times.h"
#include "playback/read_block_state.h"
#include "read_block.h"

using namespace disk_access;

namespace {

/// Whether the recorder finished the block: its tail or its extended tail has the head's number.
bool Complete(const BlkReadState_st& state) {
    return state.blockHead.RecSeq == state.blockTail.RecSeq ||
           state.blockHead.RecSeq == state.blockTailEx.RecSeq;
}

} // namespace

int CReadBlock::GetBlockIndex(int rebuild) {
    if (m_pState == nullptr || m_pState->blockHead.ValidFlag != BLOCK_MAGIC ||
        m_pState->blockHead.RecSeq == 0) {
        return -1;
    }
    if (Complete(*m_pState)) {
        return ReadBlockIndex();
    }
    if (rebuild == kRebuild) {
        RebuiltBlockIndex();
    }
    return 0;
}

int CReadBlock::ReadBlockIndex() {
    if (m_pState == nullptr) {
        return -1;
    }
    IndexTables& index = m_pState->index;
    BlkIndexHead_t head = {};
    if (ReadInBlock(m_pState->blkOp, m_pState->geometry.IndexAreaStart(), &head, sizeof head) != 0) {
        index.ReleaseTables();
        return -1;
    }
    index.counts = head;
    const auto readBlock = [this](uint64_t offset, void* buf, uint32_t len) {
        return ReadInBlock(m_pState->blkOp, offset, buf, len) == 0;
    };
    const uint32_t present = m_pState->blockHead.media_chn_bitmap;
    IndexLoader loader(readBlock, m_pState->geometry);
    Load load =
        loader.ChannelTables(present, head.iframeCount, true, index.iframeTab, index.counts.iframeCount);
    if (load == Load::Done) {
        load =
            loader.ChannelTables(present, head.recSegCount, true, index.recSegTab, index.counts.recSegCount);
    }
    if (load == Load::Done && head.eventCount != 0) {
        load = loader.Table(index.eventTab, head.eventCount);
    }
    if (load != Load::Done) {
        index.ReleaseTables();
        return -1;
    }
    return 0;
}

int CReadBlock::RebuiltBlockIndex() {
    if (m_pState == nullptr) {
        return -1;
    }
    // The tail was never written for this recording. Its end time now becomes the time of the newest frame.
    m_pState->blockTail = {};
    uint64_t pos = 0;
    for (;;) {
        const uint64_t position = m_pState->geometry.headAreaSize + pos;
        FrameHead_t head = {};
        // If frames fill the block, nothing else ends the walk: it stops at the end of the window.
        if (ReadInBlock(m_pState->blkOp, position, &head, sizeof head) != 0) {
            return -1;
        }
        if (head.sync != BLOCK_MAGIC || head.chn >= kChannels || IsStale(head, m_pState->blockHead.RecTime) ||
            IsStale(head, m_pState->blockTail.EndTime)) {
            return 0;
        }
        FrameInfo_t info = InfoOf(head);
        EventHead_t event = {};
        if (info.type == kEventFrame && block_read(m_pState->blkOp, &event, sizeof event) != 0) {
            return -1;
        }
        RefreshBlockIndex(&info, static_cast<uint32_t>(pos), &event);
        pos += FrameSpan(head);
    }
}

int CReadBlock::RefreshBlockIndex(FrameInfo_t* frame, unsigned int offs, EventHead_t* eventHead) {
    if (m_pState == nullptr || frame == nullptr) {
        return -1;
    }
    m_pState->index.AddFrame(*frame, offs, eventHead);
    if (IsMedia(frame->type) && frame->chn < kChannels) {
        m_pState->blockTail.EndTime = static_cast<uint32_t>(SecondsOf(static_cast<int64_t>(frame->pts)));
    }
    return 0;
}
