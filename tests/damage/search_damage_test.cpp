// Searches of damaged disks: whatever lies there, every call returns, stays inside its memory, and takes
// little of it. Run under the sanitizers this is where hostile disks bite first.

#include "damage/damaged_disk.h"
#include "search/search_fixture.h"
#include "support/allocations.h"

namespace {

using namespace test_support;

constexpr uint32_t kCasesAShard = 2500 / SEEDED_DISKS_DIVISOR;
constexpr uint32_t kShards = 8;

/// The most that one allocation may take: tables of a ring that ids can name, or what a block can hold.
constexpr size_t kLargestAllocation = 0x10000;

class SearchDamage : public ::testing::TestWithParam<uint32_t> {
protected:
    /// Every search that an application makes, and that must add to a list what it says it added.
    static void SearchDisk(const PartitionImage& image) {
        PartAccess_t access = image.Access();
        CSearchDisk disk;
        disk.Init(&access);
        RecordList records;
        EventList events;
        UnitList units;
        DayList days;
        SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
        SearchParam_t around = {0xFF, 1700000000, 1700100000, kAll};
        SearchParam_t late = {0, 1700090000, 0xFFFFFFFF, 2};
        int added = std::max(disk.SearchMedia(&everything, &records), 0);
        added += std::max(disk.SearchMedia(&around, &records), 0);
        added += std::max(disk.SearchMedia(&late, &records), 0);
        EXPECT_EQ(records.m_nCount, added);
        const int eventCount = disk.SearchEvent(&around, &events);
        EXPECT_EQ(eventCount, events.m_nCount);
        for (const uint32_t unit : {0u, 5u, 11u, 12u, 65535u}) {
            disk.SearchUnitMedia(unit, &records, &events);
            disk.GetBlockRecMap(unit, 0);
        }
        for (const RecordItem_t& record : Elements(records)) {
            EXPECT_LT(record.chn, 32u);
        }
        const int unitCount = disk.GetUnitInfo(&units);
        EXPECT_EQ(unitCount, units.m_nCount);
        const int invalidCount = disk.GetInvalidUnit(&units);
        EXPECT_EQ(invalidCount, units.m_nCount - unitCount);
        const int dayCount = disk.GetDateInfo(&days);
        EXPECT_EQ(dayCount, days.m_nCount);
        DiskSpaceInfo_t space = {};
        unsigned int mode = 0;
        unsigned char password[] = "guess";
        disk.GetSpaceInfo(&space);
        disk.GetEncryptInfo(&mode);
        disk.CheckEncryptInfo(password);
        disk.GetLastRecBlockId();
        disk.SearchMedia(&everything, &records);
        disk.Quit();
    }

    /// The lower classes, with arguments that a caller might take from a record.
    static void SearchBlocks(const PartitionImage& image, const PartHead_t& head) {
        PartAccess_t access = image.Access();
        dev_op_st* const dev = dev_open(&access);
        CSearchBlock blocks(dev, head.BlkSize, BLOCK_BASE_OFFSET, head.FmtVersion);
        RecordList records;
        EventList events;
        for (const uint32_t block : {0u, 4u, 4u, 9u, 11u, 70000u, 0xFFFFFFFFu}) {
            blocks.ReadBlockIndexList(block, 7);
            blocks.PrintIndex();
            blocks.GetMediaList(block, 0, 0x7FFFFFFF, kAll, 0, 0, &records, nullptr);
            blocks.GetMediaList(block, 0, 0x7FFFFFFF, 31, 0, 1, &records, &events);
            blocks.GetEventList(block, 0, 0x7FFFFFFF, -1, &events);
            blocks.GetNoIndexMediaList(block, kAll, 0, &records);
            blocks.CheckAlarmContition(0, 0x7FFFFFFF, 0);
        }
        dev_close(dev);

        CSearchPart part;
        if (part.Init(&access) == 0) {
            BlockHead_t found = {};
            unsigned int out = 0;
            part.GetNextValidBlock(0, 0, 0xFFFFFFFF, 5, &out, &found);
            part.GetPrevValidBlock(0, 0, 5, head.BlkCount, &out, &found);
            part.BinSearchStartBlock(0, head.BlkCount - 1, 1700000000, 0);
            UnitTimeItem_t a = {11, 1700000000, 1700000000};
            UnitTimeItem_t b = {head.BlkCount - 1, 1700990000, 1700990000};
            DayList days;
            part.BinGetDataMap(&a, &b, &days);
            part.GetEventPara(0xFFFFFFFF, &out, &out);
            part.GetRecordExtPara(0x00050000, &out);
        }
        part.Quit();
    }
};

TEST_P(SearchDamage, EndsWellOnEveryDisk) {
    for (const uint32_t fmtVersion : {0u, 1u}) {
        DamagedDisk disk(fmtVersion);
        for (uint32_t i = 0; i < kCasesAShard / 2; ++i) {
            const uint32_t seed = GetParam() * kCasesAShard + fmtVersion * (kCasesAShard / 2) + i;
            disk.Damage(seed);
            const PartHead_t head = disk.Head();
            size_t largest = 0;
            Quietly([&] {
                const AllocationFaults watch;
                // A ring forged to be long is walked block by block: once is enough for a test.
                if (head.BlkCount < 4096 || seed % 16 == 0) {
                    SearchDisk(disk.Image());
                }
                SearchBlocks(disk.Image(), head);
                largest = watch.Largest();
            });
            const size_t block = std::max<size_t>(head.BlkSize, 0x4000);
            ASSERT_LE(largest, std::max(kLargestAllocation, 4 * block))
                << "case " << seed << ": " << disk.Story();
            ASSERT_FALSE(HasFailure()) << "case " << seed << ": " << disk.Story();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Shards, SearchDamage, ::testing::Range(0u, kShards));

} // namespace
