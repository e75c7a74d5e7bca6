#ifndef TESTS_HOST_HOST_LAYER_H
#define TESTS_HOST_HOST_LAYER_H

#include "io/host.h"

namespace test_support {

/// A table of the library's calls, in force on this thread for as long as the object lives. By itself it passes every
/// call on to the table that was in force before; classes derived from it answer some themselves. Several may be in
/// force at once, one over the other; they must end in the reverse order of their making.
class HostLayer {
public:
    HostLayer(const HostLayer&) = delete;
    HostLayer& operator=(const HostLayer&) = delete;

protected:
    HostLayer();
    virtual ~HostLayer() = default;

    /// The calls, as the functions of HostCalls.
    /// @{
    virtual int Open(const char* path, int flags);
    virtual int64_t Seek(int fd, int64_t offset, int whence);
    virtual int64_t Read(int fd, void* data, size_t size);
    virtual int Flush(int fd);
    virtual int Close(int fd);
    virtual int Control(int fd, unsigned long request, void* answer);
    virtual void Message(const char* format, va_list values) __attribute__((format(printf, 2, 0)));
    /// @}

private:
    static HostLayer& Of(void* context) { return *static_cast<HostLayer*>(context); }
    __attribute__((format(printf, 2, 0))) static void Say(void* context, const char* format, va_list values) {
        Of(context).Message(format, values);
    }
    const disk_access::HostCalls& Below() const { return m_scope.Before(); }

    disk_access::HostCalls m_calls;
    disk_access::HostScope m_scope;
};

} // namespace test_support

#endif // TESTS_HOST_HOST_LAYER_H
