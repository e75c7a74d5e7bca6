// When there were alarms: which types a stretch of recording belongs to, and where it is cut.

#include "commands/alarm_times.h"

#include <gtest/gtest.h>

namespace {

using namespace diskaccess;

/// A part as "FIRST-LAST TYPES".
std::vector<std::string> Texts(const std::vector<Alarm>& parts) {
    std::vector<std::string> texts;
    for (const Alarm& part : parts) {
        texts.push_back(std::to_string(part.first) + "-" + std::to_string(part.last) + " " +
                        std::to_string(part.types));
    }
    return texts;
}

using Parts = std::vector<std::string>;

/// Types 1 and 2 overlap, 4 stands apart, 8 is a moment.
AlarmTimes Sample() {
    return AlarmTimes({{150, 250, 2}, {400, 500, 4}, {100, 200, 1}, {600, 600, 8}});
}

TEST(AlarmTimes, TypesOfAStretchAreThoseOfEveryAlarmItTouches) {
    const AlarmTimes alarms = Sample();
    EXPECT_EQ(alarms.TypesIn(0, 99), 0u);
    EXPECT_EQ(alarms.TypesIn(0, 100), 1u);
    EXPECT_EQ(alarms.TypesIn(0, 150), 3u);
    EXPECT_EQ(alarms.TypesIn(201, 201), 2u);
    EXPECT_EQ(alarms.TypesIn(251, 399), 0u);
    EXPECT_EQ(alarms.TypesIn(250, 400), 6u);
    EXPECT_EQ(alarms.TypesIn(0, 0xFFFFFFFF), 15u);
    EXPECT_EQ(alarms.TypesIn(600, 600), 8u);
    EXPECT_EQ(alarms.TypesIn(601, 0xFFFFFFFF), 0u);
    EXPECT_EQ(AlarmTimes({}).TypesIn(0, 0xFFFFFFFF), 0u);
}

TEST(AlarmTimes, ReachToTheLastSecondThereIs) {
    const AlarmTimes alarms({{0, 10, 1}, {0xFFFFFFF0, 0xFFFFFFFF, 2}});
    EXPECT_EQ(alarms.TypesIn(0xFFFFFFFF, 0xFFFFFFFF), 2u);
    EXPECT_EQ(Texts(alarms.PartsIn(5, 0xFFFFFFFF)), (Parts{"5-10 1", "4294967280-4294967295 2"}));
}

TEST(AlarmTimes, PartsAreWhatAlarmsThatMeetCoverTogether) {
    const AlarmTimes alarms = Sample();
    EXPECT_EQ(Texts(alarms.PartsIn(0, 1000)), (Parts{"100-250 3", "400-500 4", "600-600 8"}));
    EXPECT_EQ(Texts(alarms.PartsIn(120, 420)), (Parts{"120-250 3", "400-420 4"}));
    EXPECT_EQ(Texts(alarms.PartsIn(210, 300)), Parts{"210-250 2"});
    EXPECT_EQ(Texts(alarms.PartsIn(251, 399)), Parts{});
    EXPECT_EQ(Texts(alarms.PartsIn(600, 600)), Parts{"600-600 8"});
}

TEST(AlarmTimes, CutsLieWhereTypesChange) {
    const AlarmTimes alarms(UpToLastSecond({{100, 200, 1}, {150, 250, 2}, {600, 600, 8}}));
    EXPECT_EQ(Texts(alarms.CutInto(0, 1000)), (Parts{"0-100 0", "100-150 1", "150-200 3", "200-250 2",
                                                     "250-600 0", "600-601 8", "601-1000 0"}));
    EXPECT_EQ(Texts(alarms.CutInto(160, 190)), Parts{"160-190 3"});
    EXPECT_EQ(Texts(alarms.CutInto(200, 200)), Parts{"200-200 2"});
    EXPECT_EQ(Texts(alarms.CutInto(0, 100)), Parts{"0-100 0"});
}

TEST(AlarmTimes, AlarmsOfOneTypeThatFollowEachOtherAreNotCut) {
    const AlarmTimes alarms(UpToLastSecond({{100, 200, 1}, {200, 300, 1}}));
    EXPECT_EQ(Texts(alarms.CutInto(50, 400)), (Parts{"50-100 0", "100-300 1", "300-400 0"}));
}

TEST(AlarmTimes, ARecordIsCutIntoAThousandPartsAtMost) {
    std::vector<Alarm> many;
    for (uint32_t i = 0; i < 5000; ++i) {
        many.push_back({i * 10, i * 10 + 4, i == 4999 ? 2u : 1u});
    }
    const AlarmTimes alarms(many);
    const std::vector<Alarm> parts = alarms.PartsIn(0, 100000);
    ASSERT_EQ(parts.size(), 1000u);
    EXPECT_EQ(Texts({parts.back()}), Parts{"9990-49994 3"});
    const std::vector<Alarm> cuts = alarms.CutInto(0, 100000);
    ASSERT_EQ(cuts.size(), 1000u);
    EXPECT_EQ(cuts.back().last, 100000u);
    EXPECT_EQ(cuts.back().types, 3u);
}

TEST(AlarmTimes, EventsAreLookedForAnHourAroundTheRange) {
    const recordings::TimeRange inside = EventRangeOf({10000, 20000});
    EXPECT_EQ(inside.first, 6400u);
    EXPECT_EQ(inside.last, 23600u);
    const recordings::TimeRange all = EventRangeOf({0, 0xFFFFFFFF});
    EXPECT_EQ(all.first, 0u);
    EXPECT_EQ(all.last, 0xFFFFFFFFu);
}

} // namespace
