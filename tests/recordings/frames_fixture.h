#ifndef TESTS_RECORDINGS_FRAMES_FIXTURE_H
#define TESTS_RECORDINGS_FRAMES_FIXTURE_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "recordings/block_frames.h"
#include "recordings/recordings_fixture.h"
#include "sample_recorder/frame.h"
#include "sample_recorder/recorder.h"

namespace test_support {

/// A frame as it was recorded.
struct RecordedFrame {
    uint32_t block = 0;
    uint32_t offset = 0; ///< of its head in the frame area
    sample_recorder::Frame frame;

    uint32_t End() const { return offset + 24 + static_cast<uint32_t>(frame.payload.size()); }
};

/// What reading a block gave.
struct ReadFrames {
    std::vector<RecordedFrame> frames;
    std::vector<bool> afterLoss;
    bool lossAtEnd = false;
    std::vector<recordings::Problem> problems;

    std::vector<std::string> Lines() const;
    bool AnyLoss() const;
};

/// A test that records frames and reads them back, block by block.
class FramesFixture : public RecordingsFixture {
protected:
    /// What heads say of the channels; set before Start().
    std::array<ChnProp_t, 32> properties = {};
    /// Blocks of the disk; set before Start().
    uint32_t blockCount = 8;
    /// Makes a disk, and a recorder for it.
    void Start(uint32_t fmtVersion, uint32_t channels, uint32_t blockSize = 0x10000, bool endMarker = true);
    sample_recorder::Recorder& Recorder() { return *m_recorder; }

    /// Records a frame, and remembers where it went.
    void Record(const sample_recorder::Frame& frame);
    /// Records a frame of so many bytes, made of its time.
    void Record(int64_t pts, uint32_t type, uint32_t channel, size_t bytes);
    void RecordEvent(int64_t pts, uint64_t type, uint32_t channel, bool indexed = true);
    void RecordAll(sample_recorder::FrameSource& source);

    const std::vector<RecordedFrame>& Recorded() const { return m_recorded; }
    /// Those of a block.
    std::vector<RecordedFrame> Of(uint32_t block) const;
    /// Device offset of a frame's head.
    uint64_t HeadOf(const RecordedFrame& frame);

    /// Reads a block of the disk as it is now.
    ReadFrames Read(uint32_t block, recordings::Want want = recordings::Want::Payloads);
    /// The same, with the disk and the list of blocks as they were opened last: only frames and index may have changed.
    ReadFrames Again(uint32_t block, recordings::Want want = recordings::Want::Payloads);
    /// Whether all frames of a block came as they were recorded.
    bool Same(const ReadFrames& read, uint32_t block,
              recordings::Want want = recordings::Want::Payloads) const;

private:
    void Remember(const sample_recorder::Frame& frame);

    std::optional<sample_recorder::Recorder> m_recorder;
    std::vector<RecordedFrame> m_recorded;
    recordings::Disk* m_opened = nullptr;
    std::optional<recordings::BlockList> m_blocks;
};

} // namespace test_support

#endif // TESTS_RECORDINGS_FRAMES_FIXTURE_H
