#ifndef RECORDINGS_RANGE_FRAMES_H
#define RECORDINGS_RANGE_FRAMES_H

/// @file range_frames.h
/// The media frames of a time range, from block to block.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "recordings/block_frames.h"
#include "recordings/export.h"

namespace recordings {

/// What frames are wanted.
struct FrameQuery {
    TimeRange range;
    ChannelSet channels = ChannelSet::All();
    /// Begin each video channel with its last key frame at or before the range, so that the range can be decoded from its
    /// first second on; and leave video out, after the start and after every loss, up to the next key frame. Each frame
    /// left out is counted in a problem.
    bool decodable = true;
    Want want = Want::Payloads;
};

/// A stretch in which a channel was not recorded.
struct Gap {
    uint32_t channel = 0;
    bool video = true;
    uint32_t block = 0; ///< where recording goes on
    int64_t before = 0; ///< time stamps, microseconds: the last frame before
    int64_t after = 0;  ///< and the first after
};

/// Reads the media frames of a range in the order they were recorded in. Problems that concern the range are reported as
/// they are met; those of whole blocks before the first frame.
class RECORDINGS_API RangeFrames {
public:
    /// @param disk, blocks must outlive the reader
    RangeFrames(const Disk& disk, const BlockList& blocks, const FrameQuery& query, ProblemSink problems,
                Watch watch = {});
    ~RangeFrames();
    RangeFrames(const RangeFrames&) = delete;
    RangeFrames& operator=(const RangeFrames&) = delete;

    /// @return false at the end
    /// @throws Error (Cancelled)
    bool Next(Frame& frame);

    /// Keeps the payload of the frame delivered last where it is, for as long as the answer lives; any thread may let go
    /// of it. With it stays the memory of the whole block. Null when heads alone are wanted.
    std::shared_ptr<const void> HoldPayload() const;

    /// The block of the frame delivered last.
    const Block& CurrentBlock() const;
    /// How far it has come.
    Progress Done() const;
    /// Gaps met so far, each of one track (a channel's video or its audio).
    const std::vector<Gap>& Gaps() const;
    /// Numbers of the blocks that frames were delivered from, in order.
    const std::vector<uint32_t>& BlocksUsed() const;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace recordings

#endif // RECORDINGS_RANGE_FRAMES_H
