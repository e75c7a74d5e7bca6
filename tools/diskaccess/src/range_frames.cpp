#include "range_frames.h"

#include <algorithm>

#include "frame_types.h"

namespace diskaccess {

namespace {

constexpr int64_t kMicros = 1000000;
/// Recorders begin a new record segment after a longer silence than this.
constexpr int64_t kGapSeconds = 15;

/// Looks for the key frames at or before the range's start, from its block backwards.
class StartFinder {
public:
    StartFinder(Partition& disk, ExportPlan& plan) : m_disk(disk), m_plan(plan) {}

    void Run() {
        const auto& blocks = m_plan.sequence.blocks;
        uint32_t wanted = m_plan.range.channels;
        for (size_t i = m_plan.sequence.start + 1; i-- > 0 && wanted != 0;) {
            if (i != m_plan.sequence.start && blocks[i].sequence + 1 != blocks[i + 1].sequence) {
                return; // what lies before is another recording, or the way to it is broken
            }
            Scan(i);
            wanted &= ~m_settled;
        }
    }

private:
    /// Finds each channel's last key frame of a block that lies at or before the start.
    void Scan(size_t index) {
        BlockFrames frames(m_disk, m_plan.area, m_plan.sequence.blocks[index], BlockFrames::Want::Heads);
        std::array<std::optional<StartPlace>, 32> found;
        std::array<std::optional<int64_t>, 32> last;
        PlacedFrame frame;
        for (bool lost = false; frames.Next(frame, lost);) {
            if (lost) {
                found = {};
            }
            if (!IsVideo(frame.head) || frame.head.pts > int64_t{m_plan.range.times.first} * kMicros) {
                continue;
            }
            if (frame.head.type == kKeyFrame) {
                found.at(frame.head.chn) = StartPlace{index, frame.offset};
            }
            last.at(frame.head.chn) = frame.Seconds();
        }
        for (uint32_t chn = 0; chn < 32; ++chn) {
            Settle(chn, found.at(chn), last.at(chn));
        }
    }

    void Settle(uint32_t chn, const std::optional<StartPlace>& found, std::optional<int64_t> last) {
        if ((m_settled >> chn & 1) != 0 || !last) {
            return;
        }
        // A recording that was over before the range begins has no part in it.
        const bool over = !m_seen.at(chn) && *last + kGapSeconds < m_plan.range.times.first;
        m_seen.at(chn) = true;
        if (found && !over) {
            m_plan.starts.at(chn) = found;
        }
        if (found || over) {
            m_settled |= 1u << chn;
        }
    }

    Partition& m_disk;
    ExportPlan& m_plan;
    uint32_t m_settled = 0;
    std::array<bool, 32> m_seen = {};
};

} // namespace

ExportPlan PlanExport(Job& job, const ExportRange& range) {
    ExportPlan plan;
    plan.range = range;
    plan.sequence = FindBlocks(job, range.times);
    plan.area = FindFrameArea(job.Disk(), plan.sequence.blocks);
    plan.firstBlock = plan.sequence.start;
    const auto& blocks = plan.sequence.blocks;
    if (blocks.empty() || !plan.sequence.inOrder ||
        blocks[plan.sequence.start].startTime > range.times.first) {
        return plan;
    }
    StartFinder(job.Disk(), plan).Run();
    for (const auto& start : plan.starts) {
        plan.firstBlock = start ? std::min(plan.firstBlock, start->block) : plan.firstBlock;
    }
    return plan;
}

RangeFrames::RangeFrames(Partition& disk, const ExportPlan& plan)
    : m_disk(disk), m_plan(plan), m_block(plan.firstBlock) {
    m_waiting.fill(true);
}

double RangeFrames::Progress() const {
    const auto total = static_cast<double>(m_plan.sequence.blocks.size() - m_plan.firstBlock);
    const double inBlock = m_plan.area.size == 0 ? 0 : static_cast<double>(m_offset) / m_plan.area.size;
    return total == 0 ? 1
                      : std::min(1.0, (static_cast<double>(m_block - m_plan.firstBlock) + inBlock) / total);
}

bool RangeFrames::OpenNextBlock() {
    const auto& blocks = m_plan.sequence.blocks;
    if (m_started) {
        ++m_block;
    }
    if (m_block >= blocks.size()) {
        return false;
    }
    if (m_started && blocks[m_block - 1].sequence + 1 != blocks[m_block].sequence) {
        const uint32_t step = blocks[m_block].sequence - blocks[m_block - 1].sequence;
        if (step != 0) { // two heads with one number are not both right, and tell of none between them
            m_findings.missing.push_back({blocks[m_block - 1].number, blocks[m_block].number, step - 1});
        }
        m_waiting.fill(true);
    }
    m_started = true;
    m_offset = 0;
    m_frames =
        std::make_unique<BlockFrames>(m_disk, m_plan.area, blocks[m_block], BlockFrames::Want::Payloads);
    return true;
}

void RangeFrames::CloseBlock() {
    const auto& losses = m_frames->Losses();
    m_findings.losses.insert(m_findings.losses.end(), losses.begin(), losses.end());
    m_frames.reset();
}

bool RangeFrames::Next(PlacedFrame& frame) {
    for (;;) {
        if (!m_frames && !OpenNextBlock()) {
            return false;
        }
        bool lost = false;
        const bool got = m_frames->Next(frame, lost);
        if (lost) {
            m_waiting.fill(true);
        }
        if (!got) {
            CloseBlock();
        } else if (Accept(frame)) {
            NoteGap(frame);
            if (m_findings.blocks.empty() || m_findings.blocks.back() != m_block) {
                m_findings.blocks.push_back(m_block);
            }
            return true;
        }
    }
}

bool RangeFrames::Accept(const PlacedFrame& frame) {
    m_offset = frame.offset;
    const uint32_t chn = frame.head.chn;
    const Range& times = m_plan.range.times;
    if (!IsMedia(frame.head) || (m_plan.range.channels >> chn & 1) == 0 || frame.Seconds() > times.last) {
        return false;
    }
    const auto& start = m_plan.starts.at(chn);
    const bool beforeStart =
        start ? m_block < start->block || (m_block == start->block && frame.offset < start->offset)
              : frame.Seconds() < times.first;
    if (beforeStart) {
        return false;
    }
    if (!IsVideo(frame.head)) {
        return true;
    }
    if (frame.head.type == kKeyFrame) {
        m_waiting.at(chn) = false;
    }
    if (m_waiting.at(chn)) {
        ++m_findings.undecodable.at(chn);
    }
    return !m_waiting.at(chn);
}

void RangeFrames::NoteGap(const PlacedFrame& frame) {
    std::optional<int64_t>& last = m_last.at(frame.head.chn);
    if (last && frame.head.pts - *last > kGapSeconds * kMicros) {
        m_findings.gaps.push_back({frame.head.chn, Block().number, *last, frame.head.pts});
    }
    last = frame.head.pts;
}

} // namespace diskaccess
