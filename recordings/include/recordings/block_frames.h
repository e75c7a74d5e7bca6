#ifndef RECORDINGS_BLOCK_FRAMES_H
#define RECORDINGS_BLOCK_FRAMES_H

/// @file block_frames.h
/// The frames of one block, past whatever is damaged.

#include <cstdint>
#include <memory>

#include "recordings/blocks.h"
#include "recordings/export.h"
#include "recordings/frame.h"

namespace recordings {

/// Whether payloads are read too, or heads alone.
enum class Want : uint8_t { Heads, Payloads };

/// Reads the frames of a block, one after the other.
///
/// In a sound block these are all frames that the recorder wrote, from the first to the last. Where a frame does not
/// follow though more were recorded, reading goes on at the next place where one is found, and the stretch between is
/// reported as a problem. What the index, the neighbours and the pace of a channel tell is held against the frames:
/// each contradiction is reported, and none ends the reading. Time and memory are bounded by the size of the block.
///
/// Frames of channels that the access lock hides are delivered too: only a whole block can be held against its index. Who
/// shows frames leaves out those of Disk::Hidden(), as RangeFrames does.
class RECORDINGS_API BlockFrames {
public:
    /// @param disk, block must outlive the reader
    /// @param watch asked several times a second; when it ends the work, this and Next() throw
    /// @throws Error (Cancelled)
    BlockFrames(const Disk& disk, const Block& block, Want want, ProblemSink problems, Watch watch = {});
    ~BlockFrames();
    BlockFrames(const BlockFrames&) = delete;
    BlockFrames& operator=(const BlockFrames&) = delete;

    /// Delivers the next frame.
    /// @param afterLoss set to whether something is lost between this frame and the one before (or the block's start);
    ///        at the end: between the last frame and the end
    /// @return false at the end
    /// @throws Error (Cancelled)
    bool Next(Frame& frame, bool& afterLoss);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/// Reads the payload of a frame whose head was delivered, for callers that asked for heads and want some of the payloads.
/// @param payload takes frame.size bytes
/// @return false when the disk does not deliver all of it; what is in @p payload is then undefined
RECORDINGS_API bool ReadPayload(const Disk& disk, const Frame& frame, void* payload);

} // namespace recordings

#endif // RECORDINGS_BLOCK_FRAMES_H
