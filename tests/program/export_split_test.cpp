// Exports of one run to several files: by journey, and by channel.

#include "program/camera_disk.h"

#include <fstream>

namespace {

using namespace test_support;

/// Journey 1: cameras 0 and 1, seconds 0 to 9. Journey 2: camera 0 alone, seconds 1000 to 1019.
class SplitExport : public CameraDisk {
protected:
    void SetUp() override {
        Begin();
        Record({{0, 0, 10, true}, {1, 0, 10, false}});
        End();
        Record({{0, 1000, 1020, true}});
        End();
    }

    /// The files beside the disk, by name.
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& entry :
             std::filesystem::directory_iterator(std::filesystem::path(File("disk")).parent_path())) {
            if (entry.path().filename() != "disk") {
                names.push_back(entry.path().filename());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    using Names = std::vector<std::string>;
};

TEST_F(SplitExport, MakesAFileOfEachJourney) {
    const ProgramResult result = Export({"--split", "journey", "-o", File("bus.mkv"), "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(Files(), (Names{"bus-j1.mkv", "bus-j1.mkv.json", "bus-j2.mkv", "bus-j2.mkv.json"}));
    EXPECT_EQ(Container("bus-j1.mkv").packets.size(), 20u * 3 + 10); // three tracks, and a text a second
    EXPECT_EQ(Container("bus-j2.mkv").packets.size(), 40u * 2 + 20);
    const Json first = Manifest("bus-j1.mkv.json");
    EXPECT_EQ(first["recorder_from"], kCameraStart);
    EXPECT_EQ(first["recorder_to"], kCameraStart + 9);
    EXPECT_EQ(Manifest("bus-j2.mkv.json")["recorder_from"], kCameraStart + 1000);
    const Json summary = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("export", summary), "") << result.out;
    EXPECT_EQ(summary["tracks"].size(), 5u);
    ASSERT_EQ(summary["exports"].size(), 2u);
    EXPECT_EQ(summary["exports"][1]["manifest_file"], File("bus-j2.mkv.json"));
    EXPECT_TRUE(summary["manifest_file"].is_null());
    const ProgramResult verified =
        RunProgram({DISKACCESS_PROGRAM, "verify", File("bus-j2.mkv.json"), "--source", File("disk")});
    EXPECT_EQ(verified.exitCode, 0) << verified.out;
}

TEST_F(SplitExport, MakesAFileOfEachChannel) {
    EXPECT_EQ(Export({"--split", "channel", "-o", File("bus.mp4")}).exitCode, 0);
    EXPECT_EQ(Files(), (Names{"bus-ch0.mp4", "bus-ch0.mp4.json", "bus-ch1.mp4", "bus-ch1.mp4.json"}));
    EXPECT_EQ(Manifest("bus-ch1.mp4.json")["channels"], Json::array({1}));
    EXPECT_EQ(Manifest("bus-ch0.mp4.json")["tracks"][0]["frame_count"], 60);
    for (const char* const name : {"bus-ch0.mp4.json", "bus-ch1.mp4.json"}) {
        const ProgramResult verified =
            RunProgram({DISKACCESS_PROGRAM, "verify", File(name), "--source", File("disk")});
        EXPECT_EQ(verified.exitCode, 0) << verified.out;
    }
}

/// The manifest has true time in a zone, the disk the recorder's.
TEST_F(SplitExport, IsVerifiedInAnyZoneAndWithAnySkew) {
    ProgramSetting berlin;
    berlin.environment = {"TZ=Europe/Berlin"};
    const std::string name = File("bus.mkv");
    for (const std::vector<std::string>& clock :
         {std::vector<std::string>{"--skew", "3600"}, {"--skew", "-90", "--tz", "Asia/Kathmandu"}}) {
        std::vector<std::string> words = {DISKACCESS_PROGRAM, "export", File("disk"), "-o", name, "--force"};
        words.insert(words.end(), clock.begin(), clock.end());
        ASSERT_EQ(RunProgram(words, berlin).exitCode, 0);
        const std::vector<std::string> verify = {DISKACCESS_PROGRAM, "verify", name + ".json", "--source",
                                                 File("disk")};
        const ProgramResult verified = RunProgram(verify);
        EXPECT_EQ(verified.exitCode, 0) << verified.out;
        Json manifest = Manifest("bus.mkv.json");
        manifest["skew_seconds"] = 0; // so that all times are those of another moment
        std::ofstream(name + ".json") << manifest.dump();
        EXPECT_EQ(RunProgram(verify).exitCode, 1);
    }
}

TEST_F(SplitExport, TakesWhatTheRangeMeets) {
    EXPECT_EQ(Export({"--split", "journey", "--from", At(1005), "-o", File("bus.mkv")}).exitCode, 0);
    EXPECT_EQ(Files(), (Names{"bus-j2.mkv", "bus-j2.mkv.json"})); // by its number among all
    EXPECT_EQ(Manifest("bus-j2.mkv.json")["recorder_from"], kCameraStart + 1005);
    EXPECT_EQ(Manifest("bus-j2.mkv.json")["recorder_to"], kCameraStart + 1019);
    EXPECT_EQ(Export({"--split", "channel", "--from", At(1005), "-o", File("car.mkv")}).exitCode, 0);
    EXPECT_EQ(Files(), (Names{"bus-j2.mkv", "bus-j2.mkv.json", "car-ch0.mkv", "car-ch0.mkv.json"}));
}

TEST_F(SplitExport, NumbersJourneysOfAllChannels) {
    Record({{1, 3000, 3010, false}});
    End();
    EXPECT_EQ(Export({"--split", "journey", "--channel", "1", "-o", File("bus.mkv")}).exitCode, 0);
    EXPECT_EQ(Files(), (Names{"bus-j1.mkv", "bus-j1.mkv.json", "bus-j3.mkv", "bus-j3.mkv.json"}));
    EXPECT_EQ(Manifest("bus-j3.mkv.json")["recorder_from"], kCameraStart + 3000);
}

TEST_F(SplitExport, PartsJourneysWhereItIsToldTo) {
    EXPECT_EQ(Export({"--split", "journey", "--silence", "1h", "-o", File("bus.mkv")}).exitCode, 0);
    EXPECT_EQ(Files(), (Names{"bus-j1.mkv", "bus-j1.mkv.json"}));
}

TEST_F(SplitExport, PartsElementaryStreamsToo) {
    EXPECT_EQ(Export({"--split", "journey", "--raw", "-o", File("bus")}).exitCode, 0);
    EXPECT_EQ(Files(), (Names{"bus-j1-ch0.alaw", "bus-j1-ch0.h264", "bus-j1-ch1.h264", "bus-j1.json",
                              "bus-j2-ch0.alaw", "bus-j2-ch0.h264", "bus-j2.json"}));
}

TEST_F(SplitExport, LooksAtAllNamesBeforeItBegins) {
    std::ofstream(File("bus-j2.mkv.json")) << "precious";
    const ProgramResult result = Export({"--split", "journey", "-o", File("bus.mkv")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("bus-j2.mkv.json: exists already"), std::string::npos) << result.err;
    EXPECT_EQ(Files(), Names{"bus-j2.mkv.json"});
}

TEST_F(SplitExport, KeepsFilesThatAreFinishedWhenItIsInterrupted) {
    ProgramSetting setting;
    setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_BEFORE_RENAME=kill -INT $SHIM_PROGRAM"};
    const ProgramResult result = Export({"--split", "journey", "-o", File("bus.mkv")}, setting);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: interrupted; the files that are finished are kept\n");
    EXPECT_EQ(Files(), (Names{"bus-j1.mkv", "bus-j1.mkv.json"}));
}

TEST_F(SplitExport, OfNothingMakesNothing) {
    const ProgramResult result = Export({"--split", "journey", "--from", At(5000), "-o", File("bus.mkv")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.err.find("nothing was written"), std::string::npos);
    EXPECT_EQ(Files(), Names{});
}

TEST_F(SplitExport, IsRefusedWhereItMeansNothing) {
    EXPECT_EQ(Export({"--split", "channel", "--raw", "-o", File("bus")}).exitCode, 2);
    EXPECT_EQ(Export({"--split", "channel", "-o", "-"}).exitCode, 2);
    EXPECT_EQ(Export({"--split", "day", "-o", File("bus.mkv")}).exitCode, 2);
    EXPECT_EQ(Export({"--split", "journey", "--silence", "soon", "-o", File("bus.mkv")}).exitCode, 2);
}

} // namespace
