// CReadPart: which blocks playback may use, walking the ring, and what a block tells about its recording.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "format/channels.h"
#include "format/ids.h"
#include "format/part_head.h"
#include "io/device.h"
#include "io/host.h"
#include "io/messages.h"
#include "playback/read_part_state.h"
#include "read_part.h"

using namespace disk_access;

namespace {

enum class Direction { Backwards, Forwards };

/// Whether a block that bears the magic passes a mode's test.
bool PassesMode(const BlockHead_t& head, const BlockTail_t& tail, unsigned int mode, unsigned int seq) {
    switch (mode) {
    case 0:
        return tail.CloseState != 1;
    case 1:
        return tail.CloseState != 1 || head.RecSeq >= seq;
    case 2:
        return tail.CloseState != 1 && head.RecSeq != 0;
    case 3:
        return tail.CloseState != 0 && head.RecSeq != 0;
    case 4:
        return head.RecSeq == tail.RecSeq;
    default:
        return true;
    }
}

/// Tests each block from @p from round the ring to @p to, both included, and stops at the first usable one.
/// @return 0 with the block in @p out, or -1
int FindUsableBlock(CReadPart& part, const Ring& ring, Direction direction, unsigned int mode,
                    unsigned int seq, uint32_t from, uint32_t to, unsigned int* out) {
    if (ring.count == 0 || out == nullptr) {
        return -1;
    }
    uint32_t block = from;
    // An end outside the ring is never met: one turn is enough.
    for (uint32_t steps = 0; block != to && steps < ring.count; ++steps) {
        if (part.IsValidBlock(block, mode, seq) == 1) {
            *out = block;
            return 0;
        }
        block = direction == Direction::Forwards ? ring.Next(block) : ring.Prev(block);
    }
    if (part.IsValidBlock(to, mode, seq) == 1) {
        *out = to;
        return 0;
    }
    return -1;
}

void TakeParameters(EncodeParam_t& out, const BlockHead_t& head, uint32_t chn) {
    const ChnProp_t& prop = head.prop[chn];
    out.pre_RecTime = head.pre_RecTime;
    out.AlmDelayTime = head.AlmDelayTime;
    out.chn = chn;
    out.VType = prop.VType;
    out.FrameRate = prop.FrameRate;
    out.AType = prop.AType;
    out.Bitrate = prop.Bitrate;
    out.gop = prop.gop;
    out.Sample = prop.Sample;
    out.BitWidth = prop.BitWidth;
    out.audio_frame_len = prop.audio_frame_len;
    out.propRes = prop.propRes;
    out.Resolution = prop.Resolution;
    std::memcpy(out.VehicleNum, head.VehicleNum, sizeof out.VehicleNum);
    std::memcpy(out.VehicleID, head.VehicleID, sizeof out.VehicleID);
}

} // namespace

int CReadPart::GetBadBlockTab() {
    if (m_pState == nullptr) {
        return -1;
    }
    dev_op_st* const dev = dev_open(&m_pState->partition);
    if (dev == nullptr) {
        return -1;
    }
    uint8_t* const table = LoadTable(dev, m_pState->BBTabOffs, BadBlockTabSize(m_pState->BlkCount),
                                     BadBlockTabSize(m_pState->RingCount), DeviceSize(dev));
    dev_close(dev);
    if (table == nullptr) {
        return -1;
    }
    std::free(m_pState->pBadBlockTab);
    m_pState->pBadBlockTab = table;
    return 0;
}

int CReadPart::IsValidBlock(unsigned int block, unsigned int mode, unsigned int seq) {
    if (m_pState == nullptr) {
        return 0;
    }
    if (m_pState->pBadBlockTab == nullptr && m_pState->TableInside) {
        GetBadBlockTab(); // without it no block is marked bad
    }
    if (m_pState->pBadBlockTab != nullptr && block < m_pState->RingCount &&
        MarkedBad(m_pState->pBadBlockTab, block)) {
        Message("%s: bad block %d\n", "IsValidBlock", static_cast<int>(block));
        return 0;
    }
    if (m_pState->Beyond(block)) {
        DISK_ACCESS_REPORT_FAILURE("OpenBlock"); // as opening it would
        return 0;
    }
    BlockHead_t head = {};
    BlockTail_t tail = {};
    BriefBlock opened(*m_pState, block, 0);
    if (opened->GetBlockInfo(&head, &tail) != 0) {
        return 0;
    }
    if (head.ValidFlag != BLOCK_MAGIC) {
        Message("%s: invalid block %d\n", "IsValidBlock", static_cast<int>(block));
        return 0;
    }
    return PassesMode(head, tail, mode, seq) ? 1 : 0;
}

int CReadPart::GetPrevValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int to,
                                 unsigned int* out) {
    if (m_pState == nullptr) {
        return -1;
    }
    return FindUsableBlock(*this, m_pState->TheRing(), Direction::Backwards, mode, seq, from, to, out);
}

int CReadPart::GetNextValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int to,
                                 unsigned int* out) {
    if (m_pState == nullptr) {
        return -1;
    }
    return FindUsableBlock(*this, m_pState->TheRing(), Direction::Forwards, mode, seq, from, to, out);
}

int CReadPart::GetRecInfo(EncodeParam_t* out, RecordItem_t* record, int rebuild) {
    if (out == nullptr || record == nullptr) {
        return -1;
    }
    *out = {};
    if (m_pState == nullptr) {
        return -1;
    }
    const uint32_t chn = ChannelOfId(record->recId);
    BlockHead_t head = {};
    BriefBlock opened(*m_pState, BlockOfId(record->recId), rebuild);
    if (opened->GetBlockInfo(&head, nullptr) != 0 || !HasChannel(head.media_chn_bitmap, chn)) {
        return -1;
    }
    record->chn = chn;
    TakeParameters(*out, head, chn);
    return 0;
}
