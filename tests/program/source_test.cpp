// Whole disks, split images and E01 images: every command reads them as it reads the partition, and no part of them is
// written.

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/files.h"
#include "support/partition_tables.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using namespace sample_recorder;
using Json = nlohmann::json;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC
constexpr uint64_t kMiB = 0x100000;
/// Where the partition begins on whole disks.
constexpr uint64_t kBegin = 6 * kMiB;

/// One camera, recorded for ten seconds.
class Sources : public SearchFixture {
protected:
    void SetUp() override {
        sample_recorder::Format format;
        format.blockCount = 4;
        MakeDisk(format);
        RecorderSettings settings;
        settings.channels = 1;
        Recorder recorder(Disk(), settings);
        GeneratedSource source(GeneratedCamera{0, 5, 5, 800, 200, 32, 40}, 1, kStart, 10);
        for (Frame frame; source.Next(frame);) {
            recorder.Write(frame);
        }
        recorder.PowerOff();
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
    EXPECT_NE(Run({"info", File("whole")}).out.find("Partition                 2\nPartition from            6.0 MiB\n"),
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

} // namespace
