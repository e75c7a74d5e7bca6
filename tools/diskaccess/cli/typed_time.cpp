#include "cli/typed_time.h"

#include <optional>
#include <regex>

#include "cli/failure.h"
#include "recordings/query.h"

namespace diskaccess {

namespace {

constexpr int64_t kDay = 86400;

int Number(const std::ssub_match& match, int otherwise) {
    return match.matched ? std::stoi(match.str()) : otherwise;
}

bool Exists(const CivilTime& t) {
    const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (t.year % 4 == 0 && t.year % 100 != 0) || t.year % 400 == 0;
    if (t.month < 1 || t.month > 12 || t.hour > 23 || t.minute > 59 || t.second > 59) {
        return false;
    }
    return t.day >= 1 && t.day <= days[t.month - 1] + (t.month == 2 && leap ? 1 : 0);
}

TypedTime Instant(int64_t time) {
    return {time, time};
}

/// The day of a date, from its first second to the last before the next day's. Days differ in length.
TypedTime WholeDay(CivilTime date, const TimeZone& zone) {
    date.hour = date.minute = date.second = 0;
    const int64_t first = zone.ToTime(date, Twice::First);
    CivilTime next = zone.ToCivil(first + kDay + kDay / 2);
    next.hour = next.minute = next.second = 0;
    return {first, zone.ToTime(next, Twice::First) - 1};
}

int64_t UnitSeconds(char unit) {
    switch (unit) {
    case 's':
        return 1;
    case 'm':
        return 60;
    case 'h':
        return 3600;
    case 'd':
        return kDay;
    default:
        return 7 * kDay;
    }
}

std::optional<TypedTime> ReadWord(const std::string& text, const TimeZone& zone, int64_t now) {
    if (text == "now") {
        return Instant(now);
    }
    if (text == "today") {
        return WholeDay(zone.ToCivil(now), zone);
    }
    if (text == "yesterday") {
        // Noon of today, less a day, lies in yesterday however long either is.
        CivilTime noon = zone.ToCivil(now);
        noon.hour = 12;
        return WholeDay(zone.ToCivil(zone.ToTime(noon, Twice::First) - kDay), zone);
    }
    return std::nullopt;
}

std::optional<TypedTime> ReadRelative(const std::string& text, int64_t now) {
    static const std::regex ago("-([0-9]{1,9})([smhdw])");
    static const std::regex epoch("@([0-9]{1,10})");
    std::smatch match;
    if (std::regex_match(text, match, ago)) {
        return Instant(now - std::stoll(match[1].str()) * UnitSeconds(match[2].str()[0]));
    }
    if (std::regex_match(text, match, epoch)) {
        return Instant(std::stoll(match[1].str()));
    }
    return std::nullopt;
}

/// The offset "Z" or "+01:00", in seconds.
int64_t OffsetOf(const std::string& text) {
    if (text == "Z") {
        return 0;
    }
    const int64_t seconds =
        std::stoi(text.substr(1, 2)) * 3600 + std::stoi(text.substr(text.size() - 2)) * 60;
    return text[0] == '-' ? -seconds : seconds;
}

std::optional<TypedTime> ReadCivil(const std::string& text, const TimeZone& zone, int64_t day, Twice twice) {
    static const std::regex date("([0-9]{4})-([0-9]{2})-([0-9]{2})");
    static const std::regex dateAndTime("([0-9]{4})-([0-9]{2})-([0-9]{2})[ T]([0-9]{1,2})(?::([0-9]{2}))?"
                                        "(?::([0-9]{2}))?(Z|[-+][0-9]{2}:?[0-9]{2})?");
    static const std::regex timeOfDay("([0-9]{1,2}):([0-9]{2})(?::([0-9]{2}))?");
    std::smatch match;
    CivilTime civil;
    if (std::regex_match(text, match, date)) {
        civil = {Number(match[1], 0), Number(match[2], 0), Number(match[3], 0), 0, 0, 0};
        return Exists(civil) ? std::optional(WholeDay(civil, zone)) : std::nullopt;
    }
    std::string offset;
    if (std::regex_match(text, match, dateAndTime)) {
        civil = {Number(match[1], 0), Number(match[2], 0), Number(match[3], 0),
                 Number(match[4], 0), Number(match[5], 0), Number(match[6], 0)};
        offset = match[7].str();
    } else if (std::regex_match(text, match, timeOfDay)) {
        civil = zone.ToCivil(day);
        civil.hour = Number(match[1], 0);
        civil.minute = Number(match[2], 0);
        civil.second = Number(match[3], 0);
    } else {
        return std::nullopt;
    }
    if (!Exists(civil)) {
        return std::nullopt;
    }
    if (!offset.empty()) {
        return Instant(UtcTime(civil) - OffsetOf(offset));
    }
    return Instant(zone.ToTime(civil, twice));
}

} // namespace

TypedTime ReadTime(const std::string& text, const TimeZone& zone, const Present& present, Twice twice) {
    std::optional<TypedTime> time = ReadWord(text, zone, present.now);
    if (!time) {
        time = ReadRelative(text, present.now);
    }
    if (!time) {
        time = ReadCivil(text, zone, present.day, twice);
    }
    if (!time) {
        throw WrongUse("'" + text +
                       "' is not a time; give one like '2026-11-20 14:30:00', 2026-11-20, 14:30, " +
                       "yesterday, -2h or @1700000000");
    }
    return *time;
}

std::optional<int64_t> MicrosOfRfc3339(const std::string& text) {
    static const std::regex form("([0-9]{4})-([0-9]{2})-([0-9]{2})T([0-9]{2}):([0-9]{2}):([0-9]{2})"
                                 "\\.([0-9]{6})(Z|[-+][0-9]{2}:[0-9]{2})");
    constexpr size_t kLongest = 64; // a manifest may hold any text
    std::smatch match;
    if (text.size() > kLongest || !std::regex_match(text, match, form)) {
        return std::nullopt;
    }
    const CivilTime civil = {Number(match[1], 0), Number(match[2], 0), Number(match[3], 0),
                             Number(match[4], 0), Number(match[5], 0), Number(match[6], 0)};
    using recordings::kMicros;
    return Exists(civil)
               ? std::optional((UtcTime(civil) - OffsetOf(match[8].str())) * kMicros + Number(match[7], 0))
               : std::nullopt;
}

} // namespace diskaccess
