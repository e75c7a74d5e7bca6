#ifndef TESTS_PLAYBACK_PLAYBACK_FIXTURE_H
#define TESTS_PLAYBACK_PLAYBACK_FIXTURE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "read_block.h"
#include "search/search_fixture.h"

namespace test_support {

/// Payload of a frame that says nothing else: with its head, it takes 100 bytes.
constexpr uint32_t kPayload = 76;

/// Kinds of frame heads.
FrameHead_t Frame(uint32_t type, uint32_t chn, int64_t seconds, uint32_t len = kPayload);
inline FrameHead_t PFrame(uint32_t chn, int64_t seconds, uint32_t len = kPayload) {
    return Frame(0, chn, seconds, len);
}
inline FrameHead_t KeyFrame(uint32_t chn, int64_t seconds, uint32_t len = kPayload) {
    return Frame(1, chn, seconds, len);
}
inline FrameHead_t Audio(uint32_t chn, int64_t seconds, uint32_t len = kPayload) {
    return Frame(2, chn, seconds, len);
}
/// No media: its time says nothing.
inline FrameHead_t Data(uint32_t chn, int64_t seconds, uint32_t len = kPayload) {
    return Frame(3, chn, seconds, len);
}
/// The mark at the end of the frames.
FrameHead_t EndMark();

/// The payload that PutFrames() writes after a head, other with every second and channel.
std::vector<uint8_t> PayloadOf(const FrameHead_t& head);
/// A frame as text: type, channel, seconds: "I0 1000", "P1 1001", "A0 1002", "T3.0 1003" (type 3).
std::string Describe(const FrameHead_t& head);
/// A segment as text: start, end, positions, bytes: "1000-1010 at 0-996, 996 bytes".
std::string Describe(const RecSegItem_t& segment);

/// A record of a channel's segment, as a search finds it.
RecordItem_t Record(uint32_t chn, uint32_t segment, uint32_t start = 0, uint32_t end = 0);
/// A record that carries its own window.
RecordItem_t OwnWindow(uint32_t chn, uint32_t start, uint32_t end, uint32_t offs = 0);
/// A record of a whole block.
RecordItem_t WholeBlock(uint32_t chn = 0);

/// The calls of a log as text, positions counted from the start of a block: "seek 840", "read 24 at 840".
Lines CallsInBlock(const SystemCallLog& log, const PartitionImage& disk, uint32_t block);

/// What becomes of the calls of a log: number @p index fails.
std::function<Fate(const Call&, size_t)> FailingCall(size_t index);
/// Number @p index, if it is a read, delivers a byte less than asked for.
std::function<Fate(const Call&, size_t)> ShortCall(size_t index);

/// A test with a partition whose frames are placed by hand.
class PlaybackFixture : public SearchFixture {
protected:
    PartitionImage& MakeExtendedDisk();

    /// Writes a frame head, and nothing after it.
    void PutHead(uint32_t block, uint32_t pos, const FrameHead_t& head);
    /// Writes frames with their payloads one after the other.
    /// @return the position after them
    uint32_t PutFrames(uint32_t block, uint32_t pos, const std::vector<FrameHead_t>& frames);
    /// Writes an event frame of 100 bytes.
    void PutEvent(uint32_t block, uint32_t pos, const FrameHead_t& head, uint64_t type, uint8_t indexed);

    /// Writes a closed block of two channels from second @p base to base + 10, and its index:
    ///
    ///     pos       0    100  200  300  400  500  600  700  800  900  1000
    ///     frame     P0   I0   I1   P0   P1   I0   P0   I1   I0   P0   end mark
    ///     second    0    0    1    2    3    4    6    7    8    10
    ///
    /// Channel 0 has a segment from second 0 to 10, channel 1 one from second 1 to 7 at position 200.
    void WriteRecording(uint32_t block, uint32_t base = 1000);
};

/// A block open for playback, and the payload buffer of its player.
class BlockReader {
public:
    explicit BlockReader(const PartitionImage& disk, uint32_t block = 0, int rebuild = 0);
    ~BlockReader();
    BlockReader(const BlockReader&) = delete;
    BlockReader& operator=(const BlockReader&) = delete;

    CReadBlock* operator->() { return &m_block; }

    /// Reads: the frame as text, its payload checked; or the result, if that is not 0.
    std::string Read() { return Take(&CReadBlock::ReadFrame); }
    std::string ReadUnit() { return Take(&CReadBlock::ReadBlockFrame); }
    std::string Next() { return Take(&CReadBlock::ReadNextIFrame); }
    std::string Prev() { return Take(&CReadBlock::ReadPrevIFrame); }
    std::string IFrameAt(uint32_t offs);
    /// Reads until a result is not 0, which comes last.
    Lines ReadAll();

    /// Seeks without showing what is printed.
    int SeekTime(int allChn, RecordItem_t record, long time);
    int SeekOffs(int allChn, RecordItem_t record, uint32_t pos = 0, int keyFrames = 0);

    /// Whether the window is this one, as the checks of heads and offsets show.
    ::testing::AssertionResult HasWindow(uint32_t start, uint32_t end, uint32_t offs);
    ::testing::AssertionResult IsWideOpen() { return HasWindow(0, 0xFFFFFFFF, 0); }
    /// The result of CheckFrameHead() for a P-frame of the channel wanted, at this second.
    int KindAt(uint32_t second);

    /// The segments held, "channel/segment " before each.
    Lines Segments();
    /// A channel's I-frames in its first segment, as time seeks find them: "1000000000 at 100".
    Lines IFrames(uint32_t chn);

    /// The player's buffer.
    void*& Payload() { return m_payload; }

private:
    using ReadOperation = int (CReadBlock::*)(FrameHead_t*, void**);
    std::string Take(ReadOperation read);
    std::string Taken(int result, const FrameHead_t& head);

    CReadBlock m_block;
    uint32_t m_headAreaSize;
    void* m_payload = nullptr;
};

} // namespace test_support

#endif // TESTS_PLAYBACK_PLAYBACK_FIXTURE_H
