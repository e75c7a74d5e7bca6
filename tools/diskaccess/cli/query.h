#ifndef DISKACCESS_QUERY_H
#define DISKACCESS_QUERY_H

/// @file query.h
/// What the options ask for, as values.

#include <cstdint>
#include <optional>

#include "cli/disk_clock.h"
#include "cli/names.h"
#include "cli/options.h"
#include "recordings/query.h"
#include "render/time_zone.h"

namespace diskaccess {

/// What is asked of a disk. Times are those of the disk's own clock.
struct Query {
    recordings::TimeRange range;
    /// Where recordings that reach beyond the range are cut: its last second, or, after a range of whole days, midnight.
    uint32_t cutAt = 0;
    /// The moment that is asked for, microseconds.
    std::optional<int64_t> at;
    /// Where to begin within the range.
    std::optional<uint32_t> seek;
    recordings::ChannelSet channels = recordings::ChannelSet::All();
    std::optional<recordings::EventMask> alarms;
};

/// The zone in which times are typed and shown.
/// @throws WrongUse
TimeZone ReadZone(const Options& options);

/// @param names that channels and event types may be given by
/// @param now the present, true time
/// @throws WrongUse that says which option is wrong
Query ReadQuery(const Options& options, const TimeZone& zone, const Names& names, int64_t now);

} // namespace diskaccess

#endif // DISKACCESS_QUERY_H
