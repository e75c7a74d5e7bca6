// What the program's catalog answers: documents that follow the schema, and channels and events by their names.

#include <fstream>
#include <nlohmann/json.hpp>

#include "search/search_fixture.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

using namespace test_support;
using namespace sample_recorder;
using Json = nlohmann::json;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC

/// Two cameras, recorded for a hundred seconds into the first of four blocks, and two events.
class CatalogAnswers : public SearchFixture {
protected:
    void SetUp() override {
        Format format;
        format.blockCount = 4;
        MakeDisk(format);
        BlockContents contents = BlockContents::Closed(1, kStart, kStart + 99)
                                     .Segment(0, kStart, kStart + 99, 9000)
                                     .Segment(3, kStart, kStart + 49, 9000)
                                     .Event((kStart + 20) * int64_t{1000000}, 0x4)
                                     .Event((kStart + 80) * int64_t{1000000}, 0x10);
        std::string("bus 12").copy(contents.head.VehicleNum, sizeof contents.head.VehicleNum);
        contents.head.pre_RecTime = 5;
        contents.head.AlmDelayTime = 10;
        Disk().WriteBlock(0, contents);
        std::ofstream(File("names")) << R"({"channels": {"0": "front", "3": "door"},
                                            "event_types": {"0x4": "door", "0x10": "panic button"}})";
    }

    ProgramResult Run(std::vector<std::string> words) const {
        words.insert(words.begin(), {DISKACCESS_PROGRAM, "catalog"});
        words.insert(words.end(), {"--database", File("catalog.db"), "--utc"});
        return RunProgram(words);
    }

    /// The document, which must follow the schema.
    Json Ask(std::vector<std::string> words, int code = 0) const {
        words.emplace_back("--json");
        const ProgramResult result = Run(words);
        EXPECT_EQ(result.exitCode, code) << result.err;
        Json document = Json::parse(result.out, nullptr, false);
        EXPECT_FALSE(document.is_discarded()) << result.out;
        EXPECT_EQ(SchemaErrors("catalog", document), "") << result.out;
        return document;
    }
};

TEST_F(CatalogAnswers, AnswersFollowTheSchema) {
    EXPECT_EQ(Ask({"add", File("disk")})["added"][0]["new"], true);
    EXPECT_EQ(Ask({"add", File("disk")})["added"][0]["read_block_count"], 0);
    EXPECT_EQ(Ask({"add", File("disk"), File("missing")}, 1)["added"].size(), 1u);
    EXPECT_EQ(Ask({"list"})["catalogued_disks"].size(), 1u);
    EXPECT_EQ(Ask({"find"})["found"].size(), 1u);
    EXPECT_EQ(Ask({"find", "--event", "all"})["found"].size(), 2u);
    EXPECT_EQ(Ask({"find", "--vehicle", "bus 13"})["found"].size(), 0u);
    for (uint32_t block = 1; block < 3; ++block) {
        const uint32_t start = kStart + 100 * block;
        Disk().WriteBlock(
            block, BlockContents::Closed(block + 1, start, start + 99).Segment(0, start, start + 99, 9000));
    }
    Ask({"add", File("disk")});
    const std::string nothing(Disk().BlockSize(), '\0');
    Disk().Write(Disk().BlockStart(1), nothing.data(), nothing.size());
    Ask({"add", File("disk")}, 3);
    EXPECT_GT(Ask({"list"})["problems"].size(), 0u);
    EXPECT_EQ(Ask({"remove", "1"})["removed"].size(), 1u);
    EXPECT_EQ(Ask({"remove", "1"}, 1)["removed"].size(), 0u);
    EXPECT_EQ(Ask({"list"})["catalogued_disks"].size(), 0u);
}

TEST_F(CatalogAnswers, FindsByNames) {
    Ask({"add", File("disk")});
    const auto times = [this](const std::vector<std::string>& options) {
        std::vector<std::string> words = {"find", "--names", File("names")};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<std::string> found;
        const Json document = Ask(words);
        for (const Json& row : document["found"]) {
            found.push_back(row["start"].get<std::string>().substr(11, 8) + " " +
                            row["end"].get<std::string>().substr(11, 8) + " " + row["channels"].dump() + " " +
                            row["event_types"].dump());
        }
        return found;
    };
    using Lines = std::vector<std::string>;
    // From five seconds before an event to ten after it.
    const Lines atDoor = {"14:00:15 14:00:30 [0,3] 4"};
    EXPECT_EQ(times({"--event", "door"}), atDoor);
    EXPECT_EQ(times({"--event", "0x4"}), atDoor);
    EXPECT_EQ(times({"--event", "4"}), atDoor);
    EXPECT_EQ(times({"--event", "door,panic button"}), (Lines{atDoor[0], "14:01:15 14:01:30 [0] 16"}));
    EXPECT_EQ(times({"--event", "panic button", "--channel", "door"}), Lines{});
    EXPECT_EQ(times({"--channel", "door"}), Lines{"14:00:00 14:00:49 [3] 0"});
    EXPECT_EQ(times({"--channel", "3"}), times({"--channel", "door"}));
}

TEST_F(CatalogAnswers, ShowsNamesToPeople) {
    Ask({"add", File("disk")});
    const std::string text = Run({"find", "--event", "door", "--names", File("names")}).out;
    EXPECT_NE(text.find("  front, door  door  "), std::string::npos) << text;
    EXPECT_NE(text.find(" --channel 0,3 "), std::string::npos) << text; // commands keep numbers
}

TEST_F(CatalogAnswers, RefusesNamesThatNothingBears) {
    const ProgramResult event = Run({"find", "--event", "window", "--names", File("names")});
    EXPECT_EQ(event.exitCode, 2);
    EXPECT_EQ(event.err,
              "diskaccess: --event: 'window' is not a set of event types; give a mask like 0x5, names of "
              "the names file, or all\n");
    EXPECT_EQ(Run({"find", "--channel", "roof", "--names", File("names")}).exitCode, 2);
    EXPECT_EQ(Run({"find", "--event", "door"}).exitCode, 2); // no file names it
}

} // namespace
