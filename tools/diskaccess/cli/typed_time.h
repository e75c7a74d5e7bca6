#ifndef DISKACCESS_TIME_TEXT_H
#define DISKACCESS_TIME_TEXT_H

#include <cstdint>
#include <string>

#include "render/time_zone.h"

namespace diskaccess {

/// A time as typed on the command line.
struct TypedTime {
    int64_t first = 0; ///< its first second
    int64_t last = 0;  ///< its last second: the same, or a day's last when only a date was typed
};

/// Reads a time: "2026-11-20 14:30:00" (seconds and minutes may be left out, T for the blank, an offset like
/// Z or +01:00 after it), "2026-11-20", "14:30" (today), "today", "yesterday", "now", "-2h" (also s, m, d,
/// w), "@1700000000".
/// @param now   the present
/// @param twice which instant a time means that comes twice
/// @throws WrongUse for anything else
TypedTime ReadTime(const std::string& text, const TimeZone& zone, int64_t now, Twice twice);

} // namespace diskaccess

#endif // DISKACCESS_TIME_TEXT_H
