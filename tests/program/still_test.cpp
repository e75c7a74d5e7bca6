// Single pictures as the program makes them: which frame, under which name, and what it says when there is none.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/files.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using namespace sample_recorder;
using Json = nlohmann::json;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC

/// A key frame as a camera sends it: H.264, baseline, 64 x 48 pixels, grey all over.
const std::vector<uint8_t> kGrey = {0x00, 0x00, 0x00, 0x01, 0x67, 0x42, 0xC0, 0x0A, 0xD9, 0x04, 0x7B, 0x01,
                                    0x10, 0x00, 0x00, 0x03, 0x00, 0x10, 0x00, 0x00, 0x03, 0x00, 0xA0, 0xF1,
                                    0x22, 0x64, 0x80, 0x00, 0x00, 0x00, 0x01, 0x68, 0xCB, 0x83, 0xCB, 0x20,
                                    0x00, 0x00, 0x01, 0x65, 0x88, 0x84, 0x0F, 0xF2, 0x62, 0x80, 0x00, 0x80,
                                    0x3C, 0x9C, 0x9C, 0x9D, 0x75, 0xD7, 0x5D, 0x75, 0xD7, 0x5E};

/// Channels 0 and 2, a picture every 0.4 seconds for four seconds.
class StillCommand : public SearchFixture {
protected:
    void SetUp() override {
        if (HAVE_STILLS == 0) {
            GTEST_SKIP() << "built without libavcodec and libswscale";
        }
        Format format;
        format.blockCount = 4;
        MakeDisk(format);
        RecorderSettings settings;
        settings.channels = 0x5;
        Recorder recorder(Disk(), settings);
        for (int i = 0; i < 10; ++i) {
            for (const uint32_t channel : {0u, 2u}) {
                Frame frame;
                frame.pts = Pts(kStart) + i * 400000;
                frame.type = 1;
                frame.channel = channel;
                frame.payload = kGrey;
                recorder.Write(frame);
            }
        }
        recorder.PowerOff();
    }

    ProgramResult Take(const std::string& time, const std::string& output,
                       std::vector<std::string> options = {}) const {
        options.insert(options.begin(),
                       {DISKACCESS_PROGRAM, "still", File("disk"), "--utc", "--at", time, "-o", output});
        return RunProgram(options);
    }

    /// The names of the files in a folder.
    static std::vector<std::string> Names(const std::string& folder) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(StillCommand, TakesTheLastPictureAtOrBeforeTheMoment) {
    const auto timeAt = [&](const std::string& at) {
        const Json document =
            Json::parse(Take(at, File("a.png"), {"--channel", "0", "--json", "--force"}).out);
        return document["stills"][0]["time"].get<std::string>();
    };
    EXPECT_EQ(timeAt("2026-11-20 14:00:01"), "2026-11-20T14:00:00.800000Z");
    EXPECT_EQ(timeAt("2026-11-20 14:00:02"), "2026-11-20T14:00:02.000000Z");
    EXPECT_EQ(timeAt("2026-11-20 14:00:02.399"), "2026-11-20T14:00:02.000000Z");
    EXPECT_EQ(timeAt("2026-11-20 14:00:02.4"), "2026-11-20T14:00:02.400000Z");
    EXPECT_EQ(timeAt("2026-11-20T15:00:02.400000+01:00"), "2026-11-20T14:00:02.400000Z");
    EXPECT_EQ(timeAt("@1795183202.4"), "2026-11-20T14:00:02.400000Z");
    EXPECT_EQ(timeAt("2026-11-20 14:00:18.6"), "2026-11-20T14:00:03.600000Z");
}

TEST_F(StillCommand, WritesJpegAndPng) {
    EXPECT_EQ(Take("2026-11-20 14:00:01", File("a.jpg"), {"--channel", "0"}).exitCode, 0);
    EXPECT_EQ(ReadFile(File("a.jpg")).substr(0, 3), "\xFF\xD8\xFF");
    EXPECT_EQ(Take("2026-11-20 14:00:01", File("a.png"), {"--channel", "0"}).exitCode, 0);
    const std::string png = ReadFile(File("a.png"));
    EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1A\n");
    EXPECT_EQ(png.substr(16, 8), std::string("\0\0\0\x40\0\0\0\x30", 8)); // 64 x 48
}

TEST_F(StillCommand, NamesSeveralByTheirChannels) {
    EXPECT_EQ(Take("2026-11-20 14:00:01", File("a.jpg")).exitCode, 0);
    EXPECT_TRUE(fs::exists(File("a-channel-0.jpg")));
    EXPECT_TRUE(fs::exists(File("a-channel-2.jpg")));
    EXPECT_FALSE(fs::exists(File("a.jpg")));
}

TEST_F(StillCommand, NamesThoseInAFolderByTheirTimes) {
    fs::create_directory(File("folder"));
    EXPECT_EQ(Take("2026-11-20 14:00:01", File("folder/")).exitCode, 0);
    EXPECT_EQ(Names(File("folder")), (std::vector<std::string>{"2026-11-20-140000.800-channel-0.jpg",
                                                               "2026-11-20-140000.800-channel-2.jpg"}));
}

TEST_F(StillCommand, ShowsWhatItMade) {
    const ProgramResult result = Take("2026-11-20 14:00:01", File("a.png"), {"--channel", "2", "--json"});
    const Json document = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("still", document), "") << document.dump(1);
    ASSERT_EQ(document["stills"].size(), 1u);
    const Json still = document["stills"][0];
    EXPECT_EQ(still["channel"], 2);
    EXPECT_EQ(still["picture"], "whole");
    EXPECT_EQ(still["block"], 0);
    EXPECT_EQ(still["offset"], 5 * (24 + kGrey.size()));
    EXPECT_EQ(still["width"], 64);
    EXPECT_EQ(still["height"], 48);
    EXPECT_EQ(still["size_bytes"], fs::file_size(File("a.png")));
    EXPECT_EQ(still["file"], File("a.png"));
}

TEST_F(StillCommand, PutsARangeOnOneSheet) {
    const auto sheet = [this](std::vector<std::string> options) {
        options.insert(options.begin(),
                       {DISKACCESS_PROGRAM, "still", File("disk"), "--utc", "--sheet", "-o", File("a.png")});
        return RunProgram(options);
    };
    const ProgramResult result =
        sheet({"--from", "2026-11-20 14:00:00", "--to", "2026-11-20 14:00:04", "--columns", "3", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const Json document = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("still", document), "") << document.dump(1);
    std::string stills;
    for (const Json& still : document["stills"]) {
        stills += std::to_string(still["channel"].get<int>()) + " " +
                  still["time"].get<std::string>().substr(17, 4) + "\n";
    }
    EXPECT_EQ(document["file"], File("a.png")); // once, and not as the size of each picture
    EXPECT_EQ(document["size_bytes"], fs::file_size(File("a.png")));
    EXPECT_EQ(document["stills"][5]["file"], File("a.png"));
    EXPECT_TRUE(document["stills"][5]["size_bytes"].is_null());
    EXPECT_TRUE(document["stills"][5]["sha256"].is_null());
    EXPECT_EQ(stills, "0 00.0\n0 02.0\n0 03.6\n2 00.0\n2 02.0\n2 03.6\n"); // pictures 0.4 s apart, up to 3.6
    // Three columns of 320 pixels with 8 between and round them. A line of text is 14 and 4 high: the title; then, for
    // each of two channels, two lines and pictures of 48.
    const std::string size = ReadFile(File("a.png")).substr(16, 8);
    EXPECT_EQ(size, std::string("\0\0\x03\xE0\0\0\0\xDA", 8)); // 992 x 218
    EXPECT_EQ(
        sheet({"--every", "2s", "--from", "2026-11-20 14:00:00", "--to", "2026-11-20 14:00:19"}).exitCode,
        1); // is there
    const ProgramResult every = sheet({"--every", "10s", "--from", "2026-11-20 13:59:40", "--to",
                                       "2026-11-20 14:00:19", "--channel", "2", "--json", "--force"});
    const Json rows = Json::parse(every.out);
    std::string states;
    for (const Json& still : rows["stills"]) {
        states += still["picture"].get<std::string>() + "\n";
    }
    EXPECT_EQ(states, "not recorded\nnot recorded\nwhole\nwhole\n");
}

TEST_F(StillCommand, SaysOnceWhereASheetIs) {
    const ProgramResult result = RunProgram({DISKACCESS_PROGRAM, "still", File("disk"), "--utc", "--sheet",
                                             "--from", "2026-11-20 14:00:00", "--to", "2026-11-20 14:00:00",
                                             "--channel", "2", "--columns", "1", "-o", File("a.png")});
    const std::string start = "CHANNEL  TIME                     PICTURE  BLOCK  WIDTH  HEIGHT\n"
                              "      2  2026-11-20 14:00:00.000  whole        0     64      48\n\n"
                              "Sheet  " +
                              File("a.png") + "\nSize   ";
    EXPECT_EQ(result.out.substr(0, start.size()), start);
}

TEST_F(StillCommand, RefusesSheetsThatMakeNoSense) {
    const auto status = [this](std::vector<std::string> options) {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, "still", File("disk"), "--utc"});
        return RunProgram(options).exitCode;
    };
    const std::string file = File("a.png");
    EXPECT_EQ(status({"-o", file}), 2);
    EXPECT_EQ(status({"--sheet", "--at", "2026-11-20 14:00:01", "-o", file}), 2);
    EXPECT_EQ(status({"--at", "2026-11-20 14:00:01", "--from", "2026-11-20", "-o", file}), 2);
    EXPECT_EQ(status({"--every", "10s", "--at", "2026-11-20 14:00:01", "-o", file}), 2);
    EXPECT_EQ(status({"--sheet", "--every", "0", "-o", file}), 2);
    EXPECT_EQ(status({"--sheet", "--every", "1s", "--from", "2026-11-20", "--to", "2026-11-21", "-o", file}),
              2);
    EXPECT_EQ(status({"--sheet", "--columns", "49", "-o", file}), 2);
    EXPECT_EQ(status({"--sheet", "-o", File("")}), 2);
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(StillCommand, SaysWhenThereIsNone) {
    const ProgramResult result = Take("2026-11-20 18:00", File("a.png"));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.err.find("no picture of that time and these channels; nothing was written"),
              std::string::npos)
        << result.err;
    EXPECT_FALSE(fs::exists(File("a.png")));
    const Json document = Json::parse(Take("2026-11-20 18:00", File("a.png"), {"--json"}).out);
    EXPECT_EQ(SchemaErrors("still", document), "");
    EXPECT_TRUE(document["stills"].empty());
}

TEST_F(StillCommand, APictureThatCannotBeDecodedIsALoss) {
    // All that comes after the parameter sets of the first picture.
    const std::vector<uint8_t> rubbish(kGrey.size() - 41, 0xFF);
    Disk().Write(Disk().FrameOffset(0, 24 + 41), rubbish.data(), rubbish.size());
    const ProgramResult result = Take("2026-11-20 14:00:00", File("a.png"), {"--channel", "0", "--json"});
    EXPECT_EQ(result.exitCode, 3) << result.out;
    EXPECT_NE(result.err.find("block 0, channel 0: the picture of 2026-11-20 14:00:00.000 "),
              std::string::npos)
        << result.err;
    const Json document = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("still", document), "") << document.dump(1);
    EXPECT_NE(document["stills"][0]["picture"], "whole");
}

TEST_F(StillCommand, NeverTakesThePlaceOfTheSource) {
    fs::rename(File("disk"), File("disk.png"));
    const std::string before = ReadFile(File("disk.png"));
    const ProgramResult result =
        RunProgram({DISKACCESS_PROGRAM, "still", File("disk.png"), "--utc", "--at", "2026-11-20 14:00:01",
                    "--channel", "0", "-o", File("disk.png"), "--force"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(ReadFile(File("disk.png")) == before);
}

TEST_F(StillCommand, KeepsWhatIsThere) {
    std::ofstream(File("a.png")) << "there";
    const ProgramResult result = Take("2026-11-20 14:00:01", File("a.png"), {"--channel", "0"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("give another --output, or --force to replace it"), std::string::npos)
        << result.err;
    EXPECT_EQ(ReadFile(File("a.png")), "there");
}

TEST_F(StillCommand, RefusesNamesOfNoPicture) {
    for (const char* const name : {"a.gif", "a", "folder/.png", ".jpg/x"}) {
        const ProgramResult result = Take("2026-11-20 14:00:01", File(name));
        EXPECT_EQ(result.exitCode, 2) << name;
        EXPECT_NE(result.err.find("names no picture"), std::string::npos) << result.err;
    }
    EXPECT_EQ(Take("2026-11-20 14:00:01.1234567", File("a.png")).exitCode, 2);
}

} // namespace
