// What searches cost, in system calls: these bounds hold on every disk of the size, so a search of a real
// disk, at some ten milliseconds a call, takes as long as it must and no longer.

#include <cmath>
#include <set>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

constexpr uint32_t kBlocks = 16384;
constexpr uint32_t kLog2Blocks = 14;
constexpr uint32_t kHour = 3600;
constexpr uint32_t kNewest = 5000;                   // the ring has wrapped: the oldest is the next one
constexpr uint32_t kFirstTime = 20000u * 24 * kHour; // of the oldest block
constexpr uint32_t kSecondsPerBlock = 600;

/// A wrapped ring of 16,384 small blocks, ten minutes each: 113 days and 18 hours.
class Cost : public SearchFixture {
protected:
    Cost() {
        Format format;
        format.blockCount = kBlocks;
        format.blockSize = 8192;
        MakeDisk(format);
        for (uint32_t age = 0; age < kBlocks; ++age) {
            const uint32_t start = kFirstTime + age * kSecondsPerBlock;
            Disk().WriteBlock(BlockOfAge(age),
                              BlockContents::Closed(age + 1, start, start + kSecondsPerBlock - 1)
                                  .Segment(0, start, start + kSecondsPerBlock - 1, 1000)
                                  .Segment(1, start, start + kSecondsPerBlock - 1, 1000));
        }
        m_part.emplace(Disk());
        EXPECT_EQ((*m_part)->GetBadBlockTab(), 0);
    }

    static uint32_t BlockOfAge(uint32_t age) { return (kNewest + 1 + age) % kBlocks; }
    static uint32_t TimeOfAge(uint32_t age) { return kFirstTime + age * kSecondsPerBlock; }

    OpenPart& Part() { return *m_part; }

    /// The blocks that reads of a log touched.
    std::set<uint32_t> BlocksRead(const SystemCallLog& log) const {
        std::set<uint32_t> blocks;
        for (const Call& call : log.Calls()) {
            if (call.kind == CallKind::Read) {
                blocks.insert(static_cast<uint32_t>((call.offset - BLOCK_BASE_OFFSET) / 8192));
            }
        }
        return blocks;
    }

    std::optional<OpenPart> m_part;
};

TEST_F(Cost, NewestBlockIsFoundInLogarithmicallyManyCalls) {
    const SystemCallLog log;
    Quietly([&] { EXPECT_EQ(Part()->GetLastBlock(), static_cast<int>(kNewest)); });
    // Both ends, then at most two heads for each halving, each a seek and a read.
    EXPECT_LE(log.Calls().size(), 2u * (2 + 2 * (kLog2Blocks + 1)));
    EXPECT_EQ(log.Count(CallKind::Seek), log.Count(CallKind::Read));
}

TEST_F(Cost, StartBlockIsFoundInLogarithmicallyManyCalls) {
    SearchParam_t param = {0, 0, 0xFFFFFFFF, kAll};
    OutputTime_t region = {};
    Quietly([&] { EXPECT_EQ(Part()->InitSearch(&param, &region), 3); });
    for (const uint32_t age : {0u, 1u, 777u, kBlocks - kNewest - 3, kBlocks - kNewest, kBlocks - 2}) {
        const SystemCallLog log;
        Quietly([&] {
            EXPECT_EQ(Part()->GetSearchStartBlock(TimeOfAge(age) + 1, 2), static_cast<int>(BlockOfAge(age)));
        });
        // The oldest head and the arcs' ends, then at most two heads for each halving.
        EXPECT_LE(log.Calls().size(), 2u * (3 + 2 * (kLog2Blocks + 1)));
    }
}

TEST_F(Cost, DateMapTakesLogarithmicallyManyCallsForEachDay) {
    DayList days;
    const SystemCallLog log;
    Quietly([&] { EXPECT_EQ(Part()->GetDateMap(&days), 114); });
    // The ring's ends first. Then each midnight is closed in on by halving: a head and a tail on either side
    // of the middle, so four structures a halving at most.
    const size_t ends = 2u * (2 + 2 * (kLog2Blocks + 1) + 2) + 8;
    EXPECT_LE(log.Calls().size(), ends + 2u * 4 * 114 * (kLog2Blocks + 1));
    EXPECT_LT(BlocksRead(log).size(), kBlocks / 4);
}

TEST_F(Cost, DateMapOfOneDayTakesLogarithmicallyManyCallsInAll) {
    // All of the ring within one day: the two ends decide.
    for (uint32_t age = 0; age < kBlocks; ++age) {
        const uint32_t start = kFirstTime + age;
        Disk().Change<BlockHead_t>(Disk().HeadOffset(BlockOfAge(age)),
                                   [=](auto& head) { head.RecTime = start; });
        Disk().Change<BlockTail_t>(Disk().TailOffset(BlockOfAge(age)), [=](auto& tail) {
            tail.StartTime = start;
            tail.EndTime = start + 1;
        });
    }
    DayList days;
    const SystemCallLog log;
    Quietly([&] { EXPECT_EQ(Part()->GetDateMap(&days), 1); });
    EXPECT_LE(log.Calls().size(), 2u * (2 + 2 * (kLog2Blocks + 1) + 2) + 8);
}

TEST_F(Cost, SearchOfARecentHourReadsOnlyTheBlocksItMust) {
    SearchParam_t param = {0, 0, 0, kAll};
    param.startTime = TimeOfAge(kBlocks - 20) + 300;
    param.endTime = param.startTime + kHour;
    RecordList records;
    SystemCallLog log;
    Quietly([&] { EXPECT_EQ(Part()->SearchMedia(&param, 0, &records), 14); }); // seven blocks, two channels
    // What was read to find the ring's ends and the start block is bounded above; the walk itself begins with
    // the start block, which is read more than once: take what comes after its last head read.
    const auto start = static_cast<int64_t>(Disk().HeadOffset(BlockOfAge(kBlocks - 20)));
    size_t walk = 0;
    for (size_t i = 0; i < log.Calls().size(); ++i) {
        if (log.Calls()[i].kind == CallKind::Read && log.Calls()[i].offset == start) {
            walk = i;
        }
    }
    std::set<int64_t> blocks;
    size_t reads = 0;
    for (size_t i = walk; i < log.Calls().size(); ++i) {
        if (log.Calls()[i].kind == CallKind::Read) {
            blocks.insert((log.Calls()[i].offset - BLOCK_BASE_OFFSET) / 8192);
            ++reads;
        }
    }
    // The seven blocks of the hour and the one after it, whose tail ends the walk. Each takes a head, then a
    // head, a tail, an index head and two tables; the last one a tail more.
    EXPECT_EQ(blocks.size(), 8u);
    EXPECT_LE(reads, 8u * 6 + 1);
    EXPECT_LE(log.Calls().size(), 2u * (8 * 6 + 1 + 2 * (5 + 2 * (kLog2Blocks + 1))) + 8);
}

TEST_F(Cost, WholeDiskSearchReadsEachStructureOnceOrTwice) {
    SearchParam_t param = {0, 0, 0x7FFFFFFF, kAll};
    RecordList records;
    const SystemCallLog log;
    Quietly([&] { EXPECT_EQ(Part()->SearchMedia(&param, 0, &records), static_cast<int>(2 * kBlocks)); });
    // A block: its head for the walk and again with the index, tail, index head, two tables. Six reads.
    EXPECT_LE(log.Calls().size(), 2u * (6 * kBlocks + 4 * (kLog2Blocks + 3)));
}

TEST_F(Cost, UnitListReadsEachHeadOnce) {
    UnitList units;
    const SystemCallLog log;
    Quietly([&] { EXPECT_EQ(Part()->GetUnitList(&units), static_cast<int>(kBlocks)); });
    EXPECT_LE(log.Calls().size(), 2u * (kBlocks + 2 * (kLog2Blocks + 5)));
}

} // namespace
