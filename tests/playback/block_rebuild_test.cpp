#include "playback/playback_fixture.h"

namespace {

using namespace test_support;

class BlockRebuild : public PlaybackFixture {
protected:
    /// Makes block 0 one that began at second 1000 and was never closed.
    void MakeOpenBlock(uint32_t recTime = 1000) {
        MakeDisk();
        Disk().WriteBlock(0, BlockContents::Open(1, recTime));
    }

    /// The segments of a rebuild of these frames.
    Lines Rebuilt(const std::vector<FrameHead_t>& frames) {
        const uint32_t end = PutFrames(0, 0, frames);
        PutHead(0, end, EndMark());
        BlockReader reader(Disk(), 0, 1);
        return reader.Segments();
    }

    static uint32_t EndTime(BlockReader& reader) {
        BlockTail_t tail = {};
        EXPECT_EQ(reader->GetBlockInfo(nullptr, &tail), 0);
        return tail.EndTime;
    }
};

TEST_F(BlockRebuild, MakesSegmentsAndIFramesOfEveryChannel) {
    MakeOpenBlock();
    PutHead(0,
            PutFrames(0, 0,
                      {KeyFrame(0, 1000, 100), PFrame(3, 1000, 50), PFrame(0, 1001, 0),
                       KeyFrame(31, 1002, 10), Audio(0, 1002, 30), KeyFrame(0, 1003, 20)}),
            EndMark());
    BlockReader reader(Disk(), 0, 1);
    // Heads lie at 0, 124, 198, 222, 256, 310. A frame adds its payload and 20 bytes of its head, not 24.
    EXPECT_EQ(reader.Segments(),
              (Lines{"0/0 1000-1003 at 0-350, 230 bytes", "3/0 1000-1000 at 124-194, 70 bytes",
                     "31/0 1002-1002 at 222-252, 30 bytes"}));
    EXPECT_EQ(reader.IFrames(0), (Lines{"1000000000 at 0", "1003000000 at 310"}));
    EXPECT_EQ(reader.IFrames(31), (Lines{"1002000000 at 222"}));
    EXPECT_EQ(reader.IFrames(3), Lines{});
}

TEST_F(BlockRebuild, OneSeekAndOneReadAFrameAndOneMoreReadAnEvent) {
    MakeOpenBlock();
    PutFrames(0, 0, {PFrame(0, 1000), Data(0, 1000)});
    PutEvent(0, 200, Frame(4, 0, 1000), 1, 1);
    PutHead(0, 300, EndMark());
    BlockReader reader(Disk());
    const SystemCallLog log;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(reader->RebuiltBlockIndex(), 0); }), "");
    EXPECT_EQ(CallsInBlock(log, Disk(), 0),
              (Lines{"seek 840", "read 24 at 840", "seek 940", "read 24 at 940", "seek 1040",
                     "read 24 at 1040", "read 16 at 1064", "seek 1140", "read 24 at 1140"}));
}

TEST_F(BlockRebuild, TailHoldsNothingButTheTimeOfTheLastMedia) {
    MakeDisk();
    auto contents = BlockContents::Open(2, 1000);
    contents.tail = {1, 2, 1, 4, 0xFFFFFFFF}; // left over from the ring's previous turn
    Disk().WriteBlock(0, contents);
    PutHead(0, PutFrames(0, 0, {PFrame(0, 1000), Audio(1, 1007), Data(0, 1009)}), EndMark());
    BlockReader reader(Disk(), 0, 1);
    BlockTail_t tail = {};
    EXPECT_EQ(reader->GetBlockInfo(nullptr, &tail), 0);
    EXPECT_EQ(tail.Reserved, 0u);
    EXPECT_EQ(tail.CloseState, 0u);
    EXPECT_EQ(tail.RecSeq, 0u);
    EXPECT_EQ(tail.StartTime, 0u);
    EXPECT_EQ(tail.EndTime, 1007u);
    BlockHead_t head = {};
    EXPECT_EQ(reader->GetBlockInfo(&head, nullptr), 0);
    EXPECT_EQ(head.RecSeq, 2u);
}

TEST_F(BlockRebuild, PausesShorterThanSixteenSecondsStayInOneSegment) {
    MakeOpenBlock();
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), PFrame(0, 1015)}), Lines{"0/0 1000-1015 at 0-196, 192 bytes"});
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), PFrame(0, 1016)}),
              (Lines{"0/0 1000-1000 at 0-96, 96 bytes", "0/1 1016-1016 at 100-196, 96 bytes"}));
    // Backwards too: the clock was set. The segment then ends where its last frame says.
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), PFrame(0, 985)}), Lines{"0/0 1000-985 at 0-196, 192 bytes"});
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), PFrame(0, 984)}),
              (Lines{"0/0 1000-1000 at 0-96, 96 bytes", "0/1 984-984 at 100-196, 96 bytes"}));
}

TEST_F(BlockRebuild, PauseIsCountedInSecondsFromTheLastFrameOfTheChannel) {
    MakeOpenBlock();
    // Fractions of a second do not count; frames of other channels and of other kinds do not bridge a pause.
    FrameHead_t late = PFrame(0, 1015);
    late.pts += 999999;
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), late}), Lines{"0/0 1000-1015 at 0-196, 192 bytes"});
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), PFrame(1, 1008), Data(0, 1008), PFrame(0, 1016)}),
              (Lines{"0/0 1000-1000 at 0-96, 96 bytes", "0/1 1016-1016 at 300-396, 96 bytes",
                     "1/0 1008-1008 at 100-196, 96 bytes"}));
    // Only the last segment grows, whichever begins nearer.
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), PFrame(0, 1020), PFrame(0, 1003)}),
              (Lines{"0/0 1000-1000 at 0-96, 96 bytes", "0/1 1020-1020 at 100-196, 96 bytes",
                     "0/2 1003-1003 at 200-296, 96 bytes"}));
}

TEST_F(BlockRebuild, PauseOfHalfOfAllTimeIsAPause) {
    MakeOpenBlock();
    // The difference is -2^31, whose absolute value no signed number of 32 bits holds.
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), PFrame(0, 0x80000000 + 1000)}),
              (Lines{"0/0 1000-1000 at 0-96, 96 bytes", "0/1 2147484648-2147484648 at 100-196, 96 bytes"}));
    // Neither is the way around the end of the numbers one of 16 seconds.
    EXPECT_EQ(Rebuilt({PFrame(0, 0x7FFFFFFC), PFrame(0, 0x80000004)}),
              (Lines{"0/0 2147483644-2147483652 at 0-196, 192 bytes"}));
}

TEST_F(BlockRebuild, FramesOlderThanTheBlockEndTheWalk) {
    MakeOpenBlock();
    // 29 and 30 seconds before the block began are near enough, 31 are not.
    for (const uint32_t seconds : {971u, 970u}) {
        EXPECT_EQ(Rebuilt({PFrame(0, seconds), PFrame(1, 1000)}).size(), 2u) << seconds;
    }
    EXPECT_EQ(Rebuilt({PFrame(0, 969), PFrame(1, 1000)}), Lines{});
    EXPECT_EQ(Rebuilt({PFrame(1, 1000), KeyFrame(0, 969), PFrame(0, 1000)}),
              Lines{"1/0 1000-1000 at 0-96, 96 bytes"});
}

TEST_F(BlockRebuild, FramesOlderThanThoseBeforeThemEndTheWalk) {
    MakeOpenBlock();
    const std::string first = "0/0 1000-1000 at 0-96, 96 bytes";
    const std::string newest = "1/0 2000-2000 at 100-196, 96 bytes";
    const auto walk = [&](const FrameHead_t& last) {
        return Rebuilt({PFrame(0, 1000), Audio(1, 2000), last, PFrame(3, 2000)}).size();
    };
    EXPECT_EQ(walk(PFrame(2, 1971)), 4u); // 29 seconds
    EXPECT_EQ(walk(PFrame(2, 1970)), 4u); // 30
    EXPECT_EQ(Rebuilt({PFrame(0, 1000), Audio(1, 2000), PFrame(2, 1969), PFrame(3, 2000)}),
              (Lines{first, newest})); // 31
    // What counts is the frame before, even if the one before that was newer.
    EXPECT_EQ(Rebuilt({PFrame(0, 2000), PFrame(1, 1975), PFrame(2, 1950), PFrame(3, 1919)}).size(), 3u);
}

TEST_F(BlockRebuild, OtherFramesNeverEndTheWalkByTheirTime) {
    MakeOpenBlock();
    PutFrames(0, 0, {PFrame(0, 1000), Data(0, 0), Frame(5, 0, -1)});
    PutEvent(0, 300, Frame(4, 0, 1), 1, 1);
    PutFrames(0, 400, {Frame(0xFFFFFFFF, 0, 1), PFrame(0, 1001)});
    PutHead(0, 600, EndMark());
    BlockReader reader(Disk(), 0, 1);
    EXPECT_EQ(reader.Segments(), Lines{"0/0 1000-1001 at 0-596, 192 bytes"});
    EXPECT_EQ(EndTime(reader), 1001u);
}

TEST_F(BlockRebuild, TimesNearTheEndOfTheNumbersWrap) {
    // 30 seconds after 0xFFFFFFF0 lies second 14.
    MakeOpenBlock(1000);
    EXPECT_EQ(Rebuilt({PFrame(0, 0xFFFFFFF0)}), Lines{});
    EXPECT_EQ(Rebuilt({PFrame(0, -10)}), Lines{}); // the same seconds, before 1970
    Disk().WriteBlock(0, BlockContents::Open(1, 14));
    EXPECT_EQ(Rebuilt({PFrame(0, -16)}), Lines{"0/0 4294967280-4294967280 at 0-96, 96 bytes"});
    // The newest time is then far ahead of any other.
    EXPECT_EQ(Rebuilt({PFrame(0, -16), PFrame(0, 1000)}),
              Lines{"0/0 4294967280-4294967280 at 0-96, 96 bytes"});
    // Within a second before 1970, time is 0.
    FrameHead_t head = PFrame(0, 0);
    head.pts = -999999;
    EXPECT_EQ(Rebuilt({head}), Lines{"0/0 0-0 at 0-96, 96 bytes"});
}

TEST_F(BlockRebuild, TimesAfter2038AreComparedUnsigned) {
    MakeOpenBlock(0x7FFFFFFF);
    EXPECT_EQ(Rebuilt({PFrame(0, 0x7FFFFFFF), PFrame(0, 0x80000005), PFrame(0, 0x80000010)}),
              Lines{"0/0 2147483647-2147483664 at 0-296, 288 bytes"});
}

TEST_F(BlockRebuild, WalkEndsAtWhatIsNoFrame) {
    MakeOpenBlock();
    for (FrameHead_t last : {PFrame(0, 1002), PFrame(32, 1002), PFrame(0xFFFFFFFF, 1002)}) {
        if (last.chn == 0) {
            last.sync = BLOCK_MAGIC + 1;
        }
        PutFrames(0, 0, {PFrame(0, 1000), PFrame(31, 1001), last, PFrame(0, 1003)});
        BlockReader reader(Disk());
        EXPECT_EQ(reader->RebuiltBlockIndex(), 0);
        EXPECT_EQ(reader.Segments(),
                  (Lines{"0/0 1000-1000 at 0-96, 96 bytes", "31/0 1001-1001 at 100-196, 96 bytes"}));
    }
}

TEST_F(BlockRebuild, WalkGoesOnWhereTheFrameAreaEnds) {
    MakeOpenBlock();
    // The frame area ends at 60600; what comes after it is read as well.
    PutFrames(0, 0, {PFrame(0, 1000, 60600 - 24), PFrame(1, 1001)});
    PutHead(0, 60700, EndMark());
    BlockReader reader(Disk(), 0, 1);
    EXPECT_EQ(reader.Segments(),
              (Lines{"0/0 1000-1000 at 0-60596, 60596 bytes", "1/0 1001-1001 at 60600-60696, 96 bytes"}));
}

TEST_F(BlockRebuild, FramesThatFillTheBlockEndTheWalkWithAFailure) {
    MakeOpenBlock();
    // The block ends at 65536 - 840 = 64696. The second head lies there, or has no room before it.
    for (const uint32_t next : {64696u, 64695u, 64673u}) {
        PutHead(0, 0, PFrame(0, 1000, next - 24));
        BlockReader reader(Disk());
        EXPECT_EQ(reader->RebuiltBlockIndex(), -1);
        EXPECT_EQ(reader.Segments().size(), 1u);
        EXPECT_EQ(EndTime(reader), 1000u);
        EXPECT_EQ(reader->GetBlockIndex(1), 0); // which is not held against the block
    }
}

TEST_F(BlockRebuild, LengthsBehindTheBlockEndTheWalkWithAFailure) {
    MakeOpenBlock();
    // 24 + 0xFFFFFFE8 is nothing in 32 bits, 24 + 0xFFFFFF84 goes back by 100.
    for (const uint32_t len : {64673u, 0x7FFFFFFFu, 0xFFFFFC9Fu, 0xFFFFFFE8u, 0xFFFFFF84u, 0xFFFFFFFFu}) {
        PutFrames(0, 0, {PFrame(0, 1000)});
        PutHead(0, 100, KeyFrame(1, 1001, len));
        BlockReader reader(Disk());
        const SystemCallLog log;
        EXPECT_EQ(reader->RebuiltBlockIndex(), -1);
        EXPECT_EQ(log.Count(CallKind::Read), 2u);
        // The head itself still counts; its sums are of 32 bits.
        RecSegItem_t segment = {1001, 1001, 100, 100 + len + 20, len + 20};
        EXPECT_EQ(reader.Segments(), (Lines{"0/0 1000-1000 at 0-96, 96 bytes", "1/0 " + Describe(segment)}));
    }
}

TEST_F(BlockRebuild, EveryFailedCallEndsTheWalk) {
    MakeOpenBlock();
    PutFrames(0, 0, {PFrame(0, 1000)});
    PutEvent(0, 100, Frame(4, 0, 1000), 1, 1);
    PutFrames(0, 200, {PFrame(1, 1001)});
    PutHead(0, 300, EndMark());
    // Seek and read of the first head, seek, read and read of the event, seek and read of the third.
    for (size_t call = 0; call < 9; ++call) {
        BlockReader reader(Disk());
        {
            const SystemCallLog log(FailingCall(call));
            EXPECT_EQ(Printed([&] { EXPECT_EQ(reader->RebuiltBlockIndex(), -1); }), "") << call;
        }
        EXPECT_EQ(reader.Segments().size(), call < 2 ? 0u : call < 7 ? 1u : 2u) << call;
    }
    for (const size_t call : {1u, 3u, 4u, 6u, 8u}) {
        BlockReader reader(Disk());
        const SystemCallLog log(ShortCall(call));
        EXPECT_EQ(reader->RebuiltBlockIndex(), -1);
    }
}

TEST_F(BlockRebuild, FailedRebuildStillOpensTheBlock) {
    MakeOpenBlock();
    PutFrames(0, 0, {PFrame(0, 1000), PFrame(1, 1001)});
    PartAccess_t access = Disk().Access();
    CReadBlock reader;
    {
        const SystemCallLog log(FailingCall(8)); // after six for head and tail, the second frame's seek
        EXPECT_EQ(Printed([&] { EXPECT_EQ(reader.OpenBlock(0, 0x10000, &access, 0, 1), 0); }), "");
    }
    RecordItem_t record = Record(0, 0);
    RecSegItem_t segment = {};
    EXPECT_EQ(reader.GetRecSegInfo(&record, &segment), 0);
    record = Record(1, 0);
    EXPECT_EQ(reader.GetRecSegInfo(&record, &segment), -1);
    EXPECT_EQ(reader.CloseBlock(), 0);
}

TEST_F(BlockRebuild, EventWithoutRoomForItsHeadEndsTheWalk) {
    MakeOpenBlock();
    // After the event's head at 64696 - 24 - 15, 15 bytes are left.
    PutFrames(0, 0, {PFrame(0, 1000, 64696 - 24 - 15 - 24)});
    PutHead(0, 64696 - 24 - 15, Frame(4, 0, 1000));
    BlockReader reader(Disk());
    EXPECT_EQ(reader->RebuiltBlockIndex(), -1);
    EXPECT_EQ(reader.Segments().size(), 1u);
}

TEST_F(BlockRebuild, AnotherWalkAddsToWhatIsHeld) {
    MakeOpenBlock();
    PutHead(0, PutFrames(0, 0, {PFrame(0, 1000), PFrame(0, 1100)}), EndMark());
    BlockReader reader(Disk(), 0, 1);
    EXPECT_EQ(reader.Segments().size(), 2u);
    EXPECT_EQ(reader->RebuiltBlockIndex(), 0);
    EXPECT_EQ(reader.Segments().size(), 4u); // 1000 is a pause from 1100, and 1100 one from 1000
}

TEST_F(BlockRebuild, SingleFramesCanBeAdded) {
    MakeOpenBlock();
    BlockReader reader(Disk());
    FrameInfo_t frame = {static_cast<uint64_t>(Pts(1000)), 1, 2, 500};
    EXPECT_EQ(reader->RefreshBlockIndex(&frame, 4000, nullptr), 0);
    EXPECT_EQ(EndTime(reader), 1000u);
    frame = {static_cast<uint64_t>(Pts(1004)), 2, 2, 50};
    EXPECT_EQ(reader->RefreshBlockIndex(&frame, 5000, nullptr), 0);
    EXPECT_EQ(EndTime(reader), 1004u);
    EXPECT_EQ(reader.Segments(), Lines{"2/0 1000-1004 at 4000-5070, 590 bytes"});
    EXPECT_EQ(reader.IFrames(2), Lines{"1000000000 at 4000"});
}

TEST_F(BlockRebuild, FramesThatAreNoMediaLeaveSegmentsAndEndTimeAlone) {
    MakeOpenBlock();
    BlockReader reader(Disk());
    EventHead_t event = {};
    event.Indexed = 1;
    for (const uint32_t type : {3u, 4u, 5u, 0xFFFFFFFFu}) {
        FrameInfo_t frame = {static_cast<uint64_t>(Pts(1000)), type, 2, 500};
        EXPECT_EQ(reader->RefreshBlockIndex(&frame, 0, &event), 0);
        EXPECT_EQ(reader->RefreshBlockIndex(&frame, 0, nullptr), 0);
    }
    EXPECT_EQ(reader.Segments(), Lines{});
    EXPECT_EQ(EndTime(reader), 0u);
}

TEST_F(BlockRebuild, FramesOfChannelsThatDoNotExistAddNothing) {
    MakeOpenBlock();
    BlockReader reader(Disk());
    EventHead_t event = {};
    event.Indexed = 1;
    for (const uint32_t chn : {32u, 127u, 0x80000000u, 0xFFFFFFFFu}) {
        for (const uint32_t type : {0u, 1u, 2u, 4u}) {
            FrameInfo_t frame = {static_cast<uint64_t>(Pts(1000)), type, chn, 500};
            EXPECT_EQ(reader->RefreshBlockIndex(&frame, 0, &event), 0);
        }
    }
    EXPECT_EQ(reader.Segments(), Lines{});
    EXPECT_EQ(EndTime(reader), 0u);
    EXPECT_EQ(reader->RefreshBlockIndex(nullptr, 0, nullptr), -1);
}

} // namespace
