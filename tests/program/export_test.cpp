// Exports of recordings made from a seed: which frames come out, and under which names.

#include <algorithm>
#include <fstream>

#include "program/export_fixture.h"

namespace {

using namespace test_support;
using namespace sample_recorder;
constexpr uint32_t kStart = kExportStart;

using Export = ExportFixture;

TEST_F(Export, GivesEveryFrame) {
    Record();
    ASSERT_GT(m_recorded.back().block, 5u);
    const Json manifest = Compare(0);
    EXPECT_EQ(m_messages, "");
    EXPECT_EQ(manifest["losses"].size(), 0u);
    EXPECT_EQ(manifest["blocks"].size(), m_recorded.back().block + 1);
    EXPECT_EQ(manifest["tracks"].size(), 3u);
}

TEST_F(Export, NeedsNoEndMark) {
    Record(90, false);
    EXPECT_EQ(Compare(0)["losses"].size(), 0u);
}

TEST_F(Export, LeavesOutWhatThePreviousTurnLeftBehind) {
    Record();
    // The block that was never closed was recorded before, an hour ago: after its last frame lies an old one.
    const Recorded& last = m_recorded.back();
    const uint64_t end = HeadOf(m_recorded.size() - 1) + 24 + last.frame.payload.size();
    FrameHead_t stale = {Pts(kStart - 3600), BLOCK_MAGIC, 1, 0, 100};
    Disk().Put(end, stale);
    Disk().Put(end + 124, stale);
    Compare(0);
}

TEST_F(Export, TakesSuspectBlocksAtTheEndsOfTheRing) {
    Record();
    Disk().SetSuspect(0, 1);
    Disk().SetSuspect(m_recorded.back().block, 1);
    Compare(0);
    for (Recorded& recorded : m_recorded) {
        recorded.lost = recorded.frame.Seconds() < kStart + 2;
    }
    Compare(0, {"--from", "@" + std::to_string(kStart + 2)});
    for (Recorded& recorded : m_recorded) {
        recorded.lost = recorded.frame.Seconds() > kStart + 87;
    }
    Compare(0, {"--to", "@" + std::to_string(kStart + 87)});
}

TEST_F(Export, FindsWhatTimesDoNotLeadTo) {
    Record();
    // The oldest block claims to be of next year: a search by time believes that nothing is older.
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0),
                               [](BlockHead_t& head) { head.RecTime = kStart + 31536000; });
    for (Recorded& recorded : m_recorded) {
        const uint32_t second = recorded.frame.Seconds() - kStart;
        recorded.lost = second < 20 || second > 29;
    }
    Compare(0, {"--from", "@" + std::to_string(kStart + 20), "--to", "@" + std::to_string(kStart + 29)});
    // Without a time, the block is as good as its frames.
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [](BlockHead_t& head) { head.RecTime = 0; });
    for (Recorded& recorded : m_recorded) {
        recorded.lost = false;
    }
    Compare(0);
}

TEST_F(Export, BeginsBeforeAStartBetweenKeyFrames) {
    // Seven frames a second, a key frame every three seconds and three sevenths.
    RecordOneCamera({0, 7, 24, 1000, 500, 0, 40}, 30);
    uint32_t keyFrames = 0;
    for (Recorded& recorded : m_recorded) {
        keyFrames += recorded.frame.type == kVideoI ? 1u : 0u;
        // The third, of 6.857 s, is the last at or before second 10; the fourth comes at 10.286 s.
        recorded.lost = keyFrames < 3 || recorded.frame.Seconds() > kStart + 10;
    }
    Compare(0, {"--from", "@" + std::to_string(kStart + 10), "--to", "@" + std::to_string(kStart + 10)});
}

TEST_F(Export, BeginsWithTheKeyFrameAtOrBeforeTheStart) {
    Record();
    for (const uint32_t second : {20u, 45u, 89u}) {
        for (Recorded& recorded : m_recorded) {
            // Key frames come each second, so the stream begins at the second itself.
            recorded.lost =
                recorded.frame.Seconds() < kStart + second || recorded.frame.Seconds() > kStart + second + 3;
        }
        Compare(0, {"--from", "@" + std::to_string(kStart + second), "--to",
                    "@" + std::to_string(kStart + second + 3)});
    }
}

TEST_F(Export, BeginsWithTheKeyFrameOfAnEarlierBlock) {
    // Key frames of channel 0 every 30 seconds: blocks last about eleven.
    RecordOneCamera({0, 10, 300, 1000, 500, 0, 40}, 90);
    for (Recorded& recorded : m_recorded) {
        recorded.lost = recorded.frame.Seconds() < kStart + 30 || recorded.frame.Seconds() > kStart + 59;
    }
    ASSERT_GT(m_recorded[599].block, m_recorded[300].block + 1);
    EXPECT_EQ(
        Run({"--raw", "--from", "@" + std::to_string(kStart + 55), "--to", "@" + std::to_string(kStart + 59)})
            .exitCode,
        0);
    EXPECT_EQ(Bytes("out-ch0.video"), Expected(0, true));
    // Before the range, the recording must have gone on: of one that was over, nothing is taken.
    std::filesystem::remove(File("out-ch0.video"));
    const ProgramResult late = Run({"--raw", "--force", "--from", "@" + std::to_string(kStart + 200)});
    EXPECT_EQ(late.exitCode, 0);
    EXPECT_EQ(late.err, "diskaccess: " + File("disk") +
                            ": holds no frames of that time and these channels; nothing was written\n");
    EXPECT_FALSE(std::filesystem::exists(File("out-ch0.video")));
}

TEST_F(Export, TakesTheChannelsAskedFor) {
    Record();
    for (Recorded& recorded : m_recorded) {
        recorded.lost = recorded.frame.channel != 1;
    }
    Compare(0, {"--channel", "1"});
    EXPECT_FALSE(std::filesystem::exists(File("out-ch0.video")));
}

TEST_F(Export, KeepsLockedChannelsIn) {
    Record();
    Disk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 0x1;
        std::strcpy(head.CipherCode, "open");
    });
    for (Recorded& recorded : m_recorded) {
        recorded.lost = recorded.frame.channel == 0;
    }
    Compare(0);
    EXPECT_NE(m_messages.find("channel 0 is locked and left out"), std::string::npos);
    ProgramSetting setting;
    setting.environment = {"DISKACCESS_PASSWORD=wrong"};
    const std::string manifest = ReadFile(File("out.json"));
    EXPECT_EQ(Run({"--raw", "--force"}, setting).exitCode, 1);
    EXPECT_EQ(ReadFile(File("out.json")), manifest); // what was there is as it was
    setting.environment = {"DISKACCESS_PASSWORD=open"};
    for (Recorded& recorded : m_recorded) {
        recorded.lost = false;
    }
    Compare(0, {}, setting);
}

TEST_F(Export, ReplacesNothingUnlessTold) {
    Record(20);
    std::ofstream(File("out-ch0.video")) << "precious";
    const ProgramResult refused = Run({"--raw"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "diskaccess: " + File("out-ch0.video") +
                               ": exists already; give another --output, or --force to replace it\n");
    EXPECT_EQ(ReadFile(File("out-ch0.video")), "precious");
    EXPECT_FALSE(std::filesystem::exists(File("out-ch1.video")));
    EXPECT_FALSE(std::filesystem::exists(File("out-ch1.video.part")));
    EXPECT_EQ(Run({"--raw", "--force"}).exitCode, 0);
    EXPECT_NE(ReadFile(File("out-ch0.video")), "precious");
}

TEST_F(Export, LeavesNothingBehindWhenTheDiskIsFull) {
    Record();
    // A limit on the size of files stands for a full disk.
    const ProgramResult full = RunProgram({"sh", "-c",
                                           "trap '' XFSZ; ulimit -f 20; exec " DISKACCESS_PROGRAM " export " +
                                               File("disk") + " --raw -o " + File("out")});
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_NE(full.err.find("cannot be written: File too large; nothing was kept"), std::string::npos)
        << full.err;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(File("disk")).parent_path())) {
        EXPECT_EQ(entry.path().filename(), "disk");
    }
}

/// All files stay open until all are complete. A disk with many changes of encoding needs more than a shell allows at first.
TEST_F(Export, OpensAsManyFilesAsTheSystemLetsIt) {
    constexpr uint32_t kCameras = 30;
    sample_recorder::Format format;
    format.blockCount = 16;
    MakeDisk(format);
    sample_recorder::RecorderSettings settings;
    settings.channels = (uint32_t{1} << kCameras) - 1;
    sample_recorder::Recorder recorder(Disk(), settings);
    sample_recorder::MergedSource source;
    for (uint32_t channel = 0; channel < kCameras; ++channel) {
        source.Add(std::make_unique<sample_recorder::GeneratedSource>(
            sample_recorder::GeneratedCamera{channel, 5, 5, 100, 50, 0, 0}, channel, kExportStart, 10));
    }
    for (sample_recorder::Frame frame; source.Next(frame);) {
        recorder.Write(frame);
    }
    recorder.PowerOff();
    const ProgramResult made = RunProgram(
        {"sh", "-c",
         "ulimit -Sn 24; exec " DISKACCESS_PROGRAM " export " + File("disk") + " --raw -o " + File("out")});
    EXPECT_EQ(made.exitCode, 0) << made.err;
    for (uint32_t channel = 0; channel < kCameras; ++channel) {
        EXPECT_TRUE(std::filesystem::exists(File("out-ch" + std::to_string(channel) + ".video"))) << channel;
    }
}

TEST_F(Export, SaysWhatAContainerCannotHold) {
    Record(20);
    const ProgramResult refused = Run({"--channel", "0"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err,
              "diskaccess: " + File("disk") +
                  ": nothing of it can be put into a matroska file: its encoding is not known: use --raw\n");
    EXPECT_FALSE(std::filesystem::exists(File("out")));
    EXPECT_FALSE(std::filesystem::exists(File("out.part")));
}

TEST_F(Export, WrongUseEndsWithTwo) {
    Record(5);
    EXPECT_EQ(Run({"--raw", "--container", "mp4"}).exitCode, 2);
    EXPECT_EQ(Run({"--container", "avi"}).exitCode, 2);
    EXPECT_EQ(Run({"--audio", "alaw"}).exitCode, 2);
    EXPECT_EQ(Run({"--audio", ":8000"}).exitCode, 2);
    EXPECT_EQ(Run({"--raw", "--audio", "alaw:0"}).exitCode, 2);
    EXPECT_EQ(RunProgram({DISKACCESS_PROGRAM, "export", File("disk")}).exitCode, 2);
}

TEST_F(Export, TellsTheContainerByTheNameOrRefusesIt) {
    Record(20);
    const auto to = [this](const std::string& name, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, "export", File("disk"), "--audio", "alaw:8000",
                                         "--channel", "1", "--json", "-o", File(name)});
        return RunProgram(options);
    };
    const ProgramResult other = to("a.AVI");
    EXPECT_EQ(other.exitCode, 2);
    EXPECT_EQ(other.err,
              "diskaccess: --output: '" + File("a.AVI") +
                  "' would not be a .avi file; name a FILE.mkv or a FILE.mp4, or give --container\n");
    EXPECT_EQ(to("a.avi", {"--container", "matroska"}).exitCode, 0);
    EXPECT_EQ(to("a.ts", {"--raw"}).exitCode, 0);
    EXPECT_EQ(to("A.MP4").exitCode, 1); // A-law is nothing for MP4
    EXPECT_EQ(to("A.mkv").exitCode, 0);
}

TEST_F(Export, EncodesForMp4AloneAndOnlyWhenAsked) {
    Record(20);
    const std::vector<std::string> mp4 = {"--container", "mp4", "--channel", "1", "--audio", "alaw:8000"};
    const ProgramResult without = Run(mp4);
    EXPECT_EQ(without.exitCode, 1);
    std::vector<std::string> encoded = mp4;
    encoded.emplace_back("--aac");
    const ProgramResult with = Run(encoded);
    EXPECT_EQ(with.exitCode, 0);
    EXPECT_NE(with.out.find("  CODEC     ENCODED  FRAMES  "), std::string::npos) << with.out;
    EXPECT_NE(with.out.find("  audio  pcm_alaw  aac  "), std::string::npos) << with.out;
    EXPECT_EQ(with.err.find("audio"), std::string::npos) << with.err;
    const auto refused = [this](const std::vector<std::string>& options) {
        const ProgramResult result = Run(options);
        EXPECT_EQ(result.exitCode, 2);
        return result.err;
    };
    EXPECT_EQ(refused({"--aac", "--no-audio", "--container", "mp4"}),
              "diskaccess: --no-audio leaves the sound out: leave --aac out\n");
    EXPECT_EQ(refused({"--aac", "--raw"}),
              "diskaccess: --raw writes the sound as it was recorded: leave --aac out\n");
    EXPECT_EQ(refused({"--aac"}),
              "diskaccess: Matroska holds the sound as it was recorded: leave --aac out, or "
              "name a FILE.mp4\n");
}

TEST_F(Export, NamesAudioAsTold) {
    Record(20);
    for (uint32_t block = 0; block <= m_recorded.back().block; ++block) {
        Disk().Change<BlockHead_t>(Disk().HeadOffset(block),
                                   [](BlockHead_t& head) { head.prop[1].AType = 77; });
    }
    EXPECT_EQ(Run({"--raw", "--force"}).exitCode, 0);
    EXPECT_EQ(Bytes("out-ch1.audio"), Expected(1, false));
    EXPECT_EQ(Run({"--raw", "--force", "--audio", "mulaw:8000"}).exitCode, 0);
    EXPECT_EQ(Bytes("out-ch1.mulaw"), Expected(1, false));
}

TEST_F(Export, NamesAudioOfEachChannelAsTold) {
    Record(20);
    EXPECT_EQ(Run({"--raw", "--audio", "mulaw:8000,0=alaw:8000"}).exitCode, 0);
    EXPECT_EQ(Bytes("out-ch1.mulaw"), Expected(1, false));
    EXPECT_EQ(Run({"--raw", "--force", "--audio", "mulaw:8000,1=pcm16:16000"}).exitCode, 0);
    EXPECT_EQ(Bytes("out-ch1.s16le"), Expected(1, false));
    for (const char* const wrong : {"nonsense:8000", "h264:8000", "1=nonsense:8000"}) {
        const ProgramResult refused = Run({"--raw", "--force", "--audio", wrong});
        EXPECT_EQ(refused.exitCode, 2) << wrong;
        EXPECT_NE(refused.err.find("libavcodec knows no audio called"), std::string::npos) << refused.err;
    }
    for (const char* const wrong : {"32=alaw:8000", "=alaw:8000", "1=alaw", "alaw:8000,", "x=alaw:8000"}) {
        EXPECT_EQ(Run({"--raw", "--force", "--audio", wrong}).exitCode, 2) << wrong;
    }
}

TEST_F(Export, SummaryKeepsToItsSchema) {
    Record(20);
    const ProgramResult result = Run({"--raw", "--json"});
    EXPECT_EQ(result.exitCode, 0);
    const Json summary = Json::parse(result.out);
    EXPECT_EQ(SchemaErrors("export", summary), "") << result.out;
    EXPECT_EQ(summary["tracks"][0]["frame_count"], 200);
    EXPECT_EQ(summary["manifest_file"], File("out.json"));
}

TEST_F(Export, AppliesTheSkewOfTheRecordersClock) {
    Record(20);
    // The clock was an hour ahead: what it calls 14:00 was 13:00.
    const ProgramResult result = Run({"--raw", "--json", "--skew", "3600", "--from", "2026-11-20 13:00:05"});
    EXPECT_EQ(Json::parse(result.out)["tracks"][0]["start"], "2026-11-20T13:00:05.000000Z");
    const Json manifest = Json::parse(ReadFile(File("out.json")));
    EXPECT_EQ(manifest["skew_seconds"], 3600);
    EXPECT_EQ(manifest["zone"], "UTC");
}

} // namespace
