#ifndef MEDIA_SRC_PICTURE_CODEC_H
#define MEDIA_SRC_PICTURE_CODEC_H

/// @file picture_codec.h
/// What decoding and encoding pictures have in common.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "libav.h"
#include "media/stills.h"
#include "media/track.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace media {

struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using Scaler = std::unique_ptr<SwsContext, FreeScaler>;

bool SizeAllowed(int64_t width, int64_t height);

/// Has a scaler take a picture's colours for what they are, and make those of JPEG files: all values are used.
/// @param coefficients of the colours to make: SWS_CS_...
void SetColours(SwsContext& scaler, const AVFrame& from, int coefficients);

/// Pixels of red, green and blue in rows for the scaler, which reads and writes a little beyond the end of them.
class PaddedRows {
public:
    PaddedRows(uint32_t width, uint32_t height);
    explicit PaddedRows(const Picture& picture);

    uint8_t* Start() { return m_bytes.data(); }
    int Stride() const { return static_cast<int>(m_stride); }
    /// The pixels without what is between the rows.
    std::vector<uint8_t> Pixels() const;

private:
    size_t m_row;
    size_t m_stride;
    size_t m_rows;
    std::vector<uint8_t> m_bytes;
};

/// @param frame one of those that are to be encoded
/// @return null when it cannot be opened
Codec OpenEncoder(AVCodecID id, const AVFrame& frame, int quality);

/// No camera makes larger pictures; sides of a multiple of it fit into the limits of everything that follows.
constexpr uint32_t kLargestSide = 16384;
constexpr uint64_t kLargestPicture = uint64_t{1} << 26; ///< pixels

} // namespace media

#endif // MEDIA_SRC_PICTURE_CODEC_H
