#ifndef DISK_ACCESS_DEV_IO_H
#define DISK_ACCESS_DEV_IO_H

/// @file dev_io.h
/// Raw, read-only access to a recording partition: the whole device, or the byte window of one block.
///
/// One system call a seek and a read; nothing is buffered, nothing is retried. The functions return 0 for
/// success and -1 for failure unless they say otherwise. Only the two open functions print, one line "NAME :
/// LINE, Failed" on standard output. A descriptor below 1 counts as invalid throughout: a handle that was
/// given descriptor 0 is refused by every function, its close function included.

#include <stdint.h>

#include "disk_access_api.h"

#pragma pack(push, 4)

/// The caller's description of a partition.
struct PartAccess_t {
    int DiskType; ///< code of the recorder or disk type; it chooses the magic that the partition must bear
    char PartName[128]; ///< path of the block device or image file, NUL-terminated
};

/// The request for one block's window.
struct block_info_t : public PartAccess_t {
    uint32_t BlockNum; ///< number of the block
    uint32_t BlkSize;  ///< bytes a block, from the partition head
    uint32_t BaseOffs; ///< device offset of block 0: BLOCK_BASE_OFFSET (disk_format.h)
};

/// A handle on a whole partition. Made by dev_open(), released by dev_close() alone.
struct dev_op_st {
    int fd; ///< the descriptor
};

#pragma pack(pop)

/// A handle on the byte window of one block. Made by block_open(), released by block_close() alone. (The name
/// is spelled as callers have always spelled it.)
struct bolck_op_st {
    int fd;            ///< the descriptor; every window has its own, so windows never disturb each other
    int64_t StartOffs; ///< device offset of the window's first byte
    int64_t EndOffs;   ///< device offset one past the window's last byte
    int64_t CurOffs;   ///< device offset at which the next block_read() reads
};

/// Opens a partition read-only.
/// @return a handle that the caller releases with dev_close(), or null: @p part is null, memory is short, or
///         the path cannot be opened
DISK_ACCESS_API dev_op_st* dev_open(PartAccess_t* part);

/// Closes @p dev and frees it; on -1 nothing was freed.
DISK_ACCESS_API int dev_close(dev_op_st* dev);

/// Moves to @p offset bytes from the start of the device, unchecked.
DISK_ACCESS_API int dev_seek(dev_op_st* dev, long long offset);

/// Reads exactly @p len bytes at the current position. A shorter read is a failure: the buffer's contents and
/// the position are then undefined.
DISK_ACCESS_API int dev_read(dev_op_st* dev, void* buf, unsigned int len);

/// Opens the window of one block, positioned at its first byte.
/// @return a handle that the caller releases with block_close(), or null
DISK_ACCESS_API bolck_op_st* block_open(block_info_t* info);

/// Closes @p block and frees it; on -1 nothing was freed.
DISK_ACCESS_API int block_close(bolck_op_st* block);

/// Moves to @p offset bytes from the start of the window; the window's end itself is allowed. An offset
/// beyond it changes nothing; when the device refuses the seek, the window stands at its start again.
DISK_ACCESS_API int block_seek(bolck_op_st* block, unsigned int offset);

/// Reads exactly @p len bytes. A read that would cross the window's end is refused whole. After a short read
/// the window stands where it stood; the buffer's contents are then undefined.
DISK_ACCESS_API int block_read(bolck_op_st* block, void* buf, unsigned int len);

#endif // DISK_ACCESS_DEV_IO_H
