#ifndef RECORDINGS_BLOCK_INDEX_H
#define RECORDINGS_BLOCK_INDEX_H

/// @file block_index.h
/// The index that the recorder writes when it closes a block.

#include <cstdint>
#include <optional>
#include <vector>

#include "recordings/blocks.h"
#include "recordings/export.h"

namespace recordings {

/// A key frame, as the index has it.
struct IndexedKeyFrame {
    int64_t time = 0;    ///< microseconds
    uint32_t offset = 0; ///< of its head in the frame area
};
/// A record segment: one continuous stretch of one channel inside the block.
struct IndexedSegment {
    uint32_t start = 0; ///< seconds
    uint32_t end = 0;
    uint32_t startOffset = 0; ///< of its first frame's head in the frame area
    uint32_t endOffset = 0;   ///< just after its last frame; of a rebuilt index 4 bytes before that
    uint32_t bytes = 0;
};
/// An event.
struct IndexedEvent {
    uint64_t type = 0; ///< type bits
    int64_t time = 0;  ///< microseconds
    uint32_t offset = 0;
};

/// The tables of a block's index.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is in the copy constructor that the compiler makes
struct BlockIndex {
    std::vector<IndexedKeyFrame> keyFrames[kChannels];
    std::vector<IndexedSegment> segments[kChannels];
    std::vector<IndexedEvent> events;
};

/// Which tables are wanted. The others stay empty, and are not read.
struct IndexParts {
    bool keyFrames = true;
    bool segments = true;
    bool events = true;
};

/// Reads the index of a closed block.
/// @return nothing when it cannot be read, or when a table that is wanted would not end within the block
RECORDINGS_API std::optional<BlockIndex> ReadIndex(const Disk& disk, const Block& block,
                                                   const IndexParts& parts = {});

/// Says that the indexes of these blocks will be read soon: most fit into what is asked for.
RECORDINGS_API void AskForIndex(const Disk& disk, const Block& block);

} // namespace recordings

#endif // RECORDINGS_BLOCK_INDEX_H
