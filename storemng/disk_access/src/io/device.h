#ifndef DISK_ACCESS_IO_DEVICE_H
#define DISK_ACCESS_IO_DEVICE_H

#include <cstdint>

#include "dev_io.h"

namespace disk_access {

/// Opens the path of a partition descriptor for reading only. The path may have no terminating NUL.
/// @return a descriptor, or a negative number
int OpenReadOnly(const PartAccess_t& part);

/// The device's size in bytes, 0 if it cannot be determined. Moves the read position.
uint64_t DeviceSize(dev_op_st* dev);

/// Seeks, and reads exactly @p len bytes.
/// @return 0 or -1
int ReadAt(dev_op_st* dev, uint64_t offset, void* buf, uint32_t len);

/// Loads the first @p bytes bytes of a table of @p statedBytes bytes. No memory is allocated for a table that
/// would reach beyond the device.
/// @return the table, which the caller must free, or null
uint8_t* LoadTable(dev_op_st* dev, uint32_t offset, uint32_t statedBytes, uint32_t bytes,
                   uint64_t deviceSize);

} // namespace disk_access

#endif // DISK_ACCESS_IO_DEVICE_H
