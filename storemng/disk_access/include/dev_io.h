#ifndef DISK_ACCESS_DEV_IO_H
#define DISK_ACCESS_DEV_IO_H

/// @file dev_io.h
/// Raw, read-only access to a recording partition: the whole device, or the byte window of one block.
///
/// The functions return 0 for success and -1 for failure unless they say otherwise. A null argument is a
/// failure. Each seek and each read is one system call: nothing is buffered and nothing is retried. Only the
/// two open functions print: one line "NAME : LINE, Failed" on standard output. A descriptor below 1 counts
/// as invalid: a handle with descriptor 0 is refused by every function, also by its close function.
///
/// Use a handle from one thread at a time.

#include <stdint.h>

#include "disk_access_api.h"

#pragma pack(push, 4)

/// The caller's description of a partition.
struct PartAccess_t {
    int DiskType;       ///< code of the recorder or disk type; it selects the magic that the head must have
    char PartName[128]; ///< path of the block device or image file; NUL-terminated if shorter than the field
};

/// The request for the window of one block.
struct block_info_t : public PartAccess_t {
    uint32_t BlockNum; ///< number of the block
    uint32_t BlkSize;  ///< bytes per block, from the partition head
    uint32_t BaseOffs; ///< device offset of block 0: BLOCK_BASE_OFFSET (disk_format.h)
};

/// A handle on a whole partition. dev_open() makes it; only dev_close() releases it.
struct dev_op_st {
    int fd; ///< the descriptor
};

#pragma pack(pop)

/// A handle on the byte window of one block. block_open() makes it; only block_close() releases it. (The
/// spelling of the name is part of the interface.)
struct bolck_op_st {
    int fd;            ///< the descriptor; each window has its own, so windows do not affect each other
    int64_t StartOffs; ///< device offset of the window's first byte
    int64_t EndOffs;   ///< device offset one past the window's last byte
    int64_t CurOffs;   ///< device offset at which the next block_read() reads
};

/// Opens a partition read-only, positioned at its first byte. @p part is not needed after the call.
/// @return a handle that the caller must release with dev_close(); null: @p part is null, there is no memory,
///         or the path cannot be opened
DISK_ACCESS_API dev_op_st* dev_open(PartAccess_t* part);

/// Closes @p dev and frees it. On -1 nothing was closed or freed.
DISK_ACCESS_API int dev_close(dev_op_st* dev);

/// Moves to @p offset bytes from the start of the device. The offset is not checked against the device's
/// size.
DISK_ACCESS_API int dev_seek(dev_op_st* dev, long long offset);

/// Reads exactly @p len bytes at the current position. A shorter read is a failure; after a failure the
/// position and the contents of @p buf are undefined.
/// @pre @p buf has room for @p len bytes
DISK_ACCESS_API int dev_read(dev_op_st* dev, void* buf, unsigned int len);

/// Opens the window of one block, positioned at its first byte. @p info is not needed after the call. The
/// block is not checked against the device's size.
/// @return a handle that the caller must release with block_close(); null: @p info is null, there is no
///         memory, the path cannot be opened, or the device refuses the seek
DISK_ACCESS_API bolck_op_st* block_open(block_info_t* info);

/// Flushes (fsync) and closes @p block and frees it. On -1 nothing was closed or freed.
DISK_ACCESS_API int block_close(bolck_op_st* block);

/// Moves to @p offset bytes from the start of the window; the end of the window is a valid position. An
/// offset beyond the end is refused and changes nothing. If the device refuses the seek, CurOffs becomes the
/// window's start but the device does not move: seek again before the next read.
DISK_ACCESS_API int block_seek(bolck_op_st* block, unsigned int offset);

/// Reads exactly @p len bytes at the current position. A read that would cross the end of the window is
/// refused and reads nothing. After a failure the position is unchanged and the contents of @p buf are
/// undefined.
/// @pre @p buf has room for @p len bytes
DISK_ACCESS_API int block_read(bolck_op_st* block, void* buf, unsigned int len);

#endif // DISK_ACCESS_DEV_IO_H
