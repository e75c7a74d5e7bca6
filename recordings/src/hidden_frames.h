#ifndef RECORDINGS_HIDDEN_FRAMES_H
#define RECORDINGS_HIDDEN_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "block_facts.h"
#include "found_frames.h"
#include "frame_area.h"
#include "head_search.h"
#include "tracks.h"

namespace recordings {

/// Finds frames that a wrong length has swallowed: when it leads, by chance, to the head of a later frame, the walk does
/// not notice. The index names heads within the payload, or a track has a hole where the frames are.
class HiddenFrames {
public:
    /// @param found, facts, area must outlive the object
    HiddenFrames(FoundFrames& found, const BlockFacts& facts, FrameArea& area);

    /// Looks where the index names heads, and into the holes of tracks.
    /// @param tracks those of the frames found so far
    void Find(const Tracks& tracks);
    /// Looks into every frame.
    void FindAll();

private:
    void LookAtNamedHeads();
    void LookIntoHoles(const Tracks& tracks);
    void LookInto(size_t entry);
    std::vector<FoundFrame> FramesFrom(uint32_t offset, uint64_t end);
    void Insert();

    FoundFrames& m_found;
    const BlockFacts& m_facts;
    FrameArea& m_area;
    HeadSearch m_search;
    Reached m_reached = {0, UINT32_MAX};
    std::vector<bool> m_looked;       ///< by entry: looked into
    std::vector<FoundFrame> m_hidden; ///< what was found
};

} // namespace recordings

#endif // RECORDINGS_HIDDEN_FRAMES_H
