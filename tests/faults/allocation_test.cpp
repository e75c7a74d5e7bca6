// What happens when memory is short: the results the interface promises, and nothing lost.

#include <new>

#include "search/search_fixture.h"
#include "support/allocations.h"

namespace {

using namespace test_support;

class Allocations : public SearchFixture {
protected:
    void MakeRing() {
        MakeDisk();
        for (uint32_t block = 0; block < 4; ++block) {
            const uint32_t start = (block + 1) * 1000;
            auto contents = BlockContents::Closed(block + 1, start, start + 900);
            contents.head.AlmDelayTime = 30;
            contents.IFrame(0, Pts(start), 0).Segment(0, start, start + 900, 9000).Event(Pts(start + 500), 1);
            Disk().WriteBlock(block, contents);
        }
    }
};

TEST_F(Allocations, HandlesThatGetNoMemory) {
    PartAccess_t access = MakeDisk().Access();
    block_info_t info = {};
    static_cast<PartAccess_t&>(info) = access;
    info.BlkSize = 0x10000;
    info.BaseOffs = BLOCK_BASE_OFFSET;
    const SystemCallLog log;
    EXPECT_EQ(PrintedWithoutLines([&] {
                  const AllocationFaults faults(0);
                  EXPECT_EQ(dev_open(&access), nullptr);
              }),
              "dev_open : #, Failed\n");
    EXPECT_EQ(PrintedWithoutLines([&] {
                  const AllocationFaults faults(0);
                  EXPECT_EQ(block_open(&info), nullptr);
              }),
              "block_open : #, Failed\n");
    EXPECT_EQ(log.Calls().size(), 0u); // the device was not opened
}

TEST_F(Allocations, BlockObjectWithoutStateFailsThroughout) {
    PartAccess_t access = MakeDisk().Access();
    dev_op_st* const dev = dev_open(&access);
    {
        const AllocationFaults faults(0);
        CSearchBlock blocks(dev, 0x10000, BLOCK_BASE_OFFSET, 0);
        BlockHead_t head = {};
        RecordList records;
        EventList events;
        EXPECT_EQ(Printed([&] {
                      EXPECT_EQ(blocks.GetBlockInfo(0, &head, nullptr, nullptr, nullptr), -1);
                      EXPECT_EQ(blocks.ReadBlockIndexList(0, 7), -1);
                      EXPECT_EQ(blocks.PrintIndex(), -1);
                      EXPECT_EQ(blocks.GetUnitRecMap(0), -1);
                      EXPECT_EQ(blocks.CheckAlarmContition(0, 100, 0), 0);
                      EXPECT_EQ(blocks.CheckAlarmContition(0, 100, 1), -1);
                      EXPECT_EQ(blocks.GetEventList(0, 0, 100, 1, &events), -1);
                      EXPECT_EQ(blocks.GetMediaList(0, 0, 100, 0, 0, 0, &records, nullptr), -1);
                      EXPECT_EQ(blocks.GetSigleChnMediaList(0, 0, 100, 0, 0, 0, 0, &records, nullptr), -1);
                      EXPECT_EQ(blocks.GetAllChnMediaList(0, 0, 100, 0, 0, 0, &records, nullptr), -1);
                      EXPECT_EQ(blocks.GetNoIndexMediaList(0, 0, 0, &records), -1);
                  }),
                  "");
    }
    dev_close(dev);
}

TEST_F(Allocations, IndexTablesThatGetNoMemory) {
    MakeRing();
    // In a fresh object the load allocates I-frames, segments and events, in this order.
    for (size_t failing = 0; failing < 3; ++failing) {
        OpenBlocks blocks(Disk());
        std::string held;
        EXPECT_EQ(Printed([&] {
                      const AllocationFaults faults(failing);
                      // A search can do without events: only that failure leaves the status unchanged.
                      EXPECT_EQ(blocks->ReadBlockIndexList(1, 7), failing == 2 ? 1 : -1) << failing;
                  }),
                  "");
        const std::string iframe = "IFrame[0][0]  2000000000, 0\n";
        const std::string segment = "RecSeg[0][0]  2000, 2900, 0, 9000\n";
        EXPECT_EQ(blocks.Index(), failing == 0 ? "" : failing == 1 ? iframe : iframe + segment);
    }
}

TEST_F(Allocations, BlockWithoutMemoryForItsEventsStillGivesRecords) {
    MakeRing();
    OpenBlocks blocks(Disk());
    RecordList records;
    EventList events;
    {
        const AllocationFaults faults(1); // segments, then events
        EXPECT_EQ(blocks->GetMediaList(1, 0, 9000, kAll, 0, 0, &records, &events), 1);
    }
    EXPECT_EQ(Describe(records), Lines{"1/0/0 2000-2900 size 9000 alarm 0 flag 0"});
    EXPECT_EQ(events.m_nCount, 0);
    const AllocationFaults faults(0);
    EXPECT_EQ(blocks->GetEventList(2, 0, 9000, 1, &events), -1);
}

TEST_F(Allocations, AlarmsAreFoundWithoutMemoryToSortThem) {
    MakeDisk();
    auto contents = BlockContents::Closed(1, 1000, 1900);
    for (uint32_t i = 0; i < 60; ++i) {
        contents.Segment(i % 4, 1000 + 10 * i, 1009 + 10 * i, 100);
        contents.Event(Pts(1595 - 10 * i), uint64_t{1} << (i % 16));
    }
    Disk().WriteBlock(1, contents);
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->ReadBlockIndexList(1, 3), 1);
    RecordList sorted;
    size_t largest = 0;
    {
        const AllocationFaults watch;
        EXPECT_EQ(blocks->GetAllChnMediaList(1, 0, 9000, 0, 0, 0, &sorted, nullptr), 60);
        largest = watch.Largest();
    }
    EXPECT_EQ(largest, 60u * 16); // what the sorted events take; a record takes less
    RecordList unsorted;
    {
        const AllocationFaults faults(0);
        EXPECT_EQ(blocks->GetAllChnMediaList(1, 0, 9000, 0, 0, 0, &unsorted, nullptr), 60);
    }
    EXPECT_EQ(Describe(unsorted), Describe(sorted));
    EXPECT_EQ(Describe(sorted).at(1),
              "1/1/0 1010-1019 size 100 alarm 400 flag 0"); // the event at 1015 is number 58
}

TEST_F(Allocations, EventsOfAnotherBlockDoNotPassForThoseThatGotNoMemory) {
    MakeRing();
    OpenBlocks blocks(Disk());
    EventList events;
    RecordList records;
    EXPECT_EQ(blocks->GetEventList(1, 0, 9000, 1, &events), 1);
    {
        const AllocationFaults faults(0);
        EXPECT_EQ(blocks->GetEventList(2, 0, 9000, 1, &events), 0);
    }
    {
        const AllocationFaults faults(1);
        EXPECT_EQ(blocks->GetMediaList(3, 0, 9000, kAll, 0, 0, &records, &events), 1);
    }
    EXPECT_EQ(events.m_nCount, 1);
    EXPECT_EQ(Describe(records), Lines{"3/0/0 4000-4900 size 9000 alarm 0 flag 0"});
}

TEST_F(Allocations, OpeningAPartition) {
    MakeRing();
    PartAccess_t access = Disk().Access();
    // The state, the device handle, the block object and its state.
    for (size_t failing = 0; failing < 3; ++failing) {
        CSearchPart part;
        const SystemCallLog log;
        Quietly([&] {
            const AllocationFaults faults(failing);
            EXPECT_EQ(part.Init(&access), -1) << failing;
        });
        EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close));
        EXPECT_EQ(part.GetUnitRecMap(0, 1), -1);
    }
    CSearchPart part;
    {
        const AllocationFaults faults(3);
        EXPECT_EQ(part.Init(&access), 0); // opens, with a block object that fails throughout
    }
    RecordList records;
    SearchParam_t param = {0, 0, 9000, kAll};
    Quietly([&] { EXPECT_EQ(part.SearchMedia(&param, 0, &records), 0); });
    part.Quit();
}

TEST_F(Allocations, BadBlockTables) {
    MakeRing();
    for (size_t failing = 0; failing < 2; ++failing) {
        OpenPart part(Disk());
        {
            const AllocationFaults faults(failing);
            EXPECT_EQ(part->GetBadBlockTab(), -1);
        }
        EXPECT_EQ(part->GetBadBlockTab(), 0);
    }
}

TEST_F(Allocations, InitialisingTheFacade) {
    MakeRing();
    PartAccess_t access = Disk().Access();
    for (size_t failing = 0; failing < 2; ++failing) {
        CSearchDisk disk;
        const AllocationFaults faults(failing);
        EXPECT_EQ(disk.Init(&access), -1);
        EXPECT_EQ(disk.GetLastRecBlockId(), -1);
    }
}

TEST_F(Allocations, RecordsAroundAlarmsAreFoundWithoutMemoryForATree) {
    MakeRing();
    PartAccess_t access = Disk().Access();
    CSearchDisk disk;
    disk.Init(&access);
    SearchParam_t param = {1, 0, 9000, kAll};
    RecordList expected;
    size_t all = 0;
    Quietly([&] {
        disk.SearchMedia(&param, &expected); // whose tables the next one uses again
        expected.RemoveAll();
        const AllocationFaults watch;
        EXPECT_EQ(disk.SearchMedia(&param, &expected), 4);
        all = watch.Count();
    });
    size_t thrown = 0;
    size_t unharmed = 0;
    for (size_t failing = 0; failing < all; ++failing) {
        RecordList records;
        Quietly([&] {
            const AllocationFaults faults(failing);
            try {
                disk.SearchMedia(&param, &records);
                unharmed += Describe(records) == Describe(expected) ? 1u : 0u;
            } catch (const std::bad_alloc&) {
                ++thrown;
            }
        });
    }
    EXPECT_EQ(thrown, 4u + 4 + 4); // a node for each record, each event, each piece
    EXPECT_EQ(unharmed, 1u);       // the tree; the others are index tables
    disk.Quit();
}

TEST_F(Allocations, EveryFailureOfARoundLeavesNothingBehind) {
    MakeRing();
    // A round is run with its first allocation failing, its second, and so on until none fails any more;
    // once with only that failure, once with all later ones failing too. The leak checker watches.
    const auto round = [&] {
        PartAccess_t access = Disk().Access();
        CSearchDisk disk;
        disk.Init(&access);
        SearchParam_t param = {0, 0, 9000, kAll};
        RecordList records;
        EventList events;
        UnitList units;
        DayList days;
        try {
            disk.SearchMedia(&param, &records);
            param.alarmMask = 1;
            disk.SearchMedia(&param, &records);
            disk.SearchEvent(&param, &events);
            disk.SearchUnitMedia(1, &records, &events);
            disk.GetUnitInfo(&units);
            disk.GetInvalidUnit(&units);
            disk.GetDateInfo(&days);
        } catch (const std::bad_alloc&) {
            // Lists let it through; the object must still close.
        }
        disk.Quit();
        return records.m_nCount + events.m_nCount + units.m_nCount + days.m_nCount;
    };
    int whole = 0;
    Quietly([&] { whole = round(); });
    EXPECT_EQ(whole, (4 + 4 + 1) + (4 + 1) + 4 + 1); // records, events, units, days
    for (const bool forever : {false, true}) {
        const SystemCallLog log;
        size_t failing = 0;
        for (bool reached = true; reached; ++failing) {
            Quietly([&] {
                const AllocationFaults faults(failing, forever);
                const int found = round();
                reached = faults.Count() > failing;
                EXPECT_TRUE(found < whole || (found == whole && !reached) || !forever);
            });
        }
        EXPECT_GT(failing, 20u);
        EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close));
    }
}

} // namespace
