#ifndef PYTHON_COVERAGE_H
#define PYTHON_COVERAGE_H

#include <pybind11/pybind11.h>

#include "recordings/journeys.h"
#include "shared_disk.h"

namespace python {

/// Journeys: <IIIIQQQQ: number, start, end, channels as bits, records, bytes, events, losses.
pybind11::bytes PackedJourneys(SharedDisk& shared, const recordings::JourneyQuery& query);

/// A tuple a journey: packed as above; (channel, spans, gaps) of each channel; (start, end, types) of each alarm; packed
/// events; (start, end, channels as bits, problem) of what is damaged.
pybind11::list CoverageOf(SharedDisk& shared, const recordings::JourneyQuery& query);

} // namespace python

#endif // PYTHON_COVERAGE_H
