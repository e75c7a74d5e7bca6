// A catalogue of disks, on each database.

#include "catalog/catalog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <thread>

#include "catalog/catalog_fixture.h"
#include "catalog/error.h"
#include "recordings/error.h"
#include "schema.h"

namespace test_support {

namespace {

using Lines = std::vector<std::string>;
using sample_recorder::BlockContents;
using sample_recorder::Format;

class Catalogs : public CatalogFixture {
protected:
    /// Two journeys of one bus: blocks 0 to 2 without a pause, and block 3.
    void WriteJourneys() {
        MakeDisk();
        WriteBlock(0, 1, 1000, 1100);
        WriteBlock(1, 2, 1101, 1200);
        WriteBlock(2, 3, 1201, 1300);
        WriteBlock(3, 4, 5000, 5100);
    }
};

TEST_P(Catalogs, FindWhatWasRecordedWhen) {
    WriteJourneys();
    const catalog::Added added = Add();
    EXPECT_TRUE(added.isNew);
    EXPECT_EQ(added.blocks, 4u);
    EXPECT_EQ(added.read, 4u);
    EXPECT_EQ(added.losses, 0u);
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 1000-1300 1", "bus 12 1 5000-5100 1"}));
    EXPECT_EQ(Find(1150, 1250), Lines{"bus 12 1 1150-1250 1"}); // cut to what was asked for
    EXPECT_EQ(Find(1300, 1300), Lines{"bus 12 1 1300-1300 1"});
    EXPECT_EQ(Find(1301, 4999), Lines{});
}

TEST_P(Catalogs, FindByVehicleNumberAndId) {
    MakeDisk();
    WriteBlock(0, 1, 1000, 1100, "bus 12");
    WriteBlock(1, 2, 1101, 1200, "bus 13"); // the disk was put into another one
    Add();
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 1000-1100 1", "bus 13 1 1101-1200 1"}));
    catalog::Question question;
    question.to = 10000;
    for (const std::string name : {"bus 13", "id of bus 13"}) {
        question.vehicle = name;
        EXPECT_EQ(Find(question), Lines{"bus 13 1 1101-1200 1"});
    }
    question.vehicle = "bus";
    EXPECT_EQ(Find(question), Lines{});
    EXPECT_EQ(Catalog().List().at(0).vehicleNumber, "bus 13"); // where it was last
}

TEST_P(Catalogs, FindByChannel) {
    MakeDisk();
    WriteBlock(0, BlockContents::Closed(1, 1000, 1900)
                      .Segment(0, 1000, 1900, 9000)
                      .Segment(3, 1000, 1400, 9000)
                      .Segment(3, 1500, 1900, 9000));
    Add();
    EXPECT_EQ(Find(1000, 1900), Lines{"bus 12 1 1000-1900 9"});
    EXPECT_EQ(Find(1420, 1480), Lines{"bus 12 1 1420-1480 1"});
    catalog::Question question;
    question.to = 10000;
    question.channels = {0x8};
    EXPECT_EQ(Find(question), (Lines{"bus 12 1 1000-1400 8", "bus 12 1 1500-1900 8"}));
}

TEST_P(Catalogs, FindWhatWasRecordedAroundEvents) {
    MakeDisk();
    BlockContents contents = BlockContents::Closed(1, 1000, 1900)
                                 .Segment(0, 1000, 1900, 9000)
                                 .Event(1100000000, 0x4)
                                 .Event(1120999999, 0x10)
                                 .Event(1890000000, 0x4);
    contents.head.pre_RecTime = 10;
    contents.head.AlmDelayTime = 30;
    WriteBlock(0, contents);
    Add();
    catalog::Question question;
    question.from = 1000;
    question.to = 1890;
    question.events = 0x14;
    EXPECT_EQ(Find(question), (Lines{"bus 12 1 1090-1150 1 14", "bus 12 1 1880-1900 1 4"}));
    question.events = 0x10;
    EXPECT_EQ(Find(question), Lines{"bus 12 1 1110-1150 1 10"});
    question.from = 1121;
    EXPECT_EQ(Find(question), Lines{});
    question.from = question.to = 1120; // the second that the event happened in
    EXPECT_EQ(Find(question), Lines{"bus 12 1 1110-1150 1 10"});
    question.events = 0x8;
    EXPECT_EQ(Find(question), Lines{});
}

TEST_P(Catalogs, KeepTypesOfAllSixtyFourBits) {
    MakeDisk();
    WriteBlock(0, BlockContents::Closed(1, 1000, 1900)
                      .Segment(0, 1000, 1900, 9000)
                      .Event(1100000000, 0x8000000000000000));
    Add();
    catalog::Question question;
    question.to = 10000;
    question.events = 0x8000000000000000;
    EXPECT_EQ(Find(question), Lines{"bus 12 1 1100-1100 1 8000000000000000"});
}

TEST_P(Catalogs, KnowADiskAgainWhereverItLies) {
    WriteJourneys();
    const int64_t disk = Add("/shelf/disk.img").disk;
    const catalog::Added again = Add("/other/place.img");
    EXPECT_FALSE(again.isNew);
    EXPECT_EQ(again.disk, disk);
    EXPECT_EQ(again.read, 0u);
    ASSERT_EQ(Catalog().List().size(), 1u);
    EXPECT_EQ(Catalog().List()[0].source, "/other/place.img");
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 1000-1300 1", "bus 12 1 5000-5100 1"}));
}

TEST_P(Catalogs, ReadOnlyWhatIsNew) {
    WriteJourneys();
    Add();
    WriteBlock(4, 5, 5101, 5200);
    WriteBlock(5, 6, 5201, 5300);
    const catalog::Added added = Add();
    EXPECT_EQ(added.read, 2u);
    EXPECT_EQ(added.blocks, 6u);
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 1000-1300 1", "bus 12 1 5000-5300 1"}));
}

TEST_P(Catalogs, AskTheDiskForNothingButHeadsAndTailsOfWhatIsKnown) {
    WriteJourneys();
    Add();
    const uint64_t first = Worn().Reads();
    for (uint32_t block = 0; block < 4; ++block) { // now a loss, if it were read
        Fail(Image().BlockStart(block) + sizeof(BlockHead_t), Image().TailOffset(block));
    }
    const catalog::Added again = Add();
    const uint64_t again4 = Worn().Reads();
    EXPECT_EQ(again.read, 0u);
    EXPECT_EQ(again.losses, 0u);
    EXPECT_LE(again4 + 4, first); // an index a block, at the least
    WriteBlock(4, 5, 5101, 5200);
    const catalog::Added more = Add();
    EXPECT_EQ(more.read, 1u);
    EXPECT_EQ(more.losses, 0u);
    // What one more block takes: its share of the first reading, and no more.
    EXPECT_LE(Worn().Reads() - again4, first - again4);
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 1000-1300 1", "bus 12 1 5000-5200 1"}));
}

TEST_P(Catalogs, KnowADiskAgainWhoseRingWentOnElsewhere) {
    Format format;
    format.blockCount = 64;
    MakeDisk(format);
    const auto write = [this](uint32_t from, uint32_t to) { // in turn after turn, ten seconds a block
        for (uint32_t sequence = from; sequence <= to; ++sequence) {
            WriteBlock((sequence - 1) % 64, sequence, 10 * sequence, 10 * sequence + 9);
        }
    };
    write(1, 64);
    const int64_t disk = Add("/shelf/disk.img").disk;
    write(65, 124); // all but four blocks
    const catalog::Added later = Add("/vehicle/disk.img");
    EXPECT_FALSE(later.isNew);
    EXPECT_EQ(later.disk, disk);
    EXPECT_EQ(later.read, 60u);
    EXPECT_EQ(Find(0, 10000), Lines{"bus 12 1 610-1249 1"});
    write(125, 188); // all
    const catalog::Added other = Add("/vehicle/disk.img");
    EXPECT_TRUE(other.isNew);
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 610-1249 1", "bus 12 2 1250-1889 1"}));
}

TEST_P(Catalogs, LetGoOfWhatWasOverwritten) {
    MakeDisk();
    for (uint32_t block = 0; block < 8; ++block) {
        WriteBlock(block, block + 1, 1000 + 100 * block, 1099 + 100 * block);
    }
    Add();
    EXPECT_EQ(Find(0, 10000), Lines{"bus 12 1 1000-1799 1"});
    WriteBlock(0, 9, 9000, 9100); // the ring's next turn
    WriteBlock(1, 10, 9101, 9200);
    const catalog::Added added = Add();
    EXPECT_FALSE(added.isNew);
    EXPECT_EQ(added.read, 2u);
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 1200-1799 1", "bus 12 1 9000-9200 1"}));
}

TEST_P(Catalogs, LetGoOfEventsThatWereOverwritten) {
    MakeDisk();
    WriteBlock(0, BlockContents::Closed(1, 1000, 1100).Segment(0, 1000, 1100, 9).Event(1050000000, 1));
    WriteBlock(1, BlockContents::Closed(2, 1101, 1200).Segment(0, 1101, 1200, 9).Event(1150000000, 1));
    Add();
    WriteBlock(0, BlockContents::Closed(3, 1201, 1300).Segment(0, 1201, 1300, 9).Event(1250000000, 1));
    Add();
    catalog::Question question;
    question.to = 10000;
    question.events = 1;
    EXPECT_EQ(Find(question), (Lines{"bus 12 1 1150-1150 1 1", "bus 12 1 1250-1250 1 1"}));
}

TEST_P(Catalogs, FollowARecorderThatGoesOnWithABlock) {
    MakeDisk();
    WriteBlock(0, 1, 1000, 1100);
    WriteBlock(1, BlockContents::Open(2, 1101).Channels(1));
    Add();
    EXPECT_EQ(Find(0, 10000), Lines{"bus 12 1 1000-1100 1"}); // the open block holds no frame yet
    WriteBlock(1, 2, 1101, 1200);
    EXPECT_EQ(Add().read, 1u);
    EXPECT_EQ(Find(0, 10000), Lines{"bus 12 1 1000-1200 1"});
}

TEST_P(Catalogs, TellDisksApartThatWereFormattedAlike) {
    WriteJourneys();
    const int64_t first = Add("/shelf/1.img").disk;
    WriteBlock(0, 1, 1000, 1100, "bus 13"); // another disk's block of the same number and time
    WriteBlock(1, 2, 1101, 1200, "bus 13");
    WriteBlock(2, 3, 1201, 1300, "bus 13");
    WriteBlock(3, 4, 5000, 5100, "bus 13");
    const catalog::Added second = Add("/shelf/2.img");
    EXPECT_TRUE(second.isNew);
    EXPECT_NE(second.disk, first);
    EXPECT_EQ(Catalog().List().size(), 2u);
    EXPECT_EQ(Find(5000, 5000).size(), 2u);
}

TEST_P(Catalogs, TellDisksOfOneVehicleApartThatWereFormattedAlike) {
    WriteJourneys();
    const int64_t first = Add("/shelf/1.img").disk;
    WriteBlock(0, 1, 1000, 1101); // the same numbers, and all but the same times
    WriteBlock(1, 2, 1102, 1200);
    WriteBlock(2, 3, 1201, 1301);
    WriteBlock(3, 4, 5000, 5101);
    const catalog::Added second = Add("/shelf/2.img");
    EXPECT_TRUE(second.isNew);
    EXPECT_EQ(Find(1150, 1250), (Lines{"bus 12 1 1150-1250 1", "bus 12 2 1150-1250 1"}));
    WriteJourneys();
    EXPECT_EQ(Add("/shelf/1.img").disk, first);
    EXPECT_EQ(Catalog().List().size(), 2u);
}

TEST_P(Catalogs, TakeADiskFormattedAnewForAnother) {
    MakeDisk();
    WriteBlock(0, 1, 1000, 1100);
    Add();
    WriteBlock(0, 1, 9000, 9100);
    EXPECT_TRUE(Add().isNew);
    EXPECT_EQ(Catalog().List().size(), 2u);
}

TEST_P(Catalogs, HoldDisksThatNothingWasRecordedOn) {
    MakeDisk();
    EXPECT_TRUE(Add().isNew);
    EXPECT_FALSE(Add().isNew);
    ASSERT_EQ(Catalog().List().size(), 1u);
    EXPECT_FALSE(Catalog().List()[0].first);
    WriteBlock(0, 1, 1000, 1100);
    Add();
    EXPECT_EQ(Find(0, 10000).size(), 1u);
}

TEST_P(Catalogs, HoldTrueTimes) {
    WriteJourneys();
    Add("/shelf/disk.img", 100); // the recorder's clock was ahead
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 900-1200 1", "bus 12 1 4900-5000 1"}));
    EXPECT_EQ(Catalog().List()[0].skewSeconds, 100);
    EXPECT_EQ(Catalog().List()[0].first, 900);
    EXPECT_EQ(Catalog().List()[0].last, 5000);
    const catalog::Added corrected = Add("/shelf/disk.img", -50);
    EXPECT_FALSE(corrected.isNew);
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 1050-1350 1", "bus 12 1 5050-5150 1"}));
}

TEST_P(Catalogs, HoldAFailingDiskWithItsProblems) {
    WriteJourneys();
    Fail(Image().BlockStart(1), Image().BlockStart(2));
    const catalog::Added added = Add();
    EXPECT_GT(added.losses, 0u);
    EXPECT_EQ(Find(0, 2000), (Lines{"bus 12 1 1000-1100 1", "bus 12 1 1201-1300 1"}));
    const std::vector<catalog::CataloguedProblem> problems = Catalog().ProblemsOf(added.disk);
    ASSERT_FALSE(problems.empty());
    EXPECT_EQ(problems[0].kind, "block_unreadable");
    EXPECT_TRUE(problems[0].isLoss);
    EXPECT_NE(problems[0].text.find('1'), std::string::npos);
    EXPECT_EQ(Catalog().List()[0].losses, added.losses);

    Forgive(); // a better copy of the same disk
    const catalog::Added better = Add();
    EXPECT_FALSE(better.isNew);
    EXPECT_EQ(better.read, 1u);
    EXPECT_EQ(better.losses, 0u);
    EXPECT_EQ(Catalog().ProblemsOf(added.disk).size(), 0u);
    EXPECT_EQ(Find(1000, 1300), Lines{"bus 12 1 1000-1300 1"});
}

TEST_P(Catalogs, KeepTheProblemsOfBlocksThatAreNotReadAgain) {
    WriteJourneys();
    Image().Change<BlkIndexHead_t>(Image().IndexOffset(1),
                                   [](BlkIndexHead_t& head) { head.recSegCount[0] = 0xFFFFFF; });
    const catalog::Added added = Add();
    const size_t problems = Catalog().ProblemsOf(added.disk).size();
    ASSERT_GT(problems, 0u);
    EXPECT_EQ(Add().read, 0u);
    EXPECT_EQ(Catalog().ProblemsOf(added.disk).size(), problems);
}

TEST_P(Catalogs, TakeTextOfADiskForTextAlone) {
    const std::string hostile = "'; DROP TABLE--";
    MakeDisk();
    WriteBlock(0, 1, 1000, 1100, hostile);
    WriteBlock(1, 2, 1101, 1200, "$1 \\x00 \" %s");
    Add("/shelf/'); DELETE FROM disk; --.img");
    catalog::Question question;
    question.to = 10000;
    question.vehicle = hostile;
    EXPECT_EQ(Find(question), Lines{hostile + " 1 1000-1100 1"});
    question.vehicle = "' OR '1' = '1";
    EXPECT_EQ(Find(question), Lines{});
    ASSERT_EQ(Catalog().List().size(), 1u);
    EXPECT_EQ(Catalog().List()[0].source, "/shelf/'); DELETE FROM disk; --.img");
}

TEST_P(Catalogs, RemoveDisks) {
    WriteJourneys();
    const int64_t disk = Add().disk;
    EXPECT_FALSE(Catalog().Remove(disk + 1));
    EXPECT_TRUE(Catalog().Remove(disk));
    EXPECT_FALSE(Catalog().Remove(disk));
    EXPECT_TRUE(Catalog().List().empty());
    EXPECT_EQ(Find(0, 10000), Lines{});
    EXPECT_TRUE(Add().isNew);
}

TEST_P(Catalogs, ShowChannelsOnceTheirLockIsOpen) {
    Format format;
    format.encrypt = 1;
    format.encryptMap = 0x2;
    format.password = "open";
    MakeDisk(format);
    WriteBlock(0, BlockContents::Closed(1, 1000, 1900).Segment(0, 1000, 1900, 9).Segment(1, 1000, 1900, 9));
    Add();
    EXPECT_EQ(Find(0, 10000), Lines{"bus 12 1 1000-1900 1"});
    recordings::Disk& disk = Open();
    ASSERT_TRUE(disk.Unlock("open"));
    catalog::Reading reading;
    reading.source = "/shelf/disk.img";
    reading.printable = [](const std::string& text) { return text; };
    const catalog::Added added = Catalog().Add(disk, recordings::BlockList::Read(disk), reading);
    EXPECT_FALSE(added.isNew);
    EXPECT_EQ(Find(0, 10000), Lines{"bus 12 1 1000-1900 3"});
}

TEST_P(Catalogs, StayAsTheyWereWhenAnAddingIsStopped) {
    WriteJourneys();
    recordings::Disk& disk = Open();
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    catalog::Reading reading;
    reading.printable = [](const std::string& text) { return text; };
    int calls = 0;
    const recordings::Watch stop = [&calls](const recordings::Progress& /*progress*/) { return ++calls < 6; };
    EXPECT_THROW(Catalog().Add(disk, blocks, reading, stop), recordings::Error);
    EXPECT_TRUE(Catalog().List().empty());
    EXPECT_EQ(Find(0, 10000), Lines{});
}

TEST_P(Catalogs, HoldADiskOnceThoughManyAddIt) {
    WriteJourneys();
    Catalog(); // the tables are there
    const std::string path = Image().Path();
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([&] {
            const recordings::Disk disk(recordings::OpenSource(path));
            catalog::Catalog mine(Connect());
            catalog::Reading reading;
            reading.source = path;
            reading.printable = [](const std::string& text) { return text; };
            mine.Add(disk, recordings::BlockList::Read(disk), reading);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Catalog().List().size(), 1u);
    EXPECT_EQ(Find(0, 10000), (Lines{"bus 12 1 1000-1300 1", "bus 12 1 5000-5100 1"}));
}

TEST_P(Catalogs, OfAnEarlierVersionAreBroughtUpToDate) {
    const auto database = Connect();
    catalog::Migrate(*database, 1);
    database->Run("INSERT INTO vehicle (number, identity, longest) VALUES ('bus 7', 'x', 100)");
    database->Run(
        "INSERT INTO disk (head, revision, source, host, description, size, block_size, block_count,"
        " recorded_blocks, hidden, skew, pre_record, alarm_delay, vehicle_id, losses, added, updated, blocks)"
        " VALUES ('h', 1, '/old.img', 'host', '', 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, $1)",
        {catalog::Blob()});
    database->Run(
        "INSERT INTO span (disk_id, vehicle_id, channel, start_time, end_time, first_sequence, last_sequence)"
        " VALUES (1, 1, 2, 1000, 1100, 1, 1)");
    EXPECT_EQ(Find(0, 10000), Lines{"bus 7 1 1000-1100 4"});
    int64_t version = 0;
    database->Run("SELECT version FROM catalog_version", {},
                  [&version](const catalog::Row& row) { version = catalog::NumberIn(row.at(0)); });
    EXPECT_EQ(version, catalog::kSchemaVersion);
    EXPECT_EQ(Catalog().List().at(0).source, "/old.img");
}

TEST_P(Catalogs, AreToldFromDatabasesWithoutOne) {
    EXPECT_FALSE(catalog::HoldsCatalog(*Connect()));
    Catalog();
    EXPECT_TRUE(catalog::HoldsCatalog(*Connect()));
}

TEST_P(Catalogs, OfALaterVersionAreLeftAlone) {
    Catalog();
    Connect()->Run("UPDATE catalog_version SET version = 99");
    try {
        catalog::Catalog late(Connect());
        FAIL();
    } catch (const catalog::Error& error) {
        EXPECT_EQ(std::string(error.what()),
                  "the catalogue is of version 99, and this program knows versions up to 2; use a later one");
    }
}

/// Made up: a disk a vehicle, with 142 hours of eight channels, an hour a span.
void FillWithDisks(catalog::Database& database, int64_t disks) {
    const std::string count =
        "WITH RECURSIVE n (i) AS (SELECT CAST(1 AS BIGINT) UNION ALL SELECT i + 1 FROM n WHERE i < $1) ";
    catalog::Transaction transaction(database);
    database.Run(count +
                     "INSERT INTO vehicle (number, identity, longest) SELECT 'bus ' || i, '', 3599 FROM n",
                 {disks});
    database.Run(
        count + "INSERT INTO disk (head, revision, source, host, description, size, block_size, block_count,"
                " recorded_blocks, hidden, skew, pre_record, alarm_delay, vehicle_id, losses, added, updated,"
                " blocks) SELECT '', 1, '/' || i, '', '', 0, 0, 0, 1, 0, 0, 0, 0, i, 0, 0, 0, $2 FROM n",
        {disks, catalog::Blob()});
    database.Run(count +
                     "INSERT INTO span (disk_id, vehicle_id, channel, start_time, end_time, first_sequence,"
                     " last_sequence) SELECT d.id, d.id, i % 8, i / 8 * 3600, i / 8 * 3600 + 3599, i, i"
                     " FROM n CROSS JOIN disk d",
                 {int64_t{142} * 8});
    transaction.Commit();
}

/// Milliseconds of work that an answer may take. Builds that are not optimised are not made to be quick.
#ifdef NDEBUG
constexpr double kQuick = 10;
#else
constexpr double kQuick = 100;
#endif

/// A server works in processes of its own, which wait for others on a busy machine.
constexpr double kServersWait = 20;

double MillisOf(clockid_t clock) {
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// Milliseconds of a clock that the best of several answers takes.
double BestTime(clockid_t clock, const std::function<void()>& ask) {
    double best = 1e9;
    for (int turn = 0; turn < 5; ++turn) {
        const double begin = MillisOf(clock);
        ask();
        best = std::min(best, MillisOf(clock) - begin);
    }
    return best;
}

TEST_P(Catalogs, AnswerFastAmongManyDisks) {
    Catalog();
    FillWithDisks(*Connect(), 60);
    // SQLite works in this thread: the time that others take of the processor does not count.
    const bool inThread = GetParam() == Engine::Sqlite;
    const clockid_t clock = inThread ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC;
    const double quick = inThread ? kQuick : kServersWait * kQuick;
    catalog::Question question;
    question.vehicle = "bus 30";
    question.from = 70 * 3600;
    question.to = question.from + 600;
    EXPECT_EQ(Find(question), Lines{"bus 30 30 252000-252600 ff"});
    EXPECT_LT(BestTime(clock, [&] { Catalog().Find(question); }), quick);
    question.vehicle.reset();
    EXPECT_EQ(Find(question).size(), 60u);
    EXPECT_LT(BestTime(clock, [&] { Catalog().Find(question); }), 5 * quick);
}

INSTANTIATE_TEST_SUITE_P(Sqlite, Catalogs, ::testing::Values(Engine::Sqlite));
INSTANTIATE_TEST_SUITE_P(Postgres, Catalogs, ::testing::Values(Engine::Postgres));

TEST(CatalogFiles, AreNoOtherFiles) {
    const TempDir dir;
    std::ofstream(dir.File("text")) << std::string(8192, 'x');
    EXPECT_THROW(catalog::Catalog(catalog::OpenDatabase(dir.File("text"))), catalog::Error);
    std::filesystem::create_directory(dir.File("folder"));
    EXPECT_THROW(catalog::OpenDatabase(dir.File("folder")), catalog::Error);
    EXPECT_THROW(catalog::OpenDatabase(dir.File("none/catalog.db")), catalog::Error);
}

std::string ContentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string WhatOpeningSays(const std::string& path) {
    try {
        catalog::Catalog(catalog::OpenDatabase(path));
    } catch (const catalog::Error& error) {
        return error.what();
    }
    return "opened";
}

// SQLite removes what lies under the names of its journals beside a file that is not there yet.
TEST(CatalogFiles, RemoveNoFileThatBearsAJournalsName) {
    for (const char* const ending : {"-journal", "-wal", "-shm"}) {
        const TempDir dir;
        const std::string beside = dir.File("catalog.db") + ending;
        std::ofstream(beside) << "an image";
        EXPECT_THROW(catalog::OpenDatabase(dir.File("catalog.db")), catalog::Error) << ending;
        std::filesystem::create_symlink("catalog.db", dir.File("link.db"));
        EXPECT_THROW(catalog::OpenDatabase(dir.File("link.db")), catalog::Error) << ending;
        EXPECT_EQ(ContentsOf(beside), "an image");
    }
}

/// While it lasts, this process is bound by the rights of files, as root is not.
class WithoutRootsRights {
public:
    WithoutRootsRights() {
        constexpr uid_t kNobody = 65534;
        if (m_before == 0 && seteuid(kNobody) != 0) {
            throw std::runtime_error("root cannot act as another user");
        }
    }
    ~WithoutRootsRights() {
        if (seteuid(m_before) != 0) {
            std::abort(); // all that follows would fail
        }
    }
    WithoutRootsRights(const WithoutRootsRights&) = delete;
    WithoutRootsRights& operator=(const WithoutRootsRights&) = delete;

private:
    uid_t m_before = geteuid();
};

std::string InTheWay(const std::string& path, const std::string& why) {
    return path + ": is in the way: the database would overwrite a file of this name, and " + why +
           "; move it, or give another --database";
}

TEST(CatalogFiles, RemoveNoFileThatCannotBeRead) {
    for (const char* const ending : {"-journal", "-wal", "-shm"}) {
        const TempDir dir;
        std::filesystem::permissions(dir.File(""), std::filesystem::perms::all);
        const std::string beside = dir.File("catalog.db") + ending;
        std::ofstream(beside) << "an image";
        std::filesystem::permissions(beside, std::filesystem::perms::none);
        {
            const WithoutRootsRights nobody;
            EXPECT_EQ(WhatOpeningSays(dir.File("catalog.db")),
                      InTheWay(beside, "this one cannot be read: Permission denied"));
        }
        EXPECT_TRUE(std::filesystem::exists(beside));
        EXPECT_FALSE(std::filesystem::exists(dir.File("catalog.db")));
    }
}

// A pipe would be waited for until another program writes to it.
TEST(CatalogFiles, LeaveAllButRegularFilesAlone) {
    for (const char* const ending : {"-journal", "-wal", "-shm"}) {
        const TempDir dir;
        const auto expectRefused = [&](const std::string& name) {
            const std::string beside = dir.File(name) + ending;
            EXPECT_EQ(WhatOpeningSays(dir.File(name)), InTheWay(beside, "this is no regular file"));
            EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(beside)));
            EXPECT_FALSE(std::filesystem::exists(dir.File(name)));
        };
        ASSERT_EQ(mkfifo((dir.File("pipe.db") + ending).c_str(), 0600), 0);
        expectRefused("pipe.db");
        std::filesystem::create_directory(dir.File("folder.db") + ending);
        expectRefused("folder.db");
        std::filesystem::create_symlink("nowhere", dir.File("link.db") + ending);
        expectRefused("link.db");
    }
}

TEST(CatalogFiles, MayHaveEmptyFilesBeside) {
    for (const char* const ending : {"-journal", "-wal"}) {
        const TempDir dir;
        const std::ofstream empty(dir.File("catalog.db") + ending);
        EXPECT_EQ(WhatOpeningSays(dir.File("catalog.db")), "opened");
    }
}

TEST(CatalogFiles, AreKeptWhateverTheirNames) {
    const TempDir dir;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.File(""));
    catalog::OpenDatabase(":memory:")->Run("CREATE TABLE catalog_version (one BIGINT)");
    std::filesystem::current_path(before);
    EXPECT_TRUE(std::filesystem::exists(dir.File(":memory:")));
}

/// An empty one, that no program has open.
void MakeCatalogue(const std::string& file) {
    const catalog::Catalog made(catalog::OpenDatabase(file));
}

TEST(CatalogFiles, AreRolledBackFromTheirJournals) {
    const TempDir dir;
    MakeCatalogue(dir.File("catalog.db"));
    std::ofstream(dir.File("catalog.db-journal"), std::ios::binary)
        << std::string("\xD9\xD5\x05\xF9\x20\xA1\x63\xD7", 8) << std::string(504, '\0');
    EXPECT_TRUE(catalog::Catalog(catalog::OpenDatabase(dir.File("catalog.db"))).List().empty());
    EXPECT_FALSE(std::filesystem::exists(dir.File("catalog.db-journal")));
}

// Until it is written out, a journal begins with zeros.
TEST(CatalogFiles, AreOpenedWhileAnotherProgramWrites) {
    const TempDir dir;
    MakeCatalogue(dir.File("catalog.db"));
    const auto writer = catalog::OpenDatabase(dir.File("catalog.db"));
    catalog::Transaction transaction(*writer);
    writer->Run("INSERT INTO vehicle (number, identity) VALUES ('bus', '12')");
    ASSERT_EQ(ContentsOf(dir.File("catalog.db-journal")).substr(0, 8), std::string(8, '\0'));
    EXPECT_TRUE(catalog::Catalog(catalog::OpenDatabase(dir.File("catalog.db"))).List().empty());
}

TEST(CatalogFiles, AreNoOtherProgramsDatabases) {
    const TempDir dir;
    const auto other = catalog::OpenDatabase(dir.File("notes.db"));
    other->Run("CREATE TABLE note (text TEXT)");
    const std::string before = ContentsOf(dir.File("notes.db"));
    try {
        catalog::OpenDatabase(dir.File("notes.db"));
        FAIL();
    } catch (const catalog::Error& error) {
        EXPECT_EQ(std::string(error.what()),
                  dir.File("notes.db") +
                      ": is a database of another program; give the catalogue a file of its own");
    }
    EXPECT_EQ(ContentsOf(dir.File("notes.db")), before);
}

TEST(CatalogFiles, SayWhatCanBeDone) {
    const TempDir dir;
    std::ofstream(dir.File("text")) << std::string(1000, 'x');
    EXPECT_EQ(WhatOpeningSays(dir.File("text")),
              dir.File("text") +
                  ": file is not a database; give the catalogue another file, and add the disks again");
    EXPECT_EQ(
        WhatOpeningSays(dir.File("none/catalog.db")),
        dir.File("none/catalog.db") +
            ": unable to open database file; give the catalogue a file in a folder that can be written");
    const std::string tooLong(300, 'x');
    EXPECT_EQ(WhatOpeningSays(dir.File(tooLong)),
              dir.File(tooLong) + ": File name too long; give the catalogue another file");
    const std::string longForAJournal(250, 'x');
    EXPECT_EQ(WhatOpeningSays(dir.File(longForAJournal)),
              dir.File(longForAJournal) + "-journal: File name too long; give the catalogue another file");
    MakeCatalogue(dir.File("catalog.db"));
    std::filesystem::resize_file(dir.File("catalog.db"), 4096); // its first page of many
    EXPECT_EQ(WhatOpeningSays(dir.File("catalog.db")),
              dir.File("catalog.db") + ": database disk image is malformed; give the catalogue another file, "
                                       "and add the disks again");
}

TEST(CatalogServers, ThatCannotBeReachedAreNamed) {
    EXPECT_THROW(catalog::OpenDatabase("postgresql:///x?host=/nowhere"), catalog::Error);
    EXPECT_TRUE(catalog::IsServer("postgres://host/x"));
    EXPECT_FALSE(catalog::IsServer("postgresql"));
}

} // namespace

} // namespace test_support
