#include "playback/playback_fixture.h"

namespace {

using namespace test_support;

class BlockSeek : public PlaybackFixture {
protected:
    static std::string SeekTimeSays(BlockReader& reader, int allChn, RecordItem_t record, long time,
                                    int result = 0) {
        return PrintedWithoutLines(
            [&] { EXPECT_EQ(reader->SeekTime(allChn, &record, time), result) << time; });
    }

    static std::string SeekOffsSays(BlockReader& reader, int allChn, RecordItem_t record, uint32_t pos,
                                    int keyFrames, int result = 0) {
        return PrintedWithoutLines(
            [&] { EXPECT_EQ(reader->SeekOffs(allChn, &record, pos, keyFrames), result) << pos; });
    }

    /// The frame that a position seek of the whole block leads to.
    static std::string FrameAt(BlockReader& reader, int allChn, uint32_t chn, uint32_t pos, int keyFrames) {
        EXPECT_EQ(reader.SeekOffs(allChn, WholeBlock(chn), pos, keyFrames), 0);
        return reader.Read();
    }
};

/// A reader that has been moved, with a window that a failed seek must open.
class MovedReader : public BlockReader {
public:
    explicit MovedReader(const PartitionImage& disk) : BlockReader(disk) {
        EXPECT_EQ(SeekTime(0, Record(0, 0), 1004), 0);
        EXPECT_TRUE(HasWindow(1000, 1010, 0));
    }
    /// Whether the read position is where it was.
    bool Stays() { return Read() == "I0 1004"; }
};

TEST_F(BlockSeek, TimeSeekGoesToTheFirstIFrameAtOrAfterTheTime) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    const RecordItem_t record = Record(0, 0);
    const SystemCallLog log;
    EXPECT_EQ(SeekTimeSays(reader, 0, record, 990),
              "SeekTime : Offset 100 (seek:990)(1000, 1010, 0)(1000000000, 100)\n");
    EXPECT_EQ(SeekTimeSays(reader, 0, record, 1000),
              "SeekTime : Offset 100 (seek:1000)(1000, 1010, 0)(1000000000, 100)\n");
    EXPECT_EQ(SeekTimeSays(reader, 0, record, 1001),
              "SeekTime : Offset 500 (seek:1001)(1000, 1010, 0)(1004000000, 500)\n");
    EXPECT_EQ(SeekTimeSays(reader, 0, record, 1004),
              "SeekTime : Offset 500 (seek:1004)(1000, 1010, 0)(1004000000, 500)\n");
    EXPECT_EQ(SeekTimeSays(reader, 0, record, 1008),
              "SeekTime : Offset 800 (seek:1008)(1000, 1010, 0)(1008000000, 800)\n");
    // After all of them, the last one is taken.
    EXPECT_EQ(SeekTimeSays(reader, 0, record, 1009),
              "SeekTime : Offset 800 (seek:1009)(1000, 1010, 0)(1008000000, 800)\n");
    EXPECT_EQ(SeekTimeSays(reader, 0, record, 0x7FFFFFFF),
              "SeekTime : Offset 800 (seek:2147483647)(1000, 1010, 0)(1008000000, 800)\n");
    EXPECT_EQ(SeekTimeSays(reader, 0, record, -1),
              "SeekTime : Offset 100 (seek:-1)(1000, 1010, 0)(1000000000, 100)\n");
    EXPECT_EQ(log.Calls().size(), 0u);
    EXPECT_EQ(reader.ReadAll(),
              (Lines{"I0 1000", "P0 1002", "I0 1004", "P0 1006", "I0 1008", "P0 1010", "2"}));
}

TEST_F(BlockSeek, TimeOfAnIFrameIsCountedInWholeSeconds) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .IFrame(0, Pts(1003) + 999999, 100)
                             .IFrame(0, Pts(1004), 200)
                             .Segment(0, 1000, 1010, 996));
    BlockReader reader(Disk());
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), 1003),
              "SeekTime : Offset 100 (seek:1003)(1000, 1010, 0)(1003999999, 100)\n");
}

TEST_F(BlockSeek, LongIsASigned32BitNumberOfSeconds) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    // Where a long has 64 bits, the upper ones do not count: 0x3EC is 1004.
    const auto beyond = static_cast<long>(0x1000003ECLL);
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), beyond),
              "SeekTime : Offset 500 (seek:1004)(1000, 1010, 0)(1004000000, 500)\n");
    const auto after2038 = static_cast<long>(0x80000000LL);
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), after2038),
              "SeekTime : Offset 100 (seek:-2147483648)(1000, 1010, 0)(1000000000, 100)\n");
}

TEST_F(BlockSeek, SegmentIsComparedUnsignedAndTheSeekTimeSigned) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(1, 0x7FFFFFF0, 0x80000010)
                             .IFrame(0, Pts(0x7FFFFFF8), 100)
                             .IFrame(0, Pts(0x80000000), 200)
                             .Segment(0, 0x7FFFFFF0, 0x80000010, 996));
    BlockReader reader(Disk());
    const std::string segment = "(2147483632, -2147483632, 0)";
    const std::string first = segment + "(2147483640000000, 100)\n";
    const std::string second = segment + "(2147483648000000, 200)\n";
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), 0), "SeekTime : Offset 100 (seek:0)" + first);
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), 0x7FFFFFF8),
              "SeekTime : Offset 100 (seek:2147483640)" + first);
    // 0x80000000 is before every positive time; it is the last in the segment, though.
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), 0x7FFFFFFC),
              "SeekTime : Offset 200 (seek:2147483644)" + second);
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), static_cast<long>(0x80000000LL)),
              "SeekTime : Offset 100 (seek:-2147483648)" + first);
    EXPECT_TRUE(reader.HasWindow(0x7FFFFFF0, 0x80000010, 0));
}

TEST_F(BlockSeek, IFramesBefore1970AreLateOnes) {
    MakeDisk();
    // -10 s and 0xFFFFFFF6 are the same second of the recorder's clock.
    Disk().WriteBlock(0, BlockContents::Closed(1, 1, 2)
                             .IFrame(0, Pts(-10), 100)
                             .IFrame(0, Pts(-7), 200)
                             .Segment(0, 0xFFFFFFF0, 0xFFFFFFFA, 996));
    BlockReader reader(Disk());
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), -8),
              "SeekTime : Offset 200 (seek:-8)(-16, -6, 0)(-7000000, 200)\n");
    EXPECT_TRUE(reader.HasWindow(0xFFFFFFF0, 0xFFFFFFFA, 0));
}

TEST_F(BlockSeek, OnlyIFramesOfTheSegmentCount) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(1, 900, 2000)
                             .IFrame(0, Pts(999), 100)
                             .IFrame(0, Pts(1000), 200)
                             .IFrame(0, Pts(1010), 300)
                             .IFrame(0, Pts(1011), 400)
                             .IFrame(0, Pts(1005), 500) // the clock was set back
                             .IFrame(0, Pts(1500), 600)
                             .Segment(0, 900, 950, 1)
                             .Segment(0, 1000, 1010, 2, 200)
                             .Segment(0, 1400, 1499, 3, 600)
                             .Segment(0, 1500, 1500, 3, 600));
    BlockReader reader(Disk());
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 1), 0),
              "SeekTime : Offset 200 (seek:0)(1000, 1010, 200)(1000000000, 200)\n");
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 1), 1010),
              "SeekTime : Offset 300 (seek:1010)(1000, 1010, 200)(1010000000, 300)\n");
    // None at or after the time: the last of the table in the segment, which need not be the latest.
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 1), 1011),
              "SeekTime : Offset 500 (seek:1011)(1000, 1010, 200)(1005000000, 500)\n");
    EXPECT_TRUE(reader.HasWindow(1000, 1010, 200));
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 3), 0),
              "SeekTime : Offset 600 (seek:0)(1500, 1500, 600)(1500000000, 600)\n");
    for (const uint32_t empty : {0u, 2u}) {
        EXPECT_EQ(reader.SeekTime(0, Record(0, 3), 0), 0);
        EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, empty), 920, -1), ""); // no I-frame in it, no message
        EXPECT_TRUE(reader.IsWideOpen());
    }
}

TEST_F(BlockSeek, TimeSeekCutsTheWindowToTheRecord) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    const auto window = [&](uint32_t start, uint32_t end, uint32_t expectedStart, uint32_t expectedEnd) {
        EXPECT_EQ(reader.SeekTime(0, Record(0, 0, start, end), 0), 0);
        EXPECT_TRUE(reader.HasWindow(expectedStart, expectedEnd, 0)) << start << '-' << end;
    };
    window(1002, 1008, 1002, 1008);
    window(1001, 1009, 1001, 1009);
    // Ends that are the segment's own, or not inside it, leave it as it is.
    window(1000, 1010, 1000, 1010);
    window(1010, 1000, 1000, 1010);
    window(0, 0, 1000, 1010);
    window(999, 1011, 1000, 1010);
    window(0xFFFFFFFF, 0xFFFFFFFF, 1000, 1010);
    window(1002, 5000, 1002, 1010);
    window(0, 1003, 1000, 1003);
}

TEST_F(BlockSeek, IFramesAreSoughtInTheWholeSegment) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    // The record begins at 1002; the I-frame at 1000 is found all the same, and read: 1002 is not 5 s away.
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0, 1002, 1003), 1000),
              "SeekTime : Offset 100 (seek:1000)(1000, 1010, 0)(1000000000, 100)\n");
    EXPECT_EQ(reader.ReadAll(), (Lines{"I0 1000", "P0 1002", "1"})); // the next is of 1004
}

TEST_F(BlockSeek, TimeSeekOfAllChannelsTakesTheFirstThatHasTheSegment) {
    MakeDisk();
    WriteRecording(0);
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .IFrame(0, Pts(1000), 100)
                             .IFrame(1, Pts(1001), 200)
                             .IFrame(1, Pts(1007), 700)
                             .IFrame(2, Pts(1003), 400)
                             .Segment(0, 1000, 1010, 996)
                             .Segment(1, 1000, 1003, 500)
                             .Segment(1, 1004, 1007, 500, 500)
                             .Segment(2, 1002, 1003, 500)
                             .Segment(2, 1003, 1003, 500));
    BlockReader reader(Disk());
    // The channel of the id does not matter.
    for (const uint32_t chn : {0u, 1u, 7u, 127u}) {
        EXPECT_EQ(SeekTimeSays(reader, 1, Record(chn, 0), 1004),
                  "SeekTime : Offset 100 (seek:1004)(1000, 1010, 0)(1000000000, 100)\n");
        EXPECT_EQ(SeekTimeSays(reader, -1, Record(chn, 1), 0),
                  "SeekTime : Offset 700 (seek:0)(1004, 1007, 500)(1007000000, 700)\n");
    }
    EXPECT_TRUE(reader.HasWindow(1004, 1007, 500));
    EXPECT_EQ(reader.ReadAll(), (Lines{"I1 1007", "1"})); // 1008 is another channel's, and delivered to all
    EXPECT_EQ(SeekTimeSays(reader, 1, Record(0, 2), 0, -1), "SeekTime, # : fail\n");
    EXPECT_TRUE(reader.IsWideOpen());
    EXPECT_EQ(reader.Read(), "I0 1008"); // from where it stood on
}

TEST_F(BlockSeek, FailedTimeSeekOpensTheWindowAndStays) {
    MakeDisk();
    WriteRecording(0);
    {
        MovedReader reader(Disk());
        EXPECT_EQ(SeekTimeSays(reader, 0, Record(5, 0), 1000, -1), "SeekTime, # : chn = 5 , fail\n");
        EXPECT_TRUE(reader.IsWideOpen());
        EXPECT_EQ(reader.Read(), "2"); // channel 5 is what was asked for
        reader.SeekTime(1, Record(0, 9), 0);
        EXPECT_TRUE(reader.Stays());
    }
    for (const uint32_t chn : {32u, 100u, 127u}) {
        MovedReader reader(Disk());
        EXPECT_EQ(SeekTimeSays(reader, 0, Record(chn, 0), 1000, -1),
                  "SeekTime, # : chn = " + std::to_string(chn) + " , fail\n");
        EXPECT_TRUE(reader.IsWideOpen());
    }
    for (const uint32_t segment : {1u, 511u}) {
        MovedReader reader(Disk());
        EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, segment), 1000, -1), "SeekTime, # : chn = 0 , fail\n");
        EXPECT_TRUE(reader.IsWideOpen());
        EXPECT_TRUE(reader.Stays());
    }
    MovedReader reader(Disk());
    EXPECT_EQ(SeekTimeSays(reader, 1, Record(0, 1), 1000, -1), "SeekTime, # : fail\n");
    EXPECT_TRUE(reader.IsWideOpen());
    EXPECT_TRUE(reader.Stays());
}

TEST_F(BlockSeek, WindowThatAFailedSeekOpensBeginsAtZero) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 9), 1000), -1);
    EXPECT_EQ(reader.KindAt(0xFFFFFFFB), 0); // 5 seconds more are 0 in 32 bits, which is not before 0
}

TEST_F(BlockSeek, ChannelWithoutIFramesCannotBeSoughtByTime) {
    MakeDisk();
    WriteRecording(0);
    auto contents =
        BlockContents::Closed(1, 1000, 1010).Segment(0, 1000, 1010, 996).IFrame(1, Pts(1001), 200);
    Disk().WriteBlock(0, contents);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1004, 300)), 0);
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), 1000, -1), "");
    EXPECT_TRUE(reader.IsWideOpen());
    EXPECT_EQ(SeekTimeSays(reader, 1, Record(0, 0), 1000, -1), ""); // other channels' I-frames are no help
    EXPECT_TRUE(reader.IsWideOpen());
    EXPECT_EQ(reader.Read(), "P0 1002");
}

TEST_F(BlockSeek, TimeSeekToAForgedOffsetFailsOnReading) {
    MakeDisk();
    Disk().WriteBlock(
        0,
        BlockContents::Closed(1, 1000, 1010).IFrame(0, Pts(1000), 0xFFFFFFFF).Segment(0, 1000, 1010, 996, 7));
    BlockReader reader(Disk());
    EXPECT_EQ(SeekTimeSays(reader, 0, Record(0, 0), 1000),
              "SeekTime : Offset -1 (seek:1000)(1000, 1010, 7)(1000000000, -1)\n");
    EXPECT_EQ(reader.Read(), "-1");
    EXPECT_EQ(reader.Next(), "-1");
    EXPECT_EQ(reader.ReadUnit(), "-1");
}

TEST_F(BlockSeek, PositionsOfAnIndexDoNotWrapIntoTheBlocksHead) {
    MakeDisk();
    // In 32 bits, 840 + 0xFFFFFCCC is 20: there, in the vehicle's number, lies what passes for a frame, and
    // from byte 100 on one that leads to the frame area.
    constexpr uint32_t kInHead = 0xFFFFFCCC;
    constexpr uint32_t kInProperties = 0xFFFFFD1C;
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .IFrame(0, Pts(1000), kInHead)
                             .IFrame(0, Pts(1001), 100)
                             .Segment(0, 1000, 1010, 996, kInProperties)
                             .Segment(0, 1000, 1010, 996, kInHead)
                             .Segment(0, 1000, 1010, 996, 0xFFFFFFFF));
    PutFrames(0, 0, {PFrame(0, 1000), KeyFrame(0, 1001)});
    PutHead(0, kInHead, KeyFrame(0, 1000, 24));
    PutHead(0, kInProperties, KeyFrame(0, 1000, 840 - 100 - 24));
    BlockReader reader(Disk());
    for (const uint32_t segment : {0u, 1u, 2u}) {
        for (const int allChn : {0, 1}) {
            if (segment == 2 && allChn == 1) {
                continue; // a window of no segment: one that begins nowhere is none
            }
            EXPECT_EQ(SeekOffsSays(reader, allChn, Record(0, segment), 0, 0, -1), "SeekOffs, # : fail\n");
            EXPECT_TRUE(reader.IsWideOpen());
        }
    }
    EXPECT_EQ(SeekOffsSays(reader, 0, OwnWindow(0, 1000, 1010, kInProperties), 0, 0, -1),
              "SeekOffs, # : fail\n");
    for (const int allChn : {0, 1}) {
        EXPECT_EQ(SeekTimeSays(reader, allChn, Record(0, 1), 1000),
                  "SeekTime : Offset -820 (seek:1000)(1000, 1010, -820)(1000000000, -820)\n");
        EXPECT_EQ(reader.ReadUnit(), "-1");
        EXPECT_EQ(reader.Read(), "-1");
        EXPECT_EQ(reader.Next(), "-1");
    }
    EXPECT_EQ(reader.IFrameAt(kInHead), "-1");
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.ReadUnit(), "P0 1000");
}

TEST_F(BlockSeek, WithoutARecordNothingIsSought) {
    MakeDisk();
    WriteRecording(0);
    MovedReader reader(Disk());
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(reader->SeekTime(0, nullptr, 1000), -1);
                  EXPECT_EQ(reader->SeekOffs(0, nullptr, 0, 0), -1);
              }),
              "");
    EXPECT_TRUE(reader.HasWindow(1000, 1010, 0));
    EXPECT_TRUE(reader.Stays());
}

TEST_F(BlockSeek, PositionCountsPayloadBytesOfTheChannel) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    // Of channel 0: P 1000, I 1000, P 1002, I 1004, P 1006, I 1008, P 1010, each of 76 bytes.
    EXPECT_EQ(FrameAt(reader, 0, 0, 0, 0), "P0 1000");
    EXPECT_EQ(FrameAt(reader, 0, 0, 75, 0), "P0 1000");
    EXPECT_EQ(FrameAt(reader, 0, 0, 76, 0), "I0 1000");
    EXPECT_EQ(FrameAt(reader, 0, 0, 151, 0), "I0 1000");
    EXPECT_EQ(FrameAt(reader, 0, 0, 152, 0), "P0 1002");
    EXPECT_EQ(FrameAt(reader, 0, 0, 7 * 76 - 1, 0), "P0 1010");
    EXPECT_EQ(FrameAt(reader, 0, 1, 0, 0), "I1 1001");
    EXPECT_EQ(FrameAt(reader, 0, 1, 76, 0), "P1 1003");
    // Of all channels.
    EXPECT_EQ(FrameAt(reader, 1, 0, 2 * 76, 0), "I1 1001");
    EXPECT_EQ(FrameAt(reader, 2, 9, 9 * 76, 0), "P0 1010");
    EXPECT_EQ(SeekOffsSays(reader, 0, WholeBlock(), 0, 0), ""); // success is silent
}

TEST_F(BlockSeek, KeyFramesAloneAreSoughtFromThePositionOn) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(FrameAt(reader, 0, 0, 0, 1), "I0 1000"); // the P-frame before it is none
    EXPECT_EQ(FrameAt(reader, 0, 0, 151, 1), "I0 1000");
    EXPECT_EQ(FrameAt(reader, 0, 0, 152, 1), "I0 1004");
    EXPECT_EQ(FrameAt(reader, 0, 0, 4 * 76, 1), "I0 1008");
    EXPECT_EQ(FrameAt(reader, 1, 0, 2 * 76, 1), "I1 1001");
    EXPECT_EQ(FrameAt(reader, 1, 0, 3 * 76, 1), "I0 1004");
    EXPECT_EQ(SeekOffsSays(reader, 0, WholeBlock(), 6 * 76, 1, -1), "SeekOffs, # : fail\n");
    for (const int keyFrames : {2, -1}) {
        EXPECT_EQ(SeekOffsSays(reader, 0, WholeBlock(), 0, keyFrames, -1), "SeekOffs, # : fail\n");
        EXPECT_EQ(SeekOffsSays(reader, 1, WholeBlock(), 0, keyFrames, -1), "SeekOffs, # : fail\n");
    }
}

TEST_F(BlockSeek, FramesWithoutPayloadAreNoTargets) {
    MakeDisk();
    PutHead(
        0, PutFrames(0, 0, {KeyFrame(0, 1000, 0), PFrame(0, 1001, 0), PFrame(0, 1002, 1), KeyFrame(0, 1003)}),
        EndMark());
    BlockReader reader(Disk());
    EXPECT_EQ(FrameAt(reader, 0, 0, 0, 0), "P0 1002");
    EXPECT_EQ(FrameAt(reader, 0, 0, 0, 1), "I0 1003");
    EXPECT_EQ(FrameAt(reader, 0, 0, 1, 0), "I0 1003");
}

TEST_F(BlockSeek, WindowOfASegmentIsCutAtItsEndAlone) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    const auto window = [&](uint32_t start, uint32_t end, uint32_t expectedEnd) {
        EXPECT_EQ(reader.SeekOffs(0, Record(1, 0, start, end)), 0);
        EXPECT_TRUE(reader.HasWindow(1001, expectedEnd, 200)) << start << '-' << end;
    };
    window(1003, 1005, 1005);
    window(1003, 1006, 1006);
    window(1003, 1007, 1007);
    window(1003, 1001, 1007);
    window(0, 0, 1007);
    window(0, 0xFFFFFFFF, 1007);
    window(1000, 1002, 1002);
}

TEST_F(BlockSeek, WindowOfTheRecordItself) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1002, 1006, 300)), 0);
    EXPECT_TRUE(reader.HasWindow(1002, 1006, 300));
    EXPECT_EQ(reader.ReadAll(), (Lines{"P0 1002", "I0 1004", "P0 1006", "1"}));
    EXPECT_EQ(reader.SeekOffs(1, OwnWindow(9, 1001, 1003, 200), 76), 0);
    EXPECT_TRUE(reader.HasWindow(1001, 1003, 200));
    EXPECT_EQ(reader.ReadAll(), (Lines{"P0 1002", "P1 1003", "1"}));
}

TEST_F(BlockSeek, EveryOtherFlagIsTheWholeBlock) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    for (const uint32_t flag : {1u, 3u, 0xFFFFFFFFu}) {
        RecordItem_t record = Record(1, 77, 1002, 1003);
        record.size = 500;
        record.flag = flag;
        EXPECT_EQ(reader.SeekOffs(0, record), 0);
        EXPECT_TRUE(reader.IsWideOpen());
        EXPECT_EQ(reader.Read(), "I1 1001");
        EXPECT_EQ(reader.SeekOffs(1, record), 0);
        EXPECT_TRUE(reader.IsWideOpen());
        EXPECT_EQ(reader.Read(), "P0 1000");
    }
}

TEST_F(BlockSeek, MediaOutsideTheWindowEndAPositionSeekWithoutAMessage) {
    MakeDisk();
    // Reads are patient for five seconds before the window, seeks are not.
    PutHead(0, PutFrames(0, 0, {PFrame(0, 1000), PFrame(1, 5000), PFrame(0, 999), PFrame(0, 1001)}),
            EndMark());
    BlockReader reader(Disk());
    EXPECT_EQ(SeekOffsSays(reader, 0, OwnWindow(0, 1000, 1010), 0, 0), "");
    EXPECT_EQ(SeekOffsSays(reader, 0, OwnWindow(0, 1000, 1010), 76, 0, -1), "");
    EXPECT_TRUE(reader.IsWideOpen());
    EXPECT_EQ(SeekOffsSays(reader, 1, OwnWindow(0, 1000, 1010), 76, 0, -1), ""); // 5000 counts here
    EXPECT_EQ(SeekOffsSays(reader, 0, OwnWindow(0, 999, 1010), 76, 0), "");
    EXPECT_EQ(reader.Read(), "P0 999");
    EXPECT_EQ(SeekOffsSays(reader, 0, OwnWindow(0, 999, 1000), 2 * 76, 0, -1), ""); // 1001 is past the end
    EXPECT_TRUE(reader.IsWideOpen());
    EXPECT_EQ(SeekOffsSays(reader, 0, OwnWindow(0, 999, 1001), 2 * 76, 0), "");
    EXPECT_EQ(reader.Read(), "P0 1001");
}

TEST_F(BlockSeek, OtherFramesCountWhateverTheirTime) {
    MakeDisk();
    PutEvent(0, 0, Frame(4, 0, 5000), 1, 1);
    PutFrames(0, 100, {Data(0, 0), PFrame(0, 1000), Audio(0, 1001)});
    PutHead(0, 400, EndMark());
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010), 76), 0);
    EXPECT_EQ(reader.Read(), "T3.0 0");
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010), 3 * 76), 0);
    EXPECT_EQ(reader.Read(), "A0 1001");
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010), 0, 1), -1); // none of them is an I-frame
}

TEST_F(BlockSeek, PositionSeekComparesTimesUnsigned) {
    MakeDisk();
    PutHead(0, PutFrames(0, 0, {PFrame(0, 0x7FFFFFFF), PFrame(0, 0x80000000), PFrame(0, -6), PFrame(0, 0)}),
            EndMark());
    BlockReader reader(Disk());
    const RecordItem_t late = OwnWindow(0, 0x7FFFFFFF, 0xFFFFFFFF);
    EXPECT_EQ(reader.SeekOffs(0, late, 76), 0);
    EXPECT_EQ(reader.Read(), "P0 2147483648");
    EXPECT_EQ(reader.SeekOffs(0, late, 2 * 76), 0);
    EXPECT_EQ(reader.Read(), "P0 -6");
    EXPECT_EQ(SeekOffsSays(reader, 0, late, 3 * 76, 0, -1), "");
    // In a window of all times, a seek can go to second 0, but it cannot be read.
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 0, 0xFFFFFFFF), 3 * 76), 0);
    EXPECT_EQ(reader.Read(), "1");
    EXPECT_EQ(reader.ReadUnit(), "P0 0");
}

TEST_F(BlockSeek, PositionSeekWithoutTheSegment) {
    MakeDisk();
    WriteRecording(0);
    for (const RecordItem_t& record :
         {Record(5, 0), Record(0, 1), Record(1, 511), Record(32, 0), Record(127, 511)}) {
        MovedReader reader(Disk());
        EXPECT_EQ(SeekOffsSays(reader, 0, record, 0, 0, -1), "SeekOffs, # : fail\n");
        EXPECT_TRUE(reader.IsWideOpen());
    }
    MovedReader reader(Disk());
    const SystemCallLog log;
    EXPECT_EQ(SeekOffsSays(reader, 1, Record(0, 1), 0, 0, -1), "SeekOffs, # : fail\n");
    EXPECT_EQ(log.Calls().size(), 0u);
    EXPECT_TRUE(reader.IsWideOpen());
    EXPECT_TRUE(reader.Stays());
}

TEST_F(BlockSeek, AllChannelsBeginWithTheSegmentThatLiesFirst) {
    MakeDisk();
    WriteRecording(0);
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .Segment(0, 1004, 1010, 500, 500)
                             .Segment(1, 1001, 1007, 500, 200)
                             .Segment(2, 0, 1009, 500, 0)      // without a start
                             .Segment(3, 1000, 1000, 500, 100) // without a length
                             .Segment(4, 1000, 1008, 500, 200) // no better than channel 1's
                             .Segment(5, 1002, 1009, 500, 300)
                             .Segment(5, 1004, 1009, 500, 500));
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(1, Record(9, 0)), 0);
    EXPECT_TRUE(reader.HasWindow(1001, 1007, 200));
    EXPECT_EQ(reader.Read(), "I1 1001");
    // The end is cut to the record's, the start is not.
    EXPECT_EQ(reader.SeekOffs(1, Record(9, 0, 1003, 1006)), 0);
    EXPECT_TRUE(reader.HasWindow(1001, 1006, 200));
    EXPECT_EQ(reader.SeekOffs(1, Record(9, 1)), 0);
    EXPECT_TRUE(reader.HasWindow(1004, 1009, 500));
    EXPECT_EQ(reader.Read(), "I0 1004");
}

TEST_F(BlockSeek, ALaterChannelThatLiesFirstBringsItsOwnCut) {
    MakeDisk();
    WriteRecording(0);
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .Segment(0, 1000, 1010, 500, 300)
                             .Segment(1, 1001, 1004, 500, 200));
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(1, Record(0, 0, 0, 1006)), 0);
    EXPECT_TRUE(reader.HasWindow(1001, 1004, 200)); // 1006 would have cut the first one's
}

TEST_F(BlockSeek, AllChannelsWithoutAUsableSegmentBeginBeforeTheFrames) {
    MakeDisk();
    WriteRecording(0);
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .IFrame(0, Pts(1004), 500)
                             .Segment(0, 1004, 1004, 500)
                             .Segment(1, 0, 1007, 500)
                             .Segment(2, 1000, 1007, 500, 0xFFFFFFFF)); // begins nowhere
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1004), 0);
    const SystemCallLog log;
    EXPECT_EQ(SeekOffsSays(reader, 1, Record(0, 0), 0, 0, -1), "SeekOffs, # : fail\n");
    EXPECT_EQ(CallsInBlock(log, Disk(), 0), (Lines{"seek 839", "read 24 at 839"}));
    EXPECT_TRUE(reader.IsWideOpen());
    EXPECT_EQ(reader.Read(), "I0 1004");
}

TEST_F(BlockSeek, WindowBeforeTheFramesKeepsItsTimes) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010).Segment(0, 1004, 1004, 500));
    // A frame that begins in the last byte of the head, by chance or forgery.
    const FrameHead_t head = PFrame(0, 1000, 100);
    PutHead(0, 0xFFFFFFFF, head);
    Disk().Put(Disk().BlockStart(0) + 839, head);
    Disk().Write(Disk().BlockStart(0) + 863, PayloadOf(head).data(), 100);
    BlockReader reader(Disk());
    // As opened, the window ends at second 0.
    EXPECT_EQ(SeekOffsSays(reader, 1, Record(0, 0), 0, 0, -1), "");
    EXPECT_TRUE(reader.IsWideOpen());
    // That failure opened it.
    EXPECT_EQ(SeekOffsSays(reader, 1, Record(0, 0), 0, 0), "");
    EXPECT_EQ(reader->GetOffset(0), -1);
    EXPECT_EQ(reader.Read(), "-1");
    EXPECT_EQ(reader.ReadUnit(), "-1"); // found by the seek, but not in the frame area
}

TEST_F(BlockSeek, OnlyAllChannelsWithoutAUsableSegmentBeginBeforeTheFrames) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010).Segment(0, 1000, 1010, 500, 0xFFFFFFFF));
    Disk().Put(Disk().BlockStart(0) + 839, PFrame(0, 1000, 100));
    BlockReader reader(Disk());
    EXPECT_EQ(SeekOffsSays(reader, 0, Record(0, 0), 0, 0, -1), "SeekOffs, # : fail\n");
    EXPECT_EQ(SeekOffsSays(reader, 1, OwnWindow(0, 0, 0xFFFFFFFF, 0xFFFFFFFF), 0, 0, -1),
              "SeekOffs, # : fail\n");
    EXPECT_EQ(SeekOffsSays(reader, 1, Record(0, 0), 0, 0), "");
}

TEST_F(BlockSeek, AllChannelsWithASegmentBeyondTheBlockReadNothing) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010).Segment(0, 1000, 1010, 500, 0xFFFFFFFE));
    BlockReader reader(Disk());
    const SystemCallLog log;
    EXPECT_EQ(SeekOffsSays(reader, 1, Record(0, 0), 0, 0, -1), "SeekOffs, # : fail\n");
    EXPECT_EQ(CallsInBlock(log, Disk(), 0), Lines{});
}

TEST_F(BlockSeek, PositionSeekReadsHeadsAlone) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    const SystemCallLog log;
    EXPECT_EQ(reader.SeekOffs(0, Record(1, 0), 76), 0);
    EXPECT_EQ(CallsInBlock(log, Disk(), 0),
              (Lines{"seek 1040", "read 24 at 1040", "seek 1140", "read 24 at 1140", "seek 1240",
                     "read 24 at 1240", "seek 1340"}));
}

TEST_F(BlockSeek, EveryFailedCallFailsThePositionSeek) {
    MakeDisk();
    WriteRecording(0);
    // Seek to the window, then a read and a seek for each of three frames.
    for (size_t call = 0; call < 7; ++call) {
        MovedReader reader(Disk());
        {
            const SystemCallLog log(FailingCall(call));
            EXPECT_EQ(SeekOffsSays(reader, 1, WholeBlock(), 2 * 76, 0, -1), "SeekOffs, # : fail\n") << call;
        }
        EXPECT_TRUE(reader.IsWideOpen());
        EXPECT_TRUE(reader.Stays());
    }
    for (const size_t call : {1u, 3u, 5u}) {
        MovedReader reader(Disk());
        const SystemCallLog log(ShortCall(call));
        EXPECT_EQ(SeekOffsSays(reader, 1, WholeBlock(), 2 * 76, 0, -1), "SeekOffs, # : fail\n") << call;
        EXPECT_TRUE(reader.IsWideOpen());
        EXPECT_TRUE(reader.Stays());
    }
}

TEST_F(BlockSeek, PositionsBehindTheLastFrame) {
    MakeDisk();
    WriteRecording(0);
    for (const uint32_t pos : {7 * 76u, 8 * 76u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        MovedReader reader(Disk());
        EXPECT_EQ(SeekOffsSays(reader, 0, WholeBlock(), pos, 0, -1), "SeekOffs, # : fail\n");
        EXPECT_TRUE(reader.IsWideOpen());
        EXPECT_TRUE(reader.Stays());
    }
}

TEST_F(BlockSeek, WindowsThatBeginOutsideTheBlock) {
    MakeDisk();
    WriteRecording(0);
    // 64696 is the block's end, which can be sought to and holds no frame; 0xFFFFFCB8 is its beginning.
    for (const uint32_t offs : {64695u, 64696u, 64697u, 0x80000000u, 0xFFFFFCB8u, 0xFFFFFCB7u}) {
        MovedReader reader(Disk());
        EXPECT_EQ(SeekOffsSays(reader, 0, OwnWindow(0, 0, 0xFFFFFFFF, offs), 0, 0, -1),
                  "SeekOffs, # : fail\n")
            << offs;
        EXPECT_TRUE(reader.IsWideOpen());
        EXPECT_TRUE(reader.Stays());
    }
}

TEST_F(BlockSeek, FramesMayFillTheBlock) {
    MakeDisk();
    // The walk has no frame area: the second frame lies in the index area and ends with the block.
    PutFrames(0, 0, {PFrame(0, 1000, 60600), PFrame(0, 1001, 64696 - 60624 - 24)});
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(), 60600), 0);
    EXPECT_EQ(reader.Read(), "-1"); // sought, but not to be read
    EXPECT_EQ(reader.ReadUnit(), "P0 1001");
    EXPECT_EQ(SeekOffsSays(reader, 0, WholeBlock(), 64696 - 48, 0, -1), "SeekOffs, # : fail\n");
}

TEST_F(BlockSeek, LengthsThatLeaveTheBlockFail) {
    MakeDisk();
    PutFrames(0, 0, {PFrame(0, 1000)});
    // The frame after whose head the block ends, or that would lead back to itself or to the first one.
    for (const uint32_t len : {64696u - 124 + 1, 0x7FFFFFFFu, 0xFFFFFFE8u, 0xFFFFFF84u, 0xFFFFFFFFu}) {
        for (const uint32_t chn : {0u, 1u}) {
            PutHead(0, 100, PFrame(chn, 1001, len));
            BlockReader reader(Disk());
            const SystemCallLog log;
            EXPECT_EQ(SeekOffsSays(reader, 0, WholeBlock(), 76, 0, -1), "SeekOffs, # : fail\n") << len;
            EXPECT_EQ(log.Count(CallKind::Read), 2u);
            EXPECT_TRUE(reader.IsWideOpen());
        }
    }
}

TEST_F(BlockSeek, SeekingChoosesTheChannelsAnew) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(1, Record(0, 0), 1000), 0);
    EXPECT_EQ(reader.Read(), "I0 1000");
    EXPECT_EQ(reader.Read(), "I1 1001");
    EXPECT_EQ(reader.SeekTime(0, Record(1, 0), 1000), 0);
    EXPECT_EQ(reader.Read(), "I1 1001");
    EXPECT_EQ(reader.Read(), "P1 1003");
    EXPECT_EQ(reader.SeekOffs(1, Record(1, 0), 3 * 76), 0);
    EXPECT_EQ(reader.ReadAll(),
              (Lines{"P0 1002", "P1 1003", "I0 1004", "P0 1006", "I1 1007", "I0 1008", "P0 1010", "2"}));
}

} // namespace
