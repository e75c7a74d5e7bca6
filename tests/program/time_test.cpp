#include <gtest/gtest.h>

#include "cli/clock_check.h"
#include "cli/failure.h"
#include "cli/typed_time.h"
#include "render/time_zone.h"

namespace {

using namespace diskaccess;

constexpr int64_t kNow = 1795271400; // 2026-11-21 14:30:00 UTC, a Saturday
constexpr Present kPresent = {kNow, kNow};

int64_t First(const std::string& text, const char* zone = "UTC", Twice twice = Twice::First) {
    return ReadTime(text, TimeZone(zone), kPresent, twice).first;
}

TEST(TypedTimes, DateAndTime) {
    EXPECT_EQ(First("2026-11-20 14:30:05"), 1795185005);
    EXPECT_EQ(First("2026-11-20T14:30:05"), 1795185005);
    EXPECT_EQ(First("2026-11-20 14:30"), 1795185000);
    EXPECT_EQ(First("2026-11-20 4:30"), 1795149000);
    EXPECT_EQ(First("1970-01-01 00:00:01"), 1);
    EXPECT_EQ(First("2026-11-20 14:30", "Europe/Berlin"), 1795181400);
    EXPECT_EQ(First("2026-11-20 14:30", "IST-5:30"), 1795165200);
}

TEST(TypedTimes, OffsetsBehindATimeOverrideTheZone) {
    EXPECT_EQ(First("2026-11-20T14:30:05Z", "Europe/Berlin"), 1795185005);
    EXPECT_EQ(First("2026-11-20 14:30:05+01:00", "America/New_York"), 1795181405);
    EXPECT_EQ(First("2026-11-20 14:30:05-0530"), 1795204805);
}

TEST(TypedTimes, DateIsItsWholeDay) {
    const TypedTime day = ReadTime("2026-11-20", TimeZone("UTC"), kPresent, Twice::First);
    EXPECT_EQ(day.first, 1795132800);
    EXPECT_EQ(day.last, 1795132800 + 86399);
    const TypedTime local = ReadTime("2026-11-20", TimeZone("Europe/Berlin"), kPresent, Twice::First);
    EXPECT_EQ(local.first, 1795132800 - 3600);
    EXPECT_EQ(local.last, 1795132800 - 3600 + 86399);
}

TEST(TypedTimes, DaysWithAClockChangeDifferInLength) {
    // Europe/Berlin 2026: forward on March 29 (23 hours), back on October 25 (25 hours).
    const TypedTime march = ReadTime("2026-03-29", TimeZone("Europe/Berlin"), kPresent, Twice::First);
    EXPECT_EQ(march.last - march.first, 23 * 3600 - 1);
    const TypedTime october = ReadTime("2026-10-25", TimeZone("Europe/Berlin"), kPresent, Twice::First);
    EXPECT_EQ(october.last - october.first, 25 * 3600 - 1);
}

TEST(TypedTimes, TimeOfDayIsTodays) {
    EXPECT_EQ(First("14:30"), kNow);
    EXPECT_EQ(First("14:30:07"), kNow + 7);
    EXPECT_EQ(First("0:00"), 1795219200);
    EXPECT_EQ(First("15:30", "Europe/Berlin"), kNow);
}

TEST(TypedTimes, TimeOfDayIsOneOfTheDayThatIsMeant) {
    // 2026-11-20 23:30 UTC, which is the 21st in Berlin.
    const Present present = {kNow, 1795217400};
    EXPECT_EQ(ReadTime("08:00:20", TimeZone("UTC"), present, Twice::First).first, 1795161620);
    EXPECT_EQ(ReadTime("08:00", TimeZone("Europe/Berlin"), present, Twice::First).first, 1795244400);
    // The other words go by the present all the same.
    EXPECT_EQ(ReadTime("today", TimeZone("UTC"), present, Twice::First).first, 1795219200);
    EXPECT_EQ(ReadTime("-1h", TimeZone("UTC"), present, Twice::First).first, kNow - 3600);
}

TEST(TypedTimes, Words) {
    EXPECT_EQ(First("now"), kNow);
    EXPECT_EQ(First("today"), 1795219200);
    EXPECT_EQ(First("yesterday"), 1795219200 - 86400);
    const TypedTime yesterday = ReadTime("yesterday", TimeZone("UTC"), kPresent, Twice::First);
    EXPECT_EQ(yesterday.last, 1795219199);
}

TEST(TypedTimes, YesterdayOfALongDayAndAfterIt) {
    // 2026-10-26 00:30 in Berlin: yesterday had 25 hours.
    const int64_t now = 1792971000;
    const TypedTime yesterday = ReadTime("yesterday", TimeZone("Europe/Berlin"), {now, now}, Twice::First);
    EXPECT_EQ(yesterday.last - yesterday.first, 25 * 3600 - 1);
    // 2026-03-30 00:30: yesterday had 23 hours.
    const TypedTime shortDay =
        ReadTime("yesterday", TimeZone("Europe/Berlin"), {1774823400, 1774823400}, Twice::First);
    EXPECT_EQ(shortDay.last - shortDay.first, 23 * 3600 - 1);
}

TEST(TypedTimes, Relative) {
    EXPECT_EQ(First("-30s"), kNow - 30);
    EXPECT_EQ(First("-5m"), kNow - 300);
    EXPECT_EQ(First("-2h"), kNow - 7200);
    EXPECT_EQ(First("-3d"), kNow - 3 * 86400);
    EXPECT_EQ(First("-1w"), kNow - 7 * 86400);
    EXPECT_EQ(First("@1700000000"), 1700000000);
    EXPECT_EQ(First("@0"), 0);
}

TEST(TypedTimes, TimeThatComesTwice) {
    // Berlin, 2026-10-25 02:30: first in summer time (00:30 UTC), then in winter time (01:30 UTC).
    EXPECT_EQ(First("2026-10-25 02:30", "Europe/Berlin", Twice::First), 1792888200);
    EXPECT_EQ(First("2026-10-25 02:30", "Europe/Berlin", Twice::Second), 1792891800);
    EXPECT_EQ(First("2026-10-25 02:30+01:00", "Europe/Berlin", Twice::First), 1792891800);
    EXPECT_EQ(First("2026-10-25 01:59:59", "Europe/Berlin"), 1792886399);
    EXPECT_EQ(First("2026-10-25 03:00", "Europe/Berlin"), 1792893600);
}

TEST(TypedTimes, TimeThatIsSkippedComesAfterTheGap) {
    // Berlin, 2026-03-29: 02:00 to 03:00 does not exist. 02:30 is taken as 03:30 summer time, 01:30 UTC.
    EXPECT_EQ(First("2026-03-29 02:30", "Europe/Berlin"), 1774747800);
    EXPECT_EQ(First("2026-03-29 03:00", "Europe/Berlin"), 1774746000);
    EXPECT_EQ(First("2026-03-29 01:59:59", "Europe/Berlin"), 1774745999);
}

TEST(TypedTimes, NonsenseIsRefused) {
    for (const char* const text :
         {"", "tomorrow", "14", "2026-13-01", "2026-02-29", "2026-11-31", "2026-11-20 24:00",
          "2026-11-20 12:60", "-2y", "-h", "@", "@x", "2026-11-20 ", "2026/11/20", "25:00",
          "2026-11-20 12:00 CET", "--", "@99999999999"}) {
        EXPECT_THROW(ReadTime(text, TimeZone("UTC"), kPresent, Twice::First), WrongUse) << text;
    }
    EXPECT_EQ(First("2028-02-29"), 1835395200);
}

TEST(TimeZones, TextIsWhatCanBeTyped) {
    for (const char* const name :
         {"UTC", "Europe/Berlin", "America/St_Johns", "Australia/Lord_Howe", "BRT+3"}) {
        const TimeZone zone(name);
        // Around both clock changes of 2026 in each zone, and far from them.
        for (const int64_t base : {int64_t{1774745000}, int64_t{1792886000}, int64_t{1773039000},
                                   int64_t{1793598000}, int64_t{1775315000}, int64_t{1790434000}, kNow}) {
            for (int64_t time = base - 9000; time < base + 9000; time += 450) {
                EXPECT_EQ(ReadTime(zone.Text(time), zone, kPresent, Twice::First).first, time)
                    << name << ' ' << time;
                EXPECT_EQ(ReadTime(zone.Text(time), zone, kPresent, Twice::Second).first, time)
                    << name << ' ' << time;
                EXPECT_EQ(ReadTime(zone.Rfc3339(time), zone, kPresent, Twice::First).first, time)
                    << name << ' ' << time;
            }
        }
    }
}

TEST(TimeZones, Text) {
    const TimeZone berlin("Europe/Berlin");
    EXPECT_EQ(berlin.Text(1795185005), "2026-11-20 15:30:05");
    EXPECT_EQ(berlin.Text(1792888200), "2026-10-25 02:30:00+02:00"); // comes twice: the offset tells
    EXPECT_EQ(berlin.Text(1792891800), "2026-10-25 02:30:00+01:00");
    EXPECT_EQ(berlin.Rfc3339(1795185005), "2026-11-20T15:30:05+01:00");
    const TimeZone newfoundland("America/St_Johns");
    EXPECT_EQ(newfoundland.Rfc3339(1795185005), "2026-11-20T11:00:05-03:30");
    const TimeZone utc("UTC");
    EXPECT_EQ(utc.Rfc3339(1795185005), "2026-11-20T14:30:05Z");
    EXPECT_EQ(utc.Text(0xFFFFFFFF), "2106-02-07 06:28:15");
}

TEST(TimeZones, UnknownNamesAreRefused) {
    for (const char* const name :
         {"Europe/Atlantis", "Berlin", "../../etc/passwd", "/etc/passwd", "zone.tab", "Europe", "?"}) {
        EXPECT_THROW(TimeZone zone(name), UnknownZone) << name;
    }
}

ClockCheck Check(const std::string& text, const char* zone = "UTC") {
    return ReadClockCheck(text, TimeZone(zone), kNow);
}

std::string CheckRefusal(const std::string& text) {
    try {
        Check(text);
        return "taken";
    } catch (const WrongUse& wrong) {
        return wrong.what();
    }
}

TEST(ClockChecks, TellTheSkew) {
    const ClockCheck check = Check("2026-11-20 14:00:05=2026-11-20 13:59:58");
    EXPECT_EQ(check.recorderTime, 1795183205);
    EXPECT_EQ(check.trueTime, 1795183198);
    EXPECT_EQ(check.Skew(), 7);
    EXPECT_EQ(Check("2026-11-20 13:59:58=2026-11-20 14:00:05").Skew(), -7);
    // The recorder's clock shows UTC, the one on the wall that of Berlin.
    EXPECT_EQ(Check("2026-11-20T14:00:05Z=2026-11-20 15:00:00", "Europe/Berlin").Skew(), 5);
    EXPECT_EQ(Check("2026-11-21 14:31:00=now").Skew(), 60);
    EXPECT_EQ(Check("2026-11-20 14:00:05=13:59:58").Skew(), 7);
}

TEST(ClockChecks, AreTwoMoments) {
    EXPECT_EQ(CheckRefusal("2026-11-20 14:00"),
              "--clock-check: '2026-11-20 14:00' is no pair of times; give what the recorder's clock showed, "
              "=, and "
              "the true time, like '2026-11-20 14:00:05=2026-11-20 13:59:58'");
    EXPECT_EQ(CheckRefusal("2026-11-20=2026-11-20 13:59:58"),
              "--clock-check: '2026-11-20' is a day; give its time of day too");
    EXPECT_EQ(CheckRefusal("2026-11-20 14:00=today"),
              "--clock-check: 'today' is a day; give its time of day too");
    for (const char* const text : {"=", "14:00=", "=14:00", "14:00=15:00=16:00", "14:00=soon"}) {
        EXPECT_NE(CheckRefusal(text), "taken") << text;
    }
    EXPECT_EQ(CheckRefusal("@5000000000=@100000000"),
              "--clock-check: no recorder's clock can be so far from the true time");
}

} // namespace
