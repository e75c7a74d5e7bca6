#include "video_decoder.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <limits>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace media {

namespace {

/// Errors that the decoder has met so far in this process. It tells of some of them in no other way.
unsigned errorCount = 0;

/// The process may have had messages taken to a place of its own, which waits for threads that no child has: this takes its
/// place.
void CountErrors(void* /*object*/, int level, const char* /*format*/, va_list /*values*/) {
    errorCount += level <= AV_LOG_ERROR ? 1 : 0;
}

// A slice whose bytes have changed may end early, and H.265's decoder does not say so. So pictures are filled with what no
// camera sends before they are decoded, and parts that still hold it afterwards are missing.

/// Luminance of even and odd columns.
constexpr uint8_t kEmpty[] = {0x02, 0xFD};
constexpr int kPart = 16; ///< rows and columns of the smallest part that a picture is coded in
constexpr int kSample = 8;

/// Samples of more than a byte are left alone: this would be out of their range.
int GetEmptyPicture(AVCodecContext* codec, AVFrame* picture, int flags) {
    const int result = avcodec_default_get_buffer2(codec, picture, flags);
    const AVPixFmtDescriptor* const format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture->format));
    const bool bytes = format != nullptr && format->comp[0].depth == 8;
    for (int y = 0; result >= 0 && bytes && y < picture->height; ++y) {
        uint8_t* const row = picture->data[0] + static_cast<std::ptrdiff_t>(y) * picture->linesize[0];
        for (int x = 0; x < picture->linesize[0]; ++x) {
            row[x] = kEmpty[x & 1];
        }
    }
    return result;
}

/// Looks at the middle of a part.
bool IsEmpty(const uint8_t* row, int x) {
    for (int i = x; i < x + kSample; ++i) {
        if (row[i] != kEmpty[i & 1] && row[i] != kEmpty[(i + 1) & 1]) {
            return false;
        }
    }
    return row[x] != row[x + 1];
}

/// @return null when there is no such decoder
Codec OpenDecoder(VideoCodec kind) {
    const AVCodec* const decoder =
        avcodec_find_decoder(kind == VideoCodec::H265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    Codec codec(decoder == nullptr ? nullptr : avcodec_alloc_context3(decoder));
    if (codec) {
        codec->thread_count = 1;
        codec->max_pixels = static_cast<int64_t>(kLargestPicture);
        codec->get_buffer2 = GetEmptyPicture;
        if (avcodec_open2(codec.get(), decoder, nullptr) < 0) {
            codec.reset();
        }
    }
    return codec;
}

/// Hands a payload to a decoder, with its number as its time.
bool SendPayload(AVCodecContext& codec, const std::vector<uint8_t>& payload, int64_t number) {
    const Packet packet(av_packet_alloc());
    if (!packet || payload.size() > static_cast<size_t>(std::numeric_limits<int>::max() / 2) ||
        av_new_packet(packet.get(), static_cast<int>(payload.size())) < 0) {
        return false;
    }
    std::copy(payload.begin(), payload.end(), packet->data);
    packet->pts = packet->dts = number;
    return avcodec_send_packet(&codec, packet.get()) >= 0;
}

} // namespace

bool VideoDecoder::Damaged(const AVFrame& picture) {
    if (picture.decode_error_flags != 0 || (picture.flags & AV_FRAME_FLAG_CORRUPT) != 0) {
        return true;
    }
    for (int y = kPart / 2; y + kPart / 2 <= picture.height; y += kPart) {
        const uint8_t* const row = picture.data[0] + static_cast<std::ptrdiff_t>(y) * picture.linesize[0];
        for (int x = 0; x + kPart <= picture.width; x += kPart) {
            if (IsEmpty(row, x + (kPart - kSample) / 2)) {
                return true;
            }
        }
    }
    return false;
}

VideoDecoder::VideoDecoder(VideoCodec codec) {
    av_log_set_callback(CountErrors); // opening a decoder has messages already
    m_codec = OpenDecoder(codec);
}

bool VideoDecoder::Take(const std::vector<uint8_t>& payload, const Taker& take) {
    const unsigned before = errorCount;
    const bool sent = SendPayload(*m_codec, payload, m_sent);
    ++m_sent;
    Receive(take);
    return sent && errorCount == before;
}

void VideoDecoder::Finish(const Taker& take) {
    avcodec_send_packet(m_codec.get(), nullptr);
    Receive(take);
}

void VideoDecoder::Receive(const Taker& take) {
    const FramePointer picture(av_frame_alloc());
    while (picture && avcodec_receive_frame(m_codec.get(), picture.get()) >= 0) {
        take(*picture, picture->pts);
    }
}

} // namespace media
