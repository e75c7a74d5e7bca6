#ifndef MEDIA_SINK_H
#define MEDIA_SINK_H

/// @file sink.h
/// Where exported frames go.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "media/output_file.h"
#include "media/track.h"
#include "recordings/frame.h"

namespace media {

class SoundDecoder;

/// What kind of files an export makes.
enum class Container : uint8_t {
    Raw,      ///< a file a track: the payloads one after the other
    Matroska, ///< one file with all tracks
    Mp4       ///< the same
};

/// "raw", "matroska", "mp4"
const char* NameOf(Container container);

/// Why frames are in no file.
enum class LeftOutReason : uint8_t {
    EncodingUnknown,   ///< a container must name the encoding, and nothing tells it
    NotForContainer,   ///< the container cannot hold the encoding
    NoPictureSize,     ///< the first key frame does not say how large the picture is
    TrackBegunTooLate, ///< the container's tracks were laid down when its first frame came
    FrameTooLarge      ///< no container's frames can be as large
};

/// "encoding_unknown", ...
const char* NameOf(LeftOutReason reason);
/// In plain English.
std::string Describe(LeftOutReason reason, Container container, const Track& track);

/// The last frame of a track.
struct LastFrame {
    int64_t time = 0;  ///< as Frame::time
    uint32_t size = 0; ///< bytes
};

/// How much is to come, as far as it can be known before everything is read. It may be wrong: files are right all the
/// same, but take longer to finish.
struct Estimate {
    uint64_t bytes = 0;                               ///< of payload, with 20 bytes or more for each frame
    uint64_t keyFrames = 0;                           ///< of video
    std::vector<std::optional<LastFrame>> lastFrames; ///< of each track
    uint64_t seconds = 0;                             ///< in which there are frames
    std::optional<int64_t> textEnd = {};              ///< the sink's own: where a text track ends
};

/// An event, as containers show it.
struct Chapter {
    int64_t time = 0; ///< time stamp, microseconds on the recorder's clock
    std::string title;
    uint32_t block = 0; ///< that the event lies in
};

/// Players show a list of chapters whole: more than this would be of no use to anyone.
constexpr size_t kMostChapters = 1000;

/// What a container says of itself.
struct ContainerFacts {
    std::string title;
    std::string comment;
    std::string startTime;         ///< RFC 3339, true time
    int64_t start = 0;             ///< time stamp that becomes zero
    std::vector<Chapter> chapters; ///< the first kMostChapters are taken
    /// What a text track says of a time stamp's second, beside the channels; empty: there is no such track.
    std::function<std::string(int64_t)> clockText;
};

/// Frames of a track that have something in common.
struct NotedFrames {
    uint32_t channel = 0;
    uint32_t block = 0; ///< of the first
    uint64_t count = 0;
    int64_t time = 0; ///< of the first

    void Add(const recordings::Frame& frame);
};

/// A stretch in which a container's time follows the recorder's clock: up to where that was set.
struct ClockSegment {
    int64_t place = 0; ///< where it begins in the container, microseconds
    int64_t time = 0;  ///< time stamp that lies there
};

/// Takes the frames of tracks and makes files of them.
class Sink {
public:
    virtual ~Sink() = default;

    /// Why a track cannot be taken at any time, by a frame of it with its payload; of video a key frame.
    virtual std::optional<LeftOutReason> Refusal(const Track& track,
                                                 const recordings::Frame& frame) const = 0;
    /// Makes room for a track, unless it is refused. Sets the track's output, and how it is encoded in the file.
    /// @param first as for Refusal()
    virtual std::optional<LeftOutReason> Add(Track& track, const recordings::Frame& first) = 0;
    /// Whether a track is still encoded as it was when it was added; in doubt it is.
    /// @param index the track, counted in the order they were taken in
    /// @param now what the frame tells the track to be
    /// @param frame of audio, or a key frame
    virtual bool Continues(size_t index, const Track& now, const recordings::Frame& frame) const = 0;
    /// Called once, after the tracks that are known from the start were added.
    /// @throws Error
    virtual void Start(const ContainerFacts& /*facts*/, const std::optional<Estimate>& /*estimate*/) {}
    /// The longest time from one frame of a track to the next that the file can show, in microseconds. Known when it is
    /// started.
    virtual int64_t LargestGap() const { return INT64_MAX; }
    /// Bytes that a frame may have at most.
    virtual uint32_t LargestFrame() const { return 0xFFFFFFFF; }
    /// @param index the track, counted in the order they were taken in
    /// @throws Error
    virtual void Write(size_t index, const recordings::Frame& frame) = 0;
    /// Writes what files end with. They can then be completed.
    /// @throws Error
    virtual void Finish() = 0;
    /// How the files' time follows the recorder's clock, so far; none for files without times.
    virtual const std::vector<ClockSegment>& Segments() const = 0;
    /// Frames that are in no file, because they could not be decoded to be encoded.
    virtual std::vector<NotedFrames> NotDecoded() const { return {}; }
};

/// Elementary streams: NAME-ch0.h264, NAME-ch0.alaw. Takes every track, at any time.
/// @param outputs must outlive the sink
std::unique_ptr<Sink> MakeRawSink(const std::string& name, Outputs& outputs);

/// The name of a track's file in an export of elementary streams.
/// @param number tells files apart that would get the same name: 2 for the second
std::string RawFileName(const std::string& name, const Track& track, size_t number = 1);

/// All names that files of elementary streams may get.
/// @param audio where it is known better than the disk does
std::vector<std::string> PossibleRawFiles(const std::string& name, recordings::ChannelSet channels,
                                          const AudioCodecs& audio);

/// Whether containers can be written: libavformat was there when the library was built.
bool ContainersSupported();

/// One Matroska or MP4 file. The same frames and facts make the same bytes. Tracks that are added after Start() are
/// refused.
/// @param outputs must outlive the sink
/// @param output the file's number among the outputs
/// @param sound decodes the sound that MP4 cannot hold, which is then encoded as AAC; null: it is refused. Must outlive
///              the sink
/// @throws Error (NoContainers)
std::unique_ptr<Sink> MakeContainerSink(const std::string& path, Container container, Outputs& outputs,
                                        size_t output = 0, SoundDecoder* sound = nullptr);

/// One Matroska file to a stream, which may be a pipe: it is written from its start to its end, without an index of its key
/// frames. Its chapters lie where they belong if the recorder's clock was not set.
/// @param name of the stream, for messages
/// @param stream see Outputs::MakeStream()
/// @throws Error (NoContainers)
std::unique_ptr<Sink> MakeStreamSink(const std::string& name, int stream, Outputs& outputs);

/// A name with something before its ending: "journey-ch0.mkv" for "journey.mkv" and "-ch0".
std::string SuffixedName(const std::string& path, const std::string& suffix);

/// The name of another container of an export: "journey-2.mkv" beside "journey.mkv".
std::string PartName(const std::string& path, size_t number);

/// Keeps libavformat's own messages from standard error, in the whole process: what matters comes as an Error. For
/// programs that use it nowhere else.
void QuietContainers();

/// The same for as long as there is one, of any thread; then messages are as they were. For programs that use libavformat
/// elsewhere too.
class QuietPeriod {
public:
    QuietPeriod();
    ~QuietPeriod(); // NOLINT(performance-trivially-destructible): it is only where there is no libavformat
    QuietPeriod(const QuietPeriod&) = delete;
    QuietPeriod& operator=(const QuietPeriod&) = delete;
};

} // namespace media

#endif // MEDIA_SINK_H
