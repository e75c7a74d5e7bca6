#ifndef TESTS_FOOTPRINT_FOOTPRINT_H
#define TESTS_FOOTPRINT_FOOTPRINT_H

#include <cstddef>
#include <cstdint>

namespace test_support {

/// What the library's objects hold on the heap, in bytes. The caller's own is left out: the objects themselves, the
/// nodes of lists, payload buffers.
struct Footprint {
    size_t searchInit = 0;   ///< a CSearchDisk after Init()
    size_t searchKept = 0;   ///< the same after a search
    size_t searchPeak = 0;   ///< the most during that search
    size_t readInit = 0;     ///< a CReadDisk after Init()
    size_t readerTables = 0; ///< entries of a reader's index, as they lie on the disk
    size_t reader = 0;       ///< a CReadDisk's first reader after some frames, with its index
    size_t nextReader = 0;   ///< each further one
    size_t left = 0;         ///< when all is over
};

/// The disk that is measured: its bad-block tables and indexes are what grows with it.
constexpr uint32_t kFootprintBlocks = 1024;
constexpr uint32_t kFootprintChannels = 4;

/// Records such a disk, and measures. The library prints on standard output meanwhile.
/// @throws std::runtime_error when the library does not find or play what was recorded
Footprint MeasureFootprint();

} // namespace test_support

#endif // TESTS_FOOTPRINT_FOOTPRINT_H
