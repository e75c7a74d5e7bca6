#ifndef MEDIA_SRC_LIBAV_H
#define MEDIA_SRC_LIBAV_H

/// @file libav.h
/// libavformat's and libavcodec's objects, owned.

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
using Parameters = std::unique_ptr<AVCodecParameters, FreeParameters>;
using Filter = std::unique_ptr<AVBSFContext, FreeFilter>;
using Codec = std::unique_ptr<AVCodecContext, FreeCodec>;
using Parser = std::unique_ptr<AVCodecParserContext, CloseParser>;

} // namespace media

#endif // MEDIA_SRC_LIBAV_H
