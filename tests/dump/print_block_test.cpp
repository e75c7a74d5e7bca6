// Dumps of a block: what is printed of its head, its index and its tails, and where a forgery ends it.

#include <cstdio>
#include <cstring>
#include <functional>

#include "dump/dump_fixture.h"

namespace {

using namespace test_support;

const std::string kTailBanner = "*******************BLOCK TAIL******************* \n";

class PrintBlock : public DumpFixture {
protected:
    /// What level 3 prints of block 0 after its channel set.
    std::string Index() {
        const std::string text = Block(0);
        return text.substr(text.find('\n', text.find("media_chn_bitmap")) + 1);
    }

    /// A disk whose block 0 has the tables of @p contents.
    void MakeBlock(const BlockContents& contents) { MakeDisk(1).WriteBlock(0, contents); }

    static BlockContents Plain() { return BlockContents::Closed(1, 10, 20); }

    void ForgeIndex(const std::function<void(BlkIndexHead_t&)>& edit) {
        Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(0), edit);
    }

    /// Shrinks the blocks, so that a block's areas no longer fit it.
    void Shrink(uint32_t blkSize) {
        Disk().EditHead([=](PartHead_t& head) { head.BlkSize = blkSize; });
    }

    const std::string m_tail = kTailBanner + "RecSeq : 1\n"
                                             "StartTime : 10, [1970.01.01 00:00:10]\n"
                                             "EndTime : 20, [1970.01.01 00:00:20]\n";
};

TEST_F(PrintBlock, AnEmptyBlockHasAHeadAlone) {
    MakeBlock(Plain().Segment(0, 10, 20, 5));
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [](auto& head) { head.RecSeq = 0; });
    EXPECT_EQ(Block(0), "\n\n[NUM] : 0, 8388608\n"
                        "*********************BLOCK HEAD********************** \n"
                        "ValidFlag : 0xaa55aa55\n"
                        "RecSeq : 0\n"
                        "RecTime : 10, [1970.01.01 00:00:10]\n");
}

TEST_F(PrintBlock, ABlockWithoutTheValidFlagIsPrintedLikeAnyOther) {
    MakeBlock(Plain().Segment(0, 10, 20, 5));
    const std::string before = Block(0);
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [](auto& head) { head.ValidFlag = 0; });
    const std::string after = Block(0);
    EXPECT_EQ(after.substr(after.find("RecSeq")), before.substr(before.find("RecSeq")));
}

TEST_F(PrintBlock, TextsThatAreNotTerminatedEndWithTheirFields) {
    BlockContents contents = Plain();
    std::memset(contents.head.VehicleNum, 'N', sizeof contents.head.VehicleNum);
    std::memset(contents.head.VehicleID, 'I', sizeof contents.head.VehicleID);
    contents.head.media_chn_bitmap = 0x49494949; // "IIII", if anything were to run on
    MakeBlock(contents);
    const std::string text = Block(0);
    EXPECT_NE(text.find("\nVehicleID : " + std::string(32, 'I') + "\nVehicleNum : " + std::string(16, 'N') +
                        "\nmedia_chn_bitmap : 0x49494949\n"),
              std::string::npos)
        << text;
}

TEST_F(PrintBlock, PropertiesOfAllChannels) {
    BlockContents contents = Plain().Channels(0xFFFFFFFF);
    for (uint8_t chn = 0; chn < 32; ++chn) {
        contents.head.prop[chn].Resolution = chn;
    }
    MakeBlock(contents);
    const std::string text = Block(0);
    for (int chn = 0; chn < 32; ++chn) {
        const std::string n = std::to_string(chn);
        EXPECT_NE(text.find("prop[" + n + "] : Resolution = " + n + "\n"), std::string::npos) << chn;
    }
}

TEST_F(PrintBlock, SegmentsOfAllChannelsAreOneList) {
    MakeBlock(Plain().Segment(5, 11, 12, 100).Segment(1, 13, 14, 200, 50).Segment(5, 15, 16, 300));
    EXPECT_NE(Index().find("Rec Seg : count = 3\n"
                           "  s = 13, e = 14, spos = 50, epos = 250, totalsize = 200\n"
                           "  s = 11, e = 12, spos = 0, epos = 100, totalsize = 100\n"
                           "  s = 15, e = 16, spos = 0, epos = 300, totalsize = 300\n" +
                           kTailBanner),
              std::string::npos)
        << Index();
}

TEST_F(PrintBlock, EventsWithoutSegments) {
    MakeBlock(Plain().Event(-5, 0xFFFFFFFFFFFFFFFF, 0x80000000));
    EXPECT_EQ(Index(), "Event : count = 1\n"
                       "  info : pts = -5, pos = -2147483648, type = -1\n" +
                           m_tail);
}

TEST_F(PrintBlock, CountsOfChannelsThatAreNotPresentCount) {
    MakeBlock(Plain().IFrame(9, 1, 2).Segment(9, 11, 12, 100).Event(7, 3));
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [](auto& head) { head.media_chn_bitmap = 0; });
    EXPECT_EQ(Index(), "Rec Seg : count = 1\n"
                       "  s = 11, e = 12, spos = 0, epos = 100, totalsize = 100\n"
                       "Event : count = 1\n"
                       "  info : pts = 7, pos = 0, type = 3\n" +
                           m_tail);
}

TEST_F(PrintBlock, SegmentsAreReadOverManyBlocks) {
    // The memory for the tables of a large block serves smaller ones, and grows again.
    MakeDisk(4);
    const uint32_t counts[] = {2, 40, 3, 41};
    for (uint32_t block = 0; block < 4; ++block) {
        BlockContents contents = Plain();
        for (uint32_t i = 0; i < counts[block]; ++i) {
            contents.Segment(block, 100 * block + i, 100 * block + i, 1);
        }
        Disk().WriteBlock(block, contents);
    }
    for (uint32_t block = 0; block < 4; ++block) {
        std::string expected = "Rec Seg : count = " + std::to_string(counts[block]) + "\n";
        for (uint32_t i = 0; i < counts[block]; ++i) {
            const std::string time = std::to_string(100 * block + i);
            expected += "  s = " + time + ", e = " + time + ", spos = 0, epos = 1, totalsize = 1\n";
        }
        EXPECT_NE(Block(block).find(expected + kTailBanner), std::string::npos) << block;
    }
}

// ---- tables that do not fit

TEST_F(PrintBlock, TablesMayReachTheBlocksEndAndNoFurther) {
    // The index area of a block of 64 KiB is 4096 bytes, its head 260: 3836 are left. 151 events of 24 bytes,
    // 1 I-frame of 16 and 9 segments of 20 take 3820; with an I-frame more the tables end with the block.
    MakeBlock(Plain());
    const auto printed = [this](uint32_t iframes) {
        ForgeIndex([=](auto& index) {
            index.iframeCount[0] = iframes;
            index.recSegCount[0] = 9;
            index.eventCount = 151;
        });
        const std::string text = Index();
        return text.find("Rec Seg : count = 9\n") == 0 &&
               text.find("Event : count = 151\n") != std::string::npos &&
               text.find(m_tail) != std::string::npos;
    };
    EXPECT_TRUE(printed(1));
    EXPECT_TRUE(printed(2));
    EXPECT_FALSE(printed(3));
    EXPECT_EQ(Index(), "");
}

TEST_F(PrintBlock, TablesMayReachTheDevicesEndAndNoFurther) {
    MakeBlock(Plain().Segment(0, 11, 12, 100));
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [](auto& head) { head.media_chn_bitmap = 0; });
    // An index head of 260 bytes and a segment of 20: no tail is left.
    Disk().Truncate(Disk().IndexOffset(0) + 280);
    EXPECT_EQ(Index(), "Rec Seg : count = 1\n"
                       "  s = 11, e = 12, spos = 0, epos = 100, totalsize = 100\n" +
                           kTailBanner);
    Disk().Truncate(Disk().IndexOffset(0) + 279);
    EXPECT_EQ(Index(), "");
}

TEST_F(PrintBlock, CountsThatWrapEndTheBlock) {
    const std::function<void(BlkIndexHead_t&)> forgeries[] = {
        [](BlkIndexHead_t& index) { index.iframeCount[0] = 0x10000000; },
        [](BlkIndexHead_t& index) { index.iframeCount[0] = index.iframeCount[1] = 0x80000000; },
        [](BlkIndexHead_t& index) { index.recSegCount[0] = 0x0CCCCCCD; }, // times 20: 4 beyond 2^32
        [](BlkIndexHead_t& index) { index.recSegCount[0] = index.recSegCount[31] = 0x80000000; },
        [](BlkIndexHead_t& index) { index.eventCount = 0x0AAAAAAB; }, // times 24: 8 beyond 2^32
        [](BlkIndexHead_t& index) { index.eventCount = 0xFFFFFFFF; },
        [](BlkIndexHead_t& index) { std::memset(&index, 0xFF, sizeof index); },
        [](BlkIndexHead_t& index) { index.recSegCount[0] = 200; }, // 4000 bytes, of 3836
    };
    for (const auto& forgery : forgeries) {
        MakeBlock(Plain());
        ForgeIndex(forgery);
        EXPECT_EQ(Index(), "");
        EXPECT_NE(DumpAt(2).text.find(m_tail), std::string::npos); // the tails are there all the same
        std::remove(Disk().Path().c_str());
    }
}

// ---- blocks that cannot hold their own areas

TEST_F(PrintBlock, ATailThatBeginsBeforeTheBlock) {
    MakeBlock(Plain());
    // The tail's 20 bytes lie before a block of no bytes; its head's first words are where an extended tail
    // would be.
    Disk().Put(Disk().BlockStart(0) - 20, BlockTail_t{0, 0, 77, 1000, 2000});
    const std::string tails = kTailBanner + "RecSeq : 77\n"
                                            "StartTime : 1000, [1970.01.01 00:16:40]\n"
                                            "EndTime : 2000, [1970.01.01 00:33:20]\n"
                                            "Ex RecSeq : -1437226411\n"
                                            "Ex StartTime : 10, [1970.01.01 00:00:10]\n"
                                            "Ex EndTime : 1, [1970.01.01 00:00:01]\n";
    Shrink(0);
    EXPECT_EQ(Index(), tails);
    EXPECT_NE(Pieces(DumpAt(2).text).at(1).find(tails), std::string::npos);
    // One byte later, each word is made of three bytes of itself and one of the next.
    Shrink(1);
    const std::string text = Pieces(DumpAt(2).text).at(1);
    EXPECT_NE(text.find(kTailBanner + "RecSeq : " + std::to_string(int32_t(1000u << 24)) + "\n"),
              std::string::npos)
        << text;
}

TEST_F(PrintBlock, ATailThatCannotBeReadBeforeTheBlock) {
    MakeBlock(Plain());
    Shrink(19);
    const Dumped dumped = DumpWith(2, [this](const Call& call, size_t) {
        const bool tail = call.offset == static_cast<int64_t>(Disk().BlockStart(0)) - 1;
        return call.kind == CallKind::Read && tail ? Fate::Failing() : Fate();
    });
    EXPECT_EQ(dumped.result, 0);
    const std::string text = Pieces(dumped.text).at(1);
    EXPECT_EQ(text.substr(text.size() - kTailBanner.size()), kTailBanner);
}

TEST_F(PrintBlock, ATailInsideTheHead) {
    // 20 bytes from the block's start on: the valid flag, the time and the number are where a tail has its
    // first words and its number.
    MakeBlock(Plain());
    Shrink(20);
    const std::string text = Pieces(DumpAt(2).text).at(1);
    EXPECT_NE(text.find(kTailBanner + "RecSeq : 1\n"
                                      "StartTime : 0, [1970.01.01 00:00:00]\n"),
              std::string::npos)
        << text;
}

TEST_F(PrintBlock, AnIndexAreaThatBeginsBeforeTheBlock) {
    // The index area takes 4096 bytes, however small the block: of these, 100 lie in it.
    MakeBlock(Plain());
    Shrink(100);
    const uint64_t index = Disk().BlockStart(0) + 100 - 4096;
    Disk().Put(Disk().BlockStart(0) + 80, BlockTail_t{0, 0, 1, 10, 20});
    BlkIndexHead_t head = {};
    head.recSegCount[7] = 1;
    head.eventCount = 1;
    Disk().Put(index, head);
    Disk().Put(index + 260, RecSegItem_t{1, 2, 3, 4, 5});
    Disk().Put(index + 280, EventIndexItem_t{6, 7, 8, 9});
    EXPECT_EQ(Index().find("Rec Seg : count = 1\n"
                           "  s = 1, e = 2, spos = 3, epos = 4, totalsize = 5\n"
                           "Event : count = 1\n"
                           "  info : pts = 7, pos = 8, type = 6\n" +
                           m_tail),
              0u);
    // Tables may reach the block's end and no further: 2 * 16 + 9 * 20 + 151 * 24 = 4096 - 260.
    head.recSegCount[7] = 9;
    head.eventCount = 151;
    for (const auto& [iframes, printed] : {std::pair{2u, true}, {3u, false}, {0xFFFFFFFFu, false}}) {
        head.iframeCount[31] = iframes;
        Disk().Put(index, head);
        EXPECT_EQ(Index().find("Rec Seg : count = 9\n") == 0, printed) << iframes;
        EXPECT_EQ(Index().empty(), !printed) << iframes;
    }
}

TEST_F(PrintBlock, AreasOfTheExtendedLayoutThatBeginBeforeTheBlock) {
    MakeDisk(SampleFormat(1)).WriteBlock(0, Plain());
    Disk().EditHead([](PartHead_t& head) { head.BlkCount = 1; });
    // The tail area takes 512 bytes.
    Shrink(412);
    Disk().Put(Disk().BlockStart(0) - 100, BlockTail_t{0, 0, 77, 1000, 2000});
    Disk().Put(Disk().BlockStart(0) - 80, BlockTailEx_t{78, 10, 20});
    EXPECT_EQ(Index(), kTailBanner + "RecSeq : 77\n"
                                     "StartTime : 1000, [1970.01.01 00:16:40]\n"
                                     "EndTime : 2000, [1970.01.01 00:33:20]\n"
                                     "Ex RecSeq : 78\n"
                                     "Ex StartTime : 10, [1970.01.01 00:00:10]\n"
                                     "Ex EndTime : 20, [1970.01.01 00:00:20]\n");
}

} // namespace
