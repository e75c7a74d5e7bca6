#ifndef FUZZ_SUPPORT_RECORDER_DISK_H
#define FUZZ_SUPPORT_RECORDER_DISK_H

/// @file recorder_disk.h
/// The disk that the sample recorder writes while it is fuzzed. It lies in memory. The recorder makes its calls itself:
/// a program linked with recorder_disk.cpp takes the C library's open, fopen, lseek, read, write, truncate and close
/// over, as far as they concern this disk.

#include <cstdint>

#include "host/memory_device.h"

namespace fuzzing {

/// The disk of a run, and the calls that reach it. They set errno.
class RecorderDisk {
public:
    static constexpr const char* kName = "/fuzz/disk0";

    static RecorderDisk& The();

    /// Lets the disk be made and written, with at most @p calls calls: it takes @p writes writes until it is full.
    /// Until End(), any other file is opened under the name that @p resolve gives for its own, and not at all if that
    /// is null.
    void Begin(uint32_t writes, uint64_t calls, const char* (*resolve)(const char* path));
    /// Makes everything as new. Complains of descriptors that are still open.
    void End();

    /// The name of the host's file for @p path, null for none.
    const char* Resolve(const char* path) const { return m_resolve == nullptr ? path : m_resolve(path); }
    static bool IsAt(const char* path);
    static bool Owns(int fd) { return test_support::DeviceTable::Owns(fd); }

    int Open(int flags);
    int64_t Seek(int fd, int64_t offset, int whence);
    int64_t Read(int fd, void* data, size_t size);
    int64_t ReadAt(int fd, void* data, size_t size, int64_t offset);
    int64_t WriteAt(int fd, const void* data, size_t size, int64_t offset);
    int Truncate(int fd, int64_t size);
    int Close(int fd);

private:
    RecorderDisk() : m_disk(m_table.Add(kName)) {}
    /// Counts a call, and complains when there are too many.
    void Count();
    /// The same, of a call on a descriptor, which must be open.
    void Count(int fd);

    test_support::DeviceTable m_table;
    test_support::MemoryDevice& m_disk;
    uint32_t m_writesLeft = 0;
    uint64_t m_callsLeft = 0;
    const char* (*m_resolve)(const char* path) = nullptr;
};

} // namespace fuzzing

#endif // FUZZ_SUPPORT_RECORDER_DISK_H
