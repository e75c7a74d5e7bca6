#ifndef DISKACCESS_SINK_H
#define DISKACCESS_SINK_H

/// @file sink.h
/// Where exported frames go.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "block_frames.h"
#include "elementary.h"

namespace diskaccess {

class Outputs;

/// One stream of an export: the video or the audio of a channel.
struct Track {
    uint32_t channel = 0;
    bool isVideo = true;
    VideoCodec video = VideoCodec::Unknown;
    AudioCodec audio;

    uint64_t frames = 0;
    uint64_t keyFrames = 0;
    uint64_t bytes = 0; ///< of payload
    int64_t first = 0;  ///< time stamps
    int64_t last = 0;
    size_t output = 0; ///< entry of the outputs

    std::string Codec() const {
        return isVideo ? CodecName(video) : audio.name.empty() ? "unknown" : audio.name;
    }
};

/// A file that an export made.
struct Exported {
    std::string path;
    uint64_t size = 0;
    std::string sha256;
};

/// Takes the frames of tracks and makes files of them.
class Sink {
public:
    virtual ~Sink() = default;
    /// Makes room for a track.
    /// @param first its first frame; of video a key frame
    /// @return false when it cannot be taken; @p why then says so
    virtual bool Add(Track& track, const PlacedFrame& first, std::string& why) = 0;
    /// Called when all tracks have been added, for sinks that must know them first.
    virtual void Start() {}
    /// @param index the track, counted in the order they were added in
    virtual void Write(size_t index, const PlacedFrame& frame) = 0;
    /// Completes the files. They get their names when all outputs do.
    virtual std::vector<Exported> Finish() = 0;
};

/// A file a track, holding the payloads one after the other: NAME-ch0.h264, NAME-ch0.alaw.
std::unique_ptr<Sink> MakeRawSink(const std::string& name, Outputs& outputs);

/// The names of all files that such a sink may come to make.
/// @param givenAudio what the user says of the audio, if anything
std::vector<std::string> PossibleRawFiles(const std::string& name, uint32_t channels,
                                          const AudioCodec& givenAudio);

/// An event, as containers show it.
struct Chapter {
    int64_t time = 0; ///< time stamp of the disk
    std::string title;
};

/// What a container says of itself.
struct ContainerFacts {
    std::string title;
    std::string comment;
    std::string startTime;         ///< RFC 3339, true time
    int64_t start = 0;             ///< time stamp of the disk that becomes zero
    std::vector<Chapter> chapters; ///< in order
};

/// Whether containers can be written: libavformat was there when the program was built.
bool ContainersSupported();

/// One Matroska or MP4 file with all tracks.
/// @param container "matroska" or "mp4"
std::unique_ptr<Sink> MakeContainerSink(const std::string& path, const std::string& container,
                                        const ContainerFacts& facts, Outputs& outputs);

} // namespace diskaccess

#endif // DISKACCESS_SINK_H
