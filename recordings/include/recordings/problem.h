#ifndef RECORDINGS_PROBLEM_H
#define RECORDINGS_PROBLEM_H

/// @file problem.h
/// What is wrong with a disk, and what of its recordings is lost. The same value goes from the reader that meets the
/// problem to every message, manifest and exit status.

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "recordings/export.h"

namespace recordings {

/// What was met. The comment says which of the fields of a Problem are set beside the kind and the severity.
enum class ProblemKind {
    // The whole disk
    TablesUnreadable, ///< the bad-block tables cannot be read: all blocks are looked at
    BackupTablesUsed, ///< the tables cannot be read, their backup copies can
    DeviceCutOff, ///< the device ends before the ring does; block: the first that is missing; count: how many
    BlocksNotNamed, ///< the head states more blocks than a recorder can number; count: how many are left out
    ChannelsLocked, ///< the access lock hides channels; channels
    // A whole block
    BlockUnreadable, ///< the disk delivers nothing of a block, or not its head; block
    BlockWiped,      ///< a block that must have been recorded holds no recording any more; block
    BlocksLost,   ///< recorded blocks are not there any more; block, blockAfter: neighbours; count: how many
    HeadDamaged,  ///< fields of a block's head are damaged; the block is read all the same; block
    TailDamaged,  ///< the same of its tail; block
    IndexDamaged, ///< the same of its index; the frames are read all the same; block, channel if one
    BlockSuspect, ///< the recorder has met errors on the block; block
    BlockMarkedBad, ///< the bad-block table marks a block that holds a recording; block
    // Inside a block
    BytesUnreadable, ///< the disk does not deliver them; block, offset, bytes, before, after
    BytesDamaged,    ///< what lies there are no frames; block, offset, bytes, before, after
    FramesMissing, ///< the index, or the pace of a channel, has frames that are not there; block, channel, count
    FrameDamaged, ///< a field of a frame's head contradicts the index or its neighbours; block, offset, channel
    NotClosed, ///< the block was cut off while it was written: how far it reaches is told by its frames; block
    // A channel
    NotDecodable, ///< frames cannot be decoded for want of a key frame before them; block, channel, count
    TimesCollide, ///< frames of a channel have the time of the one before, or an earlier one; block, channel, count
    ClockJumps, ///< the recorder's clock was set, and a file goes on without the jump; block, channel, before, after
    EncodingChanges, ///< a channel's codec, rate or size: a file of its own goes on with it; block, channel, after
    // What a check finds beside these
    TablesMisplaced, ///< the partition head has the bad-block tables where they cannot lie
    TablesDiffer,    ///< they differ from their backup copies; block: the first that they differ about; count
    BackupTablesUnreadable, ///< their backup copies cannot be read
    BlocksOutsideRing,      ///< a recording goes on after what the head states to be the last block; block
    BlockRetired,           ///< the recorder does not use the block any more; block
    ClockSetBack,           ///< a block begins before the one recorded before it ends; block, before, after
    PayloadsDamaged, ///< payloads are not what the channel's others are; block, channel, count, offset of the first
    ParametersMissing, ///< no key frame carries what it takes to decode it; block, channel, count
    PicturesDamaged, ///< pictures in a row do not decode; block, channel, offset of the first, count, before, after
    // What an export that encodes finds
    SoundDamaged ///< frames of sound do not decode; block of the first, channel, count, after
};

enum class Severity {
    Note, ///< worth knowing: nothing is missing because of it
    Loss  ///< something that was recorded is missing, wrong, or in doubt
};

/// One thing that is wrong.
struct Problem {
    ProblemKind kind = ProblemKind::BytesDamaged;
    Severity severity = Severity::Loss;
    std::optional<uint32_t> block;      ///< block number
    std::optional<uint32_t> blockAfter; ///< block number
    std::optional<uint32_t> channel;    ///< 0 to 31
    uint32_t channels = 0;              ///< bit n: channel n
    std::optional<uint32_t> offset;     ///< bytes from the start of the block's frame area
    uint64_t bytes = 0;
    uint64_t count = 0;
    std::optional<int64_t> before; ///< time stamp, microseconds on the recorder's clock: the frame before
    std::optional<int64_t> after;  ///< the same: the frame after
};

/// Takes problems as they are met. Called on the thread that reads.
using ProblemSink = std::function<void(const Problem&)>;

/// What a problem is called in machine-readable documents: "bytes_damaged".
RECORDINGS_API const char* NameOf(ProblemKind kind);

/// One line of plain English: what and where, what it means. No time is named without @p timeText, which turns a time
/// stamp into text.
RECORDINGS_API std::string Describe(const Problem& problem,
                                    const std::function<std::string(int64_t)>& timeText);

/// Keeps problems, each once: the same thing met again (an index read twice) is left out.
class RECORDINGS_API ProblemList {
public:
    void Add(const Problem& problem);
    const std::vector<Problem>& All() const { return m_problems; }
    /// Whether one of them is a loss.
    bool AnyLoss() const { return m_anyLoss; }
    /// A sink that adds to this list, which must outlive it.
    ProblemSink Sink() {
        return [this](const Problem& problem) { Add(problem); };
    }

private:
    struct Less {
        bool operator()(const Problem& a, const Problem& b) const;
    };
    std::set<Problem, Less> m_seen;
    std::vector<Problem> m_problems; ///< in the order they were met in
    bool m_anyLoss = false;
};

} // namespace recordings

#endif // RECORDINGS_PROBLEM_H
