#ifndef RECORDINGS_HEALTH_H
#define RECORDINGS_HEALTH_H

/// @file health.h
/// How healthy a disk is: everything on it that contradicts something else on it.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/export.h"
#include "recordings/frame.h"
#include "recordings/problem.h"
#include "recordings/query.h"

namespace recordings {

/// Something that a check has found.
struct Finding {
    Problem problem;
    std::string fields;            ///< which fields are concerned: "start time, vehicle id"; often empty
    std::optional<uint64_t> place; ///< byte of the disk where it lies, or begins
    std::optional<int64_t> start;  ///< microseconds on the recorder's clock: the time that it concerns
    std::optional<int64_t> end;
    ChannelSet channels; ///< that it concerns; empty: not known, or none
};

/// Looks at payloads further than this library does, which has no decoder. It gets the frames of a full check, as they are
/// read: oldest block first.
class PayloadCheck {
public:
    virtual ~PayloadCheck() = default;
    /// @param frame with its payload
    /// @param afterLoss whether something is lost between this frame and the one before
    /// @param problems takes what is found: of this frame, or of one before it
    virtual void Take(const Frame& frame, bool afterLoss, const ProblemSink& problems) = 0;
    /// No frame follows.
    virtual void Finish(const ProblemSink& problems) = 0;
};

/// What is checked.
struct CheckRequest {
    /// Read every frame too: each is held against the index and its neighbours, and video against what it is said to be.
    bool full = false;
    PayloadCheck* payloads = nullptr; ///< gets every frame of a full check
};

/// What a check went through.
struct Checked {
    uint32_t blocks = 0; ///< that hold recordings, or must have held some
    uint64_t frames = 0; ///< read
    uint64_t bytes = 0;  ///< of their payloads
};

using FindingSink = std::function<void(const Finding&)>;

/// Checks a disk: the partition head, the bad-block tables and their backup copies, and of each recorded block the head,
/// the tail and the index, against each other, against the blocks recorded before and after it, and against the frames.
/// A sound disk has no finding, also one whose newest block is still open, or that has a lock. Memory does not grow with
/// the disk.
/// @throws Error (Cancelled)
RECORDINGS_API Checked CheckHealth(const Disk& disk, const BlockList& blocks, const CheckRequest& request,
                                   const FindingSink& findings, const Watch& watch = {});

/// What a kind of problem means for the recordings, in a sentence.
RECORDINGS_API const char* MeaningOf(ProblemKind kind);
/// What to do about it, in a sentence.
RECORDINGS_API const char* AdviceFor(ProblemKind kind);

} // namespace recordings

#endif // RECORDINGS_HEALTH_H
