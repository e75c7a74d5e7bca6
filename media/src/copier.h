#ifndef MEDIA_SRC_COPIER_H
#define MEDIA_SRC_COPIER_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "media/exporter.h"
#include "track_key.h"

namespace media {

/// Sends frames to the tracks of a sink, and counts them.
class Copier {
public:
    /// @param sink must outlive the object
    Copier(Sink& sink, Container container) : m_sink(sink), m_container(container) {}

    /// Has the sink take a track.
    /// @param first a frame that shows what it is
    /// @return whether it has
    bool AddTrack(const Track& track, const recordings::Frame& first);
    bool Knows(const TrackKey& key) const { return m_places.count(key) != 0; }
    /// @param frame of a track that was added
    void Copy(const recordings::Frame& frame);

    std::vector<Track>& Tracks() { return m_tracks; }
    /// Frames that the sink did not take.
    std::vector<LeftOut>& Refused() { return m_leftOut; }

private:
    /// Where the frames of a track go.
    struct Place {
        bool isTaken = false;
        size_t entry = 0; ///< of the tracks, or of what is left out
    };

    void LeaveOut(const Track& track, LeftOutReason reason, uint64_t frames);
    void LeaveOutTooLarge(const Track& track);

    Sink& m_sink;
    Container m_container;
    std::map<TrackKey, Place> m_places;
    std::vector<Track> m_tracks;
    std::vector<LeftOut> m_leftOut;
};

} // namespace media

#endif // MEDIA_SRC_COPIER_H
