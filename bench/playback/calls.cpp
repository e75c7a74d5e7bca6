// Takes open64, lseek64, read, pread64, fsync, close and memcpy over from the C library. Must be compiled without builtins: the
// compiler would make a memcpy() of the one below.

#include "playback/calls.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <ctime>

static_assert(sizeof(long) == sizeof(int64_t), "offsets pass through syscall() as they are");

namespace playback_bench {

namespace {

Calls g_calls = {};
std::vector<CallStep>* g_steps = nullptr;

void Note(const CallStep& step) {
    if (g_steps != nullptr) {
        g_steps->push_back(step);
    }
}

ssize_t CountRead(ssize_t got) {
    ++g_calls.reads;
    if (got > 0) {
        g_calls.bytesRead += static_cast<uint64_t>(got);
    }
    return got;
}

} // namespace

Calls CallsSoFar() {
    return g_calls;
}

Calls operator-(const Calls& a, const Calls& b) {
    return {a.seeks - b.seeks,
            a.reads - b.reads,
            a.bytesRead - b.bytesRead,
            a.bytesCopied - b.bytesCopied,
            a.flushSeconds - b.flushSeconds,
            a.flushProcessorSeconds - b.flushProcessorSeconds};
}

double ProcessorSeconds() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void NoteCalls(std::vector<CallStep>* steps) {
    g_steps = steps;
}

} // namespace playback_bench

using namespace playback_bench;

extern "C" {

__attribute__((visibility("default"))) int open64(const char* file, int oflag, ...) {
    mode_t mode = 0;
    if ((oflag & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, oflag);
        mode = static_cast<mode_t>(va_arg(arguments, int));
        va_end(arguments);
    }
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, file, oflag, mode));
    Note({CallStep::Open, fd, 0});
    return fd;
}

__attribute__((visibility("default"))) int close(int fd) {
    Note({CallStep::Close, fd, 0});
    return static_cast<int>(syscall(SYS_close, fd));
}

__attribute__((visibility("default"))) off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
    ++g_calls.seeks;
    Note({CallStep::Seek, fd, offset});
    return syscall(SYS_lseek, fd, offset, whence);
}

__attribute__((visibility("default"))) ssize_t read(int fd, void* buf, size_t nbytes) {
    Note({CallStep::Read, fd, static_cast<int64_t>(nbytes)});
    return CountRead(syscall(SYS_read, fd, buf, nbytes));
}

__attribute__((visibility("default"))) ssize_t pread64(int fd, void* buf, size_t nbytes, off64_t offset) {
    return CountRead(syscall(SYS_pread64, fd, buf, nbytes, offset));
}

__attribute__((visibility("default"))) int fsync(int fd) {
    Note({CallStep::Flush, fd, 0});
    const double processorBegin = ProcessorSeconds();
    const auto begin = std::chrono::steady_clock::now();
    const long result = syscall(SYS_fsync, fd);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    g_calls.flushSeconds += elapsed.count();
    g_calls.flushProcessorSeconds += ProcessorSeconds() - processorBegin;
    return static_cast<int>(result);
}

__attribute__((visibility("default"))) void* memcpy(void* dest, const void* src, size_t n) noexcept {
    g_calls.bytesCopied += n;
    return memmove(dest, src, n);
}

} // extern "C"
