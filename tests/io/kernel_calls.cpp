#include "io/kernel_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace test_support {

namespace {

KernelCalls* g_calls = nullptr;

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

std::string Hexadecimal(unsigned long number) {
    char text[32];
    std::snprintf(text, sizeof text, "%#lx", number);
    return text;
}

std::string NameOf(int whence) {
    return whence == SEEK_SET ? "SEEK_SET" : whence == SEEK_CUR ? "SEEK_CUR" : "SEEK_END";
}

} // namespace

KernelCalls::KernelCalls(std::string path) : m_path(std::move(path)) {
    if (g_calls != nullptr) {
        throw std::logic_error("system calls are being noted already");
    }
    g_calls = this;
}

KernelCalls::~KernelCalls() {
    g_calls = nullptr;
}

void KernelCalls::NoteOpen(const char* path, int flags, int fd) {
    if (path == m_path) {
        m_lines.push_back("open64(" + Hexadecimal(static_cast<unsigned long>(flags)) + ")");
        m_descriptors.push_back(fd);
    }
}

void KernelCalls::NoteClose(int fd) {
    Note(fd, "close()");
    m_descriptors.erase(std::remove(m_descriptors.begin(), m_descriptors.end(), fd), m_descriptors.end());
}

void KernelCalls::Note(int fd, const std::string& line) {
    if (std::find(m_descriptors.begin(), m_descriptors.end(), fd) != m_descriptors.end()) {
        m_lines.push_back(line);
    }
}

} // namespace test_support

using test_support::g_calls;
using test_support::Real;

extern "C" {

__attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = static_cast<mode_t>(va_arg(arguments, int));
        va_end(arguments);
    }
    static const auto real = Real<int (*)(const char*, int, ...)>("open64");
    const int fd = real(path, flags, mode);
    if (g_calls != nullptr) {
        g_calls->NoteOpen(path, flags, fd);
    }
    return fd;
}

__attribute__((visibility("default"))) off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
    if (g_calls != nullptr) {
        g_calls->Note(fd, "lseek64(" + std::to_string(offset) + ", " + test_support::NameOf(whence) + ")");
    }
    static const auto real = Real<off64_t (*)(int, off64_t, int)>("lseek64");
    return real(fd, offset, whence);
}

__attribute__((visibility("default"))) ssize_t read(int fd, void* data, size_t size) {
    if (g_calls != nullptr) {
        g_calls->Note(fd, "read(" + std::to_string(size) + ")");
    }
    static const auto real = Real<ssize_t (*)(int, void*, size_t)>("read");
    return real(fd, data, size);
}

__attribute__((visibility("default"))) int fsync(int fd) {
    if (g_calls != nullptr) {
        g_calls->Note(fd, "fsync()");
    }
    static const auto real = Real<int (*)(int)>("fsync");
    return real(fd);
}

__attribute__((visibility("default"))) int close(int fd) {
    if (g_calls != nullptr) {
        g_calls->NoteClose(fd);
    }
    static const auto real = Real<int (*)(int)>("close");
    return real(fd);
}

__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (g_calls != nullptr) {
        g_calls->Note(fd, "ioctl(" + test_support::Hexadecimal(request) + ")");
    }
    static const auto real = Real<int (*)(int, unsigned long, ...)>("ioctl");
    return real(fd, request, argument);
}

#if __SIZEOF_POINTER__ == 4
/// The name of ioctl if times are 64 bits wide on a 32-bit host.
__attribute__((visibility("default"), alias("ioctl"))) int __ioctl_time64(int fd, unsigned long request,
                                                                          ...) noexcept;
#endif

} // extern "C"
