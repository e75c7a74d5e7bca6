// The program as a user meets it: its output to the letter, its exit codes, and what it says when things go
// wrong.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <tuple>

#include "search/search_fixture.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

using namespace test_support;
using Json = nlohmann::json;

constexpr uint32_t kBase = 1795183200; // 2026-11-20 14:00:00 UTC

/// A ring of eight blocks of ten minutes each: 0 to 3 closed, 4 still open after ten seconds, the rest never recorded.
/// Channel 0 throughout, channel 3 in the even blocks; two alarms in block 1. Block 6 is bad, block 7 suspect. The closed
/// blocks have an index but no frames: their lists come from that alone.
class Program : public SearchFixture {
protected:
    Program() {
        Format format;
        format.fmtVersion = 1;
        format.blockSize = 0x200000;
        format.description = "Bus 7";
        MakeDisk(format);
        for (uint32_t block = 0; block < 4; ++block) {
            const uint32_t start = kBase + block * 600;
            BlockContents contents = BlockContents::Closed(block + 1, start, start + 599);
            Fill(contents, block, start);
            Disk().WriteBlock(block, contents);
        }
        BlockContents open = BlockContents::Open(5, kBase + 2400);
        std::strcpy(open.head.VehicleNum, "B 4711");
        std::strcpy(open.head.VehicleID, "bus-7");
        open.head.pre_RecTime = 10;
        open.head.AlmDelayTime = 30;
        open.head.prop[0] = {700000, 1, 25, 4, 50, 8000, 8, 320, 1, 0, {0, 0}};
        Disk().WriteBlock(4, open.Channels(0x9));
        RecordOn(4, kBase + 2400, kBase + 2410);
        Disk().SetBad(6);
        Disk().SetSuspect(7, 2);
    }

    /// Adds a frame after those of a block that it has already. It counts for a kilobyte of its record.
    void AddFrame(uint32_t block, uint32_t type, uint32_t channel, uint32_t second,
                  std::vector<uint8_t> payload = std::vector<uint8_t>(1004)) {
        const FrameHead_t head = {Pts(second), BLOCK_MAGIC, type, channel,
                                  static_cast<uint32_t>(payload.size())};
        Disk().Put(Disk().FrameOffset(block, m_frameEnd[block]), head);
        Disk().Write(Disk().FrameOffset(block, m_frameEnd[block]) + sizeof head, payload.data(),
                     payload.size());
        m_frameEnd[block] += static_cast<uint32_t>(sizeof head + payload.size());
        Disk().Put(Disk().FrameOffset(block, m_frameEnd[block]), kEndMark);
    }

    /// Adds a picture a second of both channels, every fifth a key frame.
    void RecordOn(uint32_t block, uint32_t first, uint32_t last) {
        for (uint32_t second = first; second <= last; ++second) {
            AddFrame(block, second % 5 == 0 ? 1 : 0, 0, second);
            AddFrame(block, second % 5 == 0 ? 1 : 0, 3, second);
        }
    }

    static void Fill(BlockContents& contents, uint32_t block, uint32_t start) {
        contents.head.pre_RecTime = 10;
        contents.head.AlmDelayTime = 30;
        contents.Segment(0, start, start + 599, 599 * 1024);
        if (block % 2 == 0) {
            contents.Segment(3, start + 100, start + 400, 300 * 2048);
        }
        if (block == 1) {
            contents.Event(Pts(start + 60), 0x1).Event(Pts(start + 300), 0x4);
        }
    }

    ProgramResult Run(std::vector<std::string> arguments, const ProgramSetting& setting = {}) const {
        arguments.insert(arguments.begin(), DISKACCESS_PROGRAM);
        return RunProgram(arguments, setting);
    }

    /// Runs a command on the test's disk in UTC and expects it to succeed in silence.
    std::string Show(const std::string& command, std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {command, File("disk"), "--utc"});
        const ProgramResult result = Run(options);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    /// Expects a command to fail with one line on standard error and nothing on standard output.
    std::string Refused(const std::vector<std::string>& arguments, int exitCode = 1,
                        const ProgramSetting& setting = {}) const {
        const ProgramResult result = Run(arguments, setting);
        EXPECT_EQ(result.exitCode, exitCode);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        return result.err;
    }

    std::map<uint32_t, uint32_t> m_frameEnd; ///< of each block: where its next frame goes
    /// What the recorder writes after the last frame.
    static constexpr FrameHead_t kEndMark = {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};

    void Lock(const char* password) {
        Disk().EditHead([password](PartHead_t& head) {
            head.Encrypt = 1;
            head.EncryptMap = 0x8;
            std::strcpy(head.CipherCode, password);
        });
    }
};

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// The lines of a listing that are records: those that begin with a channel.
size_t RecordLines(const std::string& text) {
    std::istringstream lines(text.substr(0, text.find("\n\n")));
    std::string line;
    size_t count = 0;
    while (std::getline(lines, line)) {
        count += Contains(line, "2026-") ? 1u : 0u;
    }
    return count;
}

// ---- what the commands show

TEST_F(Program, List) {
    EXPECT_EQ(
        Show("list"),
        "CHANNEL  START                END                  LENGTH       SIZE  ALARM  BLOCK  SEGMENT  NOTE\n"
        "      0  2026-11-20 14:00:00  2026-11-20 14:09:59    9:59  599.0 KiB      -      0        0\n"
        "      3  2026-11-20 14:01:40  2026-11-20 14:06:40    5:00  600.0 KiB      -      0        0\n"
        "      0  2026-11-20 14:10:00  2026-11-20 14:19:59    9:59  599.0 KiB    0x5      1        0\n"
        "      0  2026-11-20 14:20:00  2026-11-20 14:29:59    9:59  599.0 KiB      -      2        0\n"
        "      3  2026-11-20 14:21:40  2026-11-20 14:26:40    5:00  600.0 KiB      -      2        0\n"
        "      0  2026-11-20 14:30:00  2026-11-20 14:39:59    9:59  599.0 KiB      -      3        0\n"
        "      0  2026-11-20 14:40:00  2026-11-20 14:40:10    0:10   11.0 KiB      -      4        0  not "
        "closed\n"
        "      3  2026-11-20 14:40:00  2026-11-20 14:40:10    0:10   11.0 KiB      -      4        0  not "
        "closed\n"
        "\n"
        "CHANNEL  RECORDS  LENGTH     SIZE\n"
        "      0        5   40:06  2.4 MiB\n"
        "      3        3   10:10  1.2 MiB\n"
        "\n"
        "Records  8\n"
        "Length   50:16\n"
        "Size     3.5 MiB\n");
}

TEST_F(Program, ListCutWhereAlarmsBeginAndEnd) {
    // Alarms at 14:11:00 and 14:15:00, ten seconds before and thirty behind; 1024 bytes a second.
    const std::string list = Show(
        "list", {"--mix", "--channel", "0", "--from", "2026-11-20 14:10", "--to", "2026-11-20 14:19:59"});
    EXPECT_EQ(
        list,
        "CHANNEL  START                END                  LENGTH       SIZE  ALARM  BLOCK  SEGMENT  NOTE\n"
        "      0  2026-11-20 14:10:00  2026-11-20 14:10:50    0:50   50.0 KiB      -      1        0\n"
        "      0  2026-11-20 14:10:50  2026-11-20 14:11:30    0:40   40.0 KiB    0x1      1        0\n"
        "      0  2026-11-20 14:11:30  2026-11-20 14:14:50    3:20  200.0 KiB      -      1        0\n"
        "      0  2026-11-20 14:14:50  2026-11-20 14:15:30    0:40   40.0 KiB    0x4      1        0\n"
        "      0  2026-11-20 14:15:30  2026-11-20 14:19:59    4:29  269.0 KiB      -      1        0\n"
        "\n"
        "CHANNEL  RECORDS  LENGTH       SIZE\n"
        "      0        5    9:59  599.0 KiB\n"
        "\n"
        "Records  5\n"
        "Length   9:59\n"
        "Size     599.0 KiB\n");
    EXPECT_EQ(RecordLines(Show("list", {"--mix", "--alarm", "0x4"})), 1u);
    EXPECT_EQ(RecordLines(Show("list", {"--mix", "--alarm", "0x2"})), 0u);
    EXPECT_EQ(SchemaErrors("list", Json::parse(Show("list", {"--mix", "--json"}))), "");
}

TEST_F(Program, ListOfARangeAndChannel) {
    EXPECT_EQ(
        Show("list", {"--from", "2026-11-20 14:05", "--to", "2026-11-20 14:12", "--channel", "0"}),
        "CHANNEL  START                END                  LENGTH       SIZE  ALARM  BLOCK  SEGMENT  NOTE\n"
        "      0  2026-11-20 14:05:00  2026-11-20 14:09:59    4:59  299.0 KiB      -      0        0\n"
        "      0  2026-11-20 14:10:00  2026-11-20 14:12:00    2:00  120.0 KiB    0x1      1        0\n"
        "\n"
        "CHANNEL  RECORDS  LENGTH       SIZE\n"
        "      0        2    6:59  419.0 KiB\n"
        "\n"
        "Records  2\n"
        "Length   6:59\n"
        "Size     419.0 KiB\n");
}

TEST_F(Program, ListOfSeveralChannels) {
    EXPECT_EQ(RecordLines(Show("list", {"--channel", "3"})), 3u);
    EXPECT_EQ(RecordLines(Show("list", {"--channel", "0,3"})), 8u);
    EXPECT_EQ(RecordLines(Show("list", {"--channel", "1-31"})), 3u);
    EXPECT_EQ(RecordLines(Show("list", {"--channel", "all"})), 8u);
    EXPECT_EQ(Show("list", {"--channel", "5"}), "Records  0\nLength   0:00\nSize     0 B\n");
}

TEST_F(Program, ListAroundAlarms) {
    EXPECT_EQ(
        Show("list", {"--alarm", "0x4", "--channel", "0"}),
        "CHANNEL  START                END                  LENGTH      SIZE  ALARM  BLOCK  SEGMENT  NOTE\n"
        "      0  2026-11-20 14:14:50  2026-11-20 14:15:30    0:40  40.0 KiB    0x4      1        0\n"
        "\n"
        "CHANNEL  RECORDS  LENGTH      SIZE\n"
        "      0        1    0:40  40.0 KiB\n"
        "\n"
        "Records  1\n"
        "Length   0:40\n"
        "Size     40.0 KiB\n");
    EXPECT_EQ(RecordLines(Show("list", {"--alarm", "5", "--channel", "0"})), 2u);
    EXPECT_EQ(RecordLines(Show("list", {"--alarm", "all", "--channel", "0"})), 2u);
    EXPECT_EQ(RecordLines(Show("list", {"--alarm", "0x8"})), 0u);
}

TEST_F(Program, ListMissesNothingBehindABadBlock) {
    // Recorders look for 14:25 by halving blocks 0 to 4 and come to block 2; where that is bad, they begin after it,
    // and never see the end of block 1.
    Disk().SetBad(2);
    const auto shown = [this](const std::string& command, const std::string& from) {
        return Run({command, File("disk"), "--utc", "--from", from});
    };
    const ProgramResult list = shown("list", "2026-11-20 14:15");
    EXPECT_TRUE(
        Contains(list.out, "2026-11-20 14:15:00  2026-11-20 14:19:59    4:59  299.0 KiB    0x4      1"))
        << list.out;
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_EQ(list.err, "diskaccess: block 2: is marked bad and not read, but holds a recording\n");
    EXPECT_TRUE(Contains(shown("events", "2026-11-20 14:15").out, "14:15:00   0x4"));
    EXPECT_FALSE(Contains(shown("events", "2026-11-20 14:15:01").out, "0x4"));
}

TEST_F(Program, Events) {
    EXPECT_EQ(Show("events"), "TIME                 TYPE  CHANNEL  BLOCK  ENTRY  NOTE\n"
                              "2026-11-20 14:11:00   0x1  -            1      0\n"
                              "2026-11-20 14:15:00   0x4  -            1      1\n"
                              "\n"
                              "Events  2\n");
    EXPECT_EQ(Show("events", {"--alarm", "0x8"}), "Events  0\n");
}

TEST_F(Program, EventRangeIncludesItsEnds) {
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20 14:11:00", "--to", "2026-11-20 14:15:00"}),
                         "Events  2"));
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20 14:11:01", "--to", "2026-11-20 14:14:59"}),
                         "Events  0"));
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20", "--to", "2026-11-20"}), "Events  2"));
    EXPECT_TRUE(Contains(Show("events", {"--to", "2026-11-19"}), "Events  0"));
}

TEST_F(Program, EventsOfTheFirstSecondAndTheNewestBlock) {
    BlockContents first = BlockContents::Closed(1, kBase, kBase + 599);
    first.Segment(0, kBase, kBase + 599, 599 * 1024);
    first.Event(Pts(kBase), 0x10).Event(Pts(kBase + 1), 0x20);
    Disk().WriteBlock(0, first);
    BlockContents newest = BlockContents::Closed(5, kBase + 2400, kBase + 2999);
    newest.head.pre_RecTime = 10;
    newest.head.AlmDelayTime = 30;
    newest.Segment(0, kBase + 2400, kBase + 2999, 599 * 1024);
    newest.Event(Pts(kBase + 2400), 0x40).Event(Pts(kBase + 2700), 0x80);
    Disk().WriteBlock(4, newest);
    EXPECT_EQ(Show("events"), "TIME                 TYPE  CHANNEL  BLOCK  ENTRY  NOTE\n"
                              "2026-11-20 14:00:00  0x10  -            0      0\n"
                              "2026-11-20 14:00:01  0x20  -            0      1\n"
                              "2026-11-20 14:11:00   0x1  -            1      0\n"
                              "2026-11-20 14:15:00   0x4  -            1      1\n"
                              "2026-11-20 14:40:00  0x40  -            4      0\n"
                              "2026-11-20 14:45:00  0x80  -            4      1\n"
                              "\n"
                              "Events  6\n");
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20 14:41"}), "Events  1"));
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20 14:45:00"}), "14:45:00  0x80"));
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20 14:45:01"}), "Events  0"));
    EXPECT_TRUE(Contains(Show("events", {"--to", "2026-11-20 14:00:00"}), "Events  1"));
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20 14:00:01", "--alarm", "0x30"}), "Events  1"));
    EXPECT_TRUE(Contains(Show("events", {"--alarm", "0x8"}), "Events  0"));
    const std::string around = Show("list", {"--alarm", "0x80", "--from", "2026-11-20 14:41"});
    EXPECT_TRUE(Contains(around, "2026-11-20 14:44:50  2026-11-20 14:45:30    0:40  40.0 KiB   0x80      4"))
        << around;
}

TEST_F(Program, AlarmsThatReachIntoTheRange) {
    // The alarm of 14:15:00 goes from 14:14:50 to 14:15:30.
    const auto around = [this](const char* from, const char* to) {
        const std::string shown =
            Show("list", {"--alarm", "0x4", "--channel", "0", "--from", from, "--to", to});
        return RecordLines(shown) == 0 ? "" : shown.substr(shown.find("2026-"), 40);
    };
    EXPECT_EQ(around("2026-11-20 14:15:00", "2026-11-20 14:18:00"),
              "2026-11-20 14:15:00  2026-11-20 14:15:30");
    EXPECT_EQ(around("2026-11-20 14:15:20", "2026-11-20 14:18:00"),
              "2026-11-20 14:15:20  2026-11-20 14:15:30");
    EXPECT_EQ(around("2026-11-20 14:12:00", "2026-11-20 14:15:00"),
              "2026-11-20 14:14:50  2026-11-20 14:15:00");
    EXPECT_EQ(around("2026-11-20 14:12:00", "2026-11-20 14:14:55"),
              "2026-11-20 14:14:50  2026-11-20 14:14:55");
    EXPECT_EQ(around("2026-11-20 14:15:31", "2026-11-20 14:18:00"), "");
    EXPECT_EQ(around("2026-11-20 14:12:00", "2026-11-20 14:14:49"), "");
}

TEST_F(Program, AlarmsThatMeetAreOneStretch) {
    // 14:14:30 is in the second alarm's time before, and has 10 minutes of its own behind it.
    BlockContents first = BlockContents::Closed(2, kBase + 600, kBase + 1199);
    first.Segment(0, kBase + 600, kBase + 1199, 599 * 1024);
    first.Event(Pts(kBase + 870), 0x1).Event(Pts(kBase + 900), 0x4);
    first.head.pre_RecTime = 20;
    first.head.AlmDelayTime = 30;
    Disk().WriteBlock(1, first);
    const std::string shown = Show("list", {"--alarm", "0x5", "--channel", "0"});
    EXPECT_TRUE(Contains(shown, "2026-11-20 14:14:10  2026-11-20 14:15:30    1:20  80.0 KiB    0x5      1"))
        << shown;
}

/// The disk, with a recording of another time in block 5, the newest.
class ProgramOddTimes : public Program {
protected:
    void AddBlock(uint32_t start) {
        BlockContents contents = BlockContents::Closed(6, start, start + 599);
        Fill(contents, 1, start);
        Disk().WriteBlock(5, contents);
    }
};

TEST_F(ProgramOddTimes, ClockThatWasSetBack) {
    AddBlock(kBase - 7200); // 12:00
    EXPECT_TRUE(Contains(Show("list", {"--channel", "0"}), "2026-11-20 12:00:00  2026-11-20 12:09:59"));
    EXPECT_TRUE(Contains(Show("events"), "2026-11-20 12:05:00   0x4  -            5"));
    EXPECT_TRUE(Contains(Show("events"), "Events  4"));
    const std::vector<std::string> range = {"--from", "2026-11-20 12:02", "--to", "2026-11-20 12:08"};
    EXPECT_TRUE(Contains(Show("list", range), "2026-11-20 12:02:00  2026-11-20 12:08:00"));
    EXPECT_TRUE(Contains(Show("events", range), "Events  1"));
    EXPECT_TRUE(
        Contains(Show("events", {"--from", "2026-11-20 12:02", "--to", "2026-11-20 14:12"}), "Events  2"));
}

TEST_F(ProgramOddTimes, ClockThatWasAhead) {
    BlockContents ahead = BlockContents::Closed(5, kBase + 86400 * 5, kBase + 86400 * 5 + 599);
    Fill(ahead, 1, kBase + 86400 * 5);
    Disk().WriteBlock(4, ahead);
    AddBlock(kBase + 3600);
    EXPECT_TRUE(Contains(Show("list", {"--from", "2026-11-20 15:00", "--to", "2026-11-20 15:05"}),
                         "2026-11-20 15:00:00  2026-11-20 15:05:00"));
    EXPECT_TRUE(
        Contains(Show("events", {"--from", "2026-11-20 15:00", "--to", "2026-11-20 15:05"}), "Events  2"));
    EXPECT_TRUE(Contains(Show("list"), "2026-11-25 14:00:00  2026-11-25 14:09:59"));
}

TEST_F(ProgramOddTimes, DamagedHeadsHideNoBlock) {
    const auto expectAll = [this](uint32_t block, const std::function<void(BlockHead_t&)>& damage) {
        const auto head = Disk().Get<BlockHead_t>(Disk().HeadOffset(block));
        Disk().Change<BlockHead_t>(Disk().HeadOffset(block), damage);
        const ProgramResult result = Run({"list", File("disk"), "--utc", "--channel", "0"});
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(RecordLines(result.out), 5u);
        const std::string line =
            "diskaccess: block " + std::to_string(block) + ": its head is damaged; it is read all the same\n";
        EXPECT_TRUE(result.err.empty() || result.err == line) << result.err;
        Disk().Put(Disk().HeadOffset(block), head);
    };
    expectAll(2, [](BlockHead_t& head) { head.RecSeq = 0; });
    expectAll(0, [](BlockHead_t& head) { head.RecSeq = 0; });
    expectAll(2, [](BlockHead_t& head) { head.RecSeq = 0x7FFFFFFF; });
    expectAll(0, [](BlockHead_t& head) { head.RecTime = 0; });
    expectAll(0, [](BlockHead_t& head) { head.RecTime = kBase + 86400; });
}

TEST_F(ProgramOddTimes, BlocksThatHoldNoHeadAreRefused) {
    Disk().EditHead([](PartHead_t& head) { head.BlkSize = 1; });
    EXPECT_TRUE(Contains(Refused({"events", File("disk")}), "its head states 8 blocks of 1 bytes;"));
}

TEST_F(ProgramOddTimes, TimesThatRecordersDoNotSearchAreShown) {
    AddBlock(0x80000000 + 3600);
    EXPECT_TRUE(Contains(Show("list", {"--channel", "0"}), "2038-01-19 04:14:08  2038-01-19 04:24:07"));
    EXPECT_TRUE(Contains(Show("events"), "2038-01-19 04:19:08   0x4  -            5"));
    EXPECT_TRUE(Contains(Show("events", {"--from", "2038-01-19 04:19:08"}), "Events  1"));
    EXPECT_TRUE(Contains(Show("units"), "2038-01-19 04:14:08"));
}

TEST_F(ProgramOddTimes, AnOpenBlockWithoutTheChannelEndsNoSearch) {
    Disk().Change<BlockHead_t>(Disk().HeadOffset(4), [](BlockHead_t& head) { head.media_chn_bitmap = 0x8; });
    AddBlock(kBase + 3000);
    EXPECT_TRUE(Contains(Show("list", {"--channel", "0", "--from", "2026-11-20 14:35"}),
                         "2026-11-20 14:50:00  2026-11-20 14:59:59"));
}

TEST_F(Program, Days) {
    EXPECT_EQ(Show("days"), "       November 2026\n"
                            " Mo  Tu  We  Th  Fr  Sa  Su\n"
                            "                          1\n"
                            "  2   3   4   5   6   7   8\n"
                            "  9  10  11  12  13  14  15\n"
                            " 16  17  18  19 [20] 21  22\n"
                            " 23  24  25  26  27  28  29\n"
                            " 30\n"
                            "\n"
                            "Days  1\n");
}

TEST_F(Program, DaysOfSeveralMonths) {
    // Block 0 was recorded on 2026-02-28, the others stay in November.
    Disk().WriteBlock(0,
                      BlockContents::Closed(1, 1772236800, 1772236900).Segment(0, 1772236800, 1772236900, 1));
    const std::string shown = Show("days");
    EXPECT_TRUE(Contains(shown, "       February 2026\n"
                                " Mo  Tu  We  Th  Fr  Sa  Su\n"
                                "                          1\n"));
    EXPECT_TRUE(Contains(shown, " 23  24  25  26  27 [28]\n\n       November 2026\n"));
}

TEST_F(Program, DaysAreThoseOfTheZoneAndOfTrueTime) {
    // Recorded from 14:00 to 14:40 UTC of the 20th: in a zone that is 9:45 ahead midnight comes at 14:15.
    const auto days = [this](std::vector<std::string> options) {
        options.insert(options.begin(), {"days", File("disk"), "--json"});
        const Json document = Json::parse(Run(options).out);
        std::string dates;
        for (const Json& day : document["days"]) {
            dates += day["date"].get<std::string>() + " ";
        }
        return dates;
    };
    EXPECT_EQ(days({"--utc"}), "2026-11-20 ");
    EXPECT_EQ(days({"--tz", "EAST-9:45"}), "2026-11-20 2026-11-21 ");
    EXPECT_EQ(days({"--tz", "EAST-10"}), "2026-11-21 ");
    EXPECT_EQ(days({"--tz", "WEST+14:20"}), "2026-11-19 2026-11-20 ");
    // A clock that was two days, and one that was 14 hours and a half, ahead.
    EXPECT_EQ(days({"--utc", "--skew", "172800"}), "2026-11-18 ");
    EXPECT_EQ(days({"--utc", "--skew", "52200"}), "2026-11-19 2026-11-20 ");
    EXPECT_TRUE(Contains(Show("days", {"--skew", "172800"}), " 16  17 [18] 19  20  21  22\n"));
    // A clock that was so far ahead that the recordings are older than 1970.
    EXPECT_EQ(days({"--utc", "--skew", "1795269600"}), "1969-12-31 ");
    EXPECT_TRUE(Contains(Show("days", {"--skew", "1795269600"}), "       December 1969\n"));
}

TEST_F(Program, Units) {
    EXPECT_EQ(Show("units"),
              "BLOCK  STATE       MARK     START                END                  CHANNELS\n"
              "    0  closed      -        2026-11-20 14:00:00  2026-11-20 14:09:59  0,3\n"
              "    1  closed      -        2026-11-20 14:10:00  2026-11-20 14:19:59  0\n"
              "    2  closed      -        2026-11-20 14:20:00  2026-11-20 14:29:59  0,3\n"
              "    3  closed      -        2026-11-20 14:30:00  2026-11-20 14:39:59  0\n"
              "    4  not closed  -        2026-11-20 14:40:00  -                    0,3\n"
              "    6  empty       bad      -                    -                    -\n"
              "    7  empty       suspect  -                    -                    -\n"
              "\n"
              "Recorded            5\n"
              "Unusable            2\n"
              "Blocks in the ring  8\n");
}

TEST_F(Program, UnitsThatAreNotWhatTheyShouldBe) {
    Disk().SetSuspect(1, 3);
    EXPECT_TRUE(
        Contains(Show("units"), "    1  closed      suspect  2026-11-20 14:10:00  2026-11-20 14:19:59  0\n"));
    // Between blocks of this recording, and without a head: it was recorded.
    Disk().Change<BlockHead_t>(Disk().HeadOffset(3), [](BlockHead_t& head) { head = {}; });
    Disk().Change<BlockTail_t>(Disk().TailOffset(3), [](BlockTail_t& tail) { tail = {}; });
    Disk().Change<BlockTailEx_t>(Disk().TailExOffset(3), [](BlockTailEx_t& tail) { tail = {}; });
    const ProgramResult wiped = Run({"units", File("disk"), "--utc"});
    EXPECT_EQ(wiped.exitCode, 3);
    EXPECT_TRUE(
        Contains(wiped.out, "    3  wiped       -        -                    -                    -\n"))
        << wiped.out;
    // On a disk that was never used.
    PartitionImage empty = PartitionImage::Create(File("empty"), {});
    empty.Change<BlockHead_t>(empty.HeadOffset(5), [](BlockHead_t& head) { head.ValidFlag = 0; });
    EXPECT_TRUE(Contains(Run({"units", File("empty")}).out, "    5  invalid  -     -      -    -\n"));
}

TEST_F(Program, Space) {
    EXPECT_EQ(Show("space"), "Total                              16.0 MiB\n"
                             "Used                               10.0 MiB\n"
                             "Free                               6.0 MiB\n"
                             "Overwriting its oldest recordings  no\n");
}

TEST_F(Program, Info) {
    EXPECT_EQ(Show("info"),
              "Device                    image file\n"
              "Device size               24.0 MiB\n"
              "Description               Bus 7\n"
              "Magic                     0xaa55aa55\n"
              "Block layout              extended\n"
              "Blocks                    8\n"
              "Block size                2.0 MiB\n"
              "Bad blocks                1\n"
              "Suspect blocks            1\n"
              "Access lock               no\n"
              "Locked channels           none\n"
              "Oldest block              0\n"
              "Recorded from             2026-11-20 14:00:00\n"
              "Newest block              4\n"
              "Newest block from         2026-11-20 14:40:00\n"
              "Recorded to               2026-11-20 14:40:10\n"
              "Newest block closed       no\n"
              "Vehicle number            B 4711\n"
              "Vehicle id                bus-7\n"
              "Recorded before an alarm  0:10\n"
              "Recorded after an alarm   0:30\n"
              "\n"
              "CHANNEL  VIDEO  FPS  SIZE CODE  BITRATE  GOP  AUDIO  SAMPLE RATE  BITS  AUDIO FRAME\n"
              "      0      1   25          4   700000   50      1         8000     8          320\n"
              "      3      0    0          0        0    0      0            0     0            0\n");
}

TEST_F(Program, EmptyDisk) {
    PartitionImage::Create(File("empty"), {});
    EXPECT_TRUE(std::regex_search(Run({"info", File("empty")}).out, std::regex("\nOldest block +-\n")));
    EXPECT_EQ(Run({"list", File("empty")}).out, "Records  0\nLength   0:00\nSize     0 B\n");
    EXPECT_EQ(Run({"days", File("empty")}).out, "Days  0\n");
    EXPECT_EQ(Run({"events", File("empty")}).out, "Events  0\n");
    EXPECT_EQ(Run({"units", File("empty")}).exitCode, 0);
    EXPECT_EQ(Run({"space", File("empty")}).exitCode, 0);
}

// ---- times

TEST_F(Program, ZonesOfTimes) {
    ProgramSetting setting;
    setting.environment = {"TZ=America/New_York"};
    EXPECT_TRUE(Contains(Run({"events", File("disk")}, setting).out, "2026-11-20 09:11:00"));
    EXPECT_TRUE(Contains(Run({"events", File("disk"), "--utc"}, setting).out, "2026-11-20 14:11:00"));
    EXPECT_TRUE(
        Contains(Run({"events", File("disk"), "--tz", "Europe/Berlin"}, setting).out, "2026-11-20 15:11:00"));
    // Typed times are read in the same zone.
    EXPECT_TRUE(
        Contains(Run({"events", File("disk"), "--tz", "Europe/Berlin", "--from", "2026-11-20 15:12"}).out,
                 "Events  1"));
}

TEST_F(Program, SkewOfTheRecordersClock) {
    // The recorder was an hour and a half ahead: what it wrote as 14:11 happened at 12:41.
    const std::vector<std::string> skew = {"--skew", "5400"};
    EXPECT_TRUE(Contains(Show("events", skew), "2026-11-20 12:41:00"));
    EXPECT_TRUE(Contains(Show("events", {"--skew", "5400", "--from", "2026-11-20 12:42"}), "Events  1"));
    EXPECT_TRUE(Contains(Show("events", {"--skew", "-60"}), "2026-11-20 14:12:00"));
}

TEST_F(Program, ATimeOfDayIsOneOfTheDayOfFrom) {
    // The events are at 14:11:00 and 14:15:00.
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20 14:10", "--to", "14:14:59"}), "Events  1"));
    EXPECT_TRUE(Contains(Show("events", {"--from", "2026-11-20", "--to", "14:15"}), "Events  2"));
    EXPECT_TRUE(Contains(Refused({"events", File("disk"), "--from", "2026-11-20 14:10", "--to", "14:09"}, 2),
                         "--from lies after --to"));
    // 14:50 UTC is 01:50 of the next day in Tokyo's zone plus two.
    EXPECT_TRUE(Contains(
        Run({"events", File("disk"), "--tz", "JST-11", "--from", "2026-11-20T14:00Z", "--to", "01:11:30"})
            .out,
        "Events  1"));
    EXPECT_TRUE(Contains(
        Run({"play", File("disk"), "--utc", "--iframes", "--from", "2026-11-20 14:40", "--seek", "14:40:10"})
            .out,
        "2026-11-20 14:40:10.000"));
}

TEST_F(Program, TimesPrintedCanBeTyped) {
    const std::string shown = Show("events");
    const std::string time = shown.substr(shown.find('\n') + 1, 19);
    EXPECT_EQ(time, "2026-11-20 14:11:00");
    EXPECT_TRUE(Contains(Show("events", {"--from", time, "--to", time}), "Events  1"));
}

// ---- machine formats

TEST_F(Program, JsonKeepsToItsSchema) {
    for (const char* const command : {"info", "list", "events", "days", "units", "space"}) {
        const auto validate = [command](const Json& document) { return SchemaErrors(command, document); };
        const Json document = Json::parse(Show(command, {"--json"}));
        EXPECT_EQ(validate(document), "") << command << document.dump(1);
        PartitionImage::Create(File("empty"), {});
        EXPECT_EQ(validate(Json::parse(Run({command, File("empty"), "--json"}).out)), "") << command;
        std::remove(File("empty").c_str());
        // The schema does refuse what it should.
        Json spoiled = document;
        spoiled["schema_version"] = 2;
        EXPECT_NE(validate(spoiled), "");
        spoiled = document;
        spoiled["more"] = 1;
        EXPECT_NE(validate(spoiled), "");
    }
}

TEST_F(Program, JsonValues) {
    const Json list = Json::parse(Show("list", {"--format", "JSON", "--channel", "0"}));
    EXPECT_EQ(list["schema_version"], 1);
    EXPECT_EQ(list["command"], "list");
    EXPECT_EQ(list["partition"], File("disk"));
    EXPECT_EQ(list["record_count"], 5);
    EXPECT_EQ(list["size_bytes"], 4 * 599 * 1024 + 11 * 1024);
    EXPECT_EQ(list["records"][1], (Json{{"channel", 0},
                                        {"start", "2026-11-20T14:10:00Z"},
                                        {"end", "2026-11-20T14:19:59Z"},
                                        {"length_seconds", 599},
                                        {"size_bytes", 599 * 1024},
                                        {"event_types", 5},
                                        {"block", 1},
                                        {"segment", 0},
                                        {"closed", true},
                                        {"mark", nullptr}}));
    EXPECT_EQ(list["records"][4]["closed"], false);
    EXPECT_EQ(list["records"][4]["size_bytes"], 11 * 1024);
    const Json units = Json::parse(Show("units", {"--json"}));
    EXPECT_EQ(units["units"][0]["channels"], (Json{0, 3}));
    EXPECT_EQ(Json::parse(Show("days", {"--json"}))["days"], (Json{{{"date", "2026-11-20"}}}));
}

TEST_F(Program, NdjsonHasALineARecord) {
    std::istringstream lines(Show("events", {"--format", "ndjson"}));
    std::string line;
    std::vector<Json> events;
    while (std::getline(lines, line)) {
        events.push_back(Json::parse(line));
    }
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1], (Json{{"time", "2026-11-20T14:15:00Z"},
                               {"event_types", 4},
                               {"channel", nullptr},
                               {"block", 1},
                               {"entry", 1},
                               {"closed", true},
                               {"mark", nullptr}}));
    EXPECT_EQ(Json::parse(Show("info", {"--format", "ndjson"}))["block_count"], 8);
}

TEST_F(Program, CsvHasAHeaderAndALineARecord) {
    EXPECT_EQ(Show("events", {"--format", "csv"}), "time,event_types,channel,block,entry,closed,mark\r\n"
                                                   "2026-11-20T14:11:00Z,1,,1,0,true,\r\n"
                                                   "2026-11-20T14:15:00Z,4,,1,1,true,\r\n");
    EXPECT_TRUE(Contains(Show("units", {"--format", "csv"}),
                         "0,closed,,2026-11-20T14:00:00Z,2026-11-20T14:09:59Z,\"0,3\"\r\n"));
    EXPECT_TRUE(
        Contains(Show("space", {"--format", "csv"}),
                 "ring_size_bytes,used_bytes,free_bytes,wrapped\r\n16777216,10485760,6291456,false\r\n"));
}

TEST_F(Program, NamesOnTheDiskAreShownEscaped) {
    Disk().EditHead([](PartHead_t& head) { std::memcpy(head.Description, "\x1b[2J\xff\x80 bus", 10); });
    EXPECT_TRUE(Contains(Show("info"), "Description               \\x1b[2J\\xff\\x80 bus\n"));
    EXPECT_EQ(Json::parse(Show("info", {"--json"}))["description"], "\\x1b[2J\\xff\\x80 bus");
    Disk().EditHead([](PartHead_t& head) { std::memset(head.Description, 'x', sizeof head.Description); });
    EXPECT_TRUE(Contains(Show("info"), std::string(32, 'x') + "\n"));
}

TEST_F(Program, NamesInMessagesAreShownEscaped) {
    const std::string name = File("a\n\x1b[2J\\\xe2\x80\xae\xff");
    const std::string escaped = File("a") + R"(\x0a\x1b[2J\\\xe2\x80\xae\xff)";
    EXPECT_EQ(Refused({"list", name}),
              "diskaccess: " + escaped + ": cannot be opened: No such file or directory; check the name\n");
    std::ofstream(name) << "no partition";
    EXPECT_EQ(Refused({"list", name}).rfind("diskaccess: " + escaped + ": is cut off after", 0), 0u);
    EXPECT_TRUE(Contains(Refused({"list", name, "--from", "\x1b"}, 2), ": '\\x1b' is not a time"));
    EXPECT_TRUE(Contains(Refused({"\x1b"}, 2), ": '\\x1b' is not a command"));
    EXPECT_TRUE(Contains(Refused({"list", name, "--\x1b"}, 2), ": list has no option --\\x1b;"));
    EXPECT_TRUE(Contains(Refused({"list", name, "--format", "\xff"}, 2), ": --format: '\\xff' is none of "));
    EXPECT_TRUE(Contains(Refused({"list", name, "--tz", "\a"}, 2), "no zone is called '\\x07'"));
    EXPECT_TRUE(
        Contains(Refused({"export", File("disk"), "-o", name + "/x"}), escaped + "/x: cannot be made"));
    ASSERT_EQ(rename(File("disk").c_str(), name.c_str()), 0);
    EXPECT_EQ(Json::parse(Run({"space", name, "--json"}).out)["partition"], escaped);
}

// ---- the program's own channels

TEST_F(Program, ClosedPipeIsNoError) {
    ProgramSetting setting;
    setting.closedPipe = true;
    const ProgramResult result = Run({"list", File("disk")}, setting);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(Program, FullDiskBehindStandardOutputIsAnError) {
    const ProgramResult result = RunProgram(
        {"sh", "-c", std::string("exec ") + DISKACCESS_PROGRAM + " list " + File("disk") + " > /dev/full"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: standard output cannot be written: No space left on device\n");
}

TEST_F(Program, WorksWithoutStandardInput) {
    ProgramSetting setting;
    setting.closeStandardInput = true;
    EXPECT_TRUE(Contains(Run({"events", File("disk"), "--utc"}, setting).out, "Events  2"));
}

TEST_F(Program, NothingButReadingEverReachesOpen) {
    for (const char* const command : {"info", "list", "events", "days", "units", "space"}) {
        ProgramSetting setting;
        setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_WATCH=" + File("disk"),
                               "SHIM_LOG=" + File("log")};
        EXPECT_EQ(Run({command, File("disk"), "--alarm", "all"}, setting).exitCode,
                  command == std::string("list") || command == std::string("events") ? 0 : 2);
        EXPECT_EQ(Run({command, File("disk")}, setting).exitCode, 0);
    }
    std::ifstream log(File("log"));
    std::string path;
    int flags = 0;
    size_t opens = 0;
    while (log >> path >> flags) {
        EXPECT_EQ(flags & O_ACCMODE, O_RDONLY) << path;
        EXPECT_EQ(flags & (O_CREAT | O_TRUNC | O_APPEND), 0) << path;
        ++opens;
    }
    EXPECT_GE(opens,
              16u); // each run opens it by its name: to see that nothing is printed into it, and to read it
}

TEST_F(Program, WhatTheProgramKeepsItselfFromIsSaidWhenAskedFor) {
    const ProgramResult result = Run({"space", File("disk"), "--verbose"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(Contains(result.err, "diskaccess: the program ")) << result.err;
    EXPECT_TRUE(Contains(result.err, "it starts no program, and sends nothing anywhere\n")) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
}

TEST_F(Program, LongPathsWork) {
    std::string directory = File("");
    for (int i = 0; i < 4; ++i) {
        directory += "/" + std::string(60, 'd');
        ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    }
    ASSERT_EQ(rename(File("disk").c_str(), (directory + "/disk").c_str()), 0);
    EXPECT_TRUE(Contains(Run({"events", directory + "/disk", "--utc"}).out, "Events  2"));
}

// ---- when things go wrong

TEST_F(Program, MissingFile) {
    EXPECT_EQ(Refused({"list", "/nonexistent/disk"}),
              "diskaccess: /nonexistent/disk: cannot be opened: No such file or directory; check the name\n");
}

TEST_F(Program, NoPermission) {
    chmod(File("disk").c_str(), 0000);
    chmod(File("").c_str(), 0755);
    if (geteuid() != 0) {
        EXPECT_TRUE(
            Contains(Refused({"list", File("disk")}), "cannot be opened: Permission denied; run as root"));
        return;
    }
    ProgramSetting setting;
    setting.userId = 65534;
    const ProgramResult result = Run({"list", File("disk")}, setting);
    if (result.exitCode == 127) {
        GTEST_SKIP() << "the program lies where another user cannot run it";
    }
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    // (A build with coverage counters complains of them too.)
    EXPECT_TRUE(
        Contains(result.err, "diskaccess: " + File("disk") +
                                 ": cannot be opened: Permission denied; run as root, or ask for the right "
                                 "to read it\n"))
        << result.err;
}

TEST_F(Program, Directory) {
    EXPECT_EQ(Refused({"list", "/tmp"}),
              "diskaccess: /tmp: is a directory; give the recorder's partition, like "
              "/dev/sdb5, or an image file of it\n");
}

TEST_F(Program, NeitherFileNorDevice) {
    EXPECT_TRUE(Contains(Refused({"list", "/dev/null"}), "/dev/null: is neither a block device nor a file;"));
}

TEST_F(Program, EmptyFile) {
    std::ofstream(File("empty")).close();
    EXPECT_EQ(Refused({"info", File("empty")}),
              "diskaccess: " + File("empty") + ": is empty; copy the partition again\n");
}

TEST_F(Program, FileCutOffInItsHead) {
    Disk().Truncate(199);
    EXPECT_EQ(Refused({"info", File("disk")}),
              "diskaccess: " + File("disk") +
                  ": is cut off after 199 bytes, inside the partition head; copy it "
                  "again\n");
}

TEST_F(Program, FileCutOffInItsTables) {
    Disk().Truncate(0x1000);
    const ProgramResult result = Run({"list", File("disk")});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_TRUE(Contains(result.out, "Records  0"));
    EXPECT_EQ(result.err,
              "diskaccess: " + File("disk") +
                  ": the disk or its copy is cut off: 8 blocks from block 0 on are missing, and what "
                  "they held; copy the partition again\n");
}

TEST_F(Program, FileCutOffInItsBlocksShowsTheRest) {
    Disk().Truncate(Disk().BlockStart(2) + 1000);
    const ProgramResult result = Run({"list", File("disk"), "--utc", "--channel", "0"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(RecordLines(result.out), 2u);
    const std::string units = Run({"units", File("disk")}).out;
    EXPECT_TRUE(std::regex_search(units, std::regex("\n    2  cut off +-"))) << units;
    EXPECT_TRUE(std::regex_search(units, std::regex("\n    7  missing +-"))) << units;
    EXPECT_TRUE(
        Contains(result.err, "diskaccess: " + File("disk") +
                                 ": the disk or its copy is cut off: 6 blocks from block 2 on are missing, "
                                 "and what they held; copy the partition again\n"))
        << result.err;
}

TEST_F(Program, WrongMagic) {
    Disk().EditHead([](PartHead_t& head) { head.FormatFlag = 0x12345678; });
    EXPECT_EQ(Refused({"list", File("disk")}),
              "diskaccess: " + File("disk") +
                  ": holds a recorder's blocks, but has no partition head: it was overwritten, or is missing "
                  "from the copy; copy the partition again, or give an earlier copy\n");
}

TEST_F(Program, DiskTypesMagic) {
    Disk().EditHead([](PartHead_t& head) { head.FormatFlag = PART_MAGIC_ALT; });
    EXPECT_TRUE(Contains(Show("info"), "0xaa55aa50")); // found out by itself
    EXPECT_TRUE(Contains(Show("events", {"--disk-type", "19"}), "Events  2"));
    EXPECT_TRUE(Contains(Refused({"list", File("disk"), "--disk-type", "1"}),
                         "its head, 0xaa55aa50, is not that of disk type 1; leave --disk-type out"));
}

TEST_F(Program, HeadWithoutBlocks) {
    Disk().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    EXPECT_TRUE(Contains(Refused({"list", File("disk")}), "its head states 0 blocks of 2097152 bytes"));
}

TEST_F(Program, BlocksThatCannotBeReadAreNamed) {
    ProgramSetting setting;
    setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_BAD_FILE=" + File("disk"),
                           "SHIM_BAD_FROM=" + std::to_string(Disk().BlockStart(1)),
                           "SHIM_BAD_TO=" + std::to_string(Disk().BlockStart(2))};
    const std::string line =
        "diskaccess: block 1: cannot be read: what it holds is missing, between 2026-11-20 "
        "14:09:59.000 and 2026-11-20 14:20:00.000; the disk may be failing\n";
    const std::vector<std::pair<std::string, std::string>> shown = {{"list", "Records  7"},
                                                                    {"events", "Events  0"},
                                                                    {"units", "    1  unreadable  -"},
                                                                    {"days", "Days  1"}};
    for (const auto& [command, part] : shown) {
        const ProgramResult result = Run({command, File("disk"), "--utc"}, setting);
        EXPECT_EQ(result.exitCode, 3) << command;
        EXPECT_EQ(result.err, line) << command;
        EXPECT_TRUE(Contains(result.out, part)) << result.out;
    }
    const Json units = Json::parse(Run({"units", File("disk"), "--utc", "--json"}, setting).out);
    EXPECT_EQ(SchemaErrors("units", units), "");
    EXPECT_EQ(units["notes"], Json::array());
    ASSERT_EQ(units["losses"].size(), 1u);
    EXPECT_EQ(units["losses"][0]["problem"], "block_unreadable");
    EXPECT_EQ(units["losses"][0]["block"], 1);
    EXPECT_EQ(units["losses"][0]["channel"], nullptr);
    EXPECT_EQ(units["losses"][0]["after"], "2026-11-20T14:20:00.000000Z");
    // What was asked for may be all there.
    const ProgramResult later = Run({"list", File("disk"), "--utc", "--from", "2026-11-20 14:25"}, setting);
    EXPECT_EQ(later.exitCode, 0);
    EXPECT_EQ(later.err, "");
}

TEST_F(Program, WhatASuspectBlockHoldsIsShownAndMarked) {
    Disk().SetSuspect(1, 1);
    EXPECT_TRUE(Contains(Show("list"), "    0x5      1        0  suspect\n"));
    EXPECT_TRUE(Contains(Show("events"), "2026-11-20 14:15:00   0x4  -            1      1  suspect\n"));
    EXPECT_TRUE(Contains(Show("list", {"--alarm", "0x4"}), "    0x4      1        0  suspect\n"));
    const Json list = Json::parse(Show("list", {"--json"}));
    EXPECT_EQ(list["records"][2]["mark"], "suspect");
    EXPECT_EQ(SchemaErrors("list", list), "");
    EXPECT_EQ(SchemaErrors("events", Json::parse(Show("events", {"--json"}))), "");
    EXPECT_EQ(SchemaErrors("units", Json::parse(Show("units", {"--json"}))), "");
}

TEST_F(Program, WhatABlockThatWasNeverClosedHoldsIsShown) {
    EventHead_t crash = {};
    crash.type = 0x800;
    crash.Indexed = 1;
    std::vector<uint8_t> payload(sizeof crash);
    std::memcpy(payload.data(), &crash, sizeof crash);
    AddFrame(4, 4, 0, kBase + 2411, payload);
    RecordOn(4, kBase + 2411, kBase + 2420);
    EXPECT_TRUE(Contains(Show("events"), "2026-11-20 14:40:11  0x800        0      4      0  not closed\n"));
    EXPECT_TRUE(
        Contains(Show("list", {"--channel", "0"}),
                 "2026-11-20 14:40:00  2026-11-20 14:40:20    0:20   21.0 KiB  0x800      4        0  not "
                 "closed\n"));
    // The recorder keeps ten seconds before an event and thirty after it.
    EXPECT_TRUE(Contains(Show("list", {"--channel", "0", "--alarm", "0x800"}),
                         "2026-11-20 14:40:01  2026-11-20 14:40:20    0:19"));
    // Of another century nothing is there.
    EXPECT_EQ(RecordLines(Show("list", {"--from", "@7258118400"})), 0u);
}

TEST_F(Program, RecordsOfASecondAreShown) {
    BlockContents contents = BlockContents::Closed(1, kBase, kBase + 599);
    contents.Segment(0, kBase, kBase, 1024).Segment(0, kBase + 100, kBase + 101, 2048);
    contents.Event(Pts(kBase), 0x2);
    Disk().WriteBlock(0, contents);
    const std::string shown = Show("list", {"--to", "2026-11-20 14:05"});
    EXPECT_TRUE(
        Contains(shown, "2026-11-20 14:00:00  2026-11-20 14:00:00    0:00  1.0 KiB    0x2      0        0\n"))
        << shown;
    EXPECT_TRUE(
        Contains(shown, "2026-11-20 14:01:40  2026-11-20 14:01:41    0:01  2.0 KiB      -      0        1\n"))
        << shown;
    EXPECT_EQ(RecordLines(Show("list", {"--alarm", "2"})), 1u);
    EXPECT_EQ(RecordLines(Show("list", {"--alarm", "2", "--mix"})), 1u);
}

// ---- the access lock

TEST_F(Program, LockedChannelsAreLeftOutWithoutAPassword) {
    Lock("right");
    const ProgramResult result = Run({"list", File("disk"), "--utc"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(RecordLines(result.out), 5u);
    EXPECT_EQ(result.err, "diskaccess: " + File("disk") +
                              ": channel 3 is locked and left out; give the password with --ask-password, "
                              "--password-file FILE or DISKACCESS_PASSWORD\n");
}

TEST_F(Program, WrongPasswordSaysWhatStaysHidden) {
    Lock("right");
    ProgramSetting setting;
    setting.environment = {"DISKACCESS_PASSWORD=wrong"};
    const ProgramResult result = Run({"list", File("disk"), "--utc"}, setting);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(RecordLines(result.out), 5u);
    EXPECT_EQ(result.err,
              "diskaccess: " + File("disk") +
                  ": wrong password: channels 3 stay hidden; give the right one with --ask-password, "
                  "--password-file FILE or DISKACCESS_PASSWORD\n");
}

TEST_F(Program, WrongPasswordMakesNoFile) {
    Lock("right");
    ProgramSetting setting;
    setting.environment = {"DISKACCESS_PASSWORD=wrong"};
    const std::vector<std::vector<std::string>> commands = {
        {"export", File("disk"), "--raw", "-o", File("out")},
        {"extract", File("disk"), "-o", File("out.img")},
        {"still", File("disk"), "--at", "2026-11-20 14:00", "-o", File("out.png")},
        {"timeline", File("disk"), "--svg", File("out.svg")}};
    for (const std::vector<std::string>& command : commands) {
        EXPECT_EQ(Refused(command, 1, setting),
                  "diskaccess: " + File("disk") +
                      ": wrong password: channels 3 stay hidden; give the right one with --ask-password, "
                      "--password-file FILE or DISKACCESS_PASSWORD\n");
        for (const auto& entry : std::filesystem::directory_iterator(File(""))) {
            EXPECT_EQ(entry.path().filename().string().substr(0, 3), "dis") << command[0];
        }
    }
}

TEST_F(Program, RightPasswordFromEnvironmentOrFile) {
    Lock("right");
    ProgramSetting setting;
    setting.environment = {"DISKACCESS_PASSWORD=right"};
    EXPECT_EQ(RecordLines(Run({"list", File("disk"), "--utc"}, setting).out), 8u);
    std::ofstream(File("password")) << "right\r\nsecond line\n";
    // The file outranks the environment.
    setting.environment = {"DISKACCESS_PASSWORD=wrong"};
    const ProgramResult result =
        Run({"list", File("disk"), "--utc", "--password-file", File("password")}, setting);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(RecordLines(result.out), 8u);
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(
        Contains(Show("info", {"--password-file", File("password")}), "Locked channels           3\n"));
}

TEST_F(Program, PasswordFileThatCannotBeRead) {
    Lock("right");
    EXPECT_EQ(Refused({"list", File("disk"), "--password-file", "/nonexistent"}),
              "diskaccess: /nonexistent: no password can be read from it; put it on the first line\n");
}

TEST_F(Program, PasswordFilesAreReadNoFurtherThanAPasswordGoes) {
    Lock("right");
    std::ofstream(File("long")) << std::string(1025, 'x') << "\n";
    EXPECT_EQ(Refused({"list", File("disk"), "--password-file", File("long")}),
              "diskaccess: " + File("long") +
                  ": its first line is longer than 1024 bytes, and no password is; put the password there\n");
    std::ofstream(File("longest")) << std::string(1024, 'x') << "\nmore";
    EXPECT_EQ(Run({"list", File("disk"), "--password-file", File("longest")}).exitCode, 1); // wrong, but read
    // A file without end.
    EXPECT_TRUE(Contains(Refused({"list", File("disk"), "--password-file", "/dev/zero"}), "is longer than"));
    EXPECT_TRUE(
        Contains(Refused({"list", File("disk"), "--password-file", File("")}), "no password can be read"));
    std::ofstream(File("without-newline")) << "right";
    EXPECT_EQ(Run({"list", File("disk"), "--password-file", File("without-newline")}).exitCode, 0);
    std::ofstream(File("nothing")).close();
    EXPECT_TRUE(Contains(Refused({"list", File("disk"), "--password-file", File("nothing")}),
                         "no password can be read"));
}

/// An interrupt at the prompt, by key or by signal, must not leave a terminal that shows nothing of what is typed.
TEST_F(Program, TheTerminalShowsWhatIsTypedAgainAfterAnInterrupt) {
    Lock("right");
    const std::vector<std::string> command = {DISKACCESS_PROGRAM, "list", File("disk"), "--ask-password"};
    const auto end = [&command](const std::string& keys, int signal) {
        return EndAtTerminal(command, "Password of the disk: ", keys, signal);
    };
    for (const auto& [keys, signal, exitCode] :
         std::vector<std::tuple<std::string, int, int>>{{"ri\x03", 0, 128 + SIGINT},
                                                        {"ri\x1c", 0, 128 + SIGQUIT},
                                                        {"ri", SIGTERM, 128 + SIGTERM},
                                                        {"ri", SIGHUP, 128 + SIGHUP}}) {
        const TerminalEnd ended = end(keys, signal);
        EXPECT_EQ(ended.exitCode, exitCode);
        EXPECT_TRUE(ended.echoWasOff);
        EXPECT_TRUE(ended.echoIsOn) << exitCode;
    }
}

TEST_F(Program, PasswordIsAskedForAtATerminal) {
    Lock("right");
    const ProgramResult result =
        RunAtTerminal({DISKACCESS_PROGRAM, "list", File("disk"), "--utc", "--ask-password"},
                      "Password of the disk: ", "right\n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(Contains(result.out, "Records  8")) << result.out;
    EXPECT_FALSE(Contains(result.out, "right")) << "the password was shown";
    const ProgramResult without =
        RunProgram({"setsid", "--wait", DISKACCESS_PROGRAM, "list", File("disk"), "--ask-password"});
    EXPECT_EQ(without.exitCode, 1);
    EXPECT_EQ(without.err,
              "diskaccess: --ask-password: there is no terminal to ask at; use --password-file or "
              "DISKACCESS_PASSWORD\n");
}

// ---- wrong use

TEST_F(Program, WrongUseEndsWithTwo) {
    const std::vector<std::vector<std::string>> commands = {
        {},
        {"list"},
        {"nonsense", File("disk")},
        {"list", File("disk"), "--nonsense"},
        {"list", File("disk"), "extra"},
        {"list", File("disk"), "--format", "xml"},
        {"list", File("disk"), "--skew", "x"},
        {"list", File("disk"), "--utc", "--tz", "Europe/Berlin"},
        {"days", File("disk"), "--alarm", "1"},
        {"events", File("disk"), "--channel", "1"},
    };
    for (const auto& command : commands) {
        const ProgramResult result = Run(command);
        EXPECT_EQ(result.exitCode, 2) << ::testing::PrintToString(command);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err, "");
    }
}

TEST_F(Program, WrongValuesEndWithTwoAndALine) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--from", "soon"},
         "'soon' is not a time; give one like '2026-11-20 14:30:00', 2026-11-20, 14:30, yesterday, -2h or "
         "@1700000000"},
        {{"--from", "2026-11-21", "--to", "2026-11-20"}, "--from lies after --to; exchange them"},
        {{"--channel", "32"},
         "--channel: '32' is not a list of channels; give numbers from 0 to 31, like 0,2-4, or names of "
         "the names file"},
        {{"--channel", "1,,2"},
         "--channel: '1,,2' is not a list of channels; give numbers from 0 to 31, like 0,2-4, or names of "
         "the names file"},
        {{"--channel", "4-2"}, "--channel: '4-2' runs backwards"},
        {{"--alarm", "0"},
         "--alarm: '0' is not a set of event types; give a mask like 0x5, names of the names file, or all"},
        {{"--alarm", "0xg"},
         "--alarm: '0xg' is not a set of event types; give a mask like 0x5, names of the names file, or all"},
        {{"--alarm", "99999999999999999999"},
         "--alarm: '99999999999999999999' is not a set of event types; give a mask like 0x5, names of "
         "the names file, or all"},
        {{"--tz", "Europe/Atlantis"},
         "--tz: no zone is called 'Europe/Atlantis'; give a name like Europe/Berlin or UTC"},
    };
    for (const auto& [options, line] : cases) {
        std::vector<std::string> command = {"list", File("disk")};
        command.insert(command.end(), options.begin(), options.end());
        EXPECT_EQ(Refused(command, 2), "diskaccess: " + line + "\n");
    }
}

TEST_F(Program, HelpAndVersion) {
    const ProgramResult help = Run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* const command : {"info", "list", "events", "days", "units", "space"}) {
        EXPECT_TRUE(Contains(help.out, std::string("\n  ") + command)) << command;
        const ProgramResult own = Run({command, "--help"});
        EXPECT_EQ(own.exitCode, 0);
        EXPECT_TRUE(Contains(own.out, "Usage: diskaccess " + std::string(command)));
    }
    EXPECT_TRUE(
        std::regex_match(Run({"--version"}).out, std::regex("diskaccess [0-9]+\\.[0-9]+\\.[0-9]+\n")));
}

} // namespace
