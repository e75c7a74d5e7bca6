#ifndef DISK_ACCESS_IO_MESSAGES_H
#define DISK_ACCESS_IO_MESSAGES_H

#include <cstdio>

/// Reports a failed system call or allocation on standard output: the operation, and the line it failed at.
#define DISK_ACCESS_REPORT_FAILURE(operation) std::printf("%s : %d, Failed\n", (operation), __LINE__)

#endif // DISK_ACCESS_IO_MESSAGES_H
