#ifndef DISK_ACCESS_IO_MESSAGES_H
#define DISK_ACCESS_IO_MESSAGES_H

#include "io/host.h"

/// Reports a failed system call or allocation: the operation, and the line at which it failed.
#define DISK_ACCESS_REPORT_FAILURE(operation) disk_access::Message("%s : %d, Failed\n", (operation), __LINE__)

#endif // DISK_ACCESS_IO_MESSAGES_H
