#include "recordings/range_frames.h"

#include <utility>

#include "block_reader.h"
#include "format/index_tables.h"
#include "key_frame_gate.h"
#include "range_start.h"
#include "watch_caller.h"

namespace recordings {

namespace {

/// Recorders begin a new segment after a longer pause than this.
constexpr int64_t kGap = (disk_access::kMergeGap - 1) * kMicros;

/// Frames between two looks at the clock.
constexpr uint32_t kFramesAWatch = 64;

constexpr uint32_t kUnknownStart = 0xFFFFFFFF;

/// Cuts candidates into stretches that were recorded one after the other.
std::vector<BlockRun> RunsOf(const BlockList& blocks, const TimeRange& range) {
    std::vector<BlockRun> runs;
    for (const size_t entry : blocks.Candidates(range)) {
        const bool follows = !runs.empty() && runs.back().last + 1 == entry &&
                             blocks.All()[entry - 1].sequence + 1 == blocks.All()[entry].sequence;
        if (follows) {
            runs.back().last = entry;
        } else {
            runs.push_back({entry, entry});
        }
    }
    return runs;
}

/// Finds stretches in which a track was not recorded.
class GapFinder {
public:
    void Take(const Frame& frame) {
        std::optional<int64_t>& last = m_last.at(2 * frame.channel + (frame.IsVideo() ? 1u : 0u));
        if (last && TimeBetween(*last, frame.time) > kGap) {
            m_gaps.push_back({frame.channel, frame.IsVideo(), frame.block, *last, frame.time});
        }
        last = frame.time;
    }
    const std::vector<Gap>& Gaps() const { return m_gaps; }

private:
    std::array<std::optional<int64_t>, size_t{2} * kChannels> m_last;
    std::vector<Gap> m_gaps;
};

} // namespace

class RangeFrames::Impl {
public:
    Impl(const Disk& disk, const BlockList& blocks, const FrameQuery& query, ProblemSink problems,
         Watch watch)
        : m_disk(disk), m_blocks(blocks), m_query(query), m_problems(std::move(problems)),
          m_watch(disk, std::move(watch)), m_runs(RunsOf(blocks, query.range)) {
        m_query.channels = query.channels.Without(disk.Hidden());
        ReportLocked(query.channels.And(disk.Hidden()));
        m_blocks.Report(query.range, m_problems);
        for (const BlockRun& run : m_runs) {
            m_total += run.last + 1 - run.first;
        }
    }

    bool Next(Frame& frame) {
        for (;;) {
            if (!m_reader && !OpenNext()) {
                return false;
            }
            if (++m_frames % kFramesAWatch == 0) {
                Breathe();
            }
            Lost lost;
            const bool got = m_reader->Next(frame, lost);
            ReportNew();
            m_gate.Lose(lost.media);
            if (!got) {
                CloseBlock();
            } else if (Accept(frame)) {
                m_gaps.Take(frame);
                if (m_used.empty() || m_used.back() != frame.block) {
                    m_used.push_back(frame.block);
                }
                m_current = &Current();
                return true;
            }
        }
    }

    std::shared_ptr<const void> HoldPayload() const {
        return m_query.want == Want::Payloads ? m_buffer.Hold() : nullptr;
    }
    const Block& CurrentBlock() const { return *m_current; }
    const std::vector<Gap>& Gaps() const { return m_gaps.Gaps(); }
    const std::vector<uint32_t>& BlocksUsed() const { return m_used; }

    Progress Done() const {
        const uint64_t size = m_disk.Layout().frameBytes;
        const uint64_t inBlock = m_reader ? m_reader->Done() : 0;
        return {m_blocksDone * size + inBlock, m_total * size, BytesRead()};
    }

private:
    const Block& Current() const { return m_blocks.All()[m_entry]; }
    uint64_t BytesRead() const { return m_bytesRead + (m_reader ? m_reader->BytesRead() : 0); }

    void ReportLocked(ChannelSet locked) const {
        if (m_problems && !locked.Empty()) {
            Problem problem;
            problem.kind = ProblemKind::ChannelsLocked;
            problem.severity = Severity::Note;
            problem.channels = locked.bits;
            m_problems(problem);
        }
    }

    // ---- the watch

    /// Calls the watch every now and then.
    void Breathe() {
        m_watch.CallNowAndThen([this] { return Done(); });
    }

    // ---- from block to block

    bool OpenNext() {
        if (m_run == m_runs.size()) {
            return false;
        }
        m_watch.Call(Done());
        if (!m_inRun) {
            BeginRun();
        }
        AskForNext();
        // Made first, taken over then: what was read before it counts while it reads.
        auto reader =
            std::make_unique<BlockReader>(m_disk, Current(), m_query.want, m_buffer, [this] { Breathe(); });
        m_reader = std::move(reader);
        m_reported = 0;
        ReportNew();
        return true;
    }

    void BeginRun() {
        const BlockRun& run = m_runs[m_run];
        m_start = {};
        m_start.first = run.first;
        if (m_query.decodable) {
            m_start = FindRangeStart(m_disk, m_blocks, run, m_query, m_buffer, [this] { Breathe(); });
            m_bytesRead += m_start.bytesRead;
        }
        m_total += run.first - m_start.first;
        m_gate.Begin(m_start.lost);
        m_begun = {};
        m_entry = m_start.first;
        m_inRun = true;
    }

    /// Has the system read the next block while this one is worked on.
    void AskForNext() const {
        if (m_query.want == Want::Payloads && m_entry < m_runs[m_run].last) {
            const uint32_t next = m_blocks.All()[m_entry + 1].number;
            m_disk.Bytes().WillNeed(m_disk.StartOf(next), m_disk.Facts().blockSize);
        }
    }

    void CloseBlock() {
        const Block& block = Current();
        for (const Problem& problem : m_gate.Finish(block.number)) {
            if (m_problems) {
                m_problems(problem);
            }
        }
        if (block.unreadable || block.wiped) {
            m_gate.Lose(ChannelSet::All()); // the list of blocks names it
        }
        m_bytesRead += m_reader->BytesRead();
        m_reader.reset();
        ++m_blocksDone;
        if (m_entry == m_runs[m_run].last) {
            ++m_run;
            m_inRun = false;
        } else {
            ++m_entry;
        }
    }

    // ---- frames

    bool Accept(const Frame& frame) {
        if (!frame.IsMedia() || !m_query.channels.Has(frame.channel)) {
            return false;
        }
        const bool inRange = m_query.range.Holds(frame.Seconds());
        if (!inRange && !LeadsIn(frame)) {
            return false;
        }
        if (inRange && frame.IsVideo()) {
            m_begun.Add(frame.channel);
        }
        return !m_query.decodable || !frame.IsVideo() || m_gate.Passes(frame, inRange);
    }

    /// Whether a frame lies before the range, and what lies in it needs it.
    bool LeadsIn(const Frame& frame) const {
        const auto& place = m_start.places[frame.channel];
        return place && !m_begun.Has(frame.channel) && frame.Seconds() < m_query.range.first &&
               (m_entry > place->entry || (m_entry == place->entry && frame.offset >= place->offset));
    }

    // ---- problems

    void ReportNew() {
        for (; m_reported < m_reader->Problems().size(); ++m_reported) {
            const Problem& problem = m_reader->Problems()[m_reported];
            if (m_problems && Concerns(problem)) {
                m_problems(problem);
            }
        }
    }

    /// Whether a problem concerns what is asked for; in doubt it does.
    bool Concerns(const Problem& problem) const {
        const bool ofChannel =
            problem.kind == ProblemKind::FramesMissing || problem.kind == ProblemKind::IndexDamaged;
        if (ofChannel && problem.channel && !m_query.channels.Has(*problem.channel)) {
            return false;
        }
        const Block& block = Current();
        const bool known = block.headSound && block.start <= (block.closed ? block.end : kUnknownStart);
        const int64_t before = problem.before.value_or(known ? block.start * kMicros : INT64_MIN);
        const int64_t after = problem.after.value_or(
            known && block.closed ? TimeAfter(block.end * kMicros, kMicros) : INT64_MAX);
        int64_t first = m_query.range.first * kMicros;
        for (const auto& place : m_start.places) {
            first = place ? std::min(first, place->time) : first;
        }
        const int64_t last = m_query.range.last * kMicros + kMicros - 1;
        return before > after || (before <= last && after >= first);
    }

    const Disk& m_disk;
    const BlockList& m_blocks;
    FrameQuery m_query;
    ProblemSink m_problems;
    WatchCaller m_watch;

    std::vector<BlockRun> m_runs;
    size_t m_run = 0; ///< the run at hand
    bool m_inRun = false;
    RangeStart m_start; ///< of the run
    size_t m_entry = 0; ///< of the list: the block at hand
    FrameBuffer m_buffer;
    std::unique_ptr<BlockReader> m_reader;
    size_t m_reported = 0; ///< problems of the block that have been looked at

    KeyFrameGate m_gate;
    ChannelSet m_begun; ///< channels that have reached the range in this run
    GapFinder m_gaps;
    std::vector<uint32_t> m_used;
    const Block* m_current = nullptr;
    uint32_t m_frames = 0;
    uint64_t m_blocksDone = 0;
    uint64_t m_total = 0; ///< blocks
    uint64_t m_bytesRead = 0;
};

RangeFrames::RangeFrames(const Disk& disk, const BlockList& blocks, const FrameQuery& query,
                         ProblemSink problems, Watch watch)
    : m_impl(std::make_unique<Impl>(disk, blocks, query, std::move(problems), std::move(watch))) {}

RangeFrames::~RangeFrames() = default;

bool RangeFrames::Next(Frame& frame) {
    return m_impl->Next(frame);
}

std::shared_ptr<const void> RangeFrames::HoldPayload() const {
    return m_impl->HoldPayload();
}

const Block& RangeFrames::CurrentBlock() const {
    return m_impl->CurrentBlock();
}

Progress RangeFrames::Done() const {
    return m_impl->Done();
}

const std::vector<Gap>& RangeFrames::Gaps() const {
    return m_impl->Gaps();
}

const std::vector<uint32_t>& RangeFrames::BlocksUsed() const {
    return m_impl->BlocksUsed();
}

} // namespace recordings
