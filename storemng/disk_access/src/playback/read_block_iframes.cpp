// CReadBlock: stepping from I-frame to I-frame.

#include <cstdint>
#include <cstdlib>

#include "format/frames.h"
#include "format/ids.h"
#include "playback/read_block_state.h"
#include "read_block.h"

using namespace disk_access;

namespace {

/// Forward steps of all channels look for the earliest I-frame before this time stamp, the largest signed
/// number of 40 bits. Time stamps that count from the recorder's start stay below it for six days. Those that
/// count from 1970 are far above, and with them such a step finds nothing.
constexpr int64_t kNoLaterThan = 0x7FFFFFFFFF;

/// The first entry of a channel's I-frame table later than @p pts, or kNoIFrame.
uint32_t FirstLater(const IndexTables& index, uint32_t chn, int64_t pts) {
    for (uint32_t i = 0; i < index.IFrames(chn); ++i) {
        if (pts < index.iframeTab[chn].At(i).pts) {
            return i;
        }
    }
    return kNoIFrame;
}

/// Whether the step position of a channel is an entry of its table.
bool OnIFrame(const BlkReadState_st& state, uint32_t chn) {
    return chn < kChannels && state.pCursor->iframePos[chn] < state.index.IFrames(chn);
}

IFrameItem_t IFrameAtStep(const BlkReadState_st& state, uint32_t chn) {
    return state.index.iframeTab[chn].At(state.pCursor->iframePos[chn]);
}

/// The channel whose I-frame at its step position is the earliest, or kChannels.
uint32_t EarliestChannel(const BlkReadState_st& state) {
    uint32_t earliest = kChannels;
    int64_t limit = kNoLaterThan;
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        if (OnIFrame(state, chn) && IFrameAtStep(state, chn).pts < limit) {
            limit = IFrameAtStep(state, chn).pts;
            earliest = chn;
        }
    }
    return earliest;
}

/// The channel whose I-frame at its step position is the latest, or kChannels.
uint32_t LatestChannel(const BlkReadState_st& state) {
    uint32_t latest = kChannels;
    int64_t limit = 0;
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        if (OnIFrame(state, chn) && IFrameAtStep(state, chn).pts > limit) {
            limit = IFrameAtStep(state, chn).pts;
            latest = chn;
        }
    }
    return latest;
}

/// Sets the step positions from the read position, unless they are valid.
/// @return whether they are valid now
bool PrepareStep(CReadBlock& block, ReadCursor_st& cursor) {
    if (cursor.iframePosValid == 0) {
        if (block.GetIFrameIndex() != 0) {
            return false;
        }
        cursor.iframePosValid = 1;
    }
    return true;
}

} // namespace

int CReadBlock::GetIFrameIndex() {
    FrameHead_t head = {};
    void* scratch = nullptr;
    const int result = ReadFrame(&head, &scratch);
    std::free(scratch);
    if (result != 0) {
        return -1;
    }
    ReadCursor_st& cursor = *m_pState->pCursor;
    if (cursor.allChn == 0) {
        const uint32_t chn = ChannelOfId(cursor.recId);
        if (chn >= kChannels) {
            return -1;
        }
        cursor.iframePos[chn] = FirstLater(m_pState->index, chn, head.pts);
        return cursor.iframePos[chn] == kNoIFrame ? -1 : 0;
    }
    int found = -1;
    for (uint32_t chn = 0; chn < kChannels; ++chn) {
        cursor.iframePos[chn] = FirstLater(m_pState->index, chn, head.pts);
        if (cursor.iframePos[chn] != kNoIFrame) {
            found = 0;
        }
    }
    return found;
}

int CReadBlock::ReadIFrame(unsigned int offs, FrameHead_t* head, void** payload) {
    if (m_pState == nullptr) {
        return -1;
    }
    int skipped = 0;
    const int result = GetFrame(offs, head, payload, &skipped);
    if (result == 0) {
        m_pState->pCursor->readOffs = OffsetBehind(uint64_t{offs} + static_cast<uint32_t>(skipped), *head);
    }
    return result;
}

int CReadBlock::ReadNextIFrame(FrameHead_t* head, void** payload) {
    if (m_pState == nullptr || head == nullptr || payload == nullptr) {
        return -1;
    }
    ReadCursor_st& cursor = *m_pState->pCursor;
    if (!PrepareStep(*this, cursor)) {
        return -1;
    }
    const uint32_t chn = cursor.allChn == 0 ? ChannelOfId(cursor.recId) : EarliestChannel(*m_pState);
    if (!OnIFrame(*m_pState, chn)) {
        return kReadEnds;
    }
    const uint32_t pos = IFrameAtStep(*m_pState, chn).pos;
    ++cursor.iframePos[chn];
    return ReadIFrame(pos, head, payload);
}

int CReadBlock::ReadPrevIFrame(FrameHead_t* head, void** payload) {
    if (m_pState == nullptr || head == nullptr || payload == nullptr) {
        return -1;
    }
    ReadCursor_st& cursor = *m_pState->pCursor;
    if (!PrepareStep(*this, cursor)) {
        return -1;
    }
    const uint32_t chn = cursor.allChn == 0 ? ChannelOfId(cursor.recId) : LatestChannel(*m_pState);
    if (!OnIFrame(*m_pState, chn)) {
        return kReadEnds;
    }
    const uint32_t pos = IFrameAtStep(*m_pState, chn).pos;
    --cursor.iframePos[chn]; // before the first entry comes kNoIFrame
    return ReadIFrame(pos, head, payload);
}
