// CReadBlock: opening and closing a block, and questions that need no frames.

#include <cstdint>
#include <cstdlib>

#include "format/frames.h"
#include "format/ids.h"
#include "format/state.h"
#include "format/times.h"
#include "io/host.h"
#include "io/messages.h"
#include "playback/read_block_state.h"
#include "read_block.h"

using namespace disk_access;

namespace {

/// Length and bytes of the substitute for a record segment.
constexpr uint32_t kStandInSeconds = 600;
constexpr uint32_t kStandInBytes = 0x10000000;

bolck_op_st* OpenWindow(const PartAccess_t& part, uint32_t block, uint32_t blkSize) {
    block_info_t info = {};
    static_cast<PartAccess_t&>(info) = part;
    info.BlockNum = block;
    info.BlkSize = blkSize;
    info.BaseOffs = BLOCK_BASE_OFFSET;
    return block_open(&info);
}

/// Reads the head, the tail, and the extended tail directly after it.
bool ReadEnds(BlkReadState_st& state) {
    if (ReadInBlock(state.blkOp, 0, &state.blockHead, sizeof state.blockHead) != 0 ||
        ReadInBlock(state.blkOp, state.geometry.TailStart(), &state.blockTail, sizeof state.blockTail) != 0) {
        return false;
    }
    return !state.geometry.Extended() ||
           block_read(state.blkOp, &state.blockTailEx, sizeof state.blockTailEx) == 0;
}

} // namespace

CReadBlock::CReadBlock() = default;

CReadBlock::~CReadBlock() = default;

int CReadBlock::OpenBlock(unsigned int block, unsigned int blkSize, PartAccess_t* part,
                          unsigned int fmtVersion, int rebuild) {
    if (m_pState != nullptr) {
        Message("%s : Already Opened\n", "OpenBlock");
        return 0;
    }
    if (part == nullptr) {
        return -1;
    }
    m_pState = MakeState<BlkReadState_st>();
    if (m_pState == nullptr) {
        Message("%s : Failed\n", "OpenBlock");
        return -1;
    }
    m_pState->geometry = BlockGeometry::Of(blkSize, fmtVersion);
    m_pState->blkOp = OpenWindow(*part, block, blkSize);
    // If the block is too small for its own areas, every position would be wrong.
    if (m_pState->blkOp == nullptr || !m_pState->geometry.HoldsBlock() || !ReadEnds(*m_pState)) {
        DISK_ACCESS_REPORT_FAILURE("OpenBlock");
        CloseBlock();
        return -1;
    }
    GetBlockIndex(rebuild); // frames can be read without an index
    m_pState->pCursor = static_cast<ReadCursor_st*>(std::calloc(1, sizeof(ReadCursor_st)));
    if (m_pState->pCursor == nullptr) {
        CloseBlock();
        return -1;
    }
    return 0;
}

int CReadBlock::CloseBlock() {
    if (m_pState == nullptr) {
        return -1;
    }
    std::free(m_pState->pCursor);
    block_close(m_pState->blkOp);
    DropState(m_pState);
    return 0;
}

int CReadBlock::GetBlockInfo(BlockHead_t* head, BlockTail_t* tail) {
    if (m_pState == nullptr) {
        return -1;
    }
    if (head != nullptr) {
        *head = m_pState->blockHead;
    }
    if (tail != nullptr) {
        *tail = m_pState->blockTail;
    }
    return 0;
}

int CReadBlock::GetRecSegInfo(RecordItem_t* item, RecSegItem_t* out) {
    if (m_pState == nullptr || item == nullptr || out == nullptr) {
        return -1;
    }
    const uint32_t chn = ChannelOfId(item->recId);
    const uint32_t segment = SegmentOfId(item->recId);
    if (chn < kChannels && m_pState->index.recSegTab[chn].Allocated()) {
        if (segment >= m_pState->index.Segments(chn)) {
            return -1;
        }
        *out = m_pState->index.recSegTab[chn].At(segment);
        return 0;
    }
    FrameHead_t first = {};
    if (ReadInBlock(m_pState->blkOp, m_pState->geometry.headAreaSize, &first, sizeof first) == 0 &&
        first.sync == BLOCK_MAGIC) {
        const auto start = static_cast<uint32_t>(SecondsOf(first.pts));
        *out = {start, start + kStandInSeconds, 0, 0, kStandInBytes};
    }
    return -1;
}
