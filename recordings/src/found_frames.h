#ifndef RECORDINGS_FOUND_FRAMES_H
#define RECORDINGS_FOUND_FRAMES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "disk_format.h"
#include "format/frames.h"
#include "frame_area.h"
#include "recordings/frame.h"
#include "recordings/problem.h"
#include "recordings/query.h"

namespace recordings {

constexpr auto kHeadBytes = static_cast<uint32_t>(sizeof(FrameHead_t));

/// Frame types that recorders are known to use lie below this.
constexpr uint32_t kFrameTypes = 16;

/// A copy of the head that lies at @p bytes, aligned or not.
inline FrameHead_t HeadAt(const uint8_t* bytes) {
    FrameHead_t head;
    std::memcpy(&head, bytes, sizeof head);
    return head;
}

/// @p to - @p from, or the nearest number there is: time stamps on a disk may be any.
inline int64_t TimeBetween(int64_t from, int64_t to) {
    int64_t difference = 0;
    if (__builtin_sub_overflow(to, from, &difference)) {
        return to < from ? INT64_MIN : INT64_MAX;
    }
    return difference;
}

/// @p time + @p by, or the nearest number there is.
inline int64_t TimeAfter(int64_t time, int64_t by) {
    int64_t sum = 0;
    if (__builtin_add_overflow(time, by, &sum)) {
        return by < 0 ? INT64_MIN : INT64_MAX;
    }
    return sum;
}

/// How far two time stamps lie apart.
inline int64_t TimeApart(int64_t a, int64_t b) {
    return a < b ? TimeBetween(a, b) : TimeBetween(b, a);
}

/// A frame that was found in a block.
struct FoundFrame {
    int64_t time = 0;
    uint32_t offset = 0; ///< of its head
    uint32_t size = 0;   ///< of its payload
    uint32_t type = 0;
    uint32_t channel = 0;
    bool afterLoss = false; ///< something is lost between the frame before and this one
    ChannelSet lost;        ///< channels of which media may be
    bool damaged = false;   ///< its head is known to be damaged, and a problem says so

    FoundFrame() = default;
    FoundFrame(const FrameHead_t& head, uint32_t at)
        : time(head.pts), offset(at), size(head.len), type(head.type), channel(head.chn) {}

    uint64_t End() const { return uint64_t{offset} + kHeadBytes + size; }
    int64_t Seconds() const { return time / kMicros; }
    bool IsMedia() const { return disk_access::IsMedia(type); }
    bool IsAudio() const { return type == kAudioFrame; }
};

/// What was found in a block: its frames, and what is wrong with them.
struct FoundFrames {
    std::vector<FoundFrame> frames; ///< in the order of their offsets
    std::vector<Stretch> damaged;   ///< what lies there are no frames; in the order of their offsets
    std::vector<FoundFrame>
        dropped;         ///< frames before a damaged stretch that is counted from their heads on; each with
                         ///< the size that it has when it reaches up to the next frame
    bool marked = false; ///< the recorder's end mark follows the last frame
    bool lostAtEnd = false; ///< something is lost between the last frame and the end
    /// Where no frames were found though the index has some: from the last frame's end to that of the index.
    std::optional<Stretch> missing;
    bool missingUnreadable = false; ///< its first bytes are
    std::optional<uint32_t>
        lastEnd; ///< the last frame reaches further than this, where the index has the frames end
    bool lastInDoubt = false; ///< what is missing may begin within the last frame
    std::vector<Problem> problems;

    /// Whether every byte up to the end belongs to a frame.
    bool Unbroken() const {
        return damaged.empty() && !lostAtEnd && !missing &&
               std::none_of(frames.begin(), frames.end(),
                            [](const FoundFrame& frame) { return frame.afterLoss; });
    }

    /// Notes that no frames lie in a stretch, which follows on those noted before.
    void AddDamage(uint32_t from, uint32_t to) {
        if (!damaged.empty() && damaged.back().to == from) {
            damaged.back().to = to;
        } else {
            damaged.push_back({from, to});
        }
    }

    /// The entry of the frame whose head lies at a place.
    std::optional<size_t> EntryAt(uint32_t offset) const {
        const auto at =
            std::lower_bound(frames.begin(), frames.end(), offset,
                             [](const FoundFrame& frame, uint32_t wanted) { return frame.offset < wanted; });
        const bool found = at != frames.end() && at->offset == offset;
        return found ? std::optional<size_t>(static_cast<size_t>(at - frames.begin())) : std::nullopt;
    }

    /// Says that a field of a frame's head is damaged; once a frame.
    void NoteDamaged(FoundFrame& frame) {
        if (!frame.damaged) {
            frame.damaged = true;
            Problem problem;
            problem.kind = ProblemKind::FrameDamaged;
            problem.offset = frame.offset;
            problem.channel = frame.channel;
            problem.bytes = frame.End() - frame.offset;
            problems.push_back(problem);
        }
    }
};

} // namespace recordings

#endif // RECORDINGS_FOUND_FRAMES_H
