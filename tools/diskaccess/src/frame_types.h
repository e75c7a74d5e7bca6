#ifndef DISKACCESS_FRAME_TYPES_H
#define DISKACCESS_FRAME_TYPES_H

/// @file frame_types.h
/// What the program has to know of a frame: FrameHead_t and FrameInfo_t alike.

#include <cstdint>

namespace diskaccess {

constexpr uint32_t kKeyFrame = 1;
constexpr uint32_t kAudioFrame = 2;
constexpr uint32_t kEventFrame = 4;

template <typename Frame>
bool IsMedia(const Frame& frame) {
    return frame.type <= kAudioFrame;
}

template <typename Frame>
bool IsVideo(const Frame& frame) {
    return frame.type < kAudioFrame;
}

/// The second of a frame's time stamp.
template <typename Frame>
int64_t SecondsOf(const Frame& frame) {
    return static_cast<int64_t>(frame.pts) / 1000000;
}

} // namespace diskaccess

#endif // DISKACCESS_FRAME_TYPES_H
