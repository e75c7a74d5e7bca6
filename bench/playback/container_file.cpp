#include "playback/container_file.h"

#include "sample_recorder/partition_image.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace playback_bench {

void ContainerFile::Close::operator()(AVFormatContext* input) const {
    avformat_close_input(&input);
}

void ContainerFile::Free::operator()(AVPacket* packet) const {
    av_packet_free(&packet);
}

ContainerFile::ContainerFile(const std::string& path, bool parsers, std::optional<size_t> stream)
    : m_packet(av_packet_alloc()), m_stream(stream) {
    AVFormatContext* input = avformat_alloc_context();
    if (!parsers) {
        input->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    }
    if (avformat_open_input(&input, path.c_str(), nullptr, nullptr) < 0) {
        throw sample_recorder::Error(path + ": libavformat cannot open it");
    }
    m_input.reset(input);
    if (parsers && avformat_find_stream_info(input, nullptr) < 0) {
        throw sample_recorder::Error(path + ": libavformat cannot read it");
    }
    for (size_t i = 0; stream && i < input->nb_streams; ++i) {
        input->streams[i]->discard = i == *stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
}

const AVPacket* ContainerFile::Next() {
    // What was looked at while opening comes too, of streams not wanted as well.
    do {
        av_packet_unref(m_packet.get());
        if (av_read_frame(m_input.get(), m_packet.get()) < 0) {
            return nullptr;
        }
    } while (m_stream && static_cast<size_t>(m_packet->stream_index) != *m_stream);
    return m_packet.get();
}

bool ContainerFile::Seek(size_t stream, int64_t micros) {
    const AVStream& wanted = *m_input->streams[stream];
    int64_t time = av_rescale_q(micros, {1, 1000000}, wanted.time_base);
    if (wanted.start_time != AV_NOPTS_VALUE) {
        time += wanted.start_time;
    }
    return av_seek_frame(m_input.get(), static_cast<int>(stream), time, AVSEEK_FLAG_BACKWARD) >= 0;
}

} // namespace playback_bench
