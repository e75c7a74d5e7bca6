// The index of a block: its tables as values, and none of them where they cannot be read or cannot be true.

#include "recordings/block_index.h"

#include <gtest/gtest.h>

#include "recordings/recordings_fixture.h"

namespace test_support {

namespace {

using recordings::BlockIndex;
using recordings::BlockList;
using sample_recorder::BlockContents;

class IndexOfABlock : public RecordingsFixture {
protected:
    /// Block 0 with channels 0 and 5, and an event.
    void SetUp() override {
        MakeDisk();
        Image().WriteBlock(0, BlockContents::Closed(1, 1000, 1900)
                                  .Segment(0, 1000, 1400, 5000)
                                  .Segment(0, 1500, 1900, 6000, 5000)
                                  .Segment(5, 1100, 1200, 700, 30)
                                  .IFrame(0, 1000000000, 0)
                                  .IFrame(5, 1100500000, 30)
                                  .IFrame(5, 1101500000, 400)
                                  .Event(1300000000, 0x10, 2000));
    }

    recordings::Block Listed() {
        const BlockList blocks = BlockList::Read(Open());
        return blocks.All().front();
    }

    /// Reads with the disk as it is now.
    std::optional<BlockIndex> Index(const recordings::Block& block,
                                    const recordings::IndexParts& parts = {}) {
        return ReadIndex(Open(), block, parts);
    }

    uint64_t Tables() { return Image().IndexOffset(0) + sizeof(BlkIndexHead_t); }
};

void ExpectAll(const std::optional<BlockIndex>& index) {
    ASSERT_TRUE(index);
    ASSERT_EQ(index->segments[0].size(), 2u);
    EXPECT_EQ(index->segments[0][1].start, 1500u);
    EXPECT_EQ(index->segments[0][1].end, 1900u);
    EXPECT_EQ(index->segments[0][1].startOffset, 5000u);
    EXPECT_EQ(index->segments[0][1].bytes, 6000u);
    ASSERT_EQ(index->segments[5].size(), 1u);
    EXPECT_EQ(index->segments[5][0].start, 1100u);
    ASSERT_EQ(index->keyFrames[0].size(), 1u);
    ASSERT_EQ(index->keyFrames[5].size(), 2u);
    EXPECT_EQ(index->keyFrames[5][1].time, 1101500000);
    EXPECT_EQ(index->keyFrames[5][1].offset, 400u);
    ASSERT_EQ(index->events.size(), 1u);
    EXPECT_EQ(index->events[0].type, 0x10u);
    EXPECT_EQ(index->events[0].time, 1300000000);
    EXPECT_EQ(index->events[0].offset, 2000u);
}

TEST_F(IndexOfABlock, HasTheTablesOfTheHeadsChannels) {
    ExpectAll(Index(Listed()));
    recordings::Block block = Listed();
    EXPECT_EQ(block.channels.bits, 0x21u);
    // A table of a channel that the head does not have is not there: what stands there is the next one.
    block.channels = {0x20};
    const std::optional<BlockIndex> index = Index(block);
    ASSERT_TRUE(index);
    EXPECT_TRUE(index->keyFrames[0].empty());
    ASSERT_EQ(index->keyFrames[5].size(), 2u);
    EXPECT_EQ(index->keyFrames[5][0].time, 1000000000); // channel 0's
}

TEST_F(IndexOfABlock, HasTheTablesThatAreWanted) {
    const std::optional<BlockIndex> index = Index(Listed(), {false, true, false});
    ASSERT_TRUE(index);
    EXPECT_TRUE(index->keyFrames[5].empty());
    EXPECT_TRUE(index->events.empty());
    EXPECT_EQ(index->segments[5].size(), 1u);
    EXPECT_EQ(index->segments[5][0].start, 1100u);
}

TEST_F(IndexOfABlock, GoesByItsCountsWhereTheHeadIsDamaged) {
    recordings::Block block = Listed();
    block.headSound = false;
    block.channels = {0x2};
    ExpectAll(Index(block));
}

TEST_F(IndexOfABlock, IsNoneWhereTheDiskDoesNotDeliverIt) {
    const recordings::Block block = Listed();
    Fail(Image().IndexOffset(0) + 8, Image().IndexOffset(0) + 9); // among the counts
    EXPECT_FALSE(Index(block));
    Forgive();
    Fail(Tables(), Tables() + 1); // the first key frame's entry
    EXPECT_FALSE(Index(block));
    // What is not wanted need not be readable.
    EXPECT_TRUE(Index(block, {false, true, true}));
    Forgive();
    ExpectAll(Index(block));
}

TEST_F(IndexOfABlock, IsNoneWhereItWouldNotEndWithinTheBlock) {
    const recordings::Block block = Listed();
    const uint64_t room = Image().BlockStart(1) - Tables();
    const auto state = [&](uint32_t events) {
        Image().Change<BlkIndexHead_t>(Image().IndexOffset(0),
                                       [events](BlkIndexHead_t& counts) { counts.eventCount = events; });
    };
    const uint64_t held = 3 * sizeof(IFrameItem_t) + 3 * sizeof(RecSegItem_t);
    const auto most = static_cast<uint32_t>((room - held) / sizeof(EventIndexItem_t));
    state(most);
    ASSERT_TRUE(Index(block));
    EXPECT_EQ(Index(block)->events.size(), most);
    state(most + 1);
    EXPECT_FALSE(Index(block));
    EXPECT_TRUE(Index(block, {true, true, false}));
    state(0xFFFFFFFF);
    EXPECT_FALSE(Index(block));
}

} // namespace

} // namespace test_support
