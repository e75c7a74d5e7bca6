// Which blocks playback may use, and the messages about those that it may not.

#include "playback/usable_blocks.h"

#include <unistd.h>

#include "format/block_geometry.h"
#include "format/part_head.h"
#include "io/device.h"
#include "io/host.h"
#include "io/messages.h"

namespace disk_access {

namespace {

/// The size of the device of a descriptor in bytes; 0 if it cannot be determined.
uint64_t SizeBehind(int fd) {
    dev_op_st device = {fd};
    return DeviceSize(&device);
}

/// Whether a block with the magic passes a mode's test.
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

} // namespace

Ring MeasureRing(const ReadPartState_st& state) {
    if (state.BlkCount <= kBlocksOfIds) {
        return {state.BlkCount};
    }
    const int fd = OpenReadOnly(state.partition);
    const uint64_t size = SizeBehind(fd);
    if (fd >= 0) {
        HostClose(fd);
    }
    return {CredibleBlocks(state.BlkCount, state.Geometry(), size)};
}

void DeviceEnd::Hold() {
    if (m_fd < 0) {
        m_fd = OpenReadOnly(m_state.partition);
    }
}

void DeviceEnd::LetGo() {
    if (m_fd >= 0) {
        HostClose(m_fd);
        m_fd = -1;
    }
}

void DeviceEnd::Measure() {
    if (m_measured) {
        return;
    }
    m_measured = true;
    Hold();
    const uint64_t size = SizeBehind(m_fd);
    if (size != 0) {
        m_blocks = BlocksInside(m_state.Geometry(), size);
        m_beforeTable = uint64_t{m_state.BBTabOffs} + BadBlockTabSize(m_state.BlkCount) > size;
    }
}

void DeviceEnd::ReportBlock(uint32_t block) {
    Hold();
    const uint64_t start = m_state.Geometry().BlockStart(BLOCK_BASE_OFFSET, block);
    if (m_fd < 0 || HostSeek(m_fd, static_cast<int64_t>(start), SEEK_SET) < 0) {
        DISK_ACCESS_REPORT_FAILURE("block_open");
    }
    DISK_ACCESS_REPORT_FAILURE("OpenBlock");
}

bool UsableBlocks::Marked(uint32_t block) {
    if (!m_state.HoldsBit(block) && !m_end.BeforeTable()) {
        m_end.LetGo();
        m_part.GetBadBlockTab(); // without it no block is marked bad
    }
    return m_state.pBadBlockTab != nullptr && block < m_state.TableBlocks &&
           MarkedBad(m_state.pBadBlockTab, block);
}

bool UsableBlocks::ReadEnds(uint32_t block, BlockHead_t& head, BlockTail_t& tail) {
    if (m_end.BeforeBlock(block)) {
        m_end.ReportBlock(block);
        return false;
    }
    m_end.LetGo();
    m_failed = BriefBlock(m_state, block, kNoRebuild)->GetBlockInfo(&head, &tail) != 0;
    return !m_failed;
}

bool UsableBlocks::Has(uint32_t block, unsigned int mode, unsigned int seq) {
    if (m_failed) {
        m_end.Measure(); // the block before may be the first one beyond the device
    }
    if (Marked(block)) {
        Message("%s: bad block %d\n", "IsValidBlock", static_cast<int>(block));
        return false;
    }
    BlockHead_t head = {};
    BlockTail_t tail = {};
    if (!ReadEnds(block, head, tail)) {
        return false;
    }
    if (head.ValidFlag != BLOCK_MAGIC) {
        Message("%s: invalid block %d\n", "IsValidBlock", static_cast<int>(block));
        return false;
    }
    return m_state.BlkCount != 0 && PassesMode(head, tail, mode, seq);
}

} // namespace disk_access
