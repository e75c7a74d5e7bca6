#include "event_payload.h"

#include <cstring>

namespace recordings {

std::optional<EventHead_t> EventAt(FrameArea& area, const FoundFrame& frame) {
    EventHead_t event = {};
    const uint8_t* const payload =
        frame.size < sizeof event ? nullptr : area.At(frame.offset + kHeadBytes, sizeof event);
    if (payload == nullptr) {
        return std::nullopt;
    }
    std::memcpy(&event, payload, sizeof event);
    return event;
}

bool IsLikeEvent(const EventHead_t& event) {
    return event.Indexed <= 1 && event.type != 0 && CountKinds(event) <= kMostKindsAtOnce;
}

} // namespace recordings
