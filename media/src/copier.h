#ifndef MEDIA_SRC_COPIER_H
#define MEDIA_SRC_COPIER_H

#include <cstddef>
#include <map>
#include <optional>
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

    /// Has the sink take a track, whose frames go there from now on.
    /// @param first a frame that shows what it is
    /// @return whether it has
    bool AddTrack(const Track& track, const recordings::Frame& first);
    /// The same with another sink, which must outlive the object.
    bool AddTrack(const Track& track, const recordings::Frame& first, Sink& sink);
    /// The same, but frames go there only when Follow() finds that they belong there.
    void PrepareTrack(const Track& track, const recordings::Frame& first, Sink& sink);
    /// Leaves a track's frames out from now on.
    void Refuse(const Track& track, LeftOutReason reason);
    /// Has the frames of a track go where their encoding belongs, from a frame on that may show another one: to the place
    /// where they go now, or one that was prepared.
    /// @param now what the frame tells the track to be
    /// @return false when none of them is right
    bool Follow(const Track& now, const recordings::Frame& frame);
    /// The same, but leaves the place where they go now: a frame comes too late for its file.
    /// @return false when no other was prepared
    bool GoOn(const Track& now, const recordings::Frame& frame);
    /// Whether a track has no place that Follow() would find.
    bool IsNew(const Track& track, const recordings::Frame& frame) const;
    bool Knows(const TrackKey& key) const { return m_places.count(key) != 0; }
    /// Says which time stamp a file's time begins with.
    void Begin(const Sink& sink, int64_t start) { m_latest.emplace(&sink, start); }
    /// The latest time stamp in the file where a track's frames go now, or its beginning; nothing when it has not begun.
    std::optional<int64_t> LatestBeside(const TrackKey& key) const;
    /// @param frame of a track that was added
    void Copy(const recordings::Frame& frame);

    /// Frames of a track that have the time of the frame before, or an earlier one, though the clock was not set.
    std::vector<NotedFrames> AllCollisions() const;

    std::vector<Track>& Tracks() { return m_tracks; }
    /// Frames that the sink did not take.
    std::vector<LeftOut>& Refused() { return m_leftOut; }

private:
    /// Where the frames of a track go.
    struct Place {
        Track track;          ///< as it was added
        Sink* sink = nullptr; ///< null: they are left out
        size_t index = 0;     ///< of the track in the sink
        size_t entry = 0;     ///< of the tracks, or of what is left out
    };
    /// Where they go, and where they went before.
    struct Places {
        std::vector<Place> all;
        size_t current = 0;
        std::optional<int64_t> last; ///< time stamp
        NotedFrames collisions;
    };

    static void Compare(Places& places, const recordings::Frame& frame);
    bool FollowFrom(size_t first, const Track& now, const recordings::Frame& frame);
    static bool Belongs(const Place& place, const Track& now, const recordings::Frame& frame);
    Place Add(const Track& track, const recordings::Frame& first, Sink& sink);
    void LeaveOut(const Track& track, LeftOutReason reason);
    void LeaveOutTooLarge(const Track& track);

    Sink& m_sink;
    Container m_container;
    std::map<TrackKey, Places> m_places;
    std::map<const Sink*, size_t> m_taken;   ///< tracks
    std::map<const Sink*, int64_t> m_latest; ///< time stamps of what they hold
    std::vector<Track> m_tracks;
    std::vector<LeftOut> m_leftOut;
};

} // namespace media

#endif // MEDIA_SRC_COPIER_H
