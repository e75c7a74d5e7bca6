#include <algorithm>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

class PartBlocks : public SearchFixture {
protected:
    /// The block that a walk finds, or -1; the messages go to @p messages.
    static int Next(OpenPart& part, uint32_t from, uint32_t limit, std::string* messages = nullptr) {
        return Walk(part, &CSearchPart::GetNextValidBlock, from, limit, messages);
    }
    static int Prev(OpenPart& part, uint32_t from, uint32_t limit, std::string* messages = nullptr) {
        return Walk(part, &CSearchPart::GetPrevValidBlock, from, limit, messages);
    }

private:
    using WalkFunction = int (CSearchPart::*)(unsigned int, unsigned int, unsigned int, unsigned int,
                                              unsigned int*, BlockHead_t*);
    static int Walk(OpenPart& part, WalkFunction walk, uint32_t from, uint32_t limit, std::string* messages) {
        BlockHead_t head = {};
        unsigned int found = 77;
        int result = 0;
        const std::string printed = PrintedWithoutLines(
            [&] { result = (part.operator->()->*walk)(9, 9, from, limit, &found, &head); });
        if (messages != nullptr) {
            *messages = printed;
        }
        if (result != 0) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(found, 77u); // unchanged
            return -1;
        }
        return static_cast<int>(found);
    }
};

/// Makes a block invalid: formatted by something else.
void Spoil(PartitionImage& disk, uint32_t block) {
    disk.Change<BlockHead_t>(disk.HeadOffset(block), [](auto& head) { head.ValidFlag = 0x12345678; });
}

TEST_F(PartBlocks, MarkedAndSuspectBlocksAreUnusable) {
    MakeDisk();
    Disk().SetBad(3);
    Disk().SetSuspect(5, 1);
    Disk().SetSuspect(6, 255);
    OpenPart part(Disk());
    const int expected[] = {1, 1, 1, 0, 1, 0, 0, 1};
    for (uint32_t block = 0; block < 8; ++block) {
        EXPECT_EQ(part->IsBadBlock(block), expected[block]) << block;
    }
}

TEST_F(PartBlocks, BitsOfTheTableCountFromTheLeastSignificant) {
    MakeDisk(9);
    Disk().Put(Disk().Head().BBTabOffs, uint8_t{0x02});
    Disk().Put(Disk().Head().BBTabOffs + 1, uint8_t{0xFF}); // bit 0 is block 8, the others mean nothing
    OpenPart part(Disk());
    EXPECT_EQ(part->IsBadBlock(0), 1);
    EXPECT_EQ(part->IsBadBlock(1), 0);
    EXPECT_EQ(part->IsBadBlock(7), 1);
    EXPECT_EQ(part->IsBadBlock(8), 0);
}

TEST_F(PartBlocks, BlocksOutsideTheRingAreUnusable) {
    OpenPart part(MakeDisk());
    EXPECT_EQ(part->IsBadBlock(7), 1);
    EXPECT_EQ(part->IsBadBlock(8), 0);
    EXPECT_EQ(part->IsBadBlock(65535), 0);
    EXPECT_EQ(part->IsBadBlock(0xFFFFFFFF), 0);
}

TEST_F(PartBlocks, TablesStayAsTheyWereFirstRead) {
    OpenPart part(MakeDisk());
    EXPECT_EQ(part->IsBadBlock(2), 1);
    Disk().SetBad(2);
    EXPECT_EQ(part->IsBadBlock(2), 1);
}

TEST_F(PartBlocks, WithoutTablesEveryBlockIsBad) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BBTabOffs = 0xFFFFFFF0; });
    OpenPart part(Disk());
    EXPECT_EQ(part->IsBadBlock(0), 0);
    EXPECT_EQ(Next(part, 0, 7), -1);
}

TEST_F(PartBlocks, WithoutTablesAWalkEndsAtOnce) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0xFFFFFFFF; });
    OpenPart part(Disk());
    const SystemCallLog log;
    EXPECT_EQ(Next(part, 0, 0xFFFFFFFE), -1);
    EXPECT_LE(log.Calls().size(), 5u);
}

TEST_F(PartBlocks, ValidBlockIsUsableAndBearsTheMagic) {
    MakeDisk();
    WriteRing({7});
    Disk().SetBad(2);
    Spoil(Disk(), 3);
    OpenPart part(Disk());
    BlockHead_t head = {};
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->IsValidBlock(0, 4, 5, &head), 1); }), "");
    EXPECT_EQ(head.RecSeq, 7u);
    // Formatted but never recorded: valid.
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->IsValidBlock(1, 0, 0, &head), 1); }), "");
    EXPECT_EQ(head.RecSeq, 0u);
    // Bad: not read, and no message.
    head.RecSeq = 99;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->IsValidBlock(2, 0, 0, &head), 0); }), "");
    EXPECT_EQ(head.RecSeq, 99u);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->IsValidBlock(3, 0, 0, &head), 0); }),
              "IsValidBlock: invalid block 3\n");
    EXPECT_EQ(head.ValidFlag, 0x12345678u);
}

TEST_F(PartBlocks, HeadThatCannotBeReadLeavesTheDecisionToTheBuffer) {
    MakeDisk();
    Disk().Truncate(Disk().BlockStart(4) + 839); // block 4 lacks the last byte of its head
    OpenPart part(Disk());
    BlockHead_t head = {};
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(part->IsValidBlock(4, 0, 0, &head), 0); }),
              "GetBlockInfo : #, Failed\nIsValidBlock: invalid block 4\n");
    head.ValidFlag = BLOCK_MAGIC;
    head.RecSeq = 42;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(part->IsValidBlock(4, 0, 0, &head), 1); }),
              "GetBlockInfo : #, Failed\n");
    EXPECT_EQ(head.RecSeq, 42u);
}

TEST_F(PartBlocks, ForwardWalkFindsTheFirstValidBlock) {
    MakeDisk();
    Disk().SetBad(2);
    Spoil(Disk(), 3);
    Disk().SetSuspect(4, 9);
    OpenPart part(Disk());
    EXPECT_EQ(Next(part, 0, 7), 0);
    std::string messages;
    EXPECT_EQ(Next(part, 2, 7, &messages), 5);
    EXPECT_EQ(messages, "IsValidBlock: invalid block 3\n");
    EXPECT_EQ(Next(part, 2, 4), -1);
    EXPECT_EQ(Next(part, 2, 5), 5);
}

TEST_F(PartBlocks, BackwardWalkFindsTheFirstValidBlock) {
    MakeDisk();
    Disk().SetBad(2);
    Spoil(Disk(), 3);
    OpenPart part(Disk());
    EXPECT_EQ(Prev(part, 7, 0), 7);
    EXPECT_EQ(Prev(part, 3, 0), 1);
    EXPECT_EQ(Prev(part, 3, 2), -1);
    EXPECT_EQ(Prev(part, 3, 1), 1);
}

TEST_F(PartBlocks, WalkFromABlockToItselfTestsThatBlockOnly) {
    MakeDisk();
    Spoil(Disk(), 5);
    OpenPart part(Disk());
    std::string messages;
    EXPECT_EQ(Next(part, 5, 5, &messages), -1);
    EXPECT_EQ(messages, "IsValidBlock: invalid block 5\n");
    EXPECT_EQ(Prev(part, 5, 5), -1);
    EXPECT_EQ(Next(part, 6, 6), 6);
    EXPECT_EQ(Prev(part, 6, 6), 6);
}

TEST_F(PartBlocks, WalksWrap) {
    MakeDisk();
    for (const uint32_t block : {7u, 0u, 1u}) {
        Spoil(Disk(), block);
    }
    OpenPart part(Disk());
    std::string messages;
    EXPECT_EQ(Next(part, 7, 2, &messages), 2);
    EXPECT_EQ(messages, "IsValidBlock: invalid block 7\nIsValidBlock: invalid block 0\n"
                        "IsValidBlock: invalid block 1\n");
    Spoil(Disk(), 2);
    EXPECT_EQ(Prev(part, 1, 6, &messages), 6);
    EXPECT_EQ(messages, "IsValidBlock: invalid block 1\nIsValidBlock: invalid block 0\n"
                        "IsValidBlock: invalid block 7\n");
}

TEST_F(PartBlocks, WalkToALimitOutsideTheRingEndsAfterOneTurn) {
    MakeDisk();
    for (uint32_t block = 0; block < 8; ++block) {
        Spoil(Disk(), block);
    }
    OpenPart part(Disk());
    std::string messages;
    EXPECT_EQ(Next(part, 0, 8, &messages), -1);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), '\n'), 8);
    EXPECT_EQ(Prev(part, 0, 0xFFFFFFFF), -1);
    EXPECT_EQ(Next(part, 100, 200), -1);
}

TEST_F(PartBlocks, HeadOfAWalkIsThatOfTheLastBlockTested) {
    MakeDisk();
    WriteRing({11, 12, 13});
    Spoil(Disk(), 0);
    Spoil(Disk(), 1);
    OpenPart part(Disk());
    BlockHead_t head = {};
    unsigned int found = 0;
    Quietly([&] { EXPECT_EQ(part->GetNextValidBlock(0, 0, 0, 1, &found, &head), -1); });
    EXPECT_EQ(head.RecSeq, 12u);
    Quietly([&] { EXPECT_EQ(part->GetNextValidBlock(0, 0, 0, 7, &found, &head), 0); });
    EXPECT_EQ(head.RecSeq, 13u);
}

TEST_F(PartBlocks, RingWithoutBlocksHasNoValidBlock) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0); // tables of no bytes
    EXPECT_EQ(part->IsBadBlock(0), 0);
    EXPECT_EQ(Next(part, 0, 0), -1);
    EXPECT_EQ(Next(part, 0, 0xFFFFFFFF), -1);
    EXPECT_EQ(Prev(part, 0, 3), -1);
    OpenPart other(Disk());
    const SystemCallLog log;
    EXPECT_EQ(Next(other, 0, 0), -1);
    EXPECT_EQ(log.Calls().size(), 0u); // not even the tables are read
}

TEST_F(PartBlocks, ForgedRingOfMillionsIsBelievedAsFarAsIdsCanName) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5, 6, 7, 8});
    // Tables of two million blocks lie inside the device; all but eight blocks lie beyond its end.
    Disk().EditHead([](PartHead_t& head) { head.BlkCount = 2000000; });
    OpenPart part(Disk());
    const SystemCallLog log;
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    for (const Call& call : log.Calls()) {
        EXPECT_LE(call.length, 65536u);
    }
    EXPECT_EQ(part->IsBadBlock(65535), 1);
    EXPECT_EQ(part->IsBadBlock(65536), 0);
    EXPECT_EQ(part->GetUnitRecMap(0, 1), 2000000); // the head's word is still the head's word
    EXPECT_EQ(Next(part, 8, 65535), -1);
    EXPECT_LE(log.Calls().size(), 2u * 65536 + 10);
    EXPECT_EQ(Next(part, 7, 65535), 7);
}

TEST_F(PartBlocks, BlocksTooSmallForTheirOwnAreasAreUnusable) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkSize = 4935; });
    OpenPart part(Disk());
    EXPECT_EQ(part->IsBadBlock(0), 0);
    EXPECT_EQ(Next(part, 0, 7), -1);
}

TEST_F(PartBlocks, EventParametersComeFromTheEventsBlock) {
    MakeDisk();
    auto contents = BlockContents::Closed(1, 1000, 2000);
    contents.head.pre_RecTime = 15;
    contents.head.AlmDelayTime = 45;
    Disk().WriteBlock(3, contents);
    OpenPart part(Disk());
    unsigned int pre = 99;
    unsigned int delay = 99;
    EXPECT_EQ(part->GetEventPara(0x0003FFFF, &pre, &delay), 0);
    EXPECT_EQ(pre, 15u);
    EXPECT_EQ(delay, 45u);
}

TEST_F(PartBlocks, EventParametersOfABlockThatCannotBeReadAreZero) {
    OpenPart part(MakeDisk());
    unsigned int pre = 99;
    unsigned int delay = 99;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(part->GetEventPara(0xFFFF0000, &pre, &delay), 0); }),
              "GetBlockInfo : #, Failed\n");
    EXPECT_EQ(pre, 0u);
    EXPECT_EQ(delay, 0u);
}

TEST_F(PartBlocks, ExtensionParameterComesFromTheExtendedHead) {
    Format format;
    format.fmtVersion = 1;
    MakeDisk(format);
    auto contents = BlockContents::Closed(1, 1000, 2000);
    contents.extHead.ExtParaValid = 5;
    contents.extHead.ExtPara = 0x0F;
    Disk().WriteBlock(2, contents);
    contents.extHead.ExtParaValid = 0;
    Disk().WriteBlock(3, contents);
    OpenPart part(Disk());
    unsigned int value = 99;
    EXPECT_EQ(part->GetRecordExtPara(0x00020A03, &value), 0);
    EXPECT_EQ(value, 0x0Fu);
    EXPECT_EQ(part->GetRecordExtPara(0x00030000, &value), 0);
    EXPECT_EQ(value, 0xFFFFFFFFu);
    value = 99;
    Quietly([&] { EXPECT_EQ(part->GetRecordExtPara(0xFFFF0000, &value), 0); });
    EXPECT_EQ(value, 0xFFFFFFFFu); // cannot be read
}

TEST_F(PartBlocks, ExtensionParameterIsNeverSetInTheNormalLayout) {
    MakeDisk();
    auto contents = BlockContents::Closed(1, 1000, 2000);
    contents.head.prop[31].Bitrate = 1;
    Disk().WriteBlock(2, contents);
    OpenPart part(Disk());
    unsigned int value = 99;
    const SystemCallLog log;
    EXPECT_EQ(part->GetRecordExtPara(0x00020000, &value), 0);
    EXPECT_EQ(value, 0xFFFFFFFFu);
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(PartBlocks, ClosedObjectHasNoBlocks) {
    CSearchPart part;
    BlockHead_t head = {};
    unsigned int out = 77;
    EXPECT_EQ(part.IsBadBlock(0), 0);
    EXPECT_EQ(part.IsValidBlock(0, 0, 0, &head), 0);
    EXPECT_EQ(part.GetNextValidBlock(0, 0, 0, 0, &out, &head), -1);
    EXPECT_EQ(part.GetPrevValidBlock(0, 0, 0, 0, &out, &head), -1);
    EXPECT_EQ(out, 77u);
    unsigned int pre = 1;
    unsigned int delay = 1;
    EXPECT_EQ(part.GetEventPara(0, &pre, &delay), 0);
    EXPECT_EQ(pre, 0u);
    EXPECT_EQ(delay, 0u);
    EXPECT_EQ(part.GetRecordExtPara(0, &out), 0);
    EXPECT_EQ(out, 0xFFFFFFFFu);
}

} // namespace
