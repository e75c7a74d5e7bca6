#ifndef DISK_ACCESS_PLAYBACK_USABLE_BLOCKS_H
#define DISK_ACCESS_PLAYBACK_USABLE_BLOCKS_H

#include <cstdint>

#include "disk_format.h"
#include "format/ring.h"
#include "playback/read_part_state.h"
#include "read_part.h"

namespace disk_access {

/// The ring of a partition as it is now. If the head states more blocks than ids can name, only those inside
/// the device are used. The device is measured each time: an image may grow while it is played.
Ring MeasureRing(const ReadPartState_st& state);

/// Where the device ends, and what opening a block beyond it would print.
///
/// Without this class, each block beyond the device (of a forged ring, or of a copy that was cut off) would
/// be opened, flushed and closed again, and a flush takes a real disk milliseconds. Here the device is
/// measured once, and one descriptor is moved to the start of each such block: the result says whether
/// opening the block would fail when its window is opened, or later.
class DeviceEnd {
public:
    explicit DeviceEnd(const ReadPartState_st& state) : m_state(state) {}
    ~DeviceEnd() { LetGo(); }
    DeviceEnd(const DeviceEnd&) = delete;
    DeviceEnd& operator=(const DeviceEnd&) = delete;

    /// Measures the device, if it was not measured yet.
    void Measure();
    /// Whether a block, or the end of the bad-block table, is beyond the device. False if the device was not
    /// measured, or could not be.
    bool BeforeBlock(uint32_t block) const { return block >= m_blocks; }
    bool BeforeTable() const { return m_beforeTable; }

    /// Prints the messages of opening a block beyond the end.
    void ReportBlock(uint32_t block);
    /// Closes the descriptor until the next report: other operations may need one, and there may be few left.
    void LetGo();

private:
    void Hold();

    const ReadPartState_st& m_state;
    int m_fd = -1;
    bool m_measured = false;
    bool m_beforeTable = false;
    uint32_t m_blocks = 0xFFFFFFFF; ///< number of blocks that begin inside the device
};

/// Tells which blocks playback may use, one after the other, in a walk around the ring.
class UsableBlocks {
public:
    UsableBlocks(CReadPart& part, ReadPartState_st& state) : m_part(part), m_state(state), m_end(state) {}

    /// CReadPart::IsValidBlock().
    bool Has(uint32_t block, unsigned int mode, unsigned int seq);

private:
    bool Marked(uint32_t block);
    bool ReadEnds(uint32_t block, BlockHead_t& head, BlockTail_t& tail);

    CReadPart& m_part;
    ReadPartState_st& m_state;
    DeviceEnd m_end;
    bool m_failed = false; ///< the block before could not be opened
};

} // namespace disk_access

#endif // DISK_ACCESS_PLAYBACK_USABLE_BLOCKS_H
