#ifndef TESTS_MEDIA_ENCODING_CAMERA_H
#define TESTS_MEDIA_ENCODING_CAMERA_H

#include <cstdint>

#include "libav.h"
#include "picture_codec.h"
#include "sample_recorder/frame.h"

namespace media_test {

constexpr int64_t kStart = 1795183200 * int64_t{1000000}; // 2026-11-20 14:00:00 UTC
constexpr int64_t kStep = 200000;                         // five pictures a second
constexpr int kDistance = 5;                              // every fifth is a key frame
constexpr int kWidth = 192;
constexpr int kHeight = 128;

/// A camera whose pictures are encoded, and can be decoded. What they show is drawn by subclasses.
class EncodingCamera {
public:
    /// @param encoder "libx264" or "libx265"
    explicit EncodingCamera(const char* encoder);
    virtual ~EncodingCamera() = default;
    EncodingCamera(const EncodingCamera&) = delete;
    EncodingCamera& operator=(const EncodingCamera&) = delete;

    /// Picture @p number, as channel 0; they are taken in order, from 0.
    sample_recorder::Frame Take(int number);

private:
    /// Fills a plane of picture @p number: 0 is the brightness, 1 and 2 are the colour.
    virtual void Draw(int number, int plane, uint8_t* bytes, int count) = 0;

    media::FramePointer Picture(int number);

    media::Codec m_codec;
};

} // namespace media_test

#endif // TESTS_MEDIA_ENCODING_CAMERA_H
