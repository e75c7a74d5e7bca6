#ifndef DISK_ACCESS_FORMAT_TIMES_H
#define DISK_ACCESS_FORMAT_TIMES_H

#include <cstdint>

namespace disk_access {

constexpr uint32_t kSecondsPerDay = 86400;

/// The last second that a search can name: the recorder's seconds are signed 32-bit numbers.
constexpr int32_t kLastSecond = 0x7FFFFFFF;

/// The seconds of a time stamp in microseconds, as the signed 32-bit number that the recorder uses.
constexpr int32_t SecondsOf(int64_t pts) {
    return static_cast<int32_t>(pts / 1000000);
}

/// A `long` of seconds, as the signed 32-bit number that it is on the recorder. Convert it once, where it
/// enters the library: then comparisons have the same results on the recorder and on a 64-bit host.
constexpr int32_t Seconds32(long seconds) {
    return static_cast<int32_t>(seconds);
}

/// A time from the disk as a signed number, for comparisons.
constexpr int32_t Signed(uint32_t seconds) {
    return static_cast<int32_t>(seconds);
}

/// The day of a time, counted from 1970-01-01.
constexpr uint32_t DayOf(uint32_t seconds) {
    return seconds / kSecondsPerDay;
}

/// Whether a part of a record is long enough to be listed: more than one second.
constexpr bool LongEnough(uint32_t start, uint32_t end) {
    return start + 1 < end;
}

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_TIMES_H
