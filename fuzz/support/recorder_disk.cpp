#include "support/recorder_disk.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/findings.h"

namespace fuzzing {

using test_support::MemoryDevice;

RecorderDisk& RecorderDisk::The() {
    static RecorderDisk disk;
    return disk;
}

void RecorderDisk::Begin(uint32_t writes, uint64_t calls, const char* (*resolve)(const char* path)) {
    m_writesLeft = writes;
    m_callsLeft = calls;
    m_resolve = resolve;
}

void RecorderDisk::End() {
    Require(m_table.OpenDescriptors() == 0, "a descriptor was left open");
    m_disk.Clear();
    m_resolve = nullptr;
}

bool RecorderDisk::IsAt(const char* path) {
    return std::strcmp(path, kName) == 0;
}

void RecorderDisk::Count() {
    Require(m_callsLeft > 0, "the recorder makes too many system calls");
    --m_callsLeft;
}

void RecorderDisk::Count(int fd) {
    Require(m_table.OpenOn(fd) != nullptr, "a descriptor is used, but not open");
    Count();
}

int RecorderDisk::Open(int flags) {
    Count();
    const bool exists = m_disk.Size() != 0;
    if (exists && (flags & O_EXCL) != 0) {
        errno = EEXIST;
        return -1;
    }
    if (!exists && (flags & O_CREAT) == 0) {
        errno = ENOENT;
        return -1;
    }
    return m_table.Open(m_disk);
}

int64_t RecorderDisk::Seek(int fd, int64_t offset, int whence) {
    Count(fd);
    return m_table.Seek(fd, offset, whence);
}

int64_t RecorderDisk::Read(int fd, void* data, size_t size) {
    Count(fd);
    return m_table.Read(fd, data, size);
}

int64_t RecorderDisk::ReadAt(int fd, void* data, size_t size, int64_t offset) {
    Count(fd);
    return m_table.ReadAt(fd, data, size, offset);
}

int64_t RecorderDisk::WriteAt(int fd, const void* data, size_t size, int64_t offset) {
    Count(fd);
    const uint64_t end = static_cast<uint64_t>(offset) + size;
    if (m_writesLeft <= 1 || end > MemoryDevice::kLargest) {
        errno = ENOSPC;
        return -1;
    }
    --m_writesLeft;
    m_disk.Lay(static_cast<uint64_t>(offset), static_cast<const uint8_t*>(data), size);
    m_disk.SetSize(std::max(m_disk.Size(), end));
    return static_cast<int64_t>(size);
}

int RecorderDisk::Truncate(int fd, int64_t size) {
    Count(fd);
    if (size < 0) {
        errno = EINVAL;
        return -1;
    }
    m_disk.SetSize(static_cast<uint64_t>(size));
    return 0;
}

int RecorderDisk::Close(int fd) {
    Count(fd);
    return m_table.Close(fd);
}

namespace {

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

} // namespace fuzzing

using fuzzing::Real;
using fuzzing::RecorderDisk;

extern "C" {

__attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (RecorderDisk::IsAt(path)) {
        return RecorderDisk::The().Open(flags);
    }
    const char* const resolved = RecorderDisk::The().Resolve(path);
    if (resolved == nullptr || (resolved != path && (flags & O_ACCMODE) != O_RDONLY)) {
        errno = ENOENT;
        return -1;
    }
    static const auto real = Real<int (*)(const char*, int, ...)>("open64");
    return real(resolved, flags, mode);
}

__attribute__((visibility("default"))) int open(const char* path, int flags, ...)
    __attribute__((alias("open64")));

__attribute__((visibility("default"))) FILE* fopen64(const char* path, const char* mode) {
    // libFuzzer writes what it found while a run is still under way.
    const char* const resolved = mode[0] == 'r' ? RecorderDisk::The().Resolve(path) : path;
    if (resolved == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    static const auto real = Real<FILE* (*)(const char*, const char*)>("fopen64");
    return real(resolved, mode);
}

__attribute__((visibility("default"))) FILE* fopen(const char* path, const char* mode)
    __attribute__((alias("fopen64")));

__attribute__((visibility("default"))) off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
    static const auto real = Real<off64_t (*)(int, off64_t, int)>("lseek64");
    return RecorderDisk::Owns(fd) ? RecorderDisk::The().Seek(fd, offset, whence) : real(fd, offset, whence);
}

__attribute__((visibility("default"))) ssize_t read(int fd, void* data, size_t size) {
    static const auto real = Real<ssize_t (*)(int, void*, size_t)>("read");
    return RecorderDisk::Owns(fd) ? RecorderDisk::The().Read(fd, data, size) : real(fd, data, size);
}

__attribute__((visibility("default"))) ssize_t pread64(int fd, void* data, size_t size, off64_t offset) {
    static const auto real = Real<ssize_t (*)(int, void*, size_t, off64_t)>("pread64");
    return RecorderDisk::Owns(fd) ? RecorderDisk::The().ReadAt(fd, data, size, offset)
                                  : real(fd, data, size, offset);
}

__attribute__((visibility("default"))) ssize_t pwrite64(int fd, const void* data, size_t size,
                                                        off64_t offset) {
    static const auto real = Real<ssize_t (*)(int, const void*, size_t, off64_t)>("pwrite64");
    return RecorderDisk::Owns(fd) ? RecorderDisk::The().WriteAt(fd, data, size, offset)
                                  : real(fd, data, size, offset);
}

__attribute__((visibility("default"))) int ftruncate64(int fd, off64_t size) noexcept {
    static const auto real = Real<int (*)(int, off64_t)>("ftruncate64");
    return RecorderDisk::Owns(fd) ? RecorderDisk::The().Truncate(fd, size) : real(fd, size);
}

__attribute__((visibility("default"))) int close(int fd) {
    static const auto real = Real<int (*)(int)>("close");
    return RecorderDisk::Owns(fd) ? RecorderDisk::The().Close(fd) : real(fd);
}

} // extern "C"
