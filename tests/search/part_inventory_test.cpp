#include <cstdlib>
#include <ctime>
#include <random>
#include <set>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

constexpr uint32_t kDay = 86400;

/// The day number of a time, as a date map lists it.
unsigned int DayEntry(uint32_t day) {
    return day * kDay + 1;
}

class PartInventory : public SearchFixture {
protected:
    std::vector<unsigned int> DateMap(OpenPart& part) {
        DayList days;
        m_messages = Printed([&] { EXPECT_EQ(part->GetDateMap(&days), days.m_nCount); });
        return Elements(days);
    }
    std::vector<unsigned int> DateMap() {
        OpenPart part(Disk());
        return DateMap(part);
    }

    /// A closed block, number @p seq, with media from @p start to @p end.
    void WriteSpan(uint32_t block, uint32_t seq, uint32_t start, uint32_t end) {
        Disk().WriteBlock(block, BlockContents::Closed(seq, start, end).Segment(0, start, end, 100));
    }

    std::string m_messages;
};

// ---- units

TEST_F(PartInventory, AddsAUnitWithItsTime) {
    CSearchPart part;
    BlockHead_t head = {};
    head.RecTime = 1234;
    UnitList units;
    EXPECT_EQ(part.AddUnitToList(7, &head, &units, 41), 42);
    EXPECT_EQ(Describe(units), Lines{"7 1234"});
}

TEST_F(PartInventory, UnitsComeOldestFirst) {
    MakeDisk();
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    UnitList units;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->GetUnitList(&units), 8); }),
              "GetLastBlock LastBlockNum = 2, RecordNum = 11\n"
              "InitSearch Blk(3~2), Ret = 3, (4000~11000)\n"
              "GetSearchStartBlock StartSearchBlock = 3\n"
              "SearchUnitList , BlockCount = 8\n");
    EXPECT_EQ(Describe(units),
              (Lines{"3 4000", "4 5000", "5 6000", "6 7000", "7 8000", "0 9000", "1 10000", "2 11000"}));
}

TEST_F(PartInventory, UnitsAreOnlyRecordedBlocks) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6});
    Disk().SetBad(1);
    Disk().SetSuspect(2, 1);
    Disk().Change<BlockHead_t>(Disk().HeadOffset(3), [](auto& head) { head.ValidFlag = 0; });
    Disk().Change<BlockHead_t>(Disk().HeadOffset(4), [](auto& head) { head.RecTime = 0; });
    OpenPart part(Disk());
    UnitList units;
    Quietly([&] { EXPECT_EQ(part->GetUnitList(&units), 2); });
    EXPECT_EQ(Describe(units), (Lines{"0 1000", "5 6000"}));
}

TEST_F(PartInventory, UnitThatCannotBeReadIsNotListed) {
    MakeDisk();
    WriteRing({1, 2, 3});
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    Quietly([&] { EXPECT_EQ(part->GetLastBlock(), 2); });
    const auto head1 = static_cast<int64_t>(Disk().HeadOffset(1));
    const SystemCallLog log([=](const Call& call, size_t) {
        return call.kind == CallKind::Read && call.offset == head1 ? Fate::Failing() : Fate();
    });
    UnitList units;
    Quietly([&] { EXPECT_EQ(part->SearchUnitList(0, 0, 1, &units), 2); });
    EXPECT_EQ(Describe(units), (Lines{"0 1000", "2 3000"})); // the buffer before does not pass for it
}

TEST_F(PartInventory, UnitWalkRunsToTheNewestWhateverTheEnd) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    SearchParam_t param = {0, 0, 0xFFFFFFFF, kAll};
    OutputTime_t region = {};
    UnitList units;
    Quietly([&] { part->InitSearch(&param, &region); });
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->SearchUnitList(5500, 5600, 2, &units), 4); }),
              "GetSearchStartBlock StartSearchBlock = 4\nSearchUnitList , BlockCount = 4\n");
    EXPECT_EQ(Describe(units), (Lines{"4 5000", "5 6000", "6 7000", "7 8000"}));
}

TEST_F(PartInventory, UnitsOfADiskNeverRecorded) {
    OpenPart part(MakeDisk());
    UnitList units;
    Quietly([&] { EXPECT_EQ(part->GetUnitList(&units), 0); });
}

TEST_F(PartInventory, BadUnitsAreTheUnusableOnes) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5});
    OpenPart clean(Disk());
    UnitList none;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(clean->GetBadUnitList(&none), 0); }), "");
    Disk().SetBad(1);
    Disk().SetSuspect(3, 200);
    Disk().Change<BlockHead_t>(Disk().HeadOffset(4), [](auto& head) { head.ValidFlag = 0; });
    Disk().Change<BlockHead_t>(Disk().HeadOffset(6), [](auto& head) { head.ValidFlag = 0xAA55AA50; });
    OpenPart part(Disk());
    UnitList units;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->GetBadUnitList(&units), 4); }), "");
    EXPECT_EQ(Describe(units), (Lines{"1 0", "3 0", "4 5000", "6 0"}));
}

TEST_F(PartInventory, BlockWhoseHeadCannotBeReadIsABadUnit) {
    MakeDisk();
    WriteRing({1, 2, 3});
    Disk().Truncate(Disk().BlockStart(2) + 100);
    OpenPart part(Disk());
    UnitList units;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(part->GetBadUnitList(&units), 6); }),
              "GetBlockInfo : #, Failed\nGetBlockInfo : #, Failed\nGetBlockInfo : #, Failed\n"
              "GetBlockInfo : #, Failed\nGetBlockInfo : #, Failed\nGetBlockInfo : #, Failed\n");
    EXPECT_EQ(Describe(units), (Lines{"2 0", "3 0", "4 0", "5 0", "6 0", "7 0"}));
}

TEST_F(PartInventory, ForgedRingLargerThanIdsCanNameIsListedAsFarAsTheyCan) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 70000; });
    OpenPart part(Disk());
    UnitList units;
    Quietly([&] { EXPECT_EQ(part->GetBadUnitList(&units), 65536 - 8); });
    EXPECT_EQ(units.m_pTail->data.unitId, 65535u);
}

TEST_F(PartInventory, RingLargerThanIdsCanNameIsBelievedAsFarAsTheDeviceReaches) {
    // Of a million stated blocks of 8 KiB, 70,000 begin inside the device, the last of them with one byte.
    Format format;
    format.blockCount = 1;
    format.blockSize = 0x2000;
    MakeDisk(format).EditHead([](PartHead_t& head) {
        head.BlkCount = 1000000;
        head.BBTabOffs = 0x100000;
        head.BBCounterOffs = 0x200000;
    });
    Disk().Truncate(Disk().BlockStart(69999) + 1);
    Disk().WriteBlock(69998, BlockContents::Closed(2, 2000, 2900));
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1900));
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    EXPECT_EQ(part->IsBadBlock(69999), 1);
    EXPECT_EQ(part->IsBadBlock(70000), 0);
    UnitList units;
    UnitList unusable;
    unsigned int found = 0;
    BlockHead_t head = {};
    Quietly([&] {
        EXPECT_EQ(part->GetUnitList(&units), 2);
        EXPECT_EQ(part->GetBadUnitList(&unusable), 69998);
        EXPECT_EQ(part->GetPrevValidBlock(0, 0, 69999, 0, &found, &head), 0);
        EXPECT_EQ(found, 69998u);
    });
    EXPECT_EQ(Describe(units), (Lines{"0 1000", "69998 2000"}));
    EXPECT_EQ(unusable.m_pTail->data.unitId, 69999u);
}

TEST_F(PartInventory, BlocksTooSmallForTheirOwnAreasAreBadUnits) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkSize = 4000; });
    {
        OpenPart part(Disk());
        UnitList units;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(part->GetBadUnitList(&units), 8); }), "");
    }
    // Without tables no block is known to be usable.
    Disk().EditHead([](PartHead_t& head) { head.BlkCount = 0xFFFFFFFF; });
    OpenPart part(Disk());
    UnitList units;
    EXPECT_EQ(part->GetBadUnitList(&units), 0);
}

TEST_F(PartInventory, BadUnitsWithoutTablesAreThoseInsideTheDevice) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0xFFFFFFFF; });
    OpenPart part(Disk());
    UnitList units;
    const SystemCallLog log;
    EXPECT_EQ(part->GetBadUnitList(&units), 8);
    EXPECT_LE(log.Calls().size(), 4u);
    EXPECT_EQ(Describe(units), (Lines{"0 0", "1 0", "2 0", "3 0", "4 0", "5 0", "6 0", "7 0"}));
}

TEST_F(PartInventory, BadUnitsOfNoRing) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    UnitList units;
    {
        OpenPart part(Disk());
        EXPECT_EQ(part->GetBadUnitList(&units), 0);
    }
    Disk().EditHead([](PartHead_t& head) {
        head.BlkCount = 0xFFFFFFFF;
        head.BlkSize = 0;
    });
    {
        OpenPart part(Disk());
        EXPECT_EQ(part->GetBadUnitList(&units), 0);
    }
    Disk().Truncate(200);
    Disk().EditHead([](PartHead_t& head) { head.BlkSize = 0x10000; });
    {
        OpenPart part(Disk());
        EXPECT_EQ(part->GetBadUnitList(&units), 0);
    }
    CSearchPart closed;
    EXPECT_EQ(closed.GetBadUnitList(&units), -1);
    EXPECT_EQ(closed.GetUnitList(&units), 0);
    EXPECT_EQ(closed.SearchUnitList(0, 0, 1, &units), 0);
    EXPECT_EQ(units.m_nCount, 0);
}

TEST_F(PartInventory, RecordingMapOfAUnit) {
    MakeDisk();
    Disk().WriteBlock(2, BlockContents::Closed(1, 1000, 1900).Channels(0xF));
    OpenPart part(Disk());
    EXPECT_EQ(part->GetUnitRecMap(2, 0), 4);
    EXPECT_EQ(part->GetUnitRecMap(3, 0), 0);
    EXPECT_EQ(part->GetUnitRecMap(99, 1), 8);
    EXPECT_EQ(part->GetUnitRecMap(2, 2), 0);
    EXPECT_EQ(part->GetUnitRecMap(2, -1), 0);
    Quietly([&] { EXPECT_EQ(part->GetUnitRecMap(65535, 0), -1); });
    CSearchPart closed;
    EXPECT_EQ(closed.GetUnitRecMap(0, 0), -1);
    EXPECT_EQ(closed.GetUnitRecMap(0, 1), -1);
    EXPECT_EQ(closed.GetUnitRecMap(0, 2), -1);
}

TEST_F(PartInventory, EverythingIsAskedForFromSecondZeroToTheEndOfTime) {
    struct Case {
        uint32_t oldest, newest;
        const char* region;
    };
    const Case cases[] = {
        {1000, 0xFFFFFFFE, "InitSearch Blk(0~1), Ret = 3, (1000~-2)\n"},
        {1000, 0xFFFFFFFF, "InitSearch Blk(0~1), Ret = 1, (1000~-1)\n"}, // the end is inside the recordings
        {0, 2000, "InitSearch Blk(0~1), Ret = 3, (0~2000)\n"},
    };
    for (const Case& test : cases) {
        MakeDisk(2);
        WriteSpan(0, 1, test.oldest, test.oldest);
        WriteSpan(1, 2, test.newest, test.newest);
        OpenPart part(Disk());
        UnitList units;
        const std::string messages = Printed([&] { part->GetUnitList(&units); });
        EXPECT_NE(messages.find(test.region), std::string::npos) << messages;
        EXPECT_EQ(units.m_nCount, test.oldest == 0 ? 1 : 2);
        EXPECT_EQ(DateMap(part).size(), test.oldest == 0 ? 1u : 2u);
        EXPECT_NE(m_messages.find(test.region), std::string::npos) << m_messages;
        std::remove(File("disk").c_str());
    }
}

// ---- days

TEST_F(PartInventory, DayIsAddedOnce) {
    CSearchPart part;
    DayList days;
    EXPECT_EQ(part.AddDate2List(&days, 0), 0);
    EXPECT_EQ(days.m_nCount, 0);
    EXPECT_EQ(part.AddDate2List(&days, 1), 1);
    EXPECT_EQ(part.AddDate2List(&days, 86399), 1);
    EXPECT_EQ(part.AddDate2List(&days, 86400), 1);
    EXPECT_EQ(part.AddDate2List(&days, 5), 1);
    EXPECT_EQ(part.AddDate2List(&days, 0xFFFFFFFF), 1);
    EXPECT_EQ(Elements(days), (std::vector<unsigned int>{1, 86401, 4294944001u}));
}

TEST_F(PartInventory, DiskRecordedWithinADayHasOne) {
    MakeDisk();
    for (uint32_t block = 0; block < 5; ++block) {
        WriteSpan(block, block + 1, 100 * kDay + block * 1000, 100 * kDay + block * 1000 + 900);
    }
    EXPECT_EQ(DateMap(), std::vector<unsigned int>{DayEntry(100)});
    EXPECT_EQ(m_messages, "GetLastBlock LastBlockNum = 4, RecordNum = 5\n"
                          "InitSearch Blk(0~4), Ret = 3, (8640000~8644000)\n");
}

TEST_F(PartInventory, BlockAcrossMidnightGivesBothDays) {
    MakeDisk();
    WriteSpan(0, 1, 100 * kDay - 100, 100 * kDay + 100);
    EXPECT_EQ(DateMap(), (std::vector<unsigned int>{DayEntry(99), DayEntry(100)}));
}

TEST_F(PartInventory, OneOpenBlockGivesItsStartAlone) {
    MakeDisk();
    auto contents = BlockContents::Closed(7, 100 * kDay - 100, 100 * kDay + 100);
    contents.tail.RecSeq = 6;
    Disk().WriteBlock(0, contents);
    EXPECT_EQ(DateMap(), std::vector<unsigned int>{DayEntry(99)});
}

TEST_F(PartInventory, EndsOfTheArcCountFromTheBlocksStart) {
    MakeDisk();
    // The first media of these blocks came a day after they were opened.
    auto contents = BlockContents::Closed(1, 200 * kDay, 200 * kDay + 50);
    contents.head.RecTime = 199 * kDay;
    Disk().WriteBlock(0, contents);
    EXPECT_EQ(DateMap(), (std::vector<unsigned int>{DayEntry(199), DayEntry(200)}));
}

TEST_F(PartInventory, BlocksInsideTheArcCountFromTheirMedia) {
    MakeDisk();
    for (uint32_t block = 0; block < 3; ++block) {
        WriteSpan(block, block + 1, (100 + 10 * block) * kDay, (100 + 10 * block) * kDay + 50);
    }
    auto middle = BlockContents::Closed(2, 111 * kDay, 112 * kDay);
    middle.head.RecTime = 110 * kDay;
    Disk().WriteBlock(1, middle);
    EXPECT_EQ(DateMap(),
              (std::vector<unsigned int>{DayEntry(100), DayEntry(111), DayEntry(112), DayEntry(120)}));
    middle.tail.RecSeq = 99; // never closed: its head's time is all there is
    Disk().WriteBlock(1, middle);
    EXPECT_EQ(DateMap(), (std::vector<unsigned int>{DayEntry(100), DayEntry(110), DayEntry(120)}));
}

TEST_F(PartInventory, ArcWhoseEndsLieOnOneDayIsNotLookedInto) {
    MakeDisk();
    for (uint32_t block = 0; block < 8; ++block) {
        WriteSpan(block, block + 1, 100 * kDay + block, 100 * kDay + block + 1);
    }
    // A block in the middle that states another day: it is not read.
    WriteSpan(3, 4, 300 * kDay, 300 * kDay + 5);
    EXPECT_EQ(DateMap(), std::vector<unsigned int>{DayEntry(100)});
}

TEST_F(PartInventory, EveryDayOfARisingRingIsFound) {
    MakeDisk(64);
    std::mt19937 random(11);
    for (int round = 0; round < 40; ++round) {
        const auto oldest = static_cast<uint32_t>(random() % 64);
        uint32_t time = 1000 * kDay;
        std::vector<unsigned int> expected;
        std::set<unsigned int> seen;
        const auto add = [&](uint32_t t) {
            if (seen.insert(t / kDay).second) {
                expected.push_back(DayEntry(t / kDay));
            }
        };
        for (uint32_t age = 0; age < 64; ++age) {
            const uint32_t block = (oldest + age) % 64;
            time += static_cast<uint32_t>(random() % (kDay / 4)) + (random() % 8 == 0 ? 3 * kDay : 0);
            const uint32_t end = time + static_cast<uint32_t>(random() % (kDay / 2));
            WriteSpan(block, age + 1, time, end);
            add(time);
            add(end);
            time = end;
        }
        EXPECT_EQ(DateMap(), expected);
    }
}

TEST_F(PartInventory, DateMapOfADiskNeverRecordedIsEmpty) {
    MakeDisk();
    EXPECT_EQ(DateMap(), std::vector<unsigned int>{});
    Disk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    EXPECT_EQ(DateMap(), std::vector<unsigned int>{});
    CSearchPart closed;
    DayList days;
    EXPECT_EQ(closed.GetDateMap(&days), 0);
    EXPECT_EQ(closed.SearchDataMap(0, 0, 0, &days), 0);
}

TEST_F(PartInventory, DateMapCountsWhatTheListHadBefore) {
    MakeDisk();
    WriteSpan(0, 1, 100 * kDay, 100 * kDay + 5);
    OpenPart part(Disk());
    DayList days;
    days.AddTail(7);
    Quietly([&] { EXPECT_EQ(part->GetDateMap(&days), 2); });
    Quietly([&] { EXPECT_EQ(part->GetDateMap(&days), 2); });
}

TEST_F(PartInventory, DaysJoinWhatTheListHadBefore) {
    MakeDisk();
    OpenPart part(Disk());
    DayList days;
    for (const unsigned int held : {7u, DayEntry(1), 5 * kDay}) { // only the second is the entry of a day
        days.AddTail(held);
    }
    UnitTimeItem_t a = {3, kDay, 5 * kDay};
    UnitTimeItem_t b = {4, 0, 10}; // time 0 counts as no time, and the end is on the same day
    EXPECT_EQ(part->BinGetDataMap(&a, &b, &days), 4);
    UnitTimeItem_t ends = {3, 1, 0xFFFFFFFF};
    EXPECT_EQ(part->BinGetDataMap(&ends, &ends, &days), 6);
    EXPECT_EQ(Elements(days), (std::vector<unsigned int>{7, 86401, 432000, 432001, 1, 4294944001u}));
}

TEST_F(PartInventory, HalvingBetweenTwoUnits) {
    MakeDisk();
    for (uint32_t block = 0; block < 8; ++block) {
        WriteSpan(block, block + 1, (100 + block) * kDay, (100 + block) * kDay + 50);
    }
    OpenPart part(Disk());
    const auto between = [&](UnitTimeItem_t a, UnitTimeItem_t b) {
        DayList days;
        EXPECT_EQ(part->BinGetDataMap(&a, &b, &days), days.m_nCount);
        return Elements(days);
    };
    // One block twice: the second's times do not count.
    EXPECT_EQ(between({3, 5 * kDay, 6 * kDay}, {3, 7 * kDay, 8 * kDay}),
              (std::vector<unsigned int>{DayEntry(5), DayEntry(6)}));
    // Neighbours, also across the ring's end.
    EXPECT_EQ(between({7, 5 * kDay, 5 * kDay}, {0, 7 * kDay, 8 * kDay}),
              (std::vector<unsigned int>{DayEntry(5), DayEntry(7), DayEntry(8)}));
    // Far apart but on the same day.
    EXPECT_EQ(between({1, 5 * kDay, 7 * kDay}, {6, 7 * kDay + 9, 8 * kDay}),
              (std::vector<unsigned int>{DayEntry(5), DayEntry(7), DayEntry(8)}));
    // An arc across the ring's end: 6, 7, 0, 1.
    EXPECT_EQ(between({6, 106 * kDay, 106 * kDay}, {1, 101 * kDay, 101 * kDay}),
              (std::vector<unsigned int>{DayEntry(106), DayEntry(107), DayEntry(100), DayEntry(101)}));
}

TEST_F(PartInventory, HalvingRefusesUnitsOutsideTheRing) {
    OpenPart part(MakeDisk());
    DayList days;
    UnitTimeItem_t inside = {3, 5 * kDay, 5 * kDay};
    UnitTimeItem_t outside = {8, 7 * kDay, 7 * kDay};
    EXPECT_EQ(part->BinGetDataMap(&inside, &outside, &days), 0);
    EXPECT_EQ(part->BinGetDataMap(&outside, &inside, &days), 0);
    outside.unitId = 0xFFFFFFFF;
    EXPECT_EQ(part->BinGetDataMap(&inside, &outside, &days), 0);
    CSearchPart closed;
    EXPECT_EQ(closed.BinGetDataMap(&inside, &inside, &days), 0);
    days.AddTail(DayEntry(5));
    EXPECT_EQ(closed.BinGetDataMap(&inside, &inside, &days), 1);
}

TEST_F(PartInventory, HalvingGoesOnWhereAHalfHasNoValidBlock) {
    MakeDisk();
    for (uint32_t block = 0; block < 8; ++block) {
        WriteSpan(block, block + 1, (100 + block) * kDay, (100 + block) * kDay + 50);
    }
    for (const uint32_t block : {0u, 1u, 2u, 3u}) {
        Disk().SetBad(block);
    }
    OpenPart part(Disk());
    DayList days;
    UnitTimeItem_t a = {0, 100 * kDay, 100 * kDay};
    UnitTimeItem_t b = {7, 107 * kDay, 107 * kDay};
    EXPECT_EQ(part->BinGetDataMap(&a, &b, &days), 4);
    EXPECT_EQ(Elements(days),
              (std::vector<unsigned int>{DayEntry(104), DayEntry(105), DayEntry(106), DayEntry(107)}));
}

TEST_F(PartInventory, ForgedTimesDoNotKeepTheHalvingFromEnding) {
    MakeDisk(64);
    std::mt19937 random(3);
    for (uint32_t block = 0; block < 64; ++block) {
        WriteSpan(block, block + 1, static_cast<uint32_t>(random()), static_cast<uint32_t>(random()));
    }
    OpenPart part(Disk());
    const SystemCallLog log;
    DateMap(part);
    EXPECT_LE(log.Calls().size(), 64u * 12);
}

// ---- the older per-block day routine

TEST_F(PartInventory, PerBlockDaysAreLocal) {
    const char* const saved = getenv("TZ");
    const std::string restore = saved == nullptr ? "" : saved;
    setenv("TZ", "PKT-5", 1); // five hours east
    tzset();
    CSearchPart part;
    BlockHead_t head = {};
    BlockTail_t tail = {};
    head.RecSeq = tail.RecSeq = 4;
    tail.StartTime = 18 * 3600;   // 23:00 on the 1st, local
    tail.EndTime = 19 * 3600 + 1; // 00:00:01 on the 2nd
    DayList days;
    unsigned int last = 0;
    EXPECT_EQ(part.AddDateToList(&head, &tail, &days, 10, &last), 12);
    EXPECT_EQ(last, 2u);
    EXPECT_EQ(Elements(days), (std::vector<unsigned int>{18 * 3600, 19 * 3600 + 1}));
    // The day added last is not added again.
    tail.StartTime = 20 * 3600;
    tail.EndTime = 21 * 3600;
    EXPECT_EQ(part.AddDateToList(&head, &tail, &days, 12, &last), 12);
    // Of a block that was never closed, only the start is used.
    tail.RecSeq = 3;
    head.RecTime = kDay * 7;
    EXPECT_EQ(part.AddDateToList(&head, &tail, &days, 12, &last), 13);
    EXPECT_EQ(last, 8u);
    // After 2038: still a date, on every host. 0xFFFFFFFF is 2106-02-07 06:28:15 UTC.
    head.RecTime = 0xFFFFFFFF;
    EXPECT_EQ(part.AddDateToList(&head, &tail, &days, 0, &last), 1);
    EXPECT_EQ(last, 7u);
    if (saved == nullptr) {
        unsetenv("TZ");
    } else {
        setenv("TZ", restore.c_str(), 1);
    }
    tzset();
}

} // namespace
