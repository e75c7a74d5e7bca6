#include "io/host.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace disk_access {

namespace {

int KernelOpen(void* /*context*/, const char* path, int flags) {
    constexpr mode_t kNoFileIsMade = 0; // with a mode, hardened builds call the same function as others
    return open64(path, flags, kNoFileIsMade);
}

int64_t KernelSeek(void* /*context*/, int fd, int64_t offset, int whence) {
    return lseek64(fd, offset, whence);
}

int64_t KernelRead(void* /*context*/, int fd, void* data, size_t size) {
    return read(fd, data, size);
}

int KernelFlush(void* /*context*/, int fd) {
    return fsync(fd);
}

int KernelClose(void* /*context*/, int fd) {
    return close(fd);
}

int KernelControl(void* /*context*/, int fd, unsigned long request, void* answer) {
    return ioctl(fd, request, answer);
}

__attribute__((format(printf, 2, 0))) void PrintMessage(void* /*context*/, const char* format,
                                                        va_list values) {
    std::vprintf(format, values);
}

} // namespace

const HostCalls kKernelCalls = {nullptr,     KernelOpen,  KernelSeek,    KernelRead,
                                KernelFlush, KernelClose, KernelControl, PrintMessage};

namespace {

thread_local const HostCalls* t_calls = &kKernelCalls;

} // namespace

HostScope::HostScope(const HostCalls& calls) : m_before(t_calls) {
    t_calls = &calls;
}

HostScope::~HostScope() {
    t_calls = m_before;
}

int HostOpen(const char* path, int flags) {
    return t_calls->open(t_calls->context, path, flags);
}

int64_t HostSeek(int fd, int64_t offset, int whence) {
    return t_calls->seek(t_calls->context, fd, offset, whence);
}

bool HostReadWhole(int fd, void* data, size_t size) {
    const int64_t got = t_calls->read(t_calls->context, fd, data, size);
    return got >= 0 && static_cast<uint64_t>(got) == size;
}

void HostFlush(int fd) {
    t_calls->flush(t_calls->context, fd);
}

void HostClose(int fd) {
    t_calls->close(t_calls->context, fd);
}

int HostControl(int fd, unsigned long request, void* answer) {
    return t_calls->control(t_calls->context, fd, request, answer);
}

void Message(const char* format, ...) {
    va_list values;
    va_start(values, format);
    t_calls->message(t_calls->context, format, values);
    va_end(values);
}

} // namespace disk_access
