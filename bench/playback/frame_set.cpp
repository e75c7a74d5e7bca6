#include "playback/frame_set.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <memory>

#include "playback/container_writer.h"
#include "sample_recorder/media_source.h"
#include "sample_recorder/partition_image.h"
#include "sample_recorder/recorder.h"

namespace playback_bench {

namespace {

using sample_recorder::Error;
using sample_recorder::Frame;

constexpr uint32_t kBlockSize = 0x800000;
constexpr const char* kClipDuration = ":duration=10";
constexpr uint32_t kBitrateParts = 15;
constexpr uint32_t kStart = 1700000000;

struct Camera {
    const char* name;
    const char* size;
    uint32_t framesPerSecond;
    uint32_t bitrateParts;  ///< of the fifteen that all cameras have together
    const char* soundCodec; ///< null: no microphone
    uint32_t soundRate;
    uint32_t soundFrameBytes;
};

constexpr std::array<Camera, 4> kCameras = {{
    {"front", "1920x1080", 25, 8, "pcm_alaw", 8000, 320},
    {"rear", "1280x720", 25, 4, nullptr, 0, 0},
    {"saloon", "1280x720", 15, 2, "pcm_s16le", 16000, 1280},
    {"door", "704x576", 10, 1, nullptr, 0, 0},
}};

std::string ClipOf(const FrameSet& set, const Camera& camera, bool audio) {
    return set.File(camera.name) + (audio ? ".wav" : ".h264");
}

void RunFfmpeg(std::vector<std::string> arguments) {
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    pid_t child = -1;
    int status = -1;
    if (posix_spawnp(&child, "ffmpeg", nullptr, nullptr, words.data(), environ) != 0 ||
        waitpid(child, &status, 0) != child || status != 0) {
        throw Error("ffmpeg cannot make " + arguments.back());
    }
}

/// A moving test picture with a camera's noise.
void MakeClip(const FrameSet& set, const Camera& camera) {
    const std::string rate = std::to_string(camera.framesPerSecond);
    const std::string bitrate = std::to_string(set.recipe.bitrate * camera.bitrateParts / kBitrateParts);
    RunFfmpeg({"ffmpeg",
               "-nostdin",
               "-loglevel",
               "error",
               "-f",
               "lavfi",
               "-i",
               std::string("testsrc2=size=") + camera.size + ":rate=" + rate + kClipDuration,
               "-vf",
               "noise=alls=6:allf=t",
               "-c:v",
               "libx264",
               "-preset",
               "ultrafast",
               "-bf",
               "0",
               "-g",
               std::to_string(2 * camera.framesPerSecond),
               "-b:v",
               bitrate + "k",
               "-f",
               "h264",
               ClipOf(set, camera, false)});
}

/// A rising and falling tone.
void MakeSound(const FrameSet& set, const Camera& camera) {
    RunFfmpeg(
        {"ffmpeg", "-nostdin", "-loglevel", "error", "-f", "lavfi", "-i",
         "aevalsrc=0.3*sin(2*PI*t*(440+220*sin(t/2))):s=" + std::to_string(camera.soundRate) + kClipDuration,
         "-ac", "1", "-c:a", camera.soundCodec, "-f", "wav", ClipOf(set, camera, true)});
}

void MakeClips(const FrameSet& set) {
    for (const Stream& stream : set.Streams()) {
        const Camera& camera = kCameras.at(stream.channel);
        if (stream.audio) {
            MakeSound(set, camera);
        } else {
            MakeClip(set, camera);
        }
    }
}

/// The cameras at work.
class Cameras {
public:
    explicit Cameras(const FrameSet& set) {
        const sample_recorder::RecordingSpan span = {kStart, 1000000};
        for (const Stream& stream : set.Streams()) {
            const Camera& camera = kCameras.at(stream.channel);
            const std::string clip = ClipOf(set, camera, stream.audio);
            ChnProp_t& properties = m_settings.properties.at(stream.channel);
            m_source.Add(stream.audio ? sample_recorder::OpenAudio(clip, stream.channel,
                                                                   camera.soundFrameBytes, span, properties)
                                      : sample_recorder::OpenVideo(clip, stream.channel,
                                                                   camera.framesPerSecond, span, properties));
            m_settings.channels |= 1u << stream.channel;
        }
    }

    const sample_recorder::RecorderSettings& Settings() const { return m_settings; }

    Frame Next() {
        Frame frame;
        if (!m_source.Next(frame)) {
            throw Error("the cameras stopped too early");
        }
        return frame;
    }

private:
    sample_recorder::MergedSource m_source;
    sample_recorder::RecorderSettings m_settings;
};

/// The same frames in files of libavformat's.
class Containers {
public:
    explicit Containers(const FrameSet& set) : m_streams(set.Streams()) {
        std::vector<const Codec*> codecs;
        for (const Stream& stream : m_streams) {
            m_codecs.push_back(
                std::make_unique<Codec>(ClipOf(set, kCameras.at(stream.channel), stream.audio)));
            codecs.push_back(m_codecs.back().get());
        }
        for (const std::string& ending : set.recipe.containers) {
            m_writers.emplace_back(set.File(ending), codecs);
        }
    }

    void Write(Frame& frame) {
        const size_t stream = StreamOf(frame);
        for (ContainerWriter& writer : m_writers) {
            writer.Write(stream, frame, int64_t{kStart} * 1000000, DurationOf(frame));
        }
    }

    void Finish() {
        for (ContainerWriter& writer : m_writers) {
            writer.Finish();
        }
    }

private:
    static int64_t DurationOf(const Frame& frame) {
        const Camera& camera = kCameras.at(frame.channel);
        return frame.type != sample_recorder::kAudio ? 1000000 / camera.framesPerSecond : 0;
    }

    size_t StreamOf(const Frame& frame) const {
        const bool audio = frame.type == sample_recorder::kAudio;
        size_t stream = 0;
        while (m_streams[stream].channel != frame.channel || m_streams[stream].audio != audio) {
            ++stream;
        }
        return stream;
    }

    std::vector<Stream> m_streams;
    std::vector<std::unique_ptr<Codec>> m_codecs;
    std::vector<ContainerWriter> m_writers;
};

sample_recorder::PartitionImage MakePartition(const FrameSet& set) {
    sample_recorder::Format format;
    format.blockSize = kBlockSize;
    // Frame heads, index areas and what is left over at each block's end take less than one in fifty.
    format.blockCount = static_cast<uint32_t>(set.recipe.leastSize / 49 * 50 / kBlockSize) + 2;
    return sample_recorder::PartitionImage::Create(set.File("img"), format);
}

/// Writes a file out, and reads it once: what is measured later is neither the disk nor the writing to it.
void SettleInPageCache(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || fdatasync(fd) != 0) {
        throw Error(path + ": cannot be written out");
    }
    std::vector<char> buffer(0x100000);
    while (read(fd, buffer.data(), buffer.size()) > 0) {
    }
    close(fd);
}

} // namespace

PartAccess_t FrameSet::Partition() const {
    PartAccess_t access = {};
    access.DiskType = 1;
    const std::string path = File("img");
    if (path.size() >= sizeof access.PartName) {
        throw Error(path + ": the path is too long for a partition's name");
    }
    path.copy(access.PartName, sizeof access.PartName);
    return access;
}

std::vector<Stream> FrameSet::Streams() const {
    std::vector<Stream> streams;
    for (const bool audio : {false, true}) {
        for (uint32_t channel = 0; channel < kCameras.size(); ++channel) {
            if (!audio || (recipe.sound && kCameras[channel].soundCodec != nullptr)) {
                streams.push_back({channel, audio});
            }
        }
    }
    return streams;
}

void MakeSet(FrameSet& set) {
    MakeClips(set);
    Cameras cameras(set);
    Containers containers(set);
    auto image = MakePartition(set);
    sample_recorder::Recorder recorder(image, cameras.Settings());
    set.start = int64_t{kStart} * 1000000;
    while (set.bytes < set.recipe.leastSize) {
        Frame frame = cameras.Next();
        recorder.Write(frame);
        containers.Write(frame);
        ++set.frames;
        set.bytes += frame.payload.size();
        set.end = frame.pts;
    }
    recorder.PowerOff();
    containers.Finish();
    SettleInPageCache(set.File("img"));
    for (const std::string& ending : set.recipe.containers) {
        SettleInPageCache(set.File(ending));
    }
}

} // namespace playback_bench
