#include "support/file_calls.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>

#include "support/findings.h"

namespace fuzzing {

namespace {

enum class Fate : uint8_t { Pass, Fail, Short };

std::atomic<bool> g_watching{false};
std::atomic<bool> g_failed{false};
std::atomic<uint64_t> g_left{0};
std::atomic<uint64_t> g_short{0};
std::array<std::atomic<uint64_t>, kFileCalls> g_calls;
FileCalls::Fault g_fault; ///< changes only while nobody is watching

/// Counts a call, and says what becomes of it.
Fate Decide(FileCall call) {
    if (!g_watching) {
        return Fate::Pass;
    }
    Require(g_left-- > 0, "an export makes too many system calls");
    const uint64_t index = g_calls.at(static_cast<size_t>(call))++;
    if (call != g_fault.call || !g_fault.strike.Hits(static_cast<size_t>(index))) {
        return Fate::Pass;
    }
    if (g_fault.comesShort && (call == FileCall::Write || call == FileCall::ReadBack)) {
        ++g_short;
        return Fate::Short;
    }
    g_failed = true;
    return Fate::Fail;
}

int Failure(int error) {
    errno = error;
    return -1;
}

} // namespace

FileCalls::FileCalls(const Fault& fault, uint64_t most) : m_most(most) {
    for (auto& calls : g_calls) {
        calls = 0;
    }
    g_fault = fault;
    g_left = most;
    g_short = 0;
    g_failed = false;
    g_watching = true;
}

FileCalls::~FileCalls() {
    g_watching = false;
}

bool FileCalls::HasFailed() const {
    return g_failed;
}

uint64_t FileCalls::Made() const {
    return m_most - g_left - g_short;
}

} // namespace fuzzing

using fuzzing::Decide;
using fuzzing::Failure;
using fuzzing::Fate;
using fuzzing::FileCall;

extern "C" {
int __real_openat64(int folder, const char* path, int flags, mode_t mode);
ssize_t __real_pwrite64(int fd, const void* data, size_t size, off64_t offset);
ssize_t __real_write(int fd, const void* data, size_t size);
ssize_t __real_pread64(int fd, void* data, size_t size, off64_t offset);
int __real_ftruncate64(int fd, off64_t size);
int __real_fsync(int fd);
int __real_renameat2(int from, const char* name, int to, const char* newName, unsigned int flags);
int __real_getentropy(void* data, size_t size);
int __wrap_openat64(int folder, const char* path, int flags, ...);
ssize_t __wrap_pwrite64(int fd, const void* data, size_t size, off64_t offset);
ssize_t __wrap_write(int fd, const void* data, size_t size);
ssize_t __wrap_pread64(int fd, void* data, size_t size, off64_t offset);
int __wrap_ftruncate64(int fd, off64_t size);
int __wrap_fsync(int fd);
int __wrap_renameat2(int from, const char* name, int to, const char* newName, unsigned int flags);
int __wrap_getentropy(void* data, size_t size);

int __wrap_openat64(int folder, const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return Decide(FileCall::Make) == Fate::Fail ? Failure(EMFILE)
                                                : __real_openat64(folder, path, flags, mode);
}

ssize_t __wrap_pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    const Fate fate = Decide(FileCall::Write);
    return fate == Fate::Fail
               ? Failure(ENOSPC)
               : __real_pwrite64(fd, data, fate == Fate::Short ? (size + 1) / 2 : size, offset);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
    const Fate fate = Decide(FileCall::Write);
    return fate == Fate::Fail ? Failure(ENOSPC)
                              : __real_write(fd, data, fate == Fate::Short ? (size + 1) / 2 : size);
}

ssize_t __wrap_pread64(int fd, void* data, size_t size, off64_t offset) {
    const Fate fate = Decide(FileCall::ReadBack);
    return fate == Fate::Fail ? Failure(EIO)
                              : __real_pread64(fd, data, fate == Fate::Short ? (size + 1) / 2 : size, offset);
}

int __wrap_ftruncate64(int fd, off64_t size) {
    return Decide(FileCall::Resize) == Fate::Fail ? Failure(EIO) : __real_ftruncate64(fd, size);
}

int __wrap_fsync(int fd) {
    return Decide(FileCall::Sync) == Fate::Fail ? Failure(EIO) : __real_fsync(fd);
}

int __wrap_renameat2(int from, const char* name, int to, const char* newName, unsigned int flags) {
    return Decide(FileCall::Name) == Fate::Fail ? Failure(EIO)
                                                : __real_renameat2(from, name, to, newName, flags);
}

int __wrap_getentropy(void* data, size_t size) {
    return Decide(FileCall::Random) == Fate::Fail ? Failure(ENOSYS) : __real_getentropy(data, size);
}
}
