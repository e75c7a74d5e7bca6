#include "commands/wording.h"

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
        return zone.Text(clock.TrueInstant(time).micros / 1000000);
    };
    wording.printable = Printable;
    return wording;
}

} // namespace diskaccess
