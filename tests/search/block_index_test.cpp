#include <cstring>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

class BlockIndex : public SearchFixture {
protected:
    /// Block 1: two I-frames and a segment of channel 0, one I-frame and two segments of channel 3, two
    /// events.
    void WriteFullBlock(uint32_t block = 1) {
        Disk().WriteBlock(block, BlockContents::Closed(4, 1000, 1900)
                                     .IFrame(0, 1000000001, 0)
                                     .IFrame(0, 1000000002, 500)
                                     .IFrame(3, 1000000003, 250)
                                     .Segment(0, 1000, 1900, 9000, 0)
                                     .Segment(3, 1100, 1200, 800, 250)
                                     .Segment(3, 1300, 1400, 700, 2000)
                                     .Event(1500000000, 0x4, 4000)
                                     .Event(1600000000, 0x8000000000000001, 5000));
    }

    PartitionImage& MakeExtendedDisk() {
        Format format;
        format.fmtVersion = 1;
        return MakeDisk(format);
    }
};

const char* const kIFrames = "IFrame[0][0]  1000000001, 0\n"
                             "IFrame[0][1]  1000000002, 500\n"
                             "IFrame[3][0]  1000000003, 250\n";
const char* const kSegments = "RecSeg[0][0]  1000, 1900, 0, 9000\n"
                              "RecSeg[3][0]  1100, 1200, 250, 1050\n"
                              "RecSeg[3][1]  1300, 1400, 2000, 2700\n";
const char* const kEvents = "Event[0]  4, 1500000000, 4000\n"
                            "Event[1]  -9223372036854775807, 1600000000, 5000\n";

TEST_F(BlockIndex, LoadsTheTablesThatTheFlagsAskFor) {
    MakeDisk();
    WriteFullBlock();
    const std::string none;
    for (const unsigned int flags : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 0xFFFFFFF8u}) {
        OpenBlocks blocks(Disk());
        EXPECT_EQ(Printed([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, flags), 1); }), "");
        EXPECT_EQ(blocks.Index(), ((flags & 4) != 0 ? kIFrames : none) +
                                      ((flags & 1) != 0 ? kSegments : none) +
                                      ((flags & 2) != 0 ? kEvents : none))
            << flags;
    }
}

TEST_F(BlockIndex, FramesAddedBeforeABlockIsReadCountAsBlockZeros) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Open(4, 1000).Channels(0x1));
    Disk().WriteBlock(1, BlockContents::Open(5, 1000).Channels(0x1));
    OpenBlocks blocks(Disk());
    FrameInfo_t info = {static_cast<uint64_t>(Pts(1000)), 1, 0, 76};
    EXPECT_EQ(blocks->RefreshRecSegInfo(&info, 0, nullptr), 0);
    Quietly([&] { EXPECT_EQ(blocks->ReadBlockIndexList(0, 7), 0); });
    EXPECT_EQ(blocks.Index(), "IFrame[0][0]  1000000000, 0\nRecSeg[0][0]  1000, 1000, 0, 96\n");
    Quietly([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), 0); });
    EXPECT_EQ(blocks.Index(), "");
}

TEST_F(BlockIndex, LoadsTheTablesOfTheExtendedLayout) {
    MakeExtendedDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), 1);
    EXPECT_EQ(blocks.Index(), std::string(kIFrames) + kSegments + kEvents);
}

TEST_F(BlockIndex, TablesLieOneBehindTheOther) {
    MakeDisk();
    // Channel 0 has three I-frames, channel 2 two, no other any: 260 + 3 * 16 = 308, + 2 * 16 = 340.
    auto contents = BlockContents::Closed(4, 1000, 1900).Channels(0x5);
    for (int i = 0; i < 3; ++i) {
        contents.IFrame(0, i, 0);
    }
    contents.IFrame(2, 3, 0).IFrame(2, 4, 0).Segment(2, 1000, 1900, 9000);
    Disk().WriteBlock(0, contents);
    OpenBlocks blocks(Disk());
    const SystemCallLog log;
    EXPECT_EQ(blocks->ReadBlockIndexList(0, 7), 1);
    std::vector<std::pair<int64_t, uint64_t>> reads;
    for (const Call& call : log.Calls()) {
        if (call.kind == CallKind::Read) {
            reads.emplace_back(call.offset - 0x800000, call.length);
        }
    }
    EXPECT_EQ(reads, (std::vector<std::pair<int64_t, uint64_t>>{{0, 840},
                                                                {0xFFEC, 20},
                                                                {0xF000, 260},
                                                                {0xF000 + 260, 48},
                                                                {0xF000 + 308, 32},
                                                                {0xF000 + 340, 20}}));
}

TEST_F(BlockIndex, BlockWithOtherTailIsNotComplete) {
    MakeDisk();
    WriteFullBlock();
    Disk().Change<BlockTail_t>(Disk().TailOffset(1), [](auto& tail) { tail.RecSeq = 3; });
    OpenBlocks blocks(Disk());
    EXPECT_EQ(Printed([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), 0); }), "Block 1 Not complete\n");
    EXPECT_EQ(blocks.Index(), "");
}

TEST_F(BlockIndex, ExtendedTailCanVouchForTheIndex) {
    MakeExtendedDisk();
    WriteFullBlock();
    Disk().Change<BlockTail_t>(Disk().TailOffset(1), [](auto& tail) { tail.RecSeq = 3; });
    OpenBlocks blocks(Disk());
    EXPECT_EQ(Printed([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 2); }), "Block 1 Not complete\n");
    EXPECT_EQ(blocks.Index(), kSegments);
    Disk().Change<BlockTailEx_t>(Disk().TailExOffset(1), [](auto& tail) { tail.RecSeq = 5; });
    EXPECT_EQ(Printed([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 0); }), "Block 1 Not complete\n");
}

TEST_F(BlockIndex, NormalLayoutIsNeverVouchedForByWhatLiesBehindItsTail) {
    MakeDisk();
    WriteFullBlock(1);
    Disk().Change<BlockTail_t>(Disk().TailOffset(1), [](auto& tail) { tail.RecSeq = 3; });
    // After the tail is the next block's head; its first word is not an extended tail.
    Disk().Change<BlockHead_t>(Disk().HeadOffset(2), [](auto& head) { head.ValidFlag = 4; });
    OpenBlocks blocks(Disk());
    Quietly([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 0); });
}

TEST_F(BlockIndex, UnrecordedBlockOfTheNormalLayoutCountsAsCompleteByItsExtendedTail) {
    MakeDisk();
    WriteFullBlock();
    Disk().Change<BlockHead_t>(Disk().HeadOffset(1), [](auto& head) { head.RecSeq = 0; });
    OpenBlocks blocks(Disk());
    EXPECT_EQ(Printed([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 2); }), "Block 1 Not complete\n");
    EXPECT_EQ(blocks.Index(), kSegments);
}

TEST_F(BlockIndex, IncompleteBlockKeepsTheTablesOfAnEarlierCall) {
    MakeDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 3), 1);
    Disk().Change<BlockTail_t>(Disk().TailOffset(1), [](auto& tail) { tail.RecSeq = 3; });
    Quietly([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), 0); });
    EXPECT_EQ(blocks.Index(), std::string(kSegments) + kEvents);
}

TEST_F(BlockIndex, IncompleteBlockOfTheExtendedLayoutKeepsTheTablesToo) {
    MakeExtendedDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 3), 1);
    Disk().Change<BlockTail_t>(Disk().TailOffset(1), [](auto& tail) { tail.RecSeq = 3; });
    Disk().Change<BlockTailEx_t>(Disk().TailExOffset(1), [](auto& tail) { tail.RecSeq = 3; });
    Quietly([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), 0); });
    EXPECT_EQ(blocks.Index(), std::string(kSegments) + kEvents);
}

TEST_F(BlockIndex, AnotherBlockEmptiesTheCountsEvenIfNothingIsLoaded) {
    MakeDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), 1);
    EXPECT_EQ(blocks->ReadBlockIndexList(2, 0), 1); // never recorded: complete, and empty
    EXPECT_EQ(blocks.Index(), "");
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 1);
    EXPECT_EQ(blocks.Index(),
              std::string(kSegments) + kEvents); // the event count came back, its table was kept
}

TEST_F(BlockIndex, FailedReadOfAnotherBlockEmptiesTheCountsToo) {
    MakeDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), 1);
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(blocks->ReadBlockIndexList(65535, 7), -1); }),
              "GetBlockInfo : #, Failed\n");
    EXPECT_EQ(blocks.Index(), "");
}

TEST_F(BlockIndex, TablesNotAskedForStayForTheSameBlock) {
    MakeDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 4), 1);
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 1);
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 2), 1);
    EXPECT_EQ(blocks.Index(), std::string(kIFrames) + kSegments + kEvents);
}

TEST_F(BlockIndex, BlockZeroIsCurrentFromTheStart) {
    MakeDisk();
    WriteFullBlock(0);
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(0, 1), 1);
    EXPECT_EQ(blocks.Index(), kSegments);
}

TEST_F(BlockIndex, EventCountIsTakenOverWithoutTheTable) {
    MakeDisk();
    WriteFullBlock(1);
    Disk().WriteBlock(
        2,
        BlockContents::Closed(5, 2000, 2900).Event(2100000000, 1).Event(2200000000, 2).Event(2300000000, 4));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 2), 1);
    // Three events in this block, none loaded: the two held are the other block's, and no third is made up.
    EXPECT_EQ(blocks->ReadBlockIndexList(2, 1), 1);
    EXPECT_EQ(blocks.Index(), kEvents);
}

TEST_F(BlockIndex, MediaListsGiveNoMoreEventsThanAreHeld) {
    MakeDisk();
    WriteFullBlock(1);
    BlockContents many = BlockContents::Closed(5, 2000, 2900).Channels(1);
    for (int i = 0; i < 100; ++i) {
        many.Event(2100000000 + i, 1);
    }
    Disk().WriteBlock(2, many);
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 3), 1);
    EXPECT_EQ(blocks->ReadBlockIndexList(2, 1), 1); // counts a hundred events, and loads none
    RecordList records;
    EventList ofAll;
    EventList ofOne;
    EXPECT_EQ(blocks->GetAllChnMediaList(2, 0, 0x7FFFFFFF, 0, 0, 0, &records, &ofAll), 0);
    EXPECT_EQ(blocks->GetSigleChnMediaList(2, 0, 0x7FFFFFFF, 0, 0, 0, 0, &records, &ofOne), 0);
    EXPECT_EQ(ofAll.m_nCount, 2);
    EXPECT_EQ(ofOne.m_nCount, 2);
    // If nothing of a block was ever loaded, it has no table.
    OpenBlocks fresh(Disk());
    EventList none;
    EXPECT_EQ(fresh->ReadBlockIndexList(2, 1), 1);
    EXPECT_EQ(fresh->GetAllChnMediaList(2, 0, 0x7FFFFFFF, 0, 0, 0, &records, &none), 0);
    EXPECT_EQ(none.m_nCount, 0);
}

TEST_F(BlockIndex, FewerEventsOfThisBlockHideSomeOfTheOthers) {
    MakeDisk();
    WriteFullBlock(1);
    Disk().WriteBlock(2, BlockContents::Closed(5, 2000, 2900).Event(2100000000, 1));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 2), 1);
    EXPECT_EQ(blocks->ReadBlockIndexList(2, 1), 1);
    EXPECT_EQ(blocks.Index(), "Event[0]  4, 1500000000, 4000\n");
}

TEST_F(BlockIndex, ChannelThatIsNotPresentTakesNoSpace) {
    MakeDisk();
    WriteFullBlock();
    // Channel 1 states five I-frames and nine segments, but is not among the block's channels.
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1), [](auto& index) {
        index.iframeCount[1] = 5;
        index.recSegCount[1] = 9;
    });
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), 1);
    EXPECT_EQ(blocks.Index(), std::string(kIFrames) + kSegments + kEvents);
}

TEST_F(BlockIndex, ChannelThatIsNotPresentIsReadOverByTheNext) {
    MakeDisk();
    WriteFullBlock();
    // Without channel 0, channel 3's tables are looked for where channel 0's begin.
    Disk().Change<BlockHead_t>(Disk().HeadOffset(1), [](auto& head) { head.media_chn_bitmap = 0x8; });
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 4), 1);
    EXPECT_EQ(blocks.Index(), "IFrame[3][0]  1000000001, 0\n");
}

TEST_F(BlockIndex, TableWhoseReadFailedHoldsNothing) {
    MakeDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 1);
    // Channel 3 now has one segment, and it cannot be read: the count of the earlier load stays, but no
    // entry.
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1), [](auto& index) { index.recSegCount[3] = 1; });
    const SystemCallLog log([](const Call& call, size_t index) {
        return call.kind == CallKind::Read && index > 8 ? Fate::Failing() : Fate();
    });
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), -1); }),
              "ReadBlockIndexList : #, Failed\n");
    EXPECT_EQ(blocks.Index(), "RecSeg[0][0]  1000, 1900, 0, 9000\n");
    // A frame that is added begins a segment: there is no last one to extend.
    FrameInfo_t info = {};
    info.pts = 1150000000;
    info.chn = 3;
    info.len = 100;
    EXPECT_EQ(blocks->RefreshRecSegInfo(&info, 4000, nullptr), 0);
    EXPECT_EQ(blocks.Index(), "RecSeg[0][0]  1000, 1900, 0, 9000\nRecSeg[3][0]  1150, 1150, 4000, 4120\n");
}

TEST_F(BlockIndex, IFrameTableWhoseReadFailedHoldsNothing) {
    MakeDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 4), 1);
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1), [](auto& index) { index.iframeCount[0] = 1; });
    const SystemCallLog log([](const Call& call, size_t) {
        return call.kind == CallKind::Read && call.length == 16 ? Fate::Failing() : Fate();
    });
    Quietly([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 4), -1); });
    EXPECT_EQ(blocks.Index(), "IFrame[3][0]  1000000003, 250\n");
}

TEST_F(BlockIndex, EventTableWhoseReadFailedHoldsNothing) {
    MakeDisk();
    WriteFullBlock(1);
    WriteFullBlock(2);
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 2), 1);
    {
        const SystemCallLog log(
            [](const Call& call, size_t) { return call.length == 48 ? Fate::Shortened(40) : Fate(); });
        EXPECT_EQ(blocks->ReadBlockIndexList(2, 2), -1);
    }
    EXPECT_EQ(blocks.Index(), "");
    EXPECT_EQ(blocks->CheckAlarmContition(0, 0x7FFFFFFF, 0), 0);
}

TEST_F(BlockIndex, FailuresOfReadsAreReportedButForEvents) {
    MakeDisk();
    WriteFullBlock();
    // Head, tail, index head, two I-frame tables, two segment tables, events: a seek and a read each.
    for (size_t failing = 0; failing < 16; ++failing) {
        OpenBlocks blocks(Disk());
        const SystemCallLog log(
            [failing](const Call&, size_t index) { return index == failing ? Fate::Failing() : Fate(); });
        const std::string expected = failing < 4    ? "GetBlockInfo : #, Failed\n"
                                     : failing < 14 ? "ReadBlockIndexList : #, Failed\n"
                                                    : "";
        EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), -1); }), expected)
            << failing;
        EXPECT_EQ(log.Calls().size(), failing + 1);
    }
}

TEST_F(BlockIndex, FailureOfTheExtendedTailsReadFails) {
    MakeExtendedDisk();
    WriteFullBlock();
    Disk().Change<BlockTail_t>(Disk().TailOffset(1), [](auto& tail) { tail.RecSeq = 3; });
    OpenBlocks blocks(Disk());
    const SystemCallLog log([](const Call&, size_t index) { return index == 4 ? Fate::Failing() : Fate(); });
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), -1); }),
              "Block 1 Not complete\nGetBlockInfo : #, Failed\n");
}

TEST_F(BlockIndex, CountsOfAFailedLoadBelongToTheTablesLoadedBefore) {
    MakeDisk();
    WriteFullBlock();
    OpenBlocks blocks(Disk());
    const SystemCallLog log(
        [](const Call& call, size_t) { return call.length == 40 ? Fate::Failing() : Fate(); }); // channel 3
    Quietly([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), -1); });
    EXPECT_EQ(blocks.Index(), std::string(kIFrames) + "RecSeg[0][0]  1000, 1900, 0, 9000\n");
}

TEST_F(BlockIndex, TableThatWouldNotEndWithinTheBlockIsNotLoaded) {
    MakeDisk();
    WriteFullBlock();
    const auto good = Disk().Get<BlkIndexHead_t>(Disk().IndexOffset(1));
    // Counts that are just too many, that wrap in 32 bits to a few bytes, and that ask for gigabytes. The
    // index area takes 4096 bytes, 260 of them its head.
    const uint32_t hostile[] = {300, 0x10000001, 0x0CCCCCCD, 0x0AAAAAAB, 0x20000000, 0xFFFFFFFF};
    for (const uint32_t count : hostile) {
        for (int field = 0; field < 3; ++field) {
            BlkIndexHead_t index = good;
            (field == 0   ? index.iframeCount[0]
             : field == 1 ? index.recSegCount[3]
                          : index.eventCount) = count;
            Disk().Put(Disk().IndexOffset(1), index);
            OpenBlocks blocks(Disk());
            EXPECT_EQ(Printed([&] { EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), -1); }), "")
                << count << field;
        }
    }
}

TEST_F(BlockIndex, TablesMayFillTheBlockToItsEnd) {
    MakeDisk();
    WriteFullBlock();
    // (4096 - 260) / 16 = 239.75 I-frames.
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1), [](auto& index) {
        index = {};
        index.iframeCount[0] = 239;
    });
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 4), 1);
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1), [](auto& index) { index.iframeCount[0] = 240; });
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 4), -1);
}

TEST_F(BlockIndex, HostileCountsOfTablesNotAskedForDoNoHarm) {
    MakeDisk();
    WriteFullBlock();
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1), [](auto& index) { index.eventCount = 0xFFFFFFFF; });
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 1);
    EXPECT_EQ(blocks.Index(), kSegments);
    EXPECT_EQ(blocks->CheckAlarmContition(0, 0x7FFFFFFF, 0), 0);
}

TEST_F(BlockIndex, TablesAreJudgedOneByOneAsTheyAreAskedFor) {
    MakeDisk();
    WriteFullBlock();
    const auto good = Disk().Get<BlkIndexHead_t>(Disk().IndexOffset(1));
    struct Case {
        BlkIndexHead_t index;
        const char* results; ///< of flags 0 to 7: 1, or - for -1
    };
    std::vector<Case> cases(6, {good, ""});
    // A table is wanted by its flag: 1 segments, 2 events, 4 I-frames. One that is not wanted still moves those
    // after it, and beyond the block nothing can be wanted.
    cases[0] = {good, "11111111"};
    cases[1].index.eventCount = 0xFFFFFFFF; // the last one moves nothing
    cases[1].results = "11--11--";
    cases[2].index.recSegCount[3] = 0xFFFFFFFF;
    cases[2].results = "1---1---";
    cases[3].index.iframeCount[3] = 0xFFFFFFFF;
    cases[3].results = "1-------";
    // Without events, nothing lies after the segments.
    cases[4].index.recSegCount[3] = 192;
    cases[4].index.eventCount = 0;
    cases[4].results = "1-1-1-1-";
    // Terabytes of tables: in 32 bits their sum would wrap to almost nothing.
    cases[5].index = {};
    std::memset(&cases[5].index, 0xFF, sizeof good);
    cases[5].results = "1-------";
    for (const Case& test : cases) {
        Disk().Put(Disk().IndexOffset(1), test.index);
        std::string results;
        for (unsigned int flags = 0; flags < 8; ++flags) {
            OpenBlocks blocks(Disk());
            Quietly([&] { results += blocks->ReadBlockIndexList(1, flags) == 1 ? '1' : '-'; });
        }
        EXPECT_EQ(results, test.results);
    }
}

TEST_F(BlockIndex, ForgedEventsDoNotHideTheRecordsOfASearchThatNeedsNone) {
    MakeDisk();
    WriteFullBlock();
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1), [](auto& index) { index.eventCount = 0xFFFFFFFF; });
    OpenBlocks blocks(Disk());
    RecordList records;
    EventList events;
    EXPECT_EQ(blocks->GetMediaList(1, 0, 0x7FFFFFFF, kAll, 0, 0, &records, nullptr), 3);
    EXPECT_EQ(blocks->GetMediaList(1, 0, 0x7FFFFFFF, kAll, 0, 0, &records, &events), -1);
    EXPECT_EQ(blocks->GetEventList(1, 0, 0x7FFFFFFF, 1, &events), -1);
    EXPECT_EQ(records.m_nCount, 3);
    EXPECT_EQ(events.m_nCount, 0);
}

TEST_F(BlockIndex, BlockTooSmallForItsIndexHasNone) {
    MakeDisk();
    OpenBlocks blocks(Disk());
    PartAccess_t access = Disk().Access();
    dev_op_st* const dev = dev_open(&access);
    for (const uint32_t size : {0u, 19u, 4095u, 4935u}) {
        CSearchBlock small(dev, size, BLOCK_BASE_OFFSET, 0);
        EXPECT_EQ(small.ReadBlockIndexList(0, 7), -1) << size;
    }
    dev_close(dev);
}

TEST_F(BlockIndex, LookingAtABlocksChannelsMakesItCurrentWithoutEmptyingTheCounts) {
    MakeDisk();
    WriteFullBlock(1);
    Disk().WriteBlock(2, BlockContents::Closed(5, 2000, 2900).Segment(0, 2000, 2100, 10, 0));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 5), 1);
    EXPECT_EQ(blocks->GetUnitRecMap(2), 1);
    // Block 2 is current now: its load overwrites the one table it has, the rest is still block 1's.
    EXPECT_EQ(blocks->ReadBlockIndexList(2, 1), 1);
    EXPECT_EQ(blocks.Index(), std::string(kIFrames) + "RecSeg[0][0]  2000, 2100, 0, 10\n"
                                                      "RecSeg[3][0]  1100, 1200, 250, 1050\n"
                                                      "RecSeg[3][1]  1300, 1400, 2000, 2700\n");
}

TEST_F(BlockIndex, NegativeAndLargeFieldsPrintAsSignedNumbers) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(4, 1000, 1900)
                             .IFrame(0, -1, 0xFFFFFFFF)
                             .Segment(0, 0x80000000, 0xFFFFFFFF, 2, 0xFFFFFFFE)
                             .Event(-5, 0xFFFFFFFFFFFFFFFF, 0x80000000));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(0, 7), 1);
    EXPECT_EQ(blocks.Index(), "IFrame[0][0]  -1, -1\n"
                              "RecSeg[0][0]  -2147483648, -1, -2, 0\n"
                              "Event[0]  -1, -5, -2147483648\n");
}

} // namespace
