#include "commands/wording.h"

#include <algorithm>
#include <cctype>

#include "render/printable.h"

namespace diskaccess {

media::Wording WordingOf(const TimeZone& zone, const DiskClock& clock) {
    media::Wording wording;
    wording.timestamp = [&zone, clock](int64_t time) {
        return zone.Rfc3339OfMicros(clock.TrueInstant(time).micros);
    };
    wording.utcTimestamp = [clock](int64_t time) {
        return TimeZone::UtcOfMicros(clock.TrueInstant(time).micros);
    };
    wording.readableTime = [&zone, clock](int64_t time) {
        return zone.TextOfMicros(clock.TrueInstant(time).micros);
    };
    wording.readableSecond = [&zone, clock](int64_t time) {
        return zone.Text(clock.TrueInstant(time).micros / recordings::kMicros);
    };
    wording.printable = Printable;
    return wording;
}

std::string FileTime(const TimeZone& zone, const DiskClock& clock, int64_t time) {
    std::string text = zone.TextOfMicros(clock.TrueInstant(time).micros);
    text.erase(std::remove(text.begin(), text.end(), ':'), text.end());
    std::replace_if(
        text.begin(), text.end(),
        [](unsigned char c) { return std::isalnum(c) == 0 && c != '.' && c != '+'; }, '-');
    return text;
}

} // namespace diskaccess
