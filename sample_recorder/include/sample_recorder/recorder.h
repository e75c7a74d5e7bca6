#ifndef SAMPLE_RECORDER_RECORDER_H
#define SAMPLE_RECORDER_RECORDER_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "sample_recorder/frame.h"
#include "sample_recorder/partition_image.h"

namespace sample_recorder {

/// What the recorder writes into every block head.
struct RecorderSettings {
    std::string vehicleNum = "SAMPLE 1";
    std::string vehicleId = "sample-recorder";
    uint32_t preRecordSeconds = 10;
    uint32_t alarmDelaySeconds = 30;
    uint32_t channels = 0; ///< bit n: channel n is recorded
    std::array<ChnProp_t, 32> properties = {};
    std::optional<uint32_t> extensionParameter; ///< extended layout: the channel set of the extended head
    bool endMarker = true;                      ///< mark the end of the frames when a block is closed
};

/// Writes a ring of blocks as a recorder in a vehicle does.
///
/// Frames go into the current block one after the other. When one no longer fits, or its index entry does
/// not, the block is closed (index and tail are written) and the next block of the ring that is not marked
/// bad is opened: a new head, and behind it, until they are overwritten, the frames, index and tail of the
/// ring's previous turn.
class Recorder {
public:
    Recorder(PartitionImage& image, RecorderSettings settings);

    /// Writes a media frame. The first one after the start, PowerOff() or CutPower() opens a block.
    void Write(const Frame& frame);

    /// Writes an event frame; it enters the block's event table if @p indexed. Opens a block as Write() does.
    void WriteEvent(int64_t pts, uint64_t type, uint32_t channel, bool indexed = true);

    /// Closes the current block, as at the end of a journey.
    void PowerOff();

    /// Leaves the current block as it is: no index, no tail.
    void CutPower();

    /// Leaves the current block with its index written, vouched for by the extended tail alone.
    void CutPowerAfterIndex();

    /// The block being written, if any.
    std::optional<uint32_t> CurrentBlock() const;
    uint32_t BlocksOpened() const { return m_sequence; }

private:
    void Append(const Frame& frame, bool indexed);
    bool Fits(const Frame& frame) const;
    void OpenBlock(uint32_t seconds);
    void CloseBlock();
    void WriteEndMarker();
    void AddToIndex(const Frame& frame, bool indexed);
    void AddToSegment(const Frame& frame);

    PartitionImage& m_image;
    RecorderSettings m_settings;
    uint32_t m_sequence = 0;
    std::optional<uint32_t> m_previousBlock;
    bool m_open = false;
    uint32_t m_pos = 0; ///< where the next frame goes in the frame area
    BlockContents m_contents;
};

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_RECORDER_H
