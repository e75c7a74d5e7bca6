#include "dev_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "format/field_text.h"
#include "io/device.h"
#include "io/host.h"
#include "io/messages.h"

namespace disk_access {

int OpenReadOnly(const PartAccess_t& part) {
    return HostOpen(FieldText(part.PartName).chars, O_RDONLY | O_LARGEFILE);
}

uint64_t DeviceSize(dev_op_st* dev) {
    if (dev == nullptr || dev->fd < 1) {
        return 0;
    }
    const int64_t end = HostSeek(dev->fd, 0, SEEK_END);
    return end < 0 ? 0 : static_cast<uint64_t>(end);
}

int ReadAt(dev_op_st* dev, uint64_t offset, void* buf, uint32_t len) {
    return dev_seek(dev, static_cast<long long>(offset)) == 0 ? dev_read(dev, buf, len) : -1;
}

uint8_t* LoadTable(dev_op_st* dev, uint32_t offset, uint32_t statedBytes, uint32_t bytes,
                   uint64_t deviceSize) {
    if (uint64_t{offset} + statedBytes > deviceSize) {
        return nullptr;
    }
    auto* const table = static_cast<uint8_t*>(std::malloc(bytes == 0 ? 1 : bytes));
    if (table == nullptr) {
        return nullptr;
    }
    if (ReadAt(dev, offset, table, bytes) != 0) {
        std::free(table);
        return nullptr;
    }
    return table;
}

} // namespace disk_access

dev_op_st* dev_open(PartAccess_t* part) {
    if (part == nullptr) {
        return nullptr;
    }
    auto* const dev = static_cast<dev_op_st*>(std::malloc(sizeof(dev_op_st)));
    if (dev == nullptr) {
        DISK_ACCESS_REPORT_FAILURE("dev_open");
        return nullptr;
    }
    dev->fd = disk_access::OpenReadOnly(*part);
    if (dev->fd < 0) {
        DISK_ACCESS_REPORT_FAILURE("dev_open");
        std::free(dev);
        return nullptr;
    }
    return dev;
}

int dev_close(dev_op_st* dev) {
    if (dev == nullptr || dev->fd < 1) {
        return -1;
    }
    disk_access::HostClose(dev->fd);
    std::free(dev);
    return 0;
}

int dev_seek(dev_op_st* dev, long long offset) {
    if (dev == nullptr || dev->fd < 1) {
        return -1;
    }
    return disk_access::HostSeek(dev->fd, offset, SEEK_SET) < 0 ? -1 : 0;
}

int dev_read(dev_op_st* dev, void* buf, unsigned int len) {
    if (buf == nullptr || dev == nullptr || dev->fd < 1) {
        return -1;
    }
    return disk_access::HostReadWhole(dev->fd, buf, len) ? 0 : -1;
}
