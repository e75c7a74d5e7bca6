// The sample recorder's program, and the sample partition of real video that it makes.

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "sample_recorder/field_override.h"
#include "search/search_fixture.h"
#include "support/files.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

using namespace test_support;
using Json = nlohmann::json;

ProgramResult RunSample(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), DISKACCESS_SAMPLE_PROGRAM);
    return RunProgram(arguments);
}

Json Show(const std::string& command, const std::string& partition, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {DISKACCESS_PROGRAM, command, partition, "--utc", "--json"});
    const ProgramResult result = RunProgram(options);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return Json::parse(result.out);
}

const std::string kSample = std::string(SAMPLE_DIRECTORY) + "/sample.img";

// ---- the sample partition

TEST(SamplePartition, HoldsWhatTheScenarioSays) {
    const Json info = Show("info", kSample);
    EXPECT_EQ(info["block_count"], 16);
    EXPECT_EQ(info["layout"], "extended");
    EXPECT_EQ(info["bad_block_count"], 1);
    EXPECT_EQ(info["suspect_block_count"], 1);
    EXPECT_EQ(info["newest_closed"], false);
    EXPECT_GT(info["oldest_block"], info["newest_block"]); // the ring has wrapped
    ASSERT_EQ(info["channel_properties"].size(), 4u);
    EXPECT_EQ(info["channel_properties"][0]["sample_rate"], 8000);
    EXPECT_EQ(info["channel_properties"][2]["audio_code"], 3);
    EXPECT_EQ(info["channel_properties"][3]["audio_code"], 0);
    const Json days = Show("days", kSample);
    EXPECT_EQ(days["days"], (Json{{{"date", "2026-11-18"}}, {{"date", "2026-11-20"}}}));
    const Json events = Show("events", kSample);
    std::map<int, int> types;
    for (const Json& event : events["events"]) {
        ++types[event["event_types"].get<int>()];
    }
    // The last of type 1 is in the block that the power failure cut off.
    EXPECT_EQ(types, (std::map<int, int>{{0x1, 3}, {0x4, 2}, {0x10, 1}}));
    EXPECT_LT(std::filesystem::file_size(kSample), 200u << 20);
}

/// The signal comes while a child decodes.
TEST(SamplePartition, ACheckThatDecodesIsEndedByASignal) {
    const auto endedBySignal = [](const std::string& options) {
        const ProgramResult result = RunProgram(
            {"bash", "-c",
             DISKACCESS_PROGRAM " check " + kSample + " --utc --full --decode " + options +
                 " & check=$!\n"
                 "until grep -q . /proc/$check/task/$check/children; do sleep 0.01; done\n"
                 "kill -TERM $check; begin=$SECONDS; wait $check; code=$?\n"
                 "test $((SECONDS - begin)) -lt 15 || echo late >&2\n" // of some seconds on a busy machine
                 "exit $code"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.err, "diskaccess: interrupted; not everything was looked at\n");
        return result.out;
    };
    const std::string text = endedBySignal("");
    EXPECT_NE(text.find("block 6: is marked bad"), std::string::npos) << text; // found before
    EXPECT_NE(text.find("Every frame read   no\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("Blocks checked"), std::string::npos) << text;
    const Json document = Json::parse(endedBySignal("--json"), nullptr, false);
    EXPECT_EQ(SchemaErrors("check", document), "") << document;
    EXPECT_EQ(document["interrupted"], true);
    EXPECT_EQ(document["full"], false);
    EXPECT_EQ(document["frame_count"], nullptr);
    EXPECT_EQ(document["finding_count"], document["findings"].size());
}

// ---- the program

class SampleProgram : public SearchFixture {
protected:
    std::string Refused(const std::vector<std::string>& arguments, int exitCode = 1) const {
        const ProgramResult result = RunSample(arguments);
        EXPECT_EQ(result.exitCode, exitCode);
        EXPECT_EQ(result.out, "");
        return result.err;
    }

    /// Writes a scenario without recordings, changed by @p edit, and records it.
    ProgramResult Record(const std::function<void(Json&)>& edit) {
        Json scenario = {{"partition", {{"block_count", 4}, {"block_size", 65536}}},
                         {"cameras", {{{"channel", 0}, {"frame_rate", 10}}}}};
        edit(scenario);
        std::ofstream(File("scenario.json")) << scenario;
        std::remove(File("made").c_str());
        return RunSample({"record", File("scenario.json"), File("made")});
    }
};

TEST_F(SampleProgram, GeneratesAPartition) {
    const ProgramResult made =
        RunSample({"generate", File("made"), "--blocks", "6", "--block-size", "256KiB", "--layout",
                   "extended", "--channels", "3", "--seconds", "60", "--cut-power"});
    EXPECT_EQ(made.exitCode, 0) << made.err;
    const Json info = Show("info", File("made"));
    EXPECT_EQ(info["block_count"], 6);
    EXPECT_EQ(info["block_size_bytes"], 262144);
    EXPECT_EQ(info["layout"], "extended");
    EXPECT_EQ(info["newest_closed"], false);
    EXPECT_EQ(info["channel_properties"].size(), 3u);
    const Json list = Show("list", File("made"));
    EXPECT_GT(list["record_count"], 3);
    // The same seed makes the same partition.
    RunSample({"generate", File("again"), "--blocks", "6", "--block-size", "256KiB", "--layout", "extended",
               "--channels", "3", "--seconds", "60", "--cut-power"});
    EXPECT_TRUE(ReadFile(File("made")) == ReadFile(File("again")));
}

TEST_F(SampleProgram, RecordsLiveUntilItsTimeIsOver) {
    const std::string disk = File("live.img");
    const ProgramResult result =
        RunSample({"live", disk, "--blocks", "4", "--block-size", "64KiB", "--channels", "2", "--speed",
                   "2000", "--for", "0.5", "--events", "1"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    const Json info = Show("info", disk);
    EXPECT_EQ(info["newest_closed"], true);
    EXPECT_FALSE(Show("list", disk)["records"].empty());
    EXPECT_FALSE(Show("events", disk)["events"].empty());
    EXPECT_NE(result.err.find(" frames in "), std::string::npos);
}

TEST_F(SampleProgram, MakesALargeRingInLittleSpace) {
    const ProgramResult made =
        RunSample({"ring", File("made"), "--blocks", "2000", "--block-size", "8MiB", "--channels", "2"});
    EXPECT_EQ(made.exitCode, 0) << made.err;
    struct stat status = {};
    ASSERT_EQ(stat(File("made").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, (2000LL + 1) * 0x800000);
    EXPECT_LT(status.st_blocks * 512LL, 64LL << 20);
    EXPECT_EQ(Show("list", File("made"))["record_count"], 4000);
    EXPECT_EQ(Show("space", File("made"))["wrapped"], true);
}

TEST_F(SampleProgram, OverwritesNothing) {
    std::ofstream(File("precious")) << "do not lose this";
    EXPECT_EQ(Refused({"generate", File("precious")}),
              "diskaccess-sample: " + File("precious") +
                  ": cannot be made: File exists; remove it first, or choose "
                  "another name\n");
    EXPECT_EQ(ReadFile(File("precious")), "do not lose this");
    EXPECT_NE(Refused({"ring", "/dev/null"}), "");
    EXPECT_THROW(PartitionImage::Create(File("precious"), {}), sample_recorder::AlreadyThere);
}

TEST_F(SampleProgram, RemovesNoLinkThatLeadsNowhere) {
    std::filesystem::create_symlink("nowhere", File("link"));
    EXPECT_NE(Refused({"generate", File("link")}).find("cannot be made: File exists"), std::string::npos);
    EXPECT_NE(Refused({"record", File("none.json"), File("link")}), "");
    EXPECT_TRUE(std::filesystem::is_symlink(File("link")));
    EXPECT_FALSE(std::filesystem::exists(File("nowhere")));
}

TEST_F(SampleProgram, LeavesNothingThatIsNotWhole) {
    const std::string disk = File("made");
    EXPECT_EQ(Refused({"ring", disk, "--start", "0", "--blocks", "4194304", "--block-size", "8KiB"}),
              "diskaccess-sample: " + disk +
                  ": the tables of so many blocks do not fit before block 0; make fewer blocks\n");
    EXPECT_FALSE(std::filesystem::exists(disk));
    EXPECT_EQ(Refused({"generate", disk, "--start", "4000000000", "--seconds", "294967296"}),
              "diskaccess-sample: --start and --seconds: a recording must end by 2106-02-07T06:28:15Z\n");
    EXPECT_FALSE(std::filesystem::exists(disk));
    EXPECT_EQ(Refused({"ring", disk, "--start", "4000000000", "--blocks", "1000000"}),
              "diskaccess-sample: --start and --blocks: a ring must end by 2106-02-07T06:28:15Z; each block "
              "holds 300 seconds\n");
    EXPECT_FALSE(std::filesystem::exists(disk));
    const ProgramResult made = Record([](Json& scenario) {
        scenario["overrides"] = {{{"structure", "BlockHead_t"}, {"field", "Nothing"}, {"value", 1}}};
    });
    EXPECT_EQ(made.exitCode, 1);
    EXPECT_NE(made.err.find("Nothing"), std::string::npos) << made.err;
    EXPECT_FALSE(std::filesystem::exists(disk));
}

TEST_F(SampleProgram, WantsBlocksThatHoldTheirTables) {
    const ProgramResult made = Record([](Json& scenario) { scenario["partition"]["block_size"] = 100; });
    EXPECT_EQ(made.exitCode, 1);
    EXPECT_EQ(made.err, "diskaccess-sample: a partition needs at least one block, and blocks that hold their "
                        "own head and index\n");
}

TEST_F(SampleProgram, OverridesFieldsByName) {
    const ProgramResult made = Record([](Json& scenario) {
        scenario["overrides"] = {
            {{"structure", "PartHead_t"}, {"field", "Encrypt"}, {"value", 1}},
            {{"structure", "PartHead_t"}, {"field", "EncryptMap"}, {"value", "0xF"}},
            {{"structure", "BlockHead_t"}, {"block", 2}, {"field", "RecSeq"}, {"value", 77}},
            {{"structure", "BlkIndexHead_t"}, {"block", 2}, {"field", "recSegCount[31]"}, {"value", 5}},
            {{"structure", "BlockTail_t"}, {"block", 3}, {"field", "RecSeq"}, {"value", 78}}};
    });
    EXPECT_EQ(made.exitCode, 0) << made.err;
    const std::string disk = ReadFile(File("made"));
    EXPECT_EQ(At<uint32_t>(disk, 64), 1u);
    EXPECT_EQ(At<uint32_t>(disk, 68), 0xFu);
    EXPECT_EQ(At<uint32_t>(disk, 0x820000 + 8), 77u);
    EXPECT_EQ(At<uint32_t>(disk, 0x82F000 + 128 + 31 * 4), 5u);
    EXPECT_EQ(At<uint32_t>(disk, 0x83FFEC + 8), 78u);
}

TEST_F(SampleProgram, OverridesReachEveryStructure) {
    Format format;
    format.fmtVersion = 1;
    PartitionImage& image = MakeDisk(format);
    sample_recorder::OverrideField(image, 1, "BlkExtHead_t", "ExtPara", 5);
    sample_recorder::OverrideField(image, 1, "BlockTailEx_t", "EndTime", 6);
    sample_recorder::OverrideField(image, 1, "BlockTail_t", "CloseState", 7);
    EXPECT_EQ(image.Get<uint32_t>(0x810000 + 844), 5u);
    EXPECT_EQ(image.Get<uint32_t>(0x810000 + 0xFE14 + 8), 6u);
    EXPECT_EQ(image.Get<uint32_t>(0x810000 + 0xFE00 + 4), 7u);
}

TEST_F(SampleProgram, SaysWhatIsWrongWithAScenario) {
    const std::vector<std::pair<std::function<void(Json&)>, std::string>> cases = {
        {[](Json& s) { s["nonsense"] = 1; }, "scenario: does not know 'nonsense'"},
        {[](Json& s) { s["partition"]["nonsense"] = 1; }, "partition: does not know 'nonsense'"},
        {[](Json& s) { s["partition"]["block_count"] = "many"; },
         "partition: 'block_count' has a value of the wrong kind"},
        {[](Json& s) { s["partition"]["layout"] = "odd"; }, "partition: 'layout' must be normal or extended"},
        {[](Json& s) { s["partition"] = 5; }, "partition: must be an object"},
        {[](Json& s) { s["cameras"][0]["channel"] = 32; },
         "cameras: a channel is 0 to 31, a frame rate 1 to 255, an audio frame 1 to 65536 bytes"},
        {[](Json& s) { s["cameras"][0].erase("frame_rate"); }, "cameras: needs 'frame_rate'"},
        {[](Json& s) {
             s["recordings"] = {{{"start", "now"}, {"seconds", 5}}};
         },
         "recordings: 'start' must be a time like 2026-11-18T07:58:00Z"},
        {[](Json& s) {
             s["recordings"] = {{{"start", "2026-11-18T07:58:00Z"}, {"seconds", 5}, {"end", "bang"}}};
         },
         "recordings: 'end' must be power_off, power_cut or power_cut_after_index"},
        {[](Json& s) {
             s["recordings"] = {{{"start", "2026-11-18T07:58:00Z"},
                                 {"seconds", 5},
                                 {"clips", {{{"channel", 3}, {"video", "x.h264"}}}}}};
         },
         "clips: channel 3 is not among the cameras"},
        {[](Json& s) {
             s["events"] = {{{"time", "2026-11-18T07:58:00Z"}, {"type", "0xg"}}};
         },
         "events: 'type' must be a number like 12 or \"0x800\""},
        {[](Json& s) { s["bad_blocks"] = {4}; }, "there is no block 4 in a ring of 4"},
        {[](Json& s) {
             s["suspect_blocks"] = {{{"block", 9}, {"count", 1}}};
         },
         "there is no block 9 in a ring of 4"},
        {[](Json& s) {
             s["overrides"] = {{{"structure", "BlockHead_t"}, {"field", "Nothing"}, {"value", 1}}};
         },
         "BlockHead_t.Nothing: no such field can be overridden"},
        {[](Json& s) {
             s["overrides"] = {{{"structure", "BlkIndexHead_t"}, {"field", "iframeCount[32]"}, {"value", 1}}};
         },
         "BlkIndexHead_t.iframeCount[32]: give an index from 0 to 31 in brackets"},
        {[](Json& s) {
             s["overrides"] = {{{"structure", "BlkIndexHead_t"}, {"field", "iframeCount[x]"}, {"value", 1}}};
         },
         "BlkIndexHead_t.iframeCount[x]: give an index from 0 to 31 in brackets"},
        {[](Json& s) {
             s["overrides"] = {
                 {{"structure", "BlockHead_t"}, {"block", 4}, {"field", "RecSeq"}, {"value", 1}}};
         },
         "there is no block 4 to override a field of"},
        {[](Json& s) {
             s["overrides"] = {{{"structure", "BlockHead_t"}, {"field", "RecSeq"}, {"value", 4294967296}}};
         },
         "overrides: 'value' must fit 32 bits"},
        {[](Json& s) { s["partition"]["block_count"] = -1; },
         "partition: 'block_count' must be a whole number from 0 to 4294967295"},
        {[](Json& s) { s["partition"]["block_count"] = 4294967300; },
         "partition: 'block_count' must be a whole number from 0 to 4294967295"},
        {[](Json& s) { s["partition"]["block_size"] = 65536.5; },
         "partition: 'block_size' must be a whole number from 0 to 4294967295"},
        {[](Json& s) { s["partition"]["block_size"] = 1e30; },
         "partition: 'block_size' must be a whole number from 0 to 4294967295"},
        {[](Json& s) { s["partition"]["disk_type"] = 2147483648; },
         "partition: 'disk_type' must be a whole number from -2147483648 to 2147483647"},
        {[](Json& s) { s["partition"]["block_count"] = true; },
         "partition: 'block_count' has a value of the wrong kind"},
        {[](Json& s) { s["cameras"][0]["gop"] = 256; },
         "cameras: 'gop' must be a whole number from 0 to 255"},
        {[](Json& s) { s["cameras"][0]["audio_frame"] = 65537; },
         "cameras: a channel is 0 to 31, a frame rate 1 to 255, an audio frame 1 to 65536 bytes"},
        {[](Json& s) { s["cameras"] = Json::object(); }, "scenario: 'cameras' must be a list"},
        {[](Json& s) { s["bad_blocks"] = 3; }, "scenario: 'bad_blocks' must be a list"},
        {[](Json& s) { s["bad_blocks"] = {-1}; },
         "scenario: 'bad_blocks' must be a whole number from 0 to 4294967295"},
        {[](Json& s) {
             s["suspect_blocks"] = {{{"block", 1}, {"count", 256}}};
         },
         "suspect_blocks: 'count' must be a whole number from 0 to 255"},
        {[](Json& s) {
             s["events"] = {{{"time", "2026-02-31T07:58:00Z"}, {"type", 1}}};
         },
         "events: 'time' must be a time like 2026-11-18T07:58:00Z"},
        {[](Json& s) {
             s["events"] = {{{"time", "2106-02-07T06:28:16Z"}, {"type", 1}}};
         },
         "events: 'time' must be a time like 2026-11-18T07:58:00Z"},
        {[](Json& s) {
             s["events"] = {{{"time", "2026-11-18T07:58:00Z"}, {"type", "-1"}}};
         },
         "events: 'type' must be a number like 12 or \"0x800\""},
        {[](Json& s) {
             s["events"] = {{{"time", "2026-11-18T07:58:00Z"}, {"type", -1}}};
         },
         "events: 'type' must be a whole number from 0 to 18446744073709551615"},
        {[](Json& s) { s["partition"]["description"] = std::string(33, 'd'); },
         "partition: 'description' must be at most 32 bytes"},
        {[](Json& s) { s["partition"]["lock"]["password"] = std::string(128, 'p'); },
         "lock: 'password' must be at most 127 bytes"},
        {[](Json& s) { s["vehicle"]["number"] = std::string(17, 'n'); },
         "vehicle: 'number' must be at most 16 bytes"},
        {[](Json& s) { s["vehicle"]["id"] = std::string(33, 'i'); },
         "vehicle: 'id' must be at most 32 bytes"},
        {[](Json& s) { s["cameras"].push_back(s["cameras"][0]); }, "cameras: channel 0 is there twice"},
        {[](Json& s) {
             s["events"] = {{{"time", "2026-11-18T07:58:00Z"}, {"type", 1}, {"channel", 1}}};
         },
         "events: channel 1 is not among the cameras"},
        {[](Json& s) {
             s["recordings"] = {{{"start", "2026-11-18T07:58:00Z"}, {"seconds", 5}}};
             s["events"] = {{{"time", "2026-11-18T07:58:05Z"}, {"type", 1}}};
         },
         "events: 'time' must lie in a recording"},
        {[](Json& s) {
             s["recordings"] = {{{"start", "2026-11-18T07:58:00Z"}, {"seconds", 5}}};
             s["events"] = {{{"time", "2026-11-18T07:57:59Z"}, {"type", 1}}};
         },
         "events: 'time' must lie in a recording"},
        {[](Json& s) {
             s["recordings"] = {{{"start", "2106-02-07T06:28:15Z"}, {"seconds", 1}}};
         },
         "recordings: a recording must end by 2106-02-07T06:28:15Z"},
    };
    for (const auto& [edit, line] : cases) {
        const ProgramResult result = Record(edit);
        EXPECT_EQ(result.exitCode, 1) << line;
        EXPECT_EQ(result.err, "diskaccess-sample: " + File("scenario.json") + ": " + line + "\n");
    }
}

TEST_F(SampleProgram, TextsMayFillTheirFields) {
    const ProgramResult made = Record([](Json& scenario) {
        scenario["partition"]["description"] = std::string(32, 'd');
        scenario["partition"]["lock"]["password"] = std::string(127, 'p');
    });
    EXPECT_EQ(made.exitCode, 0) << made.err;
    const std::string disk = ReadFile(File("made"));
    EXPECT_EQ(disk.substr(offsetof(PartHead_t, Description), 32), std::string(32, 'd'));
    EXPECT_EQ(disk.substr(offsetof(PartHead_t, CipherCode), 128), std::string(127, 'p') + '\0');
}

TEST_F(SampleProgram, RecordsEveryEventInOrderOfTime) {
    const ProgramResult made = Record([](Json& scenario) {
        scenario["vehicle"] = {{"number", std::string(16, 'n')}, {"id", std::string(32, 'i')}};
        scenario["recordings"] = {{{"start", "2026-11-18T07:58:00Z"}, {"seconds", 5}},
                                  {{"start", "2026-11-18T09:00:00Z"}, {"seconds", 5}}};
        scenario["events"] = {{{"time", "2026-11-18T09:00:04Z"}, {"type", 4}},
                              {{"time", "2026-11-18T07:58:04Z"}, {"type", 2}},
                              {{"time", "2026-11-18T07:58:00Z"}, {"type", 1}}};
    });
    EXPECT_EQ(made.exitCode, 0) << made.err;
    const Json shown = Show("events", File("made"));
    std::vector<std::string> events;
    for (const Json& event : shown["events"]) {
        events.push_back(event["time"].get<std::string>() + " " + event["event_types"].dump());
    }
    EXPECT_EQ(events, (std::vector<std::string>{"2026-11-18T07:58:00Z 1", "2026-11-18T07:58:04Z 2",
                                                "2026-11-18T09:00:04Z 4"}));
    const std::string disk = ReadFile(File("made"));
    const size_t head = 0x800000;
    EXPECT_EQ(disk.substr(head + offsetof(BlockHead_t, VehicleNum), 16), std::string(16, 'n'));
    EXPECT_EQ(disk.substr(head + offsetof(BlockHead_t, VehicleID), 32), std::string(32, 'i'));
}

TEST_F(SampleProgram, SaysWhatIsWrongWithMedia) {
    std::ofstream(File("text.h264")) << "this is no video";
    const auto with = [](const std::string& video, const std::string& audio) {
        return [=](Json& s) {
            s["recordings"] = {{{"start", "2026-11-18T07:58:00Z"},
                                {"seconds", 5},
                                {"clips", {{{"channel", 0}, {"video", video}, {"audio", audio}}}}}};
        };
    };
    const std::string front = std::string(SAMPLE_DIRECTORY).substr(1) + "/front-1";
    const std::string up = "../../../../../../../../../../";
    EXPECT_NE(Record(with("missing.h264", "")).err.find("missing.h264: cannot be opened: No such file"),
              std::string::npos);
    EXPECT_EQ(Record(with("text.h264", "")).exitCode, 1);
    EXPECT_NE(Record(with(up + front + ".wav", "")).err.find("holds no video"), std::string::npos);
    EXPECT_NE(Record(with(up + front + ".h264", up + front + ".h264")).err.find("holds no audio"),
              std::string::npos);
    // Good ones are repeated for as long as a recording lasts.
    const ProgramResult made = Record([&](Json& s) {
        with(up + front + ".h264", up + front + ".wav")(s);
        s["partition"]["block_count"] = 40;
        s["partition"]["block_size"] = 4 << 20;
        s["recordings"][0]["seconds"] = 300;
    });
    EXPECT_EQ(made.exitCode, 0) << made.err;
    const Json units = Show("units", File("made"))["units"];
    EXPECT_EQ(units[0]["start"], "2026-11-18T07:58:00Z");
    Json last;
    for (const Json& unit : units) {
        last = unit["state"] == "closed" ? unit : last;
    }
    EXPECT_EQ(last["end"], "2026-11-18T08:02:59Z");
}

TEST_F(SampleProgram, WrongUseEndsWithTwo) {
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"record"},
                                               {"record", "scenario.json"},
                                               {"generate"},
                                               {"generate", File("made"), "--blocks", "0"},
                                               {"generate", File("made"), "--layout", "odd"},
                                               {"generate", File("made"), "--channels", "33"},
                                               {"ring", File("made"), "--block-size", "1"},
                                               {"generate", File("made"), "--start", "4000000001"},
                                               {"live", File("made"), "--speed", "0"},
                                               {"live", File("made"), "--speed", "nan"},
                                               {"live", File("made"), "--for", "nan"},
                                               {"live", File("made"), "--for", "-1"},
                                               {"nonsense"}}) {
        EXPECT_NE(Refused(arguments, 2), "");
        EXPECT_FALSE(std::filesystem::exists(File("made")));
    }
    EXPECT_EQ(Refused({"record", "/nonexistent.json", File("made")}),
              "diskaccess-sample: /nonexistent.json: cannot be read\n");
    std::ofstream(File("broken.json")) << "{ \"partition\": ";
    EXPECT_NE(Refused({"record", File("broken.json"), File("made")}).find("broken.json: is not JSON at byte"),
              std::string::npos);
    std::ofstream(File("large.json")) << R"({ "partition": { "block_count": 1e999 } })";
    EXPECT_EQ(Refused({"record", File("large.json"), File("made")}),
              "diskaccess-sample: " + File("large.json") + ": holds a number that no field can hold\n");
    EXPECT_EQ(RunSample({"--help"}).exitCode, 0);
    EXPECT_EQ(RunSample({"--version"}).exitCode, 0);
}

} // namespace
