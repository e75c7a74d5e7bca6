#ifndef DISKACCESS_TIME_ZONE_H
#define DISKACCESS_TIME_ZONE_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace diskaccess {

/// A calendar date and time of day, without a zone.
struct CivilTime {
    int year = 1970;
    int month = 1; ///< 1 to 12
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

/// Which of two instants a time of day means when clocks are turned back and it comes twice.
enum class Twice { First, Second };

/// Thrown for a zone that nothing is known of.
class UnknownZone : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The zone in which times are typed and shown. A process has one: the C library's.
class TimeZone {
public:
    /// @param name a name of the zone database or a POSIX rule; empty for the host's own zone
    /// @throws UnknownZone for a name that nothing is known of
    explicit TimeZone(const std::string& name);

    /// As the zone database or a POSIX rule names it; nothing when this machine does not tell what its own is.
    const std::optional<std::string>& Name() const { return m_name; }
    /// Seconds east of UTC at an instant.
    long OffsetAt(int64_t time) const;
    /// The zone as people name it at an instant: "CET (UTC+01:00)", "UTC".
    std::string NameAt(int64_t time) const;
    CivilTime ToCivil(int64_t time) const;
    /// The date of an instant, as days since 1970-01-01.
    int64_t DayOf(int64_t time) const;
    /// The instant of a date and time. One that clocks skip is taken to come after the gap.
    int64_t ToTime(const CivilTime& civil, Twice twice) const;

    /// "2026-11-20 14:30:00"; followed by the offset when that time comes twice.
    std::string Text(int64_t time) const;
    /// "2026-11-20T14:30:00+01:00"
    std::string Rfc3339(int64_t time) const;

    /// The same of microseconds: "2026-11-20 14:30:00.040", "2026-11-20T14:30:00.040000+01:00"
    std::string TextOfMicros(int64_t micros) const;
    std::string Rfc3339OfMicros(int64_t micros) const;
    /// "2026-11-20T13:30:00.040000Z", always in UTC
    static std::string UtcOfMicros(int64_t micros);

private:
    /// Another instant with the same date and time, if there is one.
    std::optional<int64_t> Twin(int64_t time) const;

    std::optional<std::string> m_name;
};

/// The instant of a date and time in UTC.
int64_t UtcTime(const CivilTime& civil);

} // namespace diskaccess

#endif // DISKACCESS_TIME_ZONE_H
