#ifndef DISK_ACCESS_H
#define DISK_ACCESS_H

/// @file disk_access.h
/// The whole interface of libDiskAccess, the read side of a video recorder's raw recording partition.
///
/// Start with CSearchDisk (search_disk.h), which finds the recordings and events of a partition, and
/// CReadDisk (read_disk.h), which plays what was found. CPrintDisk (print_disk.h) prints a partition field by
/// field. The lower classes and the raw device functions are for callers that need a single block or a single
/// structure.
///
/// The library never writes to the device. It starts no threads and takes no locks: use each object from one
/// thread at a time. Times are seconds since 1970-01-01 UTC in 32-bit fields. Diagnostics go to standard
/// output.

#include "dev_io.h"
#include "disk_format.h"
#include "play_records.h"
#include "print_disk.h"
#include "read_block.h"
#include "read_disk.h"
#include "read_part.h"
#include "search_block.h"
#include "search_disk.h"
#include "search_part.h"
#include "search_records.h"

#endif // DISK_ACCESS_H
