#ifndef DISK_ACCESS_IO_HOST_H
#define DISK_ACCESS_IO_HOST_H

/// @file host.h
/// Everything for which the library needs the system that it runs on: the calls on a device, and the
/// messages. All of them go through a table. So a program that links the library statically can read from a
/// source other than a device file, and can receive the messages. Nothing of this is exported.

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace disk_access {

/// The calls. The first argument of each is the table's context; the other arguments and the result are those
/// of the system call of that name. A descriptor is the number that `open` returned: the library keeps it,
/// compares it with 0 and 1, and passes it to the other calls.
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

/// The default table: the kernel, and standard output.
extern const HostCalls kKernelCalls;

/// Sets the table for this thread, as long as this object exists; its destructor sets the previous table
/// again. Use an object of the library only under the table under which it was opened: its descriptors belong
/// to that table.
class HostScope {
public:
    /// @param calls must outlive this object
    explicit HostScope(const HostCalls& calls);
    ~HostScope();
    HostScope(const HostScope&) = delete;
    HostScope& operator=(const HostScope&) = delete;

    /// The previous table. A table can pass calls to it that it does not answer itself.
    const HostCalls& Before() const { return *m_before; }

private:
    const HostCalls* m_before;
};

/// Make the calls of the current table.
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
