#ifndef RECORDINGS_TRACKS_H
#define RECORDINGS_TRACKS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "found_frames.h"

namespace recordings {

/// The video or the audio of a channel within a block.
struct Track {
    uint32_t channel = 0;
    bool audio = false;
    std::vector<size_t> frames; ///< entries of the block's frames
    int64_t pace = 0;     ///< microseconds: the usual time from frame to frame; 0 when there are too few
    bool regular = false; ///< most frames keep the pace
    bool steady = false;  ///< all do, but for one
};

/// The media frames of a block, track by track.
class Tracks {
public:
    explicit Tracks(const std::vector<FoundFrame>& frames);

    static constexpr size_t kCount = size_t{2} * kChannels;
    static size_t Of(const FoundFrame& frame) {
        return size_t{2} * frame.channel + (frame.IsAudio() ? 1 : 0);
    }

    const std::array<Track, kCount>& All() const { return m_tracks; }
    /// The media frame of another track that lies next before a frame on the disk, or next after it.
    std::optional<size_t> OtherBefore(size_t entry) const { return Entry(m_before[entry]); }
    std::optional<size_t> OtherAfter(size_t entry) const { return Entry(m_after[entry]); }

private:
    static constexpr uint32_t kNone = 0xFFFFFFFF;

    static std::optional<size_t> Entry(uint32_t entry) {
        return entry == kNone ? std::nullopt : std::optional<size_t>(entry);
    }
    void FindPace(const std::vector<FoundFrame>& frames, Track& track);
    void FindNeighbours(const std::vector<FoundFrame>& frames);

    std::array<Track, kCount> m_tracks;
    std::vector<uint32_t> m_before;
    std::vector<uint32_t> m_after;
};

} // namespace recordings

#endif // RECORDINGS_TRACKS_H
