#ifndef RECORDINGS_BLOCK_CHECKS_H
#define RECORDINGS_BLOCK_CHECKS_H

#include <optional>

#include "disk_format.h"
#include "recordings/block_index.h"
#include "recordings/health.h"

namespace recordings {

/// What a block says of itself, as it lies on the disk. What cannot be read is zero.
struct BlockParts {
    Block block;
    BlockHead_t head = {};
    BlockTail_t tail = {};
    BlockTailEx_t tailEx = {}; ///< zero in the normal layout

    /// @param block one whose head can be read
    static BlockParts Read(const Disk& disk, const Block& block);

    bool TailCloses() const { return tail.RecSeq == block.sequence; }
    bool TailExCloses() const { return tailEx.RecSeq == block.sequence; }
};

/// The parts of a block, and of the blocks recorded before and after it; null where there are none, or none that tell.
struct Neighbourhood {
    const BlockParts* before = nullptr;
    const BlockParts* at = nullptr;
    const BlockParts* after = nullptr;
    bool newest = false; ///< no block was recorded after it
};

/// Checks a block without its frames: its head, its tail, and its index, against each other and against its neighbours.
class BlockCheck {
public:
    /// @param quick the frames are not read afterwards: look at least at those that begin the index's segments
    BlockCheck(const Disk& disk, bool quick, const FindingSink& findings)
        : m_disk(disk), m_quick(quick), m_findings(findings) {}

    void Check(const Neighbourhood& place) const;

private:
    void CheckHead(const Neighbourhood& place, const std::optional<BlockIndex>& index) const;
    void CheckTail(const Neighbourhood& place, const std::optional<BlockIndex>& index) const;
    void CheckClock(const Neighbourhood& place) const;
    void CheckIndex(const Block& block, const std::optional<BlockIndex>& index) const;
    void CheckFirstFrames(const Block& block, const BlockIndex& index) const;
    void Report(ProblemKind kind, const Block& block, const std::string& fields,
                ChannelSet channels = {}) const;

    const Disk& m_disk;
    bool m_quick;
    const FindingSink& m_findings;
};

} // namespace recordings

#endif // RECORDINGS_BLOCK_CHECKS_H
