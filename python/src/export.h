#ifndef PYTHON_EXPORT_H
#define PYTHON_EXPORT_H

#include <pybind11/pybind11.h>

#include <string>

#include "media/exporter.h"
#include "shared_disk.h"

namespace python {

/// Exports a range.
/// @param words an object with the methods timestamp(micros), utc_timestamp(micros), readable_time(micros) and
///        readable_second(micros), each of which answers with a str
/// @return None when the range holds no frames; else a dictionary: outputs, manifest, tracks, left_out, problems
pybind11::object Export(SharedDisk& shared, media::ExportRequest request, const pybind11::object& words);

} // namespace python

#endif // PYTHON_EXPORT_H
