#ifndef MEDIA_SRC_CONTAINER_RULES_H
#define MEDIA_SRC_CONTAINER_RULES_H

/// @file container_rules.h
/// What containers can hold, and how they count time. Files are made by these rules, and verified by them.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media/sink.h"
#include "media/track.h"
#include "recordings/frame.h"

namespace media {

/// A unit of a track's clock, as a fraction of a second.
struct ClockUnit {
    int numerator = 0; ///< 0: it is not known
    int denominator = 1;
};

/// The time of a track's next frame, in units: moved on where the clock cannot tell it from the frame before.
/// @param last time of the frame before; -1 for none
/// @param micros its place
int64_t NextTime(ClockUnit unit, int64_t last, int64_t micros);

/// The longest time from one frame to the next that a container can tell of a track, in microseconds. Where the unit is
/// not known, there is none.
int64_t LargestGapOf(Container container, ClockUnit unit);

/// How long a text lasts, in units, at the least one. Times are rounded, and then subtracted: where a text ends is the same
/// wherever it begins.
/// @param time of the text, in units
/// @param end its end, microseconds
int64_t DurationUntil(ClockUnit unit, int64_t time, int64_t end);

/// A text as a container has it.
std::vector<uint8_t> TextPayload(Container container, const std::string& text);

/// What Matroska calls a channel's tracks, and a text track.
std::string TitleOfTracks(uint32_t channel);
constexpr const char* kTitleOfTexts = "recorded time";

/// The name under which a container has its start. MP4 counts the seconds of a creation time in 32 bits from 1904 on; a date
/// is text.
const char* KeyOfStart(Container container, const std::string& startTime);

/// Why a container cannot take a track at any time, by a frame of it with its payload; of video a key frame.
std::optional<LeftOutReason> RefusalOf(Container container, const Track& track,
                                       const recordings::Frame& frame);
/// How a track can be encoded that a container refuses.
/// @return nothing when it cannot
std::optional<Encoding> EncodingFor(Container container, const Track& track, LeftOutReason refusal);

} // namespace media

#endif // MEDIA_SRC_CONTAINER_RULES_H
