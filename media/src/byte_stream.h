#ifndef MEDIA_SRC_BYTE_STREAM_H
#define MEDIA_SRC_BYTE_STREAM_H

/// @file byte_stream.h
/// Video as cameras deliver it: NAL units, each after a start code (00 00 01), with zeros before it as they please.

#include <cstddef>
#include <cstdint>
#include <memory>

namespace media {

/// The next start code that lies wholly between @p from and @p end; @p end without one.
const uint8_t* FindStartCode(const uint8_t* from, const uint8_t* end);

/// Turns start codes into lengths, which is how containers want NAL units.
class LengthPrefixer {
public:
    struct Bytes {
        const uint8_t* data;
        size_t size;
    };

    /// Puts the length of each unit before it, in four bytes. Nothing but start codes and the zeros before them is
    /// dropped: bytes before the first start code become a unit of their own.
    /// @return what stays valid until the next call; zeros follow it, as many as decoders read too far
    Bytes Convert(const uint8_t* data, size_t size);

private:
    void Reserve(size_t size);

    std::unique_ptr<uint8_t[]> m_bytes;
    size_t m_capacity = 0;
};

} // namespace media

#endif // MEDIA_SRC_BYTE_STREAM_H
