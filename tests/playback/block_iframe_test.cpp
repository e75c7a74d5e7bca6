#include "playback/playback_fixture.h"

namespace {

using namespace test_support;

/// 0x7FFFFFFFFF microseconds: no later I-frame is found by forward steps of all channels.
constexpr int64_t kBound = 0x7FFFFFFFFF;

class BlockIFrame : public PlaybackFixture {
protected:
    /// A frame with a time stamp of its own.
    static FrameHead_t At(int64_t pts, uint32_t chn) {
        FrameHead_t head = KeyFrame(chn, 0);
        head.pts = pts;
        return head;
    }

    /// Writes a block that begins with a frame of second 1 and continues with I-frames of these channels and
    /// times, all in the index; and opens it for all channels and all times.
    BlockReader OpenAll(const std::vector<std::pair<uint32_t, int64_t>>& iframes) {
        MakeDisk();
        uint32_t pos = PutFrames(0, 0, {PFrame(0, 1)});
        auto contents = BlockContents::Closed(1, 1, 2);
        for (const auto& [chn, pts] : iframes) {
            contents.IFrame(chn, pts, pos);
            pos = PutFrames(0, pos, {At(pts, chn)});
        }
        PutHead(0, pos, EndMark());
        Disk().WriteBlock(0, contents);
        return BlockReader(Disk());
    }
};

TEST_F(BlockIFrame, ForwardSteps) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
    // The frame at the read position is read and passed: I 1000. The first later one is that of 1004.
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.Next(), "I0 1008");
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.Prev(), "1"); // after the last one there is none to go back from either
    EXPECT_EQ(reader.Read(), "P0 1010");
}

TEST_F(BlockIFrame, BackwardSteps) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1004), 0);
    // The first step delivers the first I-frame later than the frame that was due.
    EXPECT_EQ(reader.Prev(), "I0 1008");
    EXPECT_EQ(reader.Prev(), "I0 1004");
    EXPECT_EQ(reader.Prev(), "I0 1000");
    EXPECT_EQ(reader.Prev(), "1");
    EXPECT_EQ(reader.Prev(), "1");
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.Read(), "P0 1002"); // continues after the last one read
}

TEST_F(BlockIFrame, ChangingDirectionCostsAStep) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Next(), "I0 1004"); // the frame due was of 1000: that of 1000 is not later
    EXPECT_EQ(reader.Prev(), "I0 1008");
    EXPECT_EQ(reader.Prev(), "I0 1004");
    EXPECT_EQ(reader.Next(), "I0 1000");
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.Prev(), "I0 1008");
}

TEST_F(BlockIFrame, FrameBeforeTheFirstEntryStartsThere) {
    MakeDisk();
    PutFrames(0, 0, {PFrame(0, 1000), PFrame(0, 1000), KeyFrame(0, 1001), KeyFrame(0, 1002)});
    PutHead(0, 400, EndMark());
    Disk().WriteBlock(
        0, BlockContents::Closed(1, 1000, 1002).IFrame(0, Pts(1001), 200).IFrame(0, Pts(1002), 300));
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Next(), "I0 1001");
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Prev(), "I0 1001");
    EXPECT_EQ(reader.Prev(), "1");
}

TEST_F(BlockIFrame, PlainReadsAndSeeksMakeThePositionsAnew) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.Next(), "I0 1008");
    EXPECT_EQ(reader.Prev(), "1");
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Read(), "P0 1000");
    EXPECT_EQ(reader.Read(), "I0 1000");
    EXPECT_EQ(reader.Prev(), "I0 1004"); // the frame of 1002 is passed
    EXPECT_EQ(reader.Read(), "P0 1006");
    EXPECT_EQ(reader.Next(), "-1"); // passes the last I-frame, of 1008: there is none later
    EXPECT_EQ(reader.Read(), "P0 1010");
    EXPECT_EQ(reader.Next(), "-1");
}

TEST_F(BlockIFrame, FailedSeekMakesThePositionsAnewToo) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.SeekTime(0, Record(0, 1), 1000), -1);
    EXPECT_EQ(reader.Prev(), "I0 1008"); // later than 1006, which is passed
    EXPECT_EQ(reader.SeekOffs(0, Record(0, 1), 1000), -1);
    EXPECT_EQ(reader.Prev(), "-1"); // nothing is later than 1010
}

TEST_F(BlockIFrame, UnitReadsLeaveThePositions) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.ReadUnit(), "P0 1006");
    EXPECT_EQ(reader.Next(), "I0 1008");
}

TEST_F(BlockIFrame, StepsOfOneChannelStayInIt) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(1, 0), 1000), 0);
    EXPECT_EQ(reader.Next(), "I1 1007");
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.SeekTime(0, Record(1, 0), 1000), 0);
    EXPECT_EQ(reader.Prev(), "I1 1007");
    EXPECT_EQ(reader.Prev(), "I1 1001");
    EXPECT_EQ(reader.Prev(), "1");
}

TEST_F(BlockIFrame, IFramesOutsideTheWindowEndTheStepAndArePassed) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0, 0, 1003), 1000), 0);
    EXPECT_EQ(reader.Next(), "1"); // 1004
    EXPECT_EQ(reader.Read(), "P0 1002");

    EXPECT_EQ(reader.SeekTime(0, Record(0, 0, 0, 1005), 1000), 0);
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.Next(), "1"); // 1008 it was
    EXPECT_EQ(reader.Prev(), "1"); // and now the position is after the last one

    EXPECT_EQ(reader.SeekTime(0, Record(0, 0, 0, 1005), 1004), 0);
    EXPECT_EQ(reader.Prev(), "1"); // 1008
    EXPECT_EQ(reader.Prev(), "I0 1004");
}

TEST_F(BlockIFrame, IFramesBeforeTheWindowsOffsetFail) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010, 300)), 0);
    EXPECT_EQ(reader.Prev(), "I0 1004");
    EXPECT_EQ(reader.Prev(), "-1"); // 1000 is at 100
    EXPECT_EQ(reader.Prev(), "1");
    EXPECT_EQ(reader.Read(), "P0 1006");
}

TEST_F(BlockIFrame, ReadsGoOnBehindTheIFrame) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.IFrameAt(500), "I0 1004");
    EXPECT_EQ(reader.Read(), "P0 1006");
    EXPECT_EQ(reader.IFrameAt(200), "P0 1002"); // the other channel's is stepped over
    EXPECT_EQ(reader.Read(), "I0 1004");
    for (const auto& [offs, result] : {std::pair{1000u, "2"}, {60600u, "-1"}, {0xFFFFFFFFu, "-1"}}) {
        EXPECT_EQ(reader.IFrameAt(offs), result);
    }
    EXPECT_EQ(reader.Read(), "P0 1006"); // what fails does not move
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0, 0, 1003), 1000), 0);
    EXPECT_EQ(reader.IFrameAt(800), "1");
    EXPECT_EQ(reader.Read(), "I0 1000");
    FrameHead_t head = {};
    EXPECT_EQ(reader->ReadIFrame(100, &head, nullptr), 0); // without the payload
    EXPECT_EQ(Describe(head), "I0 1000");
    EXPECT_EQ(reader.Read(), "P0 1002");
    EXPECT_EQ(reader->ReadIFrame(100, nullptr, &reader.Payload()), -1);
}

TEST_F(BlockIFrame, ReadingAtAnOffsetLeavesTheStepPosition) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.IFrameAt(100), "I0 1000");
    EXPECT_EQ(reader.Next(), "I0 1008");
}

TEST_F(BlockIFrame, PositionsAreFoundByReadingTheFrameThatIsDue) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1004), 0);
    const SystemCallLog log;
    EXPECT_EQ(reader.Next(), "I0 1008");
    EXPECT_EQ(CallsInBlock(log, Disk(), 0), (Lines{"seek 1340", "read 24 at 1340", "read 76 at 1364",
                                                   "seek 1640", "read 24 at 1640", "read 76 at 1664"}));
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
    EXPECT_EQ(reader->GetIFrameIndex(), 0);
    EXPECT_EQ(reader.Read(), "P0 1002");
}

TEST_F(BlockIFrame, EveryFailedCallFailsTheStep) {
    MakeDisk();
    WriteRecording(0);
    const auto next = &CReadBlock::ReadNextIFrame;
    const auto prev = &CReadBlock::ReadPrevIFrame;
    for (const auto step : {next, prev}) {
        // Seek and two reads of the frame that is due, seek and two reads of the I-frame.
        for (size_t call = 0; call < 6; ++call) {
            BlockReader reader(Disk());
            EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
            {
                const SystemCallLog log(FailingCall(call));
                FrameHead_t head = {};
                EXPECT_EQ(
                    Printed([&] { EXPECT_EQ((*reader.operator->().*step)(&head, &reader.Payload()), -1); }),
                    "");
            }
            // The frame that was due is passed once it was read; an I-frame that was not read moves nothing.
            EXPECT_EQ(reader.Read(), call < 3 ? "I0 1000" : "P0 1002") << call;
        }
    }
}

TEST_F(BlockIFrame, StepsWithoutArguments) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
    FrameHead_t head = {};
    void* payload = nullptr;
    EXPECT_EQ(reader->ReadNextIFrame(nullptr, &payload), -1);
    EXPECT_EQ(reader->ReadNextIFrame(&head, nullptr), -1);
    EXPECT_EQ(reader->ReadPrevIFrame(nullptr, &payload), -1);
    EXPECT_EQ(reader->ReadPrevIFrame(&head, nullptr), -1);
    EXPECT_EQ(payload, nullptr);
    EXPECT_EQ(reader.Read(), "I0 1000");
}

TEST_F(BlockIFrame, ReadsWithoutArgumentsLeaveThePositions) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.Prev(), "I0 1008");
    void* payload = nullptr;
    EXPECT_EQ(reader->ReadFrame(nullptr, &payload), -1);
    EXPECT_EQ(reader.Next(), "I0 1004"); // positions found again, after that of 1008, would be none
}

TEST_F(BlockIFrame, PositionsBehindTheLastIFrameAreNotFound) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1008), 0);
    EXPECT_EQ(reader->GetIFrameIndex(), -1);
}

TEST_F(BlockIFrame, ChannelsWithoutIFramesHaveNoSteps) {
    MakeDisk();
    WriteRecording(0);
    PutFrames(0, 0, {PFrame(5, 1000)});
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(5)), 0);
    EXPECT_EQ(reader.Next(), "-1");
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(5)), 0);
    EXPECT_EQ(reader.Prev(), "-1");
    EXPECT_EQ(reader->GetIFrameIndex(), -1); // no frame of the channel follows
}

TEST_F(BlockIFrame, ChannelsThatAreBeyondTheTablesHaveNoSteps) {
    MakeDisk();
    WriteRecording(0);
    for (const uint32_t chn : {32u, 33u, 127u}) {
        PutFrames(0, 0, {PFrame(chn, 1000)});
        BlockReader reader(Disk());
        EXPECT_EQ(reader.SeekOffs(0, WholeBlock(chn)), 0);
        EXPECT_EQ(reader->GetIFrameIndex(), -1);
        EXPECT_EQ(reader.SeekOffs(0, WholeBlock(chn)), 0);
        EXPECT_EQ(reader.Next(), "-1");
        EXPECT_EQ(reader.SeekOffs(0, WholeBlock(chn)), 0);
        EXPECT_EQ(reader.Prev(), "-1");
    }
}

TEST_F(BlockIFrame, BeforeAnySeekTheWindowIsClosed) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader->GetIFrameIndex(), -1);
    EXPECT_EQ(reader.Next(), "-1");
    EXPECT_EQ(reader.Prev(), "-1");
}

TEST_F(BlockIFrame, AllChannelsForwards) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(1, Record(0, 0), 1000), 0);
    EXPECT_EQ(reader.Next(), "I1 1001");
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.Next(), "I1 1007");
    EXPECT_EQ(reader.Next(), "I0 1008");
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.Prev(), "1");
    EXPECT_EQ(reader.Read(), "P0 1010");
}

TEST_F(BlockIFrame, AllChannelsBackwards) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(1, Record(0, 0), 1000), 0);
    // The positions are on 1004 of channel 0 and 1001 of channel 1.
    EXPECT_EQ(reader.Prev(), "I0 1004");
    EXPECT_EQ(reader.Prev(), "I1 1001");
    EXPECT_EQ(reader.Prev(), "I0 1000");
    EXPECT_EQ(reader.Prev(), "1");
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.Read(), "I1 1001");
}

TEST_F(BlockIFrame, AllChannelsChangingDirection) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(1, Record(0, 0), 1000), 0);
    EXPECT_EQ(reader.Next(), "I1 1001"); // 1004 and 1007 are next
    EXPECT_EQ(reader.Prev(), "I1 1007"); // 1004 and 1001
    EXPECT_EQ(reader.Next(), "I1 1001"); // 1004 and 1007
    EXPECT_EQ(reader.Next(), "I0 1004"); // 1008 and 1007
    EXPECT_EQ(reader.Prev(), "I0 1008");
}

TEST_F(BlockIFrame, ChannelsWithoutALaterIFrameTakeNoPart) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock(), 7 * 76), 0); // before I1 1007
    EXPECT_EQ(reader.Prev(), "I0 1008");
    EXPECT_EQ(reader.Prev(), "I0 1004");                    // channel 1's of 1001 has no position
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock(), 8 * 76), 0); // before I0 1008
    EXPECT_EQ(reader.Next(), "-1");
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock(), 8 * 76), 0);
    EXPECT_EQ(reader->GetIFrameIndex(), -1);
}

TEST_F(BlockIFrame, AllChannelsForwardsFindNothingInRealTime) {
    MakeDisk();
    WriteRecording(0, 1700000000);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(1, Record(0, 0), 1700000000), 0);
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.Read(), "I1 1700000001"); // the frame that was due is passed
    EXPECT_EQ(reader.SeekTime(1, Record(0, 0), 1700000000), 0);
    EXPECT_EQ(reader.Prev(), "I0 1700000004"); // backwards there is no such bound
    EXPECT_EQ(reader.Prev(), "I1 1700000001");
    EXPECT_EQ(reader.Prev(), "I0 1700000000");
    EXPECT_EQ(reader.Prev(), "1");
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1700000000), 0);
    EXPECT_EQ(reader.Next(), "I0 1700000004"); // nor with one channel
}

TEST_F(BlockIFrame, BoundOfForwardStepsItselfIsNotReached) {
    // Second 549755 holds the bound; the channels distinguish the times.
    BlockReader reader = OpenAll({{0, kBound}, {1, kBound - 1}, {2, kBound + 1}});
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock()), 0);
    EXPECT_EQ(reader.Next(), "I1 549755");
    EXPECT_EQ(reader.Next(), "1");
    EXPECT_EQ(reader.Prev(), "I2 549755");
    EXPECT_EQ(reader.Prev(), "I0 549755");
    EXPECT_EQ(reader.Prev(), "1"); // channel 1 is after its last
}

TEST_F(BlockIFrame, OfEqualTimesTheLowestChannelComesFirst) {
    const std::vector<std::pair<uint32_t, int64_t>> iframes = {
        {31, Pts(5)}, {2, Pts(5)}, {7, Pts(5)}, {7, Pts(6)}, {2, Pts(6)}};
    BlockReader reader = OpenAll(iframes);
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock()), 0);
    for (const char* const frame : {"I2 5", "I7 5", "I31 5", "I2 6", "I7 6", "1"}) {
        EXPECT_EQ(reader.Next(), frame);
    }
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock()), 0);
    for (const char* const frame : {"I2 5", "I7 5", "I31 5", "1"}) {
        EXPECT_EQ(reader.Prev(), frame);
    }
}

TEST_F(BlockIFrame, BackwardStepsOfAllChannelsEndAtTimeZero) {
    MakeDisk();
    // The index gives the frame at 200 the time 0. Its own is another, or no window would let it pass.
    PutFrames(0, 0, {PFrame(0, -5), KeyFrame(0, -4), KeyFrame(1, 2), KeyFrame(2, 1)});
    PutHead(0, 400, EndMark());
    Disk().WriteBlock(
        0, BlockContents::Closed(1, 1, 2).IFrame(0, Pts(-4), 100).IFrame(1, 0, 200).IFrame(2, 1, 300));
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock()), 0);
    EXPECT_EQ(reader.Prev(), "I2 1");
    EXPECT_EQ(reader.Prev(), "1"); // neither 0 nor what is before it
    // Forwards, times before 1970 are just early.
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock()), 0);
    EXPECT_EQ(reader.Next(), "I0 -4");
    EXPECT_EQ(reader.Next(), "I1 2");
    EXPECT_EQ(reader.Next(), "I2 1");
    EXPECT_EQ(reader.Next(), "1");
}

TEST_F(BlockIFrame, ForgedOffsetsFail) {
    MakeDisk();
    WriteRecording(0);
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .IFrame(0, Pts(1000), 0xFFFFFFFF)
                             .IFrame(0, Pts(1001), 60600)
                             .IFrame(0, Pts(1002), 0x80000000)
                             .IFrame(0, Pts(1003), 90)
                             .IFrame(0, Pts(1004), 500)
                             .Segment(0, 1000, 1010, 996));
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Next(), "-1"); // 1001
    EXPECT_EQ(reader.Next(), "-1"); // 1002
    EXPECT_EQ(reader.Next(), "2");  // 1003, in the midst of a payload
    EXPECT_EQ(reader.Next(), "I0 1004");
    EXPECT_EQ(reader.Next(), "1");
}

TEST_F(BlockIFrame, LengthsThatWrapFailTheStep) {
    MakeDisk();
    WriteRecording(0);
    for (const uint32_t len : {0xFFFFFFE8u, 0xFFFFFF84u, 0x7FFFFFFFu}) {
        PutHead(0, 500, KeyFrame(0, 1004, len));
        BlockReader reader(Disk());
        EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
        EXPECT_EQ(reader.Next(), "-1");
        PutHead(0, 500, KeyFrame(1, 1004, len)); // to be stepped over
        EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
        EXPECT_EQ(reader.Next(), "-1");
        EXPECT_EQ(reader.Next(), "I0 1008");
    }
}

} // namespace
