#ifndef DISK_ACCESS_IO_HOST_H
#define DISK_ACCESS_IO_HOST_H

/// @file host.h
/// All that the library asks of the system it runs on: the calls on a device, and the line of text that tells of a
/// failure. Every one of them goes through a table, so that a program into which the library is linked statically can
/// read from something else than a device file, and can take the messages. Nothing of this is exported.

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace disk_access {

/// The calls. Each gets the table's own context first; the rest, and the result, are those of the system call of that
/// name. A descriptor is whatever `open` returned: the library keeps it, compares it with 0 and 1, and passes it on.
struct HostCalls {
    void* context;
    int (*open)(void* context, const char* path, int flags);
    int64_t (*seek)(void* context, int fd, int64_t offset, int whence);
    int64_t (*read)(void* context, int fd, void* data, size_t size);
    int (*flush)(void* context, int fd);
    int (*close)(void* context, int fd);
    /// A request for the size of a block device.
    int (*control)(void* context, int fd, unsigned long request, void* answer);
    void (*message)(void* context, const char* format, va_list values);
};

/// The table that is in force unless another is set: the kernel, and standard output.
extern const HostCalls kKernelCalls;

/// Puts a table in force on this thread, for as long as this object lives; then the one before is in force again.
/// Objects of the library must be used under the table that they were opened under: their descriptors are its own.
class HostScope {
public:
    /// @param calls must outlive this object
    explicit HostScope(const HostCalls& calls);
    ~HostScope();
    HostScope(const HostScope&) = delete;
    HostScope& operator=(const HostScope&) = delete;

    /// The table that is in force again afterwards, for one that passes on what it does not answer itself.
    const HostCalls& Before() const { return *m_before; }

private:
    const HostCalls* m_before;
};

/// The calls of the table in force.
/// @{
int HostOpen(const char* path, int flags);
int64_t HostSeek(int fd, int64_t offset, int whence);
/// @return whether exactly @p size bytes were read
bool HostReadWhole(int fd, void* data, size_t size);
void HostFlush(int fd);
void HostClose(int fd);
int HostControl(int fd, unsigned long request, void* answer);
void Message(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// @}

} // namespace disk_access

#endif // DISK_ACCESS_IO_HOST_H
