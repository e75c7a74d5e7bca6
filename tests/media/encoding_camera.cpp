#include "media/encoding_camera.h"

#include <stdexcept>

namespace media_test {

EncodingCamera::EncodingCamera(const char* encoder) {
    av_log_set_level(AV_LOG_ERROR);
    const AVCodec* const codec = avcodec_find_encoder_by_name(encoder);
    m_codec.reset(avcodec_alloc_context3(codec));
    m_codec->width = kWidth;
    m_codec->height = kHeight;
    m_codec->pix_fmt = AV_PIX_FMT_YUV420P;
    m_codec->time_base = {1, static_cast<int>(1000000 / kStep)};
    m_codec->gop_size = kDistance;
    m_codec->max_b_frames = 0;
    m_codec->thread_count = 1;
    av_opt_set(m_codec->priv_data, "tune", "zerolatency", 0);
    av_opt_set(m_codec->priv_data, "x265-params",
               "log-level=none:pools=none:frame-threads=1:repeat-headers=1:scenecut=0", 0);
    av_opt_set(m_codec->priv_data, "x264-params", "scenecut=0", 0);
    if (avcodec_open2(m_codec.get(), codec, nullptr) < 0) {
        throw std::runtime_error(encoder);
    }
}

sample_recorder::Frame EncodingCamera::Take(int number) {
    avcodec_send_frame(m_codec.get(), Picture(number).get());
    const media::Packet packet(av_packet_alloc());
    sample_recorder::Frame taken;
    if (avcodec_receive_packet(m_codec.get(), packet.get()) == 0) {
        taken.payload.assign(packet->data, packet->data + packet->size);
        taken.type =
            (packet->flags & AV_PKT_FLAG_KEY) != 0 ? sample_recorder::kVideoI : sample_recorder::kVideoP;
    }
    taken.pts = kStart + number * kStep;
    return taken;
}

media::FramePointer EncodingCamera::Picture(int number) {
    media::FramePointer picture(av_frame_alloc());
    picture->width = kWidth;
    picture->height = kHeight;
    picture->format = AV_PIX_FMT_YUV420P;
    picture->pts = number;
    av_frame_get_buffer(picture.get(), 0);
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? kHeight : kHeight / 2;
        Draw(number, plane, picture->data[plane], picture->linesize[plane] * rows);
    }
    return picture;
}

} // namespace media_test
