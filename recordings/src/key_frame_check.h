#ifndef RECORDINGS_KEY_FRAME_CHECK_H
#define RECORDINGS_KEY_FRAME_CHECK_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "found_frames.h"
#include "frame_area.h"
#include "key_frame_grid.h"
#include "picture_kind.h"
#include "tracks.h"

namespace recordings {

/// Finds video frames that are marked as key frames and are none, or the other way round, in a block without an index: by
/// what their payload is, and where that is not known, by the distance that a camera keeps between its key frames.
class KeyFrameCheck {
public:
    /// @param found, area must outlive the object
    KeyFrameCheck(FoundFrames& found, FrameArea& area, const KeyFrameGrids& grids);

    void Run(const Tracks& tracks);

private:
    void CheckPayloads(const Track& track);
    void CheckDistances(const Track& track);
    bool HasSizeOfOthers(const Track& track, size_t entry) const;
    int64_t UsualDistance(const Track& track, const std::vector<size_t>& keys) const;
    std::vector<size_t> OffGrid(const Track& track, int64_t anchor, int64_t distance) const;
    void OffGridFrom(const Track& track, size_t place, bool forwards, int64_t anchor, int64_t distance,
                     std::vector<size_t>& off) const;

    FoundFrames& m_found;
    std::vector<FoundFrame>& m_frames;
    FrameArea& m_area;
    const KeyFrameGrids& m_grids;
};

} // namespace recordings

#endif // RECORDINGS_KEY_FRAME_CHECK_H
