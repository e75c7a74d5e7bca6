// Journeys, and what a timeline draws: merged over blocks and channels.

#include "recordings/coverage.h"

#include <gtest/gtest.h>

#include <ctime>

#include "recordings/frames_fixture.h"
#include "recordings/recordings_fixture.h"
#include "sample_recorder/generated_source.h"

namespace test_support {

namespace {

using namespace recordings;

Record At(uint32_t channel, uint32_t start, uint32_t end, uint64_t bytes = 100) {
    Record record;
    record.channel = channel;
    record.start = start;
    record.end = end;
    record.bytes = bytes;
    return record;
}

Event EventAt(uint32_t time, uint64_t type) {
    Event event;
    event.time = time;
    event.micros = int64_t{time} * 1000000;
    event.type = type;
    return event;
}

std::string Text(const std::vector<Span>& spans) {
    std::string text;
    for (const Span& span : spans) {
        text += (text.empty() ? "" : " ") + std::to_string(span.start) + "-" + std::to_string(span.end);
    }
    return text;
}

/// Each channel of a journey as "CHANNEL: recorded / gaps".
std::vector<std::string> Channels(const JourneyCoverage& journey) {
    std::vector<std::string> lines;
    for (const ChannelCoverage& each : journey.channels) {
        lines.push_back(std::to_string(each.channel) + ": " + Text(each.recorded) + " / " + Text(each.gaps));
    }
    return lines;
}

std::vector<std::string> Journeys(const Coverage& coverage) {
    std::vector<std::string> lines;
    for (const JourneyCoverage& each : coverage.journeys) {
        const Journey& journey = each.journey;
        lines.push_back(std::to_string(journey.number) + ": " + std::to_string(journey.start) + "-" +
                        std::to_string(journey.end) + " channels " + std::to_string(journey.channels.bits) +
                        " records " + std::to_string(journey.records) + " bytes " +
                        std::to_string(journey.bytes) + " alarms " + std::to_string(journey.alarms) +
                        " losses " + std::to_string(journey.losses));
    }
    return lines;
}

using Strings = std::vector<std::string>;

TEST(Coverage, NothingRecordedIsNoJourney) {
    CoverageMaker maker({});
    maker.Add(EventAt(100, 1), 10, 30);
    maker.Add(Problem(), {100, 100});
    EXPECT_TRUE(maker.Make().journeys.empty());
}

TEST(Coverage, RecordsThatMeetAreOne) {
    CoverageMaker maker({});
    maker.Add(At(0, 1060, 1119)); // the next block, in any order
    maker.Add(At(0, 1000, 1059));
    maker.Add(At(0, 1119, 1130)); // begins in the second in which the one before ends
    maker.Add(At(3, 1010, 1020));
    maker.Add(At(3, 1015, 1018)); // inside another
    maker.Add(At(3, 1030, 1130));
    const Coverage coverage = maker.Make();
    EXPECT_EQ(Journeys(coverage), Strings{"1: 1000-1130 channels 9 records 6 bytes 600 alarms 0 losses 0"});
    EXPECT_EQ(Channels(coverage.journeys[0]),
              (Strings{"0: 1000-1130 / ", "3: 1010-1020 1030-1130 / 1021-1029"}));
}

TEST(Coverage, ASilencePartsJourneys) {
    for (const auto& [silence, journeys] : {std::pair(299u, 2u), std::pair(300u, 1u)}) {
        JourneyQuery query;
        query.silence = silence;
        CoverageMaker maker(query);
        maker.Add(At(0, 1000, 1099));
        maker.Add(At(1, 1400, 1499)); // 1100 to 1399: 300 silent seconds
        EXPECT_EQ(maker.Make().journeys.size(), journeys);
    }
    CoverageMaker maker({});
    maker.Add(At(0, 5000, 5100));
    maker.Add(At(1, 1000, 1500));
    maker.Add(At(0, 1000, 1099));
    const Coverage coverage = maker.Make();
    EXPECT_EQ(Journeys(coverage), (Strings{"1: 1000-1500 channels 3 records 2 bytes 200 alarms 0 losses 0",
                                           "2: 5000-5100 channels 1 records 1 bytes 100 alarms 0 losses 0"}));
    EXPECT_EQ(Channels(coverage.journeys[1]), Strings{"0: 5000-5100 / "});
}

TEST(Coverage, OtherChannelsThanThoseAskedForAreLeftOut) {
    JourneyQuery query;
    query.channels = {0x2};
    CoverageMaker maker(query);
    maker.Add(At(0, 1000, 1099));
    maker.Add(At(1, 2000, 2099));
    const Coverage coverage = maker.Make();
    EXPECT_EQ(Journeys(coverage), Strings{"2: 2000-2099 channels 2 records 1 bytes 100 alarms 0 losses 0"});
    EXPECT_EQ(Channels(coverage.journeys[0]), Strings{"1: 2000-2099 / "});
}

/// Journey 2 is of channel 0 alone, and keeps what belongs to it to itself.
TEST(Coverage, AJourneyIsTheSameForAllChannels) {
    JourneyQuery query;
    query.channels = {0x8};
    CoverageMaker maker(query);
    maker.Add(At(3, 1000, 1049));
    maker.Add(At(0, 2000, 2099));
    maker.Add(At(3, 3000, 3009));
    maker.Add(At(0, 3010, 3499)); // so that channel 3 has no silence of 300 seconds here
    maker.Add(At(3, 3500, 3549));
    maker.Add(EventAt(2005, 0x1), 10, 30);
    maker.Add(EventAt(2120, 0x1), 10, 30); // nearest to the journey of channel 0
    maker.Add(EventAt(3200, 0x2), 10, 30); // while channel 0 is recorded alone
    maker.Add(EventAt(1100, 0x4), 0, 0);   // outside: the first journey is nearest
    maker.Add(Problem(), {2010, 2020});
    maker.Add(Problem(), {3300, 3310});
    const Coverage coverage = maker.Make();
    EXPECT_EQ(Journeys(coverage), (Strings{"1: 1000-1049 channels 8 records 1 bytes 100 alarms 1 losses 0",
                                           "3: 3000-3549 channels 8 records 2 bytes 200 alarms 1 losses 1"}));
    EXPECT_EQ(Channels(coverage.journeys[1]), Strings{"3: 3000-3009 3500-3549 / 3010-3499"});
    EXPECT_EQ(coverage.journeys[0].events.at(0).type, 0x4u);
    EXPECT_EQ(coverage.journeys[1].events.at(0).type, 0x2u);
    EXPECT_EQ(coverage.journeys[1].damage.size(), 1u);
}

TEST(Coverage, ChannelsThatWereNeverRecordedHaveNoJourney) {
    JourneyQuery query;
    query.channels = {0x4};
    CoverageMaker maker(query);
    maker.Add(At(0, 1000, 1099));
    maker.Add(EventAt(1005, 0x1), 10, 30);
    EXPECT_TRUE(maker.Make().journeys.empty());
}

TEST(Coverage, ARecordOfAClockThatWasSetBackIsItsFirstSecond) {
    CoverageMaker maker({});
    maker.Add(At(0, 1000, 900));
    EXPECT_EQ(Channels(maker.Make().journeys.at(0)), Strings{"0: 1000-1000 / "});
}

TEST(Coverage, TheLastSecondThereIsWorks) {
    CoverageMaker maker({});
    maker.Add(At(31, 0xFFFFFF00, 0xFFFFFFFF));
    maker.Add(At(31, 0, 5));
    maker.Add(EventAt(0xFFFFFFF0, 1), 10, 30);
    maker.Add(EventAt(2, 1), 10, 30);
    const Coverage coverage = maker.Make();
    ASSERT_EQ(coverage.journeys.size(), 2u);
    EXPECT_EQ(coverage.journeys[1].alarms.at(0).time.end, 0xFFFFFFFFu);
    EXPECT_EQ(coverage.journeys[0].alarms.at(0).time.start, 0u);
}

TEST(Coverage, AlarmsBelongToTheNearestJourney) {
    CoverageMaker maker({});
    maker.Add(At(0, 1000, 1100));
    maker.Add(At(0, 2000, 2100));
    maker.Add(EventAt(2050, 0x4), 10, 30);
    maker.Add(EventAt(1050, 0x1), 10, 30);
    maker.Add(EventAt(1091, 0x2), 10, 30); // 1081: the second after the end of the alarm before
    maker.Add(EventAt(1101, 0x8), 0, 0);   // just after the recording
    maker.Add(EventAt(1999, 0x8), 0, 0);
    maker.Add(EventAt(10, 0x8), 0, 0);
    const Coverage coverage = maker.Make();
    EXPECT_EQ(coverage.journeys[0].journey.alarms, 4u);
    EXPECT_EQ(coverage.journeys[1].journey.alarms, 2u);
    const std::vector<AlarmSpan>& alarms = coverage.journeys[0].alarms;
    ASSERT_EQ(alarms.size(), 2u);
    EXPECT_EQ(alarms[1].time.start, 1040u);
    EXPECT_EQ(alarms[1].time.end, 1121u);
    EXPECT_EQ(alarms[1].types, 0xBu);
    EXPECT_EQ(coverage.journeys[0].events.at(1).type, 0x1u);
}

TEST(Coverage, LossesAreCountedWhereTheyAre) {
    CoverageMaker maker({});
    maker.Add(At(0, 1000, 1100));
    maker.Add(At(0, 2000, 2100));
    Problem problem;
    problem.kind = ProblemKind::FramesMissing;
    problem.channel = 3;
    maker.Add(problem, {2010, 2020});
    problem.severity = Severity::Note;
    problem.channel.reset();
    maker.Add(problem, {1010, 1020});
    const Coverage coverage = maker.Make();
    EXPECT_EQ(coverage.journeys[0].journey.losses, 0u);
    EXPECT_EQ(coverage.journeys[0].damage.at(0).channels.bits, 0xFFFFFFFFu);
    EXPECT_EQ(coverage.journeys[1].journey.losses, 1u);
    EXPECT_EQ(coverage.journeys[1].damage.at(0).channels.bits, 0x8u);
}

/// 32 channels of 10,000 segments each: what a timeline has to take in before it is drawn.
TEST(Coverage, MergesALargeDiskInATenthOfASecond) {
    CoverageMaker maker({});
    for (uint32_t segment = 0; segment < 10000; ++segment) {
        for (uint32_t channel = 0; channel < 32; ++channel) {
            maker.Add(At(channel, 1700000000 + segment * 60 + channel, 1700000000 + segment * 60 + 50));
        }
    }
    const std::clock_t begin = std::clock(); // processor time: others may be busy
    const Coverage coverage = maker.Make();
    const auto took = static_cast<int>((std::clock() - begin) * 1000 / CLOCKS_PER_SEC);
    RecordProperty("milliseconds", took);
    ASSERT_EQ(coverage.journeys.size(), 1u);
    EXPECT_EQ(coverage.journeys[0].channels[31].recorded.size(), 10000u);
    EXPECT_EQ(coverage.journeys[0].channels[31].gaps.size(), 9999u);
#ifdef NDEBUG
    EXPECT_LT(took, 100);
#else
    EXPECT_LT(took, 5000); // such a build is not made to be quick
#endif
}

// ---- of a disk

class DiskCoverage : public FramesFixture {};

TEST_F(DiskCoverage, AJourneyGoesOverBlocksToItsTrueEnd) {
    constexpr uint32_t kStart = 1700000000;
    Start(1, 0x1, 0x10000);
    sample_recorder::GeneratedCamera camera;
    sample_recorder::GeneratedSource first(camera, 1, kStart, 60);
    RecordAll(first);
    Recorder().PowerOff();
    sample_recorder::GeneratedSource second(camera, 2, kStart + 1000, 20);
    RecordAll(second);
    RecordEvent(int64_t{kStart + 1019} * 1000000 + 950000, 0x10, 0);
    Recorder().CutPower();
    const Disk& disk = Open();
    const BlockList blocks = BlockList::Read(disk);
    ASSERT_GT(blocks.All().size(), 3u);
    ProblemList problems;
    const Coverage coverage = ReadCoverage(disk, blocks, {}, problems.Sink());
    ASSERT_EQ(coverage.journeys.size(), 2u);
    EXPECT_EQ(coverage.journeys[0].journey.start, kStart);
    EXPECT_EQ(coverage.journeys[0].journey.end, kStart + 59);
    EXPECT_EQ(coverage.journeys[1].journey.end, kStart + 1019);
    EXPECT_EQ(LastSecondOf(disk, blocks.All().back(), {}), kStart + 1019);
    EXPECT_EQ(coverage.journeys[1].journey.alarms, 1u);
    // The recorder's pre-record time and delay: 10 and 30 seconds.
    EXPECT_EQ(coverage.journeys[1].alarms.at(0).time.start, kStart + 1009);
    EXPECT_EQ(coverage.journeys[1].alarms.at(0).time.end, kStart + 1049);
    EXPECT_FALSE(problems.AnyLoss());
    EXPECT_EQ(FindJourneys(disk, blocks, {}, {}).size(), 2u);
}

TEST_F(DiskCoverage, AnEventHasTheChannelOfItsFrame) {
    Start(1, 0x9, 0x10000);
    Record(1700000000000000, sample_recorder::kVideoI, 0, 100);
    RecordEvent(1700000001000000, 0x4, 3);
    Recorder().PowerOff();
    const Disk& disk = Open();
    const BlockList blocks = BlockList::Read(disk);
    std::vector<Event> events = FindEvents(disk, blocks, {}, kAllEvents, {});
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(ChannelOf(disk, events[0]), 3u);
    Event elsewhere = events[0];
    elsewhere.offset = 0; // a picture
    EXPECT_FALSE(ChannelOf(disk, elsewhere));
    elsewhere.offset = 0xFFFFFFF0;
    EXPECT_FALSE(ChannelOf(disk, elsewhere));
    elsewhere.offset.reset();
    EXPECT_FALSE(ChannelOf(disk, elsewhere));
}

/// A timeline without a mark where a block is gone would pass for one of a vehicle that stood still.
TEST_F(DiskCoverage, ABlockThatIsGoneIsDamageOfItsTime) {
    constexpr uint32_t kStart = 1700000000;
    Start(1, 0x1, 0x10000);
    for (uint32_t block = 0; block < 3; ++block) {
        Record(int64_t{kStart + block * 100} * 1000000, sample_recorder::kVideoI, 0, 100);
        Record(int64_t{kStart + block * 100 + 60} * 1000000, sample_recorder::kVideoI, 0, 100);
        Recorder().PowerOff();
    }
    const std::vector<uint8_t> zeros(Image().BlockSize());
    Image().Write(Image().BlockStart(1), zeros.data(), zeros.size());
    const Disk& disk = Open();
    const BlockList blocks = BlockList::Read(disk);
    ProblemList problems;
    const Coverage coverage = ReadCoverage(disk, blocks, {}, problems.Sink());
    ASSERT_EQ(coverage.journeys.size(), 1u); // 140 seconds are no silence
    EXPECT_EQ(coverage.journeys[0].journey.losses, 1u);
    ASSERT_EQ(coverage.journeys[0].damage.size(), 1u);
    const Damage& damage = coverage.journeys[0].damage[0];
    EXPECT_EQ(damage.kind, ProblemKind::BlockWiped);
    EXPECT_EQ(damage.time.start, kStart + 60);
    EXPECT_EQ(damage.time.end, kStart + 200);
    EXPECT_EQ(damage.channels.bits, 0xFFFFFFFFu);
    EXPECT_EQ(problems.All().size(), 1u);
}

TEST_F(DiskCoverage, DamageHasTheTimeOfTheFramesAroundItOrOfItsBlock) {
    MakeDisk();
    WriteRing(2); // from 1000 and from 2000 on, 900 seconds each
    Image().Change<BlockTail_t>(Image().TailOffset(1), [](BlockTail_t& tail) { tail.EndTime = 1990; });
    const BlockList blocks = BlockList::Read(Open());
    const auto time = [&](const Problem& problem) {
        const Span span = DamageOf(problem, blocks).time;
        return std::to_string(span.start) + "-" + std::to_string(span.end);
    };
    Problem problem;
    EXPECT_EQ(time(problem), "0-4294967295"); // of the disk as a whole
    problem.block = 7;                        // not there
    EXPECT_EQ(time(problem), "0-4294967295");
    problem.block = 0;
    EXPECT_EQ(time(problem), "1000-1900");
    problem.block = 1; // its clock was set back
    EXPECT_EQ(time(problem), "2000-2000");
    problem.before = 2100 * kMicros + 999999;
    EXPECT_EQ(time(problem), "2100-2100"); // nothing after it
    problem.after = 2200 * kMicros;
    EXPECT_EQ(time(problem), "2100-2200");
    problem.after = 2050 * kMicros; // the clock was set back meanwhile
    EXPECT_EQ(time(problem), "2100-2100");
    problem.before.reset();
    EXPECT_EQ(time(problem), "2000-2050");
}

} // namespace

} // namespace test_support
