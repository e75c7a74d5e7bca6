#ifndef DISKACCESS_TIME_TEXT_H
#define DISKACCESS_TIME_TEXT_H

#include <cstdint>
#include <optional>
#include <string>

#include "render/time_zone.h"

namespace diskaccess {

/// A time as typed on the command line.
struct TypedTime {
    int64_t first = 0; ///< its first second
    int64_t last = 0;  ///< its last second: the same, or a day's last when only a date was typed
};

/// What times refer to that do not say it themselves.
struct Present {
    int64_t now = 0;
    int64_t day = 0; ///< an instant of the day that a time of day without a date is one of
};

/// Reads a time: "2026-11-20 14:30:00" (seconds and minutes may be left out, T for the blank, an offset like
/// Z or +01:00 after it), "2026-11-20", "14:30", "today", "yesterday", "now", "-2h" (also s, m, d,
/// w), "@1700000000".
/// @param twice which instant a time means that comes twice
/// @throws WrongUse for anything else
TypedTime ReadTime(const std::string& text, const TimeZone& zone, const Present& present, Twice twice);

/// Reads a time as documents have it: "2026-11-20T14:30:00.040000+01:00".
/// @return microseconds since 1970; nothing for anything else
std::optional<int64_t> MicrosOfRfc3339(const std::string& text);

} // namespace diskaccess

#endif // DISKACCESS_TIME_TEXT_H
