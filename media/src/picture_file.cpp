#include <new>

#include "media/error.h"
#include "media/stills.h"
#include "picture_codec.h"

namespace media {

namespace {

/// The best quality that JPEG encoders know, but for one step that makes files twice as large.
constexpr int kJpegQuality = 2;

[[noreturn]] void CannotEncode() {
    throw Error(ErrorKind::CannotMake, "the picture cannot be encoded");
}

/// The picture in the form that an encoder takes.
FramePointer FrameOf(const Picture& picture, AVPixelFormat format) {
    FramePointer frame(av_frame_alloc());
    if (!frame) {
        throw std::bad_alloc();
    }
    frame->width = static_cast<int>(picture.width);
    frame->height = static_cast<int>(picture.height);
    frame->format = format;
    frame->color_range = AVCOL_RANGE_JPEG;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    const Scaler scaler(sws_getContext(frame->width, frame->height, AV_PIX_FMT_RGB24, frame->width,
                                       frame->height, format, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr,
                                       nullptr, nullptr));
    if (!scaler) {
        CannotEncode();
    }
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(SWS_CS_DEFAULT), 1,
                             sws_getCoefficients(SWS_CS_ITU601), 1, 0, 1 << 16, 1 << 16);
    PaddedRows rows(picture);
    const uint8_t* const planes[4] = {rows.Start(), nullptr, nullptr, nullptr};
    const int strides[4] = {rows.Stride(), 0, 0, 0};
    sws_scale(scaler.get(), planes, strides, 0, frame->height, frame->data, frame->linesize);
    if (format == AV_PIX_FMT_YUV444P) {
        frame->format =
            AV_PIX_FMT_YUVJ444P; // the encoder's name for it when all values are used, as they are here
    }
    return frame;
}

} // namespace

std::vector<uint8_t> EncodePicture(const Picture& picture, PictureFormat format) {
    const FramePointer frame =
        FrameOf(picture, format == PictureFormat::Jpeg ? AV_PIX_FMT_YUV444P : AV_PIX_FMT_RGB24);
    frame->quality = FF_QP2LAMBDA * kJpegQuality;
    const AVCodecID id = format == PictureFormat::Jpeg ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_PNG;
    const Codec codec = OpenEncoder(id, *frame, kJpegQuality);
    if (!codec) {
        CannotEncode();
    }
    const Packet packet(av_packet_alloc());
    if (!packet) {
        throw std::bad_alloc();
    }
    if (avcodec_send_frame(codec.get(), frame.get()) < 0 || avcodec_send_frame(codec.get(), nullptr) < 0 ||
        avcodec_receive_packet(codec.get(), packet.get()) < 0) {
        CannotEncode();
    }
    return {packet->data, packet->data + packet->size};
}

bool StillsSupported() {
    return true;
}

} // namespace media
