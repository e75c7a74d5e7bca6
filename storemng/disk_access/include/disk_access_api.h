#ifndef DISK_ACCESS_API_H
#define DISK_ACCESS_API_H

/// @file disk_access_api.h
/// Marks what libDiskAccess exports; everything else in the library is hidden.

/// Precedes every class and function that the library exports.
#define DISK_ACCESS_API __attribute__((visibility("default")))

#endif // DISK_ACCESS_API_H
