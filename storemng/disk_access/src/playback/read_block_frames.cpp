// CReadBlock: reading frames one after the other.

#include <cstdint>
#include <cstdlib>
#include <optional>

#include "format/frames.h"
#include "format/ids.h"
#include "format/times.h"
#include "playback/read_block_state.h"
#include "read_block.h"

using namespace disk_access;

namespace {

/// Results of CheckFrameHead().
constexpr int kNoFrame = -1;
constexpr int kWanted = 0;
constexpr int kOtherChannel = 1;
constexpr int kEndMark = 2;
constexpr int kOutsideWindow = 3;

/// Media this many seconds before or after the window is still accepted: the streams of a recording do not
/// begin and end at the same time.
constexpr uint32_t kSlackBefore = 5;
constexpr uint32_t kSlackBehind = 1;

/// Window position of a frame offset that may be read.
std::optional<uint32_t> PositionOf(const BlkReadState_st& state, uint64_t offs) {
    if (offs < state.pCursor->winOffs || offs >= state.geometry.FrameAreaSize()) {
        return std::nullopt;
    }
    return state.geometry.headAreaSize + static_cast<uint32_t>(offs);
}

/// Reads the payload after a frame head that was just read, into the caller's buffer.
int ReadPayload(BlkReadState_st& state, uint64_t position, const FrameHead_t& head, void** payload) {
    if (position + FrameSpan(head) > state.geometry.blkSize) {
        return -1;
    }
    // An empty payload gets a buffer too: a null pointer would look like a lack of memory.
    void* const buffer = std::realloc(*payload, head.len == 0 ? 1 : head.len);
    if (buffer == nullptr) {
        return -1;
    }
    *payload = buffer;
    return block_read(state.blkOp, buffer, head.len);
}

} // namespace

int CReadBlock::GetOffset(unsigned int offs) {
    if (m_pState == nullptr) {
        return -1;
    }
    return static_cast<int>(PositionOf(*m_pState, offs).value_or(static_cast<uint32_t>(-1)));
}

int CReadBlock::CheckValidChn(FrameHead_t* head) {
    if (m_pState == nullptr || head == nullptr) {
        return -1;
    }
    const ReadCursor_st& cursor = *m_pState->pCursor;
    return cursor.allChn != 0 || head->chn == ChannelOfId(cursor.recId) ? 0 : -1;
}

int CReadBlock::CheckFrameHead(FrameHead_t* head) {
    if (m_pState == nullptr || head == nullptr) {
        return kNoFrame;
    }
    if (head->sync == kErasedWord) {
        return IsEndMark(*head) ? kEndMark : kNoFrame;
    }
    if (head->sync != BLOCK_MAGIC) {
        return kNoFrame;
    }
    if (CheckValidChn(head) != 0) {
        return kOtherChannel;
    }
    const auto time = static_cast<uint32_t>(SecondsOf(head->pts));
    const bool outside =
        time + kSlackBefore < m_pState->pCursor->winStart || time - kSlackBehind >= m_pState->pCursor->winEnd;
    return outside && IsMedia(head->type) ? kOutsideWindow : kWanted;
}

int CReadBlock::GetFrame(unsigned int offs, FrameHead_t* head, void** payload, int* skipped) {
    if (m_pState == nullptr || head == nullptr || skipped == nullptr) {
        return -1;
    }
    uint64_t at = offs;
    uint32_t position = 0;
    FrameHead_t found = {};
    int kind = kOtherChannel;
    while (kind == kOtherChannel) {
        const std::optional<uint32_t> next = PositionOf(*m_pState, at);
        if (!next || ReadInBlock(m_pState->blkOp, *next, &found, sizeof found) != 0) {
            return -1;
        }
        position = *next;
        kind = CheckFrameHead(&found);
        if (kind == kOtherChannel) {
            at += FrameSpan(found);
        }
    }
    if (kind == kOutsideWindow) {
        return kReadEnds;
    }
    if (kind != kWanted) {
        return kNoMoreFrames;
    }
    *head = found;
    *skipped = static_cast<int>(at - offs);
    return payload == nullptr ? 0 : ReadPayload(*m_pState, position, found, payload);
}

int CReadBlock::ForwardReadFrame(FrameHead_t* head, void** payload) {
    if (m_pState == nullptr) {
        return -1;
    }
    ReadCursor_st& cursor = *m_pState->pCursor;
    cursor.iframePosValid = 0;
    int skipped = 0;
    const int result = GetFrame(cursor.readOffs, head, payload, &skipped);
    if (result == 0) {
        cursor.readOffs = OffsetBehind(uint64_t{cursor.readOffs} + static_cast<uint32_t>(skipped), *head);
    }
    return result;
}

int CReadBlock::ReadFrame(FrameHead_t* head, void** payload) {
    if (m_pState == nullptr || head == nullptr || payload == nullptr) {
        return -1;
    }
    return ForwardReadFrame(head, payload);
}

int CReadBlock::ReadBlockFrame(FrameHead_t* head, void** payload) {
    if (m_pState == nullptr || head == nullptr || payload == nullptr) {
        return -1;
    }
    ReadCursor_st& cursor = *m_pState->pCursor;
    // In 64 bits: an offset from a forged index, or after a forged length, must not lead into the block's
    // head.
    const uint64_t position = uint64_t{m_pState->geometry.headAreaSize} + cursor.readOffs;
    FrameHead_t found = {};
    if (ReadInBlock(m_pState->blkOp, position, &found, sizeof found) != 0) {
        return -1;
    }
    if (found.sync != BLOCK_MAGIC || found.chn >= kChannels) {
        return kReadEnds;
    }
    *head = found;
    if (ReadPayload(*m_pState, position, found, payload) != 0) {
        return -1;
    }
    cursor.readOffs = OffsetBehind(cursor.readOffs, found);
    return 0;
}
