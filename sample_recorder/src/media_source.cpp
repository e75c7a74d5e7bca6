#include "sample_recorder/media_source.h"

#include <utility>
#include <vector>

#include "sample_recorder/partition_image.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace sample_recorder {

namespace {

struct CloseInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

/// The packets of one kind of stream in a file.
class PacketReader {
public:
    PacketReader(std::string path, AVMediaType kind)
        : m_path(std::move(path)), m_kind(kind), m_packet(av_packet_alloc()) {
        Open();
    }

    const AVCodecParameters& Codec() const { return *m_input->streams[m_stream]->codecpar; }
    const char* FormatName() const { return m_input->iformat->name; }

    /// The next packet, or null at the file's end. Valid until the next call.
    const AVPacket* Next() {
        av_packet_unref(m_packet.get());
        while (av_read_frame(m_input.get(), m_packet.get()) >= 0) {
            if (m_packet->stream_index == m_stream) {
                return m_packet.get();
            }
            av_packet_unref(m_packet.get());
        }
        return nullptr;
    }

    void Rewind() { Open(); }

private:
    void Open() {
        AVFormatContext* input = nullptr;
        const int opened = avformat_open_input(&input, m_path.c_str(), nullptr, nullptr);
        if (opened < 0) {
            char reason[AV_ERROR_MAX_STRING_SIZE];
            av_strerror(opened, reason, sizeof reason);
            throw Error(m_path + ": cannot be opened: " + reason);
        }
        m_input.reset(input);
        if (avformat_find_stream_info(input, nullptr) < 0) {
            throw Error(m_path + ": cannot be read as video or audio");
        }
        m_stream = av_find_best_stream(input, m_kind, -1, -1, nullptr, 0);
        if (m_stream < 0) {
            throw Error(m_path + ": holds no " + av_get_media_type_string(m_kind));
        }
    }

    std::string m_path;
    AVMediaType m_kind;
    std::unique_ptr<AVFormatContext, CloseInput> m_input;
    std::unique_ptr<AVPacket, FreePacket> m_packet;
    int m_stream = -1;
};

/// Repeats a file's packets for as long as a recording lasts.
class RepeatedPackets {
public:
    explicit RepeatedPackets(PacketReader reader) : m_reader(std::move(reader)) {}

    const AVPacket& Next() {
        const AVPacket* packet = m_reader.Next();
        if (packet == nullptr) {
            m_reader.Rewind();
            packet = m_reader.Next();
        }
        if (packet == nullptr) {
            throw Error("a file without a single frame cannot be recorded");
        }
        return *packet;
    }

private:
    PacketReader m_reader;
};

class VideoSource : public FrameSource {
public:
    VideoSource(PacketReader reader, uint32_t channel, uint32_t framesPerSecond, const RecordingSpan& span)
        : m_packets(std::move(reader)), m_channel(channel), m_framesPerSecond(framesPerSecond), m_span(span) {
    }

    bool Next(Frame& frame) override {
        const int64_t offset = m_frames * kMicrosPerSecond / m_framesPerSecond;
        if (offset >= int64_t{m_span.seconds} * kMicrosPerSecond) {
            return false;
        }
        const AVPacket& packet = m_packets.Next();
        frame.pts = int64_t{m_span.start} * kMicrosPerSecond + offset;
        frame.type = (packet.flags & AV_PKT_FLAG_KEY) != 0 ? kVideoI : kVideoP;
        frame.channel = m_channel;
        frame.payload.assign(packet.data, packet.data + packet.size);
        ++m_frames;
        return true;
    }

private:
    RepeatedPackets m_packets;
    uint32_t m_channel;
    uint32_t m_framesPerSecond;
    RecordingSpan m_span;
    int64_t m_frames = 0;
};

class AudioSource : public FrameSource {
public:
    AudioSource(PacketReader reader, uint32_t channel, uint32_t frameBytes, uint32_t bytesPerSecond,
                const RecordingSpan& span)
        : m_packets(std::move(reader)), m_channel(channel), m_frameBytes(frameBytes),
          m_bytesPerSecond(bytesPerSecond), m_span(span) {}

    bool Next(Frame& frame) override {
        const int64_t offset = m_bytesDelivered * kMicrosPerSecond / m_bytesPerSecond;
        if (offset >= int64_t{m_span.seconds} * kMicrosPerSecond) {
            return false;
        }
        while (m_pending.size() < m_frameBytes) {
            const AVPacket& packet = m_packets.Next();
            m_pending.insert(m_pending.end(), packet.data, packet.data + packet.size);
        }
        const auto end = m_pending.begin() + m_frameBytes;
        frame.pts = int64_t{m_span.start} * kMicrosPerSecond + offset;
        frame.type = kAudio;
        frame.channel = m_channel;
        frame.payload.assign(m_pending.begin(), end);
        m_pending.erase(m_pending.begin(), end);
        m_bytesDelivered += m_frameBytes;
        return true;
    }

private:
    RepeatedPackets m_packets;
    uint32_t m_channel;
    uint32_t m_frameBytes;
    uint32_t m_bytesPerSecond;
    RecordingSpan m_span;
    int64_t m_bytesDelivered = 0;
    std::vector<uint8_t> m_pending;
};

VideoCode VideoCodeOf(AVCodecID codec) {
    return codec == AV_CODEC_ID_H264 ? kVideoH264 : codec == AV_CODEC_ID_HEVC ? kVideoH265 : kVideoNone;
}

AudioCode AudioCodeOf(AVCodecID codec) {
    switch (codec) {
    case AV_CODEC_ID_PCM_ALAW:
        return kAudioALaw;
    case AV_CODEC_ID_PCM_MULAW:
        return kAudioMuLaw;
    case AV_CODEC_ID_PCM_S16LE:
        return kAudioPcm16;
    default:
        return kAudioNone;
    }
}

ResolutionCode ResolutionCodeOf(int width, int height) {
    const struct {
        int width;
        int height;
        ResolutionCode code;
    } sizes[] = {
        {352, 288, kCif}, {640, 360, k360p}, {704, 576, kD1}, {1280, 720, k720p}, {1920, 1080, k1080p}};
    for (const auto& size : sizes) {
        if (size.width == width && size.height == height) {
            return size.code;
        }
    }
    return kOtherSize;
}

} // namespace

std::unique_ptr<FrameSource> OpenVideo(const std::string& path, uint32_t channel, uint32_t framesPerSecond,
                                       const RecordingSpan& span, ChnProp_t& properties) {
    PacketReader reader(path, AVMEDIA_TYPE_VIDEO);
    const AVCodecParameters& codec = reader.Codec();
    const std::string format = reader.FormatName();
    properties.VType = VideoCodeOf(codec.codec_id);
    if (properties.VType == kVideoNone || (format != "h264" && format != "hevc")) {
        throw Error(path + ": is no H.264 or H.265 elementary stream; make one with: ffmpeg -i " + path +
                    " -an -c:v libx264 -bf 0 -f h264 out.h264");
    }
    properties.FrameRate = static_cast<uint8_t>(framesPerSecond);
    properties.Resolution = ResolutionCodeOf(codec.width, codec.height);
    return std::make_unique<VideoSource>(std::move(reader), channel, framesPerSecond, span);
}

std::unique_ptr<FrameSource> OpenAudio(const std::string& path, uint32_t channel, uint32_t frameBytes,
                                       const RecordingSpan& span, ChnProp_t& properties) {
    PacketReader reader(path, AVMEDIA_TYPE_AUDIO);
    const AVCodecParameters& codec = reader.Codec();
    properties.AType = AudioCodeOf(codec.codec_id);
    if (properties.AType == kAudioNone || codec.ch_layout.nb_channels != 1) {
        throw Error(path +
                    ": is no A-law, mu-law or 16-bit PCM audio of one channel; make it with: ffmpeg -i " +
                    path + " -ac 1 -ar 8000 -c:a pcm_alaw out.wav");
    }
    const int bits = av_get_bits_per_sample(codec.codec_id);
    properties.Sample = static_cast<uint32_t>(codec.sample_rate);
    properties.BitWidth = static_cast<uint32_t>(bits);
    properties.audio_frame_len = frameBytes;
    const auto bytesPerSecond = static_cast<uint32_t>(codec.sample_rate * bits / 8);
    return std::make_unique<AudioSource>(std::move(reader), channel, frameBytes, bytesPerSecond, span);
}

} // namespace sample_recorder
