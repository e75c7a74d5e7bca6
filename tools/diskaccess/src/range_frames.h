#ifndef DISKACCESS_RANGE_FRAMES_H
#define DISKACCESS_RANGE_FRAMES_H

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "block_frames.h"
#include "recorded_blocks.h"

namespace diskaccess {

/// What an export takes from the disk.
struct ExportRange {
    Range times; ///< of the disk
    uint32_t channels = 0;
};

/// Where a channel's stream begins: its last key frame at or before the range's start.
struct StartPlace {
    size_t block = 0; ///< entry of the block sequence
    uint32_t offset = 0;
};

/// What of a range is on the disk: the blocks, and the place where each channel begins.
struct ExportPlan {
    ExportRange range;
    BlockSequence sequence;
    FrameArea area;
    std::array<std::optional<StartPlace>, 32> starts; ///< none: with the first key frame in the range
    size_t firstBlock = 0;
};

ExportPlan PlanExport(Job& job, const ExportRange& range);

/// A stretch in which a channel was not recorded.
struct Gap {
    uint32_t channel = 0;
    uint32_t block = 0; ///< where recording goes on
    int64_t before = 0; ///< time stamps
    int64_t behind = 0;
};

/// Blocks that are not there any more between two that are.
struct MissingBlocks {
    uint32_t before = 0; ///< block numbers
    uint32_t behind = 0;
    uint32_t count = 0;
};

/// What was met on the way through a range.
struct RangeFindings {
    std::vector<Loss> losses;
    std::vector<Gap> gaps;
    std::vector<MissingBlocks> missing;
    std::vector<size_t> blocks; ///< entries of the sequence that frames were taken from
    std::array<uint64_t, 32> undecodable =
        {}; ///< per channel: video left out for want of a key frame before it
};

/// The media frames of an export in the order they were recorded in: each channel from its key frame on, and
/// again from a key frame on behind every loss.
class RangeFrames {
public:
    RangeFrames(Partition& disk, const ExportPlan& plan);

    /// @return false at the end
    bool Next(PlacedFrame& frame);

    const RangeFindings& Findings() const { return m_findings; }
    /// The block that the last frame came from.
    const RecordedBlock& Block() const { return m_plan.sequence.blocks[m_block]; }
    /// How much of the blocks has been gone through.
    double Progress() const;

private:
    bool OpenNextBlock();
    void CloseBlock();
    bool Accept(const PlacedFrame& frame);
    void NoteGap(const PlacedFrame& frame);

    Partition& m_disk;
    const ExportPlan& m_plan;
    size_t m_block = 0;
    bool m_started = false;
    std::unique_ptr<BlockFrames> m_frames;
    std::array<bool, 32> m_waiting = {}; ///< for a key frame
    std::array<std::optional<int64_t>, 32> m_last = {};
    uint32_t m_offset = 0;
    RangeFindings m_findings;
};

} // namespace diskaccess

#endif // DISKACCESS_RANGE_FRAMES_H
