#include "cli/clock_check.h"

#include <limits>

#include "cli/failure.h"
#include "cli/typed_time.h"

namespace diskaccess {

namespace {

/// The moment that a text means. A day is no moment.
int64_t ReadMoment(const std::string& text, const TimeZone& zone, const Present& present) {
    const TypedTime time = ReadTime(text, zone, present, Twice::First);
    if (time.first != time.last) {
        throw WrongUse("--clock-check: '" + text + "' is a day; give its time of day too");
    }
    return time.first;
}

} // namespace

ClockCheck ReadClockCheck(const std::string& text, const TimeZone& zone, int64_t now) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw WrongUse(
            "--clock-check: '" + text +
            "' is no pair of times; give what the recorder's clock showed, =, and the true time, like "
            "'2026-11-20 14:00:05=2026-11-20 13:59:58'");
    }
    ClockCheck check;
    check.recorderTime = ReadMoment(text.substr(0, equals), zone, {now, now});
    check.trueTime = ReadMoment(text.substr(equals + 1), zone, {now, check.recorderTime});
    constexpr int64_t kMostSkew =
        std::numeric_limits<uint32_t>::max(); // all that a recorder's clock can count
    if (check.Skew() > kMostSkew || check.Skew() < -kMostSkew) {
        throw WrongUse("--clock-check: no recorder's clock can be so far from the true time");
    }
    return check;
}

} // namespace diskaccess
