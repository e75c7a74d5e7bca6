#ifndef BENCH_PLAYBACK_FRAME_SINK_H
#define BENCH_PLAYBACK_FRAME_SINK_H

/// @file frame_sink.h
/// What becomes of the frames that a reader delivers.

#include <array>
#include <cstddef>
#include <cstdint>

namespace playback_bench {

/// How the NAL units of a video payload are told apart.
enum class NalForm {
    StartCodes, ///< 00 00 01 before each, as cameras deliver them
    Lengths,    ///< four bytes of length before each, as Matroska and MP4 store them
};

/// A frame delivered.
struct FrameView {
    uint32_t channel;
    bool audio;
    const uint8_t* payload;
    size_t length;
};

class FrameSink {
public:
    virtual ~FrameSink() = default;
    virtual void Take(const FrameView& frame) = 0;
};

/// Counts frames and looks at nothing: what timed runs deliver to.
class CountingSink : public FrameSink {
public:
    void Take(const FrameView& frame) override {
        ++m_frames;
        m_bytes += frame.length;
    }
    uint64_t Frames() const { return m_frames; }
    uint64_t Bytes() const { return m_bytes; }

private:
    uint64_t m_frames = 0;
    uint64_t m_bytes = 0;
};

/// Sums up what is in the frames, in a way that no container changes: of video, the bytes of the NAL units
/// without what separates them, and without access unit delimiters, which MPEG-TS adds; of audio, all bytes.
/// Each frame counts by its place in its channel, so that channels may come mixed or one after the other.
class SummingSink : public FrameSink {
public:
    explicit SummingSink(NalForm form) : m_form(form) {}
    void Take(const FrameView& frame) override;
    uint64_t Sum() const { return m_sum; }

private:
    static constexpr size_t kChannels = 32;

    NalForm m_form;
    std::array<uint64_t, 2 * kChannels> m_places = {}; ///< frames so far of each channel's video and audio
    uint64_t m_sum = 0;
};

} // namespace playback_bench

#endif // BENCH_PLAYBACK_FRAME_SINK_H
