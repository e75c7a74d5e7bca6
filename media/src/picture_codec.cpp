#include "picture_codec.h"

#include <algorithm>

namespace media {

namespace {

/// Pictures from this height on are of high definition, which means other colours where the stream does not say.
constexpr int kHighDefinition = 720;

constexpr size_t kBytesAPixel = 3;

/// Bytes that rows begin at a multiple of, and that lie after each at least.
constexpr size_t kPadding = 64;

} // namespace

bool SizeAllowed(int64_t width, int64_t height) {
    return width > 0 && height > 0 && width <= kLargestSide && height <= kLargestSide &&
           static_cast<uint64_t>(width * height) <= kLargestPicture;
}

void SetColours(SwsContext& scaler, const AVFrame& from, int coefficients) {
    const bool high = from.colorspace == AVCOL_SPC_BT709 ||
                      (from.colorspace == AVCOL_SPC_UNSPECIFIED && from.height >= kHighDefinition);
    const int* const colours = sws_getCoefficients(high ? SWS_CS_ITU709 : SWS_CS_ITU601);
    const int full = from.color_range == AVCOL_RANGE_JPEG || from.format == AV_PIX_FMT_YUVJ420P ? 1 : 0;
    sws_setColorspaceDetails(&scaler, colours, full, sws_getCoefficients(coefficients), 1, 0, 1 << 16,
                             1 << 16);
}

PaddedRows::PaddedRows(uint32_t width, uint32_t height)
    : m_row(width * kBytesAPixel), m_stride((m_row + 2 * kPadding - 1) / kPadding * kPadding), m_rows(height),
      m_bytes(m_stride * m_rows) {}

/// What lies after a row has some weight in its last pixels: it is the last one again.
PaddedRows::PaddedRows(const Picture& picture) : PaddedRows(picture.width, picture.height) {
    for (size_t row = 0; row < m_rows; ++row) {
        uint8_t* const to = m_bytes.data() + row * m_stride;
        std::copy_n(picture.pixels.data() + row * m_row, m_row, to);
        for (size_t i = m_row; i < m_stride; ++i) {
            to[i] = to[i - kBytesAPixel];
        }
    }
}

std::vector<uint8_t> PaddedRows::Pixels() const {
    std::vector<uint8_t> pixels;
    pixels.reserve(m_row * m_rows);
    for (size_t row = 0; row < m_rows; ++row) {
        const uint8_t* const from = m_bytes.data() + row * m_stride;
        pixels.insert(pixels.end(), from, from + m_row);
    }
    return pixels;
}

Codec OpenEncoder(AVCodecID id, const AVFrame& frame, int quality) {
    const AVCodec* const encoder = avcodec_find_encoder(id);
    Codec codec(encoder == nullptr ? nullptr : avcodec_alloc_context3(encoder));
    if (!codec) {
        return codec;
    }
    codec->width = frame.width;
    codec->height = frame.height;
    codec->pix_fmt = static_cast<AVPixelFormat>(frame.format);
    codec->color_range = AVCOL_RANGE_JPEG;
    codec->time_base = {1, 1};
    codec->thread_count = 1;
    codec->flags |= AV_CODEC_FLAG_QSCALE | AV_CODEC_FLAG_BITEXACT;
    codec->global_quality = FF_QP2LAMBDA * quality;
    if (avcodec_open2(codec.get(), encoder, nullptr) < 0) {
        codec.reset();
    }
    return codec;
}

} // namespace media
