#include "support/system_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace test_support {

namespace {

SystemCallLog* g_log = nullptr;
bool g_noting = false; ///< keeps a log's own calls out of it
BlockDeviceGuise* g_guise = nullptr;

/// Descriptors that came from open64(), which is how the library opens a device. Others are the tests' own.
std::bitset<1024> g_devices;

bool IsDevice(int fd) {
    return fd >= 0 && static_cast<size_t>(fd) < g_devices.size() && g_devices[static_cast<size_t>(fd)];
}

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// Whether calls on a descriptor are noted just now.
bool Noting(int fd) {
    return g_log != nullptr && !g_noting && IsDevice(fd);
}

Fate Note(const Call& call) {
    const bool noted = call.kind == CallKind::Open ? g_log != nullptr && !g_noting : Noting(call.fd);
    if (!noted) {
        return {};
    }
    g_noting = true;
    const Fate fate = g_log->Note(call);
    g_noting = false;
    if (fate.kind == Fate::Fail) {
        errno = fate.error;
    }
    return fate;
}

} // namespace

SystemCallLog::SystemCallLog() : SystemCallLog([](const Call&, size_t) { return Fate(); }) {}

SystemCallLog::SystemCallLog(std::function<Fate(const Call&, size_t)> decide) : m_decide(std::move(decide)) {
    if (g_log != nullptr) {
        throw std::logic_error("system calls are being logged already");
    }
    m_calls.reserve(0x10000); // noting a call must not allocate: allocations may be made to fail meanwhile
    g_log = this;
}

SystemCallLog::~SystemCallLog() {
    g_log = nullptr;
}

size_t SystemCallLog::Count(CallKind kind) const {
    return static_cast<size_t>(std::count_if(m_calls.begin(), m_calls.end(),
                                             [kind](const Call& call) { return call.kind == kind; }));
}

Fate SystemCallLog::Note(const Call& call) {
    m_calls.push_back(call);
    return m_decide(call, m_calls.size() - 1);
}

BlockDeviceGuise::BlockDeviceGuise() {
    if (g_guise != nullptr) {
        throw std::logic_error("files pass for block devices already");
    }
    g_guise = this;
}

BlockDeviceGuise::~BlockDeviceGuise() {
    g_guise = nullptr;
}

int BlockDeviceGuise::Answer(int fd, unsigned long request, void* answer) const {
    struct stat64 status = {};
    if (fstat64(fd, &status) != 0) {
        return -1;
    }
    const uint64_t bytes = m_size != 0 ? m_size : static_cast<uint64_t>(status.st_size);
    const auto sectors = static_cast<unsigned long>(bytes / 512); // these are never the device's own
    switch (request) {
    case BLKSSZGET:
        std::memcpy(answer, &m_sectorSize, sizeof m_sectorSize);
        return 0;
    case BLKGETSIZE64:
        std::memcpy(answer, &bytes, sizeof bytes);
        return 0;
    case BLKGETSIZE:
        std::memcpy(answer, &sectors, sizeof sectors);
        return 0;
    default:
        return -1;
    }
}

} // namespace test_support

using test_support::Call;
using test_support::CallKind;
using test_support::Fate;
using test_support::Note;
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
    if (Note({CallKind::Open, -1, flags, 0, 0}).kind == Fate::Fail) {
        return -1;
    }
    static const auto real = Real<int (*)(const char*, int, ...)>("open64");
    const int fd = real(path, flags, mode);
    if (fd >= 0 && static_cast<size_t>(fd) < test_support::g_devices.size()) {
        test_support::g_devices.set(static_cast<size_t>(fd));
    }
    return fd;
}

__attribute__((visibility("default"))) off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
    if (Note({CallKind::Seek, fd, 0, offset, 0}).kind == Fate::Fail) {
        return -1;
    }
    static const auto real = Real<off64_t (*)(int, off64_t, int)>("lseek64");
    return real(fd, offset, whence);
}

__attribute__((visibility("default"))) ssize_t read(int fd, void* data, size_t size) {
    static const auto real = Real<ssize_t (*)(int, void*, size_t)>("read");
    if (!test_support::Noting(fd)) {
        return real(fd, data, size);
    }
    static const auto seek = Real<off64_t (*)(int, off64_t, int)>("lseek64");
    const Fate fate = Note({CallKind::Read, fd, 0, seek(fd, 0, SEEK_CUR), size});
    if (fate.kind == Fate::Fail) {
        return -1;
    }
    const auto shortened = static_cast<size_t>(std::min<uint64_t>(size, fate.shortLength));
    return real(fd, data, fate.kind == Fate::Short ? shortened : size);
}

__attribute__((visibility("default"))) int close(int fd) {
    // A descriptor is gone even when close reports a failure.
    const bool fail = Note({CallKind::Close, fd, 0, 0, 0}).kind == Fate::Fail;
    if (test_support::IsDevice(fd)) {
        test_support::g_devices.reset(static_cast<size_t>(fd));
    }
    static const auto real = Real<int (*)(int)>("close");
    const int result = real(fd);
    return fail ? -1 : result;
}

__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (Note({CallKind::Control, fd, 0, 0, 0, request}).kind == Fate::Fail) {
        return -1;
    }
    if (test_support::g_guise != nullptr && test_support::IsDevice(fd)) {
        return test_support::g_guise->Answer(fd, request, argument);
    }
    static const auto real = Real<int (*)(int, unsigned long, ...)>("ioctl");
    return real(fd, request, argument);
}

#if __SIZEOF_POINTER__ == 4
/// The name that ioctl bears where times are 64 bits wide on a 32-bit host.
__attribute__((visibility("default"), alias("ioctl"))) int __ioctl_time64(int fd, unsigned long request,
                                                                          ...) noexcept;
#endif

__attribute__((visibility("default"))) int fsync(int fd) {
    const Fate fate = Note({CallKind::Sync, fd, 0, 0, 0});
    if (fate.kind == Fate::Fail || fate.kind == Fate::Skip) {
        return fate.kind == Fate::Fail ? -1 : 0;
    }
    static const auto real = Real<int (*)(int)>("fsync");
    return real(fd);
}

} // extern "C"
