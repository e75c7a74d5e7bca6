#include "cli/query.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "cli/failure.h"
#include "cli/typed_time.h"

namespace diskaccess {

namespace {

constexpr int64_t kMicros = 1000000;

using recordings::ChannelSet;
using recordings::EventMask;

bool HasOnly(const std::string& text, const char* allowed) {
    return text.find_first_not_of(allowed) == std::string::npos;
}

/// A number from a list like "0,2-4".
uint32_t ReadChannel(const std::string& text, const std::string& list) {
    const bool digits = !text.empty() && text.size() <= 2 && HasOnly(text, "0123456789");
    if (!digits || std::stoul(text) >= recordings::kChannels) {
        throw WrongUse("--channel: '" + list +
                       "' is not a list of channels; give numbers from 0 to 31, like 0,2-4");
    }
    return static_cast<uint32_t>(std::stoul(text));
}

ChannelSet ReadChannels(const std::string& list) {
    if (list == "all") {
        return ChannelSet::All();
    }
    ChannelSet set;
    for (size_t begin = 0; begin <= list.size();) {
        const size_t end = std::min(list.find(',', begin), list.size());
        const std::string item = list.substr(begin, end - begin);
        const size_t dash = item.find('-');
        const uint32_t first = ReadChannel(item.substr(0, dash), list);
        const uint32_t last = dash == std::string::npos ? first : ReadChannel(item.substr(dash + 1), list);
        if (first > last) {
            throw WrongUse("--channel: '" + item + "' runs backwards");
        }
        for (uint32_t channel = first; channel <= last; ++channel) {
            set.Add(channel);
        }
        begin = end + 1;
    }
    return set;
}

/// @return nothing when the text is not a number, or too large
std::optional<uint64_t> ReadMask(const std::string& text) {
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hexadecimal ? text.substr(2) : text;
    if (!HasOnly(digits, hexadecimal ? "0123456789abcdefABCDEF" : "0123456789")) {
        return std::nullopt;
    }
    try {
        return std::stoull(digits, nullptr, hexadecimal ? 16 : 10);
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
}

std::optional<EventMask> ReadAlarms(const std::string& text) {
    if (text.empty()) {
        return std::nullopt;
    }
    if (text == "all") {
        return recordings::kAllEvents;
    }
    const std::optional<uint64_t> mask = ReadMask(text);
    if (mask.value_or(0) == 0) {
        throw WrongUse("--alarm: '" + text + "' is not a set of event types; give a mask like 0x5, or all");
    }
    return mask;
}

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
        throw WrongUse("--from lies after --to");
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

Query ReadQuery(const Options& options, const TimeZone& zone, int64_t now) {
    Query query;
    ReadRange(query, options, zone, now);
    query.channels = ReadChannels(options.channels);
    query.alarms = ReadAlarms(options.alarm);
    return query;
}

} // namespace diskaccess
