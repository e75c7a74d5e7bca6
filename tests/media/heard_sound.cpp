#include "media/heard_sound.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace media_test {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Free {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

std::unique_ptr<AVFormatContext, Free> Open(const std::string& path) {
    AVFormatContext* input = nullptr;
    if (avformat_open_input(&input, path.c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error(path + " is no container");
    }
    return std::unique_ptr<AVFormatContext, Free>(input);
}

} // namespace

HeardSound::HeardSound(const std::string& path, size_t stream) {
    const auto input = Open(path);
    const AVStream& from = *input->streams[stream];
    const std::unique_ptr<AVCodecContext, Free> codec(
        avcodec_alloc_context3(avcodec_find_decoder(from.codecpar->codec_id)));
    const std::unique_ptr<AVPacket, Free> packet(av_packet_alloc());
    const std::unique_ptr<AVFrame, Free> frame(av_frame_alloc());
    avcodec_parameters_to_context(codec.get(), from.codecpar);
    codec->pkt_timebase = from.time_base;
    if (avcodec_open2(codec.get(), nullptr, nullptr) < 0 || codec->sample_fmt != AV_SAMPLE_FMT_FLTP) {
        throw std::runtime_error(path + ": that stream is no AAC");
    }
    m_rate = codec->sample_rate;
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == from.index && avcodec_send_packet(codec.get(), packet.get()) < 0) {
            throw std::runtime_error(path + ": has a packet that does not decode");
        }
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(codec.get(), frame.get()) >= 0) {
            const auto* const samples = reinterpret_cast<const float*>(frame->data[0]);
            m_pieces.push_back({av_rescale_q(frame->pts, from.time_base, {1, m_rate}),
                                {samples, samples + frame->nb_samples}});
        }
    }
}

template <typename Each>
void HeardSound::ForEach(double from, double to, Each each) const {
    const auto first = static_cast<int64_t>(std::ceil(from * m_rate));
    const auto end = static_cast<int64_t>(std::ceil(to * m_rate));
    for (const Piece& piece : m_pieces) {
        for (size_t i = 0; i < piece.samples.size(); ++i) {
            const int64_t time = piece.time + static_cast<int64_t>(i);
            if (time >= first && time < end) {
                each(time, static_cast<double>(piece.samples[i]));
            }
        }
    }
}

double HeardSound::Peak(double from, double to) const {
    double peak = 0;
    ForEach(from, to, [&peak](int64_t, double sample) { peak = std::max(peak, std::abs(sample)); });
    return peak;
}

double HeardSound::Tone(double frequency, double from, double to) const {
    double in = 0;
    double out = 0;
    size_t count = 0;
    ForEach(from, to, [&](int64_t time, double sample) {
        const double angle = 2 * kPi * frequency * static_cast<double>(time) / m_rate;
        in += sample * std::cos(angle);
        out += sample * std::sin(angle);
        ++count;
    });
    return count == 0 ? 0 : 2 * std::hypot(in, out) / static_cast<double>(count);
}

double HeardSound::FirstLouder(double than, double from) const {
    double found = -1;
    ForEach(from, 1e9, [&](int64_t time, double sample) {
        found = found < 0 && std::abs(sample) > than ? static_cast<double>(time) / m_rate : found;
    });
    return found;
}

double HeardSound::LastLouder(double than, double before) const {
    double found = -1;
    ForEach(0, before, [&](int64_t time, double sample) {
        found = std::abs(sample) > than ? static_cast<double>(time) / m_rate : found;
    });
    return found;
}

} // namespace media_test
