#ifndef FUZZ_SUPPORT_FILE_CALLS_H
#define FUZZ_SUPPORT_FILE_CALLS_H

/// @file file_calls.h
/// The calls by which files are made. They reach the system, are counted, and may fail. In a program with file_calls.cpp,
/// the linker's --wrap options send them here.

#include <cstdint>

#include "host/call_watch.h"

namespace fuzzing {

enum class FileCall : uint8_t {
    Make,     ///< openat
    Write,    ///< pwrite, write
    ReadBack, ///< pread
    Resize,   ///< ftruncate
    Sync,     ///< fsync
    Name,     ///< renameat2
    Random    ///< getentropy
};
constexpr uint8_t kFileCalls = 7;

/// Counts the calls of all threads while it lives; only one at a time.
class FileCalls {
public:
    /// What fails. Which of several threads comes first is not known: the calls of each kind are counted by themselves.
    struct Fault {
        FileCall call = FileCall::Make;
        test_support::Strike strike;
        bool comesShort = false; ///< a write or a read does half; else, and all other calls, nothing
    };

    /// @param most more calls are a finding
    FileCalls(const Fault& fault, uint64_t most);
    ~FileCalls();
    FileCalls(const FileCalls&) = delete;
    FileCalls& operator=(const FileCalls&) = delete;

    /// Whether a call has failed.
    bool HasFailed() const;
    /// How many calls were made; without those that did half, each of which makes another one necessary.
    uint64_t Made() const;

private:
    uint64_t m_most;
};

} // namespace fuzzing

#endif // FUZZ_SUPPORT_FILE_CALLS_H
