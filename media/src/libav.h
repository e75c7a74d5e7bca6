#ifndef MEDIA_SRC_LIBAV_H
#define MEDIA_SRC_LIBAV_H

/// @file libav.h
/// libavformat's and libavcodec's objects, owned.

#include <cstdarg>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace media {

constexpr AVRational kMicroseconds = {1, 1000000};
constexpr AVRational kMilliseconds = {1, 1000};

struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreeParameters {
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
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
using FramePointer = std::unique_ptr<AVFrame, FreeFrame>;
using Parameters = std::unique_ptr<AVCodecParameters, FreeParameters>;
using Filter = std::unique_ptr<AVBSFContext, FreeFilter>;
using Codec = std::unique_ptr<AVCodecContext, FreeCodec>;
using Parser = std::unique_ptr<AVCodecParserContext, CloseParser>;

/// Keeps what decoders say of a stream out of everything. For a child: the process may have had messages taken to a place
/// of its own, which waits for threads that no child has.
inline void SilenceDecoders() {
    av_log_set_callback([](void*, int, const char*, va_list) {});
}

} // namespace media

#endif // MEDIA_SRC_LIBAV_H
