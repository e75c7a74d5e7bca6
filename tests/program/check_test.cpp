// What the program's check shows: nothing of a sound disk, and of a damaged one what it is, where, and what to do.

#include <nlohmann/json.hpp>

#include "program/one_camera.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

using namespace test_support;
using Json = nlohmann::json;

/// One camera, recorded for ten seconds into the first of four blocks.
class CheckCommand : public OneCamera {
protected:
    void SetUp() override { Record(); }

    ProgramResult Check(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, "check", File("disk"), "--utc"});
        return RunProgram(options);
    }

    /// The tail says that the block ends a minute later than its index does.
    void DamageTail() {
        Disk().Change<BlockTail_t>(Disk().TailOffset(0), [](BlockTail_t& tail) { tail.EndTime += 60; });
    }
    /// Nothing is left of the first frame's head.
    void DamageFrame() { Disk().Put(Disk().FrameOffset(0, 0), FrameHead_t{}); }
};

TEST_F(CheckCommand, OfASoundDisk) {
    const ProgramResult quick = Check();
    EXPECT_EQ(quick.exitCode, 0);
    EXPECT_EQ(quick.err, "");
    EXPECT_EQ(quick.out,
              "Nothing was found in the tables, heads, tails and indexes. --full reads every frame too.\n"
              "\n"
              "Findings          0\n"
              "Of these, losses  0\n"
              "Blocks checked    1\n"
              "Every frame read  no\n"
              "Frames read       0\n"
              "Bytes of them     0 B\n");
    const ProgramResult full = Check({"--full"});
    EXPECT_EQ(full.exitCode, 0);
    EXPECT_EQ(full.out.rfind("The disk is sound: nothing on it contradicts anything else.\n", 0), 0u)
        << full.out;
    EXPECT_NE(full.out.find("Frames read       50\n"), std::string::npos) << full.out;
}

TEST_F(CheckCommand, NamesWhatItFindsWithItsMeaning) {
    DamageTail();
    const ProgramResult result = Check();
    EXPECT_EQ(result.exitCode, 0); // nothing is missing
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(
        result.out.substr(0, result.out.find("Findings")),
        "SEVERITY  KIND             BYTE  FROM                 TO                   CHANNELS  FINDING\n"
        "note      tail_damaged  8454124  2026-11-20 14:00:00  2026-11-20 14:01:09  0         block 0: its "
        "tail "
        "is damaged; it is read all the same (end time)\n"
        "\n"
        "tail_damaged: Fields of the block's tail contradict its head or its index. It is read by those.\n"
        "  Check with every frame, which tells whether anything is missing.\n"
        "\n");
}

TEST_F(CheckCommand, ALossEndsItWith3) {
    DamageFrame();
    const ProgramResult quick = Check();
    EXPECT_EQ(quick.exitCode, 3);
    EXPECT_EQ(quick.err, "");
    EXPECT_NE(quick.out.find("frame_damaged"), std::string::npos) << quick.out;
    EXPECT_EQ(Check({"--full"}).exitCode, 3);
}

TEST_F(CheckCommand, JsonKeepsToItsSchema) {
    DamageTail();
    DamageFrame();
    for (const std::vector<std::string>& options :
         {std::vector<std::string>{"--json"}, {"--json", "--full"}}) {
        const Json document = Json::parse(Check(options).out);
        EXPECT_EQ(SchemaErrors("check", document), "") << document.dump(1);
        EXPECT_EQ(document["finding_count"], document["findings"].size());
        EXPECT_EQ(document["loss_count"], 1) << document.dump(1);
        EXPECT_EQ(document["full"], options.size() == 2);
        EXPECT_EQ(document["interrupted"], false);
    }
    const Json tail = Json::parse(Check({"--json"}).out)["findings"][0];
    EXPECT_EQ(tail["severity"], "note");
    EXPECT_EQ(tail["problem"], "tail_damaged");
    EXPECT_EQ(tail["fields"], "end time");
    EXPECT_EQ(tail["block"], 0);
    EXPECT_EQ(tail["disk_offset"], Disk().TailOffset(0));
    EXPECT_EQ(tail["start"], "2026-11-20T14:00:00Z");
    EXPECT_EQ(tail["channels"], Json::array({0}));
}

TEST_F(CheckCommand, LinesForMachines) {
    DamageTail();
    const std::string lines = Check({"--format", "ndjson"}).out;
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1);
    EXPECT_EQ(Json::parse(lines)["problem"], "tail_damaged");
    const std::string csv = Check({"--format", "csv"}).out;
    EXPECT_EQ(csv.rfind("severity,problem,disk_offset,start,end,channels,text,fields,block,", 0), 0u) << csv;
}

TEST_F(CheckCommand, DecodesWhenAskedTo) {
    EXPECT_EQ(Check({"--decode"}).exitCode, 2); // takes --full
    if (HAVE_STILLS == 0) {
        GTEST_SKIP() << "built without libavcodec and libswscale";
    }
    // The fifty pictures were made from a seed: no decoder knows them.
    const ProgramResult result = Check({"--full", "--decode"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Pictures decoded   0\nPictures left out  50\n"), std::string::npos)
        << result.out;
    const Json document = Json::parse(Check({"--full", "--decode", "--json"}).out);
    EXPECT_EQ(SchemaErrors("check", document), "") << document.dump(1);
    EXPECT_EQ(document["skipped_picture_count"], 50);
}

TEST_F(CheckCommand, LooksBehindTheLock) {
    Disk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 1;
    });
    const ProgramResult sound = Check({"--full"});
    EXPECT_EQ(sound.exitCode, 0);
    EXPECT_EQ(sound.out.rfind("The disk is sound", 0), 0u) << sound.out;
    DamageFrame();
    EXPECT_EQ(Check({"--full"}).exitCode, 3);
}

} // namespace
