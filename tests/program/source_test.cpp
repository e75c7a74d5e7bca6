// Whole disks, split images and E01 images: every command reads them as it reads the partition, and no part of them is
// written.

#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "program/one_camera.h"
#include "support/files.h"
#include "support/partition_tables.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using Json = nlohmann::json;

constexpr uint64_t kMiB = 0x100000;
/// Where the partition begins on whole disks.
constexpr uint64_t kBegin = 6 * kMiB;

/// One camera, recorded for ten seconds.
class Sources : public OneCamera {
protected:
    void SetUp() override {
        OneCameraRecording recording;
        recording.audio = true;
        Record(recording);
        m_bytes = ReadFile(File("disk"));
    }

    /// Makes a whole disk with the partition on it as the second one.
    std::string MakeWhole(bool gpt = false) {
        const std::string path = File("whole");
        MakeDiskFile(path, 32 * kMiB);
        WriteInto(path, kBegin, m_bytes);
        const std::vector<TableEntry> table = {{2048, 2048}, {kBegin / 512, m_bytes.size() / 512}};
        gpt ? WriteGpt(path, table) : WriteMbr(path, table);
        return path;
    }

    /// Cuts a file into two parts: NAME.001, NAME.002.
    std::string Split(const std::string& path) {
        const std::string bytes = ReadFile(path);
        const size_t half = bytes.size() / 2;
        std::ofstream(path + ".001", std::ios::binary) << bytes.substr(0, half);
        std::ofstream(path + ".002", std::ios::binary) << bytes.substr(half);
        return path + ".001";
    }

    static ProgramResult Run(const std::vector<std::string>& arguments) {
        std::vector<std::string> all = arguments;
        all.insert(all.begin(), DISKACCESS_PROGRAM);
        return RunProgram(all);
    }

    /// What each command says of a source, without the source's name.
    std::string Answers(const std::string& path) {
        std::string answers;
        for (const char* const command : {"list", "events", "days", "units", "space", "play"}) {
            const ProgramResult result = Run({command, path, "--utc", "--json"});
            EXPECT_EQ(result.exitCode, 0) << command << ": " << result.err;
            Json document = Json::parse(result.out);
            document.erase("partition");
            answers += document.dump() + "\n";
        }
        const std::string dump = Run({"dump", path, "--utc"}).out;
        answers += dump.substr(dump.find(", PartSize"));
        const std::string out = File("out-" + std::to_string(++m_exports));
        const ProgramResult result = Run({"export", path, "--raw", "-o", out});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return answers + ReadFile(out + "-ch0.video");
    }

    void ExpectSame(const std::string& path) { EXPECT_EQ(Answers(path), Answers(File("disk"))) << path; }

    std::string m_bytes;
    int m_exports = 0;
};

TEST_F(Sources, CommandsFindThePartitionOnAWholeDisk) {
    ExpectSame(MakeWhole());
    ExpectSame(MakeWhole(true));
    const Json info = Json::parse(Run({"info", File("whole"), "--json"}).out);
    EXPECT_EQ(SchemaErrors("info", info), "");
    EXPECT_EQ(info["partition_number"], 2);
    EXPECT_EQ(info["partition_start_bytes"], kBegin);
    EXPECT_EQ(info["device_size_bytes"], m_bytes.size());
    EXPECT_NE(Run({"info", File("whole")})
                  .out.find("Partition                 2\nPartition from            6.0 MiB\n"),
              std::string::npos);
    EXPECT_EQ(Run({"info", File("disk")}).out.find("Partition "), std::string::npos);
}

TEST_F(Sources, CommandsReadSplitImages) {
    ExpectSame(Split(File("disk")));
    ExpectSame(Split(MakeWhole()));
    fs::rename(File("disk.002"), File("disk.003"));
    const ProgramResult result = Run({"info", File("disk.001")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: " + File("disk.001") + ": part " + File("disk.002") +
                              " of the split image is missing, though " + File("disk.003") +
                              " is there; copy it into the same folder\n");
}

TEST_F(Sources, CommandsReadE01Images) {
    if (RunProgram(
            {"sh", "-c", "ewfacquire -u -q -t '" + File("disk") + "' '" + File("disk") + "' </dev/null"})
            .exitCode != 0) {
        GTEST_SKIP() << "no ewfacquire here (package ewf-tools)";
    }
    ExpectSame(File("disk.E01"));
}

TEST_F(Sources, OfSeveralPartitionsOneIsChosen) {
    const std::string path = MakeWhole();
    WriteInto(path, kMiB, m_bytes.substr(0, kMiB));
    const ProgramResult result = Run({"list", path});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: " + path +
                              ": holds 2 partitions of recorders: 1 (1 MiB), 2 (8 MiB); choose one with "
                              "--partition N\n");
    EXPECT_EQ(Run({"list", path, "--partition", "2", "--csv"}).exitCode, 2);
    EXPECT_EQ(Run({"list", path, "--partition", "2", "--format", "csv"}).out,
              Run({"list", File("disk"), "--format", "csv"}).out);
    EXPECT_EQ(
        Run({"list", path, "--partition", "3"}).err,
        "diskaccess: " + path +
            ": holds no partition 3, but 1 (1 MiB), 2 (8 MiB); give another --partition, or leave it out\n");
    EXPECT_EQ(Run({"list", path, "--partition", "two"}).exitCode, 2);
}

TEST_F(Sources, NoPartOfASplitImageIsWritten) {
    const std::string first = Split(File("disk"));
    for (const std::string& part : {first, File("disk.002")}) {
        const std::string bytes = ReadFile(part);
        EXPECT_EQ(Run({"export", first, "--force", "-o", part}).err,
                  "diskaccess: " + part +
                      ": is the source, or what the source is stored in, and is never written; give another "
                      "--output\n");
        for (const char* const redirection : {">>", "2>>"}) {
            const ProgramResult result = RunProgram(
                {"sh", "-c", DISKACCESS_PROGRAM " list '" + first + "' " + redirection + "'" + part + "'"});
            EXPECT_EQ(result.exitCode, 1) << part;
        }
        EXPECT_EQ(ReadFile(part), bytes) << part;
    }
}

TEST_F(Sources, NoErrorIsPrintedIntoAWholeDisk) {
    const std::string path = MakeWhole();
    WriteInto(path, kMiB, m_bytes.substr(0, kMiB)); // two recorders: an error
    const std::string bytes = ReadFile(path);
    EXPECT_EQ(RunProgram({"sh", "-c", DISKACCESS_PROGRAM " list '" + path + "' 2>>'" + path + "'"}).exitCode,
              1);
    EXPECT_TRUE(ReadFile(path) == bytes);
}

// ---- find

TEST_F(Sources, FindNamesWhatToGive) {
    const std::string path = MakeWhole();
    WriteInto(path, kMiB, m_bytes.substr(0, kMiB));
    std::ofstream(File("notes")) << std::string(600, 'x');
    const ProgramResult result = Run({"find", path, File("disk"), File("notes"), "--utc", "--json"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "diskaccess: " + path +
                              ", partition 1: the disk or its copy is cut off: 4 blocks from block 0 on are "
                              "missing, and what they held; copy the partition again\n");
    const Json found = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("find", found), "");
    ASSERT_EQ(found["partitions"].size(), 3u);
    EXPECT_EQ(found["partitions"][0]["loss_count"], 1);
    EXPECT_EQ(found["partitions"][0]["partition_number"], 1);
    EXPECT_EQ(found["partitions"][0]["start"], nullptr); // cut off before its first block
    const Json expected = {{"partition", path},
                           {"partition_number", 2},
                           {"size_bytes", m_bytes.size()},
                           {"vehicle_number", "SAMPLE 1"},
                           {"start", "2026-11-20T14:00:00Z"},
                           {"end", "2026-11-20T14:00:09Z"},
                           {"block_count", 4},
                           {"locked_channels", Json::array()},
                           {"loss_count", 0}};
    EXPECT_EQ(found["partitions"][1], expected);
    EXPECT_EQ(found["partitions"][2]["partition_number"], nullptr);
    EXPECT_EQ(found["disks"][2],
              (Json{{"disk", File("notes")}, {"size_bytes", 600}, {"holds", "no recorder's partition"}}));
    const std::string text = Run({"find", path, File("disk")}).out;
    EXPECT_NE(text.find("To see what is on it:\n    diskaccess " + path + " --partition 1\n    diskaccess " +
                        path + " --partition 2\n    diskaccess " + File("disk") + "\n"),
              std::string::npos)
        << text;
}

TEST_F(Sources, FindSaysWhatIsMissing) {
    OneCameraRecording recording;
    recording.seconds = 100; // some 40 go into a block
    fs::remove(File("disk"));
    Record(recording);
    WriteInto(File("disk"), 8 * kMiB + 0x10000, std::string(0x10000, '\0')); // the second of three
    const ProgramResult result = Run({"find", File("disk"), "--json"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "diskaccess: " + File("disk") +
                              ": not everything that was recorded is there: 1 loss in its blocks; diskaccess "
                              "check says which\n");
    EXPECT_EQ(Json::parse(result.out)["partitions"][0]["loss_count"], 1);
    fs::resize_file(File("disk"), 8 * kMiB + 3 * 0x10000);
    const ProgramResult cutOff = Run({"find", File("disk"), "--json"});
    EXPECT_EQ(cutOff.err,
              "diskaccess: " + File("disk") +
                  ": the disk or its copy is cut off: 1 block from block 3 on is missing, and what "
                  "it held; copy the partition again\n" +
                  result.err);
    EXPECT_EQ(Json::parse(cutOff.out)["partitions"][0]["loss_count"], 2);
}

TEST_F(Sources, FindSaysWhichChannelsAreLocked) {
    PartHead_t head = {};
    std::memcpy(&head, m_bytes.data(), sizeof head);
    head.Encrypt = PART_MAGIC;
    head.EncryptMap = 0x9;
    WriteInto(File("disk"), 0, std::string(reinterpret_cast<const char*>(&head), sizeof head));
    const ProgramResult result = Run({"find", File("disk"), "--json"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err,
              "diskaccess: " + File("disk") +
                  ": channels 0, 3 are locked and left out; give the password with --ask-password, "
                  "--password-file FILE or DISKACCESS_PASSWORD\n");
    const Json found = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("find", found), "");
    EXPECT_EQ(found["partitions"][0]["locked_channels"], Json::array({0, 3}));
}

TEST_F(Sources, FindGoesOnAfterADiskThatCannotBeRead) {
    fs::permissions(File(""), fs::perms::others_exec | fs::perms::others_read, fs::perm_options::add);
    fs::copy_file(File("disk"), File("secret disk"));
    fs::permissions(File("secret disk"), fs::perms::none);
    fs::permissions(File("disk"), fs::perms::others_read, fs::perm_options::add);
    ProgramSetting setting;
    setting.userId = 65534;
    const ProgramResult result =
        RunProgram({DISKACCESS_PROGRAM, "find", File("secret disk"), File("missing"), File("disk")}, setting);
    if (result.exitCode == 127) {
        GTEST_SKIP() << "the program lies where another user cannot run it";
    }
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: " + File("missing") +
                              ": cannot be opened: No such file or directory; check the name\n"
                              "diskaccess: " +
                              File("secret disk") +
                              ": no permission to read; run as root, or ask for the right to read\n");
    EXPECT_NE(result.out.find("SAMPLE 1"), std::string::npos);
}

TEST_F(Sources, FindOfNothingSaysSo) {
    std::ofstream(File("notes")) << "x";
    const ProgramResult result = Run({"find", File("notes")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out.find("No partition of a recorder was found.\n"), 0u) << result.out;
    const Json found = Json::parse(Run({"find", File("notes"), "--json"}).out);
    EXPECT_EQ(SchemaErrors("find", found), "");
    EXPECT_TRUE(found["partitions"].empty());
}

TEST_F(Sources, FindNamesAPartitionThatHasLostItsHead) {
    const std::string gone =
        " holds a recorder's blocks, but has no partition head: it was overwritten, or is missing "
        "from the copy; copy the partition again, or give an earlier copy\n";
    const std::string path = MakeWhole();
    WriteInto(path, kBegin, std::string(kMiB, '\0'));
    ProgramResult result = Run({"find", path, File("disk"), "--json"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "diskaccess: " + path + ": partition 2" + gone);
    const Json found = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("find", found), "");
    EXPECT_EQ(found["partitions"].size(), 1u);
    EXPECT_EQ(found["disks"][0]["holds"], "recordings without a partition head");
    EXPECT_EQ(found["disks"][1]["holds"], "recordings");
    result = Run({"find", path});
    EXPECT_EQ(result.out.find("No partition of a recorder was found that can be read.\n"), 0u) << result.out;
    for (const std::string command : {"list", "check", "space"}) {
        result = Run({command, path});
        EXPECT_EQ(result.exitCode, 1) << command;
        EXPECT_EQ(result.err, "diskaccess: " + path + ": partition 2" + gone) << command;
    }
}

TEST_F(Sources, FindTakesNoPartOfAnImageForADisk) {
    // The second part begins before the blocks, as a partition without its head would; or with a block, whose head bears the
    // magic of a partition's.
    for (const size_t end : {size_t{4096}, size_t{8 * kMiB}}) {
        std::ofstream(File("disk.001"), std::ios::binary) << m_bytes.substr(0, end);
        std::ofstream(File("disk.002"), std::ios::binary)
            << std::string(end == 4096 ? 4096 : 0, '\0') << m_bytes.substr(end);
        const ProgramResult result = Run({"find", File("disk.002"), "--json"});
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.err, "");
        const Json found = Json::parse(result.out);
        EXPECT_EQ(SchemaErrors("find", found), "");
        EXPECT_EQ(found["disks"][0]["holds"], "later part of a split image");
        EXPECT_EQ(Run({"list", File("disk.002")}).err,
                  "diskaccess: " + File("disk.002") +
                      ": is a later part of a split image; give its first part, " + File("disk.001") + "\n");
    }
}

TEST_F(Sources, FindSaysThatADiskDoesNotDeliver) {
    ProgramSetting worn;
    worn.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_BAD_FILE=" + File("disk"), "SHIM_BAD_FROM=0",
                        "SHIM_BAD_TO=512"};
    const ProgramResult result = RunProgram({DISKACCESS_PROGRAM, "find", File("disk")}, worn);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err,
              "diskaccess: " + File("disk") + ": its first sector cannot be read; the disk may be failing\n");
    EXPECT_NE(result.out.find("not readable\n"), std::string::npos) << result.out;
}

TEST_F(Sources, FindLooksAtThisMachinesDisks) {
    const ProgramResult result = Run({"find", "--json"});
    EXPECT_LE(result.exitCode, 1); // where disks may not be read
    EXPECT_EQ(SchemaErrors("find", Json::parse(result.out)), "");
}

// ---- journeys

TEST_F(Sources, ADiskByItselfShowsItsJourneys) {
    const ProgramResult result = Run({File("disk"), "--utc", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, Run({"journeys", File("disk"), "--utc", "--json"}).out);
    const Json document = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("journeys", document), "");
    ASSERT_EQ(document["journeys"].size(), 1u);
    EXPECT_EQ(document["journeys"][0]["start"], "2026-11-20T14:00:00Z");
    EXPECT_EQ(document["journeys"][0]["end"], "2026-11-20T14:00:09Z");
    EXPECT_EQ(document["journey_count"], 1);
    EXPECT_EQ(Json::parse(Run({"journeys", File("disk"), "--channel", "7", "--json"}).out)["journey_count"],
              0);
    EXPECT_EQ(Run({File("missing")}).exitCode, 2);
}

TEST_F(Sources, SilenceIsALengthOfTime) {
    for (const char* const good : {"0", "90s", "5m", "1h", "1d"}) {
        EXPECT_EQ(Run({"journeys", File("disk"), "--silence", good}).exitCode, 0) << good;
    }
    for (const char* const bad : {"m", "5x", "5 m", "99999999999", "4294967296", "71582789m", "5ms"}) {
        const ProgramResult result = Run({"journeys", File("missing"), "--silence", bad});
        EXPECT_EQ(result.exitCode, 2) << bad;
        EXPECT_EQ(result.err, "diskaccess: --silence: '" + std::string(bad) +
                                  "' is no length of time; give one like 5m, 90s or 1h\n");
    }
}

// ---- names

TEST_F(Sources, NamesStandInTextAndNumbersInMachineFormats) {
    std::ofstream(File("names")) << R"({"schema_version": 1, "channels": {"0": "front", "5": "rear"}})";
    const std::string text = Run({"list", File("disk"), "--names", File("names"), "--utc"}).out;
    EXPECT_EQ(text.find("CHANNEL  START                END                  LENGTH"), 0u) << text;
    EXPECT_NE(text.find("\nfront    2026-11-20 14:00:00"), std::string::npos) << text;
    const std::string plain = Run({"list", File("disk"), "--utc", "--json"}).out;
    EXPECT_EQ(Run({"list", File("disk"), "--names", File("names"), "--utc", "--json"}).out, plain);
    EXPECT_NE(Run({File("disk"), "--names", File("names")}).out.find("  front  "), std::string::npos);
}

TEST_F(Sources, NamesLieInTheConfigurationFolder) {
    fs::create_directories(File("diskaccess"));
    std::ofstream(File("diskaccess/names.json")) << R"({"channels": {"0": "front"}})";
    ProgramSetting setting;
    setting.environment = {"XDG_CONFIG_HOME=" + File("")};
    EXPECT_NE(RunProgram({DISKACCESS_PROGRAM, "list", File("disk")}, setting).out.find("\nfront  "),
              std::string::npos);
    fs::create_directories(File("home/.config/diskaccess"));
    fs::rename(File("diskaccess/names.json"), File("home/.config/diskaccess/names.json"));
    setting.environment = {"XDG_CONFIG_HOME=", "HOME=" + File("home")};
    EXPECT_NE(RunProgram({DISKACCESS_PROGRAM, "list", File("disk")}, setting).out.find("\nfront  "),
              std::string::npos);
}

TEST_F(Sources, WhatIsNoFileOfNamesIsRefused) {
    const std::pair<const char*, const char*> documents[] = {
        {"[1]", ": is no JSON document of names; names.schema.json says what it looks like"},
        {"{", ": is no JSON document of names; names.schema.json says what it looks like"},
        {R"({"channels": 5})", ": channels is no object; names.schema.json says what it looks like"},
        {R"({"channels": {"32": "x"}})",
         ": channels: '32' is no entry of it; names.schema.json says what it looks like"},
        {R"({"channels": {"0": 7}})",
         ": channels: '0' is no entry of it; names.schema.json says what it looks like"},
        {R"({"event_types": {"0x3": "x"}})",
         ": event_types: '0x3' is no entry of it; names.schema.json says what it looks like"},
        {R"({"channels": {"a\\b": "x"}})", // a JSON escape of one backslash, and one of the line's
         R"(: channels: 'a\\b' is no entry of it; names.schema.json says what it looks like)"},
        {R"({"event_types": {"door": "x"}})",
         ": event_types: 'door' is no entry of it; names.schema.json says what it looks like"}};
    for (const auto& [document, complaint] : documents) {
        std::ofstream(File("names")) << document;
        const ProgramResult result = Run({"list", File("disk"), "--names", File("names")});
        EXPECT_EQ(result.exitCode, 1) << document;
        EXPECT_EQ(result.err, "diskaccess: " + File("names") + complaint + "\n");
    }
    EXPECT_EQ(Run({"list", File("disk"), "--names", File("none")}).err,
              "diskaccess: " + File("none") +
                  ": cannot be read; give a file of names with --names, or leave it out\n");
}

// ---- timeline

TEST_F(Sources, TheTimelineIsDrawnForTheTerminal) {
    ProgramSetting setting;
    setting.environment = {"LC_ALL=C.UTF-8", "COLUMNS=47"};
    const std::vector<std::string> command = {DISKACCESS_PROGRAM, "timeline", File("disk"), "--utc"};
    const std::string text = RunProgram(command, setting).out;
    EXPECT_EQ(text.find("Journey 1: 2026-11-20 14:00:00 to 2026-11-20 14:00:09, 0:09, "), 0u) << text;
    EXPECT_NE(text.find("\n0      ████████████████████████████████████████\n"), std::string::npos) << text;
    setting.environment = {"LC_ALL=C", "COLUMNS=17"};
    EXPECT_NE(RunProgram(command, setting).out.find("\n0      ##########\n"), std::string::npos);
    EXPECT_EQ(Run({"timeline", File("disk"), "--channel", "9"}).out, "Nothing is recorded.\n");
    EXPECT_EQ(Run({"timeline", File("disk"), "--from", "2027-01-01"}).out, "Nothing is recorded.\n");
    EXPECT_EQ(Run({"timeline", File("disk"), "--json"}).exitCode, 2);
    EXPECT_EQ(Run({"timeline", File("disk"), "--svg", "new/"}).exitCode, 2);
}

TEST_F(Sources, TheTimelineIsWrittenAsFiles) {
    const ProgramResult result =
        Run({"timeline", File("disk"), "--svg", File("a.svg"), "--html", File("a.html")});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(ReadFile(File("a.svg")).find("<svg xmlns="), 0u);
    EXPECT_EQ(ReadFile(File("a.html")).find("<!DOCTYPE html>"), 0u);
    EXPECT_EQ(Run({"timeline", File("disk"), "--svg", File("b.svg"), "--html", File("a.html")}).err,
              "diskaccess: " + File("a.html") +
                  ": exists already; give another name, or --force to replace it\n");
    EXPECT_FALSE(fs::exists(File("b.svg")));
    EXPECT_EQ(Run({"timeline", File("disk"), "--html", File("a.html"), "--force"}).exitCode, 0);
    const ProgramResult onto = Run({"timeline", File("disk"), "--force", "--svg", File("disk")});
    EXPECT_EQ(onto.exitCode, 1);
    EXPECT_EQ(onto.err, "diskaccess: " + File("disk") +
                            ": is the source, or what the source is stored in, and is never written; give "
                            "another name\n");
    EXPECT_TRUE(ReadFile(File("disk")) == m_bytes);
}

} // namespace
