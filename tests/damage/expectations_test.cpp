// What single fields and cuts make of a disk, where it can be worked out by hand.

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <set>

#include "damage/matrix_disk.h"
#include "damage/operations.h"
#include "search/search_fixture.h"
#include "support/transcript.h"

namespace {

using namespace test_support;

/// Records of the blocks of a MatrixDisk, as lines "block/channel start-end". Block 3 was recorded from 1700080000
/// on, the others 40000 seconds apart; each of the closed ones for eight seconds.
const Lines kBlock1 = {"1/0 1700040000-1700040007", "1/31 1700040000-1700040007"};
const Lines kBlock3 = {"3/0 1700080000-1700080007", "3/31 1700080000-1700080007"};
const Lines kBlock4 = {"4/0 1700120000-1700120007", "4/31 1700120000-1700120007"};
/// Without an index: from the block's start for twelve hours, or to midnight (UTC) if that comes first.
const Lines kCoarse1 = {"1/0 1700040000-1700083200 coarse", "1/31 1700040000-1700083200 coarse"};
const Lines kCoarse3 = {"3/0 1700080000-1700092800 coarse", "3/31 1700080000-1700092800 coarse"};
const Lines kCoarse4 = {"4/0 1700120000-1700163200 coarse", "4/31 1700120000-1700163200 coarse"};
const Lines kCoarse0 = {"0/0 1700160000-1700179200 coarse", "0/31 1700160000-1700179200 coarse"};

Lines Together(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::string Brief(const RecordItem_t& record) {
    return std::to_string(record.recId >> 16) + "/" + std::to_string(record.chn) + " " +
           std::to_string(record.startTime) + "-" + std::to_string(record.endTime) +
           (record.flag == 1 && record.size == 0x3C00000 ? " coarse" : "");
}

class Expectations : public ::testing::TestWithParam<uint32_t> {
protected:
    PartitionImage& Image() { return m_disk.Image(); }
    MatrixDisk& Disk() { return m_disk; }

    template <typename Structure, typename Edit>
    void Change(uint64_t offset, Edit edit) {
        Image().Change<Structure>(offset, edit);
    }

    Lines Records() {
        Lines lines;
        Quietly([&] {
            PartAccess_t access = Image().Access();
            CSearchDisk disk;
            EXPECT_EQ(disk.Init(&access), 0);
            SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
            RecordList records;
            EXPECT_EQ(disk.SearchMedia(&everything, &records), records.m_nCount);
            for (const RecordItem_t& record : Elements(records)) {
                lines.push_back(Brief(record));
            }
        });
        return lines;
    }

    /// Events, as lines "block seconds after the block's start".
    Lines Events() {
        Lines lines;
        Quietly([&] {
            PartAccess_t access = Image().Access();
            CSearchDisk disk;
            disk.Init(&access);
            SearchParam_t everything = {0xFFFFFFFFFFFFFFFF, 0, 0x7FFFFFFF, kAll};
            EventList events;
            disk.SearchEvent(&everything, &events);
            for (const EventItem_t& event : Elements(events)) {
                lines.push_back(std::to_string(event.eventId >> 16) + " " +
                                std::to_string(event.time % 10000));
            }
        });
        return lines;
    }

    /// Frames that a unit's reader delivers, and the result after them.
    std::string UnitFrames(uint32_t block) {
        int frames = 0;
        int result = 0;
        Quietly([&] {
            PartAccess_t access = Image().Access();
            CReadDisk disk;
            disk.Init(&access);
            void* const reader = disk.StartUnitRead(static_cast<int>(block));
            void* payload = nullptr;
            FrameInfo_t info = {};
            while ((result = disk.ReadUnitFrame(reader, &info, &payload)) == 0) {
                ++frames;
            }
            std::free(payload);
            disk.StopUnitRead(reader);
            disk.Quit();
        });
        return std::to_string(frames) + ", then " + std::to_string(result);
    }

    std::string All() {
        std::string text;
        Quietly([&] { text = Transcript(Image().Access()); });
        return text;
    }

private:
    MatrixDisk m_disk{GetParam()};
    CallCounter m_unflushed; ///< readers flush the device, and its host takes its time each time
};

constexpr uint32_t kMiddle = MatrixDisk::kMiddle;

TEST_P(Expectations, WithoutDamage) {
    EXPECT_EQ(Records(), Together({kBlock1, kBlock3, kBlock4, kCoarse0}));
    EXPECT_EQ(Events(), (Lines{"1 1", "1 5", "3 1", "3 5", "4 1", "4 5"}));
    // A second has two frames of video; there are three of audio, two events and one of other data besides.
    EXPECT_EQ(UnitFrames(kMiddle), "22, then 1");
}

TEST_P(Expectations, WrongMagicOpensNothing) {
    Image().EditHead([](PartHead_t& head) { head.FormatFlag = PART_MAGIC_ALT; });
    PartAccess_t access = Image().Access();
    CSearchPart searching;
    EXPECT_EQ(searching.Init(&access), -1);
    CReadPart reading;
    EXPECT_EQ(reading.Init(&access), 0);
    EXPECT_NE(
        Printed([&] { reading.PrintInitInfo(); }).find("BlockCount : 0\nBlockSize : 0\nPartStatus : 2\n"),
        std::string::npos);
    reading.Quit();
    EXPECT_EQ(Records(), Lines());
    EXPECT_EQ(UnitFrames(kMiddle), "0, then -1");
}

TEST_P(Expectations, OtherLayoutFindsNoTails) {
    Image().EditHead([](PartHead_t& head) { head.FmtVersion = head.FmtVersion == 1 ? 2 : 1; });
    EXPECT_EQ(Records(), Together({kCoarse1, kCoarse3, kCoarse4, kCoarse0}));
    EXPECT_EQ(Events(), Lines());
}

TEST_P(Expectations, RingWithoutBlocksHoldsNothing) {
    Image().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    EXPECT_EQ(Records(), Lines());
    const std::string all = All();
    for (const char* const line : {"records: 0\n", "events: 0\n", "units: 0\n", "invalid units: 0\n",
                                   "days: 0\n", "space: 0 0 0\n", "newest: 0\n"}) {
        EXPECT_NE(all.find(line), std::string::npos) << line;
    }
}

TEST_P(Expectations, ShorterRingEndsEarlier) {
    Image().EditHead([](PartHead_t& head) { head.BlkCount -= 1; });
    EXPECT_EQ(Records(), Together({kBlock1, kBlock3, kCoarse0}));
}

TEST_P(Expectations, BlocksTooSmallForTheirAreasHoldNothing) {
    for (const uint32_t size : {0u, 1u, 0x7FFu}) {
        Image().EditHead([=](PartHead_t& head) { head.BlkSize = size; });
        EXPECT_EQ(Records(), Lines());
        EXPECT_EQ(UnitFrames(kMiddle), "0, then -1");
    }
}

TEST_P(Expectations, WithoutTablesSearchesFindNothingAndPlaybackGoesOn) {
    const PartHead_t whole = Image().Head();
    Image().EditHead([](PartHead_t& head) { head.BBTabOffs = 0xFFFFFFFF; });
    EXPECT_EQ(Records(), Lines());
    EXPECT_EQ(UnitFrames(kMiddle), "22, then 1");
    Image().EditHead([&](PartHead_t& head) {
        head.BBTabOffs = whole.BBTabOffs;
        head.BBCounterOffs = 0x80000000;
    });
    EXPECT_EQ(Records(), Lines());
    EXPECT_EQ(UnitFrames(kMiddle), "22, then 1");
}

TEST_P(Expectations, BadAndSuspectBlocksArePassedOver) {
    Image().SetBad(kMiddle);
    EXPECT_EQ(Records(), Together({kBlock1, kBlock4, kCoarse0}));
    Image().SetBad(kMiddle, false);
    Image().SetSuspect(kMiddle, 255);
    EXPECT_EQ(Records(), Together({kBlock1, kBlock4, kCoarse0}));
}

TEST_P(Expectations, BlockWithoutMagicOrTimeOrChannelsHoldsNothing) {
    const uint64_t offset = Image().HeadOffset(kMiddle);
    const auto whole = Image().Get<BlockHead_t>(offset);
    const Lines others = Together({kBlock1, kBlock4, kCoarse0});
    Change<BlockHead_t>(offset, [](auto& head) { head.ValidFlag += 1; });
    EXPECT_EQ(Records(), others);
    Image().Put(offset, whole);
    Change<BlockHead_t>(offset, [](auto& head) { head.RecTime = 0; });
    EXPECT_EQ(Records(), others);
    Image().Put(offset, whole);
    Change<BlockHead_t>(offset, [](auto& head) { head.media_chn_bitmap = 0; });
    EXPECT_EQ(Records(), others);
    Image().Put(offset, whole);
    // Only channel 31: its I-frames are looked for where channel 0's lie, and its segments after them.
    Change<BlockHead_t>(offset, [](auto& head) { head.media_chn_bitmap = 0x80000002; });
    EXPECT_EQ(Records(), others);
}

TEST_P(Expectations, TailOfAnotherRecordingGivesCoarseRecords) {
    for (const uint32_t sequence : {0u, 2u, 4u, 0xFFFFFFFFu}) {
        Change<BlockTail_t>(Image().TailOffset(kMiddle), [=](auto& tail) { tail.RecSeq = sequence; });
        EXPECT_EQ(Records(), Together({kBlock1, kCoarse3, kBlock4, kCoarse0}));
        EXPECT_EQ(Events(), (Lines{"1 1", "1 5", "4 1", "4 5"}));
    }
}

TEST_P(Expectations, WrongSyncWordEndsTheWalk) {
    Change<FrameHead_t>(Disk().FrameHeads(kMiddle).at(4), [](auto& head) { head.sync -= 1; });
    EXPECT_EQ(UnitFrames(kMiddle), "4, then 1");
}

TEST_P(Expectations, LengthBeyondTheBlockFailsBehindWhatLiesInFront) {
    for (const uint32_t length : {0x2000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFE8u, 0xFFFFFFFFu}) {
        Change<FrameHead_t>(Disk().FrameHeads(kMiddle).at(4), [=](auto& head) { head.len = length; });
        EXPECT_EQ(UnitFrames(kMiddle), "4, then -1") << length;
    }
}

TEST_P(Expectations, ChannelOutOfRangeEndsAUnit) {
    Change<FrameHead_t>(Disk().FrameHeads(kMiddle).at(4), [](auto& head) { head.chn = 32; });
    EXPECT_EQ(UnitFrames(kMiddle), "4, then 1");
}

TEST_P(Expectations, CountsThatDoNotFitTheBlockHideItsTables) {
    const uint64_t offset = Image().IndexOffset(kMiddle);
    const auto whole = Image().Get<BlkIndexHead_t>(offset);
    // 0x0CCCCCCD entries of 20 bytes wrap to four.
    for (const uint32_t count : {0x1000u, 0x0CCCCCCDu, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        Change<BlkIndexHead_t>(offset, [=](auto& index) { index.recSegCount[0] = count; });
        EXPECT_EQ(Records(), Together({kBlock1, kBlock4, kCoarse0})) << count;
        Image().Put(offset, whole);
        Change<BlkIndexHead_t>(offset, [=](auto& index) { index.eventCount = count; });
        EXPECT_EQ(Records(), Together({kBlock1, kBlock3, kBlock4, kCoarse0})) << count;
        EXPECT_EQ(Events(), (Lines{"1 1", "1 5", "4 1", "4 5"})) << count;
        Image().Put(offset, whole);
    }
    Change<BlkIndexHead_t>(offset, [](auto& index) { index.recSegCount[31] = 0; });
    EXPECT_EQ(Records(), Together({kBlock1, {kBlock3[0]}, kBlock4, kCoarse0}));
}

TEST_P(Expectations, CountsOfAbsentChannelsMeanNothing) {
    const std::string before = All();
    for (const uint32_t count : {1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        Change<BlkIndexHead_t>(Image().IndexOffset(kMiddle),
                               [=](auto& index) { index.iframeCount[5] = index.recSegCount[30] = count; });
        EXPECT_EQ(All(), before);
    }
}

TEST_P(Expectations, FieldsThatNobodyReadsChangeNothing) {
    const char* const unread[] = {
        "PartHead_t.BBTabBakOffs", "PartHead_t.BBCounterBakOffs", "PartHead_t.Description",
        "PartHead_t.CipherCode",   "BlkExtHead_t.Reserved",       "ChnProp_t.Reserved",
        "IFrameItem_t.Reserved",   "EventIndexItem_t.Reserved",   "BlockTail_t.Reserved",
        "BlockTailEx_t.StartTime", "BlockTailEx_t.EndTime",
    };
    const std::string before = All();
    std::set<std::string> tried;
    size_t read = 0;
    for (const FieldPlace& field : Disk().Fields()) {
        const auto* const name =
            std::find_if(std::begin(unread), std::end(unread), [&](const std::string& start) {
                return field.name.compare(0, start.size(), start) == 0;
            });
        // One block represents all of them.
        const bool ofAnother = field.name.find(" of block ") != std::string::npos &&
                               field.name.find(" of block 3") == std::string::npos;
        if (name == std::end(unread) || ofAnother) {
            continue;
        }
        tried.insert(*name);
        std::vector<uint8_t> held(field.bytes);
        Image().Read(field.offset, held.data(), held.size());
        for (const std::vector<uint8_t>& value : HostileValues(held, field.numberWidth)) {
            Image().Write(field.offset, value.data(), value.size());
            ASSERT_EQ(All(), before) << field.name;
            ++read;
        }
        Image().Write(field.offset, held.data(), held.size());
    }
    EXPECT_GT(read, 100u);
    EXPECT_EQ(tried.size(),
              std::size(unread) - (GetParam() == 1 ? 0u : 3u)); // three are the extended layout's
}

TEST_P(Expectations, DiskCutOffInItsHeadOpensNothing) {
    Image().Truncate(199);
    PartAccess_t access = Image().Access();
    CSearchPart searching;
    EXPECT_EQ(searching.Init(&access), -1);
    CReadPart reading;
    EXPECT_EQ(reading.Init(&access), -1);
    EXPECT_EQ(Records(), Lines());
    EXPECT_EQ(UnitFrames(kMiddle), "0, then -1");
}

TEST_P(Expectations, DiskCutOffInItsTablesHoldsNothing) {
    for (const uint64_t size : {uint64_t{Image().Head().BBCounterOffs} + MatrixDisk::kBlocks - 1,
                                uint64_t{Image().Head().BBTabOffs}, uint64_t{200}}) {
        Image().Truncate(size);
        EXPECT_EQ(Records(), Lines());
        EXPECT_EQ(UnitFrames(kMiddle), "0, then -1");
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, Expectations, ::testing::Values(0u, 1u));

class CutRing : public SearchFixture {};

TEST_F(CutRing, BlocksInFrontOfACutAreFoundAsEver) {
    MakeDisk(8);
    WriteRing({1, 2, 3, 4, 0, 0, 0, 0});
    // From the end of block 2's head down to its first byte: that block and all after it are gone.
    for (const uint64_t inside : {sizeof(BlockHead_t) - 1, size_t{1}, size_t{0}}) {
        Disk().Truncate(Disk().BlockStart(2) + inside);
        OpenPart part(Disk());
        SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
        RecordList records;
        Quietly([&] { EXPECT_EQ(part->SearchMedia(&everything, 0, &records), 2); });
        EXPECT_EQ(Describe(records), (Lines{"0/0/0 1000-1900 size 9000 alarm 0 flag 0",
                                            "1/0/0 2000-2900 size 9000 alarm 0 flag 0"}));
    }
}

} // namespace
