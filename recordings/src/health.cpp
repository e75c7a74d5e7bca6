#include "recordings/health.h"

#include <array>
#include <set>
#include <utility>

#include "block_checks.h"
#include "block_facts.h"
#include "found_frames.h"
#include "recordings/block_frames.h"
#include "recordings/block_index.h"
#include "recordings/error.h"
#include "stream_check.h"
#include "table_checks.h"

namespace recordings {

namespace {

bool Known(const Block& block) {
    return !block.unreadable && !block.wiped;
}

class HealthCheck {
public:
    HealthCheck(const Disk& disk, const BlockList& blocks, const CheckRequest& request,
                const FindingSink& findings, const Watch& watch)
        : m_disk(disk), m_blocks(blocks), m_request(request), m_findings(findings), m_watch(watch),
          m_take([this](const Finding& finding) { Take(finding); }), m_check(disk, !request.full, m_take) {}

    Checked Run() {
        for (const Problem& problem : m_disk.OpeningProblems()) {
            Take(FindingOf(problem));
        }
        CheckTables(m_disk, m_blocks, m_take);
        m_blocks.Report({}, [this](const Problem& problem) { TakeOfList(problem); });
        CheckMarks();
        CheckBlocks();
        if (m_request.payloads != nullptr) {
            m_request.payloads->Finish(TakeProblems());
        }
        return m_checked;
    }

private:
    using Ends = std::array<uint64_t, kChannels>; ///< of each channel's last frame, 0: none

    static Finding FindingOf(const Problem& problem) {
        Finding finding;
        finding.problem = problem;
        return finding;
    }

    ProblemSink TakeProblems() {
        return [this](const Problem& problem) { Take(FindingOf(problem)); };
    }

    /// What the list of blocks says of heads is said once more, with the fields, when the block itself is checked.
    void TakeOfList(const Problem& problem) {
        if (problem.kind == ProblemKind::BlockMarkedBad) {
            m_markedBad.insert(*problem.block);
        }
        if (problem.kind != ProblemKind::HeadDamaged) {
            Take(FindingOf(problem));
        }
    }

    void CheckMarks() {
        for (uint32_t block = 0; block < m_disk.BlockCount(); ++block) {
            const BlockMark mark = m_disk.MarkOf(block);
            if (mark == BlockMark::None || m_markedBad.count(block) != 0) {
                continue;
            }
            Problem problem;
            problem.kind = mark == BlockMark::Bad ? ProblemKind::BlockRetired : ProblemKind::BlockSuspect;
            problem.severity = Severity::Note;
            problem.block = block;
            Take(FindingOf(problem));
        }
    }

    void CheckBlocks() {
        const auto& blocks = m_blocks.All();
        std::optional<BlockParts> before;
        std::optional<BlockParts> at = blocks.empty() ? std::nullopt : PartsOf(blocks.front());
        for (size_t i = 0; i < blocks.size(); ++i) {
            Ask(0);
            const std::optional<BlockParts> after =
                i + 1 < blocks.size() ? PartsOf(blocks[i + 1]) : std::nullopt;
            m_block = &blocks[i];
            m_reported.clear();
            m_anyLoss = false;
            if (at) {
                m_check.Check(
                    {before ? &*before : nullptr, &*at, after ? &*after : nullptr, i + 1 == blocks.size()});
            }
            if (at && m_request.full) {
                CheckFrames(blocks[i], before && blocks[i - 1].sequence + 1 == blocks[i].sequence);
            }
            before = at;
            at = after;
            ++m_checked.blocks;
        }
        m_block = nullptr;
    }

    /// Asks whether to go on.
    /// @param read bytes of the block that is checked
    void Ask(uint64_t read) const {
        const uint64_t size = m_disk.Facts().blockSize;
        if (m_watch &&
            !m_watch({m_checked.blocks * size + read, m_blocks.All().size() * size, m_checked.bytes})) {
            throw Error(ErrorKind::Cancelled, m_disk.Bytes().Name() + ": interrupted");
        }
    }

    std::optional<BlockParts> PartsOf(const Block& block) const {
        return Known(block) ? std::optional(BlockParts::Read(m_disk, block)) : std::nullopt;
    }

    /// @param follows on the block that was checked last
    void CheckFrames(const Block& block, bool follows) {
        BlockFrames frames(m_disk, block, Want::Payloads, TakeProblems());
        bool between = !follows || m_lostAtEnd; // lost before the frame that comes next
        StreamCheck streams;
        Ends ends = {};
        Frame frame;
        for (m_lostAtEnd = false; frames.Next(frame, m_lostAtEnd);) {
            ++m_checked.frames;
            m_checked.bytes += frame.size;
            Ask(frame.offset);
            streams.Take(frame);
            CheckPayload(frame, m_lostAtEnd || between);
            between = false;
            if (frame.IsMedia()) {
                ends.at(frame.channel) = uint64_t{frame.offset} + sizeof(FrameHead_t) + frame.size;
            }
        }
        if (block.closed && !m_anyLoss) {
            CheckEnds(block, ends);
        }
        for (const Problem& problem : streams.Finish(block.number)) {
            Take(FindingOf(problem));
        }
    }

    /// What is wrong with a payload tells nothing of the index.
    void CheckPayload(const Frame& frame, bool afterLoss) {
        if (m_request.payloads != nullptr) {
            const bool anyLoss = m_anyLoss;
            m_request.payloads->Take(frame, afterLoss, TakeProblems());
            m_anyLoss = anyLoss;
        }
    }

    /// Where the index has each channel end, its last frame ends: the frames between may end elsewhere.
    void CheckEnds(const Block& block, const Ends& ends) {
        const std::optional<BlockIndex> index = ReadIndex(m_disk, block, {false, true, false});
        for (uint32_t channel = 0; index && channel < kChannels; ++channel) {
            const auto& segments = index->segments[channel];
            const bool tells = !segments.empty() && ends.at(channel) != 0;
            if (tells && segments.back().endOffset != ends.at(channel) &&
                segments.back().endOffset + uint64_t{kRebuiltEndBefore} != ends.at(channel)) {
                Finding finding;
                finding.problem.kind = ProblemKind::IndexDamaged;
                finding.problem.severity = Severity::Note;
                finding.problem.block = block.number;
                finding.problem.channel = channel;
                finding.fields = "segments";
                Take(finding);
            }
        }
    }

    /// Hands on a finding, with its place, time and channels; each thing of a block once.
    void Take(Finding finding) {
        const Problem& problem = finding.problem;
        const bool ofIndex = problem.kind == ProblemKind::IndexDamaged;
        if (ofIndex && !m_reported.insert({problem.channel, problem.severity}).second) {
            return; // the index by itself, and the index against the frames
        }
        m_anyLoss = m_anyLoss || problem.severity == Severity::Loss;
        const bool ofBlock = m_block != nullptr && problem.block == m_block->number;
        finding.place = finding.place ? finding.place : PlaceOf(problem);
        finding.start = finding.start ? finding.start : problem.before;
        finding.end = finding.end ? finding.end : problem.after;
        if (ofBlock && !finding.start && !finding.end) {
            finding.start = m_block->start * kMicros;
            finding.end = m_block->closed ? std::optional(m_block->end * kMicros) : std::nullopt;
        }
        if (problem.channel) {
            finding.channels.Add(*problem.channel);
        }
        finding.channels.bits |= problem.channels;
        if (ofBlock && finding.channels.Empty()) {
            finding.channels = m_block->channels;
        }
        m_findings(finding);
    }

    std::optional<uint64_t> PlaceOf(const Problem& problem) const {
        if (problem.kind == ProblemKind::TablesUnreadable || problem.kind == ProblemKind::BackupTablesUsed) {
            return m_disk.Facts().badBlockTable;
        }
        if (!problem.block) {
            return std::nullopt;
        }
        const uint64_t start = m_disk.StartOf(*problem.block);
        if (problem.offset) {
            return start + m_disk.Layout().frames + *problem.offset;
        }
        switch (problem.kind) {
        case ProblemKind::TailDamaged:
        case ProblemKind::NotClosed:
            return start + m_disk.Layout().tail;
        case ProblemKind::IndexDamaged:
            return start + m_disk.Layout().index;
        default:
            return start;
        }
    }

    const Disk& m_disk;
    const BlockList& m_blocks;
    CheckRequest m_request;
    const FindingSink& m_findings;
    const Watch& m_watch;
    FindingSink m_take;
    BlockCheck m_check;
    Checked m_checked;
    std::set<uint32_t> m_markedBad; ///< blocks that hold a recording all the same
    const Block* m_block = nullptr; ///< that is being checked
    bool m_anyLoss = false;         ///< of that block
    bool m_lostAtEnd = false;       ///< something of the block that was read last, after its last frame
    std::set<std::pair<std::optional<uint32_t>, Severity>>
        m_reported; ///< channels whose index was found damaged
};

} // namespace

Checked CheckHealth(const Disk& disk, const BlockList& blocks, const CheckRequest& request,
                    const FindingSink& findings, const Watch& watch) {
    return HealthCheck(disk, blocks, request, findings, watch).Run();
}

} // namespace recordings
