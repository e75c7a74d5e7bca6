#include "picture_decoder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <limits>

#include "child.h"
#include "libav.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

namespace media {

namespace {

/// No camera makes larger pictures; sides of a multiple of it fit into the limits of everything that follows.
constexpr uint32_t kLargestSide = 16384;
constexpr uint64_t kLargestPicture = uint64_t{1} << 26; ///< pixels

constexpr uint32_t kBytesAPixel = 3;

/// Pictures from this height on are of high definition, which means other colours where the stream does not say.
constexpr int kHighDefinition = 720;

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using FramePointer = std::unique_ptr<AVFrame, FreeFrame>;
using Scaler = std::unique_ptr<SwsContext, FreeScaler>;

/// What a child answers before the pixels.
struct AnswerHead {
    uint32_t width;
    uint32_t height;
    uint32_t damaged;
};

// ---- in the child

Codec OpenDecoder(VideoCodec kind) {
    const AVCodec* const decoder =
        avcodec_find_decoder(kind == VideoCodec::H265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    Codec codec(decoder == nullptr ? nullptr : avcodec_alloc_context3(decoder));
    if (codec) {
        codec->thread_count = 1;
        codec->max_pixels = static_cast<int64_t>(kLargestPicture);
        if (avcodec_open2(codec.get(), decoder, nullptr) < 0) {
            codec.reset();
        }
    }
    return codec;
}

/// Hands a payload to the decoder, with its number as its time.
bool Send(AVCodecContext& codec, const std::vector<uint8_t>& payload, int64_t number) {
    const Packet packet(av_packet_alloc());
    if (!packet || payload.size() > static_cast<size_t>(std::numeric_limits<int>::max() / 2) ||
        av_new_packet(packet.get(), static_cast<int>(payload.size())) < 0) {
        return false;
    }
    std::copy(payload.begin(), payload.end(), packet->data);
    packet->pts = packet->dts = number;
    return avcodec_send_packet(&codec, packet.get()) >= 0;
}

/// Decodes all frames.
/// @param damaged set when one of them is
/// @return the picture of the last one; null when none comes of it
FramePointer Decode(AVCodecContext& codec, const std::vector<std::vector<uint8_t>>& frames, bool& damaged) {
    FramePointer picture(av_frame_alloc());
    FramePointer last;
    const auto receive = [&] {
        while (picture && avcodec_receive_frame(&codec, picture.get()) >= 0) {
            damaged =
                damaged || picture->decode_error_flags != 0 || (picture->flags & AV_FRAME_FLAG_CORRUPT) != 0;
            if (picture->pts == static_cast<int64_t>(frames.size()) - 1) {
                last.reset(av_frame_clone(picture.get()));
            }
        }
    };
    for (size_t i = 0; i < frames.size(); ++i) {
        damaged = !Send(codec, frames[i], static_cast<int64_t>(i)) || damaged;
        receive();
    }
    avcodec_send_packet(&codec, nullptr);
    receive();
    return last;
}

bool SizeAllowed(int64_t width, int64_t height) {
    return width > 0 && height > 0 && width <= kLargestSide && height <= kLargestSide &&
           static_cast<uint64_t>(width * height) <= kLargestPicture;
}

/// The picture's colours as red, green and blue.
bool Convert(const AVFrame& frame, std::vector<uint8_t>& pixels) {
    const Scaler scaler(sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
                                       frame.width, frame.height, AV_PIX_FMT_RGB24,
                                       SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler) {
        return false;
    }
    const bool high = frame.colorspace == AVCOL_SPC_BT709 ||
                      (frame.colorspace == AVCOL_SPC_UNSPECIFIED && frame.height >= kHighDefinition);
    const int* const colours = sws_getCoefficients(high ? SWS_CS_ITU709 : SWS_CS_ITU601);
    const int full = frame.color_range == AVCOL_RANGE_JPEG || frame.format == AV_PIX_FMT_YUVJ420P ? 1 : 0;
    sws_setColorspaceDetails(scaler.get(), colours, full, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16,
                             1 << 16);
    // The scaler writes a little beyond the end of rows: rows of its own size take that.
    const int row = (frame.width * static_cast<int>(kBytesAPixel) + 63) & ~63;
    std::vector<uint8_t> rows(static_cast<size_t>(row) * static_cast<size_t>(frame.height) + 64);
    uint8_t* const planes[4] = {rows.data(), nullptr, nullptr, nullptr};
    const int strides[4] = {row, 0, 0, 0};
    if (sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides) !=
        frame.height) {
        return false;
    }
    const size_t wanted = static_cast<size_t>(frame.width) * kBytesAPixel;
    for (int y = 0; y < frame.height; ++y) {
        const uint8_t* const from = rows.data() + static_cast<size_t>(y) * static_cast<size_t>(row);
        pixels.insert(pixels.end(), from, from + wanted);
    }
    return true;
}

bool WriteAll(int descriptor, const void* data, size_t size) {
    const auto* at = static_cast<const uint8_t*>(data);
    while (size != 0) {
        const ssize_t put = write(descriptor, at, size);
        if (put < 0 && errno != EINTR) {
            return false;
        }
        at += std::max<ssize_t>(put, 0);
        size -= static_cast<size_t>(std::max<ssize_t>(put, 0));
    }
    return true;
}

bool DecodeInto(int answer, VideoCodec kind, const std::vector<std::vector<uint8_t>>& frames) {
    // The process may have had messages taken to a place of its own, which waits for threads that no child has.
    av_log_set_callback([](void*, int, const char*, va_list) {});
    const Codec codec = OpenDecoder(kind);
    bool damaged = false;
    const FramePointer picture = codec ? Decode(*codec, frames, damaged) : nullptr;
    std::vector<uint8_t> pixels;
    if (!picture || !SizeAllowed(picture->width, picture->height) || !Convert(*picture, pixels)) {
        return false;
    }
    const AnswerHead head = {static_cast<uint32_t>(picture->width), static_cast<uint32_t>(picture->height),
                             damaged ? 1u : 0u};
    return WriteAll(answer, &head, sizeof head) && WriteAll(answer, pixels.data(), pixels.size());
}

} // namespace

std::optional<Decoded> DecodeLast(VideoCodec codec, const std::vector<std::vector<uint8_t>>& frames,
                                  const std::function<void()>& meanwhile) {
    const auto work = [&](int answer) { return DecodeInto(answer, codec, frames); };
    ChildLimits limits;
    limits.answer = sizeof(AnswerHead) + kLargestPicture * kBytesAPixel;
    const std::optional<std::vector<uint8_t>> answer = InChild(work, limits, meanwhile);
    AnswerHead head = {};
    if (!answer || answer->size() < sizeof head) {
        return std::nullopt;
    }
    std::memcpy(&head, answer->data(), sizeof head);
    if (!SizeAllowed(head.width, head.height) ||
        answer->size() - sizeof head != uint64_t{head.width} * head.height * kBytesAPixel) {
        return std::nullopt;
    }
    Decoded decoded;
    decoded.damaged = head.damaged != 0;
    decoded.picture = {head.width, head.height, {answer->begin() + sizeof head, answer->end()}};
    return decoded;
}

} // namespace media
