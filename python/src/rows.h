#ifndef PYTHON_ROWS_H
#define PYTHON_ROWS_H

#include <pybind11/pybind11.h>

#include <memory>
#include <vector>

#include "packer.h"
#include "recordings/problem.h"
#include "recordings/records.h"
#include "shared_disk.h"

namespace python {

// Answers as Python's side takes them: many rows of numbers as packed bytes, which become objects or an array there; the
// rest as tuples and dictionaries.

/// Records of a range: <IIIIIQBB: block, channel, segment, start, end, bytes, closed, mark.
pybind11::bytes PackedRecords(SharedDisk& shared, const recordings::RecordQuery& query);

/// An event: <qQIIiB: micros, type, block, entry, channel or -1, indexed.
void Pack(const recordings::Event& event, Packer& rows);

/// Events of a range.
pybind11::bytes PackedEvents(SharedDisk& shared, const recordings::TimeRange& range,
                             recordings::EventMask mask);

/// What the head, the newest block and the list of blocks say.
pybind11::dict Facts(SharedDisk& shared);

/// A problem: kind, severity, text without times, and its fields.
pybind11::tuple AsTuple(const recordings::Problem& problem);
pybind11::list AsList(const std::vector<recordings::Problem>& problems);

/// What is wrong with the disk, with its blocks of a range and with their indexes.
std::vector<recordings::Problem> ProblemsOf(SharedDisk& shared, const recordings::RecordQuery& query);

} // namespace python

#endif // PYTHON_ROWS_H
