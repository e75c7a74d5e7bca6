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
    const Lines named = Frames({"--record", "2/1/0"});
    ASSERT_FALSE(named.empty());
    EXPECT_EQ(named.front().substr(8), "I-frame");
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
    // A block that was never closed has nothing to seek by.
    const ProgramResult open = Run({"--seek", At(59), "--from", At(58)});
    EXPECT_EQ(open.exitCode, 0);
    EXPECT_NE(open.err.find("has no index to seek by; played from its start"), std::string::npos) << open.err;
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
    const auto expectNote = [this](const std::vector<std::string>& options, const std::string& what) {
        const ProgramResult result = Run(options);
        EXPECT_EQ(result.exitCode, 3);
        EXPECT_EQ(result.err,
                  "diskaccess: " + what +
                      ": cannot be played beyond 2026-11-20 14:00:01, though recorded to 2026-11-20 "
                      "14:00:07; `diskaccess export` passes damage\n");
    };
    expectNote({}, "block 0, channel 1");
    expectNote({"--record", "0/1/0"}, "block 0, channel 1");
    expectNote({"--unit", "0"}, "block 0");
}

TEST_F(PlayProgram, PlaysBeyondMidnightInABlockThatWasNeverClosed) {
    ASSERT_EQ(RecordAnew({1, 5, 10, 3000, 200, 0, 40}, kStart + 35995, 10, true), 1u);
    const Lines frames = Frames({"--from", "2026-11-21 00:00:01"});
    ASSERT_EQ(frames.size(), 20u) << Joined(frames);
    EXPECT_EQ(frames.back(), "00:04.8 P-frame");
}

TEST_F(PlayProgram, PlaysABlockOfATimeThatNoSearchReaches) {
    RecordAnew({1, 5, 10, 3000, 1000, 0, 40}, 0x90000000, 8, false);
    EXPECT_EQ(Frames({"--unit", "0"}).size(), 40u);
    const ProgramResult searched = Run({});
    EXPECT_EQ(searched.exitCode, 1);
    EXPECT_EQ(searched.err,
              "diskaccess: " + File("disk") +
                  ": 1 block bears times after 2038-01-19 and is left out; units lists them, and "
                  "play --unit plays them\n");
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
    EXPECT_NE(result.err.find("channels 1 are locked and left out"), std::string::npos);
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
    EXPECT_EQ(
        result.err.rfind("diskaccess: block 1, channel 1: cannot be played beyond 2026-11-20 14:00:", 0), 0u)
        << result.err;
    EXPECT_NE(result.err.find("`diskaccess export` passes damage"), std::string::npos);
}

} // namespace
