#ifndef SAMPLE_RECORDER_INDEXED_RING_H
#define SAMPLE_RECORDER_INDEXED_RING_H

#include <cstdint>

#include "sample_recorder/partition_image.h"

namespace sample_recorder {

/// A recorded ring without its frames: for tests and measurements of searches on disks of any size.
struct IndexedRing {
    uint32_t newest = 0;             ///< the block recorded last: the ring has wrapped after it
    uint32_t firstTime = 1700000000; ///< start of the oldest block
    uint32_t secondsPerBlock = 300;
    uint32_t channels = 4;
    uint32_t segmentsPerChannel = 1;
    uint32_t iframesPerChannel = 0;
    uint32_t eventsPerBlock = 0;
};

/// Writes heads, indexes and tails of all blocks of a formatted partition. Every block is closed.
void WriteIndexedRing(PartitionImage& image, const IndexedRing& ring);

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_INDEXED_RING_H
