// Types whose width the caller's flags choose (-D_FILE_OFFSET_BITS=64, -D_TIME_BITS=64) or that differ between targets
// are no part of the interface: a caller with other flags than the library's would pass another size. Whatever the
// public headers include besides these three of the system comes after the poison and would be caught too.

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#pragma GCC poison size_t ssize_t ptrdiff_t intptr_t uintptr_t
#pragma GCC poison off_t off64_t loff_t fpos_t time_t clock_t suseconds_t timeval timespec tm stat
#pragma GCC poison ino_t dev_t blkcnt_t fsblkcnt_t rlim_t wchar_t

#include "disk_access.h"
