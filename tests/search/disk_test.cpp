#include <algorithm>
#include <cstring>
#include <random>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

class Disk : public SearchFixture {
protected:
    /// An initialised facade on the test's disk.
    void Open() {
        PartAccess_t access = SearchFixture::Disk().Access();
        EXPECT_EQ(m_disk.Init(&access), 0);
    }

    Lines Media(uint64_t mask, uint32_t start, uint32_t end, uint32_t chn = kAll) {
        SearchParam_t param = {mask, start, end, chn};
        const SearchParam_t before = param;
        RecordList records;
        Quietly([&] { EXPECT_EQ(m_disk.SearchMedia(&param, &records), records.m_nCount); });
        EXPECT_EQ(std::memcmp(&param, &before, sizeof param), 0); // the request is unchanged
        return Describe(records);
    }

    /// Block n (number n + 1, from (n + 1) * 1000 for 900 s, channel 0) with these events; alarms record from
    /// 10 s before to 30 s after.
    void WriteAlarmBlock(uint32_t block, const std::vector<std::pair<uint32_t, uint64_t>>& events) {
        const uint32_t start = (block + 1) * 1000;
        auto contents =
            BlockContents::Closed(block + 1, start, start + 900).Segment(0, start, start + 900, 9000);
        contents.head.pre_RecTime = 10;
        contents.head.AlmDelayTime = 30;
        for (const auto& [time, type] : events) {
            contents.Event(Pts(time), type);
        }
        SearchFixture::Disk().WriteBlock(block, contents);
    }

    /// Block 0 with 28 segments of channel 0, 10 s every 20 s from 1000 on, and an event; its alarm records from 10 s
    /// before.
    void WriteManySegments(uint32_t event, uint32_t alarmDelay) {
        auto contents = BlockContents::Closed(1, 1000, 1550).Event(Pts(event), 0x1);
        for (uint32_t start = 1000; start < 1560; start += 20) {
            contents.Segment(0, start, start + 10, 100);
        }
        contents.head.pre_RecTime = 10;
        contents.head.AlmDelayTime = alarmDelay;
        SearchFixture::Disk().WriteBlock(0, contents);
    }

    static Format Forged(uint32_t blockCount, uint32_t blockSize) {
        Format format;
        format.blockCount = blockCount;
        format.blockSize = blockSize;
        return format;
    }

    CSearchDisk m_disk;
};

TEST_F(Disk, EverythingFailsUntilInitialised) {
    SearchParam_t param = {0, 0, 100, kAll};
    RecordList records;
    EventList events;
    UnitList units;
    DayList days;
    DiskSpaceInfo_t info = {};
    unsigned int mode = 0;
    unsigned char password[] = "x";
    const auto expectClosed = [&] {
        EXPECT_EQ(m_disk.SearchMedia(&param, &records), -1);
        EXPECT_EQ(m_disk.SearchUnitMedia(0, &records, &events), -1);
        EXPECT_EQ(m_disk.SearchEvent(&param, &events), -1);
        EXPECT_EQ(m_disk.GetDateInfo(&days), -1);
        EXPECT_EQ(m_disk.GetUnitInfo(&units), -1);
        EXPECT_EQ(m_disk.GetInvalidUnit(&units), -1);
        EXPECT_EQ(m_disk.GetSpaceInfo(&info), -1);
        EXPECT_EQ(m_disk.GetEncryptInfo(&mode), -1);
        EXPECT_EQ(m_disk.CheckEncryptInfo(password), -1);
        EXPECT_EQ(m_disk.GetLastRecBlockId(), -1);
        EXPECT_EQ(m_disk.GetBlockRecMap(0, 1), -1);
        EXPECT_EQ(m_disk.Quit(), -1);
    };
    expectClosed();
    MakeDisk();
    Open();
    EXPECT_EQ(m_disk.Quit(), 0);
    expectClosed();
    Open(); // and again
    EXPECT_EQ(m_disk.GetBlockRecMap(0, 1), 8);
}

TEST_F(Disk, SecondInitIsRefusedAndChangesNothing) {
    MakeDisk();
    Open();
    PartAccess_t other = {};
    std::strcpy(other.PartName, "/nonexistent");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(m_disk.Init(&other), -1); }), "");
    EXPECT_EQ(m_disk.GetBlockRecMap(0, 1), 8);
}

TEST_F(Disk, NullDescriptorIsRefused) {
    EXPECT_EQ(m_disk.Init(nullptr), -1);
    EXPECT_EQ(m_disk.GetLastRecBlockId(), -1);
}

TEST_F(Disk, DescriptorIsCopied) {
    MakeDisk();
    PartAccess_t access = SearchFixture::Disk().Access();
    EXPECT_EQ(m_disk.Init(&access), 0);
    std::memset(&access, 0xEE, sizeof access);
    EXPECT_EQ(m_disk.GetBlockRecMap(0, 1), 8);
}

TEST_F(Disk, PartitionThatDoesNotOpenFindsNothing) {
    PartAccess_t access = {};
    std::strcpy(access.PartName, "/nonexistent/partition");
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(m_disk.Init(&access), 0); }), "dev_open : #, Failed\n");
    SearchParam_t param = {0, 0, 100, kAll};
    RecordList records;
    EventList events;
    UnitList units;
    DayList days;
    DiskSpaceInfo_t info = {};
    unsigned int mode = 7;
    unsigned char password[] = "x";
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(m_disk.SearchMedia(&param, &records), 0);
                  param.alarmMask = 1;
                  EXPECT_EQ(m_disk.SearchMedia(&param, &records), 0);
                  EXPECT_EQ(m_disk.SearchUnitMedia(0, &records, &events), 0);
                  EXPECT_EQ(m_disk.SearchEvent(&param, &events), 0);
                  EXPECT_EQ(m_disk.GetDateInfo(&days), 0);
                  EXPECT_EQ(m_disk.GetUnitInfo(&units), 0);
                  EXPECT_EQ(m_disk.GetInvalidUnit(&units), 0);
                  EXPECT_EQ(m_disk.GetSpaceInfo(&info), -1);
                  EXPECT_EQ(m_disk.GetEncryptInfo(&mode), -1);
                  EXPECT_EQ(m_disk.CheckEncryptInfo(password), -1);
                  EXPECT_EQ(m_disk.GetLastRecBlockId(), 0);
                  EXPECT_EQ(m_disk.GetBlockRecMap(0, 0), -1);
              }),
              "");
    EXPECT_EQ(m_disk.Quit(), 0);
}

TEST_F(Disk, WrongMagicFindsNothingWithoutAMessage) {
    MakeDisk().EditHead([](PartHead_t& head) { head.FormatFlag = 0; });
    EXPECT_EQ(Printed([&] { Open(); }), "");
    EXPECT_EQ(Media(0, 0, 100), Lines{});
}

TEST_F(Disk, DestructorReleasesEverything) {
    MakeDisk();
    PartAccess_t access = SearchFixture::Disk().Access();
    const SystemCallLog log;
    {
        CSearchDisk disk;
        EXPECT_EQ(disk.Init(&access), 0);
    }
    EXPECT_EQ(log.Count(CallKind::Close), 1u);
}

TEST_F(Disk, HandsRequestsOn) {
    MakeDisk();
    WriteRing({1, 2, 3, 4, 5});
    SearchFixture::Disk().SetBad(6);
    Open();
    EXPECT_EQ(Media(0, 2500, 3500), (Lines{"1/0/0 2500-2900 size 4000 alarm 0 flag 0",
                                           "2/0/0 3000-3500 size 5000 alarm 0 flag 0"}));
    DayList days;
    UnitList units;
    UnitList bad;
    DiskSpaceInfo_t info = {};
    unsigned int mode = 7;
    Quietly([&] {
        EXPECT_EQ(m_disk.GetDateInfo(&days), 1);
        EXPECT_EQ(m_disk.GetUnitInfo(&units), 5);
        EXPECT_EQ(m_disk.GetInvalidUnit(&bad), 1);
        EXPECT_EQ(m_disk.GetSpaceInfo(&info), 0);
        EXPECT_EQ(m_disk.GetEncryptInfo(&mode), 0);
        EXPECT_EQ(m_disk.GetLastRecBlockId(), 4);
        EXPECT_EQ(m_disk.GetBlockRecMap(4, 0), 1);
        EXPECT_EQ(m_disk.GetBlockRecMap(4, 1), 8);
        EXPECT_EQ(m_disk.GetBlockRecMap(4, 5), 0);
    });
    EXPECT_EQ(Elements(days), std::vector<unsigned int>{1});
    EXPECT_EQ(units.m_nCount, 5);
    EXPECT_EQ(Describe(bad), Lines{"6 0"});
    EXPECT_EQ(info.freeSize, 0x30000u);
    EXPECT_EQ(mode, 0u);
}

TEST_F(Disk, FailuresFurtherDownAreNothingFound) {
    MakeDisk();
    Open();
    RecordList records;
    EventList events;
    Quietly([&] {
        EXPECT_EQ(m_disk.SearchUnitMedia(65535, &records, &events), 0);
        EXPECT_EQ(m_disk.GetBlockRecMap(65535, 0), -1); // but this result is as returned
    });
}

TEST_F(Disk, GeometryThatHoldsNoBlockHasNothingInIt) {
    Format format;
    format.fmtVersion = 1;
    MakeDisk(format);
    auto contents = BlockContents::Closed(1, 1000, 1900).Segment(0, 1000, 1900, 9000).Event(Pts(1500), 1);
    contents.head.pre_RecTime = 15;
    contents.head.AlmDelayTime = 45;
    contents.extHead.ExtParaValid = 1;
    contents.extHead.ExtPara = 0x0F;
    SearchFixture::Disk().WriteBlock(0, contents);
    // No blocks, though one lies there; and blocks one byte smaller than a head, 2048, and an index area, 4096.
    for (const Format& forged : {Forged(0, 0x10000), Forged(8, 2048 + 4096 - 1), Forged(8, 0)}) {
        const uint32_t count = forged.blockCount;
        SearchFixture::Disk().EditHead([&forged](PartHead_t& head) {
            head.BlkCount = forged.blockCount;
            head.BlkSize = forged.blockSize;
        });
        Open();
        OpenPart part(SearchFixture::Disk());
        RecordList records;
        EventList events;
        DayList days;
        unsigned int pre = 99;
        unsigned int delay = 99;
        unsigned int channels = 99;
        const SystemCallLog log;
        EXPECT_EQ(Printed([&] {
                      EXPECT_EQ(m_disk.SearchUnitMedia(0, &records, &events), 0);
                      EXPECT_EQ(m_disk.MixSearchUnit(0, &records, &events), 0);
                      EXPECT_EQ(part->SearchUnitMedia(0, 0, &records, &events), -1);
                      EXPECT_EQ(m_disk.GetBlockRecMap(0, 0), -1);
                      EXPECT_EQ(m_disk.GetBlockRecMap(0, 1), static_cast<int>(count)); // the head's word
                      EXPECT_EQ(m_disk.GetBlockRecMap(0, 2), 0);
                      EXPECT_EQ(part->GetEventPara(0, &pre, &delay), 0);
                      EXPECT_EQ(part->GetRecordExtPara(0, &channels), 0);
                  }),
                  "");
        EXPECT_EQ(log.Calls().size(), 0u);
        Quietly([&] { EXPECT_EQ(m_disk.GetDateInfo(&days), 0); });
        EXPECT_EQ(records.m_nCount, 0);
        EXPECT_EQ(events.m_nCount, 0);
        EXPECT_EQ(pre, 0u);
        EXPECT_EQ(delay, 0u);
        EXPECT_EQ(channels, 0xFFFFFFFFu);
        m_disk.Quit();
    }
}

TEST_F(Disk, NoValidBlockGivesZeroAsTheLast) {
    MakeDisk(2);
    for (const uint32_t block : {0u, 1u}) {
        SearchFixture::Disk().SetBad(block);
    }
    Open();
    EXPECT_EQ(m_disk.GetLastRecBlockId(), 0);
}

// ---- the access lock

TEST_F(Disk, WrongPasswordHidesTheLockedChannels) {
    MakeDisk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 0x2;
        std::strcpy(head.CipherCode, "right");
    });
    SearchFixture::Disk().WriteBlock(
        0, BlockContents::Closed(1, 1000, 1900).Segment(0, 1000, 1900, 900).Segment(1, 1000, 1900, 900));
    Open();
    unsigned char wrong[] = "wrong";
    unsigned char right[] = "right";
    const Lines both = {"0/0/0 1000-1900 size 900 alarm 0 flag 0", "0/1/0 1000-1900 size 900 alarm 0 flag 0"};
    EXPECT_EQ(Media(0, 0, 5000), both); // nothing hidden before the check
    EXPECT_EQ(m_disk.CheckEncryptInfo(wrong), -1);
    EXPECT_EQ(Media(0, 0, 5000), Lines{both[0]});
    RecordList records;
    EXPECT_EQ(m_disk.SearchUnitMedia(0, &records, nullptr), 1);
    EXPECT_EQ(m_disk.CheckEncryptInfo(right), 0);
    EXPECT_EQ(Media(0, 0, 5000), both);
    EXPECT_EQ(m_disk.CheckEncryptInfo(wrong), -1);
    EXPECT_EQ(m_disk.CheckEncryptInfo(nullptr), -1);
    EXPECT_EQ(Media(0, 0, 5000), Lines{both[0]});
}

// ---- records around alarms

TEST_F(Disk, WindowOfManyRecordsGivesThemInTheirOrder) {
    MakeDisk();
    // 28 records of 10 s, one every 20 s.
    WriteManySegments(1010, 700); // from 1000 to 1710
    WriteAlarmBlock(1, {{2500, 0x1}});
    Open();
    Lines expected;
    for (uint32_t i = 0; i < 28; ++i) {
        const uint32_t start = 1000 + 20 * i;
        expected.push_back("0/0/" + std::to_string(i) + ' ' + std::to_string(start) + '-' +
                           std::to_string(start + 10) + " size 100 alarm 1 flag 0");
    }
    expected.emplace_back("1/0/0 2490-2530 size 9000 alarm 1 flag 0");
    EXPECT_EQ(Media(0x1, 0, 9000), expected);
}

TEST_F(Disk, WindowNearTheEndOfManyRecordsFindsThem) {
    MakeDisk();
    WriteManySegments(1450, 30); // from 1440 to 1480
    WriteAlarmBlock(1, {{2500, 0x1}});
    Open();
    EXPECT_EQ(Media(0x1, 0, 9000),
              (Lines{"0/0/22 1440-1450 size 100 alarm 1 flag 0", "0/0/23 1460-1470 size 100 alarm 1 flag 0",
                     "1/0/0 2490-2530 size 9000 alarm 1 flag 0"}));
}

TEST_F(Disk, TwoEventsCloseTogetherMakeOneWindow) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}, {1220, 0x1}});
    WriteAlarmBlock(1, {});
    Open();
    EXPECT_EQ(Media(0x1, 0, 9000), Lines{"0/0/0 1190-1250 size 9000 alarm 1 flag 0"});
}

TEST_F(Disk, EventsFarApartMakeTwoWindows) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}, {1241, 0x1}});
    WriteAlarmBlock(1, {});
    Open();
    // 1231 is after 1230.
    EXPECT_EQ(Media(0x1, 0, 9000), (Lines{"0/0/0 1190-1230 size 9000 alarm 1 flag 0",
                                          "0/0/0 1231-1271 size 9000 alarm 1 flag 0"}));
}

TEST_F(Disk, WindowsThatTouchAreJoined) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}, {1240, 0x1}});
    WriteAlarmBlock(1, {});
    Open();
    EXPECT_EQ(Media(0x1, 0, 9000), Lines{"0/0/0 1190-1270 size 9000 alarm 1 flag 0"});
}

TEST_F(Disk, EventsAtTheSameTimeAreJoined) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}, {1200, 0x2}});
    WriteAlarmBlock(1, {});
    Open();
    EXPECT_EQ(Media(0x3, 0, 9000), Lines{"0/0/0 1190-1230 size 9000 alarm 3 flag 0"});
}

TEST_F(Disk, JoiningReplacesTheEndEvenByAnEarlierOne) {
    MakeDisk();
    WriteAlarmBlock(0, {{1895, 0x1}});
    WriteAlarmBlock(1, {{2010, 0x1}});
    const auto delay = [&](uint32_t block, uint32_t seconds) {
        SearchFixture::Disk().Change<BlockHead_t>(SearchFixture::Disk().HeadOffset(block),
                                                  [=](auto& head) { head.AlmDelayTime = seconds; });
    };
    delay(0, 200);
    delay(1, 5);
    Open();
    // The first window is 1885 to 2095; the second event, from 2000, ends it at 2015.
    EXPECT_EQ(Media(0x1, 0, 9000), (Lines{"0/0/0 1885-1900 size 9000 alarm 1 flag 0",
                                          "1/0/0 2000-2015 size 9000 alarm 1 flag 0"}));
}

TEST_F(Disk, EventsOutOfOrderAreNotJoined) {
    MakeDisk();
    WriteAlarmBlock(0, {{1220, 0x1}, {1205, 0x1}}); // out of order: the window shrinks
    WriteAlarmBlock(1, {});
    Open();
    // 1195 lies before 1210: no join, a window of its own.
    EXPECT_EQ(Media(0x1, 0, 9000), (Lines{"0/0/0 1210-1250 size 9000 alarm 1 flag 0",
                                          "0/0/0 1195-1235 size 9000 alarm 1 flag 0"}));
}

TEST_F(Disk, RequestsMaskIsTheAlarmTypeAndSelectsTheEvents) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}, {1500, 0x2}, {1700, 0x4}});
    WriteAlarmBlock(1, {});
    Open();
    EXPECT_EQ(Media(0x6, 0, 9000), (Lines{"0/0/0 1490-1530 size 9000 alarm 6 flag 0",
                                          "0/0/0 1690-1730 size 9000 alarm 6 flag 0"}));
    EXPECT_EQ(Media(0x8, 0, 9000), Lines{}); // records, but no such event
}

TEST_F(Disk, WithoutSuchAnEventABlockWithoutIndexGivesNothingEither) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}});
    SearchFixture::Disk().WriteBlock(1, BlockContents::Open(2, 2000).Channels(0x1));
    Open();
    EXPECT_EQ(Media(0, 1500, 9000).size(), 2u); // of both blocks, without a mask
    EXPECT_EQ(Media(0x8, 0, 9000), Lines{});
}

TEST_F(Disk, WindowTimesComeFromTheEventsBlock) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}});
    WriteAlarmBlock(1, {{2200, 0x1}});
    SearchFixture::Disk().Change<BlockHead_t>(SearchFixture::Disk().HeadOffset(1), [](auto& head) {
        head.pre_RecTime = 100;
        head.AlmDelayTime = 5;
    });
    WriteAlarmBlock(2, {});
    Open();
    EXPECT_EQ(Media(0x1, 0, 9000), (Lines{"0/0/0 1190-1230 size 9000 alarm 1 flag 0",
                                          "1/0/0 2100-2205 size 9000 alarm 1 flag 0"}));
}

TEST_F(Disk, WindowMeetsTheRecordsOfSeveralBlocks) {
    MakeDisk();
    WriteAlarmBlock(0, {{1895, 0x1}});
    WriteAlarmBlock(1, {});
    SearchFixture::Disk().Change<BlockHead_t>(SearchFixture::Disk().HeadOffset(0),
                                              [](auto& head) { head.AlmDelayTime = 200; });
    Open();
    // 1885 to 2095: the end of one record, the beginning of the next.
    EXPECT_EQ(Media(0x1, 0, 9000), (Lines{"0/0/0 1885-1900 size 9000 alarm 1 flag 0",
                                          "1/0/0 2000-2095 size 9000 alarm 1 flag 0"}));
}

TEST_F(Disk, ManyWindowsMeetManyRecordsInTheirOrder) {
    // Records that overlap each other and lie in no order, so that a window meets some here and some there.
    std::mt19937 random(5);
    const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    MakeDisk(16);
    for (uint32_t block = 0; block < 16; ++block) {
        const uint32_t start = 1000 + block * 1000;
        BlockContents contents = BlockContents::Closed(block + 1, start, start + 999);
        contents.head.pre_RecTime = 10;
        contents.head.AlmDelayTime = 30;
        for (uint32_t i = 0; i < 40; ++i) {
            const uint32_t begin = start + below(900);
            contents.Segment(below(4), begin, begin + 1 + below(i % 8 == 0 ? 3000 : 60), 9000);
        }
        for (uint32_t time = start + 50; time < start + 950; time += 41 + below(200)) {
            contents.Event(Pts(time), 1); // each has a window of its own
        }
        SearchFixture::Disk().WriteBlock(block, contents);
    }
    Open();
    SearchParam_t plain = {0, 0, 20000, kAll};
    SearchParam_t alarms = {1, 0, 20000, kAll};
    RecordList records;
    EventList events;
    Quietly([&] {
        EXPECT_GT(m_disk.SearchMedia(&plain, &records), 500);
        EXPECT_GT(m_disk.SearchEvent(&alarms, &events), 80);
    });
    RecordList expected;
    for (const EventItem_t& event : Elements(events)) {
        for (RecordItem_t record : Elements(records)) {
            record.startTime = std::max(record.startTime, event.time - 10);
            record.endTime = std::min(record.endTime, event.time + 30);
            record.alarmType = 1;
            if (record.startTime < record.endTime && record.startTime + 1 < record.endTime) {
                expected.AddTail(record);
            }
        }
    }
    EXPECT_GT(expected.m_nCount, 500);
    EXPECT_EQ(Media(1, 0, 20000), Describe(expected));
}

TEST_F(Disk, PieceMustBeLongerThanOneSecond) {
    MakeDisk();
    WriteAlarmBlock(0, {{1500, 0x1}});
    WriteAlarmBlock(1, {});
    const auto piece = [&](uint32_t pre, uint32_t post) {
        SearchFixture::Disk().Change<BlockHead_t>(SearchFixture::Disk().HeadOffset(0), [=](auto& head) {
            head.pre_RecTime = pre;
            head.AlmDelayTime = post;
        });
        return Media(0x1, 0, 9000);
    };
    Open();
    EXPECT_EQ(piece(0, 0), Lines{});
    EXPECT_EQ(piece(0, 1), Lines{});
    EXPECT_EQ(piece(0, 2), Lines{"0/0/0 1500-1502 size 9000 alarm 1 flag 0"});
}

TEST_F(Disk, WindowTimesWrapInThirtyTwoBits) {
    MakeDisk();
    WriteAlarmBlock(0, {{1500, 0x1}});
    WriteAlarmBlock(1, {});
    SearchFixture::Disk().Change<BlockHead_t>(SearchFixture::Disk().HeadOffset(0),
                                              [](auto& head) { head.pre_RecTime = 1501; });
    Open();
    // The window begins at 0xFFFFFFFF, after every record.
    EXPECT_EQ(Media(0x1, 0, 9000), Lines{});
}

TEST_F(Disk, WindowThatBeginsAtZeroCountsAsNoneYet) {
    MakeDisk();
    WriteAlarmBlock(0, {{1500, 0x1}, {1600, 0x1}});
    WriteAlarmBlock(1, {{2500, 0x1}});
    SearchFixture::Disk().Change<BlockHead_t>(SearchFixture::Disk().HeadOffset(0),
                                              [](auto& head) { head.pre_RecTime = 1500; });
    Open();
    // The first window, 0 to 1530, is replaced, not emitted; the second is 100 to 1630.
    EXPECT_EQ(Media(0x1, 0, 9000), (Lines{"0/0/0 1000-1630 size 9000 alarm 1 flag 0",
                                          "1/0/0 2490-2530 size 9000 alarm 1 flag 0"}));
}

TEST_F(Disk, LastWindowCountsEvenIfItBeginsAtZero) {
    MakeDisk();
    WriteAlarmBlock(0, {{1500, 0x1}});
    WriteAlarmBlock(1, {});
    SearchFixture::Disk().Change<BlockHead_t>(SearchFixture::Disk().HeadOffset(0),
                                              [](auto& head) { head.pre_RecTime = 1500; });
    Open();
    EXPECT_EQ(Media(0x1, 0, 9000), Lines{"0/0/0 1000-1530 size 9000 alarm 1 flag 0"});
}

TEST_F(Disk, CoarseRecordsComeOnceMoreInTheEnd) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}, {1895, 0x1}});
    SearchFixture::Disk().WriteBlock(1, BlockContents::Open(2, 1910).Channels(0x3));
    Open();
    // First window: 1190-1230. Last window: 1885-1925, which the coarse records overlap: cut, and again as
    // cut.
    EXPECT_EQ(
        Media(0x1, 0, 9000),
        (Lines{"0/0/0 1190-1230 size 9000 alarm 1 flag 0", "0/0/0 1885-1900 size 9000 alarm 1 flag 0",
               "1/0/0 1910-1925 size 62914560 alarm 1 flag 1", "1/0/0 1910-1925 size 62914560 alarm 1 flag 1",
               "1/1/0 1910-1925 size 62914560 alarm 1 flag 1",
               "1/1/0 1910-1925 size 62914560 alarm 1 flag 1"}));
}

TEST_F(Disk, CoarseRecordsThatMeetNoWindowComeOnceAsTheyAre) {
    MakeDisk();
    WriteAlarmBlock(0, {{1200, 0x1}, {1500, 0x1}});
    SearchFixture::Disk().WriteBlock(1, BlockContents::Open(2, 2000).Channels(0x1));
    Open();
    EXPECT_EQ(Media(0x1, 0, 9000),
              (Lines{"0/0/0 1190-1230 size 9000 alarm 1 flag 0", "0/0/0 1490-1530 size 9000 alarm 1 flag 0",
                     "1/0/0 2000-45200 size 62914560 alarm 0 flag 1"}));
}

TEST_F(Disk, CoarseRecordCutToOneSecondIsNotAppendedAtAll) {
    MakeDisk();
    WriteAlarmBlock(0, {{1895, 0x1}});
    SearchFixture::Disk().WriteBlock(1, BlockContents::Open(2, 1924).Channels(0x1)); // window ends at 1925
    Open();
    EXPECT_EQ(Media(0x1, 0, 9000), Lines{"0/0/0 1885-1900 size 9000 alarm 1 flag 0"});
}

TEST_F(Disk, AlarmSearchWithoutRecordsDoesNotLookForEvents) {
    MakeDisk();
    WriteAlarmBlock(0, {{1500, 0x1}});
    Open();
    SearchParam_t param = {0x1, 1950, 1960, kAll};
    RecordList records;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(m_disk.SearchMedia(&param, &records), 0); }),
              "GetLastBlock LastBlockNum = 0, RecordNum = 1\n"
              "InitSearch Blk(0~0), Ret = 0, (1950~1960)\n"
              "GetSearchStartBlock StartSearchBlock = 0\n"
              "SearchNormalMedia , BlockCount = 1\n");
}

TEST_F(Disk, AlarmSearchRespectsChannelAndLock) {
    MakeDisk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 0x1;
    });
    SearchFixture::Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1900)
                                            .Segment(0, 1000, 1900, 900)
                                            .Segment(1, 1000, 1900, 900)
                                            .Event(Pts(1500), 1));
    SearchFixture::Disk().Change<BlockHead_t>(SearchFixture::Disk().HeadOffset(0),
                                              [](auto& head) { head.AlmDelayTime = 30; });
    WriteAlarmBlock(1, {});
    Open();
    EXPECT_EQ(Media(1, 0, 1950, 0), Lines{"0/0/0 1500-1530 size 900 alarm 1 flag 0"});
    unsigned char wrong[] = "wrong";
    EXPECT_EQ(m_disk.CheckEncryptInfo(wrong), -1);
    EXPECT_EQ(Media(1, 0, 1950), Lines{"0/1/0 1500-1530 size 900 alarm 1 flag 0"});
    EXPECT_EQ(Media(1, 0, 1950, 0), Lines{});
}

TEST_F(Disk, NullRequestIsRefused) {
    MakeDisk();
    Open();
    RecordList records;
    EXPECT_EQ(m_disk.SearchMedia(nullptr, &records), -1);
}

// ---- intervals

TEST(IntervalIntersectionTest, Cases) {
    struct Case {
        unsigned int a0, a1, b0, b1;
        int result;
        unsigned int o0, o1;
    };
    const Case cases[] = {
        {100, 200, 150, 300, 0, 150, 200},
        {150, 300, 100, 200, 0, 150, 200},
        {100, 300, 150, 200, 0, 150, 200},
        {150, 200, 100, 300, 0, 150, 200},
        {100, 200, 200, 300, 0, 200, 200},
        {200, 300, 100, 200, 0, 200, 200},
        {100, 200, 100, 200, 0, 100, 200},
        {201, 300, 100, 200, -1, 7, 8},
        {100, 199, 200, 300, 1, 7, 8},
        {0x80000000, 0xFFFFFFFF, 0, 0x7FFFFFFF, -1, 7, 8},
        {0, 0xFFFFFFFF, 0x7FFFFFFF, 0x80000000, 0, 0x7FFFFFFF, 0x80000000},
    };
    for (const Case& c : cases) {
        unsigned int o0 = 7;
        unsigned int o1 = 8;
        EXPECT_EQ(IntervalIntersection(c.a0, c.a1, c.b0, c.b1, &o0, &o1), c.result);
        EXPECT_EQ(o0, c.o0);
        EXPECT_EQ(o1, c.o1);
    }
}

} // namespace
