#ifndef DISK_ACCESS_FORMAT_FRAMES_H
#define DISK_ACCESS_FORMAT_FRAMES_H

#include <cstdint>

#include "disk_format.h"
#include "format/times.h"
#include "play_records.h"

namespace disk_access {

/// What reads of frames answer, besides 0 for a frame and -1 for a failure.
constexpr int kReadEnds = 1;     ///< the end of the window, of the recording, or of the I-frames to step to
constexpr int kNoMoreFrames = 2; ///< no further frame in this block

/// Frame types that a reader tells apart.
constexpr uint32_t kIFrame = 1;
constexpr uint32_t kEventFrame = 4;

/// Whether a frame is video or audio: media times place a recording, those of other frames say nothing.
constexpr bool IsMedia(uint32_t type) {
    return type <= 2;
}

/// A media frame this many seconds older than its block is left over from the ring's previous turn. Less than
/// that may be the clock, or streams that do not begin at the same instant.
constexpr uint32_t kStaleSeconds = 30;

/// Whether a media frame is older than @p time by more than that. In unsigned 32-bit seconds, as the recorder
/// counts.
inline bool IsStale(const FrameHead_t& frame, uint32_t time) {
    return IsMedia(frame.type) && static_cast<uint32_t>(SecondsOf(frame.pts)) + kStaleSeconds < time;
}

/// Bytes from a frame's head to the next one's. In 64 bits: a forged length may lie near 2^32, and a sum that
/// wrapped would stay in place or jump back.
constexpr uint64_t FrameSpan(const FrameHead_t& head) {
    return sizeof(FrameHead_t) + uint64_t{head.len};
}

/// A frame as callers get it.
inline FrameInfo_t InfoOf(const FrameHead_t& head) {
    return {static_cast<uint64_t>(head.pts), head.type, head.chn, head.len};
}

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_FRAMES_H
