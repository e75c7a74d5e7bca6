// The list of blocks: what is recorded, in which order, and what is missing.

#include "recordings/blocks.h"

#include <gtest/gtest.h>

#include <cstring>

#include "recordings/error.h"
#include "recordings/recordings_fixture.h"

namespace test_support {

namespace {

using recordings::BlockList;
using recordings::TimeRange;
using sample_recorder::BlockContents;
using sample_recorder::Format;

using Lines = std::vector<std::string>;
using Places = std::vector<uint32_t>;

/// Eight blocks: 0 to 5 recorded and closed, with numbers 1 to 6 (block n from 1000 (n + 1) on, for 900 seconds); the rest
/// formatted.
class Blocks : public RecordingsFixture {
protected:
    void SetUp() override {
        MakeDisk();
        WriteRing(6);
    }

    void ChangeHead(uint32_t block, const std::function<void(BlockHead_t&)>& edit) {
        Image().Change<BlockHead_t>(Image().HeadOffset(block), edit);
    }
    void ChangeTail(uint32_t block, const std::function<void(BlockTail_t&)>& edit) {
        Image().Change<BlockTail_t>(Image().TailOffset(block), edit);
    }
    /// Makes block 5 one that was never closed.
    void LeaveNewestOpen() {
        ChangeTail(5, [](BlockTail_t& tail) { tail = {}; });
    }
    /// A ring that wrapped: blocks 0 to 3 have numbers 9 to 12, blocks 4 to 7 numbers 5 to 8.
    void Wrap() {
        for (uint32_t block = 0; block < 8; ++block) {
            const uint32_t sequence = block < 4 ? block + 9 : block + 1;
            Image().WriteBlock(block, BlockContents::Closed(sequence, sequence * 1000, sequence * 1000 + 900)
                                          .Segment(0, sequence * 1000, sequence * 1000 + 900, 9000));
        }
    }
    void Wipe(uint32_t block) {
        const std::vector<uint8_t> zeros(Image().BlockSize());
        Image().Write(Image().BlockStart(block), zeros.data(), zeros.size());
    }
    /// As if the recorder had not formatted the blocks after the newest.
    void WipeUnwritten() {
        Wipe(6);
        Wipe(7);
    }
    std::vector<uint8_t> BlockBytes(uint32_t block) {
        std::vector<uint8_t> bytes(Image().BlockSize());
        Image().Read(Image().BlockStart(block), bytes.data(), bytes.size());
        return bytes;
    }
    void PutBlock(uint32_t block, const std::vector<uint8_t>& bytes) {
        Image().Write(Image().BlockStart(block), bytes.data(), bytes.size());
    }
    void FailBlock(uint32_t block) { Fail(Image().BlockStart(block), Image().BlockStart(block + 1)); }
};

const Places kAll = {0, 1, 2, 3, 4, 5};
const Lines kNone = {};

TEST_F(Blocks, SoundOnesComeInRecordingOrderWithTheirTimes) {
    EXPECT_EQ((RecordingsFixture::Blocks()), (Lines{"0:1 1000-1900", "1:2 2000-2900", "2:3 3000-3900",
                                                    "3:4 4000-4900", "4:5 5000-5900", "5:6 6000-6900"}));
    EXPECT_EQ(Problems(), kNone);
    EXPECT_EQ(BlockList::Read(Open()).EmptyCount(), 2u);
}

TEST_F(Blocks, AWrappedRingBeginsAtItsOldest) {
    Wrap();
    EXPECT_EQ(Numbers(), (Places{4, 5, 6, 7, 0, 1, 2, 3}));
    EXPECT_EQ(Problems(), kNone);
}

TEST_F(Blocks, AnEmptyDiskHasNone) {
    MakeDisk(Format{});
    EXPECT_EQ(Numbers(), Places{});
    EXPECT_EQ(Problems(), kNone);
    EXPECT_EQ(BlockList::Read(Open()).Newest(), nullptr);
}

TEST_F(Blocks, OneReadFetchesAHeadAndTheTailBeforeIt) {
    recordings::Disk& disk = Open();
    const uint64_t before = Worn().Reads();
    BlockList::Read(disk);
    EXPECT_EQ(Worn().Reads() - before, 9u); // eight boundaries, and the last tail
}

TEST_F(Blocks, ExtendedTailsCloseBlocksToo) {
    Format format;
    format.fmtVersion = 1;
    MakeDisk(format);
    WriteRing(3);
    ChangeTail(1, [](BlockTail_t& tail) { tail = {}; });
    Image().Change<BlockTailEx_t>(Image().TailExOffset(1), [](BlockTailEx_t& tail) {
        tail = {2, 2000, 2900};
    });
    EXPECT_EQ((RecordingsFixture::Blocks()), (Lines{"0:1 1000-1900", "1:2 2000-2900", "2:3 3000-3900"}));
}

// ---- damaged fields of heads

TEST_F(Blocks, ADamagedFlagHidesNoBlock) {
    for (const uint32_t block : {0u, 2u, 5u}) {
        ChangeHead(block, [](BlockHead_t& head) { head.ValidFlag ^= 0x100; });
        EXPECT_EQ(Numbers(), kAll) << block;
        EXPECT_EQ(Problems(), Lines{"head_damaged note block " + std::to_string(block)});
        ChangeHead(block, [](BlockHead_t& head) { head.ValidFlag ^= 0x100; });
    }
}

TEST_F(Blocks, ADamagedFlagDoesNotHideTheBlockThatIsBeingWritten) {
    LeaveNewestOpen();
    EXPECT_EQ(Problems(), kNone);
    ChangeHead(5, [](BlockHead_t& head) { head.ValidFlag = 0; });
    EXPECT_EQ((RecordingsFixture::Blocks()).back(), "5:6 6000-6000 oh");
}

TEST_F(Blocks, ADamagedNumberMovesNoBlock) {
    for (const uint32_t block : {0u, 3u, 5u}) {
        for (const uint32_t number : {0u, 0x80000000u, 100u, block + 1 + 0x40000u}) {
            const uint32_t own = block + 1;
            ChangeHead(block, [&](BlockHead_t& head) { head.RecSeq = number; });
            EXPECT_EQ(Numbers(), kAll) << block << " as " << number;
            ChangeHead(block, [&](BlockHead_t& head) { head.RecSeq = own; });
        }
    }
}

TEST_F(Blocks, TheNumberOfAnOpenBlockIsToldByItsPlace) {
    LeaveNewestOpen();
    ChangeHead(5, [](BlockHead_t& head) { head.RecSeq = 0x106; });
    EXPECT_EQ((RecordingsFixture::Blocks()).back(), "5:6 6000-6000 oh");
    EXPECT_EQ(Problems(), Lines{"head_damaged note block 5"});
}

TEST_F(Blocks, ADamagedNumberBeforeTheOpenBlockMovesNeither) {
    Wrap();
    // Block 3 is being written again: its tail is still that of the turn before, and fits before block 4.
    ChangeTail(3, [](BlockTail_t& tail) { tail = {0, 0, 4, 4000, 4900}; });
    ChangeHead(2, [](BlockHead_t& head) { head.RecSeq |= 0x40000000; });
    EXPECT_EQ(Numbers(), (Places{4, 5, 6, 7, 0, 1, 2, 3}));
    EXPECT_EQ(Problems(), Lines{"head_damaged note block 2"});
}

TEST_F(Blocks, ADamagedTimeIsTakenFromTheTail) {
    ChangeHead(3, [](BlockHead_t& head) { head.RecTime |= 0x40000000; });
    EXPECT_EQ((RecordingsFixture::Blocks())[3], "3:4 4000-4900 h");
    EXPECT_EQ(Problems(), Lines{"head_damaged note block 3"});
}

TEST_F(Blocks, AFrameConfirmsTheTimeOfAnOpenBlock) {
    // Recorders without a battery begin in 1970: block 3 was cut off after that, block 4 has the time of day again.
    const int64_t day = 86400;
    for (uint32_t block = 0; block < 6; ++block) {
        const auto start = static_cast<uint32_t>(20000 * day + block * 1000);
        Image().WriteBlock(block, BlockContents::Closed(block + 1, start, start + 900));
    }
    ChangeTail(3, [](BlockTail_t& tail) { tail.RecSeq = 0; });
    for (const uint32_t start : {0u, 5u, 4294967295u}) {
        ChangeHead(3, [&](BlockHead_t& head) { head.RecTime = start; });
        Image().Put(Image().FrameOffset(3, 0),
                    FrameHead_t{int64_t{start} * 1000000 + 500000, BLOCK_MAGIC, 1, 0, 0});
        EXPECT_EQ(Problems(), kNone) << start;
        const std::string seconds = std::to_string(start);
        EXPECT_EQ((RecordingsFixture::Blocks())[3], "3:4 " + seconds + "-" + seconds + " o");
    }
    ChangeHead(3, [](BlockHead_t& head) { head.RecTime = 100; });
    EXPECT_EQ(Problems(), Lines{"head_damaged note block 3"});
}

TEST_F(Blocks, AClockThatWasSetForOneBlockIsNoDamage) {
    const uint32_t year = 365 * 86400;
    ChangeHead(3, [](BlockHead_t& head) { head.RecTime += year; });
    ChangeTail(3, [](BlockTail_t& tail) {
        tail.StartTime += year;
        tail.EndTime += year;
    });
    EXPECT_EQ(Problems(), kNone);
    // Block 2 may last until block 3 begins, and the newest may last for ever: no other witness says that they do not.
    EXPECT_EQ(BlockList::Read(Open()).Candidates({year + 4000, year + 4100}), (std::vector<size_t>{2, 3, 5}));
}

// ---- blocks that are gone

TEST_F(Blocks, AnUnreadableBlockIsNamedAtTheStartInTheMiddleAndAtTheEnd) {
    for (const uint32_t block : {0u, 2u, 5u}) {
        SetUp();
        FailBlock(block);
        EXPECT_EQ(Numbers(), kAll) << block;
        EXPECT_EQ(Problems(), Lines{"block_unreadable loss block " + std::to_string(block)});
        Forgive();
    }
}

TEST_F(Blocks, AnUnreadableBlockIsNamedThoughNothingElseWasRecorded) {
    MakeDisk();
    FailBlock(3);
    EXPECT_EQ((RecordingsFixture::Blocks()), Lines{"3:4 0-0 ohu"});
    EXPECT_EQ(Problems(), Lines{"block_unreadable loss block 3"});
}

TEST_F(Blocks, TheIdentityInAHeadIsReadUnlessTheDiskFails) {
    ChangeHead(2, [](BlockHead_t& head) {
        std::memcpy(head.VehicleNum, "AB-C 123", 9);
        std::memset(head.VehicleID, 'x', sizeof head.VehicleID); // without an end
        head.pre_RecTime = 12;
        head.AlmDelayTime = 34;
        head.prop[7].gop = 50;
    });
    const auto identity = ReadIdentity(Open(), 2);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->vehicleNumber, "AB-C 123");
    EXPECT_EQ(identity->vehicleId, std::string(32, 'x'));
    EXPECT_EQ(identity->preRecordSeconds, 12u);
    EXPECT_EQ(identity->alarmDelaySeconds, 34u);
    EXPECT_EQ(identity->channels.bits, 1u);
    EXPECT_EQ(identity->properties[7].keyFrameDistance, 50u);
    FailBlock(2);
    EXPECT_FALSE(ReadIdentity(Open(), 2));
}

TEST_F(Blocks, AnUnreadableHeadAloneLosesNothing) {
    Fail(Image().BlockStart(2), Image().BlockStart(2) + 512);
    EXPECT_EQ((RecordingsFixture::Blocks())[2], "2:3 3000-3900 h");
    EXPECT_EQ(Problems(), Lines{"head_damaged note block 2"});
}

TEST_F(Blocks, AnUnreadableTailAloneLosesNothing) {
    Fail(Image().TailOffset(2), Image().TailOffset(2) + 20);
    EXPECT_EQ(Numbers(), kAll);
    EXPECT_EQ((RecordingsFixture::Blocks())[2], "2:3 3000-3000 o");
    EXPECT_EQ(Problems(), Lines{"tail_damaged note block 2"});
}

TEST_F(Blocks, AWipedBlockIsNamedInTheMiddleAndAtTheEnds) {
    for (const uint32_t block : {0u, 2u, 5u}) {
        SetUp();
        Wipe(block);
        EXPECT_EQ(Numbers(), kAll) << block;
        EXPECT_EQ(Problems(), Lines{"block_wiped loss block " + std::to_string(block)});
    }
}

TEST_F(Blocks, AWipedBlockOfARingThatWrappedIsNamed) {
    for (uint32_t block = 0; block < 8; ++block) {
        Wrap();
        Wipe(block);
        EXPECT_EQ(Problems(), Lines{"block_wiped loss block " + std::to_string(block)});
    }
}

TEST_F(Blocks, TheOldestIsToldByItsTailInARingThatWasNotFormatted) {
    WipeUnwritten();
    const std::vector<uint8_t> zeros(4096);
    Image().Write(Image().BlockStart(0), zeros.data(), zeros.size());
    EXPECT_EQ((RecordingsFixture::Blocks()).front(), "0:1 1000-1900 h");
    EXPECT_EQ(Problems(), Lines{"head_damaged note block 0"});
}

TEST_F(Blocks, ADamagedFlagDoesNotHideTheOldestThatWasNeverClosed) {
    WipeUnwritten();
    ChangeTail(0, [](BlockTail_t& tail) { tail = {}; });
    ChangeHead(0, [](BlockHead_t& head) { head.ValidFlag = 0; });
    EXPECT_EQ((RecordingsFixture::Blocks()).front(), "0:1 1000-1000 oh");
    EXPECT_EQ(Problems(), Lines{"head_damaged note block 0"});
}

TEST_F(Blocks, TheOldestIsNamedWhereSomethingElseLiesInARingThatWasNotFormatted) {
    WipeUnwritten();
    Wipe(0);
    Image().Put(Image().FrameOffset(0, 0), FrameHead_t{1000000000, BLOCK_MAGIC, 1, 0, 0});
    EXPECT_EQ(Problems(), Lines{"block_wiped loss block 0"});
    PutBlock(0, std::vector<uint8_t>(Image().BlockSize(), 0xFF));
    EXPECT_EQ(Problems(), Lines{"block_wiped loss block 0"});
    // It is none of the recording where that begins with the first number.
    for (uint32_t block = 1; block < 6; ++block) {
        Image().WriteBlock(block, BlockContents::Closed(block, block * 1000, block * 1000 + 900));
    }
    EXPECT_EQ(Problems(), kNone);
}

TEST_F(Blocks, ACopyOfAnotherBlockHidesNotWhatItLiesUpon) {
    using Copy = std::pair<uint32_t, uint32_t>;
    for (const auto& [from, to] : {Copy{2, 3}, Copy{3, 2}, Copy{0, 5}, Copy{5, 0}, Copy{0, 3}, Copy{5, 1}}) {
        SetUp();
        WipeUnwritten();
        PutBlock(to, BlockBytes(from));
        EXPECT_EQ(Numbers(), kAll) << from << " on " << to;
        EXPECT_EQ(Problems(), Lines{"block_wiped loss block " + std::to_string(to)});
    }
    for (const auto& [from, to] : {Copy{1, 6}, Copy{3, 4}, Copy{4, 3}, Copy{7, 0}}) {
        Wrap();
        PutBlock(to, BlockBytes(from));
        EXPECT_EQ(Problems(), Lines{"block_wiped loss block " + std::to_string(to)}) << from;
    }
}

TEST_F(Blocks, ACopyBeforeTheOpenBlockMovesItNot) {
    LeaveNewestOpen();
    PutBlock(4, BlockBytes(3));
    EXPECT_EQ(Numbers(), kAll);
    EXPECT_EQ((RecordingsFixture::Blocks()).back(), "5:6 6000-6000 o");
    EXPECT_EQ(Problems(), Lines{"block_wiped loss block 4"});
}

TEST_F(Blocks, ATailOfALaterTurnTellsThatTheHeadIsOld) {
    // Block 3, the newest, has lost its first sectors: what the turn before has left there shows again.
    Wrap();
    ChangeHead(3, [](BlockHead_t& head) {
        head.RecSeq = 4;
        head.RecTime = 4000;
    });
    EXPECT_EQ((RecordingsFixture::Blocks()).back(), "3:12 12000-12900 h");
    EXPECT_EQ(Problems(), Lines{"head_damaged note block 3"});
}

TEST_F(Blocks, ThoseThatHaveChangedPlacesKeepTheirNumbers) {
    using Swap = std::pair<uint32_t, uint32_t>;
    for (const auto& [one, other] : {Swap{1, 4}, Swap{2, 3}, Swap{0, 5}}) {
        SetUp();
        const std::vector<uint8_t> bytes = BlockBytes(one);
        PutBlock(one, BlockBytes(other));
        PutBlock(other, bytes);
        Places places = kAll;
        std::swap(places[one], places[other]);
        EXPECT_EQ(Numbers(), places);
        EXPECT_EQ(Problems(), kNone);
    }
}

TEST_F(Blocks, NumbersThatAreMissingAreNamed) {
    // The recorder numbers on past a block that it has formatted again: nothing of blocks 2 and 3 is there.
    for (const uint32_t block : {2u, 3u}) {
        Image().WriteBlock(block, BlockContents());
        ChangeHead(block, [](BlockHead_t& head) { head.ValidFlag = BLOCK_MAGIC; });
    }
    EXPECT_EQ(Numbers(), (Places{0, 1, 4, 5}));
    EXPECT_EQ(Problems(), Lines{"blocks_lost loss block 1 to 4 count 2"});
}

TEST_F(Blocks, ABlockThatIsMarkedBadIsNamedOnlyWhenItHoldsARecordingOfThisTurn) {
    Image().SetBad(3);
    EXPECT_EQ(Numbers(), (Places{0, 1, 2, 4, 5}));
    EXPECT_EQ(Problems(), Lines{"block_marked_bad loss block 3"});
    // Passed over: the numbers go on without it.
    for (const uint32_t block : {4u, 5u}) {
        Image().WriteBlock(block, BlockContents::Closed(block, block * 1000, block * 1000 + 900));
    }
    EXPECT_EQ(Problems(), kNone);
}

TEST_F(Blocks, SuspectBlocksAreMarkedAndRead) {
    Image().SetSuspect(2, 1);
    const BlockList blocks = BlockList::Read(Open());
    EXPECT_EQ(blocks.All().at(2).mark, recordings::BlockMark::Suspect);
    EXPECT_EQ(Problems(), kNone);
}

TEST_F(Blocks, APlaceWithoutAHeadFarFromRecordingsIsToldOf) {
    MakeDisk();
    WriteRing(3);
    const BlockList sound = BlockList::Read(Open());
    EXPECT_EQ(sound.Headless(), Places{});
    // Between blocks that were formatted and never written: it was not written either.
    ChangeHead(5, [](BlockHead_t& head) { head.ValidFlag = 0; });
    const BlockList blocks = BlockList::Read(Open());
    EXPECT_EQ(blocks.Headless(), Places{5});
    EXPECT_EQ(blocks.All().size(), 3u);
    // One that was recorded is not among them.
    Wipe(1);
    const BlockList wiped = BlockList::Read(Open());
    EXPECT_EQ(wiped.Headless(), Places{5});
}

// ---- ranges

TEST_F(Blocks, OnlyBlocksThatMayHoldTheRangeAreCandidates) {
    const BlockList blocks = BlockList::Read(Open());
    // Block 1 may reach up to where block 2 begins: its tail alone says otherwise, and may be damaged.
    EXPECT_EQ(blocks.Candidates({2500, 2600}), (std::vector<size_t>{1}));
    EXPECT_EQ(blocks.Candidates({2950, 2960}), (std::vector<size_t>{1}));
    EXPECT_EQ(blocks.Candidates({2950, 3000}), (std::vector<size_t>{1, 2}));
    EXPECT_EQ(blocks.Candidates({0, 999}), (std::vector<size_t>{}));
    EXPECT_EQ(blocks.Candidates({6901, 0xFFFFFFFF}), (std::vector<size_t>{5}));
    EXPECT_EQ(blocks.Candidates({}).size(), 6u);
}

TEST_F(Blocks, NoSingleDamagedTimeKeepsABlockOut) {
    const auto holds = [this](size_t entry, const TimeRange& range) {
        const auto entries = BlockList::Read(Open()).Candidates(range);
        return std::find(entries.begin(), entries.end(), entry) != entries.end();
    };
    const TimeRange range = {4100, 4800};
    for (const uint32_t bit : {0u, 4u, 8u, 10u, 12u, 20u, 31u}) {
        ChangeHead(3, [&](BlockHead_t& head) { head.RecTime ^= 1u << bit; });
        EXPECT_TRUE(holds(3, range)) << "head " << bit;
        ChangeHead(3, [&](BlockHead_t& head) { head.RecTime ^= 1u << bit; });
        ChangeTail(3, [&](BlockTail_t& tail) { tail.StartTime ^= 1u << bit; });
        EXPECT_TRUE(holds(3, range)) << "tail start " << bit;
        ChangeTail(3, [&](BlockTail_t& tail) { tail.StartTime ^= 1u << bit; });
        ChangeTail(3, [&](BlockTail_t& tail) { tail.EndTime ^= 1u << bit; });
        EXPECT_TRUE(holds(3, range)) << "tail end " << bit;
        ChangeTail(3, [&](BlockTail_t& tail) { tail.EndTime ^= 1u << bit; });
    }
}

TEST_F(Blocks, ProblemsFarFromTheRangeAreNotReported) {
    FailBlock(2);
    EXPECT_EQ(Problems({5100, 5200}), kNone);
    EXPECT_EQ(Problems({3100, 3200}), Lines{"block_unreadable loss block 2"});
}

// ---- bounds

TEST_F(Blocks, AWatchEndsTheReading) {
    int calls = 0;
    EXPECT_THROW(BlockList::Read(Open(),
                                 [&](const recordings::Progress&) {
                                     ++calls;
                                     return false;
                                 }),
                 recordings::Error);
    EXPECT_EQ(calls, 1);
}

TEST_F(Blocks, AForgedCountOfBlocksIsBoundedByTheDevice) {
    Image().EditHead([](PartHead_t& head) { head.BlkCount = 0xFFFFFFFF; });
    EXPECT_EQ(Open().BlockCount(), 8u);
    EXPECT_EQ(Numbers(), kAll);
}

TEST_F(Blocks, ForgedNumbersTakeLinearTime) {
    Format format;
    format.blockCount = 20000;
    format.blockSize = 8192;
    MakeDisk(format);
    // Every second block has a number of the other half of the ring, the rest none that fits; tails fit everywhere.
    for (uint32_t block = 0; block < format.blockCount; ++block) {
        const uint32_t sequence = block % 2 == 0 ? block / 2 + 1 : 20001 - block;
        BlockContents contents = BlockContents::Closed(sequence, 1000 + sequence, 1000 + sequence);
        contents.head.ValidFlag = block % 3 == 0 ? 0 : BLOCK_MAGIC;
        Image().WriteBlock(block, contents);
    }
    recordings::Disk& disk = Open();
    const uint64_t before = Worn().Reads();
    const BlockList blocks = BlockList::Read(disk);
    EXPECT_LE(blocks.All().size(), 20000u);
    EXPECT_LE(Worn().Reads() - before, 2u * 20001);
}

} // namespace

} // namespace test_support
