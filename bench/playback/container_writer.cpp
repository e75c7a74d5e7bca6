#include "playback/container_writer.h"

#include "sample_recorder/partition_image.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace playback_bench {

namespace {

constexpr AVRational kMicroseconds = {1, 1000000};

struct CloseInput {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};

} // namespace

void Codec::Free::operator()(AVCodecParameters* parameters) const {
    avcodec_parameters_free(&parameters);
}

Codec::Codec(const std::string& path) : m_parameters(avcodec_parameters_alloc()) {
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) < 0) {
        throw sample_recorder::Error(path + ": cannot be opened as video or audio");
    }
    const std::unique_ptr<AVFormatContext, CloseInput> input(opened);
    if (avformat_find_stream_info(opened, nullptr) < 0 || opened->nb_streams != 1 ||
        avcodec_parameters_copy(m_parameters.get(), opened->streams[0]->codecpar) < 0) {
        throw sample_recorder::Error(path + ": cannot be read as video or audio");
    }
    m_parameters->codec_tag = 0; // each container has its own
}

void ContainerWriter::Close::operator()(AVFormatContext* output) const {
    avio_closep(&output->pb);
    avformat_free_context(output);
}

void ContainerWriter::Free::operator()(AVPacket* packet) const {
    av_packet_free(&packet);
}

ContainerWriter::ContainerWriter(const std::string& path, const std::vector<const Codec*>& streams)
    : m_path(path), m_packet(av_packet_alloc()) {
    AVFormatContext* output = nullptr;
    Check(avformat_alloc_output_context2(&output, nullptr, nullptr, path.c_str()));
    m_output.reset(output);
    for (const Codec* codec : streams) {
        AVStream* const stream = avformat_new_stream(output, nullptr);
        Check(stream == nullptr ? AVERROR(ENOMEM)
                                : avcodec_parameters_copy(stream->codecpar, &codec->Parameters()));
        stream->time_base = kMicroseconds;
    }
    Check(avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE));
    Check(avformat_write_header(output, nullptr));
}

void ContainerWriter::Write(size_t stream, sample_recorder::Frame& frame, int64_t start, int64_t duration) {
    const AVRational timeBase = m_output->streams[stream]->time_base;
    AVPacket& packet = *m_packet;
    packet.data = frame.payload.data();
    packet.size = static_cast<int>(frame.payload.size());
    packet.stream_index = static_cast<int>(stream);
    packet.pts = packet.dts = av_rescale_q(frame.pts - start, kMicroseconds, timeBase);
    packet.duration = av_rescale_q(duration, kMicroseconds, timeBase);
    packet.flags = frame.type != sample_recorder::kVideoP ? AV_PKT_FLAG_KEY : 0;
    Check(av_write_frame(m_output.get(), &packet));
}

void ContainerWriter::Finish() {
    Check(av_write_trailer(m_output.get()));
    Check(avio_closep(&m_output->pb));
}

void ContainerWriter::Check(int result) const {
    if (result < 0) {
        char reason[AV_ERROR_MAX_STRING_SIZE];
        av_strerror(result, reason, sizeof reason);
        throw sample_recorder::Error(m_path + ": cannot be written: " + reason);
    }
}

} // namespace playback_bench
