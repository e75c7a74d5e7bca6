#ifndef DISKACCESS_WORDING_H
#define DISKACCESS_WORDING_H

#include "cli/disk_clock.h"
#include "media/exporter.h"
#include "render/time_zone.h"

namespace diskaccess {

/// How exports write times and texts.
/// @param zone must outlive what is returned
media::Wording WordingOf(const TimeZone& zone, const DiskClock& clock);

} // namespace diskaccess

#endif // DISKACCESS_WORDING_H
