#ifndef DISK_ACCESS_PRINT_DISK_H
#define DISK_ACCESS_PRINT_DISK_H

/// @file print_disk.h
/// What does this partition look like, field by field? The dump that diagnostic tools show.

#include "dev_io.h"

/// Writes a recording partition as text.
///
///     static int Show(void*, const char* format, ...); // vprintf
///
///     PartAccess_t part = {};
///     snprintf(part.PartName, sizeof part.PartName, "/dev/sda5");
///     CPrintDisk().Print(&part, 3, Show, nullptr);
///
/// The dump opens the device itself, read-only, and shares nothing with searches and readers. The object keeps
/// nothing between calls, so that threads may dump at the same time, each to a print function of its own.
class DISK_ACCESS_API CPrintDisk {
public:
    CPrintDisk();
    virtual ~CPrintDisk();

    CPrintDisk(const CPrintDisk&) = delete;
    CPrintDisk& operator=(const CPrintDisk&) = delete;

    /// Dumps @p part, which must be a block device: the size is what the kernel says of one, and an image file
    /// has none. Attach an image to a loop device (losetup) to dump it.
    ///
    /// | level     | output |
    /// |---|---|
    /// | below 0   | the device's path and size in bytes |
    /// | 0         | that, the partition head, and the bad-block bits and suspect counters |
    /// | 1         | size and partition head |
    /// | 2         | size, partition head, and of every block the head and tails |
    /// | 3 or more | as 2, and of every block the channel properties, record segments and events |
    ///
    /// Nothing is judged: a wrong magic, a block without the valid flag and an index that was never vouched for
    /// are printed as they lie there. Numbers are the disk's own, unsigned fields too are printed with %d;
    /// beside a time stands the local time of the host's zone. A text field that is not terminated ends with
    /// its field, the password after 127 characters.
    ///
    /// What cannot be read of a block is left out, together with the rest of that block, and the dump goes on
    /// with the next. The same goes for index tables that would not end within the block. Blocks that a
    /// cut-off copy lacks are named without their contents; of a head that states billions, no more are
    /// believed in than begin inside the device, or than record ids can name (65,536).
    ///
    /// @param part  only PartName counts: any magic is taken
    /// @param print is called with @p ctx, a printf format and its values, line by line or in pieces of a line;
    ///              its result is ignored. If it throws, everything is closed and freed, and the exception goes
    ///              on to the caller.
    /// @return 0; -1: no @p part or no @p print, or the device or its size cannot be had (nothing was printed
    ///         then), or it cannot be opened again, or its head or, at level 0, a bad-block table cannot be read
    ///         or finds no memory (the output ends there)
    int Print(PartAccess_t* part, int level, int (*print)(void* ctx, const char* format, ...), void* ctx);
};

#endif // DISK_ACCESS_PRINT_DISK_H
