#ifndef SAMPLE_RECORDER_FRAME_H
#define SAMPLE_RECORDER_FRAME_H

/// @file frame.h
/// What a camera delivers, and where it comes from.

#include <cstdint>
#include <memory>
#include <vector>

namespace sample_recorder {

/// Time stamps are in microseconds.
constexpr int64_t kMicrosPerSecond = 1000000;

/// Frame types on the disk.
enum FrameType : uint32_t {
    kVideoP = 0, ///< video that needs earlier frames
    kVideoI = 1, ///< video that stands on its own
    kAudio = 2,
    kEvent = 4,
};

/// One frame of one channel.
struct Frame {
    int64_t pts = 0; ///< microseconds since 1970-01-01 UTC
    uint32_t type = kVideoP;
    uint32_t channel = 0;
    std::vector<uint8_t> payload;

    uint32_t Seconds() const { return static_cast<uint32_t>(pts / 1000000); }
};

/// Delivers frames with rising time stamps.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    /// @return false at the end; @p frame is then undefined
    virtual bool Next(Frame& frame) = 0;
};

/// Several sources as one, in the order of their time stamps. Of frames with equal ones, that of the source
/// added first comes first.
class MergedSource : public FrameSource {
public:
    void Add(std::unique_ptr<FrameSource> source);
    bool Next(Frame& frame) override;

private:
    struct Input {
        std::unique_ptr<FrameSource> source;
        Frame head;
    };
    std::vector<Input> m_inputs;
};

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_FRAME_H
