#ifndef DISKACCESS_WORDING_H
#define DISKACCESS_WORDING_H

#include <cstdint>
#include <string>

#include "cli/disk_clock.h"
#include "media/exporter.h"
#include "render/time_zone.h"

namespace diskaccess {

/// How exports write times and texts.
/// @param zone must outlive what is returned
media::Wording WordingOf(const TimeZone& zone, const DiskClock& clock);

/// A time stamp in names of files, "2026-11-20-140005.200": as file systems take it.
std::string FileTime(const TimeZone& zone, const DiskClock& clock, int64_t time);

} // namespace diskaccess

#endif // DISKACCESS_WORDING_H
