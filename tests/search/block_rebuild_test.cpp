#include "search/search_fixture.h"

namespace {

using namespace test_support;

constexpr uint32_t kFrameArea = 0x10000 - 840 - 0x1000;

/// Frames of 100 bytes each in block 1, which was never closed.
class IndexRebuild : public SearchFixture {
protected:
    void MakeOpenBlock(uint32_t fmtVersion = 0, uint32_t recTime = 1000) {
        Format format;
        format.fmtVersion = fmtVersion;
        MakeDisk(format);
        Disk().WriteBlock(1, BlockContents::Open(9, recTime).Channels(0x5));
    }

    /// Writes a frame, 76 bytes long unless it says otherwise, after the last one.
    void Put(uint32_t type, uint32_t chn, int64_t seconds, uint32_t len = 76) {
        Disk().Put(Disk().FrameOffset(1, m_pos), FrameHead_t{Pts(seconds), BLOCK_MAGIC, type, chn, len});
        m_pos += 24 + len;
    }

    void PutEvent(int64_t seconds, uint64_t type, uint8_t indexed) {
        EventHead_t event = {};
        event.type = type;
        event.Indexed = indexed;
        Disk().Put(Disk().FrameOffset(1, m_pos) + 24, event);
        Put(4, 0, seconds);
    }

    /// Rebuilds block 1, and gives the tables.
    std::string Rebuilt(unsigned int mode = 0, int result = 0) {
        OpenBlocks blocks(Disk());
        Quietly([&] {
            blocks->ReadBlockIndexList(1, 7);
            EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, mode), result);
        });
        return blocks.Index();
    }

    uint32_t m_pos = 0;
};

TEST_F(IndexRebuild, MakesTheTablesOfTheFrames) {
    for (const uint32_t fmtVersion : {0u, 1u}) {
        m_pos = 0;
        MakeOpenBlock(fmtVersion);
        Put(1, 0, 1000); // at 0
        Put(0, 0, 1001); // 100
        Put(1, 2, 1002); // 200
        Put(2, 2, 1003); // 300
        PutEvent(1004, 0x10, 1);
        PutEvent(1005, 0x20, 0); // not marked for the index
        Put(5, 0, 1006);         // other data
        Put(1, 0, 1007);         // 700
        // 20 bytes a head: the last frame of channel 0 ends at 700 + 96, its three add up to 3 * 96.
        EXPECT_EQ(Rebuilt(), "IFrame[0][0]  1000000000, 0\n"
                             "IFrame[0][1]  1007000000, 700\n"
                             "IFrame[2][0]  1002000000, 200\n"
                             "RecSeg[0][0]  1000, 1007, 0, 796\n"
                             "RecSeg[2][0]  1002, 1003, 200, 396\n"
                             "Event[0]  16, 1004000000, 400\n");
        std::remove(File("disk").c_str());
    }
}

TEST_F(IndexRebuild, PrintsTheSegmentsOfEachChannel) {
    MakeOpenBlock();
    Put(1, 0, 1000);
    Put(1, 2, 1000);
    Put(0, 2, 1100);
    OpenBlocks blocks(Disk());
    blocks->ReadBlockIndexList(1, 7);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(1, 0, 0), 0); }),
              "RebuildRecSegInfo, Rebuild Index Block=1(9):\n"
              "  [0] rec count = 1\n"
              "  [2] rec count = 2\n");
}

TEST_F(IndexRebuild, SegmentsEndWithAPauseOfSixteenSeconds) {
    MakeOpenBlock();
    Put(0, 0, 1000);
    Put(0, 0, 1015); // 15: extends the segment
    Put(0, 0, 1031); // 16: another
    Put(0, 0, 1016); // 15 back: extends the segment
    Put(0, 0, 1000); // 16 back: another
    EXPECT_EQ(Rebuilt(), "RecSeg[0][0]  1000, 1015, 0, 196\n"
                         "RecSeg[0][1]  1031, 1016, 200, 396\n"
                         "RecSeg[0][2]  1000, 1000, 400, 496\n");
}

TEST_F(IndexRebuild, ClockSetBackBeginsANewSegment) {
    MakeOpenBlock();
    Put(0, 0, 1100);
    Put(0, 0, 1080);
    EXPECT_EQ(Rebuilt(), "RecSeg[0][0]  1100, 1100, 0, 96\n"
                         "RecSeg[0][1]  1080, 1080, 100, 196\n");
}

TEST_F(IndexRebuild, StaleMediaEndsItStaleDataDoesNot) {
    MakeOpenBlock();
    Put(0, 0, 970); // 30 seconds before the block: not yet stale
    PutEvent(900, 1, 1);
    Put(3, 0, 900);
    Put(0, 0, 1000);
    Put(0, 0, 969); // 31 seconds
    Put(0, 0, 1001);
    EXPECT_EQ(Rebuilt(), "RecSeg[0][0]  970, 970, 0, 96\n"
                         "RecSeg[0][1]  1000, 1000, 300, 396\n"
                         "Event[0]  1, 900000000, 100\n");
}

TEST_F(IndexRebuild, NewestTimeSeenDoesNotMatter) {
    MakeOpenBlock();
    Put(0, 0, 5000);
    Put(0, 0, 1000);
    EXPECT_EQ(Rebuilt(), "RecSeg[0][0]  5000, 5000, 0, 96\n"
                         "RecSeg[0][1]  1000, 1000, 100, 196\n");
}

TEST_F(IndexRebuild, SecondsAreUnsigned) {
    // A block from after 2038: a frame of second 10 is 31 seconds older when 30 added do not reach it.
    MakeOpenBlock(0, 0x80000010);
    Put(0, 0, 0x80000010);
    Put(0, 0, 10);
    EXPECT_EQ(Rebuilt(), "RecSeg[0][0]  -2147483632, -2147483632, 0, 96\n");
}

TEST_F(IndexRebuild, PauseOfHalfOfAllTimeIsAPause) {
    // The difference of these seconds is the 32-bit number that has no absolute value.
    MakeOpenBlock(0, 10);
    Put(0, 0, 10);
    Put(0, 0, 0x8000000A);
    EXPECT_EQ(Rebuilt(), "RecSeg[0][0]  10, 10, 0, 96\n"
                         "RecSeg[0][1]  -2147483638, -2147483638, 100, 196\n");
}

TEST_F(IndexRebuild, FramesOfNoChannelAddNothing) {
    MakeOpenBlock();
    Put(1, 32, 1000);
    Put(1, 0xFFFFFFFF, 1000);
    Put(4, 40, 1000);
    Put(1, 31, 1001);
    EXPECT_EQ(Rebuilt(), "IFrame[31][0]  1001000000, 300\nRecSeg[31][0]  1001, 1001, 300, 396\n");
}

TEST_F(IndexRebuild, FullFrameAreaEndsAtItsLimit) {
    MakeOpenBlock();
    Put(0, 0, 1000);
    Put(0, 0, 1001, kFrameArea - 100 - 24); // to its last byte
    // What comes after it, where the index would be, looks like a frame.
    Put(0, 0, 1002);
    EXPECT_EQ(Rebuilt(), "RecSeg[0][0]  1000, 1001, 0, " + std::to_string(kFrameArea - 4) + "\n");
}

TEST_F(IndexRebuild, LengthsThatLeadNowhereEndIt) {
    for (const uint32_t len : {kFrameArea, 0x7FFFFFFFu, 0xFFFFFFE8u, 0xFFFFFF84u, 0xFFFFFFFFu}) {
        m_pos = 0;
        MakeOpenBlock();
        Put(0, 0, 1000);
        Put(1, 0, 1001, len);
        EXPECT_EQ(Rebuilt().substr(0, 30), "IFrame[0][0]  1001000000, 100\n") << len;
        std::remove(File("disk").c_str());
    }
}

TEST_F(IndexRebuild, AddsToTheTablesHeld) {
    MakeOpenBlock();
    Put(1, 0, 1000);
    OpenBlocks blocks(Disk());
    Quietly([&] {
        blocks->ReadBlockIndexList(1, 7);
        EXPECT_EQ(blocks->RebuildRecSegInfo(1, 0, 0), 0);
        EXPECT_EQ(blocks->RebuildRecSegInfo(1, 0, 1), 0);
    });
    EXPECT_EQ(blocks.Index(), "IFrame[0][0]  1000000000, 0\n"
                              "IFrame[0][1]  1000000000, 0\n"
                              "RecSeg[0][0]  1000, 1000, 0, 96\n");
}

// ---- continuing after the last I-frame

TEST_F(IndexRebuild, ResumesBehindTheLastIFrame) {
    MakeOpenBlock();
    Put(1, 0, 1000);
    Put(1, 2, 1001);
    Put(0, 0, 1002);
    OpenBlocks blocks(Disk());
    Quietly([&] {
        blocks->ReadBlockIndexList(1, 7);
        EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 0), 0);
    });
    Put(1, 0, 1003);
    Put(0, 0, 1004);
    Quietly([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 2), 0); });
    // It begins after channel 2's I-frame at 100: the frame at 200 counts again, which shows in the bytes
    // alone.
    EXPECT_EQ(blocks.Index(), "IFrame[0][0]  1000000000, 0\n"
                              "IFrame[0][1]  1003000000, 300\n"
                              "IFrame[2][0]  1001000000, 100\n"
                              "RecSeg[0][0]  1000, 1004, 0, 496\n"
                              "RecSeg[2][0]  1001, 1001, 100, 196\n");
}

TEST_F(IndexRebuild, ResumesBehindTheLastIFrameOfAChannelThatIsPresent) {
    MakeOpenBlock();
    Put(1, 0, 1000);
    Put(1, 5, 1001); // the head does not name channel 5
    Put(0, 0, 1002);
    OpenBlocks blocks(Disk());
    Quietly([&] {
        blocks->ReadBlockIndexList(1, 7);
        EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 0), 0);
        EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 2), 0);
    });
    // It begins after channel 0's I-frame at 0: that of channel 5 is added again.
    EXPECT_EQ(blocks.Index(), "IFrame[0][0]  1000000000, 0\n"
                              "IFrame[5][0]  1001000000, 100\n"
                              "IFrame[5][1]  1001000000, 100\n"
                              "RecSeg[0][0]  1000, 1002, 0, 296\n"
                              "RecSeg[5][0]  1001, 1001, 100, 196\n");
}

TEST_F(IndexRebuild, ResumeDoesNotPassWhatIsNoFrameAnyMore) {
    MakeOpenBlock();
    Put(1, 0, 1000);
    OpenBlocks blocks(Disk());
    Quietly([&] {
        blocks->ReadBlockIndexList(1, 7);
        EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 0), 0);
    });
    Put(0, 0, 1001);
    Disk().Change<FrameHead_t>(Disk().FrameOffset(1, 0), [](auto& head) { head.sync = 0; });
    Quietly([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 2), 0); });
    EXPECT_EQ(blocks.Index(), "IFrame[0][0]  1000000000, 0\nRecSeg[0][0]  1000, 1000, 0, 96\n");
}

TEST_F(IndexRebuild, ResumesAtTheFirstFrameWithoutIFrames) {
    MakeOpenBlock();
    Put(0, 0, 1000); // passed: it is where an I-frame would be that is in the index already
    Put(0, 0, 1001);
    EXPECT_EQ(Rebuilt(2), "RecSeg[0][0]  1001, 1001, 100, 196\n");
}

TEST_F(IndexRebuild, ResumeDoesNotPassAFrameOfNoChannel) {
    MakeOpenBlock();
    Put(0, 32, 969); // older than the block by 31 seconds: the frames end with it
    Put(0, 0, 1000);
    EXPECT_EQ(Rebuilt(2), "");
}

TEST_F(IndexRebuild, ResumesWhereNoFrameIsAnyMore) {
    MakeOpenBlock();
    Put(1, 0, 1000);
    OpenBlocks blocks(Disk());
    Quietly([&] {
        blocks->ReadBlockIndexList(1, 7);
        EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 0), 0);
        Disk().Put(Disk().FrameOffset(1, 0), FrameHead_t{});
        EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 2), 0); // ends at once
    });
    EXPECT_EQ(blocks.Index(), "IFrame[0][0]  1000000000, 0\nRecSeg[0][0]  1000, 1000, 0, 96\n");
}

TEST_F(IndexRebuild, ResumeLoadsTheIndexThatIsThere) {
    MakeDisk();
    Disk().WriteBlock(
        1, BlockContents::Closed(9, 1000, 1000).IFrame(0, Pts(1000), 0).Segment(0, 1000, 1000, 96, 0));
    Disk().Change<BlockHead_t>(Disk().HeadOffset(1), [](BlockHead_t& head) { head.media_chn_bitmap = 1; });
    Put(1, 0, 1000);
    Put(0, 0, 1002);
    OpenBlocks blocks(Disk());
    Quietly([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(1, 5, 2), 0); });
    EXPECT_EQ(blocks.Index().substr(0, 45), "IFrame[0][0]  1000000000, 0\nRecSeg[0][0]  100");
    EXPECT_NE(blocks.Index().find("1002"), std::string::npos);
}

TEST_F(IndexRebuild, ResumesOnlyInsideItsBlock) {
    // 840 bytes of head area, the position and 24 bytes of a frame's head may fill the block, no more. What
    // follows the block looks like a frame.
    struct Case {
        uint32_t pos;
        int result;
    };
    for (const Case& test : {Case{0x10000 - 840 - 24, 0},
                             {0x10000 - 840 - 23, -1},
                             {0x10000, -1},
                             {0xFFFFFCCC, -1},
                             {0xFFFFFFFF, -1}}) {
        const uint32_t pos = test.pos;
        const int result = test.result;
        MakeDisk();
        Disk().WriteBlock(1, BlockContents::Closed(9, 1000, 1000).Channels(1).IFrame(0, Pts(1000), pos));
        if (pos % 8 == 0) { // its type is where the tail has its number
            Disk().Put(Disk().FrameOffset(1, pos), FrameHead_t{Pts(1001), BLOCK_MAGIC, 9, 0, 0});
        }
        Disk().Truncate(Disk().BlockStart(1) + 0x200000000);
        OpenBlocks blocks(Disk());
        const std::string messages =
            PrintedWithoutLines([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(1, 4, 2), result) << pos; });
        EXPECT_EQ(messages, result == 0
                                ? "RebuildRecSegInfo, Rebuild Index Block=1(9):\n  [0] rec count = 0\n"
                                : "RebuildRecSegInfo : #, Failed\n");
        std::remove(File("disk").c_str());
    }
}

// ---- failures

TEST_F(IndexRebuild, OfMediaOnlyTheHeadsAreRead) {
    MakeOpenBlock();
    Put(0, 0, 1000, kFrameArea - 24);
    Disk().Truncate(Disk().FrameOffset(1, 0) + 24);
    OpenBlocks blocks(Disk());
    Quietly([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 0), 0); });
    EXPECT_EQ(blocks.Index(), "RecSeg[0][0]  1000, 1000, 0, " + std::to_string(kFrameArea - 4) + "\n");
}

TEST_F(IndexRebuild, FailsWhereAReadDoes) {
    MakeOpenBlock();
    Put(1, 0, 1000);
    PutEvent(1001, 1, 1);
    // seek and read of the head; of the first frame; of the event's head; the event's own start.
    for (size_t failing = 0; failing < 7; ++failing) {
        OpenBlocks blocks(Disk());
        const SystemCallLog log(
            [failing](const Call&, size_t index) { return index == failing ? Fate::Failing() : Fate(); });
        EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(1, 0, 0), -1) << failing; }),
                  failing < 2 ? "GetBlockInfo : #, Failed\n" : "");
    }
}

TEST_F(IndexRebuild, ResumeReportsThatItCannotReadTheLastIFrame) {
    MakeOpenBlock();
    Put(1, 0, 1000);
    // Reads of the head, then head and tail by the index load; the next is that of the I-frame.
    for (const CallKind kind : {CallKind::Seek, CallKind::Read}) {
        OpenBlocks blocks(Disk());
        size_t calls = 0;
        const SystemCallLog log([kind, &calls](const Call& call, size_t) {
            return call.kind == kind && calls++ == 3 ? Fate::Failing() : Fate();
        });
        EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(1, 7, 2), -1); }),
                  "Block 1 Not complete\nRebuildRecSegInfo : #, Failed\n");
    }
}

TEST_F(IndexRebuild, NothingIsMadeOfABlockTooSmall) {
    MakeOpenBlock();
    PartAccess_t access = Disk().Access();
    dev_op_st* const dev = dev_open(&access);
    CSearchBlock blocks(dev, 4000, BLOCK_BASE_OFFSET, 0);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(blocks.RebuildRecSegInfo(0, 0, 0), -1); }), "");
    dev_close(dev);
}

TEST_F(IndexRebuild, RefreshWithoutAFrame) {
    MakeOpenBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->RefreshRecSegInfo(nullptr, 0, nullptr), -1);
    FrameInfo_t event = {static_cast<uint64_t>(Pts(1000)), 4, 0, 76};
    EXPECT_EQ(blocks->RefreshRecSegInfo(&event, 0, nullptr), 0);
    EXPECT_EQ(blocks.Index(), "");
}

} // namespace
