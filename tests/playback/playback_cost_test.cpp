// What playback costs, in system calls. A frame takes a seek and two reads, the second straight into the caller's
// buffer; all else is paid when a reader opens its block.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "disk_access.h"
#include "host/system_calls.h"
#include "sample_recorder/recorder.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;
using sample_recorder::Frame;
using sample_recorder::kVideoI;
using sample_recorder::kVideoP;

using Lines = std::vector<std::string>;

constexpr uint32_t kBlockSize = 0x10000;
constexpr uint32_t kFrames = 840;   // where a block's frames begin
constexpr uint32_t kIndex = 0xF000; // its index area: one page, the last
constexpr uint32_t kTail = 0xFFEC;  // its tail: the last 20 bytes
constexpr uint32_t kStart = 1700000000;

constexpr int kOneChannel = 0;
constexpr int kAllChannels = 1;

/// Two closed blocks of two channels, with frames of known lengths. In block 0 the heads lie at
///
///     0     channel 0, I, 100 bytes, second 0        640   channel 1, I, 210 bytes, second 2
///     124   channel 1, I, 200 bytes, second 0        874   channel 0, P, 70 bytes, second 3
///     348   channel 0, P, 50 bytes, second 1         968   channel 1, P, 80 bytes, second 3
///     422   channel 1, P, 60 bytes, second 1         1072  channel 0, I, 120 bytes, second 4
///     506   channel 0, I, 110 bytes, second 2        1216  the mark at the end
///
/// and in block 1, which continues it,
///
///     0     channel 0, P, 30 bytes, second 5         54    channel 0, I, 90 bytes, second 6
class PlaybackCost : public ::testing::Test {
protected:
    PlaybackCost() : m_image(MakeImage()) {
        sample_recorder::RecorderSettings settings;
        settings.channels = 3;
        sample_recorder::Recorder recorder(m_image, settings);
        recorder.Write(MakeFrame(0, kVideoI, 100, 0));
        recorder.Write(MakeFrame(1, kVideoI, 200, 0));
        recorder.Write(MakeFrame(0, kVideoP, 50, 1));
        recorder.Write(MakeFrame(1, kVideoP, 60, 1));
        recorder.Write(MakeFrame(0, kVideoI, 110, 2));
        recorder.Write(MakeFrame(1, kVideoI, 210, 2));
        recorder.Write(MakeFrame(0, kVideoP, 70, 3));
        recorder.Write(MakeFrame(1, kVideoP, 80, 3));
        recorder.Write(MakeFrame(0, kVideoI, 120, 4));
        recorder.PowerOff();
        recorder.Write(MakeFrame(0, kVideoP, 30, 5));
        recorder.Write(MakeFrame(0, kVideoI, 90, 6));
        recorder.PowerOff();
        PartAccess_t access = m_image.Access();
        EXPECT_EQ(m_disk.Init(&access), 0);
    }

    ~PlaybackCost() override {
        std::free(m_payload);
        Quietly([this] {
            m_disk.StopRead(m_reader);
            m_disk.Quit();
        });
    }

    /// Block 0 as a whole.
    static RecordItem_t WholeBlock() {
        RecordItem_t record = {};
        record.flag = 1;
        return record;
    }

    /// The segment of channel 0 in block 0, from a second on.
    static RecordItem_t Segment(uint32_t second = 0) {
        RecordItem_t record = {};
        record.startTime = kStart + second;
        record.endTime = kStart + 4;
        return record;
    }

    void Start(int chnType, RecordItem_t record) {
        Quietly([&] { m_reader = m_disk.StartRead(chnType, &record); });
    }

    void StartUnit() {
        Quietly([&] { m_reader = m_disk.StartUnitRead(0); });
    }

    /// Reads by one of CReadDisk's functions.
    template <typename Read>
    int Next(Read read) {
        int result = 0;
        Quietly([&] { result = (m_disk.*read)(m_reader, &m_info, &m_payload); });
        return result;
    }
    int NextFrame() { return Next(&CReadDisk::ReadFrame); }

    int SeekTime(uint32_t second) {
        long time = static_cast<long>(kStart) + static_cast<long>(second);
        int result = -1;
        Quietly([&] { result = m_disk.SeekTime(m_reader, &time); });
        return result;
    }

    uint32_t Length() const { return m_info.len; }
    CReadDisk& Disk() { return m_disk; }
    void* Reader() const { return m_reader; }
    void* TakeReader() { return std::exchange(m_reader, nullptr); }

    /// Calls as lines, with offsets in the block that they fall into.
    static Lines Describe(const SystemCallLog& log) {
        Lines lines;
        for (const Call& call : log.Calls()) {
            lines.push_back(Describe(call));
        }
        return lines;
    }

    /// What opening a block takes: its two ends, the head of its index, and each of its tables.
    static Lines Opening(uint32_t block, const std::vector<uint32_t>& tableSizes) {
        Lines lines = {"open", SeekTo(block, 0)};
        AddPart(lines, block, 0, 840);
        AddPart(lines, block, kTail, 20);
        AddPart(lines, block, kIndex, 260);
        uint32_t offset = kIndex + 260;
        for (const uint32_t size : tableSizes) {
            AddPart(lines, block, offset, size);
            offset += size;
        }
        return lines;
    }
    /// Block 0: I-frames of both channels, three and two, and a segment of each.
    static Lines OpeningBlock0() { return Opening(0, {3 * 16, 2 * 16, 20, 20}); }
    /// Block 1: one I-frame and one segment of channel 0.
    static Lines OpeningBlock1() { return Opening(1, {16, 20}); }
    static Lines Closing() { return {"fsync", "close"}; }

    /// What a frame takes, its head at @p pos.
    static Lines FrameAt(uint32_t block, uint32_t pos, uint32_t length) {
        Lines lines = HeadAt(block, pos);
        lines.push_back(ReadOf(block, kFrames + pos + 24, length));
        return lines;
    }
    /// What a frame takes that is stepped over.
    static Lines HeadAt(uint32_t block, uint32_t pos) {
        Lines lines;
        AddPart(lines, block, kFrames + pos, 24);
        return lines;
    }
    /// What a seek takes that walks from @p first over frames, with the next ones at @p next.
    static Lines Walk(uint32_t block, uint32_t first, const std::vector<uint32_t>& next) {
        Lines lines = {SeekTo(block, kFrames + first)};
        uint32_t pos = first;
        for (const uint32_t behind : next) {
            lines.push_back(ReadOf(block, kFrames + pos, 24));
            lines.push_back(SeekTo(block, kFrames + behind));
            pos = behind;
        }
        return lines;
    }

    static Lines Joined(const std::vector<Lines>& parts) {
        Lines lines;
        for (const Lines& part : parts) {
            lines.insert(lines.end(), part.begin(), part.end());
        }
        return lines;
    }

    static uint64_t BytesRead(const SystemCallLog& log) {
        uint64_t bytes = 0;
        for (const Call& call : log.Calls()) {
            bytes += call.kind == CallKind::Read ? call.length : 0;
        }
        return bytes;
    }

private:
    sample_recorder::PartitionImage MakeImage() const {
        sample_recorder::Format format;
        format.blockCount = 4;
        format.blockSize = kBlockSize;
        return sample_recorder::PartitionImage::Create(m_dir.File("disk"), format);
    }

    static Frame MakeFrame(uint32_t channel, uint32_t type, size_t length, uint32_t second) {
        Frame frame;
        frame.pts = (int64_t{kStart} + second) * 1000000;
        frame.type = type;
        frame.channel = channel;
        frame.payload.assign(length, static_cast<uint8_t>(length));
        return frame;
    }

    static std::string Place(uint32_t block, uint32_t offset) {
        return std::to_string(block) + "/" + std::to_string(offset);
    }
    static std::string SeekTo(uint32_t block, uint32_t offset) { return "seek " + Place(block, offset); }
    static std::string ReadOf(uint32_t block, uint32_t offset, uint64_t length) {
        return "read " + std::to_string(length) + " at " + Place(block, offset);
    }
    static void AddPart(Lines& lines, uint32_t block, uint32_t offset, uint64_t length) {
        lines.push_back(SeekTo(block, offset));
        lines.push_back(ReadOf(block, offset, length));
    }

    static std::string Describe(const Call& call) {
        const int64_t inRing = call.offset - 0x800000;
        const auto block = static_cast<uint32_t>(inRing / kBlockSize);
        const auto offset = static_cast<uint32_t>(inRing % kBlockSize);
        switch (call.kind) {
        case CallKind::Open:
            return "open";
        case CallKind::Close:
            return "close";
        case CallKind::Sync:
            return "fsync";
        case CallKind::Control:
            return "ioctl";
        case CallKind::Seek:
            return inRing < 0 ? "seek @" + std::to_string(call.offset) : SeekTo(block, offset);
        case CallKind::Read:
            break;
        }
        return inRing < 0 ? "read " + std::to_string(call.length) + " at @" + std::to_string(call.offset)
                          : ReadOf(block, offset, call.length);
    }

    TempDir m_dir;
    sample_recorder::PartitionImage m_image;
    CReadDisk m_disk;
    void* m_reader = nullptr;
    FrameInfo_t m_info = {};
    void* m_payload = nullptr;
};

TEST_F(PlaybackCost, FrameTakesASeekAndTwoReads) {
    Start(kAllChannels, WholeBlock());
    const SystemCallLog log;
    EXPECT_EQ(NextFrame(), 0);
    EXPECT_EQ(Describe(log), FrameAt(0, 0, 100));
}

TEST_F(PlaybackCost, FrameOfAnotherChannelTakesItsHeadAlone) {
    Start(kOneChannel, Segment());
    EXPECT_EQ(NextFrame(), 0);
    const SystemCallLog log;
    EXPECT_EQ(NextFrame(), 0);
    EXPECT_EQ(Length(), 50u);
    EXPECT_EQ(Describe(log), Joined({HeadAt(0, 124), FrameAt(0, 348, 50)}));
}

TEST_F(PlaybackCost, WholeBlockTakesThreeCallsAFrameAndReadsEachByteOnce) {
    Start(kAllChannels, WholeBlock());
    const SystemCallLog log;
    uint64_t payload = 0;
    while (NextFrame() == 0) {
        payload += Length();
    }
    EXPECT_EQ(payload, 1000u);
    // Nine frames, and the mark after them.
    EXPECT_EQ(log.Count(CallKind::Seek), 9u + 1);
    EXPECT_EQ(log.Count(CallKind::Read), 2u * 9 + 1);
    EXPECT_EQ(log.Calls().size(), 3u * 9 + 2);
    EXPECT_EQ(BytesRead(log), 9u * 24 + 1000 + 24);
}

TEST_F(PlaybackCost, UnitReadTakesThreeCallsAFrame) {
    StartUnit();
    const SystemCallLog log;
    uint64_t frames = 0;
    uint64_t payload = 0;
    while (Next(&CReadDisk::ReadUnitFrame) == 0) {
        ++frames;
        payload += Length();
    }
    EXPECT_EQ(frames, 9u);
    EXPECT_EQ(log.Calls().size(), 3u * 9 + 2);
    EXPECT_EQ(BytesRead(log), frames * 24 + payload + 24);
}

TEST_F(PlaybackCost, FirstStepAlsoReadsTheFrameWhereTheReaderStands) {
    Start(kOneChannel, Segment());
    const SystemCallLog log;
    EXPECT_EQ(Next(&CReadDisk::ReadNextIFrame), 0);
    EXPECT_EQ(Length(), 110u);
    EXPECT_EQ(Describe(log), Joined({FrameAt(0, 0, 100), FrameAt(0, 506, 110)}));
}

TEST_F(PlaybackCost, FurtherStepsTakeOneFrame) {
    Start(kOneChannel, Segment());
    EXPECT_EQ(Next(&CReadDisk::ReadNextIFrame), 0);
    SystemCallLog log;
    EXPECT_EQ(Next(&CReadDisk::ReadNextIFrame), 0);
    EXPECT_EQ(Describe(log), FrameAt(0, 1072, 120));
    log.Clear();
    EXPECT_EQ(Next(&CReadDisk::ReadNextIFrame), 1);
    EXPECT_EQ(Describe(log), Lines());

    EXPECT_EQ(SeekTime(0), 0);
    EXPECT_EQ(Next(&CReadDisk::ReadPrevIFrame), 0);
    log.Clear();
    EXPECT_EQ(Next(&CReadDisk::ReadPrevIFrame), 0);
    EXPECT_EQ(Describe(log), FrameAt(0, 0, 100));
    log.Clear();
    EXPECT_EQ(Next(&CReadDisk::ReadPrevIFrame), 1);
    EXPECT_EQ(Describe(log), Lines());
}

TEST_F(PlaybackCost, TimeSeekTakesNoCall) {
    Start(kOneChannel, Segment());
    const SystemCallLog log;
    for (const uint32_t second : {0u, 1u, 4u, 1000u}) {
        EXPECT_EQ(SeekTime(second), 0);
    }
    EXPECT_EQ(Describe(log), Lines());
}

TEST_F(PlaybackCost, PositionSeekTakesAReadAndASeekForEachFrameUpToItsTarget) {
    Start(kOneChannel, Segment());
    const SystemCallLog log;
    // 100 and 50 bytes of channel 0 are 150, not more; the I-frame after them is the fifth frame.
    unsigned int pos = 150;
    Quietly([&] { EXPECT_EQ(Disk().SeekPos(Reader(), &pos), 0); });
    EXPECT_EQ(Describe(log), Walk(0, 0, {124, 348, 422, 506, 640}));
}

TEST_F(PlaybackCost, ReaderOfAWholeBlockOpensItOnce) {
    const SystemCallLog log;
    Start(kAllChannels, WholeBlock());
    EXPECT_EQ(Describe(log), Joined({OpeningBlock0(), Walk(0, 0, {124})}));
}

TEST_F(PlaybackCost, ReaderOfARecordSegmentOpensItsBlockTwice) {
    const SystemCallLog log;
    Start(kOneChannel, Segment());
    EXPECT_EQ(Describe(log), Joined({OpeningBlock0(), OpeningBlock0(), Closing(), Walk(0, 0, {124})}));
}

TEST_F(PlaybackCost, ReaderThatStartsInsideASegmentWalksOverNothing) {
    const SystemCallLog log;
    Start(kOneChannel, Segment(2));
    EXPECT_EQ(Describe(log), Joined({OpeningBlock0(), OpeningBlock0(), Closing()}));
}

TEST_F(PlaybackCost, StopClosesTheWindow) {
    Start(kOneChannel, Segment());
    const SystemCallLog log;
    Quietly([this] { Disk().StopRead(TakeReader()); });
    EXPECT_EQ(Describe(log), Closing());
}

TEST_F(PlaybackCost, GoingOnInTheNextBlockOpensItTwice) {
    Start(kOneChannel, Segment());
    for (const uint32_t length : {100u, 50u, 110u, 70u, 120u}) {
        EXPECT_EQ(NextFrame(), 0);
        EXPECT_EQ(Length(), length);
    }
    const SystemCallLog log;
    EXPECT_EQ(NextFrame(), 0);
    EXPECT_EQ(Length(), 30u);
    // The mark after the frames; the bad-block bits, one byte at 0x1000, after a seek to the device's end; a
    // look at block 1; then the window moves there.
    const Lines badBlocks = {"open", "seek @0", "seek @4096", "read 1 at @4096", "close"};
    EXPECT_EQ(Describe(log), Joined({HeadAt(0, 1216), badBlocks, OpeningBlock1(), Closing(), Closing(),
                                     OpeningBlock1(), Walk(1, 0, {54}), FrameAt(1, 0, 30)}));
}

} // namespace
