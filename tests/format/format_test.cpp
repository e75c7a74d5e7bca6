// Where things lie, against numbers worked out by hand.

#include <gtest/gtest.h>

#include <cstring>

#include "format/block_geometry.h"
#include "format/channels.h"
#include "format/ids.h"
#include "format/index_table.h"
#include "format/index_tables.h"
#include "format/part_head.h"
#include "format/ring.h"
#include "format/times.h"

namespace {

using namespace disk_access;

TEST(BlockGeometry, NormalLayoutOfEightMebibytes) {
    const BlockGeometry g = BlockGeometry::Of(0x800000, 0);
    EXPECT_EQ(g.headAreaSize, 840u);
    EXPECT_EQ(g.IndexAreaSize(), 0x9000u);
    EXPECT_EQ(g.IndexAreaStart(), 0x7F7000u);
    EXPECT_EQ(g.TailStart(), 0x7FFFECu);
    EXPECT_EQ(g.FrameAreaSize(), 0x7F7000u - 840u);
    EXPECT_FALSE(g.Extended());
}

TEST(BlockGeometry, ExtendedLayoutOfEightMebibytes) {
    const BlockGeometry g = BlockGeometry::Of(0x800000, 1);
    EXPECT_EQ(g.headAreaSize, 2048u);
    EXPECT_EQ(g.IndexAreaSize(), 0x9000u);
    EXPECT_EQ(g.IndexAreaStart(), 0x7F7000u);
    EXPECT_EQ(g.TailStart(), 0x7FFE00u);
    EXPECT_EQ(g.TailStart() + sizeof(BlockTail_t), 0x7FFE14u);
    EXPECT_TRUE(g.Extended());
}

TEST(BlockGeometry, OnlyVersionOneIsExtended) {
    EXPECT_TRUE(BlockGeometry::Of(0x800000, 1).Extended());
    EXPECT_FALSE(BlockGeometry::Of(0x800000, 2).Extended());
    EXPECT_FALSE(BlockGeometry::Of(0x800000, 0xFFFFFFFF).Extended());
}

TEST(BlockGeometry, IndexAreaIsRoundedUpToPages) {
    EXPECT_EQ(BlockGeometry::Of(0x100000, 0).IndexAreaSize(), 0x2000u);   // 20 + 4096
    EXPECT_EQ(BlockGeometry::Of(0x10000, 0).IndexAreaSize(), 0x1000u);    // 20 + 256
    EXPECT_EQ(BlockGeometry::Of(4076 * 256, 0).IndexAreaSize(), 0x1000u); // 20 + 4076: one page
    EXPECT_EQ(BlockGeometry::Of(4077 * 256, 0).IndexAreaSize(), 0x2000u); // a byte more
    EXPECT_EQ(BlockGeometry::Of(0xFFFFFFFF, 0).IndexAreaSize(), 0x1001000u);
}

TEST(BlockGeometry, BlocksStartAboveFourGigabytes) {
    const BlockGeometry g = BlockGeometry::Of(0x800000, 0);
    EXPECT_EQ(g.BlockStart(BLOCK_BASE_OFFSET, 0), 0x800000u);
    EXPECT_EQ(g.BlockStart(BLOCK_BASE_OFFSET, 1), 0x1000000u);
    EXPECT_EQ(g.BlockStart(BLOCK_BASE_OFFSET, 600), 0x12C800000u);
    EXPECT_EQ(g.BlockStart(BLOCK_BASE_OFFSET, 65535), 0x8000000000u);
}

TEST(BlockGeometry, BlockMustHoldItsHeadAndIndex) {
    // 840 + 4096 = 4936; 2048 + 4096 = 6144
    EXPECT_TRUE(BlockGeometry::Of(4936, 0).HoldsBlock());
    EXPECT_EQ(BlockGeometry::Of(4936, 0).FrameAreaSize(), 0u);
    EXPECT_FALSE(BlockGeometry::Of(4935, 0).HoldsBlock());
    EXPECT_TRUE(BlockGeometry::Of(6144, 1).HoldsBlock());
    EXPECT_FALSE(BlockGeometry::Of(6143, 1).HoldsBlock());
    EXPECT_FALSE(BlockGeometry::Of(0, 0).HoldsBlock());
}

TEST(BlockGeometry, BlockIsInsideTheDeviceIfItBeginsThere) {
    const BlockGeometry g = BlockGeometry::Of(0x10000, 0);
    EXPECT_EQ(BlocksInside(g, 0x7FFFFF), 0u);
    EXPECT_EQ(BlocksInside(g, 0x800000), 0u);
    EXPECT_EQ(BlocksInside(g, 0x800001), 1u);
    EXPECT_EQ(BlocksInside(g, 0x810000), 1u);
    EXPECT_EQ(BlocksInside(g, 0x810001), 2u);
    // 0x800000 + 0xFFFFFFFF * 0x10000, and a byte more.
    EXPECT_EQ(BlocksInside(g, 0x10000007F0000), 0xFFFFFFFFu);
    EXPECT_EQ(BlocksInside(g, 0x10000007F0001), 0xFFFFFFFFu);
    EXPECT_EQ(BlocksInside(g, 0x7FFFFFFFFFFFFFFF), 0xFFFFFFFFu);
    EXPECT_EQ(BlocksInside(BlockGeometry::Of(4935, 0), 0x900000), 0u);
}

TEST(BlockGeometry, RingHasNoMoreBlocksThanIdsOrTheDevice) {
    const BlockGeometry g = BlockGeometry::Of(0x10000, 0);
    constexpr uint64_t kThreeBlocks = 0x830000;
    EXPECT_EQ(CredibleBlocks(3, g, kThreeBlocks), 3u);
    EXPECT_EQ(CredibleBlocks(0x8000, g, kThreeBlocks), 0x8000u); // a copy that was cut off
    EXPECT_EQ(CredibleBlocks(0x10000, g, kThreeBlocks), 0x10000u);
    EXPECT_EQ(CredibleBlocks(0xFFFFFFFF, g, kThreeBlocks), 0x10000u);
    constexpr uint64_t kMoreThanIds = 0x800000 + uint64_t{0x10001} * 0x10000;
    EXPECT_EQ(CredibleBlocks(0xFFFFFFFF, g, kMoreThanIds), 0x10001u);
}

TEST(Channels, BitsCountFromTheLeastSignificant) {
    EXPECT_TRUE(HasChannel(0x5, 0));
    EXPECT_FALSE(HasChannel(0x5, 1));
    EXPECT_TRUE(HasChannel(0x5, 2));
    EXPECT_TRUE(HasChannel(0x80000000, 31));
    // Byte 1, bit 1 of the set as it lies on the disk.
    const uint8_t bytes[4] = {0, 2, 0, 0};
    uint32_t set = 0;
    std::memcpy(&set, bytes, sizeof set);
    EXPECT_TRUE(HasChannel(set, 9));
}

TEST(Channels, NoneAboveThirtyOneIsInAnySet) {
    for (const uint32_t chn : {32u, 33u, 63u, 64u, 127u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(HasChannel(0xFFFFFFFF, chn)) << chn;
    }
}

TEST(Channels, Counts) {
    EXPECT_EQ(CountChannels(0), 0);
    EXPECT_EQ(CountChannels(0x5), 2);
    EXPECT_EQ(CountChannels(0xFFFFFFFF), 32);
}

TEST(Ids, RecordIdPacksBlockChannelAndSegment) {
    EXPECT_EQ(MakeRecordId(0x1234, 5, 3), 0x12340A03u);
    EXPECT_EQ(MakeRecordId(1, 31, 0x1FF), 0x00013FFFu);
    EXPECT_EQ(MakeRecordId(0, 0, 0x200), 0u); // the segment keeps nine bits
    EXPECT_EQ(BlockOfId(0x12340A03), 0x1234u);
}

TEST(Ids, EventIdKeepsSixteenBitsOfTheEntry) {
    EXPECT_EQ(MakeEventId(2, 5), 0x00020005u);
    EXPECT_EQ(MakeEventId(2, 0x10005), 0x00020005u);
}

TEST(Ring, StepsWrap) {
    const Ring ring = {8};
    EXPECT_EQ(ring.Next(6), 7u);
    EXPECT_EQ(ring.Next(7), 0u);
    EXPECT_EQ(ring.Prev(1), 0u);
    EXPECT_EQ(ring.Prev(0), 7u);
    EXPECT_EQ(ring.Ahead(6, 5), 3u);
}

TEST(Ring, StepsDoNotOverflow) {
    const Ring ring = {0xFFFFFFFF};
    EXPECT_EQ(ring.Next(0xFFFFFFFE), 0u);
    EXPECT_EQ(ring.Prev(0), 0xFFFFFFFEu);
    EXPECT_EQ(ring.Prev(0xFFFFFFFE), 0xFFFFFFFDu);
    EXPECT_EQ(ring.Middle(0xFFFFFFF0, 0x0000000E), 0xFFFFFFFEu);
}

TEST(Ring, SpanCountsBothEnds) {
    const Ring ring = {8};
    EXPECT_EQ(ring.Span(3, 3), 1u);
    EXPECT_EQ(ring.Span(2, 5), 4u);
    EXPECT_EQ(ring.Span(6, 1), 4u);
    EXPECT_EQ(ring.Span(4, 3), 8u); // the whole ring
    EXPECT_EQ(Ring{0}.Span(0, 0), 0u);
}

TEST(Ring, MiddleOfAnArc) {
    const Ring ring = {8};
    EXPECT_EQ(ring.Middle(0, 7), 3u);
    EXPECT_EQ(ring.Middle(2, 4), 3u);
    EXPECT_EQ(ring.Middle(6, 2), 0u); // 6 7 0 1 2
    EXPECT_EQ(ring.Middle(7, 1), 0u);
    EXPECT_EQ(ring.Middle(5, 1), 7u); // 5 6 7 0 1
    EXPECT_EQ(ring.Middle(3, 3), 7u); // 3 4 5 6 7 0 1 2 3
}

TEST(PartHead, MagicDependsOnTheDiskType) {
    for (const int type : {52, 19, 34}) {
        EXPECT_EQ(ExpectedMagic(type), 0xAA55AA50u) << type;
    }
    for (const int type : {0, 1, -1, 18, 20, 33, 35, 51, 53}) {
        EXPECT_EQ(ExpectedMagic(type), 0xAA55AA55u) << type;
    }
}

TEST(PartHead, LockIgnoresTheBitOfValueTwo) {
    EXPECT_FALSE(LockActive(0));
    EXPECT_TRUE(LockActive(1));
    EXPECT_FALSE(LockActive(2));
    EXPECT_TRUE(LockActive(3));
    EXPECT_TRUE(LockActive(0x80000000));
}

TEST(PartHead, PasswordIsTakenToAHundredAndTwentySevenCharacters) {
    PartHead_t head = {};
    std::memset(head.CipherCode, 'x', sizeof head.CipherCode);
    char text[128];
    CopyCipherCode(text, head);
    EXPECT_EQ(std::strlen(text), 127u);
}

TEST(PartHead, BadBlockTableHasOneBitABlock) {
    EXPECT_EQ(BadBlockTabSize(0), 0u);
    EXPECT_EQ(BadBlockTabSize(8), 1u);
    EXPECT_EQ(BadBlockTabSize(9), 2u);
    EXPECT_EQ(BadBlockTabSize(0xFFFFFFFF), 0x20000000u);
    const uint8_t table[2] = {0x81, 0x01};
    EXPECT_TRUE(MarkedBad(table, 0));
    EXPECT_FALSE(MarkedBad(table, 1));
    EXPECT_TRUE(MarkedBad(table, 7));
    EXPECT_TRUE(MarkedBad(table, 8));
    EXPECT_FALSE(MarkedBad(table, 9));
}

TEST(Times, SecondsOfAStampAreTruncatedTowardZero) {
    EXPECT_EQ(SecondsOf(1999999), 1);
    EXPECT_EQ(SecondsOf(-1999999), -1);
    EXPECT_EQ(SecondsOf(1700000000123456), 1700000000);
    EXPECT_EQ(SecondsOf(0x80000000LL * 1000000), INT32_MIN); // 2038: a signed number on the recorder
}

TEST(Times, LongSecondsAreThirtyTwoBitsOnEveryHost) {
    EXPECT_EQ(Seconds32(static_cast<long>(0xFFFFFFFFu)), -1);
    EXPECT_EQ(Seconds32(static_cast<long>(0x80000000u)), INT32_MIN);
    EXPECT_EQ(Seconds32(0x7FFFFFFF), 0x7FFFFFFF);
}

TEST(IndexTable, GrowsWithZeroEntriesAndKeepsTheOld) {
    IndexTable<RecSegItem_t> table;
    EXPECT_FALSE(table.Allocated());
    EXPECT_EQ(table.Held(5), 0u);
    ASSERT_TRUE(table.Resize(1));
    EXPECT_TRUE(table.Allocated());
    table.Data()[0] = {1, 2, 3, 4, 5};
    ASSERT_TRUE(table.Resize(3));
    EXPECT_EQ(table.Held(5), 3u);
    EXPECT_EQ(table.Held(2), 2u);
    EXPECT_EQ(table.At(0).totalsize, 5u);
    EXPECT_EQ(table.At(2).totalsize, 0u);
    ASSERT_TRUE(table.Resize(2));
    EXPECT_EQ(table.Held(5), 2u);
    ASSERT_TRUE(table.Resize(3));
    EXPECT_EQ(table.At(2).totalsize, 0u);
}

TEST(IndexTable, NewEntriesAreZeroInMemoryThatWasUsed) {
    constexpr uint32_t kEntries = 40;
    {
        IndexTable<RecSegItem_t> used;
        ASSERT_TRUE(used.Resize(kEntries));
        for (uint32_t i = 0; i < kEntries; ++i) {
            used.Put(i, {~0u, ~0u, ~0u, ~0u, ~0u});
        }
    }
    IndexTable<RecSegItem_t> table; // the allocator may well give it the same memory
    ASSERT_TRUE(table.Resize(kEntries));
    for (uint32_t i = 0; i < kEntries; ++i) {
        const RecSegItem_t entry = table.At(i);
        EXPECT_EQ(entry.s | entry.e | entry.spos | entry.epos | entry.totalsize, 0u) << i;
    }
}

TEST(IndexTables, FramesBecomeEntriesOfTheirKind) {
    IndexTables index;
    const EventHead_t marked = {0x10, 0, 1, {}};
    index.AddFrame({1000000, 1, 2, 80}, 300, nullptr); // a key frame of channel 2
    index.AddFrame({2000000, 4, 2, 80}, 404, &marked);
    index.AddFrame({3000000, 3, 2, 80}, 508, &marked); // other data
    ASSERT_EQ(index.IFrames(2), 1u);
    const IFrameItem_t iframe = index.iframeTab[2].At(0);
    EXPECT_EQ(int64_t{iframe.pts}, 1000000);
    EXPECT_EQ(iframe.pos, 300u);
    EXPECT_EQ(iframe.Reserved, 0u);
    ASSERT_EQ(index.Events(), 1u);
    const EventIndexItem_t event = index.eventTab.At(0);
    EXPECT_EQ(uint64_t{event.type}, 0x10u);
    EXPECT_EQ(int64_t{event.pts}, 2000000);
    EXPECT_EQ(event.pos, 404u);
    EXPECT_EQ(event.Reserved, 0u);
    ASSERT_EQ(index.Segments(2), 1u);
    const RecSegItem_t segment = index.recSegTab[2].At(0);
    EXPECT_EQ(segment.s, 1u);
    EXPECT_EQ(segment.e, 1u);
    EXPECT_EQ(segment.spos, 300u);
    EXPECT_EQ(segment.epos, 400u); // 300 + 20 + 80
    EXPECT_EQ(segment.totalsize, 100u);
}

} // namespace
