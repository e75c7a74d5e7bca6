// A disk that runs full at each place in turn where a command needs space on it: nothing of the command is left, one line says
// why, and what was there before is as it was.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/files.h"
#include "support/run_program.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using namespace sample_recorder;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC

/// A picture of 64 x 48 pixels, all grey, as an H.264 encoder makes it.
const std::vector<uint8_t> kPicture = {0x00, 0x00, 0x00, 0x01, 0x67, 0x64, 0x00, 0x0a, 0xac, 0xb2, 0x12, 0xd8,
                                       0x08, 0x80, 0x00, 0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x03, 0x02, 0x07,
                                       0x89, 0x13, 0x24, 0x00, 0x00, 0x00, 0x01, 0x68, 0xeb, 0xc3, 0xcb, 0x22,
                                       0xc0, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84, 0x05, 0x3f, 0xfe, 0xf7, 0xc7,
                                       0x4f, 0xc0, 0x9e, 0xd8, 0x2c, 0xb9, 0xc4, 0x90, 0x07, 0xff};

class FullDisk : public SearchFixture {
protected:
    using Files = std::map<std::string, std::string>;

    void SetUp() override {
        MakeDisk(sample_recorder::Format());
        RecorderSettings settings;
        settings.channels = 1;
        Recorder recorder(Disk(), settings);
        for (int i = 0; i < 10; ++i) {
            Frame frame;
            frame.pts = (int64_t{kStart} + i) * 1000000;
            frame.type = kVideoI;
            frame.payload = kPicture;
            recorder.Write(frame);
        }
        recorder.PowerOff();
        fs::create_directory(File("out"));
    }

    /// What lies in the folder that is written to.
    Files Left() const {
        Files files;
        for (const auto& entry : fs::directory_iterator(File("out"))) {
            files[entry.path().filename()] = ReadFile(entry.path());
        }
        return files;
    }

    ProgramResult RunFullAt(int place, std::vector<std::string> words) const {
        words.insert(words.begin(), DISKACCESS_PROGRAM);
        words.emplace_back("--utc");
        ProgramSetting setting;
        setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_FULL_FOLDER=" + File("out"),
                               "SHIM_FULL_AT=" + std::to_string(place)};
        return RunProgram(words, setting);
    }

    /// Runs a command on a disk that is full at place after place, until it needs no more.
    void RunAtEachPlace(const std::vector<std::string>& words, int fewest) {
        const Files before = Left();
        for (int place = 0; place < 300; ++place) {
            const ProgramResult result = RunFullAt(place, words);
            if (result.exitCode == 0) {
                EXPECT_GE(place, fewest) << words[0];
                EXPECT_EQ(result.err, "");
                EXPECT_NE(Left(), before);
                return;
            }
            ASSERT_EQ(result.exitCode, 1) << words[0] << " at " << place;
            ASSERT_EQ(result.err.compare(0, 12, "diskaccess: "), 0) << result.err;
            ASSERT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
            EXPECT_EQ(result.err.find("nothing was kept;"), std::string::npos) << result.err; // no name helps
            const bool made = result.err.find("cannot be made: ") == std::string::npos;
            EXPECT_EQ(result.err.find(": No space left on device; make room there, or give another ") ==
                          std::string::npos,
                      made)
                << result.err;
            ASSERT_EQ(Left(), before) << words[0] << " at " << place << ": " << result.err;
        }
        FAIL() << words[0] << " never ends";
    }
};

TEST_F(FullDisk, LeavesNothingOfAnExport) {
    RunAtEachPlace({"export", File("disk"), "-o", File("out/film.mkv")}, 7);
}

TEST_F(FullDisk, LeavesNothingOfStreams) {
    RunAtEachPlace({"export", File("disk"), "--raw", "-o", File("out/film")}, 7);
}

TEST_F(FullDisk, LeavesNothingOfAnMp4File) {
    RunAtEachPlace({"export", File("disk"), "-o", File("out/film.mp4")}, 7);
}

TEST_F(FullDisk, LeavesTheFilesThatWereToBeReplaced) {
    std::ofstream(File("out/film.mkv")) << "old film";
    std::ofstream(File("out/film.mkv.json")) << "old manifest";
    RunAtEachPlace({"export", File("disk"), "--force", "-o", File("out/film.mkv")}, 5);
}

TEST_F(FullDisk, LeavesNothingOfAnExtract) {
    RunAtEachPlace({"extract", File("disk"), "-o", File("out/part.img")}, 7);
}

#if HAVE_STILLS
TEST_F(FullDisk, LeavesNothingOfAStill) {
    RunAtEachPlace({"still", File("disk"), "--at", "2026-11-20 14:00:03", "-o", File("out/still.png")}, 4);
}
#endif

TEST_F(FullDisk, LeavesNothingOfAPicture) {
    RunAtEachPlace({"timeline", File("disk"), "--svg", File("out/timeline.svg")}, 4);
}

TEST_F(FullDisk, LeavesNothingOfAPage) {
    RunAtEachPlace({"timeline", File("disk"), "--html", File("out/timeline.html")}, 4);
}

/// A catalogue's file stays, and holds what it held.
TEST_F(FullDisk, LeavesTheCatalogueAsItWas) {
    const auto run = [this](std::vector<std::string> words) {
        words.insert(words.begin(), {DISKACCESS_PROGRAM, "catalog"});
        words.insert(words.end(), {"--utc", "--json", "--database", File("out/catalog.db")});
        return RunProgram(words);
    };
    const auto list = [&run] { return run({"list"}).out; };
    ASSERT_EQ(run({"add", File("disk")}).exitCode, 0);
    ASSERT_EQ(run({"remove", "1"}).exitCode, 0); // leaves a catalogue of no disks
    const std::string before = list();
    int place = 0;
    for (; place < 300; ++place) {
        const ProgramResult result = RunFullAt(
            place, {"catalog", "add", File("disk"), "--jobs", "1", "--database", File("out/catalog.db")});
        if (result.exitCode == 0) {
            break;
        }
        ASSERT_EQ(result.exitCode, 1) << place;
        ASSERT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        ASSERT_EQ(list(), before) << place;
    }
    EXPECT_GE(place, 3);
    EXPECT_NE(list(), before);
}

} // namespace
