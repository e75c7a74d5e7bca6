#ifndef DISKACCESS_COVERAGE_H
#define DISKACCESS_COVERAGE_H

#include "cli/context.h"
#include "recordings/coverage.h"
#include "render/timeline/labels.h"

namespace diskaccess {

/// The journeys that are asked for, with the channel of each event.
recordings::Coverage CoverageOf(Context& context);

/// What there is to say where a coverage has no journeys.
std::string NothingRecorded(const Context& context);

/// How a timeline of a disk writes what it shows.
/// @param context must outlive it
timeline::Labels LabelsOf(const Context& context);

} // namespace diskaccess

#endif // DISKACCESS_COVERAGE_H
