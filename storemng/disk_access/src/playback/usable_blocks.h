#ifndef DISK_ACCESS_PLAYBACK_USABLE_BLOCKS_H
#define DISK_ACCESS_PLAYBACK_USABLE_BLOCKS_H

#include <cstdint>

#include "disk_format.h"
#include "format/ring.h"
#include "playback/read_part_state.h"
#include "read_part.h"

namespace disk_access {

/// The ring of a partition as it is now. A head that states more blocks than ids can name is believed as far as
/// the device reaches, which is measured each time: an image may grow while it is played.
Ring MeasureRing(const ReadPartState_st& state);

/// Where the device ends, and what opening a block beyond it would print.
///
/// Each block of a forged ring, or of a copy that was cut off, would be opened, flushed and closed again in vain,
/// and a flush takes a real disk milliseconds. Here the device is measured once, and one descriptor is moved to
/// the start of each block that it lacks: that tells as well whether opening would have failed at the window, or
/// only then.
class DeviceEnd {
public:
    explicit DeviceEnd(const ReadPartState_st& state) : m_state(state) {}
    ~DeviceEnd() { LetGo(); }
    DeviceEnd(const DeviceEnd&) = delete;
    DeviceEnd& operator=(const DeviceEnd&) = delete;

    /// Measures the device, unless that was done.
    void Measure();
    /// Whether a block, or the end of the bad-block table, was found to lie beyond the device. Of a device that
    /// was not measured, or could not be, nothing does.
    bool BeforeBlock(uint32_t block) const { return block >= m_blocks; }
    bool BeforeTable() const { return m_beforeTable; }

    /// Prints what opening a block beyond the end prints.
    void ReportBlock(uint32_t block);
    /// Closes the descriptor until the next report: whoever opens another one meanwhile must not find fewer left.
    void LetGo();

private:
    void Hold();

    const ReadPartState_st& m_state;
    int m_fd = -1;
    bool m_measured = false;
    bool m_beforeTable = false;
    uint32_t m_blocks = 0xFFFFFFFF; ///< that begin inside the device
};

/// Tells which blocks playback may use, one after the other in a walk over the ring.
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
    bool m_failed = false; ///< to open the block before
};

} // namespace disk_access

#endif // DISK_ACCESS_PLAYBACK_USABLE_BLOCKS_H
