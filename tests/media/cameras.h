#ifndef TESTS_MEDIA_CAMERAS_H
#define TESTS_MEDIA_CAMERAS_H

#include <cstdint>
#include <string>
#include <vector>

#include "media/track.h"
#include "recordings/frame.h"

namespace media_test {

using Bytes = std::vector<uint8_t>;

/// The parameter sets that key frames begin with: H.264, baseline, 64 x 48 pixels. In front of each is a start code of
/// four bytes.
extern const Bytes kH264Sets;
/// The same of 128 x 96 pixels.
extern const Bytes kLargerH264Sets;
/// The same of H.265.
extern const Bytes kH265Sets;

/// A frame with a payload of its own.
struct OwnedFrame {
    recordings::Frame frame;
    Bytes payload;

    recordings::Frame Get() const;
};

/// A key frame: parameter sets, and a slice of so many bytes after a start code of three.
OwnedFrame KeyFrame(uint32_t channel, int64_t time, size_t slice, const Bytes& sets = kH264Sets);
/// A picture that needs the ones before it: a slice after a start code of four bytes.
OwnedFrame Picture(uint32_t channel, int64_t time, size_t slice);
OwnedFrame Sound(uint32_t channel, int64_t time, size_t size);

media::Track VideoTrack(uint32_t channel, media::VideoCodec codec = media::VideoCodec::H264);
media::Track AudioTrack(uint32_t channel, const std::string& codec = "pcm_alaw");

} // namespace media_test

#endif // TESTS_MEDIA_CAMERAS_H
