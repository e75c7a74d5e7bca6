// Exports of recordings made from a seed: which frames come out when parts of the disk are damaged, missing or
// locked, and what is said of it.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/files.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace {

using namespace test_support;
using namespace sample_recorder;
using Json = nlohmann::json;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC
constexpr uint32_t kSectorSize = 512;   // what a worn disk fails to deliver at least

/// A frame as it was recorded.
struct Recorded {
    uint32_t block;
    uint32_t offset; ///< in the frame area
    Frame frame;
    bool lost = false; ///< for the test to mark
};

/// Two cameras, the second with audio, recorded for a minute and a half on blocks of 64 KiB: some eight blocks,
/// the last one never closed. A key frame each second.
class Export : public SearchFixture {
protected:
    void Record(uint32_t seconds = 90, bool endMarker = true) {
        sample_recorder::Format format;
        format.fmtVersion = 1;
        format.blockCount = 16;
        MakeDisk(format);
        RecorderSettings settings;
        settings.channels = 3;
        settings.endMarker = endMarker;
        settings.properties[1].AType = 1;
        settings.properties[1].Sample = 8000;
        Recorder recorder(Disk(), settings);
        MergedSource source;
        source.Add(std::make_unique<GeneratedSource>(GeneratedCamera{0, 10, 10, 1000, 300, 0, 40}, 1, kStart,
                                                     seconds));
        source.Add(std::make_unique<GeneratedSource>(GeneratedCamera{1, 5, 5, 800, 200, 32, 40}, 2, kStart,
                                                     seconds));
        Frame frame;
        uint32_t block = 0;
        uint32_t offset = 0;
        while (source.Next(frame)) {
            recorder.Write(frame);
            offset = recorder.CurrentBlock() == block ? offset : 0;
            block = *recorder.CurrentBlock();
            m_recorded.push_back({block, offset, frame});
            offset += 24 + static_cast<uint32_t>(frame.payload.size());
        }
        recorder.CutPower();
    }

    /// Records one camera of channel 0, and closes the last block.
    void RecordOneCamera(const GeneratedCamera& camera, uint32_t seconds) {
        sample_recorder::Format format;
        format.blockCount = 16;
        MakeDisk(format);
        RecorderSettings settings;
        settings.channels = 1;
        Recorder recorder(Disk(), settings);
        GeneratedSource source(camera, 1, kStart, seconds);
        for (Frame frame; source.Next(frame);) {
            recorder.Write(frame);
            m_recorded.push_back({*recorder.CurrentBlock(), 0, frame});
        }
        recorder.PowerOff();
    }

    ProgramResult Run(std::vector<std::string> options, const ProgramSetting& setting = {}) {
        options.insert(options.begin(),
                       {DISKACCESS_PROGRAM, "export", File("disk"), "--utc", "-o", File("out")});
        return RunProgram(options, setting);
    }

    /// A disk that does not deliver some bytes.
    ProgramSetting BadBytes(uint64_t from, uint64_t size) {
        ProgramSetting setting;
        setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_BAD_FILE=" + File("disk"),
                               "SHIM_BAD_FROM=" + std::to_string(from),
                               "SHIM_BAD_TO=" + std::to_string(from + size)};
        return setting;
    }

    /// Exports elementary streams, and compares them with what was recorded and not lost.
    Json Compare(int exitCode, std::vector<std::string> options = {}, const ProgramSetting& setting = {}) {
        options.insert(options.begin(), {"--raw", "--force"});
        const ProgramResult result = Run(options, setting);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        m_messages = result.err;
        const Json manifest = Json::parse(ReadFile(File("out.json")));
        EXPECT_EQ(SchemaErrors("manifest", manifest), "");
        EXPECT_EQ(Bytes("out-ch0.video"), Expected(0, true));
        EXPECT_EQ(Bytes("out-ch1.video"), Expected(1, true));
        EXPECT_EQ(Bytes("out-ch1.alaw"), Expected(1, false));
        return manifest;
    }

    /// A digest would do; the length tells more when it fails.
    std::pair<size_t, size_t> Bytes(const std::string& name) {
        const std::string path = File(name);
        const std::string bytes = std::filesystem::exists(path) ? ReadFile(path) : "";
        return {bytes.size(), std::hash<std::string>()(bytes)};
    }

    std::pair<size_t, size_t> Expected(uint32_t channel, bool video) {
        std::string bytes;
        for (const Recorded& recorded : m_recorded) {
            const bool isVideo = recorded.frame.type <= kVideoI;
            if (!recorded.lost && recorded.frame.channel == channel && isVideo == video) {
                bytes.append(recorded.frame.payload.begin(), recorded.frame.payload.end());
            }
        }
        return {bytes.size(), std::hash<std::string>()(bytes)};
    }

    /// The entry of the n-th frame of a block.
    size_t FrameOf(uint32_t block, size_t n) {
        size_t i = 0;
        while (m_recorded.at(i).block != block) {
            ++i;
        }
        return i + n;
    }

    /// Marks frames as lost, and with them all video after them up to the next key frame of each channel that the reader
    /// knows to have lost something, or cannot tell.
    void Lose(size_t first, size_t last, uint32_t channels = 3) {
        bool waiting[2] = {(channels & 1u) != 0, (channels & 2u) != 0};
        for (size_t i = first; i < m_recorded.size(); ++i) {
            Recorded& recorded = m_recorded[i];
            const bool video = recorded.frame.type <= kVideoI;
            if (i > last && recorded.frame.type == kVideoI) {
                waiting[recorded.frame.channel] = false;
            }
            recorded.lost = recorded.lost || i <= last || (video && waiting[recorded.frame.channel]);
        }
    }

    /// Where a frame ends in its block's frame area.
    uint32_t EndOf(size_t entry) const {
        return m_recorded[entry].offset + 24 + static_cast<uint32_t>(m_recorded[entry].frame.payload.size());
    }

    /// Marks as lost what lies in a sector of a block's frame area, as Lose().
    void LoseSector(uint32_t block, uint32_t sector) {
        size_t first = FrameOf(block, 0);
        while (EndOf(first) <= sector) {
            ++first;
        }
        size_t last = first;
        while (m_recorded[last + 1].offset < sector + kSectorSize) {
            ++last;
        }
        Lose(first, last);
    }

    uint64_t HeadOf(size_t entry) {
        return Disk().FrameOffset(m_recorded[entry].block, m_recorded[entry].offset);
    }

    std::vector<Recorded> m_recorded;
    std::string m_messages;
};

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

/// The kinds of the problems in a list of the manifest.
std::vector<std::string> KindsOf(const Json& problems) {
    std::vector<std::string> kinds;
    for (const Json& problem : problems) {
        kinds.push_back(problem["problem"]);
    }
    return kinds;
}

TEST_F(Export, PassesAHeadThatIsGone) {
    Record();
    const size_t damaged = FrameOf(2, 20);
    ASSERT_EQ(m_recorded[damaged].frame.channel, 1u);
    Disk().Change<FrameHead_t>(HeadOf(damaged), [](FrameHead_t& head) { head.sync ^= 0x10; });
    // The index shows that channel 1 is short of a frame, and channel 0 is not.
    Lose(damaged, damaged, 2);
    const Json manifest = Compare(3);
    ASSERT_EQ(KindsOf(manifest["losses"]), (std::vector<std::string>{"bytes_damaged", "not_decodable"}));
    const Json& loss = manifest["losses"][0];
    EXPECT_EQ(loss["block"], 2);
    EXPECT_EQ(loss["offset"], m_recorded[damaged].offset);
    EXPECT_EQ(loss["size_bytes"], 24 + m_recorded[damaged].frame.payload.size());
    EXPECT_EQ(loss["start"], "2026-11-20T14:00:17.240000Z");
    EXPECT_EQ(loss["end"], "2026-11-20T14:00:17.300000Z");
    EXPECT_EQ(manifest["losses"][1]["channel"], 1);
    EXPECT_EQ(manifest["losses"][1]["count"], 3);
    EXPECT_EQ(m_messages.rfind("diskaccess: block 2: ", 0), 0u) << m_messages;
}

TEST_F(Export, PassesAFrameWhoseLengthIsWrong) {
    Record();
    for (const uint32_t length : {3u, 5000u, 0x7FFFFFFFu, 0xFFFFFFE8u}) {
        const size_t damaged = FrameOf(3, 10);
        const auto good = Disk().Get<FrameHead_t>(HeadOf(damaged));
        Disk().Change<FrameHead_t>(HeadOf(damaged), [length](FrameHead_t& head) { head.len = length; });
        // The next head tells how long the frame is: it is there, with its head in doubt.
        const Json manifest = Compare(3);
        ASSERT_EQ(KindsOf(manifest["losses"]), std::vector<std::string>{"frame_damaged"}) << length;
        EXPECT_EQ(manifest["losses"][0]["block"], 3) << length;
        EXPECT_EQ(manifest["losses"][0]["offset"], m_recorded[damaged].offset) << length;
        Disk().Put(HeadOf(damaged), good);
    }
}

TEST_F(Export, PassesATimeStampThatIsWrong) {
    Record();
    const size_t damaged = FrameOf(1, 30);
    Disk().Change<FrameHead_t>(HeadOf(damaged), [](FrameHead_t& head) { head.pts ^= int64_t{1} << 45; });
    // Its neighbours tell when it was: it is there, with its head in doubt.
    const Json manifest = Compare(3);
    ASSERT_EQ(KindsOf(manifest["losses"]), std::vector<std::string>{"frame_damaged"});
    EXPECT_EQ(manifest["losses"][0]["offset"], m_recorded[damaged].offset);
    EXPECT_EQ(manifest["end"], "2026-11-20T14:01:29.960000Z");
}

TEST_F(Export, PassesAStretchThatWasWrittenOver) {
    Record();
    for (const uint8_t fill : {uint8_t{0x00}, uint8_t{0xFF}}) {
        const size_t first = FrameOf(4, 15);
        const size_t last = FrameOf(4, 40);
        // From within one frame to within another.
        const uint64_t from = HeadOf(first) + 30;
        const std::vector<uint8_t> bytes(HeadOf(last) + 10 - from, fill);
        Disk().Write(from, bytes.data(), bytes.size());
        Lose(first, last);
        const Json manifest = Compare(3);
        ASSERT_EQ(KindsOf(manifest["losses"]),
                  (std::vector<std::string>{"bytes_damaged", "not_decodable", "not_decodable"}));
        EXPECT_EQ(manifest["losses"][0]["offset"], m_recorded[first].offset);
        EXPECT_EQ(manifest["losses"][0]["size_bytes"], EndOf(last) - m_recorded[first].offset);
    }
}

TEST_F(Export, PassesTheEndOfABlockThatWasWrittenOver) {
    Record();
    const size_t behind = FrameOf(5, 0);
    const size_t first = behind - 10;
    const std::vector<uint8_t> zeros(HeadOf(behind - 1) + 24 - HeadOf(first));
    Disk().Write(HeadOf(first), zeros.data(), zeros.size());
    // What follows nothing like a head may be damaged itself: it goes too.
    Lose(first - 1, behind - 1);
    EXPECT_EQ(Compare(3)["losses"].size(), 1u);
}

TEST_F(Export, PassesWhatTheDiskDoesNotDeliver) {
    Record();
    const size_t damaged = FrameOf(2, 30);
    ASSERT_GT(m_recorded[damaged].frame.payload.size(), 30u);
    const uint32_t sector = (m_recorded[damaged].offset + 30) / kSectorSize * kSectorSize;
    LoseSector(2, sector);
    const Json manifest = Compare(3, {}, BadBytes(HeadOf(damaged) + 30, 1));
    ASSERT_EQ(KindsOf(manifest["losses"]),
              (std::vector<std::string>{"bytes_unreadable", "not_decodable", "not_decodable"}));
    EXPECT_EQ(manifest["losses"][0]["block"], 2);
    EXPECT_EQ(manifest["losses"][0]["offset"], sector);
    EXPECT_EQ(manifest["losses"][0]["size_bytes"], kSectorSize);
}

TEST_F(Export, PassesAHeadThatTheDiskDoesNotDeliver) {
    Record();
    const size_t damaged = FrameOf(2, 30);
    const uint32_t sector = m_recorded[damaged].offset / kSectorSize * kSectorSize;
    ASSERT_LE(m_recorded[damaged].offset + 24, sector + kSectorSize);
    LoseSector(2, sector);
    const Json manifest = Compare(3, {}, BadBytes(HeadOf(damaged), 24));
    ASSERT_EQ(KindsOf(manifest["losses"]),
              (std::vector<std::string>{"bytes_unreadable", "not_decodable", "not_decodable"}));
    EXPECT_EQ(manifest["losses"][0]["offset"], sector);
}

TEST_F(Export, TakesWhatIsLeftOfACopyThatWasCutOff) {
    Record();
    const uint64_t end = Disk().FrameOffset(4, 0x5000);
    Disk().Truncate(end);
    for (size_t i = 0; i < m_recorded.size(); ++i) {
        m_recorded[i].lost = HeadOf(i) + 24 + m_recorded[i].frame.payload.size() > end;
    }
    const Json manifest = Compare(3);
    ASSERT_EQ(manifest["blocks"].size(), 5u);
    EXPECT_EQ(manifest["blocks"][4]["closed"], false);
    ASSERT_EQ(KindsOf(manifest["losses"]), (std::vector<std::string>{"device_cut_off", "bytes_unreadable"}));
    EXPECT_EQ(manifest["losses"][0]["block"], 4);
    EXPECT_EQ(manifest["losses"][0]["count"], 12);
    EXPECT_EQ(manifest["losses"][1]["block"], 4);
    EXPECT_EQ(manifest["losses"][1]["offset"], 0x5000);
    EXPECT_NE(m_messages.find("is cut off: 12 blocks from block 4 on are missing"), std::string::npos)
        << m_messages;
}

TEST_F(Export, ReadsABlockWhoseHeadIsUnreadable) {
    Record();
    const Json manifest = Compare(0, {}, BadBytes(Disk().HeadOffset(3), 4));
    EXPECT_EQ(KindsOf(manifest["notes"]), std::vector<std::string>{"head_damaged"});
    EXPECT_NE(m_messages.find("block 3: its head is damaged; it is read all the same"), std::string::npos);
}

TEST_F(Export, ReadsABlockWhoseTailIsUnreadable) {
    Record();
    const Json manifest = Compare(0, {}, BadBytes(Disk().TailOffset(3), 4));
    EXPECT_EQ(KindsOf(manifest["notes"]), std::vector<std::string>{"tail_damaged"});
    EXPECT_NE(m_messages.find("block 3: its tail is damaged; it is read all the same"), std::string::npos);
}

TEST_F(Export, NamesABlockThatTheDiskDoesNotDeliver) {
    Record();
    const uint32_t newest = m_recorded.back().block;
    for (const uint32_t block : {0u, 3u, newest}) {
        for (Recorded& recorded : m_recorded) {
            recorded.lost = false;
        }
        const size_t first = FrameOf(block, 0);
        Lose(first, block == newest ? m_recorded.size() - 1 : FrameOf(block + 1, 0) - 1);
        const Json manifest = Compare(3, {}, BadBytes(Disk().HeadOffset(block), Disk().BlockSize()));
        std::vector<std::string> kinds = KindsOf(manifest["losses"]);
        ASSERT_FALSE(kinds.empty());
        EXPECT_EQ(kinds[0], "block_unreadable") << block;
        EXPECT_EQ(manifest["losses"][0]["block"], block);
        EXPECT_EQ(std::count(kinds.begin(), kinds.end(), "block_unreadable"), 1) << block;
        EXPECT_EQ(m_messages.find("not there any more"), std::string::npos) << m_messages;
    }
}

TEST_F(Export, ReadsABlockWhoseHeadIsDamaged) {
    Record();
    Disk().Change<BlockHead_t>(Disk().HeadOffset(3), [](BlockHead_t& head) { head.ValidFlag = 0; });
    const Json manifest = Compare(0);
    EXPECT_EQ(KindsOf(manifest["notes"]), std::vector<std::string>{"head_damaged"});
}

TEST_F(Export, WaitsForAKeyFrameAfterABlockThatWasWiped) {
    Record();
    const std::vector<uint8_t> zeros(Disk().BlockSize());
    Disk().Write(Disk().HeadOffset(3), zeros.data(), zeros.size());
    Lose(FrameOf(3, 0), FrameOf(4, 0) - 1);
    const Json manifest = Compare(3);
    ASSERT_FALSE(manifest["losses"].empty());
    EXPECT_EQ(manifest["losses"][0]["problem"], "block_wiped");
    EXPECT_EQ(manifest["losses"][0]["block"], 3);
    EXPECT_NE(m_messages.find("block 3: was recorded, but holds no recording any more"), std::string::npos)
        << m_messages;
}

TEST_F(Export, TakesASuspectBlockButNoBadOne) {
    Record();
    Disk().SetSuspect(2, 1);
    Compare(0);
    Disk().SetBad(4);
    Lose(FrameOf(4, 0), FrameOf(5, 0) - 1);
    Compare(3);
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
    EXPECT_NE(m_messages.find("channels 0 are locked and left out"), std::string::npos);
    ProgramSetting setting;
    setting.environment = {"DISKACCESS_PASSWORD=wrong"};
    Compare(1, {}, setting);
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

TEST_F(Export, NamesAudioAsTold) {
    Record(20);
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [](BlockHead_t& head) { head.prop[1].AType = 77; });
    EXPECT_EQ(Run({"--raw", "--force"}).exitCode, 0);
    EXPECT_EQ(Bytes("out-ch1.audio"), Expected(1, false));
    EXPECT_EQ(Run({"--raw", "--force", "--audio", "mulaw:8000"}).exitCode, 0);
    EXPECT_EQ(Bytes("out-ch1.mulaw"), Expected(1, false));
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
