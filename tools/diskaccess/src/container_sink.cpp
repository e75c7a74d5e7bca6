// Matroska and MP4 files, by libavformat. Payloads are copied, never transcoded.

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include <fmt/format.h>

#include "cli/failure.h"
#include "outputs.h"
#include "sink.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace diskaccess {

namespace {

constexpr AVRational kMicroseconds = {1, 1000000};
constexpr int kIoBufferSize = 0x40000;
/// A longer step back than this is no jitter: the recorder's clock was set.
constexpr int64_t kClockSet = 1000000;
/// From the last frame before the clock was set to the first behind it, where a track's own pace is not known.
constexpr int64_t kUsualInterval = 40000;

std::string ErrorText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

struct FreeContext {
    void operator()(AVFormatContext* context) const {
        if (context->pb != nullptr) {
            av_freep(&context->pb->buffer);
            avio_context_free(&context->pb);
        }
        avformat_free_context(context);
    }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeFilter {
    void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
};
struct FreeCodec {
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
struct CloseParser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};
using Packet = std::unique_ptr<AVPacket, FreePacket>;

/// A packet of its own memory, as parsers and filters want it.
Packet MakePacket(const PlacedFrame& frame) {
    Packet packet(av_packet_alloc());
    if (!packet || av_new_packet(packet.get(), static_cast<int>(frame.head.len)) < 0) {
        throw std::bad_alloc();
    }
    std::copy_n(frame.payload.Data(), frame.head.len, packet->data);
    return packet;
}

/// Takes the parameter sets out of a key frame: containers keep them once, at their beginning.
bool TakeParameterSets(const PlacedFrame& keyFrame, AVCodecParameters& parameters) {
    AVBSFContext* made = nullptr;
    const AVBitStreamFilter* const kind = av_bsf_get_by_name("extract_extradata");
    if (kind == nullptr || av_bsf_alloc(kind, &made) < 0) {
        return false;
    }
    const std::unique_ptr<AVBSFContext, FreeFilter> filter(made);
    const Packet packet = MakePacket(keyFrame);
    if (avcodec_parameters_copy(filter->par_in, &parameters) < 0 || av_bsf_init(filter.get()) < 0 ||
        av_bsf_send_packet(filter.get(), packet.get()) < 0 ||
        av_bsf_receive_packet(filter.get(), packet.get()) < 0) {
        return false;
    }
    size_t size = 0;
    const uint8_t* const sets = av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (sets == nullptr) {
        return false;
    }
    parameters.extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters.extradata == nullptr) {
        return false;
    }
    std::copy_n(sets, size, parameters.extradata);
    parameters.extradata_size = static_cast<int>(size);
    return true;
}

/// Reads the picture's size out of a key frame.
bool TakePictureSize(const PlacedFrame& keyFrame, AVCodecParameters& parameters) {
    const std::unique_ptr<AVCodecParserContext, CloseParser> parser(av_parser_init(parameters.codec_id));
    const std::unique_ptr<AVCodecContext, FreeCodec> codec(avcodec_alloc_context3(nullptr));
    if (!parser || !codec) {
        return false;
    }
    codec->codec_id = parameters.codec_id;
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    const Packet packet = MakePacket(keyFrame);
    uint8_t* out = nullptr;
    int outSize = 0;
    av_parser_parse2(parser.get(), codec.get(), &out, &outSize, packet->data, packet->size, AV_NOPTS_VALUE,
                     AV_NOPTS_VALUE, 0);
    parameters.width = parser->width;
    parameters.height = parser->height;
    return parser->width > 0 && parser->height > 0;
}

class ContainerSink : public Sink {
public:
    ContainerSink(const std::string& path, const std::string& container, const ContainerFacts& facts,
                  Outputs& outputs)
        : m_file(outputs.Make(path)), m_start(facts.start) {
        av_log_set_level(AV_LOG_FATAL); // what matters comes back as an error
        AVFormatContext* context = nullptr;
        Check(avformat_alloc_output_context2(&context, nullptr, container.c_str(), nullptr));
        m_context.reset(context);
        auto* const buffer = static_cast<unsigned char*>(av_malloc(kIoBufferSize));
        context->pb = avio_alloc_context(buffer, kIoBufferSize, 1, this, nullptr, WritePacket, Seek);
        context->flags |= AVFMT_FLAG_CUSTOM_IO;
        av_dict_set(&context->metadata, "title", facts.title.c_str(), 0);
        av_dict_set(&context->metadata, "comment", facts.comment.c_str(), 0);
        av_dict_set(&context->metadata, "creation_time", facts.startTime.c_str(), 0);
        for (size_t i = 0; i < facts.chapters.size(); ++i) {
            AddChapter(facts.chapters, i);
        }
    }

    bool Add(Track& track, const PlacedFrame& first, std::string& why) override {
        if (m_started) {
            why = "it begins after the file's tracks were laid down";
            return false;
        }
        const AVCodecID codec = CodecOf(track);
        if (codec == AV_CODEC_ID_NONE) {
            why = track.isVideo ? "its encoding is not known: use --raw"
                                : "its encoding is not known: give --audio CODEC:RATE, or use --raw";
            return false;
        }
        // A-law in Matroska goes by the name it has in WAV files; every player knows it.
        if (avformat_query_codec(m_context->oformat, codec, FF_COMPLIANCE_UNOFFICIAL) != 1) {
            why = fmt::format("{} cannot hold {}: use Matroska or --raw", m_context->oformat->name,
                              track.Codec());
            return false;
        }
        AVCodecParameters* parameters = avcodec_parameters_alloc();
        parameters->codec_id = codec;
        const bool complete = track.isVideo ? FillVideo(*parameters, first) : FillAudio(*parameters, track);
        if (complete) {
            AVStream* const stream = avformat_new_stream(m_context.get(), nullptr);
            avcodec_parameters_copy(stream->codecpar, parameters);
            stream->time_base = kMicroseconds;
            stream->id = static_cast<int>(track.channel);
            av_dict_set(&stream->metadata, "title", fmt::format("channel {}", track.channel).c_str(), 0);
            m_lastTime.push_back(INT64_MIN);
            m_interval.push_back(kUsualInterval);
            m_lastDts.push_back(-1);
        }
        avcodec_parameters_free(&parameters);
        if (!complete) {
            why = "its first key frame does not say how large the picture is: use --raw";
        }
        return complete;
    }

    void Start() override {
        m_started = true;
        Check(avformat_write_header(m_context.get(), nullptr));
    }

    void Write(size_t index, const PlacedFrame& frame) override {
        const AVStream* const stream = m_context->streams[index];
        // No memory of its own: libavformat copies what it must keep.
        m_packet->data = const_cast<uint8_t*>(frame.payload.Data());
        m_packet->size = static_cast<int>(frame.head.len);
        m_packet->stream_index = static_cast<int>(index);
        m_packet->flags = frame.head.type == 0 ? 0 : AV_PKT_FLAG_KEY;
        m_packet->pts = av_rescale_q(TimeOf(index, frame.head.pts), kMicroseconds, stream->time_base);
        m_packet->pts = std::max(m_packet->pts, m_lastDts[index] + 1);
        m_packet->dts = m_packet->pts;
        m_lastDts[index] = m_packet->dts;
        const int written = av_write_frame(m_context.get(), m_packet.get());
        m_packet->data = nullptr;
        Check(written);
    }

    std::vector<Exported> Finish() override {
        Check(av_write_trailer(m_context.get()));
        avio_flush(m_context->pb);
        Check(m_context->pb->error);
        m_file.Complete();
        return {{m_file.Path(), m_file.Size(), m_file.Sha256()}};
    }

private:
    static AVCodecID CodecOf(const Track& track) {
        if (track.isVideo) {
            return track.video == VideoCodec::H264   ? AV_CODEC_ID_H264
                   : track.video == VideoCodec::H265 ? AV_CODEC_ID_HEVC
                                                     : AV_CODEC_ID_NONE;
        }
        const AVCodecDescriptor* const codec = avcodec_descriptor_get_by_name(track.audio.name.c_str());
        return codec == nullptr || codec->type != AVMEDIA_TYPE_AUDIO || !track.audio.Known()
                   ? AV_CODEC_ID_NONE
                   : codec->id;
    }

    static bool FillVideo(AVCodecParameters& parameters, const PlacedFrame& keyFrame) {
        parameters.codec_type = AVMEDIA_TYPE_VIDEO;
        return TakeParameterSets(keyFrame, parameters) && TakePictureSize(keyFrame, parameters);
    }

    static bool FillAudio(AVCodecParameters& parameters, const Track& track) {
        parameters.codec_type = AVMEDIA_TYPE_AUDIO;
        parameters.sample_rate = static_cast<int>(track.audio.samplesASecond);
        parameters.bits_per_coded_sample = av_get_bits_per_sample(parameters.codec_id);
        parameters.block_align = parameters.bits_per_coded_sample / 8;
        av_channel_layout_default(&parameters.ch_layout, 1);
        return true;
    }

    void AddChapter(const std::vector<Chapter>& chapters, size_t i) {
        auto* const chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
        if (chapter == nullptr) {
            throw std::bad_alloc();
        }
        const int64_t start = std::max<int64_t>(chapters[i].time - m_start, 0);
        chapter->id = static_cast<int64_t>(i) + 1;
        chapter->time_base = kMicroseconds;
        chapter->start = start;
        chapter->end = i + 1 < chapters.size() ? std::max(chapters[i + 1].time - m_start, start)
                                               : start + kMicroseconds.den;
        av_dict_set(&chapter->metadata, "title", chapters[i].title.c_str(), 0);
        auto** const list = static_cast<AVChapter**>(
            av_realloc_array(m_context->chapters, m_context->nb_chapters + 1, sizeof(AVChapter*)));
        if (list == nullptr) {
            throw std::bad_alloc();
        }
        m_context->chapters = list;
        list[m_context->nb_chapters++] = chapter;
    }

    /// A frame's place in the file. It follows the recorder's clock; where that was set back, the file goes on.
    int64_t TimeOf(size_t index, int64_t pts) {
        int64_t time = pts - m_start + m_shift;
        if (m_lastTime[index] != INT64_MIN && time + kClockSet < m_lastTime[index]) {
            m_shift += m_latest + m_interval[index] - time;
            time = pts - m_start + m_shift;
        }
        time = std::max<int64_t>(time, 0);
        if (m_lastTime[index] != INT64_MIN && time > m_lastTime[index]) {
            m_interval[index] = std::min(time - m_lastTime[index], kClockSet);
        }
        m_lastTime[index] = time;
        m_latest = std::max(m_latest, time);
        return time;
    }

    void Check(int result) {
        if (m_error) {
            std::rethrow_exception(std::exchange(m_error, nullptr));
        }
        if (result < 0) {
            throw Failure(
                fmt::format("{}: cannot be written: {}; nothing was kept", m_file.Path(), ErrorText(result)));
        }
    }

    // libavformat is C: no exception may pass through it.
    static int WritePacket(void* sink, uint8_t* data, int size) {
        auto& self = *static_cast<ContainerSink*>(sink);
        try {
            self.m_file.Write(data, static_cast<size_t>(size));
            return size;
        } catch (...) {
            self.m_error = std::current_exception();
            return AVERROR(EIO);
        }
    }

    static int64_t Seek(void* sink, int64_t offset, int whence) {
        auto& self = *static_cast<ContainerSink*>(sink);
        if ((whence & AVSEEK_SIZE) != 0) {
            return -1;
        }
        try {
            return self.m_file.Seek(offset, whence & ~AVSEEK_FORCE);
        } catch (...) {
            self.m_error = std::current_exception();
            return AVERROR(EIO);
        }
    }

    OutputFile& m_file;
    std::unique_ptr<AVFormatContext, FreeContext> m_context;
    Packet m_packet{av_packet_alloc()};
    int64_t m_start;
    int64_t m_shift = 0;
    int64_t m_latest = 0;
    // Of each track: where its last frame lies, how long after the one before, and as the container has it.
    std::vector<int64_t> m_lastTime;
    std::vector<int64_t> m_interval;
    std::vector<int64_t> m_lastDts;
    bool m_started = false;
    std::exception_ptr m_error;
};

} // namespace

bool ContainersSupported() {
    return true;
}

std::unique_ptr<Sink> MakeContainerSink(const std::string& path, const std::string& container,
                                        const ContainerFacts& facts, Outputs& outputs) {
    return std::make_unique<ContainerSink>(path, container, facts, outputs);
}

} // namespace diskaccess
