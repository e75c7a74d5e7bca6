#ifndef RECORDINGS_BLOCK_PROBLEMS_H
#define RECORDINGS_BLOCK_PROBLEMS_H

#include <cstdint>
#include <map>

#include "found_frames.h"

namespace recordings {

/// Makes the problems of a block complete: adds its damaged and its unreadable stretches, sorts all by their offsets, and
/// gives each the block and the time stamps beside it. Of a block that is nothing but damage not every one is named by
/// itself.
/// @param unreadable starts and ends
void CompleteProblems(FoundFrames& found, uint32_t block, const std::map<uint32_t, uint32_t>& unreadable);

} // namespace recordings

#endif // RECORDINGS_BLOCK_PROBLEMS_H
