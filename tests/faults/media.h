#ifndef TESTS_FAULTS_MEDIA_H
#define TESTS_FAULTS_MEDIA_H

/// @file media.h
/// The disks that faults are tried on: small, so that every single call can be made to fail.

#include <cstdint>
#include <string>

#include "sample_recorder/partition_image.h"

namespace test_support {

enum class Medium { Search, ExtendedSearch, Play, ExtendedPlay, Dump, ExtendedDump };

/// Makes a disk at @p path.
///
/// Those for searches are a ring of six blocks that has wrapped, with a lock on channel 1 (password "secret"):
///
///     block       0     1     2     3     4     5
///     number      7     8     3     4     5     6
///                       open        bad         suspect
///
/// Block with number q is recorded from SearchStart(q) on, over kSearchSpan seconds. Channel 0 has two segments,
/// channel 1 has one; there is an event of type 1 and one of type 4. In the extended layout channel 1 is not shown
/// outside alarms.
///
/// Those for playback are recorded with kPlayScript, and their last block is bad. Those for dumps are the samples
/// of the dump's own tests.
sample_recorder::PartitionImage MakeMedium(Medium medium, const std::string& path);

constexpr uint32_t kSearchBlocks = 6;
constexpr uint32_t kSearchSpan = 39000;
constexpr uint32_t SearchStart(uint32_t sequence) {
    return 1700000000 + sequence * 40000;
}

/// The number of a block on the disks for searches.
constexpr uint32_t SearchSequence(uint32_t block) {
    return block < 2 ? block + 7 : block + 1;
}

extern const char* const kPlayScript;
constexpr uint32_t kPlayStart = 1000;
constexpr uint32_t kPlayEnd = 1016;

constexpr uint32_t kMediaBlockSize = 0x10000;
constexpr uint32_t LayoutOf(Medium medium) {
    return medium == Medium::ExtendedSearch || medium == Medium::ExtendedPlay ||
                   medium == Medium::ExtendedDump
               ? 1
               : 0;
}

} // namespace test_support

#endif // TESTS_FAULTS_MEDIA_H
