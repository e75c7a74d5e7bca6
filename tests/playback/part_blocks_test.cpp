#include <algorithm>
#include <cstdio>
#include <cstring>

#include "playback/part_fixture.h"

namespace {

using namespace test_support;

/// A mode whose test every block passes.
constexpr unsigned int kNoTest = 5;

class ReadPartBlocks : public PartFixture {
protected:
    /// Asks whether a block is usable, and what is said of it.
    static int Valid(OpenReadPart& part, uint32_t block, std::string* messages, unsigned int mode = kNoTest,
                     unsigned int seq = 0) {
        int result = -7;
        *messages = PrintedWithoutLines([&] { result = part->IsValidBlock(block, mode, seq); });
        return result;
    }

    /// The block that a walk finds, or -1.
    static int Next(OpenReadPart& part, uint32_t from, uint32_t to, unsigned int mode = kNoTest,
                    unsigned int seq = 0) {
        return Walk(part, &CReadPart::GetNextValidBlock, mode, seq, from, to);
    }
    static int Prev(OpenReadPart& part, uint32_t from, uint32_t to, unsigned int mode = kNoTest,
                    unsigned int seq = 0) {
        return Walk(part, &CReadPart::GetPrevValidBlock, mode, seq, from, to);
    }

    /// The blocks of a ring of bad ones that a walk looks at, in its order.
    static std::vector<int> Looked(const std::function<int()>& walk) {
        const std::string messages = Printed([&] { EXPECT_EQ(walk(), -1); });
        std::vector<int> blocks;
        const std::string before = "bad block ";
        for (size_t at = messages.find(before); at != std::string::npos; at = messages.find(before, at)) {
            at += before.size();
            blocks.push_back(std::stoi(messages.substr(at)));
        }
        return blocks;
    }

    void SetAllBad() {
        for (uint32_t block = 0; block < Disk().BlockCount(); ++block) {
            Disk().SetBad(block);
        }
    }

    /// Makes a block invalid: formatted by something else.
    void Spoil(uint32_t block) {
        Disk().Change<BlockHead_t>(Disk().HeadOffset(block), [](auto& head) { head.ValidFlag = 0x12345678; });
    }

private:
    using WalkFunction = int (CReadPart::*)(unsigned int, unsigned int, unsigned int, unsigned int,
                                            unsigned int*);
    static int Walk(OpenReadPart& part, WalkFunction walk, unsigned int mode, unsigned int seq, uint32_t from,
                    uint32_t to) {
        unsigned int found = 77;
        const int result = ((*part).*walk)(mode, seq, from, to, &found);
        if (result != 0) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(found, 77u); // unchanged
            return -1;
        }
        return static_cast<int>(found);
    }
};

TEST_F(ReadPartBlocks, MarkedBlocksAreUnusable) {
    MakeDisk(9).SetBad(8);
    OpenReadPart part(Disk());
    std::string messages;
    EXPECT_EQ(Valid(part, 7, &messages), 1);
    EXPECT_EQ(messages, "");
    EXPECT_EQ(Valid(part, 8, &messages), 0);
    EXPECT_EQ(messages, "IsValidBlock: bad block 8\n");
}

TEST_F(ReadPartBlocks, BitsOfTheTableCountFromTheLeastSignificant) {
    MakeDisk(9);
    Disk().Put(Disk().Head().BBTabOffs, uint8_t{0x02});
    Disk().Put(Disk().Head().BBTabOffs + 1, uint8_t{0xFE}); // bit 0 is block 8, the others mean nothing
    OpenReadPart part(Disk());
    for (uint32_t block = 0; block < 9; ++block) {
        std::string messages;
        EXPECT_EQ(Valid(part, block, &messages), block == 1 ? 0 : 1) << block;
    }
}

TEST_F(ReadPartBlocks, SuspectBlocksAreUsable) {
    MakeDisk().SetSuspect(3, 255);
    OpenReadPart part(Disk());
    std::string messages;
    EXPECT_EQ(Valid(part, 3, &messages), 1);
    EXPECT_EQ(messages, "");
}

TEST_F(ReadPartBlocks, BlocksWithAnotherMagicAreUnusable) {
    MakeDisk();
    Spoil(2);
    Spoil(5);
    Disk().SetBad(5);
    OpenReadPart part(Disk());
    std::string messages;
    for (unsigned int mode = 0; mode < 6; ++mode) {
        EXPECT_EQ(Valid(part, 2, &messages, mode), 0);
        EXPECT_EQ(messages, "IsValidBlock: invalid block 2\n");
    }
    EXPECT_EQ(Valid(part, 5, &messages), 0);
    EXPECT_EQ(messages, "IsValidBlock: bad block 5\n"); // its head is not even looked at
}

TEST_F(ReadPartBlocks, UnreadableBlocksAreUnusable) {
    MakeDisk().Truncate(Disk().BlockStart(5) + 0x8000); // block 5 has a head and no tail
    OpenReadPart part(Disk());
    std::string messages;
    EXPECT_EQ(Valid(part, 4, &messages), 1);
    EXPECT_EQ(messages, "");
    for (const uint32_t block : {5u, 6u, 7u}) {
        EXPECT_EQ(Valid(part, block, &messages), 0) << block;
        EXPECT_EQ(messages, "OpenBlock : #, Failed\n");
    }
}

// ---- blocks that cannot be opened

/// The results of the questions about each block of a disk. A walk over the blocks must print the same.
class BlocksThatCannotBeOpened : public ReadPartBlocks {
protected:
    /// A ring of eight blocks, two of them inside the device, without the magic. Block 4 is bad.
    void MakeCutDisk() {
        MakeDisk();
        Spoil(0);
        Spoil(1);
        Disk().SetBad(4);
        Disk().Truncate(Disk().BlockStart(2));
    }

    /// Expects these messages of blocks 0 to 7, by IsValidBlock() and by walks in both directions.
    void ExpectMessages(const Lines& expected) {
        // Separate objects: the table may be loaded in one and not yet in the other.
        for (const bool forwards : {true, false}) {
            OpenReadPart part(Disk());
            Prepare(part);
            std::string all;
            for (int i = 0; i < 8; ++i) {
                all += expected.at(static_cast<size_t>(forwards ? i : 7 - i));
            }
            const HostilePath path(*this);
            EXPECT_EQ(
                PrintedWithoutLines([&] { EXPECT_EQ(forwards ? Next(part, 0, 7) : Prev(part, 7, 0), -1); }),
                all)
                << forwards;
        }
        OpenReadPart part(Disk());
        Prepare(part);
        const HostilePath path(*this);
        for (uint32_t block = 0; block < 8; ++block) {
            std::string messages;
            EXPECT_EQ(Valid(part, block, &messages), 0) << block;
            EXPECT_EQ(messages, expected.at(block)) << block;
        }
    }

    /// Positions beyond the device cannot be taken, as on a block device; positions in a file can.
    static Fate AsABlockDevice(const Call& call, int64_t size) {
        return call.kind == CallKind::Seek && call.offset > size ? Fate::Failing(22) : Fate();
    }

    bool m_loadTable = false; ///< before the path goes
    bool m_pathGoes = false;

private:
    void Prepare(OpenReadPart& part) const {
        if (m_loadTable) {
            EXPECT_EQ(part->GetBadBlockTab(), 0);
        }
    }

    /// While this object exists the path is gone, if it was asked to remove it.
    class HostilePath {
    public:
        explicit HostilePath(BlocksThatCannotBeOpened& test) : m_test(test) { Move("disk", "elsewhere"); }
        ~HostilePath() { Move("elsewhere", "disk"); }
        HostilePath(const HostilePath&) = delete;
        HostilePath& operator=(const HostilePath&) = delete;

    private:
        void Move(const char* from, const char* to) {
            if (m_test.m_pathGoes) {
                EXPECT_EQ(std::rename(m_test.File(from).c_str(), m_test.File(to).c_str()), 0);
            }
        }
        BlocksThatCannotBeOpened& m_test;
    };
};

const char* const kInvalid0 = "IsValidBlock: invalid block 0\n";
const char* const kInvalid1 = "IsValidBlock: invalid block 1\n";
const char* const kBad4 = "IsValidBlock: bad block 4\n";
const char* const kNoTable = "dev_open : #, Failed\n";
const std::string kNoBlock = "OpenBlock : #, Failed\n";
const std::string kNoWindow = "block_open : #, Failed\n" + kNoBlock;

TEST_F(BlocksThatCannotBeOpened, BeyondAFile) {
    MakeCutDisk();
    ExpectMessages({kInvalid0, kInvalid1, kNoBlock, kNoBlock, kBad4, kNoBlock, kNoBlock, kNoBlock});
}

TEST_F(BlocksThatCannotBeOpened, BeyondABlockDevice) {
    MakeCutDisk();
    const auto size = static_cast<int64_t>(Disk().BlockStart(2));
    const SystemCallLog log([size](const Call& call, size_t) { return AsABlockDevice(call, size); });
    // Block 2 would begin where the device ends: that is a position, though nothing is there.
    ExpectMessages({kInvalid0, kInvalid1, kNoBlock, kNoWindow, kBad4, kNoWindow, kNoWindow, kNoWindow});
}

TEST_F(BlocksThatCannotBeOpened, WithoutTheirPath) {
    MakeCutDisk();
    m_loadTable = true;
    m_pathGoes = true;
    ExpectMessages({kNoWindow, kNoWindow, kNoWindow, kNoWindow, kBad4, kNoWindow, kNoWindow, kNoWindow});
}

TEST_F(BlocksThatCannotBeOpened, WithoutTheirPathEachTriesTheTableAgain) {
    MakeCutDisk();
    m_pathGoes = true;
    ExpectMessages(Lines(8, kNoTable + kNoWindow));
}

TEST_F(BlocksThatCannotBeOpened, TooSmallForTheirOwnAreas) {
    MakeCutDisk();
    Disk().EditHead([](PartHead_t& head) { head.BlkSize = 4935; });
    Disk().Truncate(Disk().BlockStart(0) + 2 * 4935);
    const Lines expected = {kNoBlock, kNoBlock, kNoBlock, kNoBlock, kBad4, kNoBlock, kNoBlock, kNoBlock};
    ExpectMessages(expected);
    m_loadTable = true;
    m_pathGoes = true;
    ExpectMessages({kNoWindow, kNoWindow, kNoWindow, kNoWindow, kBad4, kNoWindow, kNoWindow, kNoWindow});
}

TEST_F(BlocksThatCannotBeOpened, BeyondADeviceThatLacksTheTableToo) {
    MakeCutDisk();
    Disk().EditHead([](PartHead_t& head) { head.BBTabOffs = 0xFFFFFF00; });
    const auto size = static_cast<int64_t>(Disk().BlockStart(2));
    const SystemCallLog log([size](const Call& call, size_t) { return AsABlockDevice(call, size); });
    ExpectMessages({kInvalid0, kInvalid1, kNoBlock, kNoWindow, kNoWindow, kNoWindow, kNoWindow, kNoWindow});
}

TEST_F(BlocksThatCannotBeOpened, SayWhatOpeningThemSays) {
    MakeCutDisk();
    const auto size = static_cast<int64_t>(Disk().BlockStart(2));
    const SystemCallLog log([size](const Call& call, size_t) { return AsABlockDevice(call, size); });
    OpenReadPart part(Disk());
    PartAccess_t access = Disk().Access();
    for (const uint32_t block : {2u, 3u, 7u}) {
        CReadBlock opened;
        const std::string expected = PrintedWithoutLines(
            [&] { EXPECT_EQ(opened.OpenBlock(block, Disk().BlockSize(), &access, 0, 0), -1); });
        std::string messages;
        EXPECT_EQ(Valid(part, block, &messages), 0);
        EXPECT_EQ(messages, expected);
    }
}

TEST_F(BlocksThatCannotBeOpened, AreNotEachOpenedAndFlushedByAWalk) {
    MakeCutDisk();
    for (const uint32_t count : {65536u, 70000u, 0x40000000u, 0xFFFFFFF9u, 0xFFFFFFFFu}) {
        Disk().EditHead([count](PartHead_t& head) { head.BlkCount = count; });
        OpenReadPart part(Disk());
        int open = 0;
        int mostOpen = 0;
        const SystemCallLog log([&](const Call& call, size_t) {
            open += call.kind == CallKind::Open ? 1 : call.kind == CallKind::Close ? -1 : 0;
            mostOpen = std::max(mostOpen, open);
            return Fate();
        });
        Quietly([&] {
            EXPECT_EQ(Next(part, 1, 0), -1) << count;
            EXPECT_EQ(Prev(part, 0, 1), -1) << count;
        });
        // A walk opens and flushes three blocks: 0, 1, and the first one that the device lacks.
        EXPECT_EQ(log.Count(CallKind::Sync), 6u) << count;
        EXPECT_LE(log.Count(CallKind::Open), 20u) << count;
        EXPECT_LE(log.Calls().size(), 2 * 65536 + 100u) << count; // a position each
        EXPECT_EQ(open, 0);
        EXPECT_EQ(mostOpen, 1); // no more at a time than it takes to open a block
    }
}

TEST_F(BlocksThatCannotBeOpened, TableBehindTheDevicesLastByteIsNotTriedAgain) {
    MakeCutDisk();
    const uint64_t size = Disk().BlockStart(2);
    Disk().EditHead([=](PartHead_t& head) { head.BBTabOffs = static_cast<uint32_t>(size); });
    OpenReadPart part(Disk());
    const SystemCallLog log;
    Quietly([&] { EXPECT_EQ(Next(part, 0, 7), -1); });
    // For the table and for the block, for each of blocks 0 to 2; then once, where all the others are missing.
    EXPECT_EQ(log.Count(CallKind::Open), 7u);
}

TEST_F(BlocksThatCannotBeOpened, TableThatCouldNotBeReadIsTriedAgainToTheDevicesLastByte) {
    MakeCutDisk();
    const uint64_t size = Disk().BlockStart(2);
    Disk().EditHead([=](PartHead_t& head) { head.BBTabOffs = static_cast<uint32_t>(size); });
    Disk().Put(size, uint8_t{1u << 6}); // block 6 is bad now
    OpenReadPart part(Disk());
    int tries = 0;
    int open = 0;
    int mostOpen = 0;
    const SystemCallLog log([&](const Call& call, size_t) {
        open += call.kind == CallKind::Open ? 1 : call.kind == CallKind::Close ? -1 : 0;
        mostOpen = std::max(mostOpen, open);
        const bool table = call.kind == CallKind::Read && call.offset == static_cast<int64_t>(size);
        return table && ++tries <= 5 ? Fate::Failing() : Fate();
    });
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(Next(part, 0, 7), -1); }),
              std::string(kInvalid0) + kInvalid1 + kNoBlock + kNoBlock + kNoBlock + kNoBlock +
                  "IsValidBlock: bad block 6\n" + kNoBlock);
    EXPECT_EQ(tries, 6);
    EXPECT_EQ(mostOpen, 1);
}

TEST_F(ReadPartBlocks, BlocksThatADeviceGainsAreUsable) {
    MakeDisk();
    Disk().WriteBlock(6, BlockContents::Closed(7, 7000, 7900));
    const uint64_t whole = Disk().BlockStart(8);
    Disk().Truncate(Disk().BlockStart(2));
    OpenReadPart part(Disk());
    std::string messages;
    Quietly([&] { EXPECT_EQ(Next(part, 2, 7), -1); });
    EXPECT_EQ(Valid(part, 6, &messages), 0);
    Disk().Truncate(whole);
    Disk().WriteBlock(6, BlockContents::Closed(7, 7000, 7900));
    EXPECT_EQ(Valid(part, 6, &messages), 1);
    EXPECT_EQ(messages, "");
    Quietly([&] { EXPECT_EQ(Next(part, 2, 7), 6); });
}

TEST_F(ReadPartBlocks, TableThatADeviceGainsIsLoaded) {
    MakeDisk();
    const uint64_t whole = Disk().BlockStart(8);
    Disk().EditHead([=](PartHead_t& head) { head.BBTabOffs = static_cast<uint32_t>(whole); });
    OpenReadPart part(Disk());
    std::string messages;
    EXPECT_EQ(Valid(part, 3, &messages), 1);
    Disk().Put(whole, uint8_t{1u << 3});
    EXPECT_EQ(Valid(part, 3, &messages), 0);
    EXPECT_EQ(messages, "IsValidBlock: bad block 3\n");
}

TEST_F(ReadPartBlocks, RingLargerThanIdsCanNameGrowsWithItsDevice) {
    // Of a million stated blocks of 8 KiB, 10 begin inside the device, and later 70,000.
    Format format;
    format.blockCount = 10;
    format.blockSize = 0x2000;
    MakeDisk(format).EditHead([](PartHead_t& head) {
        head.BlkCount = 1000000;
        head.BBTabOffs = 0x100000;
    });
    OpenReadPart part(Disk());
    std::string messages;
    EXPECT_EQ(Valid(part, 9, &messages), 1);
    EXPECT_EQ(Valid(part, 10, &messages), 0);
    Disk().Truncate(Disk().BlockStart(70000));
    for (const uint32_t block : {69990u, 69995u, 69999u}) {
        Disk().WriteBlock(block, BlockContents::Closed(7, 7000, 7900));
    }
    Disk().SetBad(69995);
    Quietly([&] {
        EXPECT_EQ(Next(part, 69991, 69994), -1);
        EXPECT_EQ(Next(part, 69991, 69989), 69999); // and not 69995
        EXPECT_EQ(Prev(part, 5, 69999), 5);
        EXPECT_EQ(Next(part, 69999, 0), 69999);
    });
    EXPECT_EQ(Valid(part, 69995, &messages), 0);
    EXPECT_EQ(messages, "IsValidBlock: bad block 69995\n");
}

TEST_F(ReadPartBlocks, RingWithoutBlocksHasNoUsableOne) {
    MakeDisk().WriteBlock(0, BlockContents::Closed(1, 1000, 1900));
    Disk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    OpenReadPart part(Disk());
    for (unsigned int mode = 0; mode < 6; ++mode) {
        std::string messages;
        EXPECT_EQ(Valid(part, 0, &messages, mode), 0);
        EXPECT_EQ(messages, "");
    }
}

TEST_F(ReadPartBlocks, BlocksAreTriedOnADeviceOfUnknownSize) {
    MakeDisk().WriteBlock(7, BlockContents::Closed(1, 1000, 1900));
    CReadPart part;
    PartAccess_t access = Disk().Access();
    {
        const SystemCallLog log(
            [](const Call& call, size_t) { return call.kind == CallKind::Seek ? Fate::Failing() : Fate(); });
        EXPECT_EQ(part.Init(&access), 0);
    }
    EXPECT_EQ(part.IsValidBlock(7, kNoTest, 0), 1);
    part.Quit();
}

TEST_F(ReadPartBlocks, BlocksOutsideTheRingAreNoneOfTheTables) {
    MakeDisk(9);
    Disk().Put(Disk().Head().BBTabOffs + 1, uint8_t{0xFE}); // what would be blocks 9 to 15
    OpenReadPart part(Disk());
    std::string messages;
    for (const uint32_t block : {9u, 15u, 16u, 65535u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(Valid(part, block, &messages), 0) << block;
        EXPECT_EQ(messages.find("IsValidBlock"), std::string::npos);
        const SystemCallLog log;
        EXPECT_EQ(Valid(part, block, &messages), 0) << block;
        EXPECT_EQ(log.Count(CallKind::Open), 1u); // the block, and not the table again
    }
}

TEST_F(ReadPartBlocks, NothingIsUsableWithoutAPartition) {
    CReadPart part;
    unsigned int found = 77;
    EXPECT_EQ(part.IsValidBlock(0, kNoTest, 0), 0);
    EXPECT_EQ(part.GetNextValidBlock(kNoTest, 0, 0, 1, &found), -1);
    EXPECT_EQ(part.GetPrevValidBlock(kNoTest, 0, 0, 1, &found), -1);
    EXPECT_EQ(found, 77u);
}

TEST_F(ReadPartBlocks, TableIsLoadedOnceOnFirstUse) {
    OpenReadPart part(MakeDisk());
    EXPECT_EQ(part->IsValidBlock(2, kNoTest, 0), 1);
    Disk().SetBad(2);
    EXPECT_EQ(part->IsValidBlock(2, kNoTest, 0), 1);
    const SystemCallLog log;
    EXPECT_EQ(part->IsValidBlock(2, kNoTest, 0), 1);
    EXPECT_EQ(log.Count(CallKind::Open), 1u); // only the block's window
    EXPECT_EQ(log.Count(CallKind::Close), 1u);
}

TEST_F(ReadPartBlocks, TableIsLoadedForABlockOutsideTheRingToo) {
    OpenReadPart part(MakeDisk());
    const SystemCallLog log;
    Quietly([&] { EXPECT_EQ(part->IsValidBlock(Disk().Head().BlkCount, kNoTest, 0), 0); });
    EXPECT_EQ(log.Count(CallKind::Open), 2u); // for the table, and the block's window
    Quietly([&] { EXPECT_EQ(part->IsValidBlock(Disk().Head().BlkCount, kNoTest, 0), 0); });
    EXPECT_EQ(log.Count(CallKind::Open), 3u);
}

TEST_F(ReadPartBlocks, WithoutATableNoBlockIsBad) {
    MakeDisk().SetBad(2);
    Disk().EditHead([](PartHead_t& head) { head.BBTabOffs = 0xFFFFFFFF; });
    OpenReadPart part(Disk());
    std::string messages;
    EXPECT_EQ(Valid(part, 2, &messages), 1);
    EXPECT_EQ(messages, "");
}

TEST_F(ReadPartBlocks, ModesTestClosingStateAndNumbers) {
    struct Case {
        uint32_t state, headSeq, tailSeq;
        const char* usable; ///< by mode, 0 to 6; mode 1 is asked with number 5
    };
    const Case cases[] = {
        {0, 5, 5, "1110111"}, {0, 5, 4, "1110011"}, {0, 0, 0, "1100111"}, {0, 0, 4, "1100011"},
        {1, 4, 4, "0001111"}, {1, 5, 5, "0101111"}, {1, 6, 4, "0101011"}, {1, 0, 0, "0000111"},
        {2, 4, 4, "1111111"}, {2, 0, 0, "1100111"}, {2, 4, 3, "1111011"}, {0xFFFFFFFF, 7, 7, "1111111"},
    };
    MakeDisk();
    for (const Case& test : cases) {
        auto contents = BlockContents::Closed(test.headSeq, 1000, 1900);
        contents.tail.CloseState = test.state;
        contents.tail.RecSeq = test.tailSeq;
        Disk().WriteBlock(1, contents);
        OpenReadPart part(Disk());
        std::string usable;
        for (unsigned int mode = 0; mode < 7; ++mode) {
            std::string messages;
            usable += std::to_string(Valid(part, 1, &messages, mode, 5));
            EXPECT_EQ(messages, "");
        }
        EXPECT_EQ(usable, test.usable) << test.state << ' ' << test.headSeq << ' ' << test.tailSeq;
        EXPECT_EQ(part->IsValidBlock(1, 0xFFFFFFFF, 0), 1);
    }
}

TEST_F(ReadPartBlocks, SequencesAreComparedUnsigned) {
    auto contents = BlockContents::Closed(0x80000000, 1000, 1900);
    contents.tail.CloseState = 1;
    MakeDisk().WriteBlock(1, contents);
    OpenReadPart part(Disk());
    EXPECT_EQ(part->IsValidBlock(1, 1, 0x7FFFFFFF), 1);
    EXPECT_EQ(part->IsValidBlock(1, 1, 0x80000000), 1);
    EXPECT_EQ(part->IsValidBlock(1, 1, 0x80000001), 0);
}

TEST_F(ReadPartBlocks, LooksAtTheTailOfTheExtendedLayoutToo) {
    Format format;
    format.fmtVersion = 1;
    auto contents = BlockContents::Closed(4, 1000, 1900);
    contents.tail.CloseState = 1;
    MakeDisk(format).WriteBlock(1, contents);
    OpenReadPart part(Disk());
    EXPECT_EQ(part->IsValidBlock(1, 0, 0), 0);
    EXPECT_EQ(part->IsValidBlock(1, 4, 0), 1);
}

TEST_F(ReadPartBlocks, NeverWalksTheFramesOfAnIncompleteBlock) {
    RecordOnNewDisk("I0@1000 P0@1001 P0@1002 /");
    OpenReadPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    const SystemCallLog log;
    EXPECT_EQ(part->IsValidBlock(0, kNoTest, 0), 1);
    EXPECT_EQ(log.Count(CallKind::Read), 2u); // head and tail
}

TEST_F(ReadPartBlocks, WalksStopAtTheFirstUsableBlock) {
    MakeDisk();
    for (const uint32_t block : {1u, 2u, 6u, 7u}) {
        Spoil(block);
    }
    OpenReadPart part(Disk());
    Quietly([&] {
        EXPECT_EQ(Next(part, 3, 2), 3); // where it starts
        EXPECT_EQ(Next(part, 1, 0), 3);
        EXPECT_EQ(Next(part, 6, 5), 0); // round the ring's end
        EXPECT_EQ(Next(part, 1, 3), 3); // at the last that may be
        EXPECT_EQ(Next(part, 1, 2), -1);
        EXPECT_EQ(Prev(part, 5, 6), 5);
        EXPECT_EQ(Prev(part, 2, 3), 0);
        EXPECT_EQ(Prev(part, 7, 0), 5);
        EXPECT_EQ(Prev(part, 2, 0), 0);
        EXPECT_EQ(Prev(part, 2, 1), -1);
        EXPECT_EQ(Prev(part, 7, 6), -1);
        EXPECT_EQ(Next(part, 6, 7), -1);
    });
}

TEST_F(ReadPartBlocks, WalksFromABlockToItselfLookAtItAlone) {
    MakeDisk();
    Spoil(4);
    OpenReadPart part(Disk());
    EXPECT_EQ(Next(part, 3, 3), 3);
    EXPECT_EQ(Prev(part, 3, 3), 3);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Next(part, 4, 4), -1); }), "IsValidBlock: invalid block 4\n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Prev(part, 4, 4), -1); }), "IsValidBlock: invalid block 4\n");
}

TEST_F(ReadPartBlocks, WalksLookAtEachBlockOnceAndAtTheEndLast) {
    MakeDisk(4);
    SetAllBad();
    OpenReadPart part(Disk());
    using Blocks = std::vector<int>;
    EXPECT_EQ(Looked([&] { return Next(part, 2, 1); }), (Blocks{2, 3, 0, 1}));
    EXPECT_EQ(Looked([&] { return Next(part, 0, 3); }), (Blocks{0, 1, 2, 3}));
    EXPECT_EQ(Looked([&] { return Next(part, 3, 0); }), (Blocks{3, 0}));
    EXPECT_EQ(Looked([&] { return Next(part, 1, 1); }), (Blocks{1}));
    EXPECT_EQ(Looked([&] { return Prev(part, 1, 2); }), (Blocks{1, 0, 3, 2}));
    EXPECT_EQ(Looked([&] { return Prev(part, 3, 0); }), (Blocks{3, 2, 1, 0}));
    EXPECT_EQ(Looked([&] { return Prev(part, 0, 3); }), (Blocks{0, 3}));
    EXPECT_EQ(Looked([&] { return Prev(part, 1, 1); }), (Blocks{1}));
}

TEST_F(ReadPartBlocks, WalksWithAnEndOutsideTheRingTakeOneTurn) {
    MakeDisk(4);
    SetAllBad();
    OpenReadPart part(Disk());
    using Blocks = std::vector<int>;
    for (const uint32_t to : {4u, 5u, 65535u, 0xFFFFFFFFu}) {
        EXPECT_EQ(Looked([&] { return Next(part, 2, to); }), (Blocks{2, 3, 0, 1})) << to;
        EXPECT_EQ(Looked([&] { return Prev(part, 2, to); }), (Blocks{2, 1, 0, 3})) << to;
    }
    // A start outside it is tested too, but is not a bad block: the table has no bit for it.
    EXPECT_EQ(Looked([&] { return Next(part, 4, 0); }), (Blocks{1, 2, 3, 0}));
    EXPECT_EQ(Looked([&] { return Prev(part, 4, 0); }), (Blocks{3, 2, 1, 0}));
}

TEST_F(ReadPartBlocks, WalksHandModeAndNumberOn) {
    MakeDisk(4);
    for (uint32_t block = 0; block < 4; ++block) {
        auto contents = BlockContents::Closed(block + 1, 1000, 1900);
        contents.tail.CloseState = 1;
        Disk().WriteBlock(block, contents);
    }
    OpenReadPart part(Disk());
    EXPECT_EQ(Next(part, 0, 3, 1, 3), 2); // numbers 1 and 2 are too small
    EXPECT_EQ(Next(part, 0, 3, 1, 5), -1);
    EXPECT_EQ(Prev(part, 1, 2, 1, 4), 3);
    EXPECT_EQ(Next(part, 0, 3, 0, 0), -1);
    EXPECT_EQ(Prev(part, 3, 0, 2, 0), -1);
    EXPECT_EQ(Next(part, 0, 3, 3, 0), 0);
}

TEST_F(ReadPartBlocks, WalksNeedAPlaceForTheResult) {
    OpenReadPart part(MakeDisk());
    EXPECT_EQ(part->GetNextValidBlock(kNoTest, 0, 0, 7, nullptr), -1);
    EXPECT_EQ(part->GetPrevValidBlock(kNoTest, 0, 0, 7, nullptr), -1);
}

TEST_F(ReadPartBlocks, WalksInARingWithoutBlocksFindNothing) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    OpenReadPart part(Disk());
    EXPECT_EQ(Next(part, 0, 0), -1);
    EXPECT_EQ(Next(part, 0, 3), -1);
    EXPECT_EQ(Prev(part, 3, 0), -1);
}

/// A head with a value of its own in each field that a record's parameters come from.
BlockContents Parameters(uint32_t chn) {
    auto contents = BlockContents::Closed(7, 1000, 1900);
    contents.head.pre_RecTime = 11;
    contents.head.AlmDelayTime = 12;
    std::memset(contents.head.VehicleNum, 'N', sizeof contents.head.VehicleNum); // no end
    std::memcpy(contents.head.VehicleID, "vehicle\0behind", 14);
    contents.head.prop[chn] = {21, 201, 202, 203, 204, 22, 23, 24, 205, 206, {99, 99}};
    contents.Channels(1u << chn);
    return contents;
}

TEST_F(ReadPartBlocks, ParametersOfARecord) {
    MakeDisk();
    for (const uint32_t chn : {0u, 5u, 31u}) {
        Disk().WriteBlock(3, Parameters(chn));
        OpenReadPart part(Disk());
        RecordItem_t record = {0x55, 3u << 16 | chn << 9 | 77, 1234, 1000, 1900, 9000, 0};
        EncodeParam_t out;
        std::memset(&out, 0xEE, sizeof out);
        EXPECT_EQ(Printed([&] { EXPECT_EQ(part->GetRecInfo(&out, &record, 0), 0); }), "");
        EncodeParam_t expected = {};
        expected.pre_RecTime = 11;
        expected.AlmDelayTime = 12;
        expected.chn = chn;
        expected.Bitrate = 21;
        expected.VType = 201;
        expected.FrameRate = 202;
        expected.Resolution = 203;
        expected.gop = 204;
        expected.Sample = 22;
        expected.BitWidth = 23;
        expected.audio_frame_len = 24;
        expected.AType = 205;
        expected.propRes = 206;
        std::memset(expected.VehicleNum, 'N', 16);
        std::memcpy(expected.VehicleID, "vehicle\0behind", 14); // unchanged, whatever it contains
        EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0) << chn;
        // The record's channel becomes that of its id; the rest stays.
        const RecordItem_t after = {0x55, 3u << 16 | chn << 9 | 77, chn, 1000, 1900, 9000, 0};
        EXPECT_EQ(std::memcmp(&record, &after, sizeof record), 0) << chn;
    }
}

TEST_F(ReadPartBlocks, ParametersLieInTheOrderOfTheirRecord) {
    MakeDisk().WriteBlock(3, Parameters(1));
    OpenReadPart part(Disk());
    RecordItem_t record = WholeBlockRecord(3, 1);
    EncodeParam_t out = {};
    EXPECT_EQ(part->GetRecInfo(&out, &record, 0), 0);
    uint32_t words[13];
    std::memcpy(words, &out, sizeof words);
    const uint32_t expected[13] = {11, 12, 1, 201, 202, 205, 21, 204, 22, 23, 24, 206, 203};
    EXPECT_EQ(std::memcmp(words, expected, sizeof words), 0);
    EXPECT_EQ(sizeof out, 100u);
}

/// Asks for parameters that do not exist.
void ExpectNoParameters(CReadPart& part, RecordItem_t record, int rebuild = 0) {
    record.chn = 1234;
    const RecordItem_t before = record;
    EncodeParam_t out;
    std::memset(&out, 0xEE, sizeof out);
    Quietly([&] { EXPECT_EQ(part.GetRecInfo(&out, &record, rebuild), -1); });
    const EncodeParam_t zero = {};
    EXPECT_EQ(std::memcmp(&out, &zero, sizeof out), 0);
    EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
}

TEST_F(ReadPartBlocks, ParametersThatCannotBeHadAreZero) {
    MakeDisk().WriteBlock(3, Parameters(5));
    CReadPart closed;
    ExpectNoParameters(closed, WholeBlockRecord(3, 5));
    OpenReadPart part(Disk());
    ExpectNoParameters(*part, WholeBlockRecord(3, 4)); // a channel that is not present
    ExpectNoParameters(*part, WholeBlockRecord(3, 32));
    ExpectNoParameters(*part, WholeBlockRecord(3, 37)); // channel 5, if numbers wrapped at 32
    ExpectNoParameters(*part, WholeBlockRecord(3, 127));
    ExpectNoParameters(*part, WholeBlockRecord(4, 5));
    ExpectNoParameters(*part, WholeBlockRecord(65535, 5));
    ExpectNoParameters(*part, WholeBlockRecord(65535, 5), 1);
}

TEST_F(ReadPartBlocks, ParametersNeedARecordAndAPlace) {
    OpenReadPart part(MakeDisk());
    RecordItem_t record = WholeBlockRecord(0, 0);
    EncodeParam_t out;
    std::memset(&out, 0xEE, sizeof out);
    EXPECT_EQ(part->GetRecInfo(nullptr, &record, 0), -1);
    EXPECT_EQ(part->GetRecInfo(&out, nullptr, 0), -1);
    EXPECT_EQ(out.chn, 0xEEEEEEEE);
}

TEST_F(ReadPartBlocks, ParametersOfAnIncompleteBlockNeedNoRebuildButMayHaveOne) {
    RecordOnNewDisk("I0@1000 P0@1001 P0@1002 /");
    OpenReadPart part(Disk());
    RecordItem_t record = SegmentRecord(0, 0, 0, 1000);
    EncodeParam_t out = {};
    size_t reads[2] = {};
    for (const int rebuild : {0, 1}) {
        const SystemCallLog log;
        EXPECT_EQ(part->GetRecInfo(&out, &record, rebuild), 0);
        EXPECT_EQ(out.pre_RecTime, 10u);
        EXPECT_STREQ(out.VehicleNum, "SAMPLE 1");
        reads[rebuild] = log.Count(CallKind::Read);
        EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close));
    }
    EXPECT_EQ(reads[0], 2u);
    EXPECT_EQ(reads[1], 2u + 3 + 1); // each frame's head, and where the next would be
}

} // namespace
