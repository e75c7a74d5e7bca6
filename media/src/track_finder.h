#ifndef MEDIA_SRC_TRACK_FINDER_H
#define MEDIA_SRC_TRACK_FINDER_H

#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "media/exporter.h"
#include "survey.h"
#include "track_key.h"

namespace media {

/// A track, and a frame that shows what it is.
struct FoundTrack {
    Track track;
    recordings::Frame first;
    std::vector<uint8_t> payload; ///< of that frame
    bool refused = false;         ///< by the container

    /// The frame with its payload.
    recordings::Frame Whole() const;
};

/// Whether a container cannot take a track, by a frame that shows what it is.
using Refuses = std::function<bool(const Track& track, const recordings::Frame& frame)>;

/// The first frame of all tracks, by time.
/// @param tracks one or more
const recordings::Frame& FirstOf(const std::map<TrackKey, FoundTrack>& tracks);

/// Finds out what streams are.
class TrackFinder {
public:
    /// @param givenAudio where it is known better than the disk does
    TrackFinder(const recordings::Disk& disk, const recordings::BlockList& blocks, AudioCodecs givenAudio);

    /// What the track of a frame is. Of video, the frame must be a key frame.
    Track TrackOf(const recordings::Frame& frame) const;
    /// Whether it is known how a block's audio is encoded: a head that is damaged does not tell.
    bool TellsAudio(const recordings::Frame& frame) const;

    /// All tracks of a range: a container must know them before it begins. Where a camera's first key frame is refused,
    /// later ones are tried, in case the first one is damaged.
    std::map<TrackKey, FoundTrack> FindAll(const recordings::FrameQuery& query, const Survey& survey,
                                           const Refuses& refuses, const recordings::Watch& watch) const;

    /// The tracks of one block.
    std::map<TrackKey, FoundTrack> FindInBlock(const recordings::FrameQuery& query, uint32_t block,
                                               const Refuses& refuses, const recordings::Watch& watch) const;

private:
    using Found = std::map<TrackKey, FoundTrack>;

    void FindIn(const Beginning& beginning, const recordings::FrameQuery& query, const Refuses& refuses,
                const recordings::Watch& watch, Found& found) const;
    void TryLaterKeyFrames(const recordings::FrameQuery& query, const Refuses& refuses,
                           const recordings::Watch& watch, Found& found) const;
    void Show(const recordings::Frame& frame, const Refuses& refuses, Found& found) const;

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    AudioCodecs m_givenAudio;
};

} // namespace media

#endif // MEDIA_SRC_TRACK_FINDER_H
