// CReadPart: which blocks playback may use, walks around the ring, and the parameters of a recording.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "format/block_geometry.h"
#include "format/channels.h"
#include "format/ids.h"
#include "format/part_head.h"
#include "io/device.h"
#include "io/host.h"
#include "playback/read_part_state.h"
#include "playback/usable_blocks.h"
#include "read_part.h"

using namespace disk_access;

namespace {

enum class Direction { Backwards, Forwards };

/// Tests each block around the ring from @p from to @p to, both included, and stops at the first usable one.
/// @return 0 with the block in @p out, or -1
int FindUsableBlock(CReadPart& part, ReadPartState_st& state, Direction direction, unsigned int mode,
                    unsigned int seq, uint32_t from, uint32_t to, unsigned int* out) {
    if (out == nullptr) {
        return -1;
    }
    const Ring ring = MeasureRing(state);
    if (ring.count == 0) {
        return -1;
    }
    UsableBlocks usable(part, state);
    uint32_t block = from;
    // An end outside the ring is never reached: one turn is enough.
    for (uint32_t steps = 0; block != to && steps < ring.count; ++steps) {
        if (usable.Has(block, mode, seq)) {
            *out = block;
            return 0;
        }
        block = direction == Direction::Forwards ? ring.Next(block) : ring.Prev(block);
    }
    if (usable.Has(to, mode, seq)) {
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
    const uint64_t deviceSize = DeviceSize(dev);
    const uint32_t stated = m_pState->BlkCount;
    const uint32_t blocks = CredibleBlocks(stated, m_pState->Geometry(), deviceSize);
    uint8_t* const table =
        LoadTable(dev, m_pState->BBTabOffs, BadBlockTabSize(stated), BadBlockTabSize(blocks), deviceSize);
    dev_close(dev);
    if (table == nullptr) {
        return -1;
    }
    std::free(m_pState->pBadBlockTab);
    m_pState->pBadBlockTab = table;
    m_pState->TableBlocks = blocks;
    return 0;
}

int CReadPart::IsValidBlock(unsigned int block, unsigned int mode, unsigned int seq) {
    return m_pState != nullptr && UsableBlocks(*this, *m_pState).Has(block, mode, seq) ? 1 : 0;
}

int CReadPart::GetPrevValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int to,
                                 unsigned int* out) {
    if (m_pState == nullptr) {
        return -1;
    }
    return FindUsableBlock(*this, *m_pState, Direction::Backwards, mode, seq, from, to, out);
}

int CReadPart::GetNextValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int to,
                                 unsigned int* out) {
    if (m_pState == nullptr) {
        return -1;
    }
    return FindUsableBlock(*this, *m_pState, Direction::Forwards, mode, seq, from, to, out);
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
