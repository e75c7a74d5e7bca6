#ifndef DISK_ACCESS_FORMAT_FRAMES_H
#define DISK_ACCESS_FORMAT_FRAMES_H

#include <cstdint>

#include "disk_format.h"
#include "format/times.h"
#include "play_records.h"

namespace disk_access {

/// Results of frame reads, in addition to 0 (a frame) and -1 (failure).
constexpr int kReadEnds = 1;     ///< the end of the window, of the recording, or of the I-frames to step to
constexpr int kNoMoreFrames = 2; ///< no further frame in this block

/// The frame types that the library distinguishes.
constexpr uint32_t kIFrame = 1;
constexpr uint32_t kEventFrame = 4;

/// Whether a frame is video or audio. Only the times of media frames say when something was recorded.
constexpr bool IsMedia(uint32_t type) {
    return type <= 2;
}

/// A media frame that is more than this many seconds older than its block is left over from the ring's
/// previous turn. A smaller difference may come from the clock, or from streams that do not begin at the same
/// time.
constexpr uint32_t kStaleSeconds = 30;

/// Whether a media frame is older than @p time by more than that. Computed in unsigned 32-bit seconds, as the
/// recorder does.
inline bool IsStale(const FrameHead_t& frame, uint32_t time) {
    return IsMedia(frame.type) && static_cast<uint32_t>(SecondsOf(frame.pts)) + kStaleSeconds < time;
}

/// Bytes from a frame's head to the next frame's head. In 64 bits: a forged length may be near 2^32, and with
/// a wrapped sum a walk would not move, or would go back.
constexpr uint64_t FrameSpan(const FrameHead_t& head) {
    return sizeof(FrameHead_t) + uint64_t{head.len};
}

/// A word of erased space.
constexpr uint32_t kErasedWord = 0xFFFFFFFF;

/// Whether a head marks the end of the frames. It is all ones but for the upper half of the time stamp, which the
/// recorder leaves zero: a block erased whole does not pass for one that was ended.
constexpr bool IsEndMark(const FrameHead_t& head) {
    return head.sync == kErasedWord && head.type == kErasedWord && head.pts == int64_t{kErasedWord} &&
           head.chn == kErasedWord && head.len == kErasedWord;
}

/// A frame as callers receive it.
inline FrameInfo_t InfoOf(const FrameHead_t& head) {
    return {static_cast<uint64_t>(head.pts), head.type, head.chn, head.len};
}

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_FRAMES_H
