#ifndef RECORDINGS_EVENT_PAYLOAD_H
#define RECORDINGS_EVENT_PAYLOAD_H

#include <bitset>
#include <cstddef>
#include <optional>

#include "disk_format.h"
#include "found_frames.h"
#include "frame_area.h"

namespace recordings {

/// What an event frame begins with. Nothing when it is too short, or cannot be read.
std::optional<EventHead_t> EventAt(FrameArea& area, const FoundFrame& frame);

/// Kinds of events that happen at once: not more than these.
constexpr size_t kMostKindsAtOnce = 16;

inline size_t CountKinds(const EventHead_t& event) {
    return std::bitset<64>(event.type).count();
}

/// Whether it is as recorders write it: it has a kind of event, not more of them than there may be at once, and its flag
/// is one or zero.
bool IsLikeEvent(const EventHead_t& event);

} // namespace recordings

#endif // RECORDINGS_EVENT_PAYLOAD_H
