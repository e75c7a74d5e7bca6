#include "recordings/block_frames.h"

#include <utility>

#include "block_reader.h"
#include "found_frames.h"
#include "watch_caller.h"

namespace recordings {

namespace {

/// Frames between two looks at the clock.
constexpr uint32_t kFramesAWatch = 64;

} // namespace

class BlockFrames::Impl {
public:
    Impl(const Disk& disk, const Block& block, Want want, ProblemSink problems, Watch watch)
        : m_watch(disk, std::move(watch)), m_total(disk.Layout().frameBytes),
          m_reader(disk, block, want, m_buffer, [this] { Breathe(0, 0); }), m_problems(std::move(problems)) {}

    bool Next(Frame& frame, bool& afterLoss) {
        if (++m_frames % kFramesAWatch == 0) {
            Breathe(m_reader.Done(), m_reader.BytesRead());
        }
        Lost lost;
        const bool got = m_reader.Next(frame, lost);
        for (; m_problems && m_reported < m_reader.Problems().size(); ++m_reported) {
            m_problems(m_reader.Problems()[m_reported]);
        }
        afterLoss = lost.any;
        return got;
    }

private:
    void Breathe(uint64_t done, uint64_t bytes) {
        m_watch.CallNowAndThen([&] { return Progress{done, m_total, bytes}; });
    }

    WatchCaller m_watch;
    uint64_t m_total; ///< bytes
    FrameBuffer m_buffer;
    BlockReader m_reader;
    ProblemSink m_problems;
    size_t m_reported = 0;
    uint32_t m_frames = 0;
};

BlockFrames::BlockFrames(const Disk& disk, const Block& block, Want want, ProblemSink problems, Watch watch)
    : m_impl(std::make_unique<Impl>(disk, block, want, std::move(problems), std::move(watch))) {}

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
