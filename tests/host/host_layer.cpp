#include "host/host_layer.h"

namespace test_support {

HostLayer::HostLayer()
    : m_calls{this,
              [](void* context, const char* path, int flags) { return Of(context).Open(path, flags); },
              [](void* context, int fd, int64_t offset, int whence) {
                  return Of(context).Seek(fd, offset, whence);
              },
              [](void* context, int fd, void* data, size_t size) { return Of(context).Read(fd, data, size); },
              [](void* context, int fd) { return Of(context).Flush(fd); },
              [](void* context, int fd) { return Of(context).Close(fd); },
              [](void* context, int fd, unsigned long request, void* answer) {
                  return Of(context).Control(fd, request, answer);
              },
              Say},
      m_scope(m_calls) {}

int HostLayer::Open(const char* path, int flags) {
    return Below().open(Below().context, path, flags);
}

int64_t HostLayer::Seek(int fd, int64_t offset, int whence) {
    return Below().seek(Below().context, fd, offset, whence);
}

int64_t HostLayer::Read(int fd, void* data, size_t size) {
    return Below().read(Below().context, fd, data, size);
}

int HostLayer::Flush(int fd) {
    return Below().flush(Below().context, fd);
}

int HostLayer::Close(int fd) {
    return Below().close(Below().context, fd);
}

int HostLayer::Control(int fd, unsigned long request, void* answer) {
    return Below().control(Below().context, fd, request, answer);
}

void HostLayer::Message(const char* format, va_list values) {
    Below().message(Below().context, format, values);
}

} // namespace test_support
