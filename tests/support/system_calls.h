#ifndef TESTS_SUPPORT_SYSTEM_CALLS_H
#define TESTS_SUPPORT_SYSTEM_CALLS_H

/// @file system_calls.h
/// Watches the system calls that reach a device, and makes them fail. A test program linked with
/// system_calls.cpp takes the C library's open, lseek, read, close, fsync and ioctl over, the library's calls
/// included. It can also have regular files answer as block devices do.

#include <cstdint>
#include <functional>
#include <vector>

namespace test_support {

enum class CallKind { Open, Seek, Read, Close, Sync, Control };

/// One system call.
struct Call {
    CallKind kind;
    int fd;               ///< -1 for Open
    int flags;            ///< of Open
    int64_t offset;       ///< of Seek; of Read, where the device stood
    uint64_t length;      ///< of Read
    uint64_t request = 0; ///< of Control
};

/// What becomes of a call.
struct Fate {
    enum { Pass, Fail, Short, Skip } kind = Pass;
    int error = 5;            ///< errno of Fail: EIO
    uint64_t shortLength = 0; ///< bytes that a Short read delivers

    static Fate Failing(int withError = 5) { return {Fail, withError, 0}; }
    static Fate Shortened(uint64_t length) { return {Short, 0, length}; }
    /// A flush that succeeds at once. Of other calls, it changes nothing.
    static Fate Skipped() { return {Skip, 0, 0}; }
};

/// Passes every call but flushes, which fail at once: nothing was written to a device that is only read, and a
/// test that flushes it thousands of times would wait for the disk of its host each time.
inline Fate PassUnflushed(const Call& call) {
    return call.kind == CallKind::Sync ? Fate::Failing() : Fate();
}

/// Records the calls made while it lives; only one at a time.
class SystemCallLog {
public:
    SystemCallLog();
    /// Also asks @p decide what becomes of each call. The index counts the calls from 0.
    explicit SystemCallLog(std::function<Fate(const Call&, size_t index)> decide);
    ~SystemCallLog();
    SystemCallLog(const SystemCallLog&) = delete;
    SystemCallLog& operator=(const SystemCallLog&) = delete;

    const std::vector<Call>& Calls() const { return m_calls; }
    size_t Count(CallKind kind) const;
    void Clear() { m_calls.clear(); }

    Fate Note(const Call& call);

private:
    std::function<Fate(const Call&, size_t)> m_decide;
    std::vector<Call> m_calls;
};

/// Has regular files that are opened as devices tell their sizes, as block devices do, for as long as it lives;
/// only one at a time.
class BlockDeviceGuise {
public:
    BlockDeviceGuise();
    ~BlockDeviceGuise();
    BlockDeviceGuise(const BlockDeviceGuise&) = delete;
    BlockDeviceGuise& operator=(const BlockDeviceGuise&) = delete;

    /// What a device tells instead of the file's size, and of sectors of 512 bytes.
    void ClaimSize(uint64_t bytes) { m_size = bytes; }
    void ClaimSectorSize(int bytes) { m_sectorSize = bytes; }

    /// Answers a request on descriptor @p fd.
    /// @return 0, or -1 when the request is none that asks for a size
    int Answer(int fd, unsigned long request, void* answer) const;

private:
    int m_sectorSize = 512;
    uint64_t m_size = 0;
};

} // namespace test_support

#endif // TESTS_SUPPORT_SYSTEM_CALLS_H
