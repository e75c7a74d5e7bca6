#include "block_reader.h"

#include <algorithm>
#include <utility>

#include "block_judge.h"
#include "block_problems.h"

namespace recordings {

namespace {

/// Drops the frames whose payload the disk does not deliver.
void DropUnreadable(FoundFrames& found, const std::map<uint32_t, uint32_t>& unreadable) {
    std::vector<FoundFrame> readable;
    readable.reserve(found.frames.size());
    Lost lost;
    for (const FoundFrame& frame : found.frames) {
        const auto after = unreadable.lower_bound(static_cast<uint32_t>(frame.End()));
        if (after != unreadable.begin() && std::prev(after)->second > frame.offset) {
            lost.any = true;
            lost.media.bits |= frame.lost.bits;
            if (frame.IsMedia()) {
                lost.media.Add(frame.channel);
            }
            continue;
        }
        readable.push_back(frame);
        readable.back().afterLoss |= lost.any;
        readable.back().lost.bits |= lost.media.bits;
        lost = {};
    }
    found.lostAtEnd |= lost.any;
    found.frames = std::move(readable);
}

} // namespace

BlockReader::BlockReader(const Disk& disk, const Block& block, Want want, FrameBuffer& buffer,
                         std::function<void()> breathe)
    : m_want(want), m_block(block.number), m_area(disk, block.number, want, buffer, std::move(breathe)),
      m_found(JudgeBlock(disk, block, m_area)), m_reported(m_area.Unreadable()) {
    const bool headless = block.unreadable || block.wiped;
    if (want == Want::Payloads && !m_reported.empty()) {
        DropUnreadable(m_found, m_reported);
    }
    CompleteProblems(m_found, block.number, headless ? std::map<uint32_t, uint32_t>() : m_reported);
    if (headless) {
        m_found.problems.clear();
    }
    m_area.ReadInOrder();
}

bool BlockReader::Next(Frame& frame, Lost& lost) {
    lost = {};
    while (m_next < m_found.frames.size()) {
        const FoundFrame& found = m_found.frames[m_next++];
        m_done = static_cast<uint32_t>(found.End());
        lost.any |= found.afterLoss;
        lost.media.bits |= found.lost.bits;
        const bool wanted = m_want == Want::Payloads && found.size != 0;
        const uint8_t* const data = wanted ? m_area.At(found.offset + kHeadBytes, found.size) : nullptr;
        if (wanted && data == nullptr) {
            ReportUnreadable(found);
            lost.any = true;
            lost.media.Add(found.channel);
            continue;
        }
        frame = {found.time, found.type, found.channel, m_block, found.offset, found.size, data};
        return true;
    }
    m_done = m_area.Size();
    lost.any |= m_found.lostAtEnd;
    lost.media = m_found.lostAtEnd ? ChannelSet::All() : lost.media;
    return false;
}

/// Names what the disk did not deliver of a frame, as far as nothing named it before.
void BlockReader::ReportUnreadable(const FoundFrame& found) {
    for (auto at = m_area.Unreadable().lower_bound(found.offset);
         at != m_area.Unreadable().end() && at->first < found.End(); ++at) {
        const auto [reported, isNew] = m_reported.insert(*at);
        if (isNew || reported->second != at->second) {
            reported->second = at->second;
            Problem problem;
            problem.kind = ProblemKind::BytesUnreadable;
            problem.block = m_block;
            problem.offset = at->first;
            problem.bytes = at->second - at->first;
            problem.before = m_next > 1 ? std::optional(m_found.frames[m_next - 2].time) : std::nullopt;
            problem.after =
                m_next < m_found.frames.size() ? std::optional(m_found.frames[m_next].time) : std::nullopt;
            m_found.problems.push_back(problem);
        }
    }
}

} // namespace recordings
