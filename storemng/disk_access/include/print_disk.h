#ifndef DISK_ACCESS_PRINT_DISK_H
#define DISK_ACCESS_PRINT_DISK_H

/// @file print_disk.h
/// Prints a partition field by field, for diagnostic tools.

#include "dev_io.h"

/// Writes a recording partition as text.
///
///     static int Show(void*, const char* format, ...); // vprintf
///
///     PartAccess_t part = {};
///     snprintf(part.PartName, sizeof part.PartName, "/dev/sda5");
///     CPrintDisk().Print(&part, 3, Show, nullptr);
///
/// The dump opens the device itself, read-only, and shares nothing with searches and readers. The object
/// keeps no state between calls: several threads may call Print() at the same time, each with its own print
/// function.
class DISK_ACCESS_API CPrintDisk {
public:
    CPrintDisk();
    virtual ~CPrintDisk();

    CPrintDisk(const CPrintDisk&) = delete;
    CPrintDisk& operator=(const CPrintDisk&) = delete;

    /// Dumps @p part. It must be a block device, because its size is asked with block device calls. To dump an
    /// image file, attach it to a loop device (losetup).
    ///
    /// | level     | output |
    /// |---|---|
    /// | below 0   | the device's path and size in bytes |
    /// | 0         | the same, the partition head, the bad-block bits and the suspect counters |
    /// | 1         | path and size, partition head |
    /// | 2         | path and size, partition head, and the head and tails of every block |
    /// | 3 or more | as 2, and the channel properties, record segments and events of every block |
    ///
    /// Nothing is checked for plausibility: a wrong magic, a block without the valid flag and an index that
    /// was never completed are printed as they are on the disk. Unsigned fields are printed with %d too. Each
    /// time is followed by the local time in the host's time zone. A text field without a terminating NUL is
    /// printed to the end of the field, the password to its 127th character. In the normal layout, the values
    /// printed as extended tail are the 12 bytes after the block.
    ///
    /// If a structure of a block cannot be read, the rest of that block is left out and the dump goes on with
    /// the next block. The same holds for index tables that would not end within the block. Of a block that
    /// the device does not contain, only the number and offset are printed. If the head states more blocks
    /// than begin inside the device, at most 65,536 blocks are printed (as many as record ids can name), or
    /// those inside the device if they are more.
    ///
    /// @param part  only PartName is used: any magic is accepted
    /// @param print is called with @p ctx, a printf format and its values, once or several times per line;
    ///              its result is ignored. If it throws, everything is closed and freed, and the exception
    ///              passes on to the caller.
    /// @return 0; -1: @p part or @p print is null, or the device cannot be opened or has no known size
    ///         (nothing was printed); or the second open fails, or the head or, at level 0, a bad-block table
    ///         cannot be read or there is no memory for it (the output ends there)
    int Print(PartAccess_t* part, int level, int (*print)(void* ctx, const char* format, ...), void* ctx);
};

#endif // DISK_ACCESS_PRINT_DISK_H
