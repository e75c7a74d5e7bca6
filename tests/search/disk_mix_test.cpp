#include <map>
#include <random>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

RecordItem_t Record(uint32_t block, uint32_t chn, uint32_t start, uint32_t end, uint32_t segment = 0) {
    RecordItem_t record = {};
    record.alarmType = 0x80; // as a search might have left it
    record.recId = block << 16 | chn << 9 | segment;
    record.chn = chn;
    record.startTime = start;
    record.endTime = end;
    record.size = 1000;
    return record;
}

EventItem_t Event(uint32_t block, uint32_t time, uint64_t type) {
    return {type, block << 16, time};
}

/// A disk whose blocks record 10 seconds before an alarm and 30 after it, and show all channels.
class Mix : public SearchFixture {
protected:
    void MakeMixDisk(uint32_t fmtVersion = 0) {
        Format format;
        format.fmtVersion = fmtVersion;
        MakeDisk(format);
        for (uint32_t block = 0; block < 8; ++block) {
            auto contents = BlockContents::Closed(block + 1, 100, 200);
            contents.head.pre_RecTime = 10;
            contents.head.AlmDelayTime = 30;
            Disk().WriteBlock(block, contents);
        }
        Open();
    }

    void Open() {
        PartAccess_t access = Disk().Access();
        m_disk.Init(&access);
    }

    /// Cuts records by events, and gives the pieces as "block/channel/segment start-end type".
    Lines Cut(const std::vector<RecordItem_t>& records, const std::vector<EventItem_t>& events,
              uint64_t mask = 0) {
        RecordList recs;
        EventList evs;
        for (const RecordItem_t& record : records) {
            recs.AddTail(record);
        }
        for (const EventItem_t& event : events) {
            evs.AddTail(event);
        }
        SearchParam_t param = {mask, 0, 0, 0};
        RecordList out;
        EXPECT_EQ(m_disk.MixBuildList(&recs, &evs, &param, &out), out.m_nCount);
        EXPECT_EQ(recs.m_nCount, 0);
        EXPECT_EQ(evs.m_nCount, 0);
        return Pieces(out);
    }

    static Lines Pieces(const RecordList& records) {
        Lines lines;
        for (const RecordItem_t& record : Elements(records)) {
            EXPECT_EQ(record.size, 1000u);
            const std::string line = Describe(record);
            lines.push_back(line.substr(0, line.find(" size")) + " " + std::to_string(record.alarmType));
        }
        return lines;
    }

    CSearchDisk m_disk;
};

// ---- cutting

TEST_F(Mix, RecordIsCutWhereAlarmsBeginAndEnd) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 100, 200)}, {Event(1, 150, 4)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-180 4", "1/0/0 180-200 0"}));
}

TEST_F(Mix, MaskKeepsThePiecesOfItsAlarms) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 100, 200)}, {Event(1, 150, 4)}, 6), Lines{"1/0/0 140-180 4"});
    EXPECT_EQ(Cut({Record(1, 0, 100, 200)}, {Event(1, 150, 4)}, 3), Lines{});
    EXPECT_EQ(Cut({Record(1, 0, 100, 200)}, {}, 4), Lines{});
}

TEST_F(Mix, EventsWhosePeriodsRunIntoEachOtherAreOne) {
    MakeMixDisk();
    // 170 - 10 lies in 140-180.
    EXPECT_EQ(Cut({Record(1, 0, 100, 300)}, {Event(1, 150, 1), Event(1, 170, 2)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-200 3", "1/0/0 200-300 0"}));
    // 190 - 10 is the last second of 140-180, 191 - 10 lies after it.
    EXPECT_EQ(Cut({Record(1, 0, 100, 300)}, {Event(1, 150, 1), Event(1, 190, 2)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-220 3", "1/0/0 220-300 0"}));
    EXPECT_EQ(Cut({Record(1, 0, 100, 300)}, {Event(1, 150, 1), Event(1, 191, 2)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-180 1", "1/0/0 180-181 0", "1/0/0 181-221 2",
                     "1/0/0 221-300 0"}));
    EXPECT_EQ(Cut({Record(1, 0, 100, 300)}, {Event(1, 150, 1), Event(1, 200, 2)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-180 1", "1/0/0 180-190 0", "1/0/0 190-230 2",
                     "1/0/0 230-300 0"}));
}

TEST_F(Mix, PeriodTakesTheTimesOfEachEventsBlock) {
    MakeMixDisk();
    Disk().Change<BlockHead_t>(Disk().HeadOffset(2), [](BlockHead_t& head) {
        head.pre_RecTime = 5;
        head.AlmDelayTime = 2;
    });
    // 160 - 5 lies in 140-180; the end becomes 160 + 2, though that is earlier.
    EXPECT_EQ(Cut({Record(1, 0, 100, 300)}, {Event(1, 150, 1), Event(2, 160, 2)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-162 3", "1/0/0 162-300 0"}));
}

TEST_F(Mix, PeriodsBeforeAndBehindARecordLeaveItPlain) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 1000, 1100)}, {Event(1, 150, 1), Event(1, 500, 2), Event(1, 2000, 4)}),
              Lines{"1/0/0 1000-1100 0"});
}

TEST_F(Mix, PeriodGoesOnIntoTheNextRecord) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 100, 150), Record(2, 0, 150, 200)}, {Event(1, 145, 1)}),
              (Lines{"1/0/0 100-135 0", "1/0/0 135-150 1", "2/0/0 150-175 1", "2/0/0 175-200 0"}));
}

TEST_F(Mix, OnePeriodMayCutSeveralRecordsAndOneRecordMayMeetSeveralPeriods) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 100, 400)}, {Event(1, 150, 1), Event(1, 250, 2), Event(1, 350, 4)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-180 1", "1/0/0 180-240 0", "1/0/0 240-280 2",
                     "1/0/0 280-340 0", "1/0/0 340-380 4", "1/0/0 380-400 0"}));
}

TEST_F(Mix, TouchingPeriods) {
    MakeMixDisk();
    // The period 140-180 begins where the record ends: nothing of it lies inside.
    EXPECT_EQ(Cut({Record(1, 0, 100, 140)}, {Event(1, 150, 1)}), Lines{"1/0/0 100-140 0"});
    // It ends where the record begins: a piece without length, then the rest.
    EXPECT_EQ(Cut({Record(1, 0, 180, 300)}, {Event(1, 150, 1)}),
              (Lines{"1/0/0 180-180 1", "1/0/0 180-300 0"}));
    // It ends where the record ends: nothing is left to come.
    EXPECT_EQ(Cut({Record(1, 0, 150, 180)}, {Event(1, 150, 1)}), Lines{"1/0/0 150-180 1"});
}

TEST_F(Mix, ShortRecordsAreLeftOut) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 100, 101), Record(2, 0, 100, 100), Record(3, 0, 100, 102)}, {}),
              Lines{"3/0/0 100-102 0"});
    // Before a period the whole record counts, not the piece; inside it what is left.
    EXPECT_EQ(Cut({Record(1, 0, 139, 141)}, {Event(1, 150, 1)}), Lines{"1/0/0 139-140 0"});
    EXPECT_EQ(Cut({Record(1, 0, 140, 142)}, {Event(1, 150, 1)}), Lines{"1/0/0 140-142 1"});
    EXPECT_EQ(Cut({Record(1, 0, 179, 181)}, {Event(1, 150, 1)}), Lines{"1/0/0 179-180 1"});
}

TEST_F(Mix, SecondLeftBetweenTwoPeriodsIsLeftOut) {
    MakeMixDisk();
    // Of 180-181 nothing is shown, though the period 181-221 begins where it ends.
    EXPECT_EQ(Cut({Record(1, 0, 100, 181)}, {Event(1, 150, 1), Event(1, 191, 2)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-180 1"}));
}

TEST_F(Mix, PeriodThatEndsWithARecordDoesNotCutTheNextOne) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 100, 180), Record(2, 0, 150, 300)}, {Event(1, 150, 1)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-180 1", "2/0/0 150-300 0"}));
    // One second more, and it is still the period that the next record is cut by.
    EXPECT_EQ(Cut({Record(1, 0, 100, 179), Record(2, 0, 150, 300)}, {Event(1, 150, 1)}),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-179 1", "2/0/0 150-180 1", "2/0/0 180-300 0"}));
}

TEST_F(Mix, ChannelThatEndsInsideAPeriodLeavesTheOthersTheirRest) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 100, 300), Record(1, 3, 100, 150)}, {Event(1, 150, 1)}),
              (Lines{"1/0/0 100-140 0", "1/3/0 100-140 0", "1/0/0 140-180 1", "1/3/0 140-150 1",
                     "1/0/0 180-300 0"}));
}

TEST_F(Mix, ChannelsAreCutTogetherByTheFirstOnesSpan) {
    MakeMixDisk();
    EXPECT_EQ(Cut({Record(1, 0, 100, 200), Record(1, 3, 100, 200)}, {Event(1, 150, 1)}),
              (Lines{"1/0/0 100-140 0", "1/3/0 100-140 0", "1/0/0 140-180 1", "1/3/0 140-180 1",
                     "1/0/0 180-200 0", "1/3/0 180-200 0"}));
    // The first ends before the period: the second stays whole, though it reaches into it.
    EXPECT_EQ(Cut({Record(1, 0, 100, 130), Record(1, 3, 100, 200)}, {Event(1, 150, 1)}),
              (Lines{"1/0/0 100-130 0", "1/3/0 100-200 0"}));
    // Another segment is another group.
    EXPECT_EQ(Cut({Record(1, 0, 100, 130), Record(1, 3, 100, 200, 1)}, {Event(1, 150, 1)}),
              (Lines{"1/0/0 100-130 0", "1/3/1 100-140 0", "1/3/1 140-180 1", "1/3/1 180-200 0"}));
}

TEST_F(Mix, MoreThanThirtyTwoRecordsAreSeveralGroups) {
    MakeMixDisk();
    std::vector<RecordItem_t> records;
    for (int i = 0; i < 32; ++i) {
        records.push_back(Record(1, 0, 100, 130)); // before the period 140-180
    }
    records.push_back(Record(1, 1, 150, 200)); // the first of a group of its own
    Lines expected(32, "1/0/0 100-130 0");
    expected.insert(expected.end(), {"1/1/0 150-180 1", "1/1/0 180-200 0"});
    EXPECT_EQ(Cut(records, {Event(1, 150, 1)}), expected);
}

TEST_F(Mix, HiddenChannelsShowOnlyInsidePeriods) {
    MakeMixDisk(1);
    Disk().Put(Disk().ExtHeadOffset(1), BlkExtHead_t{1, 0x1, {}});
    Lines both = {"1/0/0 100-140 0", "1/0/0 140-180 1", "1/3/0 140-180 1", "1/0/0 180-200 0"};
    EXPECT_EQ(Cut({Record(1, 0, 100, 200), Record(1, 3, 100, 200)}, {Event(1, 150, 1)}), both);
    EXPECT_EQ(Cut({Record(1, 3, 100, 200)}, {}), Lines{});
    EXPECT_EQ(Cut({Record(2, 3, 100, 200)}, {}), Lines{"2/3/0 100-200 0"}); // no set is given there
    // Ids carry channels up to 127: none above 31 is in any set.
    EXPECT_EQ(Cut({Record(2, 127, 100, 200)}, {Event(1, 150, 1)}), Lines{"2/127/0 140-180 1"});
}

TEST_F(Mix, RecordsThatEndAtTheEndOfTimeEndTheSearch) {
    MakeMixDisk();
    EXPECT_EQ(
        Cut({Record(1, 0, 100, 0xFFFFFFFF), Record(2, 0, 100, 0xFFFFFFFE)}, {Event(1, 150, 1)}),
        (Lines{"1/0/0 100-140 0", "1/0/0 140-180 1", "1/0/0 180-4294967295 0", "2/0/0 100-4294967294 0"}));
    EXPECT_EQ(Cut({Record(1, 0, 0xFFFFFFF0, 0xFFFFFFFF)}, {}), Lines{"1/0/0 4294967280-4294967295 0"});
}

TEST_F(Mix, PeriodThatWouldBeginAtZeroIsNone) {
    MakeMixDisk();
    // 10 - 10 = 0: no period is open. The next event opens one.
    EXPECT_EQ(Cut({Record(1, 0, 5, 100)}, {Event(1, 10, 1)}), Lines{"1/0/0 5-100 0"});
    EXPECT_EQ(Cut({Record(1, 0, 5, 100)}, {Event(1, 10, 1), Event(1, 30, 2)}),
              (Lines{"1/0/0 5-20 0", "1/0/0 20-60 2", "1/0/0 60-100 0"}));
}

TEST_F(Mix, OneListForRecordsAndPiecesEndsAllTheSame) {
    MakeMixDisk();
    RecordList list;
    list.AddTail(Record(1, 0, 100, 200));
    list.AddTail(Record(1, 0, 300, 400, 1));
    EventList events;
    events.AddTail(Event(1, 150, 4));
    SearchParam_t param = {};
    EXPECT_EQ(m_disk.MixBuildList(&list, &events, &param, &list), 4);
    EXPECT_EQ(Pieces(list),
              (Lines{"1/0/0 100-140 0", "1/0/0 140-180 4", "1/0/0 180-200 0", "1/0/1 300-400 0"}));
    EXPECT_EQ(list.m_nCount, 4);
}

TEST_F(Mix, WithoutRecordsEventsAreConsumedAllTheSame) {
    MakeMixDisk();
    EXPECT_EQ(Cut({}, {Event(1, 150, 1), Event(1, 500, 1)}), Lines{});
}

TEST_F(Mix, PiecesOfRandomRecordsCoverThemInOrder) {
    MakeMixDisk();
    for (uint32_t seed = 0; seed < 4000; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
        std::vector<RecordItem_t> records;
        std::map<uint32_t, RecordItem_t> whole;
        uint32_t time = 100 + below(50);
        for (uint32_t group = 0; group < 1 + below(6); ++group) {
            const uint32_t end = time + below(120);
            const uint32_t block = below(4);
            for (uint32_t chn = 0; chn < 1 + below(3); ++chn) {
                records.push_back(Record(block, chn, time, end, group));
                whole[records.back().recId] = records.back();
            }
            time = end + below(40);
        }
        std::vector<EventItem_t> events;
        std::vector<EventPeriodItem_t> periods; // by another way: events sorted, all with 10 and 30 seconds
        for (uint32_t at = 50 + below(100); at < time + 50 && events.size() < 8; at += 1 + below(150)) {
            const uint64_t type = uint64_t{1} << below(8);
            events.push_back(Event(below(8), at, type));
            if (!periods.empty() && at - 10 <= periods.back().endTime) {
                periods.back().endTime = at + 30;
                periods.back().alarmType = periods.back().alarmType | type;
            } else {
                periods.push_back({type, at - 10, at + 30});
            }
        }
        RecordList recs;
        EventList evs;
        for (const auto& record : records) {
            recs.AddTail(record);
        }
        for (const auto& event : events) {
            evs.AddTail(event);
        }
        SearchParam_t param = {};
        RecordList out;
        m_disk.MixBuildList(&recs, &evs, &param, &out);
        std::map<uint32_t, uint32_t> reached; // by record: where its pieces end so far
        std::map<uint32_t, uint32_t> covered;
        for (const RecordItem_t& piece : Elements(out)) {
            const RecordItem_t& record = whole.at(piece.recId);
            const uint32_t from = reached.count(piece.recId) == 0 ? record.startTime : reached[piece.recId];
            ASSERT_GE(piece.startTime, from) << seed;
            ASSERT_LE(piece.startTime, piece.endTime) << seed;
            ASSERT_LE(piece.endTime, record.endTime) << seed;
            reached[piece.recId] = piece.endTime;
            covered[piece.recId] += piece.endTime - piece.startTime;
            uint64_t type = 0;
            for (const EventPeriodItem_t& period : periods) {
                const bool inside = period.startTime <= piece.startTime && piece.endTime <= period.endTime;
                const bool apart = piece.endTime <= period.startTime || period.endTime <= piece.startTime;
                ASSERT_TRUE(inside || apart) << seed;
                // A piece without length at a period's edge belongs to it, or not: it holds nothing.
                type = inside && piece.startTime < piece.endTime ? uint64_t{period.alarmType} : type;
            }
            if (piece.startTime < piece.endTime) {
                ASSERT_EQ(piece.alarmType, type) << seed;
            }
        }
        // Of a record of two seconds or more, no more than one second may fall away, at its end.
        for (const auto& [id, record] : whole) {
            if (record.startTime + 1 < record.endTime) {
                ASSERT_GE(covered[id] + 1, record.endTime - record.startTime) << seed;
            }
        }
    }
}

// ---- searching

class MixSearching : public Mix {
protected:
    /// Blocks of a thousand seconds with two channels; an event in block 1.
    void MakeRing() {
        MakeDisk(4);
        for (uint32_t block = 0; block < 3; ++block) {
            const uint32_t start = (block + 1) * 1000;
            auto contents = BlockContents::Closed(block + 1, start, start + 900);
            contents.head.pre_RecTime = 10;
            contents.head.AlmDelayTime = 30;
            contents.Segment(0, start, start + 900, 9000).Segment(2, start, start + 900, 9000);
            if (block == 1) {
                contents.Event(Pts(2500), 4);
            }
            Disk().WriteBlock(block, contents);
        }
        Open();
    }

    Lines Search(SearchParam_t param) {
        RecordList out;
        Quietly([&] { m_result = m_disk.MixSearch(&param, &out); });
        EXPECT_EQ(std::max(m_result, 0), out.m_nCount);
        Lines lines;
        for (const RecordItem_t& record : Elements(out)) {
            const std::string line = Describe(record);
            lines.push_back(line.substr(0, line.find(" size")) + " " + std::to_string(record.alarmType));
        }
        return lines;
    }

    int m_result = 0;
};

TEST_F(MixSearching, ListsEveryStretchWithItsAlarms) {
    MakeRing();
    EXPECT_EQ(Search({0, 1500, 3200, kAll}),
              (Lines{"0/0/0 1500-1900 0", "0/2/0 1500-1900 0", "1/0/0 2000-2490 0", "1/2/0 2000-2490 0",
                     "1/0/0 2490-2530 4", "1/2/0 2490-2530 4", "1/0/0 2530-2900 0", "1/2/0 2530-2900 0",
                     "2/0/0 3000-3200 0", "2/2/0 3000-3200 0"}));
    EXPECT_EQ(Search({4, 1500, 3200, 2}), Lines{"1/2/0 2490-2530 4"});
    EXPECT_EQ(Search({8, 1500, 3200, 2}), Lines{});
}

TEST_F(MixSearching, MaskOfTheRequestDoesNotLimitTheEventsLookedAt) {
    MakeRing();
    EXPECT_EQ(Search({0, 2400, 2600, 0}),
              (Lines{"1/0/0 2400-2490 0", "1/0/0 2490-2530 4", "1/0/0 2530-2600 0"}));
}

TEST_F(MixSearching, EventsOfEveryTypeAreLookedAt) {
    MakeRing();
    for (const uint64_t type : {uint64_t{1}, uint64_t{1} << 63}) {
        Disk().WriteIndex(1, BlockContents::Closed(2, 2000, 2900)
                                 .Segment(0, 2000, 2900, 9000)
                                 .Segment(2, 2000, 2900, 9000)
                                 .Event(Pts(2500), type));
        const Lines lines = Search({0, 2400, 2600, 0});
        EXPECT_EQ(lines, (Lines{"1/0/0 2400-2490 0", "1/0/0 2490-2530 " + std::to_string(type),
                                "1/0/0 2530-2600 0"}));
    }
}

TEST_F(MixSearching, SearchesNoEventsWhenThereAreNoRecords) {
    MakeRing();
    SearchParam_t before = {0, 10, 20, kAll};
    RecordList out;
    const std::string messages = Printed([&] { EXPECT_EQ(m_disk.MixSearch(&before, &out), 0); });
    EXPECT_EQ(messages.find("SearchNormalEvent"), std::string::npos);
    EXPECT_EQ(messages.find("GetLastBlock"), messages.rfind("GetLastBlock")); // one search, not two
}

TEST_F(MixSearching, Unit) {
    MakeRing();
    RecordList out;
    EventList events;
    EXPECT_EQ(m_disk.MixSearchUnit(1, &out, &events), 2);
    EXPECT_EQ(Describe(out), (Lines{"1/0/0 2000-2900 size 9000 alarm 0 flag 0",
                                    "1/2/0 2000-2900 size 9000 alarm 0 flag 0"}));
    EXPECT_EQ(Describe(events), Lines{"1/0 2500 type 4"});
    Quietly([&] { EXPECT_EQ(m_disk.MixSearchUnit(3, &out, &events), 0); });
    EXPECT_EQ(m_disk.MixSearchUnit(2, &out, nullptr), 2);
}

TEST_F(MixSearching, LockedChannelsStayHidden) {
    MakeRing();
    Disk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 0x4;
        head.CipherCode[0] = 'x';
    });
    m_disk.Quit();
    Open();
    unsigned char wrong[] = "y";
    EXPECT_EQ(m_disk.CheckEncryptInfo(wrong), -1);
    EXPECT_EQ(Search({0, 2400, 2600, kAll}),
              (Lines{"1/0/0 2400-2490 0", "1/0/0 2490-2530 4", "1/0/0 2530-2600 0"}));
    RecordList out;
    EXPECT_EQ(m_disk.MixSearchUnit(1, &out, nullptr), 1);
}

TEST_F(MixSearching, ClosedObjectsAndMissingArguments) {
    MakeRing();
    CSearchDisk closed;
    SearchParam_t param = {0, 0, 9000, kAll};
    RecordList recs;
    RecordList out;
    EventList events;
    recs.AddTail(Record(1, 0, 100, 200));
    EXPECT_EQ(closed.MixSearch(&param, &out), -1);
    EXPECT_EQ(closed.MixSearchUnit(1, &out, &events), -1);
    EXPECT_EQ(closed.MixBuildList(&recs, &events, &param, &out), 0);
    EXPECT_EQ(m_disk.MixSearch(nullptr, &out), -1);
    EXPECT_EQ(m_disk.MixBuildList(nullptr, &events, &param, &out), 0);
    EXPECT_EQ(m_disk.MixBuildList(&recs, nullptr, &param, &out), 0);
    EXPECT_EQ(m_disk.MixBuildList(&recs, &events, nullptr, &out), 0);
    EXPECT_EQ(m_disk.MixBuildList(&recs, &events, &param, nullptr), 0);
    EXPECT_EQ(recs.m_nCount, 1);
    // A partition that could not be opened finds nothing.
    CSearchDisk empty;
    PartAccess_t nowhere = {};
    Quietly([&] {
        empty.Init(&nowhere);
        EXPECT_EQ(empty.MixSearch(&param, &out), 0);
        EXPECT_EQ(empty.MixSearchUnit(1, &out, &events), 0);
    });
    EXPECT_EQ(out.m_nCount, 0);
}

} // namespace
