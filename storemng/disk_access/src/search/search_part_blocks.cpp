// CSearchPart: which blocks are usable, the walks over those with data, and parameters from a block's head.

#include "search_part.h"

#include <cstdint>

#include "format/ids.h"
#include "format/part_head.h"
#include "io/host.h"
#include "search/search_part_state.h"

using namespace disk_access;

namespace {

enum class Direction { Forwards, Backwards };

/// Looks for a valid block around the ring from @p from to @p limit, both included, and stops at the first.
/// @return 0 with the block in @p out, or -1
int FindValidBlock(CSearchPart& part, const PartSearchState_t& state, Direction direction, unsigned int mode,
                   unsigned int seq, uint32_t from, uint32_t limit, unsigned int* out, BlockHead_t* head) {
    // Without the tables no block is usable. Testing each block would try to read them again each time, and a
    // forged head can state four billion blocks.
    if (!state.HasBlocks() || part.GetBadBlockTab() != 0) {
        return -1;
    }
    const Ring ring = state.TheRing();
    uint32_t block = from;
    // A limit outside the ring is never reached: one turn is enough.
    for (uint32_t steps = 0; block != limit && steps < ring.count; ++steps) {
        if (part.IsValidBlock(block, mode, seq, head) == 1) {
            *out = block;
            return 0;
        }
        block = direction == Direction::Forwards ? ring.Next(block) : ring.Prev(block);
    }
    if (part.IsValidBlock(limit, mode, seq, head) == 1) {
        *out = limit;
        return 0;
    }
    return -1;
}

} // namespace

int CSearchPart::IsBadBlock(unsigned int block) {
    if (m_pState == nullptr || !m_pState->HasBlocks() || GetBadBlockTab() != 0) {
        return 0;
    }
    if (block >= m_pState->RingCount) {
        return 0;
    }
    if (MarkedBad(m_pState->badBlockTab, block)) {
        return 0;
    }
    return m_pState->possibleBBTab[block] == 0 ? 1 : 0;
}

int CSearchPart::IsValidBlock(unsigned int block, unsigned int /*mode*/, unsigned int /*seq*/,
                              BlockHead_t* head) {
    if (IsBadBlock(block) == 0) {
        return 0;
    }
    // If the head cannot be read, the previous contents of the caller's buffer decide.
    m_pState->searchBlock->GetBlockInfo(block, head, nullptr, nullptr, nullptr);
    if (head->ValidFlag == BLOCK_MAGIC) {
        return 1;
    }
    Message("%s: invalid block %d\n", "IsValidBlock", static_cast<int>(block));
    return 0;
}

int CSearchPart::GetPrevValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int limit,
                                   unsigned int* out, BlockHead_t* head) {
    if (m_pState == nullptr) {
        return -1;
    }
    return FindValidBlock(*this, *m_pState, Direction::Backwards, mode, seq, from, limit, out, head);
}

int CSearchPart::GetNextValidBlock(unsigned int mode, unsigned int seq, unsigned int from, unsigned int limit,
                                   unsigned int* out, BlockHead_t* head) {
    if (m_pState == nullptr) {
        return -1;
    }
    return FindValidBlock(*this, *m_pState, Direction::Forwards, mode, seq, from, limit, out, head);
}

int CSearchPart::GetEventPara(unsigned int eventId, unsigned int* preTime, unsigned int* delayTime) {
    BlockHead_t head = {};
    if (m_pState != nullptr && m_pState->HasBlocks()) {
        m_pState->searchBlock->GetBlockInfo(BlockOfId(eventId), &head, nullptr, nullptr, nullptr);
    }
    *preTime = head.pre_RecTime;
    *delayTime = head.AlmDelayTime;
    return 0;
}

int CSearchPart::GetRecordExtPara(unsigned int recId, unsigned int* value) {
    BlkExtHead_t extHead = {};
    if (m_pState != nullptr && m_pState->HasBlocks()) {
        m_pState->searchBlock->GetBlockInfo(BlockOfId(recId), nullptr, nullptr, &extHead, nullptr);
    }
    *value = extHead.ExtParaValid != 0 ? extHead.ExtPara : 0xFFFFFFFF;
    return 0;
}
