#include "cli/query.h"

#include <string>
#include <utility>

#include "cli/failure.h"
#include "cli/typed_sets.h"
#include "cli/typed_time.h"
#include "recordings/query.h"

namespace diskaccess {

namespace {

using recordings::kMicros;

/// A time of day in two parts: without the fraction of its last second, and that in microseconds.
std::pair<std::string, int64_t> WithoutFraction(const std::string& text) {
    constexpr size_t kMostDigits = 6;
    const size_t point = text.find('.');
    // Seconds stand before it, and a colon before those, unless they are seconds since 1970.
    if (point == std::string::npos || point < 3 || (text[point - 3] != ':' && text[0] != '@')) {
        return {text, 0};
    }
    const size_t end = std::min(text.find_first_not_of("0123456789", point + 1), text.size());
    std::string digits = text.substr(point + 1, end - point - 1);
    if (digits.empty() || digits.size() > kMostDigits) {
        return {text, 0}; // refused as a whole
    }
    digits.resize(kMostDigits, '0');
    return {text.substr(0, point) + text.substr(end), std::stol(digits)};
}

void ReadRange(Query& query, const Options& options, const TimeZone& zone, int64_t now) {
    const DiskClock clock(options.skew);
    Present present = {now, now};
    if (!options.from.empty()) {
        const TypedTime from = ReadTime(options.from, zone, present, Twice::First);
        query.range.first = clock.DiskSeconds(from.first);
        present.day = from.first;
    }
    query.cutAt = query.range.last;
    if (!options.to.empty()) {
        const TypedTime to = ReadTime(options.to, zone, present, Twice::Second);
        query.range.last = clock.DiskSeconds(to.last);
        query.cutAt = clock.DiskSeconds(to.first == to.last ? to.last : to.last + 1);
    }
    if (query.range.first > query.range.last) {
        throw WrongUse("--from lies after --to; exchange them");
    }
    if (!options.at.empty()) {
        const auto [text, micros] = WithoutFraction(options.at);
        query.at = clock.DiskSeconds(ReadTime(text, zone, present, Twice::First).first) * kMicros + micros;
    }
    if (!options.seek.empty()) {
        query.seek = clock.DiskSeconds(ReadTime(options.seek, zone, present, Twice::First).first);
    }
}

} // namespace

TimeZone ReadZone(const Options& options) {
    try {
        return TimeZone(options.zone);
    } catch (const UnknownZone& unknown) {
        throw WrongUse(std::string("--tz: ") + unknown.what());
    }
}

Query ReadQuery(const Options& options, const TimeZone& zone, const Names& names, int64_t now) {
    Query query;
    ReadRange(query, options, zone, now);
    query.channels = ReadChannels(options.channels, names);
    query.alarms = ReadEventTypes(options.alarm, "--alarm", names);
    return query;
}

} // namespace diskaccess
