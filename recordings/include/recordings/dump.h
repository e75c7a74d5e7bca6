#ifndef RECORDINGS_DUMP_H
#define RECORDINGS_DUMP_H

/// @file dump.h
/// A partition as text, field by field, for diagnostics.

#include "recordings/export.h"
#include "recordings/source.h"

namespace recordings {

/// Called like printf, with pieces of lines.
using DumpPrint = int (*)(void* context, const char* format, ...);

/// Prints a partition as it lies there, whatever is wrong with it, as libDiskAccess's CPrintDisk does of a block device.
/// @param level -1: name and size; 1: and the partition head; 0: and the bad-block tables; 2: head and all blocks; 3: and
///        their indexes
/// @return 0; -1 when the source is empty, or its head or tables cannot be read
RECORDINGS_API int Dump(const Source& source, int level, DumpPrint print, void* context);

} // namespace recordings

#endif // RECORDINGS_DUMP_H
