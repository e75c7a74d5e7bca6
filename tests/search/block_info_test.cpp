#include <cstring>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

class BlockInfo : public SearchFixture {
protected:
    PartitionImage& MakeExtendedDisk() {
        Format format;
        format.fmtVersion = 1;
        return MakeDisk(format);
    }

    /// The offsets and lengths of the reads of one call, each after a seek to that place.
    static std::vector<std::pair<int64_t, uint64_t>> Reads(const SystemCallLog& log) {
        std::vector<std::pair<int64_t, uint64_t>> reads;
        for (size_t i = 0; i + 1 < log.Calls().size(); i += 2) {
            EXPECT_EQ(log.Calls()[i].kind, CallKind::Seek);
            EXPECT_EQ(log.Calls()[i + 1].kind, CallKind::Read);
            EXPECT_EQ(log.Calls()[i].offset, log.Calls()[i + 1].offset);
            reads.emplace_back(log.Calls()[i + 1].offset, log.Calls()[i + 1].length);
        }
        return reads;
    }
};

using Places = std::vector<std::pair<int64_t, uint64_t>>;

TEST_F(BlockInfo, ReadsEachPartWholeInItsPlaceNormalLayout) {
    OpenBlocks blocks(MakeDisk());
    BlockHead_t head = {};
    BlockTail_t tail = {};
    BlkExtHead_t extHead = {};
    BlockTailEx_t tailEx = {1, 2, 3};
    const SystemCallLog log;
    EXPECT_EQ(blocks->GetBlockInfo(2, &head, &tail, &extHead, &tailEx), 0);
    EXPECT_EQ(Reads(log), (Places{{0x820000, 840}, {0x82FFEC, 20}}));
    EXPECT_EQ(tailEx.RecSeq, 1u); // unchanged
}

TEST_F(BlockInfo, ReadsEachPartWholeInItsPlaceExtendedLayout) {
    OpenBlocks blocks(MakeExtendedDisk());
    BlockHead_t head = {};
    BlockTail_t tail = {};
    BlkExtHead_t extHead = {};
    BlockTailEx_t tailEx = {};
    const SystemCallLog log;
    EXPECT_EQ(blocks->GetBlockInfo(2, &head, &tail, &extHead, &tailEx), 0);
    EXPECT_EQ(Reads(log), (Places{{0x820000, 840}, {0x820348, 64}, {0x82FE00, 20}, {0x82FE14, 12}}));
}

TEST_F(BlockInfo, GivesWhatLiesThere) {
    MakeExtendedDisk();
    BlockContents contents = BlockContents::Closed(5, 1000, 1900);
    std::strcpy(contents.head.VehicleNum, "ABC 123");
    contents.head.prop[31].AType = 9;
    contents.extHead.ExtPara = 77;
    contents.tailEx = {6, 7, 8};
    Disk().WriteBlock(7, contents);
    OpenBlocks blocks(Disk());
    BlockHead_t head = {};
    BlockTail_t tail = {};
    BlkExtHead_t extHead = {};
    BlockTailEx_t tailEx = {};
    EXPECT_EQ(blocks->GetBlockInfo(7, &head, &tail, &extHead, &tailEx), 0);
    EXPECT_STREQ(head.VehicleNum, "ABC 123");
    EXPECT_EQ(head.prop[31].AType, 9);
    EXPECT_EQ(extHead.ExtPara, 77u);
    EXPECT_EQ(tail.EndTime, 1900u);
    EXPECT_EQ(tailEx.EndTime, 8u);
}

TEST_F(BlockInfo, NullPartsAreSkipped) {
    OpenBlocks blocks(MakeDisk());
    const SystemCallLog log;
    EXPECT_EQ(blocks->GetBlockInfo(0, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(BlockInfo, ExtendedHeadOfTheNormalLayoutIsMadeUp) {
    OpenBlocks blocks(MakeDisk());
    BlkExtHead_t extHead;
    std::memset(&extHead, 0xEE, sizeof extHead);
    const SystemCallLog log;
    EXPECT_EQ(blocks->GetBlockInfo(0, nullptr, nullptr, &extHead, nullptr), 0);
    EXPECT_EQ(log.Calls().size(), 0u);
    EXPECT_EQ(extHead.ExtParaValid, 0u);
    EXPECT_EQ(extHead.ExtPara, 0xFFFFFFFFu);
    EXPECT_EQ(extHead.Reserved[0], 0xEE); // the rest is unchanged
}

TEST_F(BlockInfo, EveryFailureIsReportedAndEndsTheCall) {
    MakeExtendedDisk();
    Disk().WriteBlock(1, BlockContents::Closed(5, 1000, 1900));
    // A seek and a read each for head, extended head, tail and extended tail.
    for (size_t failing = 0; failing < 8; ++failing) {
        OpenBlocks blocks(Disk());
        BlockHead_t head = {};
        BlockTail_t tail = {};
        BlkExtHead_t extHead = {};
        BlockTailEx_t tailEx = {};
        const SystemCallLog log(
            [failing](const Call&, size_t index) { return index == failing ? Fate::Failing() : Fate(); });
        EXPECT_EQ(PrintedWithoutLines(
                      [&] { EXPECT_EQ(blocks->GetBlockInfo(1, &head, &tail, &extHead, &tailEx), -1); }),
                  "GetBlockInfo : #, Failed\n");
        EXPECT_EQ(log.Calls().size(), failing + 1);
        EXPECT_EQ(head.RecSeq, failing >= 2 ? 5u : 0u); // what was read before stays
        EXPECT_EQ(tail.RecSeq, failing >= 6 ? 5u : 0u);
    }
}

TEST_F(BlockInfo, PartCutShortIsLeftAsItWas) {
    MakeDisk();
    Disk().WriteBlock(7, BlockContents::Closed(5, 1000, 1900));
    OpenBlocks blocks(Disk());
    BlockHead_t head = {};
    BlockTail_t tail = {};
    tail.RecSeq = 99;
    const SystemCallLog log([](const Call& call, size_t) {
        return call.kind == CallKind::Read && call.length == 20 ? Fate::Shortened(16) : Fate();
    });
    Quietly([&] { EXPECT_EQ(blocks->GetBlockInfo(7, &head, &tail, nullptr, nullptr), -1); });
    EXPECT_EQ(head.RecSeq, 5u);
    EXPECT_EQ(tail.RecSeq, 99u);
}

TEST_F(BlockInfo, BlocksFarBeyondTheDeviceFail) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BlkSize = 0xFFFFF000; });
    OpenBlocks blocks(Disk());
    BlockHead_t head = {};
    Quietly([&] {
        EXPECT_EQ(blocks->GetBlockInfo(0x7FFFFFFF, &head, nullptr, nullptr, nullptr), -1);
        EXPECT_EQ(blocks->GetBlockInfo(0xFFFFFFFF, &head, nullptr, nullptr, nullptr),
                  -1); // wraps to negative
    });
}

TEST_F(BlockInfo, ChannelCountIsThatOfTheHead) {
    MakeDisk();
    Disk().WriteBlock(1, BlockContents::Closed(1, 1000, 1900).Channels(0x80000005));
    OpenBlocks blocks(Disk());
    EXPECT_EQ(blocks->GetUnitRecMap(0), 0);
    EXPECT_EQ(blocks->GetUnitRecMap(1), 3);
    Quietly([&] { EXPECT_EQ(blocks->GetUnitRecMap(65535), -1); });
}

TEST_F(BlockInfo, ChannelCountNeedsTheTailToo) {
    MakeDisk();
    Disk().Truncate(Disk().BlockStart(8) - 1);
    OpenBlocks blocks(Disk());
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(blocks->GetUnitRecMap(7), -1); }),
              "GetBlockInfo : #, Failed\n");
}

TEST_F(BlockInfo, BlockTooSmallForItsOwnAreasHasNoChannels) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Open(1, 1000).Channels(5));
    PartAccess_t access = Disk().Access();
    dev_op_st* const dev = dev_open(&access);
    RecordList records;
    {
        // A head of 840 bytes and an index area of 4096 are 4936.
        CSearchBlock small(dev, 4935, BLOCK_BASE_OFFSET, 0);
        EXPECT_EQ(Printed([&] {
                      EXPECT_EQ(small.GetUnitRecMap(0), -1);
                      EXPECT_EQ(small.GetNoIndexMediaList(0, kAll, 0, &records), -1);
                  }),
                  "");
        CSearchBlock smallest(dev, 4936, BLOCK_BASE_OFFSET, 0);
        EXPECT_EQ(smallest.GetUnitRecMap(0), 2);
        EXPECT_EQ(smallest.GetNoIndexMediaList(0, kAll, 0, &records), 2);
    }
    dev_close(dev);
}

TEST_F(BlockInfo, ObjectWithoutDeviceFails) {
    CSearchBlock blocks(nullptr, 0x10000, BLOCK_BASE_OFFSET, 0);
    BlockHead_t head = {};
    EXPECT_EQ(
        PrintedWithoutLines([&] { EXPECT_EQ(blocks.GetBlockInfo(0, &head, nullptr, nullptr, nullptr), -1); }),
        "GetBlockInfo : #, Failed\n");
}

} // namespace
