#ifndef BENCH_PLAYBACK_LIBRARY_DISK_H
#define BENCH_PLAYBACK_LIBRARY_DISK_H

#include <cstdint>
#include <vector>

#include "disk_access.h"
#include "playback/frame_set.h"

namespace playback_bench {

/// A set's partition, open in the library.
class LibraryDisk {
public:
    explicit LibraryDisk(const FrameSet& set) : m_access(set.Partition()) {}
    ~LibraryDisk() { m_disk.Quit(); }
    LibraryDisk(const LibraryDisk&) = delete;
    LibraryDisk& operator=(const LibraryDisk&) = delete;

    void Open();
    CReadDisk* operator->() { return &m_disk; }

    /// All records, as a search delivers them.
    std::vector<RecordItem_t> Records();
    /// Blocks that hold records, in the order of recording.
    std::vector<uint32_t> Blocks();

private:
    PartAccess_t m_access;
    CReadDisk m_disk;
};

} // namespace playback_bench

#endif // BENCH_PLAYBACK_LIBRARY_DISK_H
