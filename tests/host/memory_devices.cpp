#include "host/memory_devices.h"

#include <fcntl.h>

#include <cerrno>

namespace test_support {

int MemoryDevices::Open(const char* path, int flags) {
    MemoryDevice* const device = m_table.Named(path);
    if (device == nullptr) {
        return HostLayer::Open(path, flags);
    }
    const bool readOnly = (flags & O_ACCMODE) == O_RDONLY;
    if (device->Size() == 0 || !readOnly) {
        errno = readOnly ? ENOENT : EROFS;
        return -1;
    }
    return m_table.Open(*device);
}

int64_t MemoryDevices::Seek(int fd, int64_t offset, int whence) {
    return DeviceTable::Owns(fd) ? m_table.Seek(fd, offset, whence) : HostLayer::Seek(fd, offset, whence);
}

int64_t MemoryDevices::Read(int fd, void* data, size_t size) {
    return DeviceTable::Owns(fd) ? m_table.Read(fd, data, size) : HostLayer::Read(fd, data, size);
}

int MemoryDevices::Flush(int fd) {
    return DeviceTable::Owns(fd) ? m_table.Flush(fd) : HostLayer::Flush(fd);
}

int MemoryDevices::Close(int fd) {
    return DeviceTable::Owns(fd) ? m_table.Close(fd) : HostLayer::Close(fd);
}

int MemoryDevices::Control(int fd, unsigned long request, void* answer) {
    if (!DeviceTable::Owns(fd)) {
        return HostLayer::Control(fd, request, answer);
    }
    const MemoryDevice* const device = m_table.OpenOn(fd);
    if (device == nullptr) {
        errno = EBADF;
        return -1;
    }
    return m_answers.Answer(device->Size(), request, answer);
}

} // namespace test_support
