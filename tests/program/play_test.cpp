// Playing recordings made from a seed, a line a frame.

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

using namespace test_support;
using namespace sample_recorder;
using Json = nlohmann::json;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC

/// One camera, five frames a second, a key frame every two seconds, for a minute. Blocks last some ten seconds;
/// the last one was never closed.
class PlayProgram : public SearchFixture {
protected:
    PlayProgram() {
        MakeDisk(16);
        RecorderSettings settings;
        settings.channels = 0x2;
        Recorder recorder(Disk(), settings);
        GeneratedSource source({1, 5, 10, 3000, 1000, 0, 40}, 1, kStart, 60);
        Frame frame;
        while (source.Next(frame)) {
            recorder.Write(frame);
            m_blocks.push_back(*recorder.CurrentBlock());
            m_lengths.push_back(frame.payload.size());
        }
        recorder.WriteEvent(Pts(kStart + 60), 0x4, 1);
        recorder.CutPower();
    }

    ProgramResult Run(std::vector<std::string> options) const {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, "play", File("disk"), "--utc"});
        return RunProgram(options);
    }

    void MakeDiskAnew() {
        std::remove(File("disk").c_str());
        MakeDisk(16);
    }

    /// Records one camera on an empty disk.
    /// @return blocks that it took
    uint32_t RecordAnew(const GeneratedCamera& camera, uint32_t start, uint32_t seconds, bool cutPower) {
        MakeDiskAnew();
        RecorderSettings settings;
        settings.channels = 0x2;
        Recorder recorder(Disk(), settings);
        GeneratedSource source(camera, 1, start, seconds);
        for (Frame frame; source.Next(frame);) {
            recorder.Write(frame);
        }
        if (cutPower) {
            recorder.CutPower();
        } else {
            recorder.PowerOff();
        }
        return recorder.BlocksOpened();
    }

    /// Plays, and gives each frame as "SECONDS.FRACTION KIND", counted from the start.
    Lines Frames(std::vector<std::string> options) const {
        options.insert(options.end(), {"--format", "ndjson"});
        const ProgramResult result = Run(options);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.err, "");
        std::istringstream lines(result.out);
        Lines frames;
        for (std::string line; std::getline(lines, line);) {
            const Json frame = Json::parse(line);
            frames.push_back(frame["time"].get<std::string>().substr(14, 7) + " " +
                             frame["frame_kind"].get<std::string>());
        }
        return frames;
    }

    static std::string At(uint32_t second) { return "@" + std::to_string(kStart + second); }

    std::vector<uint32_t> m_blocks; ///< of each frame
    std::vector<size_t> m_lengths;
};

std::string Joined(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

TEST_F(PlayProgram, ShowsALineAFrame) {
    const ProgramResult result = Run({"--from", At(2), "--to", At(2)});
    EXPECT_EQ(result.exitCode, 0);
    const auto length = [this](size_t frame) {
        std::ostringstream text;
        text.width(8);
        text << m_lengths[frame];
        return text.str();
    };
    EXPECT_EQ(result.out, "TIME                     CHANNEL  KIND       LENGTH\n"
                          "2026-11-20 14:00:02.000        1  I-frame  " +
                              length(10) +
                              "\n"
                              "2026-11-20 14:00:02.200        1  P-frame  " +
                              length(11) +
                              "\n"
                              "2026-11-20 14:00:02.400        1  P-frame  " +
                              length(12) +
                              "\n"
                              "2026-11-20 14:00:02.600        1  P-frame  " +
                              length(13) +
                              "\n"
                              "2026-11-20 14:00:02.800        1  P-frame  " +
                              length(14) +
                              "\n"
                              "\n"
                              "Frames   5\n"
                              "Payload  7.1 KiB\n")
        << result.out;
}

TEST_F(PlayProgram, PlaysARangeWholeAcrossBlocks) {
    const Lines frames = Frames({"--from", At(1), "--to", At(40)});
    ASSERT_EQ(frames.size(), 200u);
    EXPECT_EQ(frames.front(), "00:01.0 P-frame");
    EXPECT_EQ(frames.back(), "00:40.8 P-frame");
    EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end()));
    EXPECT_NE(m_blocks[5], m_blocks[204]);
}

TEST_F(PlayProgram, PlaysTheRecordingStillBeingWritten) {
    const Lines frames = Frames({});
    ASSERT_EQ(frames.size(), 301u); // and the event
    EXPECT_EQ(frames.back(), "01:00.0 event");
}

TEST_F(PlayProgram, PlaysAUnit) {
    const Lines frames = Frames({"--unit", "1"});
    EXPECT_EQ(frames.size(), static_cast<size_t>(std::count(m_blocks.begin(), m_blocks.end(), 1u)));
    EXPECT_EQ(Frames({"--unit", "15"}), Lines{}); // never recorded
    const ProgramResult beyond = Run({"--unit", "16"});
    EXPECT_EQ(beyond.exitCode, 1);
    EXPECT_EQ(beyond.err,
              "diskaccess: " + File("disk") + ": has 16 blocks, from 0 on: there is no block 16\n");
}

TEST_F(PlayProgram, PlaysARecord) {
    // Whole, from its first frame to its last, be that one that needs the pictures before it.
    const Lines named = Frames({"--record", "2/1/0"});
    EXPECT_EQ(named.size(), static_cast<size_t>(std::count(m_blocks.begin(), m_blocks.end(), 2u)));
    EXPECT_EQ(Frames({"--unit", "2"}), named);
    EXPECT_EQ(Frames({"--record", "2/1"}), named);
    for (const char* const wrong : {"2", "2/", "x/1/0", "2/1/0/0", "-1/1/0"}) {
        EXPECT_EQ(Run({"--record", wrong}).exitCode, 2) << wrong;
    }
    EXPECT_EQ(Run({"--record", "2/0/0"}).err,
              "diskaccess: " + File("disk") + ": holds no record 2/0/0; list shows those there are\n");
}

TEST_F(PlayProgram, StepsFromKeyFrameToKeyFrame) {
    const Lines forwards = Frames({"--iframes", "--from", At(3), "--to", At(41)});
    Lines expected;
    for (int second = 4; second <= 40; second += 2) {
        expected.push_back((second < 10 ? "00:0" : "00:") + std::to_string(second) + ".0 I-frame");
    }
    EXPECT_EQ(forwards, expected);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(Frames({"--iframes", "--backward", "--from", At(3), "--to", At(41)}), expected);
    EXPECT_EQ(Frames({"--iframes"}).size(), 30u); // the open block's too
    EXPECT_EQ(Frames({"--iframes", "--backward"}).front(), "00:58.0 I-frame");
    EXPECT_EQ(Run({"--backward"}).exitCode, 2);
}

TEST_F(PlayProgram, SeeksToTheKeyFrameAtOrAfter) {
    EXPECT_EQ(Frames({"--seek", At(5), "--to", At(30)}).front(), "00:06.0 I-frame");
    EXPECT_EQ(Frames({"--seek", At(6), "--to", At(30)}).front(), "00:06.0 I-frame");
    EXPECT_EQ(Frames({"--seek", At(7), "--to", At(30), "--iframes"}).front(), "00:08.0 I-frame");
    // Also in the block that was never closed and has no index.
    ASSERT_GT(m_blocks.back(), m_blocks[249]);
    EXPECT_EQ(Frames({"--seek", At(57)}).front(), "00:58.0 I-frame");
}

TEST_F(PlayProgram, BackwardsMeansTheSameKeyFrames) {
    // Two key frames a second, so that the last two of a record share one.
    RecordAnew({1, 6, 3, 3000, 1000, 0, 40}, kStart, 55, false);
    Lines forwards = Frames({"--iframes"});
    EXPECT_GT(forwards.size(), 100u) << Joined(forwards);
    std::reverse(forwards.begin(), forwards.end());
    EXPECT_EQ(Frames({"--iframes", "--backward"}), forwards);
    EXPECT_EQ(Frames({"--iframes", "--backward", "--seek", At(30)}).front(), "00:30.5 I-frame");
}

TEST_F(PlayProgram, ShowsNoFrameTwiceWhereABlockHasNoKeyFrame) {
    // A key frame every ten seconds, on blocks of about five.
    ASSERT_GE(RecordAnew({1, 5, 50, 3000, 2000, 0, 40}, kStart, 30, false), 5u);
    const Lines frames = Frames({});
    EXPECT_EQ(frames.size(), 150u) << Joined(frames);
    EXPECT_EQ(std::adjacent_find(frames.begin(), frames.end(), std::greater_equal<>()), frames.end());
}

TEST_F(PlayProgram, AnEventHidesNoKeyFrameOfItsTime) {
    // A block that is never closed begins with both.
    MakeDiskAnew();
    RecorderSettings settings;
    settings.channels = 0x2;
    Recorder recorder(Disk(), settings);
    for (const uint32_t start : {0u, 8u}) {
        GeneratedSource source({1, 5, 10, 3000, 1000, 0, 40}, 1, kStart + start, 8);
        for (Frame frame; source.Next(frame);) {
            recorder.Write(frame);
        }
        if (start == 0) {
            recorder.PowerOff();
            recorder.WriteEvent(Pts(kStart + 8), 0x4, 1);
        }
    }
    recorder.CutPower();
    const Lines frames = Frames({});
    EXPECT_EQ(frames.size(), 81u) << Joined(frames);
    EXPECT_EQ(std::count(frames.begin(), frames.end(), "00:08.0 event"), 1);
    EXPECT_EQ(std::count(frames.begin(), frames.end(), "00:08.0 I-frame"), 1);
}

TEST_F(PlayProgram, SaysWhereDamageEndsABlock) {
    MakeDiskAnew();
    RecorderSettings settings;
    settings.channels = 0x2;
    Recorder recorder(Disk(), settings);
    uint32_t ninth = 0; // frame of the first block
    for (const uint32_t start : {0u, 10u}) {
        GeneratedSource source({1, 5, 10, 3000, 1000, 0, 40}, 1, kStart + start, 8);
        for (Frame frame; source.Next(frame);) {
            recorder.Write(frame);
            ninth +=
                frame.pts < Pts(kStart + 1) + 600000 ? 24 + static_cast<uint32_t>(frame.payload.size()) : 0;
        }
        recorder.PowerOff();
    }
    // Without its sync word, a reader goes on with the next block.
    Disk().Change<FrameHead_t>(Disk().FrameOffset(0, ninth), [](FrameHead_t& head) { head.sync = 0; });
    for (const std::vector<std::string>& options :
         {Lines{}, Lines{"--record", "0/1/0"}, Lines{"--unit", "0"}}) {
        const ProgramResult result = Run(options);
        EXPECT_EQ(result.exitCode, 3);
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_EQ(result.err.rfind("diskaccess: block 0: ", 0), 0u) << result.err;
        // What lies after the damage is played all the same.
        EXPECT_NE(result.out.find("Frames   " + std::string(options.empty() ? "79" : "39")),
                  std::string::npos)
            << result.out;
    }
}

TEST_F(PlayProgram, ATailThatCannotBeReadHidesNoRecord) {
    const auto list = [this](const ProgramSetting& setting) {
        const ProgramResult result =
            RunProgram({DISKACCESS_PROGRAM, "list", File("disk"), "--utc", "--json"}, setting);
        return Json::parse(result.out);
    };
    const Json whole = list({});
    ProgramSetting setting;
    setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_BAD_FILE=" + File("disk"),
                           "SHIM_BAD_FROM=" + std::to_string(Disk().TailOffset(1)),
                           "SHIM_BAD_TO=" + std::to_string(Disk().TailOffset(1) + 4)};
    const Json worn = list(setting);
    EXPECT_EQ(worn["length_seconds"], whole["length_seconds"]);
    EXPECT_EQ(worn["record_count"], whole["record_count"]);
    EXPECT_EQ(worn["records"][1]["closed"], false);
    EXPECT_EQ(whole["records"][1]["closed"], true);
}

TEST_F(PlayProgram, SaysThatABlockWasWiped) {
    const std::vector<uint8_t> zeros(Disk().BlockSize());
    Disk().Write(Disk().BlockStart(2), zeros.data(), zeros.size());
    for (const std::vector<std::string>& options : {Lines{"--unit", "2"}, Lines{"--record", "2/1/0"}}) {
        const ProgramResult result = Run(options);
        EXPECT_EQ(result.exitCode, 3);
        EXPECT_EQ(result.out, "Frames   0\nPayload  0 B\n");
        EXPECT_EQ(result.err.rfind("diskaccess: block 2: was recorded, but holds no recording any more", 0),
                  0u)
            << result.err;
    }
    const ProgramResult all = Run({});
    EXPECT_EQ(all.exitCode, 3);
    const auto lost = std::count(m_blocks.begin(), m_blocks.end(), 2u);
    EXPECT_NE(all.out.find("Frames   " + std::to_string(301 - lost)), std::string::npos) << all.out;
    // A range that has nothing to do with it is whole.
    EXPECT_EQ(Run({"--from", At(45)}).exitCode, 0);
}

TEST_F(PlayProgram, PlaysBeyondMidnightInABlockThatWasNeverClosed) {
    ASSERT_EQ(RecordAnew({1, 5, 10, 3000, 200, 0, 40}, kStart + 35995, 10, true), 1u);
    const Lines frames = Frames({"--from", "2026-11-21 00:00:01"});
    ASSERT_EQ(frames.size(), 20u) << Joined(frames);
    EXPECT_EQ(frames.back(), "00:04.8 P-frame");
}

TEST_F(PlayProgram, PlaysABlockOfATimeThatRecordersDoNotSearch) {
    RecordAnew({1, 5, 10, 3000, 1000, 0, 40}, 0x90000000, 8, false);
    EXPECT_EQ(Frames({"--unit", "0"}).size(), 40u);
    EXPECT_EQ(Frames({}).size(), 40u);
    EXPECT_EQ(
        Frames({"--from", "@" + std::to_string(0x90000002), "--to", "@" + std::to_string(0x90000003)}).size(),
        10u);
}

TEST_F(PlayProgram, MachineFormats) {
    const Json document = Json::parse(Run({"--json", "--to", At(3)}).out);
    EXPECT_EQ(SchemaErrors("play", document), "");
    EXPECT_EQ(document["frame_count"], 20);
    EXPECT_EQ(document["frames"][0], (Json{{"time", "2026-11-20T14:00:00.000000Z"},
                                           {"channel", 1},
                                           {"frame_kind", "I-frame"},
                                           {"frame_type", 1},
                                           {"payload_bytes", m_lengths[0]}}));
    const Json nothing = Json::parse(Run({"--json", "--channel", "5"}).out);
    EXPECT_EQ(SchemaErrors("play", nothing), "");
    EXPECT_EQ(nothing["frames"], Json::array());
    EXPECT_EQ(Run({"--format", "csv", "--channel", "5"}).out,
              "time,channel,frame_kind,frame_type,payload_bytes\r\n");
    EXPECT_EQ(Run({"--format", "csv", "--to", At(0)}).out.substr(50, 43),
              "2026-11-20T14:00:00.000000Z,1,I-frame,1," + std::to_string(m_lengths[0]).substr(0, 3));
    EXPECT_EQ(Run({"--channel", "5"}).out, "Frames   0\nPayload  0 B\n");
}

TEST_F(PlayProgram, LeavesLockedChannelsOut) {
    Disk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 0x2;
        std::strcpy(head.CipherCode, "open");
    });
    const ProgramResult result = Run({"--unit", "1"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "Frames   0\nPayload  0 B\n");
    EXPECT_NE(result.err.find("channel 1 is locked and left out"), std::string::npos);
}

TEST_F(PlayProgram, SaysWhereARecordCannotBePlayedOn) {
    // The fifth frame of block 1 claims to run past the block.
    size_t first = 0;
    while (m_blocks[first] != 1) {
        ++first;
    }
    uint32_t offset = 0;
    for (size_t i = first; i < first + 20; ++i) {
        offset += 24 + static_cast<uint32_t>(m_lengths[i]);
    }
    Disk().Change<FrameHead_t>(Disk().FrameOffset(1, offset), [](FrameHead_t& head) { head.len = 0x20000; });
    const ProgramResult result = Run({"--record", "1/1/0"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err.rfind("diskaccess: block 1", 0), 0u) << result.err;
}

} // namespace
