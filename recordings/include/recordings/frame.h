#ifndef RECORDINGS_FRAME_H
#define RECORDINGS_FRAME_H

#include <cstddef>
#include <cstdint>

namespace recordings {

/// Frame types of recorders. Others carry other data.
constexpr uint32_t kPictureFrame = 0; ///< video that needs the pictures before it
constexpr uint32_t kKeyFrame = 1;     ///< video that can be decoded by itself
constexpr uint32_t kAudioFrame = 2;
constexpr uint32_t kEventFrame = 4;

/// A frame as it lies on the disk.
struct Frame {
    int64_t time = 0; ///< microseconds since 1970 on the recorder's clock
    uint32_t type = 0;
    uint32_t channel = 0; ///< 0 to 31
    uint32_t block = 0;
    uint32_t offset = 0; ///< of its head, in bytes from the start of the block's frame area
    uint32_t size = 0;   ///< bytes of payload
    /// The payload. Belongs to the reader that delivered the frame and is valid until that reader delivers the next one
    /// or is destroyed. Null when only heads were asked for, and when the payload is empty.
    const uint8_t* data = nullptr;

    bool IsVideo() const { return type == kPictureFrame || type == kKeyFrame; }
    bool IsAudio() const { return type == kAudioFrame; }
    bool IsMedia() const { return type <= kAudioFrame; }
    int64_t Seconds() const { return time / 1000000; }
};

} // namespace recordings

#endif // RECORDINGS_FRAME_H
