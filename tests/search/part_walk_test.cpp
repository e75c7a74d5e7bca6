#include "search/search_fixture.h"

namespace {

using namespace test_support;

class PartWalk : public SearchFixture {
protected:
    Lines Media(OpenPart& part, uint32_t start, uint32_t end, uint32_t chn = kAll, uint32_t skip = 0,
                uint64_t mask = 0) {
        SearchParam_t param = {mask, start, end, chn};
        RecordList records;
        m_messages = PrintedWithoutLines(
            [&] { EXPECT_EQ(part->SearchMedia(&param, skip, &records), records.m_nCount); });
        return Describe(records);
    }

    Lines Media(uint32_t start, uint32_t end, uint32_t chn = kAll, uint32_t skip = 0) {
        OpenPart part(Disk());
        return Media(part, start, end, chn, skip);
    }

    Lines Events(uint32_t start, uint32_t end, uint64_t mask = 0xFFFFFFFFFFFFFFFF) {
        OpenPart part(Disk());
        SearchParam_t param = {mask, start, end, kAll};
        EventList events;
        m_messages =
            PrintedWithoutLines([&] { EXPECT_EQ(part->SearchEvent(&param, &events), events.m_nCount); });
        return Describe(events);
    }

    /// Closed blocks with numbers 1 to 8, each with one event of type 1 << block in its middle.
    void WriteRingWithEvents() {
        for (uint32_t block = 0; block < 8; ++block) {
            const uint32_t start = (block + 1) * 1000;
            Disk().WriteBlock(block, BlockContents::Closed(block + 1, start, start + 900)
                                         .Segment(0, start, start + 900, 9000)
                                         .Event(Pts(start + 500), 1u << block));
        }
    }

    std::string m_messages;
};

// ---- records

TEST_F(PartWalk, RecordsOfARange) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(Media(4500, 5400), (Lines{"3/0/0 4500-4900 size 4000 alarm 0 flag 0",
                                        "4/0/0 5000-5400 size 4000 alarm 0 flag 0"}));
    EXPECT_EQ(m_messages, "GetLastBlock LastBlockNum = 7, RecordNum = 8\n"
                          "InitSearch Blk(0~7), Ret = 2, (4500~5400)\n"
                          "GetSearchStartBlock StartSearchBlock = 3\n"
                          "SearchNormalMedia , BlockCount = 5\n");
}

TEST_F(PartWalk, RecordsOfEverything) {
    MakeDisk();
    WriteRing({1, 2, 3});
    EXPECT_EQ(Media(0, 0x7FFFFFFF),
              (Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0", "1/0/0 2000-2900 size 9000 alarm 0 flag 0",
                     "2/0/0 3000-3900 size 9000 alarm 0 flag 0"}));
    EXPECT_EQ(m_messages.substr(m_messages.find("InitSearch")), "InitSearch Blk(0~2), Ret = 3, (1000~3000)\n"
                                                                "GetSearchStartBlock StartSearchBlock = 0\n"
                                                                "SearchNormalMedia , BlockCount = 3\n");
}

TEST_F(PartWalk, EndIsTheRequestsOwnNotTheClippedOne) {
    MakeDisk();
    WriteRing({1, 2, 3});
    // The region ends at the newest block's start, but the records continue.
    EXPECT_EQ(Media(2500, 3500), (Lines{"1/0/0 2500-2900 size 4000 alarm 0 flag 0",
                                        "2/0/0 3000-3500 size 5000 alarm 0 flag 0"}));
}

TEST_F(PartWalk, RequestAfterTheNewestStartSearchesTheNewestBlock) {
    MakeDisk();
    WriteRing({1, 2, 3});
    EXPECT_EQ(Media(3500, 3700), Lines{"2/0/0 3500-3700 size 2000 alarm 0 flag 0"});
    EXPECT_EQ(m_messages.substr(m_messages.find("InitSearch")), "InitSearch Blk(0~2), Ret = 0, (3500~3700)\n"
                                                                "GetSearchStartBlock StartSearchBlock = 2\n"
                                                                "SearchNormalMedia , BlockCount = 1\n");
}

TEST_F(PartWalk, StartIsTheClippedOne) {
    MakeDisk();
    WriteRing({1, 2, 3});
    // Recorded before the oldest block was opened: outside the region, even if the request includes it.
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1900)
                             .Segment(0, 500, 600, 100)
                             .Segment(0, 900, 1100, 2000)
                             .Event(Pts(700), 1)
                             .Event(Pts(1000), 2)
                             .Event(Pts(1001), 4));
    EXPECT_EQ(Media(0, 1500), Lines{"0/0/1 1000-1100 size 1000 alarm 0 flag 0"});
    EXPECT_EQ(Events(0, 1500), Lines{"0/2 1001 type 4"});
}

TEST_F(PartWalk, RequestBeforeTheOldestFindsNothing) {
    MakeDisk();
    WriteRing({1, 2, 3});
    EXPECT_EQ(Media(0, 1000), Lines{});
    EXPECT_EQ(m_messages.substr(m_messages.find("InitSearch")), "InitSearch Blk(0~2), Ret = -1, (0~0)\n");
}

TEST_F(PartWalk, RequestThatEndsAfterJanuary2038FindsNothing) {
    MakeDisk();
    WriteRing({1, 2, 3});
    EXPECT_EQ(Media(0, 0xFFFFFFFF), Lines{});
    EXPECT_EQ(Media(0, 0x80000000), Lines{});
    EXPECT_EQ(Media(0, 0x7FFFFFFF).size(), 3u);
}

TEST_F(PartWalk, WholeRingCountsAllBlocks) {
    MakeDisk();
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    const Lines lines = Media(0, 0x7FFFFFFF);
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines.front(), "3/0/0 4000-4900 size 9000 alarm 0 flag 0");
    EXPECT_EQ(lines.back(), "2/0/0 11000-11900 size 9000 alarm 0 flag 0");
    EXPECT_NE(m_messages.find("SearchNormalMedia , BlockCount = 8\n"), std::string::npos);
}

TEST_F(PartWalk, ChannelAndSkippedChannels) {
    MakeDisk();
    Disk().WriteBlock(
        0, BlockContents::Closed(1, 1000, 1900).Segment(0, 1000, 1900, 900).Segment(3, 1000, 1900, 900));
    Disk().WriteBlock(1, BlockContents::Closed(2, 2000, 2900).Segment(3, 2000, 2900, 900));
    EXPECT_EQ(Media(0, 5000, 3),
              (Lines{"0/3/0 1000-1900 size 900 alarm 0 flag 0", "1/3/0 2000-2900 size 900 alarm 0 flag 0"}));
    EXPECT_EQ(Media(0, 5000, kAll, 0x8), Lines{"0/0/0 1000-1900 size 900 alarm 0 flag 0"});
    EXPECT_EQ(Media(0, 5000, 7), Lines{});
    EXPECT_EQ(Media(0, 5000, 32), Lines{});
}

TEST_F(PartWalk, BadInvalidAndUnrecordedBlocksArePassedOver) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    Disk().SetBad(1);
    Disk().SetSuspect(2, 3);
    Disk().Change<BlockHead_t>(Disk().HeadOffset(3), [](auto& head) { head.ValidFlag = 0; });
    Disk().Change<BlockHead_t>(Disk().HeadOffset(4), [](auto& head) { head.RecTime = 0; });
    const Lines lines = Media(0, 0x7FFFFFFF);
    EXPECT_EQ(
        lines,
        (Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0", "5/0/0 6000-6900 size 9000 alarm 0 flag 0",
               "6/0/0 7000-7900 size 9000 alarm 0 flag 0", "7/0/0 8000-8900 size 9000 alarm 0 flag 0"}));
}

TEST_F(PartWalk, StopsAtTheFirstEmptyBlockBehindTheRequest) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5});
    // Block 2 was recorded with a clock that ran ahead; block 3 would match again.
    Disk().WriteBlock(2, BlockContents::Closed(3, 9000, 9900).Segment(0, 9000, 9900, 9000));
    EXPECT_EQ(Media(0, 4500), (Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0",
                                     "1/0/0 2000-2900 size 9000 alarm 0 flag 0"}));
}

TEST_F(PartWalk, BlockAfterJanuary2038IsBehindEveryRequest) {
    MakeDisk();
    WriteRing({1, 2, 3});
    Disk().Change<BlockTail_t>(Disk().TailOffset(1), [](auto& tail) { tail.StartTime = 0x80000000; });
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1), [](auto& index) { index = {}; });
    EXPECT_EQ(Media(0, 0x7FFFFFFF), Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0"});
    Disk().WriteBlock(2, BlockContents::Closed(3, 3000, 3900).Event(Pts(3500), 1));
    EXPECT_EQ(Events(0, 0x7FFFFFFF), Lines{});
}

TEST_F(PartWalk, RequestThatEndsWhereAnEmptyBlockStartsGoesOn) {
    MakeDisk();
    WriteRing({1, 2, 3, 4});
    Disk().WriteBlock(1, BlockContents::Closed(2, 3500, 3900)); // no segments
    // end < StartTime fails by one: the walk passes over the block.
    EXPECT_EQ(Media(0, 3499), Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0"});
    EXPECT_EQ(Media(0, 3500), (Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0",
                                     "2/0/0 3000-3500 size 5000 alarm 0 flag 0"}));
}

TEST_F(PartWalk, EmptyClosedBlockIsPassedOver) {
    MakeDisk();
    WriteRing({1, 2, 3, 4});
    Disk().WriteBlock(1, BlockContents::Closed(2, 2000, 2900));
    EXPECT_EQ(Media(0, 0x7FFFFFFF).size(), 3u);
}

TEST_F(PartWalk, EmptyOpenBlockEndsTheWalk) {
    MakeDisk();
    WriteRing({1, 2, 3, 4});
    Disk().WriteBlock(1, BlockContents::Open(2, 2000)); // no channels: no coarse record
    EXPECT_EQ(Media(0, 0x7FFFFFFF), Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0"});
    EXPECT_NE(m_messages.find("Block 1 Not complete\n"), std::string::npos);
}

TEST_F(PartWalk, OpenBlockGivesCoarseRecordsAndTheWalkGoesOn) {
    MakeDisk();
    WriteRing({1, 2, 3});
    Disk().WriteBlock(1, BlockContents::Open(2, 2000).Channels(0x3));
    EXPECT_EQ(
        Media(0, 0x7FFFFFFF),
        (Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0", "1/0/0 2000-45200 size 62914560 alarm 0 flag 1",
               "1/1/0 2000-45200 size 62914560 alarm 0 flag 1", "2/0/0 3000-3900 size 9000 alarm 0 flag 0"}));
}

TEST_F(PartWalk, BlockWhoseIndexCannotBeLoadedCountsAsEmpty) {
    MakeDisk();
    WriteRing({1, 2, 3});
    Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(1),
                                  [](auto& index) { index.recSegCount[0] = 0xFFFFFFFF; });
    EXPECT_EQ(Media(0, 0x7FFFFFFF), (Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0",
                                           "2/0/0 3000-3900 size 9000 alarm 0 flag 0"}));
}

TEST_F(PartWalk, TailThatCannotBeReadLeavesTheOneBeforeToDecide) {
    MakeDisk();
    WriteRing({1, 2, 3});
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1900)); // empty: its tail is read
    Disk().WriteBlock(1, BlockContents::Closed(2, 2000, 2900));
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    const auto tailOfBlock1 = static_cast<int64_t>(Disk().TailOffset(1));
    const SystemCallLog log([=](const Call& call, size_t) {
        return call.kind == CallKind::Read && call.offset == tailOfBlock1 ? Fate::Failing() : Fate();
    });
    // Block 0's tail says 1, block 1's head 2: taken for the block being written.
    EXPECT_EQ(Media(part, 0, 0x7FFFFFFF), Lines{});
}

TEST_F(PartWalk, DeviceThatFailsThroughoutFindsNothing) {
    MakeDisk();
    WriteRing({1, 2, 3});
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    {
        const SystemCallLog log([](const Call&, size_t) { return Fate::Failing(); });
        EXPECT_EQ(Media(part, 0, 0x7FFFFFFF), Lines{});
    }
    EXPECT_EQ(Media(part, 0, 0x7FFFFFFF).size(), 3u);
}

TEST_F(PartWalk, WithoutTablesTheWalkEndsAtOnce) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0x7FFFFFF0; });
    EXPECT_EQ(Media(0, 0x7FFFFFFF), Lines{});
    EXPECT_NE(m_messages.find("SearchNormalMedia , BlockCount = 1\n"), std::string::npos);
    OpenPart part(Disk());
    RecordList records;
    EventList events;
    UnitList units;
    const SystemCallLog log;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->SearchNormalMedia(0, 100, kAll, 0, 0, 1, &records), 0); }),
              "GetSearchStartBlock StartSearchBlock = 0\nSearchNormalMedia , BlockCount = 1\n");
    EXPECT_EQ(log.Calls().size(), 1u); // the device's size was asked for, and the tables were not tried again
}

TEST_F(PartWalk, NoRingHasNothingToWalk) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    EXPECT_EQ(Media(0, 0x7FFFFFFF), Lines{});
    EXPECT_EQ(m_messages, "InitSearch Blk(0~0), Ret = 3, (0~0)\nGetSearchStartBlock StartSearchBlock = 0\n"
                          "SearchNormalMedia , BlockCount = 0\n");
    EXPECT_EQ(Events(0, 0x7FFFFFFF), Lines{});
}

TEST_F(PartWalk, RingOfBillionsCountsAsNegative) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0xFFFFFFFF; });
    OpenPart part(Disk());
    RecordList records;
    // From the oldest, block 0, to the newest, block 0: one block; without tables it is no block.
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->SearchNormalMedia(0, 100, kAll, 0, 0, 3, &records), 0); }),
              "GetSearchStartBlock StartSearchBlock = 0\nSearchNormalMedia , BlockCount = 1\n");
}

TEST_F(PartWalk, AlarmMaskKeepsOnlySegmentsWithAnEventHeld) {
    MakeDisk();
    WriteRingWithEvents();
    OpenPart part(Disk());
    EXPECT_EQ(Media(part, 0, 0x7FFFFFFF, kAll, 0, 1), Lines{}); // a media search loads no events
    // After a look at block 2's events, its table tags what comes: one event of type 4 at 3500.
    EventList events;
    RecordList records;
    EXPECT_EQ(part->SearchUnitMedia(2, 0, &records, &events), 1);
    EXPECT_EQ(Media(part, 0, 0x7FFFFFFF, kAll, 0, 4), Lines{"2/0/0 3000-3900 size 9000 alarm 4 flag 0"});
}

// ---- events

TEST_F(PartWalk, EventsOfARange) {
    MakeDisk();
    WriteRingWithEvents();
    EXPECT_EQ(Events(3500, 6500), (Lines{"3/0 4500 type 8", "4/0 5500 type 10"}));
    EXPECT_EQ(m_messages, "GetLastBlock LastBlockNum = 7, RecordNum = 8\n"
                          "InitSearch Blk(0~7), Ret = 2, (3500~6500)\n"
                          "GetSearchStartBlock StartSearchBlock = 2\n"
                          "SearchNormalEvent , BlockCount = 6\n");
    EXPECT_EQ(Events(3499, 6501),
              (Lines{"2/0 3500 type 4", "3/0 4500 type 8", "4/0 5500 type 10", "5/0 6500 type 20"}));
    EXPECT_EQ(Events(0, 0x7FFFFFFF, 0x81), (Lines{"0/0 1500 type 1", "7/0 8500 type 80"}));
    EXPECT_EQ(Events(0, 0x7FFFFFFF, 0), Lines{});
}

TEST_F(PartWalk, EventRequestAfterTheNewestStartFindsNone) {
    MakeDisk();
    WriteRingWithEvents();
    EXPECT_EQ(Events(8001, 9000), Lines{}); // though the newest block holds one at 8500
    EXPECT_EQ(m_messages, "GetLastBlock LastBlockNum = 7, RecordNum = 8\n"
                          "InitSearch Blk(0~7), Ret = 0, (8001~9000)\n");
    // From the newest block's own start on it is found, with the whole ring searched for want of a start
    // block.
    EXPECT_EQ(Events(8000, 9000), Lines{"7/0 8500 type 80"});
    EXPECT_EQ(Events(0, 1000), Lines{});
}

TEST_F(PartWalk, EventWalkStopsBehindTheRequestOnly) {
    MakeDisk();
    WriteRingWithEvents();
    // An open block without events, in the middle: its head differs from its tail, which stops nothing here.
    Disk().WriteBlock(3, BlockContents::Open(4, 4000));
    EXPECT_EQ(Events(0, 0x7FFFFFFF).size(), 7u);
    // A block after the request ends the walk.
    Disk().WriteBlock(3, BlockContents::Closed(4, 9500, 9900));
    EXPECT_EQ(Events(0, 9499).size(), 3u);
    EXPECT_EQ(Events(0, 9500).size(), 7u);
}

TEST_F(PartWalk, EventWalkStopsAtABlockBehindTheRequestWhoseEventsAreToo) {
    MakeDisk();
    WriteRingWithEvents();
    // Block 3 was recorded with a clock that ran ahead; block 4 would match again.
    Disk().WriteBlock(3, BlockContents::Closed(4, 9500, 9900).Event(Pts(9600), 8));
    EXPECT_EQ(Events(0, 7000), (Lines{"0/0 1500 type 1", "1/0 2500 type 2", "2/0 3500 type 4"}));
}

TEST_F(PartWalk, EventWalkLooksAtBlocksThatHoldNoData) {
    MakeDisk();
    WriteRingWithEvents();
    Disk().Change<BlockHead_t>(Disk().HeadOffset(2), [](auto& head) { head.ValidFlag = 0; });
    Disk().Change<BlockHead_t>(Disk().HeadOffset(4), [](auto& head) { head.RecTime = 0; });
    Disk().SetBad(6);
    EXPECT_EQ(Events(0, 0x7FFFFFFF),
              (Lines{"0/0 1500 type 1", "1/0 2500 type 2", "2/0 3500 type 4", "3/0 4500 type 8",
                     "4/0 5500 type 10", "5/0 6500 type 20", "7/0 8500 type 80"}));
}

// ---- one block

TEST_F(PartWalk, UnitGivesAllRecordsAndEvents) {
    MakeDisk();
    Disk().WriteBlock(2, BlockContents::Closed(1, 1000, 1900)
                             .Segment(0, 1000, 1900, 900)
                             .Segment(3, 1000, 1900, 900)
                             .Event(Pts(1500), 0x4)
                             .Event(Pts(1600), 0x1));
    OpenPart part(Disk());
    RecordList records;
    EventList events;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->SearchUnitMedia(2, 0x1, &records, &events), 1); }), "");
    EXPECT_EQ(Describe(records), Lines{"2/3/0 1000-1900 size 900 alarm 4 flag 0"});
    EXPECT_EQ(Describe(events), (Lines{"2/0 1500 type 4", "2/1 1600 type 1"}));
    EXPECT_EQ(part->SearchUnitMedia(2, 0, &records, nullptr), 2);
}

TEST_F(PartWalk, UnitIsSearchedFromSecondZero) {
    MakeDisk();
    Disk().WriteBlock(2, BlockContents::Closed(1, 0, 900).Segment(0, 0, 900, 9000));
    OpenPart part(Disk());
    RecordList records;
    EXPECT_EQ(part->SearchUnitMedia(2, 0, &records, nullptr), 1);
    EXPECT_EQ(Describe(records), Lines{"2/0/0 0-900 size 9000 alarm 0 flag 0"});
}

TEST_F(PartWalk, UnitIsSearchedToADayBeforeTheEndOfTime) {
    MakeDisk();
    Disk().WriteBlock(2, BlockContents::Closed(1, 1000, 1900)
                             .Segment(0, 2147397247, 2147397300, 53)
                             .Segment(1, 2147397200, 2147397300, 100)
                             .Event(Pts(2147397247), 1)
                             .Event(Pts(2147397246), 2));
    OpenPart part(Disk());
    RecordList records;
    EventList events;
    EXPECT_EQ(part->SearchUnitMedia(2, 0, &records, &events), 1);
    EXPECT_EQ(Describe(records), Lines{"2/1/0 2147397200-2147397247 size 47 alarm 1 flag 0"});
    EXPECT_EQ(Describe(events), Lines{"2/1 2147397246 type 2"});
}

TEST_F(PartWalk, UnitThatCannotBeReadFails) {
    OpenPart part(MakeDisk());
    RecordList records;
    Quietly([&] { EXPECT_EQ(part->SearchUnitMedia(65535, 0, &records, nullptr), -1); });
    CSearchPart closed;
    EXPECT_EQ(closed.SearchUnitMedia(0, 0, &records, nullptr), -1);
}

TEST_F(PartWalk, ClosedObjectFindsNothing) {
    CSearchPart closed;
    SearchParam_t param = {1, 0, 100, kAll};
    RecordList records;
    EventList events;
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(closed.SearchMedia(&param, 0, &records), 0);
                  EXPECT_EQ(closed.SearchEvent(&param, &events), 0);
                  EXPECT_EQ(closed.SearchNormalMedia(0, 100, kAll, 0, 0, 1, &records), 0);
                  EXPECT_EQ(closed.SearchNormalEvent(0, 100, 1, 1, &events), 0);
              }),
              "");
}

TEST_F(PartWalk, ListsAreAppendedToAndNeverEmptied) {
    MakeDisk();
    WriteRing({1, 2});
    OpenPart part(Disk());
    SearchParam_t param = {0, 0, 0x7FFFFFFF, kAll};
    RecordList records;
    Quietly([&] {
        EXPECT_EQ(part->SearchMedia(&param, 0, &records), 2);
        EXPECT_EQ(part->SearchMedia(&param, 0, &records), 2);
    });
    EXPECT_EQ(records.m_nCount, 4);
}

} // namespace
