#include "render/time_zone.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>

#include "recordings/query.h"

namespace diskaccess {

namespace {

constexpr int64_t kDay = 86400;

/// Whether a file is one of the zone database's, which its first bytes say.
bool HoldsZone(const std::filesystem::path& path) {
    constexpr char kMagic[] = "TZif";
    char start[sizeof kMagic] = "";
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored) &&
           std::ifstream(path, std::ios::binary).read(start, sizeof kMagic - 1) &&
           std::strcmp(start, kMagic) == 0;
}

/// Whether the C library will know a zone: it takes an unknown one for UTC without a word.
bool Known(const std::string& name) {
    static const std::regex posixRule("(<[-+A-Za-z0-9]+>|[A-Za-z]{3,})[-+]?[0-9]{1,2}(:[0-9]{2}){0,2}.*");
    if (std::regex_match(name, posixRule)) {
        return true;
    }
    const char* const directory = std::getenv("TZDIR");
    const std::filesystem::path zones = directory != nullptr ? directory : "/usr/share/zoneinfo";
    return name.find("..") == std::string::npos && HoldsZone(zones / name);
}

/// What a link to a file of the zone database names: "/usr/share/zoneinfo/Europe/Berlin" names Europe/Berlin.
std::string NameInDatabase(const std::string& path) {
    const std::string folder = "/zoneinfo/";
    const size_t at = path.rfind(folder);
    return at == std::string::npos ? "" : path.substr(at + folder.size());
}

/// The zone that the C library takes. Times in a document are of little use where nobody knows of which zone they are.
std::optional<std::string> NameOfThisProcess() {
    const char* const set = std::getenv("TZ");
    std::error_code ignored;
    std::string name =
        set != nullptr ? set : NameInDatabase(std::filesystem::read_symlink("/etc/localtime", ignored));
    if (!name.empty() && name.front() == ':') { // what follows is a name, and no rule
        name.erase(0, 1);
    }
    if (name.empty() && set != nullptr) {
        return "UTC";
    }
    return name == "UTC" || (!name.empty() && name.front() != '/' && Known(name)) ? std::optional(name)
                                                                                  : std::nullopt;
}

std::tm Local(int64_t time) {
    const time_t instant = time;
    std::tm parts = {};
    localtime_r(&instant, &parts);
    return parts;
}

std::string OffsetText(long offset) {
    const char sign = offset < 0 ? '-' : '+';
    const long minutes = std::labs(offset) / 60;
    return fmt::format("{}{:02}:{:02}", sign, minutes / 60, minutes % 60);
}

} // namespace

int64_t UtcTime(const CivilTime& civil) {
    std::tm parts = {};
    parts.tm_year = civil.year - 1900;
    parts.tm_mon = civil.month - 1;
    parts.tm_mday = civil.day;
    parts.tm_hour = civil.hour;
    parts.tm_min = civil.minute;
    parts.tm_sec = civil.second;
    return timegm(&parts);
}

TimeZone::TimeZone(const std::string& name) {
    if (!name.empty()) {
        if (name != "UTC" && !Known(name)) {
            throw UnknownZone("no zone is called '" + name + "'; give a name like Europe/Berlin or UTC");
        }
        setenv("TZ", name.c_str(), 1);
    }
    m_name = NameOfThisProcess();
    tzset();
}

long TimeZone::OffsetAt(int64_t time) const {
    return Local(time).tm_gmtoff;
}

std::string TimeZone::NameAt(int64_t time) const {
    const std::tm parts = Local(time);
    const std::string name = parts.tm_zone == nullptr ? "" : parts.tm_zone;
    return name == "UTC" ? name : fmt::format("{} (UTC{})", name, OffsetText(parts.tm_gmtoff));
}

CivilTime TimeZone::ToCivil(int64_t time) const {
    const std::tm parts = Local(time);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec};
}

int64_t TimeZone::DayOf(int64_t time) const {
    const int64_t local = time + OffsetAt(time);
    return local / kDay - (local % kDay < 0 ? 1 : 0);
}

int64_t TimeZone::ToTime(const CivilTime& civil, Twice twice) const {
    // The zone's offset is one of those a day before and a day after, whichever way clocks are turned
    // between.
    const int64_t utc = UtcTime(civil);
    const int64_t before = utc - OffsetAt(utc - kDay);
    const int64_t after = utc - OffsetAt(utc + kDay);
    const bool beforeHolds = before + OffsetAt(before) == utc;
    const bool afterHolds = after + OffsetAt(after) == utc;
    if (beforeHolds && afterHolds) {
        return twice == Twice::First ? std::min(before, after) : std::max(before, after);
    }
    return afterHolds ? after : before;
}

std::optional<int64_t> TimeZone::Twin(int64_t time) const {
    const long offset = OffsetAt(time);
    for (const int64_t neighbour : {time - kDay, time + kDay}) {
        const long other = OffsetAt(neighbour);
        const int64_t twin = time + offset - other;
        if (twin != time && OffsetAt(twin) == other) {
            return twin;
        }
    }
    return std::nullopt;
}

std::string TimeZone::Text(int64_t time) const {
    const CivilTime t = ToCivil(time);
    std::string text = fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", t.year, t.month, t.day, t.hour,
                                   t.minute, t.second);
    return Twin(time) ? text + OffsetText(OffsetAt(time)) : text;
}

std::string TimeZone::Rfc3339(int64_t time) const {
    const CivilTime t = ToCivil(time);
    const long offset = OffsetAt(time);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}", t.year, t.month, t.day, t.hour, t.minute,
                       t.second, offset == 0 ? "Z" : OffsetText(offset));
}

namespace {

using recordings::kMicros;
/// Where the seconds end in both texts.
constexpr size_t kEndOfSeconds = 19;

struct SplitTime {
    int64_t seconds;
    int64_t micros; ///< 0 to 999,999
};

SplitTime Split(int64_t micros) {
    const int64_t rest = (micros % kMicros + kMicros) % kMicros;
    return {(micros - rest) / kMicros, rest};
}

} // namespace

std::string TimeZone::TextOfMicros(int64_t micros) const {
    const SplitTime time = Split(micros);
    return Text(time.seconds).insert(kEndOfSeconds, fmt::format(".{:03}", time.micros / 1000));
}

std::string TimeZone::Rfc3339OfMicros(int64_t micros) const {
    const SplitTime time = Split(micros);
    return Rfc3339(time.seconds).insert(kEndOfSeconds, fmt::format(".{:06}", time.micros));
}

std::string TimeZone::UtcOfMicros(int64_t micros) {
    const SplitTime time = Split(micros);
    const time_t seconds = time.seconds;
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:06}Z", parts.tm_year + 1900, parts.tm_mon + 1,
                       parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, time.micros);
}

} // namespace diskaccess
