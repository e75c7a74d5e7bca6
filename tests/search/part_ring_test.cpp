#include <cstdio>
#include <random>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

class PartRing : public SearchFixture {
protected:
    static std::string LastBlock(OpenPart& part, int expected) {
        return Printed([&] { EXPECT_EQ(part->GetLastBlock(), expected); });
    }

    /// The region of a request on the test's disk, and what InitSearch() printed.
    int InitSearch(OpenPart& part, uint32_t start, uint32_t end, std::string* messages = nullptr) {
        SearchParam_t param = {0, start, end, kAll};
        int code = 0;
        const std::string printed = Printed([&] { code = part->InitSearch(&param, &m_region); });
        if (messages != nullptr) {
            *messages = printed;
        }
        return code;
    }

    static int StartBlock(OpenPart& part, uint32_t time, uint32_t code, std::string* messages = nullptr) {
        int block = 0;
        const std::string printed = Printed([&] { block = part->GetSearchStartBlock(time, code); });
        if (messages != nullptr) {
            *messages = printed;
        }
        return block;
    }

    static int BinSearch(OpenPart& part, uint32_t lo, uint32_t hi, uint32_t time, bool found = true) {
        int block = 0;
        EXPECT_EQ(Printed([&] { block = part->BinSearchStartBlock(lo, hi, time, 0); }),
                  found ? "" : "BinSearchStartBlock: Not Get Start Block!!!!!!\n");
        return block;
    }

    static uint64_t FreeBlocks(OpenPart& part) {
        DiskSpaceInfo_t info = {};
        Quietly([&] { EXPECT_EQ(part->GetSpace(&info), 0); });
        EXPECT_EQ(info.totalSize, 8u * 0x10000);
        return info.freeSize / 0x10000;
    }

    /// Makes a block invalid: formatted by something else.
    void Spoil(uint32_t block) {
        Disk().Change<BlockHead_t>(Disk().HeadOffset(block), [](auto& head) { head.ValidFlag = 1; });
    }

    /// Makes @p blocks invalid while they are searched: before read @p number, counted from 1.
    auto SpoilBeforeRead(int number, std::vector<uint32_t> blocks) {
        return [this, number, blocks = std::move(blocks), reads = 0](const Call& call, size_t) mutable {
            if (call.kind == CallKind::Read && ++reads == number) {
                for (const uint32_t block : blocks) {
                    Spoil(block);
                }
            }
            return Fate();
        };
    }

    OutputTime_t m_region = {7, 8};
};

// ---- the newest block

TEST_F(PartRing, NewestOfARingThatHasNotWrapped) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5});
    OpenPart part(Disk());
    EXPECT_EQ(LastBlock(part, 4), "GetLastBlock LastBlockNum = 4, RecordNum = 5\n");
    EXPECT_EQ(FreeBlocks(part), 3u);
}

TEST_F(PartRing, NewestInTheMiddleOfARingHalfWritten) {
    MakeDisk();
    WriteRing({1, 2, 3, 4});
    OpenPart part(Disk());
    // The search continues into the blocks never written, and prints a message.
    EXPECT_EQ(LastBlock(part, 3), "Disk Empty\nGetLastBlock LastBlockNum = 3, RecordNum = 4\n");
    EXPECT_EQ(FreeBlocks(part), 4u);
}

TEST_F(PartRing, NewestOfAWrappedRing) {
    MakeDisk();
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    EXPECT_EQ(LastBlock(part, 2), "GetLastBlock LastBlockNum = 2, RecordNum = 11\n");
    EXPECT_EQ(FreeBlocks(part), 0u);
}

TEST_F(PartRing, NewestIsFoundWhereverTheSeamLies) {
    MakeDisk();
    for (uint32_t newest = 0; newest < 8; ++newest) {
        std::vector<uint32_t> sequence(8);
        for (uint32_t age = 0; age < 8; ++age) {
            sequence[(newest + 8 - age) % 8] = 100 - age;
        }
        WriteRing(sequence);
        OpenPart part(Disk());
        EXPECT_EQ(LastBlock(part, static_cast<int>(newest)),
                  "GetLastBlock LastBlockNum = " + std::to_string(newest) + ", RecordNum = 100\n");
        EXPECT_EQ(FreeBlocks(part), 0u);
    }
}

TEST_F(PartRing, NewestIsFoundAmongBadAndInvalidBlocks) {
    MakeDisk(61);
    std::mt19937 random(4);
    for (int round = 0; round < 60; ++round) {
        const auto newest = static_cast<uint32_t>(random() % 61);
        std::vector<uint32_t> sequence(61);
        uint32_t highest = 0;
        uint32_t expected = 0;
        for (uint32_t age = 0; age < 61; ++age) {
            const uint32_t block = (newest + 61 - age) % 61;
            sequence[block] = 1000 - age;
            Disk().SetBad(block, random() % 3 == 0);
            if (!Disk().IsBad(block) && sequence[block] > highest) {
                highest = sequence[block];
                expected = block;
            }
        }
        WriteRing(sequence);
        OpenPart part(Disk());
        EXPECT_EQ(LastBlock(part, static_cast<int>(expected)),
                  "GetLastBlock LastBlockNum = " + std::to_string(expected) +
                      ", RecordNum = " + std::to_string(highest) + "\n");
    }
}

TEST_F(PartRing, NewestOfAFormattedDiskIsBlockZero) {
    OpenPart part(MakeDisk());
    EXPECT_EQ(LastBlock(part, 0), "Disk Empty\nGetLastBlock LastBlockNum = 0, RecordNum = 0\n");
    EXPECT_EQ(FreeBlocks(part), 7u);
}

TEST_F(PartRing, EqualNumbersEndTheSearch) {
    MakeDisk();
    WriteRing({5, 5, 5, 5, 5, 5, 5, 5});
    OpenPart part(Disk());
    // The middle is looked at first, and keeps its place among equals.
    EXPECT_EQ(LastBlock(part, 3),
              "Disk Record Num Conflicting\nGetLastBlock LastBlockNum = 3, RecordNum = 5\n");
}

TEST_F(PartRing, EqualNumbersAtTheLowerEndKeepABetterUpperEnd) {
    MakeDisk();
    WriteRing({5, 1, 1, 5, 1, 1, 1, 9});
    OpenPart part(Disk());
    EXPECT_EQ(LastBlock(part, 7),
              "Disk Record Num Conflicting\nGetLastBlock LastBlockNum = 7, RecordNum = 9\n");
}

TEST_F(PartRing, LowerEndTellsAnEmptyDiskFromConflictingNumbers) {
    MakeDisk();
    WriteRing({5, 5, 5, 5, 0, 0, 0, 0});
    {
        OpenPart part(Disk());
        EXPECT_EQ(LastBlock(part, 3),
                  "Disk Record Num Conflicting\nGetLastBlock LastBlockNum = 3, RecordNum = 5\n");
    }
    std::remove(File("disk").c_str());
    MakeDisk();
    WriteRing({0, 0, 0, 0, 0, 0, 0, 9});
    OpenPart part(Disk());
    EXPECT_EQ(LastBlock(part, 7), "Disk Empty\nGetLastBlock LastBlockNum = 7, RecordNum = 9\n");
}

TEST_F(PartRing, NumbersAreUnsigned) {
    MakeDisk();

    WriteRing(
        {0x80000001, 0x80000002, 0x7FFFFFFB, 0x7FFFFFFC, 0x7FFFFFFD, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000});
    OpenPart part(Disk());
    EXPECT_EQ(LastBlock(part, 1), "GetLastBlock LastBlockNum = 1, RecordNum = -2147483646\n");
}

TEST_F(PartRing, RingsOfOneAndTwoBlocks) {
    MakeDisk(1);
    WriteRing({5});
    {
        OpenPart part(Disk());
        EXPECT_EQ(LastBlock(part, 0), "GetLastBlock LastBlockNum = 0, RecordNum = 5\n");
    }
    std::remove(File("disk").c_str());
    MakeDisk(2);
    WriteRing({5, 6});
    {
        OpenPart part(Disk());
        EXPECT_EQ(LastBlock(part, 1), "GetLastBlock LastBlockNum = 1, RecordNum = 6\n");
    }
    WriteRing({7, 6});
    OpenPart part(Disk());
    EXPECT_EQ(LastBlock(part, 0), "GetLastBlock LastBlockNum = 0, RecordNum = 7\n");
}

TEST_F(PartRing, WithoutAValidBlockTheNewestStaysWhatItWas) {
    MakeDisk(4);
    WriteRing({1, 2, 3, 0});
    OpenPart part(Disk());
    LastBlock(part, 2);
    for (uint32_t block = 0; block < 4; ++block) {
        Spoil(block);
    }
    EXPECT_EQ(LastBlock(part, -1), "IsValidBlock: invalid block 0\nIsValidBlock: invalid block 1\n"
                                   "IsValidBlock: invalid block 2\nIsValidBlock: invalid block 3\n");
    // The old newest block's head still gives a time, valid or not; nothing gives the oldest one's but the
    // last head looked at, which is the same.
    std::string messages;
    EXPECT_EQ(InitSearch(part, 0, 5000, &messages), 3);
    EXPECT_NE(messages.find("InitSearch Blk(0~2), Ret = 3, (3000~3000)\n"), std::string::npos) << messages;
}

TEST_F(PartRing, BlockThatBecomesUnreadableEndsTheSearch) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    // Heads of the ends and of the middle are read; from then on the device is gone. Buffers that still hold
    // a valid head keep passing for the block looked for, so the search runs to its end, which it must reach.
    const SystemCallLog log([](const Call& call, size_t index) {
        return call.kind == CallKind::Read && index >= 6 ? Fate::Failing() : Fate();
    });
    std::string messages = PrintedWithoutLines([&] { EXPECT_GE(part->GetLastBlock(), 0); });
    EXPECT_NE(messages.find("GetBlockInfo : #, Failed\n"), std::string::npos);
    EXPECT_LE(log.Calls().size(), 40u);
}

TEST_F(PartRing, BlockOverwrittenDuringTheSearchEndsIt) {
    MakeDisk(3);
    WriteRing({1, 2, 3});
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    // Block 2 is valid when the upper end is looked for, and not when the walk comes back to it.
    const SystemCallLog log(SpoilBeforeRead(4, {2}));
    EXPECT_EQ(LastBlock(part, 2),
              "IsValidBlock: invalid block 2\nGetLastBlock LastBlockNum = 2, RecordNum = 3\n");
}

TEST_F(PartRing, RingOverwrittenDuringTheSearchEndsIt) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    // Blocks 0, 7 and 3 are valid when they are read. Then no block is any more: the upper half has none.
    const SystemCallLog log(SpoilBeforeRead(4, {0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(LastBlock(part, 7), "IsValidBlock: invalid block 4\nIsValidBlock: invalid block 5\n"
                                  "IsValidBlock: invalid block 6\nIsValidBlock: invalid block 7\n"
                                  "GetLastBlock LastBlockNum = 7, RecordNum = 8\n");
}

TEST_F(PartRing, EndsThatPassEachOtherHaveNoNewestBlock) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    // Reads of blocks 0 to 4 fail, that of block 5 does not: it is the lower end. Then those of blocks 7 to 5 fail:
    // block 4 is the upper end.
    int reads = 0;
    const SystemCallLog log([&](const Call& call, size_t) {
        reads += call.kind == CallKind::Read ? 1 : 0;
        return call.kind == CallKind::Read && reads != 6 && reads < 10 ? Fate::Failing() : Fate();
    });
    const std::string messages = LastBlock(part, 0);
    EXPECT_NE(messages.find("IsValidBlock: invalid block 5\n"
                            "GetLastBlock LastBlockNum = 0, RecordNum = 0\n"),
              std::string::npos)
        << messages;
}

TEST_F(PartRing, OnlyValidBlockIsTheNewest) {
    MakeDisk(4);
    WriteRing({5, 6, 7, 8});
    for (const uint32_t block : {1u, 2u, 3u}) {
        Spoil(block);
    }
    OpenPart part(Disk());
    EXPECT_EQ(LastBlock(part, 0), "IsValidBlock: invalid block 3\nIsValidBlock: invalid block 2\n"
                                  "IsValidBlock: invalid block 1\n"
                                  "GetLastBlock LastBlockNum = 0, RecordNum = 5\n");
}

TEST_F(PartRing, NewestIsLookedForFromTheEndOfTheRingThatIsUsed) {
    // Of 70,000 stated blocks ids can name 65,536. The last of them is the only one that was recorded.
    Format format;
    format.blockCount = 10;
    format.blockSize = 0x2000;
    MakeDisk(format).EditHead([](PartHead_t& head) {
        head.BlkCount = 70000;
        head.BBTabOffs = 0x100000;
        head.BBCounterOffs = 0x200000;
    });
    Disk().Truncate(Disk().BlockStart(65536));
    Disk().WriteBlock(65535, BlockContents::Closed(9, 9000, 9900));
    OpenPart part(Disk());
    Quietly([&] { EXPECT_EQ(part->GetLastBlock(), 65535); });
}

TEST_F(PartRing, NoRingHasNoNewestBlock) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    OpenPart part(Disk());
    const SystemCallLog log;
    EXPECT_EQ(LastBlock(part, -1), "");
    EXPECT_EQ(log.Calls().size(), 0u); // not even tables of no bytes are read
    CSearchPart closed;
    EXPECT_EQ(closed.GetLastBlock(), -1);
}

// ---- the region

TEST_F(PartRing, RegionsOfARequest) {
    CSearchPart part;
    const uint32_t o = 1000;
    const uint32_t n = 5000;
    struct Case {
        uint32_t s, e;
        int code;
        uint32_t start, end;
    };
    const Case cases[] = {
        {0, 999, -1, 7, 8},          {0, 1000, -1, 7, 8}, // ends at or before the oldest: not written
        {2000, 500, -1, 7, 8},       {0, 1001, 1, o, 1001},
        {1000, 5000, 1, o, 5000}, // s = o and e = n
        {0, 5001, 3, o, n},          {1000, 0xFFFFFFFF, 3, o, n},
        {1001, 5000, 2, 1001, 5000}, {3000, 2000, 2, 3000, 2000},
        {1001, 5001, 4, 1001, n},    {5000, 5001, 4, 5000, n},
        {5001, 6000, 0, 5001, 6000}, {0xFFFFFFF0, 0xFFFFFFFF, 0, 0xFFFFFFF0, 0xFFFFFFFF},
        {6000, 5000, 2, 6000, 5000}, // e is tested first
    };
    for (const Case& c : cases) {
        OutputTime_t out = {7, 8};
        EXPECT_EQ(part.GetSearchRegion({c.s, c.e, o, n}, &out), c.code) << c.s << ' ' << c.e;
        EXPECT_EQ(out.startTime, c.start) << c.s << ' ' << c.e;
        EXPECT_EQ(out.endTime, c.end) << c.s << ' ' << c.e;
    }
}

TEST_F(PartRing, RegionTimesAreUnsigned) {
    CSearchPart part;
    OutputTime_t out = {};
    EXPECT_EQ(part.GetSearchRegion({0, 0xFFFFFFFF, 0x7FFFFFFF, 0x80000001}, &out), 3);
    EXPECT_EQ(out.startTime, 0x7FFFFFFFu);
    EXPECT_EQ(out.endTime, 0x80000001u);
    EXPECT_EQ(part.GetSearchRegion({0x80000000, 0x80000001, 0x7FFFFFFF, 0x80000001}, &out), 2);
}

TEST_F(PartRing, InitSearchFindsBothEndsAndClips) {
    MakeDisk();
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    std::string messages;
    EXPECT_EQ(InitSearch(part, 5500, 6500, &messages), 2);
    EXPECT_EQ(messages, "GetLastBlock LastBlockNum = 2, RecordNum = 11\n"
                        "InitSearch Blk(3~2), Ret = 2, (5500~6500)\n");
    EXPECT_EQ(InitSearch(part, 0, 20000, &messages), 3);
    EXPECT_EQ(messages, "GetLastBlock LastBlockNum = 2, RecordNum = 11\n"
                        "InitSearch Blk(3~2), Ret = 3, (4000~11000)\n");
    // If the request is before the oldest recording, the caller's region is printed unchanged.
    m_region = {7, 8};
    EXPECT_EQ(InitSearch(part, 0, 4000, &messages), -1);
    EXPECT_EQ(messages, "GetLastBlock LastBlockNum = 2, RecordNum = 11\n"
                        "InitSearch Blk(3~2), Ret = -1, (7~8)\n");
}

TEST_F(PartRing, InitSearchSeesWhatWasWrittenMeanwhile) {
    MakeDisk();
    WriteRing({1, 2});
    OpenPart part(Disk());
    EXPECT_EQ(InitSearch(part, 0, 0xFFFFFFFF), 3);
    EXPECT_EQ(m_region.endTime, 2000u);
    WriteRing({1, 2, 3});
    EXPECT_EQ(InitSearch(part, 0, 0xFFFFFFFF), 3);
    EXPECT_EQ(m_region.endTime, 3000u);
}

TEST_F(PartRing, OldestIsTheFirstOfTheRingUntilItWraps) {
    MakeDisk();
    WriteRing({0, 1, 2});
    Disk().SetBad(0);
    OpenPart part(Disk());
    std::string messages;
    InitSearch(part, 0, 0xFFFFFFFF, &messages);
    EXPECT_NE(messages.find("InitSearch Blk(1~2), Ret = 3, (1000~2000)\n"), std::string::npos) << messages;
}

TEST_F(PartRing, SequenceNumberTellsWhetherTheRingHasWrapped) {
    MakeDisk();
    WriteRing({1, 2, 3});
    Disk().Change<BlockHead_t>(Disk().HeadOffset(3), [](auto& head) { head.RecTime = 777; });
    OpenPart part(Disk());
    std::string messages;
    InitSearch(part, 0, 0xFFFFFFFF, &messages);
    EXPECT_NE(messages.find("InitSearch Blk(0~2), Ret = 3, (1000~3000)\n"), std::string::npos) << messages;
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    Disk().Change<BlockHead_t>(Disk().HeadOffset(3), [](auto& head) { head.RecTime = 0; });
    InitSearch(part, 0, 0xFFFFFFFF, &messages);
    EXPECT_NE(messages.find("InitSearch Blk(3~2), Ret = 3, (0~11000)\n"), std::string::npos) << messages;
}

TEST_F(PartRing, OldestSkipsBadBlocksBehindTheNewest) {
    MakeDisk();
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    Disk().SetBad(3);
    Disk().SetSuspect(4, 1);
    OpenPart part(Disk());
    std::string messages;
    InitSearch(part, 0, 0xFFFFFFFF, &messages);
    EXPECT_NE(messages.find("InitSearch Blk(5~2), Ret = 3, (6000~11000)\n"), std::string::npos) << messages;
}

TEST_F(PartRing, InitSearchOfAnEmptyDisk) {
    OpenPart part(MakeDisk());
    std::string messages;
    EXPECT_EQ(InitSearch(part, 0, 5, &messages), 3);
    EXPECT_EQ(messages, "Disk Empty\nGetLastBlock LastBlockNum = 0, RecordNum = 0\n"
                        "InitSearch Blk(0~0), Ret = 3, (0~0)\n");
}

TEST_F(PartRing, InitSearchWithoutBlocksEnds) {
    for (const uint32_t size : {0x10000u, 0u}) {
        MakeDisk().EditHead([size](PartHead_t& head) {
            head.BlkSize = size;
            head.BlkCount = size == 0 ? 0xFFFFFFFF : 0;
        });
        OpenPart part(Disk());
        EXPECT_EQ(InitSearch(part, 0, 100), 3);
        std::string messages;
        EXPECT_EQ(StartBlock(part, 0, 3, &messages), 0);
        EXPECT_EQ(messages, "GetSearchStartBlock StartSearchBlock = 0\n");
        std::remove(File("disk").c_str());
    }
}

TEST_F(PartRing, InitSearchRefusesAClosedObjectAndNullArguments) {
    CSearchPart closed;
    SearchParam_t param = {0, 0, 100, kAll};
    OutputTime_t region = {7, 8};
    EXPECT_EQ(Printed([&] { EXPECT_EQ(closed.InitSearch(&param, &region), -1); }), "");
    EXPECT_EQ(region.startTime, 7u);
    OpenPart part(MakeDisk());
    EXPECT_EQ(part->InitSearch(nullptr, &region), -1);
    EXPECT_EQ(part->InitSearch(&param, nullptr), -1);
}

// ---- the start block

TEST_F(PartRing, StartBlockOfTheRegionsThatNeedNoSearch) {
    MakeDisk();
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    InitSearch(part, 0, 0xFFFFFFFF);
    std::string messages;
    EXPECT_EQ(StartBlock(part, 6500, 0, &messages), 2);
    EXPECT_EQ(messages, "GetSearchStartBlock StartSearchBlock = 2\n");
    EXPECT_EQ(StartBlock(part, 6500, 1), 3);
    EXPECT_EQ(StartBlock(part, 6500, 3), 3);
    EXPECT_EQ(StartBlock(part, 6500, static_cast<uint32_t>(-1)), 3);
    EXPECT_EQ(StartBlock(part, 6500, 5), 3);
}

TEST_F(PartRing, StartBlockInARingThatHasNotWrapped) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    InitSearch(part, 0, 0xFFFFFFFF);
    std::string messages;
    EXPECT_EQ(StartBlock(part, 4500, 2, &messages), 3);
    EXPECT_EQ(messages, "GetSearchStartBlock StartSearchBlock = 3\n");
    EXPECT_EQ(StartBlock(part, 4500, 4), 3);
    EXPECT_EQ(StartBlock(part, 8500, 4, &messages), 0); // the last block is never found
    EXPECT_EQ(messages, "BinSearchStartBlock: Not Get Start Block!!!!!!\n"
                        "GetSearchStartBlock StartSearchBlock = 0\n");
}

TEST_F(PartRing, StartBlockInAWrappedRing) {
    MakeDisk();
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    InitSearch(part, 0, 0xFFFFFFFF);
    EXPECT_EQ(StartBlock(part, 9500, 2), 0); // younger arc: blocks 0 to 2
    EXPECT_EQ(StartBlock(part, 9000, 2), 0);
    EXPECT_EQ(StartBlock(part, 10500, 4), 1);
    EXPECT_EQ(StartBlock(part, 5500, 2), 4); // older arc: blocks 3 to 7
    EXPECT_EQ(StartBlock(part, 4500, 2), 3);
    EXPECT_EQ(StartBlock(part, 7999, 2), 6);
    EXPECT_EQ(StartBlock(part, 8999, 2), 3); // inside block 7, the arc's last: its first
}

TEST_F(PartRing, StartBlockSkipsBadBlocksAtTheEndsOfTheArcs) {
    MakeDisk();
    WriteRing({9, 10, 11, 4, 5, 6, 7, 8});
    Disk().SetBad(0);
    Disk().SetBad(7);
    OpenPart part(Disk());
    InitSearch(part, 0, 0xFFFFFFFF);
    // Newer arc 1 to 2, older arc 3 to 6.
    EXPECT_EQ(StartBlock(part, 9500, 2), 3); // before block 1: older arc, after block 6: its first
    EXPECT_EQ(StartBlock(part, 10500, 2), 1);
    EXPECT_EQ(StartBlock(part, 5500, 2), 4);
}

TEST_F(PartRing, BinarySearchFindsTheBlockOfATime) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    EXPECT_EQ(BinSearch(part, 0, 7, 4500), 3);
    EXPECT_EQ(BinSearch(part, 0, 7, 4000), 3);
    EXPECT_EQ(BinSearch(part, 0, 7, 3999), 2);
    EXPECT_EQ(BinSearch(part, 0, 7, 5000), 4); // a block's own start, met from either side
    EXPECT_EQ(BinSearch(part, 0, 7, 3000), 2);
    EXPECT_EQ(BinSearch(part, 0, 7, 1500), 0);
    EXPECT_EQ(BinSearch(part, 0, 7, 7500), 6);
    EXPECT_EQ(BinSearch(part, 0, 7, 999, false), 0);  // before the first
    EXPECT_EQ(BinSearch(part, 0, 7, 8500, false), 0); // in the last: narrowed to one block
    EXPECT_EQ(BinSearch(part, 2, 7, 9000, false), 2);
    EXPECT_EQ(BinSearch(part, 2, 3, 3500), 2);
    EXPECT_EQ(BinSearch(part, 4, 4, 5500, false), 4);
    EXPECT_EQ(BinSearch(part, 5, 4, 5500, false), 5); // no stretch
}

TEST_F(PartRing, BinarySearchMovesFromTheMiddleItselfEvenIfThatIsBad) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    Disk().SetBad(3);
    OpenPart part(Disk());
    EXPECT_EQ(BinSearch(part, 0, 7, 4500), 3); // block 2's time, block 3's number
    EXPECT_EQ(BinSearch(part, 0, 7, 3500), 3);
    EXPECT_EQ(BinSearch(part, 0, 7, 2500), 1);
}

TEST_F(PartRing, BinarySearchRefusesBoundsOutsideTheRing) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    OpenPart part(Disk());
    EXPECT_EQ(BinSearch(part, 0, 8, 4500, false), 0);
    EXPECT_EQ(BinSearch(part, 0, 0xFFFFFFFF, 4500, false), 0);
    EXPECT_EQ(BinSearch(part, 100, 200, 4500, false), 100);
}

TEST_F(PartRing, BinarySearchEndsWhereAWalkFindsNothing) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    for (uint32_t block = 4; block < 8; ++block) {
        Disk().SetBad(block);
    }
    OpenPart part(Disk());
    EXPECT_EQ(BinSearch(part, 0, 7, 4500, false), 0);
    for (uint32_t block = 0; block < 3; ++block) {
        Disk().SetBad(block);
    }
    OpenPart other(Disk());
    EXPECT_EQ(BinSearch(other, 0, 7, 3500, false), 0);
}

TEST_F(PartRing, BinarySearchDoesNotUseTheTimeOfAnInvalidBlock) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    for (uint32_t block = 4; block < 8; ++block) {
        Spoil(block);
    }
    OpenPart part(Disk());
    // Block 3 begins before that time. The heads of blocks 4 to 7 state later times, but are none.
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->BinSearchStartBlock(0, 7, 4500, 0), 0); }),
              "IsValidBlock: invalid block 4\nIsValidBlock: invalid block 5\n"
              "IsValidBlock: invalid block 6\nIsValidBlock: invalid block 7\n"
              "BinSearchStartBlock: Not Get Start Block!!!!!!\n");
}

TEST_F(PartRing, BinarySearchOfOneBlockLooksAtIt) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    Spoil(4);
    OpenPart part(Disk());
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->BinSearchStartBlock(4, 4, 5500, 0), 4); }),
              "IsValidBlock: invalid block 4\nBinSearchStartBlock: Not Get Start Block!!!!!!\n");
}

TEST_F(PartRing, BinarySearchOnAClosedObject) {
    CSearchPart closed;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(closed.BinSearchStartBlock(3, 5, 0, 0), 3); }),
              "BinSearchStartBlock: Not Get Start Block!!!!!!\n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(closed.GetSearchStartBlock(0, 1), -1); }), "");
}

// ---- space

TEST_F(PartRing, SpaceMessages) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5});
    OpenPart part(Disk());
    DiskSpaceInfo_t info = {};
    EXPECT_EQ(
        Printed([&] { EXPECT_EQ(part->GetSpace(&info), 0); }),
        "GetLastBlock LastBlockNum = 4, RecordNum = 5\nGetSpace OldestBlockNum = 0, LastBlockNum = 4\n");
    EXPECT_EQ(info.totalSize, 0x80000u);
    EXPECT_EQ(info.freeSize, 0x30000u);
}

TEST_F(PartRing, SpaceIsCountedInSixtyFourBits) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkSize = 0x80000000; });
    OpenPart part(Disk());
    DiskSpaceInfo_t info = {};
    Quietly([&] { EXPECT_EQ(part->GetSpace(&info), 0); });
    EXPECT_EQ(info.totalSize, 0x400000000u);
    EXPECT_EQ(info.freeSize, 0x380000000u);
}

TEST_F(PartRing, SpaceOfNoBlocksIsNone) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    OpenPart part(Disk());
    DiskSpaceInfo_t info = {1, 1};
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->GetSpace(&info), 0); }),
              "GetSpace OldestBlockNum = 0, LastBlockNum = 0\n");
    EXPECT_EQ(info.totalSize, 0u);
    EXPECT_EQ(info.freeSize, 0u);
}

TEST_F(PartRing, SpaceOfAClosedObjectCannotBeTold) {
    CSearchPart closed;
    DiskSpaceInfo_t info = {1, 2};
    EXPECT_EQ(closed.GetSpace(&info), -1);
    EXPECT_EQ(info.totalSize, 1u);
    OpenPart part(MakeDisk());
    EXPECT_EQ(part->GetSpace(nullptr), -1);
}

} // namespace
