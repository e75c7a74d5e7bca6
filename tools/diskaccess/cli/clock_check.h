#ifndef DISKACCESS_CLOCK_CHECK_H
#define DISKACCESS_CLOCK_CHECK_H

#include <cstdint>
#include <string>

#include "render/time_zone.h"

namespace diskaccess {

/// What the recorder's clock showed at one moment, and what a true clock did; seconds since 1970.
struct ClockCheck {
    int64_t recorderTime = 0;
    int64_t trueTime = 0;

    /// How far the recorder's clock was ahead.
    int64_t Skew() const { return recorderTime - trueTime; }
};

/// Reads "RECORDER=TRUE", two times as they are typed everywhere. If the second has no date, it takes that of the first.
/// @param now the present
/// @throws WrongUse
ClockCheck ReadClockCheck(const std::string& text, const TimeZone& zone, int64_t now);

} // namespace diskaccess

#endif // DISKACCESS_CLOCK_CHECK_H
