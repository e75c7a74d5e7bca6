#include "recordings/block_frames.h"

#include <utility>

#include "block_reader.h"
#include "found_frames.h"

namespace recordings {

class BlockFrames::Impl {
public:
    Impl(const Disk& disk, const Block& block, Want want, ProblemSink problems)
        : m_reader(disk, block, want, m_buffer), m_problems(std::move(problems)) {}

    bool Next(Frame& frame, bool& afterLoss) {
        Lost lost;
        const bool got = m_reader.Next(frame, lost);
        for (; m_problems && m_reported < m_reader.Problems().size(); ++m_reported) {
            m_problems(m_reader.Problems()[m_reported]);
        }
        afterLoss = lost.any;
        return got;
    }

private:
    FrameBuffer m_buffer;
    BlockReader m_reader;
    ProblemSink m_problems;
    size_t m_reported = 0;
};

BlockFrames::BlockFrames(const Disk& disk, const Block& block, Want want, ProblemSink problems)
    : m_impl(std::make_unique<Impl>(disk, block, want, std::move(problems))) {}

BlockFrames::~BlockFrames() = default;

bool BlockFrames::Next(Frame& frame, bool& afterLoss) {
    return m_impl->Next(frame, afterLoss);
}

bool ReadPayload(const Disk& disk, const Frame& frame, void* payload) {
    const uint64_t offset = uint64_t{frame.offset} + kHeadBytes;
    if (offset + frame.size > disk.Layout().frameBytes) {
        return false;
    }
    return disk.Bytes().ReadWhole(disk.StartOf(frame.block) + disk.Layout().frames + offset, payload,
                                  frame.size);
}

} // namespace recordings
