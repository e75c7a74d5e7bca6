#include "search/search_fixture.h"

namespace {

using namespace test_support;

constexpr int32_t kEndOfTime = 0x7FFFFFFF;

class BlockMedia : public SearchFixture {
protected:
    /// The records of block 1 in [start, end], as lines.
    Lines Media(OpenBlocks& blocks, long start, long end, uint32_t chn = kAll, uint32_t skip = 0,
                long long mask = 0, EventList* events = nullptr) {
        RecordList records;
        m_result = blocks->GetMediaList(1, start, end, chn, skip, mask, &records, events);
        if (m_result >= 0) {
            EXPECT_EQ(records.m_nCount, m_result);
        } else {
            EXPECT_EQ(records.m_nCount, 0);
        }
        return Describe(records);
    }

    /// The same on an object of its own.
    Lines Media(long start, long end, uint32_t chn = kAll, uint32_t skip = 0, long long mask = 0) {
        OpenBlocks blocks(Disk());
        return Media(blocks, start, end, chn, skip, mask);
    }

    /// Block 1 with one segment of channel 0 from 100 to 200, 1050 bytes: 10 a second.
    void WriteOneSegment(uint32_t start = 100, uint32_t end = 200) {
        Disk().WriteBlock(1, BlockContents::Closed(1, start, end).Segment(0, start, end, 1050, 77));
    }

    int m_result = 0;
};

// ---- clipping a segment

TEST_F(BlockMedia, WholeSegmentKeepsItsBytes) {
    MakeDisk();
    WriteOneSegment();
    EXPECT_EQ(Media(100, 300), Lines{"1/0/0 100-200 size 1050 alarm 0 flag 0"});
    EXPECT_EQ(Media(0, kEndOfTime), Lines{"1/0/0 100-200 size 1050 alarm 0 flag 0"});
}

TEST_F(BlockMedia, ClippedSegmentTakesItsShareOfTheBytes) {
    MakeDisk();
    WriteOneSegment();
    // 1050 / 100 = 10 bytes a second; the division comes first.
    EXPECT_EQ(Media(150, 300), Lines{"1/0/0 150-200 size 500 alarm 0 flag 0"});
    EXPECT_EQ(Media(0, 150), Lines{"1/0/0 100-150 size 500 alarm 0 flag 0"});
    EXPECT_EQ(Media(120, 170), Lines{"1/0/0 120-170 size 500 alarm 0 flag 0"});
}

TEST_F(BlockMedia, SegmentThatEndsOneSecondAfterTheSearchKeepsItsEnd) {
    MakeDisk();
    WriteOneSegment();
    EXPECT_EQ(Media(0, 200), Lines{"1/0/0 100-200 size 1050 alarm 0 flag 0"});
    EXPECT_EQ(Media(0, 199), Lines{"1/0/0 100-200 size 1050 alarm 0 flag 0"});
    EXPECT_EQ(Media(0, 198), Lines{"1/0/0 100-198 size 980 alarm 0 flag 0"});
}

TEST_F(BlockMedia, OverlapIncludesTheSearchStartButNotItsEnd) {
    MakeDisk();
    WriteOneSegment();
    EXPECT_EQ(Media(0, 100), Lines{}); // begins at the search's end
    EXPECT_EQ(Media(0, 101), Lines{}); // one second of it
    EXPECT_EQ(Media(0, 102), (Lines{"1/0/0 100-102 size 20 alarm 0 flag 0"}));
    EXPECT_EQ(Media(201, 300), Lines{}); // ended before
    EXPECT_EQ(Media(200, 300), Lines{}); // its last second: nothing left of it
    EXPECT_EQ(Media(99, 99), Lines{});
}

TEST_F(BlockMedia, PieceMustBeLongerThanOneSecond) {
    MakeDisk();
    WriteOneSegment();
    EXPECT_EQ(Media(199, 300), Lines{});                                         // 199-200
    EXPECT_EQ(Media(198, 300), (Lines{"1/0/0 198-200 size 20 alarm 0 flag 0"})); // 198-200
    EXPECT_EQ(Media(150, 151), Lines{});                                         // 150-151
    EXPECT_EQ(Media(150, 152), (Lines{"1/0/0 150-152 size 20 alarm 0 flag 0"})); // 150-152
    EXPECT_EQ(Media(150, 150), Lines{});
}

TEST_F(BlockMedia, ShortSegmentsAreNotListed) {
    MakeDisk();
    for (const uint32_t end : {100u, 101u}) {
        WriteOneSegment(100, end);
        EXPECT_EQ(Media(0, 1000), Lines{}) << end;
    }
    WriteOneSegment(100, 102);
    EXPECT_EQ(Media(0, 1000), Lines{"1/0/0 100-102 size 1050 alarm 0 flag 0"});
}

TEST_F(BlockMedia, SegmentWithoutLengthDoesNotDivideByZero) {
    MakeDisk();
    WriteOneSegment(100, 100);
    EXPECT_EQ(Media(0, 1000), Lines{});
    EXPECT_EQ(m_result, 0);
}

TEST_F(BlockMedia, BackwardSegmentIsTakenAsItStands) {
    MakeDisk();
    WriteOneSegment(200, 100);
    EXPECT_EQ(Media(0, 1000), Lines{}); // 200 + 1 < 100 fails
}

// ---- times are signed 32-bit numbers, whatever the width of a long

TEST_F(BlockMedia, SearchThatEndsAfterJanuary2038FindsNothing) {
    MakeDisk();
    WriteOneSegment();
    EXPECT_EQ(Media(0, static_cast<long>(0xFFFFFFFFu)), Lines{});
    EXPECT_EQ(m_result, -1);
    EXPECT_EQ(Media(0, static_cast<long>(0x80000000u)), Lines{});
    EXPECT_EQ(m_result, -1);
    EXPECT_EQ(Media(0, 0x7FFFFFFF), Lines{"1/0/0 100-200 size 1050 alarm 0 flag 0"});
}

TEST_F(BlockMedia, SegmentsAfterJanuary2038AreBeforeAllOthers) {
    MakeDisk();
    WriteOneSegment(0x80000000, 0x80000100);
    EXPECT_EQ(Media(0, kEndOfTime), Lines{});
    EXPECT_EQ(m_result, 0);
    // Found only by a search in that range: both ends negative, in order.
    EXPECT_EQ(Media(static_cast<long>(0x80000000u), static_cast<long>(0x80000200u)),
              Lines{"1/0/0 2147483648-2147483904 size 1050 alarm 0 flag 0"});
}

TEST_F(BlockMedia, SegmentAcrossJanuary2038KeepsItsEnd) {
    MakeDisk();
    WriteOneSegment(0x7FFFFF00, 0x80000100);
    // Its end is a negative number, so it does not exceed the search's.
    EXPECT_EQ(Media(0, 0x7FFFFFF0), Lines{"1/0/0 2147483392-2147483904 size 1050 alarm 0 flag 0"});
}

TEST_F(BlockMedia, SegmentThatBeginsAfterTheSearchIsNotFoundWhateverItsEnd) {
    MakeDisk();
    WriteOneSegment(2000, 0x80000100);
    EXPECT_EQ(Media(0, 1900), Lines{});
    WriteOneSegment(2000, 0xFFFFFFFB); // its end, as a signed number -5, is inside the search
    EXPECT_EQ(Media(-10, 1900), Lines{});
}

TEST_F(BlockMedia, LastSecondOfTheSearchDoesNotOverflow) {
    MakeDisk();
    WriteOneSegment(100, 0x7FFFFFFF);
    EXPECT_EQ(Media(0, 0x7FFFFFFF), Lines{"1/0/0 100-2147483647 size 1050 alarm 0 flag 0"});
    EXPECT_EQ(Media(0, 0x7FFFFFFE), Lines{"1/0/0 100-2147483647 size 1050 alarm 0 flag 0"});
    EXPECT_EQ(Media(0, 0x7FFFFFFD),
              Lines{"1/0/0 100-2147483645 size 0 alarm 0 flag 0"}); // less than 1 a second
}

// ---- channels

TEST_F(BlockMedia, AllChannelsComeSegmentBySegment) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900)
                             .Segment(0, 100, 200, 100)
                             .Segment(0, 300, 400, 100)
                             .Segment(0, 500, 600, 100)
                             .Segment(5, 100, 250, 150));
    EXPECT_EQ(Media(0, 1000),
              (Lines{"1/0/0 100-200 size 100 alarm 0 flag 0", "1/5/0 100-250 size 150 alarm 0 flag 0",
                     "1/0/1 300-400 size 100 alarm 0 flag 0", "1/0/2 500-600 size 100 alarm 0 flag 0"}));
}

TEST_F(BlockMedia, OneChannelComesAlone) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900)
                             .Segment(0, 100, 200, 100)
                             .Segment(31, 100, 250, 150)
                             .Segment(31, 300, 350, 50));
    EXPECT_EQ(Media(0, 1000, 31),
              (Lines{"1/31/0 100-250 size 150 alarm 0 flag 0", "1/31/1 300-350 size 50 alarm 0 flag 0"}));
}

TEST_F(BlockMedia, SkippedChannelsAreLeftOut) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900)
                             .Segment(0, 100, 200, 100)
                             .Segment(9, 100, 200, 100)
                             .Segment(31, 1, 9, 1));
    EXPECT_EQ(Media(0, 1000, kAll, 1u << 9),
              (Lines{"1/0/0 100-200 size 100 alarm 0 flag 0", "1/31/0 1-9 size 1 alarm 0 flag 0"}));
    EXPECT_EQ(Media(0, 1000, 9, 1u << 9), Lines{});
    EXPECT_EQ(m_result, 0);
    EXPECT_EQ(Media(0, 1000, kAll, 0xFFFFFFFF), Lines{});
}

TEST_F(BlockMedia, ChannelThatNeverHadATableFails) {
    MakeDisk();
    WriteOneSegment();
    Disk().WriteBlock(2, BlockContents::Closed(2, 300, 400).Segment(7, 300, 400, 100));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(Media(blocks, 0, 1000, 7), Lines{});
    EXPECT_EQ(m_result, -1);
    // Once another block gave the channel a table, this block holds no segment of it: 0.
    RecordList records;
    EXPECT_EQ(blocks->GetMediaList(2, 0, 1000, 7, 0, 0, &records, nullptr), 1);
    EXPECT_EQ(Media(blocks, 0, 1000, 7), Lines{});
    EXPECT_EQ(m_result, 0);
}

TEST_F(BlockMedia, ChannelsThatDoNotExistAreRefused) {
    MakeDisk();
    WriteOneSegment();
    for (const uint32_t chn : {32u, 33u, 127u, 0xFFFFFFFEu}) {
        EXPECT_EQ(Media(0, 1000, chn), Lines{});
        EXPECT_EQ(m_result, -1);
    }
    OpenBlocks blocks(Disk());
    RecordList records;
    // With events in memory, too: their table comes after those of the channels.
    Disk().WriteBlock(2, BlockContents::Closed(2, 100, 900).Event(Pts(150), 0x1));
    EXPECT_EQ(blocks->ReadBlockIndexList(2, 2), 1);
    EXPECT_EQ(blocks->GetSigleChnMediaList(1, 0, 1000, 32, 0, 0, 0, &records, nullptr), -1);
    EXPECT_EQ(blocks->GetSigleChnMediaList(1, 0, 1000, kAll, 0, 0, 0, &records, nullptr), -1);
}

TEST_F(BlockMedia, BadArgumentsAreRefusedBeforeTheDeviceIsTouched) {
    MakeDisk();
    WriteOneSegment();
    OpenBlocks blocks(Disk());
    const SystemCallLog log;
    EXPECT_EQ(Media(blocks, 151, 150), Lines{});
    EXPECT_EQ(m_result, -1);
    EXPECT_EQ(Media(blocks, 0, 1000, 32), Lines{});
    EXPECT_EQ(m_result, -1);
    EXPECT_EQ(blocks->GetMediaList(1, 0, 1000, 0, 0, 0, nullptr, nullptr), -1);
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(BlockMedia, EntryPointLoadsOnlyWhatItNeeds) {
    MakeDisk();
    Disk().WriteBlock(
        1, BlockContents::Closed(1, 100, 900).IFrame(0, 1, 0).Segment(0, 100, 200, 100).Event(Pts(150), 4));
    OpenBlocks blocks(Disk());
    Media(blocks, 0, 1000);
    EXPECT_EQ(blocks.Index(), "RecSeg[0][0]  100, 200, 0, 100\n");
    EventList events;
    Media(blocks, 0, 1000, kAll, 0, 0, &events);
    EXPECT_EQ(blocks.Index(), "RecSeg[0][0]  100, 200, 0, 100\nEvent[0]  4, 150000000, 0\n");
}

TEST_F(BlockMedia, OffsetModeGivesTheStartPosition) {
    MakeDisk();
    WriteOneSegment();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 1), 1);
    RecordList records;
    EXPECT_EQ(blocks->GetSigleChnMediaList(1, 150, 1000, 0, 0, 0, 1, &records, nullptr), 1);
    EXPECT_EQ(blocks->GetAllChnMediaList(1, 0, 1000, 0, 0, 2, &records, nullptr), 1);
    EXPECT_EQ(Describe(records),
              (Lines{"1/0/0 150-200 size 77 alarm 0 flag 1", "1/0/0 100-200 size 77 alarm 0 flag 2"}));
}

TEST_F(BlockMedia, SegmentNumberKeepsNineBitsInTheId) {
    Format format;
    format.blockSize = 0x1000000; // index area of 0x11000 bytes: room for more than 512 segments
    MakeDisk(format);
    auto contents = BlockContents::Closed(1, 100, 200);
    for (int i = 0; i < 514; ++i) {
        contents.Segment(2, 100, 200, 10);
    }
    Disk().WriteBlock(1, contents);
    const Lines lines = Media(0, 1000, 2);
    ASSERT_EQ(lines.size(), 514u);
    EXPECT_EQ(lines[511], "1/2/511 100-200 size 10 alarm 0 flag 0");
    EXPECT_EQ(lines[512], "1/2/0 100-200 size 10 alarm 0 flag 0");
    EXPECT_EQ(lines[513], "1/2/1 100-200 size 10 alarm 0 flag 0");
}

TEST_F(BlockMedia, AllChannelsOfAnEmptyBlockAreNoFailure) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 200));
    EXPECT_EQ(Media(0, 1000), Lines{});
    EXPECT_EQ(m_result, 0);
}

// ---- alarms

TEST_F(BlockMedia, RecordCarriesTheFirstEventInsideIt) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900)
                             .Segment(0, 100, 200, 100)
                             .Event(Pts(99), 0x1)
                             .Event(Pts(150), 0x4)
                             .Event(Pts(120), 0x2));
    EventList events;
    OpenBlocks blocks(Disk());
    EXPECT_EQ(Media(blocks, 0, 1000, kAll, 0, 0, &events), Lines{"1/0/0 100-200 size 100 alarm 4 flag 0"});
    EXPECT_EQ(Media(blocks, 0, 1000, kAll, 0, 0x8, &events), Lines{});
    EXPECT_EQ(Media(blocks, 0, 1000, kAll, 0, 0x6, &events), Lines{"1/0/0 100-200 size 100 alarm 4 flag 0"});
    EXPECT_EQ(Media(blocks, 0, 1000, kAll, 0, 0x2, &events), Lines{"1/0/0 100-200 size 100 alarm 2 flag 0"});
    EXPECT_EQ(Media(blocks, 0, 1000, kAll, 0, 0x1, &events), Lines{}); // outside the segment
}

TEST_F(BlockMedia, AlarmOfASpanIncludesBothEnds) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900).Event(Pts(150) + 999999, 0x4));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 2), 1);
    EXPECT_EQ(blocks->CheckAlarmContition(150, 200, 0), 4);
    EXPECT_EQ(blocks->CheckAlarmContition(100, 150, 0), 4);
    EXPECT_EQ(blocks->CheckAlarmContition(151, 200, 0), 0);
    EXPECT_EQ(blocks->CheckAlarmContition(100, 149, 0), 0);
    EXPECT_EQ(blocks->CheckAlarmContition(100, 149, 4), -1);
    EXPECT_EQ(blocks->CheckAlarmContition(150, 150, 0x14), 4);
    EXPECT_EQ(blocks->CheckAlarmContition(150, 150, 0x10), -1);
}

TEST_F(BlockMedia, AlarmMaskZeroLooksAtTheLowBitsOnly) {
    MakeDisk();
    Disk().WriteBlock(
        1, BlockContents::Closed(1, 100, 900).Event(Pts(150), 0x100000000).Event(Pts(160), 0x200000001));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 2), 1);
    EXPECT_EQ(blocks->CheckAlarmContition(0, 1000, 0), 0x200000001);
    EXPECT_EQ(blocks->CheckAlarmContition(0, 1000, 0x100000000), 0x100000000);
    EXPECT_EQ(blocks->CheckAlarmContition(0, 155, 0), 0);
}

TEST_F(BlockMedia, AlarmOfABlockWithoutEvents) {
    MakeDisk();
    WriteOneSegment();
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->CheckAlarmContition(0, 1000, 0), 0);
    EXPECT_EQ(blocks->CheckAlarmContition(0, 1000, 1), -1);
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 2), 1);
    EXPECT_EQ(blocks->CheckAlarmContition(0, 1000, 1), -1);
}

TEST_F(BlockMedia, AlarmTimesAreThirtyTwoBitSeconds) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900).Event(Pts(0xFFFFFFFF), 0x4));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 2), 1);
    EXPECT_EQ(blocks->CheckAlarmContition(static_cast<long>(0xFFFFFFFFu), static_cast<long>(0xFFFFFFFFu), 0),
              4);
    EXPECT_EQ(blocks->CheckAlarmContition(-5, 0, 0), 4);
    EXPECT_EQ(blocks->CheckAlarmContition(0, 0x7FFFFFFF, 0), 0);
}

TEST_F(BlockMedia, AlarmTypeWithTheHighestBitDropsTheRecord) {
    MakeDisk();
    Disk().WriteBlock(
        1, BlockContents::Closed(1, 100, 900).Segment(0, 100, 200, 100).Event(Pts(150), 0x8000000000000001));
    EventList events;
    OpenBlocks blocks(Disk());
    EXPECT_EQ(Media(blocks, 0, 1000, kAll, 0, 0, &events), Lines{}); // a negative number
}

TEST_F(BlockMedia, SearchWithoutEventsTagsFromTheTableHeld) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900).Segment(0, 100, 200, 100).Event(Pts(150), 0x4));
    Disk().WriteBlock(2, BlockContents::Closed(2, 100, 900)
                             .Segment(0, 100, 200, 100)
                             .Event(Pts(160), 0x1)
                             .Event(Pts(170), 0x2));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(Media(blocks, 0, 1000), Lines{"1/0/0 100-200 size 100 alarm 0 flag 0"}); // no events yet
    EXPECT_EQ(blocks->ReadBlockIndexList(2, 2), 1);
    // Block 1's count, block 2's table: one entry of it is looked at.
    EXPECT_EQ(Media(blocks, 0, 1000), Lines{"1/0/0 100-200 size 100 alarm 1 flag 0"});
    EXPECT_EQ(Media(blocks, 0, 1000, kAll, 0, 0x2), Lines{});
}

// ---- events

TEST_F(BlockMedia, EventsLieStrictlyInsideTheSearch) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900)
                             .Segment(0, 100, 900, 100)
                             .Event(Pts(150), 0x1)
                             .Event(Pts(151), 0x2)
                             .Event(Pts(199) + 999999, 0x4)
                             .Event(Pts(200), 0x8));
    OpenBlocks blocks(Disk());
    EventList events;
    EXPECT_EQ(blocks->GetEventList(1, 150, 200, -1, &events), 2);
    EXPECT_EQ(Describe(events), (Lines{"1/1 151 type 2", "1/2 199 type 4"}));
    EventList beside;
    Media(blocks, 150, 200, kAll, 0, 0, &beside);
    EXPECT_EQ(Describe(beside), (Lines{"1/1 151 type 2", "1/2 199 type 4"}));
    EventList oneChannel;
    Media(blocks, 150, 200, 0, 0, 0, &oneChannel);
    EXPECT_EQ(Describe(oneChannel), (Lines{"1/1 151 type 2", "1/2 199 type 4"}));
}

TEST_F(BlockMedia, EventsMeetTheMask) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900)
                             .Event(Pts(150), 0x1)
                             .Event(Pts(160), 0x6)
                             .Event(Pts(170), 0x8000000000000000)
                             .Event(Pts(180), 0));
    OpenBlocks blocks(Disk());
    EventList events;
    EXPECT_EQ(blocks->GetEventList(1, 0, 1000, 0x2, &events), 1);
    EXPECT_EQ(blocks->GetEventList(1, 0, 1000, INT64_MIN, &events), 1);
    EXPECT_EQ(blocks->GetEventList(1, 0, 1000, 0x10, &events), 0);
    EXPECT_EQ(Describe(events), (Lines{"1/1 160 type 6", "1/2 170 type 8000000000000000"}));
    // In a search for records, every event passes mask 0, also one without a type.
    EventList all;
    Media(blocks, 0, 1000, kAll, 0, 0, &all);
    EXPECT_EQ(all.m_nCount, 4);
    EventList some;
    Media(blocks, 0, 1000, kAll, 0, 0x4, &some);
    EXPECT_EQ(Describe(some), Lines{"1/1 160 type 6"});
}

TEST_F(BlockMedia, EventSearchRefusesBadArgumentsBeforeTheDeviceIsTouched) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 100, 900).Event(Pts(150), 0x1));
    OpenBlocks blocks(Disk());
    EventList events;
    const SystemCallLog log;
    EXPECT_EQ(blocks->GetEventList(1, 0, 1000, 0, &events), -1);
    EXPECT_EQ(blocks->GetEventList(1, 0, 1000, 1, nullptr), -1);
    EXPECT_EQ(blocks->GetEventList(1, 1000, 1000, 1, &events), -1);
    EXPECT_EQ(blocks->GetEventList(1, 1001, 1000, 1, &events), -1);
    EXPECT_EQ(blocks->GetEventList(1, 0, static_cast<long>(0x80000000u), 1, &events), -1);
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(BlockMedia, EventSearchFailsInABlockWithoutEvents) {
    MakeDisk();
    WriteOneSegment();
    Disk().WriteBlock(2, BlockContents::Closed(2, 100, 900).Event(Pts(150), 0x1));
    OpenBlocks blocks(Disk());
    EventList events;
    EXPECT_EQ(blocks->GetEventList(1, 0, 1000, 1, &events), -1);
    EXPECT_EQ(blocks->GetEventList(2, 0, 1000, 1, &events), 1);
    EXPECT_EQ(blocks->GetEventList(1, 0, 1000, 1, &events), -1); // the other block's table is no reason
}

TEST_F(BlockMedia, EventsOfAnIncompleteBlockAreNotTrusted) {
    Format format;
    format.fmtVersion = 1;
    MakeDisk(format);
    auto contents = BlockContents::Closed(1, 100, 900).Segment(0, 100, 200, 100).Event(Pts(150), 0x1);
    contents.tail.RecSeq = 0; // only the extended tail has the head's number
    Disk().WriteBlock(1, contents);
    OpenBlocks blocks(Disk());
    EventList events;
    Quietly([&] { EXPECT_EQ(blocks->GetEventList(1, 0, 1000, 1, &events), -1); });
    Quietly([&] {
        EXPECT_EQ(Media(blocks, 0, 1000, kAll, 0, 0, &events),
                  Lines{"1/0/0 100-43300 size 62914560 alarm 0 flag 1"});
    });
    EXPECT_EQ(events.m_nCount, 0);
}

TEST_F(BlockMedia, EntryNumberKeepsSixteenBitsInTheId) {
    Format format;
    format.blockCount = 1;
    format.blockSize = 0x20000000; // index area of 2 MiB: room for more than 65,536 events
    MakeDisk(format);
    auto contents = BlockContents::Closed(1, 100, 900);
    for (int i = 0; i < 65537; ++i) {
        contents.Event(Pts(i == 65536 ? 500 : 0), 1);
    }
    Disk().WriteBlock(0, contents);
    OpenBlocks blocks(Disk());
    EventList events;
    EXPECT_EQ(blocks->GetEventList(0, 1, 1000, 1, &events), 1);
    EXPECT_EQ(Describe(events), Lines{"0/0 500 type 1"});
}

// ---- blocks without a usable index

TEST_F(BlockMedia, OpenBlockGivesOneCoarseRecordAChannel) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Open(7, 100000).Channels(0x80000021));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(Printed([&] {
                  // From its start for twelve hours; the search's span does not matter.
                  EXPECT_EQ(Media(blocks, 5, 6),
                            (Lines{"1/0/0 100000-143200 size 62914560 alarm 0 flag 1",
                                   "1/5/0 100000-143200 size 62914560 alarm 0 flag 1",
                                   "1/31/0 100000-143200 size 62914560 alarm 0 flag 1"}));
              }),
              "Block 1 Not complete\n");
    Quietly([&] {
        EXPECT_EQ(Media(blocks, 6, 6).size(), 3u); // a search of one second is a search
        EXPECT_EQ(Media(blocks, 7, 6).size(), 0u);
        EXPECT_EQ(Media(blocks, 5, 6, 5), Lines{"1/5/0 100000-143200 size 62914560 alarm 0 flag 1"});
        EXPECT_EQ(Media(blocks, 5, 6, 4), Lines{});
        EXPECT_EQ(m_result, 0);
        EXPECT_EQ(Media(blocks, 5, 6, 5, 1u << 5), Lines{});
        EXPECT_EQ(Media(blocks, 5, 6, kAll, 0x80000001).size(), 1u);
    });
}

TEST_F(BlockMedia, CoarseRecordEndsAtMidnightOrAfterTwelveHours) {
    MakeDisk();
    const std::pair<uint32_t, const char*> cases[] = {
        {86400, "1/0/0 86400-86400 size 62914560 alarm 0 flag 1"},      // midnight sharp: no length
        {86401, "1/0/0 86401-129601 size 62914560 alarm 0 flag 1"},     // twelve hours
        {129600, "1/0/0 129600-172800 size 62914560 alarm 0 flag 1"},   // noon: both at once
        {129601, "1/0/0 129601-172800 size 62914560 alarm 0 flag 1"},   // the next midnight
        {172799, "1/0/0 172799-172800 size 62914560 alarm 0 flag 1"},   // one second is listed here
        {0xFFFFFFFF, "1/0/0 4294967295-0 size 62914560 alarm 0 flag 1"} // 32-bit sums wrap
    };
    for (const auto& [time, line] : cases) {
        Disk().WriteBlock(1, BlockContents::Open(7, time).Channels(1));
        OpenBlocks blocks(Disk());
        RecordList records;
        EXPECT_EQ(blocks->GetNoIndexMediaList(1, 0, 0, &records), 1);
        EXPECT_EQ(Describe(records), Lines{line});
    }
}

TEST_F(BlockMedia, CoarseRecordNeedsAReadableHead) {
    OpenBlocks blocks(MakeDisk());
    RecordList records;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(blocks->GetNoIndexMediaList(65535, 0, 0, &records), -1); }),
              "GetBlockInfo : #, Failed\n");
}

TEST_F(BlockMedia, CoarseRecordOfAChannelThatDoesNotExist) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Open(7, 100000).Channels(0xFFFFFFFF));
    OpenBlocks blocks(Disk());
    RecordList records;
    for (const uint32_t chn : {32u, 64u, 127u, 0xFFFFFFFEu}) {
        EXPECT_EQ(blocks->GetNoIndexMediaList(1, chn, 0, &records), 0) << chn;
    }
    EXPECT_EQ(blocks->GetNoIndexMediaList(1, kAll, 0, &records), 32);
}

TEST_F(BlockMedia, UnreadableBlockFails) {
    OpenBlocks blocks(MakeDisk());
    RecordList records;
    Quietly([&] { EXPECT_EQ(blocks->GetMediaList(65535, 0, 1000, kAll, 0, 0, &records, nullptr), -1); });
    EXPECT_EQ(records.m_nCount, 0);
}

} // namespace
