#ifndef DISK_ACCESS_DUMP_DUMP_DEVICE_H
#define DISK_ACCESS_DUMP_DUMP_DEVICE_H

#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "io/host.h"

namespace disk_access {

/// A descriptor that is closed at the end of its scope.
class DumpDevice {
public:
    /// @param fd the result of HostOpen()
    explicit DumpDevice(int fd) : m_fd(fd) {}
    ~DumpDevice() {
        if (Opened()) {
            HostClose(m_fd);
        }
    }
    DumpDevice(const DumpDevice&) = delete;
    DumpDevice& operator=(const DumpDevice&) = delete;

    bool Opened() const { return m_fd >= 0; }
    int Descriptor() const { return m_fd; }

    bool Seek(uint64_t offset) const { return HostSeek(m_fd, static_cast<int64_t>(offset), SEEK_SET) >= 0; }

    /// Reads exactly @p size bytes; a shorter read is a failure.
    bool Read(void* data, size_t size) const { return HostReadWhole(m_fd, data, size); }

    bool ReadAt(uint64_t offset, void* data, size_t size) const { return Seek(offset) && Read(data, size); }

private:
    int m_fd;
};

} // namespace disk_access

#endif // DISK_ACCESS_DUMP_DUMP_DEVICE_H
