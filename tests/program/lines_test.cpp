// NDJSON and CSV of every command, held against the schemas of their lines and the tables of their columns.

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "program.h"
#include "support/csv_table.h"
#include "support/files.h"
#include "support/run_program.h"
#include "support/schema.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

// Where the sample disk has its blocks.
constexpr int kFirstBlock = 8 << 20;
constexpr int kBlockSize = 4 << 20;

/// A way to run a command, and what describes its lines.
struct Way {
    std::string schema; ///< of a line of NDJSON
    std::string table;  ///< of CSV
    Words words;        ///< after the command's name
    size_t rows;        ///< that it prints at least
    int exitCode = 0;
};

/// A recorder's disk with events and a suspect block, of which some sectors have gone to zero.
class Lines : public ::testing::Test {
protected:
    Lines() {
        const fs::path sample = fs::path(SAMPLE_DIRECTORY) / "sample.img";
        EXPECT_EQ(RunProgram({"cp", "--sparse=always", sample, m_disk}).exitCode, 0);
        {
            std::fstream disk(m_disk, std::ios::in | std::ios::out | std::ios::binary);
            disk.seekp(kFirstBlock + 10 * kBlockSize + (1 << 20)); // in the frames of block 10
            disk.write(std::string(65536, '\0').data(), 65536);
        }
        // What was recorded is gone from this one, but its head still says how the disk is divided.
        EXPECT_EQ(RunProgram({"cp", "--sparse=always", m_disk, m_empty}).exitCode, 0);
        fs::resize_file(m_empty, kFirstBlock);
        fs::resize_file(m_empty, fs::file_size(m_disk));
        // The last row can be no file.
        std::ofstream(m_list) << "from,to,channels,file\n"
                                 "2026-11-20 16:20:10,2026-11-20 16:20:15,0,whole.mkv\n"
                                 "2026-11-18 08:00:30,2026-11-18 08:00:36,1,damaged.mp4\n"
                                 "2026-11-20 16:20:10,2026-11-20 16:20:15,0,"
                              << std::string(300, 'x') << ".mkv\n";
    }

    std::string File(const std::string& name) const { return m_dir.File(name); }

    /// How each command is run in each of the forms.
    std::map<std::string, std::vector<Way>> WaysTo(const std::string& out) const {
        const std::string database = File(out + ".db");
        const Words damaged = {"--from", "2026-11-18 08:00:30", "--to", "2026-11-18 08:00:36"};
        const auto with = [](Words words, const Words& more) {
            words.insert(words.end(), more.begin(), more.end());
            return words;
        };
        return {
            {"find", {{"find", "find", {m_disk, m_empty}, 2}}},
            {"journeys", {{"journeys", "journeys", {m_disk}, 2}}},
            {"info", {{"info", "info", {m_disk}, 1}, {"info", "info-empty", {m_empty}, 1}}},
            {"list", {{"list", "list", {m_disk}, 60}, {"list", "list", {m_disk, "--mix"}, 60}}},
            {"events", {{"events", "events", {m_disk}, 6}}},
            {"days", {{"days", "days", {m_disk}, 2}}},
            {"units", {{"units", "units", {m_disk}, 16}}},
            {"space", {{"space", "space", {m_disk}, 1}}},
            {"check", {{"check", "check", {m_disk, "--full"}, 3, 3}}},
            {"play", {{"play", "play", with({m_disk}, damaged), 100, 3}}},
            {"still",
             {{"still",
               "still",
               {m_disk, "--at", "2026-11-18 08:01:20", "-o", File(out + "/still.png")},
               4}}},
            {"export",
             {{"export", "export", with({m_disk, "-o", File(out + ".mkv")}, damaged), 4, 3},
              {"export", "export",
               with({m_disk, "-o", File(out + ".mp4"), "--split", "channel", "--channel", "0,1"}, damaged), 2,
               3},
              {"export", "export", {m_disk, "--list", m_list, "-o", File(out + "/")}, 3, 1},
              {"export", "export", {m_disk, "--list", m_list, "-o", File(out + "/")}, 0, 1}}},
            {"extract",
             {{"extract", "extract", with({m_disk, "-o", File(out + ".img")}, damaged), 1, 3},
              {"extract",
               "extract",
               {m_disk, "-o", File(out + "-none.img"), "--from", "2030-01-01", "--to", "2030-01-02"},
               1}}},
            {"verify", {{"verify", "verify", {File(out + ".mkv.json"), "--source", m_disk}, 3}}},
            {"catalog",
             {{"catalog-add", "catalog-add", {"add", m_disk, "--database", database}, 1},
              {"catalog-list", "catalog-list", {"list", "--database", database}, 1},
              {"catalog-find", "catalog-find", {"find", "--database", database}, 2},
              {"catalog-remove", "catalog-remove", {"remove", "1", "--database", database}, 1}}},
        };
    }

    static std::string Print(const std::string& command, const Way& way, const std::string& format) {
        Words words = {DISKACCESS_PROGRAM, command};
        words.insert(words.end(), way.words.begin(), way.words.end());
        words.insert(words.end(), {"--utc", "--format", format});
        const ProgramResult result = RunProgram(words);
        EXPECT_EQ(result.exitCode, way.exitCode) << ::testing::PrintToString(words) << "\n" << result.err;
        return result.out;
    }

    TempDir m_dir;
    std::string m_disk = m_dir.File("disk.img");
    std::string m_empty = m_dir.File("empty.img");
    std::string m_list = m_dir.File("list.csv");
};

/// The commands of the program that print for programs.
std::vector<std::string> CommandsWithFormats() {
    std::vector<std::string> names;
    for (const diskaccess::Command& command : diskaccess::AllCommands()) {
        CLI::App app;
        diskaccess::Options options;
        command.AddTo(app, options, [](const CLI::App&) {});
        if (app.get_subcommand(command.Name())->get_option_no_throw("--json") != nullptr) {
            names.push_back(command.Name());
        }
    }
    return names;
}

TEST_F(Lines, KeepToTheirSchemasInEveryCommand) {
    fs::create_directory(File("lines"));
    const auto ways = WaysTo("lines");
    for (const std::string& command : CommandsWithFormats()) {
        ASSERT_EQ(ways.count(command), 1u) << "say above how " << command << " is run";
        for (const Way& way : ways.at(command)) {
            size_t count = 0;
            std::istringstream lines(Print(command, way, "ndjson"));
            for (std::string line; std::getline(lines, line); ++count) {
                const Json document = Json::parse(line, nullptr, false);
                EXPECT_EQ(SchemaErrors(way.schema + ".ndjson", document), "") << command << ": " << line;
            }
            EXPECT_GE(count, way.rows) << command;
        }
    }
}

TEST_F(Lines, OfCsvKeepToTheirTablesInEveryCommand) {
    fs::create_directory(File("cells"));
    const auto ways = WaysTo("cells");
    for (const std::string& command : CommandsWithFormats()) {
        ASSERT_EQ(ways.count(command), 1u) << "say above how " << command << " is run";
        for (const Way& way : ways.at(command)) {
            const std::string printed = Print(command, way, "csv");
            EXPECT_EQ(CsvErrors(way.table, printed), "") << command;
            EXPECT_GE(CsvRows(printed).size(), way.rows + 1) << command;
        }
    }
}

/// Every schema of lines and every table is one that a command is held against above.
TEST_F(Lines, HaveNoSchemaThatNoCommandUses) {
    std::set<std::string> used;
    for (const auto& [command, ways] : WaysTo("none")) {
        for (const Way& way : ways) {
            used.insert({way.schema + ".ndjson.schema.json", way.table + ".csv-metadata.json"});
        }
    }
    std::set<std::string> there;
    for (const auto& file : fs::directory_iterator(SchemaDirectory())) {
        const std::string name = file.path().filename();
        if (std::regex_search(name, std::regex("[.](ndjson|csv-metadata)[.]"))) {
            there.insert(name);
        }
    }
    EXPECT_EQ(there, used);
}

TEST(LinesThatAreWrong, AreSeen) {
    EXPECT_EQ(CsvErrors("days", "date\r\n2026-11-18\r\n2026-11-20\r\n"), "");
    EXPECT_EQ(CsvErrors("days", "day\r\n2026-11-18\r\n"), "other headings: day\n");
    EXPECT_EQ(CsvErrors("days", "date,count\r\n2026-11-18,1\r\n"), "other headings: date,count\n");
    EXPECT_EQ(CsvErrors("days", "date\r\n2026-11-18,1\r\n"), "row 1 has 2 cells\n");
    EXPECT_EQ(CsvErrors("days", "date\r\n18.11.2026\r\n"), "date: '18.11.2026'\n");
    const std::string headings = "time,event_types,channel,block,entry,closed,mark\r\n";
    EXPECT_EQ(CsvErrors("events", headings + "2026-11-18T08:00:25Z,1,,9,0,true,\r\n"), "");
    EXPECT_EQ(CsvErrors("events", headings + "2026-11-18T08:00:25,-1,32,,0,yes,good\r\n"),
              "time: '2026-11-18T08:00:25'\nevent_types: '-1'\nchannel: '32'\nblock: ''\nclosed: 'yes'\n"
              "mark: 'good'\n");
    EXPECT_EQ(CsvRows("a,\"b,\"\"c\"\"\"\r\n,\r\n"),
              (std::vector<std::vector<std::string>>{{"a", "b,\"c\""}, {"", ""}}));
    EXPECT_EQ(SchemaErrors("days.ndjson", Json{{"date", "2026-11-18"}}), "");
    EXPECT_NE(SchemaErrors("days.ndjson", Json{{"date", "2026-11-18"}, {"count", 1}}), "");
    EXPECT_NE(SchemaErrors("days.ndjson", Json::object()), "");
}

} // namespace
