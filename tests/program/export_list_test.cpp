// Exports of many ranges in one run, by a list, and of the rows that are left of one.

#include "program/camera_disk.h"

namespace {

using namespace test_support;

/// Cameras 0 and 1, seconds 0 to 19, camera 0 with sound; camera 0 alone, seconds 1000 to 1009. A folder "out".
class ListExport : public CameraDisk {
protected:
    using Names = std::vector<std::string>;

    void SetUp() override {
        Begin();
        Record({{0, 0, 20, true}, {1, 0, 20, false}});
        End();
        Record({{0, 1000, 1010, true}});
        End();
        std::filesystem::create_directory(File("out"));
    }

    void List(const std::string& text) const { std::ofstream(File("list.csv"), std::ios::binary) << text; }

    ProgramResult Run(std::vector<std::string> options = {}, const ProgramSetting& setting = {}) const {
        options.insert(options.begin(), {"--list", File("list.csv"), "-o", File("out/")});
        return Export(options, setting);
    }

    /// A run that gets a signal: with the first file that it makes, or just before the first one gets its name.
    ProgramResult RunInterrupted(const std::string& when) const {
        ProgramSetting setting;
        setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, when + "=kill -INT $SHIM_PROGRAM"};
        return Run({}, setting);
    }

    Names Files() const {
        Names names;
        for (const auto& entry : std::filesystem::directory_iterator(File("out"))) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string Row(size_t row) const { return File("list.csv") + ": row " + std::to_string(row) + ": "; }

    static bool Says(const ProgramResult& result, const std::string& text) {
        EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
        return result.err.find(text) != std::string::npos;
    }

    /// A list of two rows that makes a.mkv and b.mp4.
    void ListTwo() const {
        List("file,from,to,channels\na.mkv," + At(2) + "," + At(5) + ",\"0,1\"\nb.mp4," + At(1000) + "," +
             At(1009) + ",0\n");
    }
};

/// Lists are looked at as a whole before anything is made.
TEST_F(ListExport, HoldsLongListsInLittleMemory) {
#ifdef SANITIZED
    GTEST_SKIP() << "sanitizers keep what is freed";
#endif
    const auto peakOf = [this](size_t rows) {
        std::string list = "file,from,to\n";
        for (size_t row = 0; row < rows; ++row) {
            list += std::to_string(row) + ".mkv," + At(2) + "," + At(5) + "\n";
        }
        List(list + "a/b.mkv," + At(2) + "," + At(5) + "\n"); // nothing is made
        const ProgramResult result = Run();
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_TRUE(Says(result, "is no file's name"));
        return result.memoryPeak;
    };
    constexpr size_t kRows = 10000;
    // Names that are taken, each in three forms, and what a row says.
    EXPECT_LT(peakOf(kRows), peakOf(0) + kRows * 2500);
}

TEST_F(ListExport, MakesAFileOfEachRow) {
    List("note,to,from,channels,case,file\r\nfirst," + At(5) + "," + At(2) + ",\"0,1\",A 7,a.mkv\r\n," +
         At(1009) + "," + At(1000) + ",,,b.mp4\r\n");
    const ProgramResult result = Run({"--json", "--case", "B 1", "--note", "general"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(Files(), (Names{"a.mkv", "a.mkv.json", "b.mp4", "b.mp4.json"}));
    const Json first = Manifest("out/a.mkv.json");
    EXPECT_EQ(first["recorder_from"], kCameraStart + 2);
    EXPECT_EQ(first["recorder_to"], kCameraStart + 5);
    EXPECT_EQ(first["channels"], Json::array({0, 1}));
    EXPECT_EQ(first["container"], "matroska");
    EXPECT_EQ(first["case"], "A 7");
    EXPECT_EQ(first["note"], "first");
    const Json second = Manifest("out/b.mp4.json");
    EXPECT_EQ(second["container"], "mp4");
    EXPECT_EQ(second["case"], "B 1"); // what is typed holds for rows that do not say it
    EXPECT_EQ(second["note"], "general");
    EXPECT_EQ(second["channels"].size(), 32u);
    const Json summary = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("export", summary), "") << result.out;
    ASSERT_EQ(summary["exports"].size(), 2u);
    EXPECT_EQ(summary["exports"][0]["manifest_file"], File("out/a.mkv.json"));
    EXPECT_EQ(summary["exports"][1]["manifest_file"], File("out/b.mp4.json"));
    EXPECT_EQ(
        RunProgram({DISKACCESS_PROGRAM, "verify", File("out/a.mkv.json"), "--source", File("disk")}).exitCode,
        0);
}

TEST_F(ListExport, NamesFilesByTheirFirstSecond) {
    List("from,to,channels\n" + At(2) + "," + At(5) + ",0\n" + At(2) + "," + At(5) + ",\"0,1\"\n");
    EXPECT_EQ(Run().exitCode, 0); // the disk begins at 14:00:00
    EXPECT_EQ(Files(),
              (Names{"2026-11-20-140002.000-channel-0.mkv", "2026-11-20-140002.000-channel-0.mkv.json",
                     "2026-11-20-140002.000.mkv", "2026-11-20-140002.000.mkv.json"}));
}

TEST_F(ListExport, ReadsTimesAsOptionsAreRead) {
    List("from,to,file\n2026-11-20 14:00:02,14:00:05,a.mkv\n2026-11-20,2026-11-20,b.mkv\n");
    EXPECT_EQ(Run().exitCode, 0);
    EXPECT_EQ(Manifest("out/a.mkv.json")["recorder_to"], kCameraStart + 5); // of the start's day
    EXPECT_EQ(Manifest("out/b.mkv.json")["recorder_to"], kCameraStart + 10 * 3600 - 1);
}

TEST_F(ListExport, SkipsWhatIsThere) {
    ListTwo();
    EXPECT_EQ(Run().exitCode, 0);
    std::filesystem::remove(File("out/a.mkv"));
    std::filesystem::remove(File("out/a.mkv.json"));
    const auto before = std::filesystem::last_write_time(File("out/b.mp4"));
    const ProgramResult result = Run({"--json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(Says(result, File("out/b.mp4") + ": is there already\n"));
    EXPECT_EQ(std::filesystem::last_write_time(File("out/b.mp4")), before);
    EXPECT_EQ(Files(), (Names{"a.mkv", "a.mkv.json", "b.mp4", "b.mp4.json"}));
    const Json summary = Json::parse(result.out);
    ASSERT_EQ(summary["exports"].size(), 1u);
    EXPECT_EQ(summary["exports"][0]["manifest_file"], File("out/a.mkv.json"));

    const ProgramResult again = Run({"--json", "--force"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(std::filesystem::last_write_time(File("out/b.mp4")), before);
    EXPECT_EQ(SchemaErrors("export", Json::parse(again.out)), "");
    EXPECT_EQ(Json::parse(again.out)["exports"].size(), 0u);
}

TEST_F(ListExport, SaysThatAllIsThereAlready) {
    ListTwo();
    const ProgramResult first = Run();
    EXPECT_EQ(first.out.find("there already"), std::string::npos) << first.out;
    const ProgramResult again = Run();
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(again.out, "All files of the list are there already; nothing was written.\n\n"
                         "Written  0 B\nGaps     0\nLosses   0\n");
    std::filesystem::remove(File("out/a.mkv"));
    std::filesystem::remove(File("out/a.mkv.json"));
    const ProgramResult part = Run();
    EXPECT_EQ(part.out.find("Files of the list that are there already: 1 of 2.\n"), 0u) << part.out;
}

constexpr const char* kStopped =
    "diskaccess: interrupted; the files that are finished are kept, and the same "
    "command makes the others\n";

TEST_F(ListExport, KeepsWholeFilesAndNoOthersWhenItIsInterrupted) {
    ListTwo();
    const ProgramResult atFirst = RunInterrupted("SHIM_AFTER_MAKE");
    EXPECT_EQ(atFirst.exitCode, 1);
    EXPECT_EQ(atFirst.err, kStopped);
    EXPECT_EQ(Files(), Names{});

    // One that comes while a file is finished ends the run after it.
    const ProgramResult between = RunInterrupted("SHIM_BEFORE_RENAME");
    EXPECT_EQ(between.exitCode, 1);
    EXPECT_EQ(between.err, kStopped);
    EXPECT_EQ(Files(), (Names{"a.mkv", "a.mkv.json"}));
    const auto made = std::filesystem::last_write_time(File("out/a.mkv"));

    const ProgramResult inTheSecond = RunInterrupted("SHIM_AFTER_MAKE");
    EXPECT_EQ(inTheSecond.exitCode, 1);
    EXPECT_EQ(inTheSecond.err, "diskaccess: " + File("out/a.mkv") + ": is there already\n" + kStopped);
    EXPECT_EQ(Files(), (Names{"a.mkv", "a.mkv.json"}));

    const ProgramResult atLast = RunInterrupted("SHIM_BEFORE_RENAME"); // nothing is left to stop
    EXPECT_EQ(atLast.exitCode, 0);
    EXPECT_EQ(Files(), (Names{"a.mkv", "a.mkv.json", "b.mp4", "b.mp4.json"}));
    EXPECT_EQ(std::filesystem::last_write_time(File("out/a.mkv")), made);
    for (const char* const name : {"out/a.mkv.json", "out/b.mp4.json"}) {
        EXPECT_EQ(RunProgram({DISKACCESS_PROGRAM, "verify", File(name), "--source", File("disk")}).exitCode,
                  0);
    }
}

TEST_F(ListExport, RefusesWhatIsThereAndIsSomethingElse) {
    ListTwo();
    EXPECT_EQ(Run().exitCode, 0);
    const auto refused = [this](const std::vector<std::string>& options, const std::string& why) {
        const ProgramResult result = Run(options);
        EXPECT_EQ(result.exitCode, 1);
        return Says(result,
                    Row(2) + File("out/a.mkv") + ": is there, and is not what this row makes: " + why);
    };
    EXPECT_TRUE(refused({"--no-audio"}, "its manifest has another 'with_audio'"));
    EXPECT_TRUE(refused({"--no-clock"}, "its manifest has another 'text_track'"));
    EXPECT_TRUE(refused({"--case", "C"}, "its manifest has another 'case'"));
    EXPECT_TRUE(refused({"--skew", "1"}, "its manifest has another 'skew_seconds'"));
    EXPECT_TRUE(refused({"--audio", "mulaw:8000"}, "it was made with another --audio"));
    EXPECT_TRUE(refused({"--hash-source"}, "its manifest lacks the SHA-256 of the whole source"));
    const std::string whole = ReadFile(File("list.csv"));
    List("file,from,to,channels\na.mkv," + At(2) + "," + At(5) + ",0\n");
    EXPECT_TRUE(refused({}, "its manifest has another 'channels'"));
    List("file,from,to\na.mkv," + At(2) + "," + At(6) + "\n");
    EXPECT_TRUE(refused({}, "its manifest has another 'to'"));

    List(whole);
    std::string bytes = ReadFile(File("out/a.mkv"));
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] + 1);
    std::ofstream(File("out/a.mkv"), std::ios::binary) << bytes;
    EXPECT_TRUE(refused({}, "a.mkv: its SHA-256 is not that of the manifest"));
    std::filesystem::remove(File("out/a.mkv.json"));
    EXPECT_TRUE(refused({}, File("out/a.mkv.json") + ": cannot be opened"));
    EXPECT_EQ(ReadFile(File("out/a.mkv")), bytes);

    const ProgramResult forced = Run({"--force"});
    EXPECT_EQ(forced.exitCode, 0) << forced.err;
    EXPECT_NE(ReadFile(File("out/a.mkv")), bytes);
    EXPECT_TRUE(Says(Run(), File("out/a.mkv") + ": is there already\n"));
}

TEST_F(ListExport, RefusesWhatWasMadeOfAnotherDisk) {
    ListTwo();
    EXPECT_EQ(Run().exitCode, 0);
    std::string disk = ReadFile(File("disk"));
    const Json blocks = Manifest("out/a.mkv.json")["blocks"];
    const auto end = blocks.back()["device_offset"].get<size_t>() + blocks.back()["size_bytes"].get<size_t>();
    disk[end - 1] = static_cast<char>(disk[end - 1] + 1);
    std::ofstream(File("disk"), std::ios::binary) << disk;
    const ProgramResult result = Run();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(Says(result, Row(2) + File("out/a.mkv") +
                                 ": is there, and is not what this row makes: block " +
                                 blocks.back()["block"].dump() + " of the source"));
}

TEST_F(ListExport, GoesOnAfterARowThatFails) {
    List("file,from,to\na.mkv," + At(2) + "," + At(5) + "\ntaken.mkv," + At(2) + "," + At(5) + "\nb.mkv," +
         At(1000) + "," + At(1009) + "\nnone.mkv," + At(5000) + "," + At(5001) + "\n");
    std::filesystem::create_directory(File("out/taken.mkv.json"));
    const ProgramResult result = Run();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(Says(result, Row(3) + File("out/taken.mkv.json") + ": is a folder"));
    EXPECT_TRUE(Says(result, Row(5) + File("disk") +
                                 ": holds no frames of that time and these channels; nothing was written"));
    EXPECT_EQ(Files(), (Names{"a.mkv", "a.mkv.json", "b.mkv", "b.mkv.json", "taken.mkv.json"}));
}

TEST_F(ListExport, TellsOfLossesOnceMore) {
    std::filesystem::create_directory(File("out/other"));
    List("file,from,to\na.mkv," + At(0) + "," + At(19) + "\n");
    EXPECT_EQ(Run().exitCode, 0);
    const Json blocks = Manifest("out/a.mkv.json")["blocks"];
    std::string disk = ReadFile(File("disk"));
    const auto begin = blocks[0]["device_offset"].get<size_t>();
    const auto size = blocks[0]["size_bytes"].get<size_t>();
    std::fill_n(disk.begin() + static_cast<std::ptrdiff_t>(begin + size / 2), 4000, '\0');
    std::ofstream(File("disk"), std::ios::binary) << disk;
    EXPECT_EQ(Run({"--force"}).exitCode, 3);
    const ProgramResult again = Run();
    EXPECT_EQ(again.exitCode, 3);
    EXPECT_TRUE(Says(again, "a.mkv: is there already, and its manifest names what is missing in it\n"));
}

/// A row says that nothing could be read only where something of its own time is lost.
TEST_F(ListExport, CountsTheLossesOfEachRow) {
    List("file,from,to\na.mkv," + At(0) + "," + At(19) + "\nnone.mkv," + At(5000) + "," + At(5001) + "\n");
    EXPECT_EQ(Run().exitCode, 0);
    const Json blocks = Manifest("out/a.mkv.json")["blocks"];
    std::string disk = ReadFile(File("disk"));
    const auto begin = blocks[0]["device_offset"].get<size_t>();
    const auto size = blocks[0]["size_bytes"].get<size_t>();
    std::fill_n(disk.begin() + static_cast<std::ptrdiff_t>(begin + size / 2), 4000, '\0');
    std::ofstream(File("disk"), std::ios::binary) << disk;
    const ProgramResult result = Run({"--force"});
    EXPECT_EQ(result.exitCode, 3); // the loss is that of the first row
    EXPECT_TRUE(Says(result, Row(3) + File("disk") +
                                 ": holds no frames of that time and these channels; nothing was written"));
}

TEST_F(ListExport, LooksAtAllRowsBeforeItBegins) {
    const std::string good = "from,to,file,channels\n" + At(2) + "," + At(5) + ",a.mkv,\n";
    const auto refused = [&](const std::string& row, const std::string& why) {
        List(good + row + "\n");
        const ProgramResult result = Run();
        EXPECT_EQ(result.exitCode, 1) << row;
        EXPECT_EQ(Files(), Names{}) << row;
        return Says(result, Row(3) + why);
    };
    const std::string times = At(2) + "," + At(5) + ",";
    EXPECT_TRUE(refused("soon," + At(5) + ",b.mkv,", "'soon' is not a time"));
    EXPECT_TRUE(refused(At(5) + "," + At(2) + ",b.mkv,", "--from lies after --to"));
    EXPECT_TRUE(refused(times + "b.mkv,32", "--channel"));
    EXPECT_TRUE(refused(times + "sub/b.mkv,", "'sub/b.mkv' is no file's name"));
    EXPECT_TRUE(refused(times + "sub\\b.mkv,", "'sub\\\\b.mkv' is no file's name"));
    EXPECT_TRUE(refused(times + "..,", "'..' is no file's name"));
    EXPECT_TRUE(refused(times + "a.AVI,",
                        "'a.AVI' would not be a .avi file; name a FILE.mkv or a FILE.mp4, or "
                        "give --container"));
    EXPECT_TRUE(refused(times + "a.mkv,", File("out/a.mkv") + ": is the name of a file of row 2 too"));
    EXPECT_TRUE(refused(times + "A.MKV,", File("out/A.MKV") + ": is the name of a file of row 2 too"));
    EXPECT_TRUE(
        refused(times + "a.mkv.json,", File("out/a.mkv.json") + ": is the name of a file of row 2 too"));
    EXPECT_TRUE(refused(times + "b.mkv,0,1", "has 5 cells"));
    // The same list would mean another time when it is run again.
    const std::string why = " is another time on another day; give a date and a time, or @SECONDS";
    for (const char* const from : {"-2h", "14:00:02", "today", "yesterday", "now"}) {
        const std::string name(from);
        EXPECT_TRUE(refused(name + ",2999-01-01,b.mkv,", "'" + name + "'" + why));
    }
    EXPECT_TRUE(refused("@0,-2h,b.mkv,", "'-2h'" + why));
    EXPECT_TRUE(refused(At(2) + ",now,b.mkv,", "'now'" + why));
}

TEST_F(ListExport, NeverReplacesItsOwnFiles) {
    List("from,to,file\n" + At(2) + "," + At(5) + ",a.mkv\n" + At(2) + "," + At(5) + ",a-2.mkv\n");
    const ProgramResult part = Run({"--force"});
    EXPECT_EQ(part.exitCode, 1);
    EXPECT_TRUE(Says(part, Row(3) + File("out/a-2.mkv") + ": with --force it could replace a part of"));
    EXPECT_EQ(Run().exitCode, 0);
    const std::string list = "from,to,file\n" + At(2) + "," + At(5) + ",list.csv\n";
    List(list);
    const ProgramResult itself = Export({"--list", File("list.csv"), "--force", "-o", File("")});
    EXPECT_EQ(itself.exitCode, 1);
    EXPECT_TRUE(Says(itself, Row(2) + File("list.csv") + ": is the list itself"));
    EXPECT_EQ(ReadFile(File("list.csv")), list);
}

TEST_F(ListExport, IsRefusedWhereItMeansNothing) {
    ListTwo();
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"--from", At(1)},
                                               {"--to", At(1)},
                                               {"--event", "0/0"},
                                               {"--record", "0/0"},
                                               {"--journey", "1"},
                                               {"--split", "journey"},
                                               {"--raw"},
                                               {"--manifest", File("m.json")}}) {
        EXPECT_EQ(Run(options).exitCode, 2) << options.front();
    }
    EXPECT_EQ(Export({"--list", File("list.csv"), "-o", "-"}).exitCode, 2);
    EXPECT_EQ(Export({"--list", File("list.csv"), "-o", File("out")}).exitCode, 2);
    EXPECT_EQ(Export({"--list", File("list.csv"), "-o", File("nowhere/")}).exitCode, 1);
    EXPECT_EQ(Export({"--list", File("none.csv"), "-o", File("out/")}).exitCode, 1);
    EXPECT_EQ(Files(), Names{});
}

} // namespace
