#ifndef RECORDINGS_FRAME_WALK_H
#define RECORDINGS_FRAME_WALK_H

#include <cstdint>
#include <optional>

#include "block_facts.h"
#include "found_frames.h"
#include "frame_area.h"
#include "head_search.h"

namespace recordings {

/// Goes from frame to frame through a block, past whatever is damaged.
///
/// Each frame's length leads to the next head. Where it does not, and the frames do not end there, the next head is
/// looked for. What lies between is damaged. Part of it is the frame before, when what follows it is nothing like a head:
/// then something was written over its end, or its own length is wrong. When the next head lies within the frame before,
/// that frame's length is wrong, and it is cut there.
class FrameWalk {
public:
    /// @param area, facts must outlive the object
    FrameWalk(FrameArea& area, const BlockFacts& facts);

    FoundFrames Run();

private:
    bool Take(uint32_t at);
    void Append(const FrameHead_t& head, uint32_t at);
    FoundFrame* LastThatEndsAt(uint32_t at);
    std::optional<FrameHead_t> Head(uint32_t at);
    bool IsStale(const FrameHead_t& head) const;
    bool IsLeftOver(const FrameHead_t& head, uint32_t at) const;

    std::optional<uint32_t> Resume(uint32_t at);
    std::optional<uint32_t> TakeWithoutLength(const FrameHead_t& head, uint32_t at);
    std::optional<uint32_t> Search(uint32_t from);
    void Cut(FoundFrame& frame, uint32_t end);
    void PassTo(uint32_t next, uint32_t at, const FoundFrame* last);
    void NoteDamage(uint32_t from, uint32_t to);

    bool EndsAt(uint32_t at, const FoundFrame* last);
    bool IsMarked(uint32_t at, const FoundFrame* last);
    bool EndsIndexed(uint32_t at, const FoundFrame* last, const std::optional<FrameHead_t>& head);
    void End(uint32_t at, FoundFrame* last);
    void EndIndexed(uint32_t at, FoundFrame* last);
    void EndTrailing(uint32_t at, FoundFrame* last);
    void EndOpen(uint32_t at, FoundFrame* last);
    bool IsErasedInside(const FoundFrame& frame);
    bool IsErasedFrom(uint32_t at);
    void NoteDamagedLast(const FrameHead_t& head, uint32_t at);
    bool MayEnd(const FoundFrame& last);
    uint32_t LargestPayload() const;

    FrameArea& m_area;
    const BlockFacts& m_facts;
    HeadSearch m_search;
    FoundFrames m_found;
    Reached m_reached;
    bool m_nextLost = false; ///< something is lost before the next frame
    uint32_t m_searches = 0;
    bool m_gaveUp = false; ///< of an area that is too large to be kept, and damaged everywhere
};

} // namespace recordings

#endif // RECORDINGS_FRAME_WALK_H
