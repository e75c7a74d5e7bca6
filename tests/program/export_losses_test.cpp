// Exports of disks that are damaged, cut off, worn or wiped: which frames come out, and how each loss is named.

#include <algorithm>
#include <cstring>

#include "program/export_fixture.h"

namespace {

using namespace test_support;
using namespace sample_recorder;

class ExportLosses : public ExportFixture {
protected:
    void Wipe(uint32_t block) {
        const std::vector<uint8_t> zeros(Disk().BlockSize());
        Disk().Write(Disk().HeadOffset(block), zeros.data(), zeros.size());
    }

    /// Marks all frames of two blocks and between as lost, as Lose().
    void LoseBlocks(uint32_t first, uint32_t last) { Lose(FrameOf(first, 0), FrameOf(last + 1, 0) - 1); }

    /// Runs another command on the disk.
    ProgramResult RunOther(const std::string& command, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, command, File("disk"), "--utc"});
        return RunProgram(options);
    }
};

TEST_F(ExportLosses, PassesAHeadThatIsGone) {
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
    EXPECT_EQ(loss["bytes"], 24 + m_recorded[damaged].frame.payload.size());
    EXPECT_EQ(loss["before"], "2026-11-20T14:00:17.240000Z");
    EXPECT_EQ(loss["after"], "2026-11-20T14:00:17.300000Z");
    EXPECT_EQ(manifest["losses"][1]["channel"], 1);
    EXPECT_EQ(manifest["losses"][1]["count"], 3);
    EXPECT_EQ(m_messages.rfind("diskaccess: block 2: ", 0), 0u) << m_messages;
}

TEST_F(ExportLosses, PassesAFrameWhoseLengthIsWrong) {
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

TEST_F(ExportLosses, PassesATimeStampThatIsWrong) {
    Record();
    const size_t damaged = FrameOf(1, 30);
    Disk().Change<FrameHead_t>(HeadOf(damaged), [](FrameHead_t& head) { head.pts ^= int64_t{1} << 45; });
    // Its neighbours tell when it was: it is there, with its head in doubt.
    const Json manifest = Compare(3);
    ASSERT_EQ(KindsOf(manifest["losses"]), std::vector<std::string>{"frame_damaged"});
    EXPECT_EQ(manifest["losses"][0]["offset"], m_recorded[damaged].offset);
    EXPECT_EQ(manifest["end"], "2026-11-20T14:01:29.960000Z");
}

TEST_F(ExportLosses, PassesAStretchThatWasWrittenOver) {
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
        EXPECT_EQ(manifest["losses"][0]["bytes"], EndOf(last) - m_recorded[first].offset);
    }
}

TEST_F(ExportLosses, PassesTheEndOfABlockThatWasWrittenOver) {
    Record();
    const size_t behind = FrameOf(5, 0);
    const size_t first = behind - 10;
    const std::vector<uint8_t> zeros(HeadOf(behind - 1) + 24 - HeadOf(first));
    Disk().Write(HeadOf(first), zeros.data(), zeros.size());
    // What follows nothing like a head may be damaged itself: it goes too.
    Lose(first - 1, behind - 1);
    EXPECT_EQ(Compare(3)["losses"].size(), 1u);
}

TEST_F(ExportLosses, PassesWhatTheDiskDoesNotDeliver) {
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
    EXPECT_EQ(manifest["losses"][0]["bytes"], kSectorSize);
}

TEST_F(ExportLosses, PassesAHeadThatTheDiskDoesNotDeliver) {
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

TEST_F(ExportLosses, TakesWhatIsLeftOfACopyThatWasCutOff) {
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

TEST_F(ExportLosses, ReadsABlockWhoseHeadIsUnreadable) {
    Record();
    const Json manifest = Compare(0, {}, BadBytes(Disk().HeadOffset(3), 4));
    EXPECT_EQ(KindsOf(manifest["notes"]), std::vector<std::string>{"head_damaged"});
    EXPECT_NE(m_messages.find("block 3: its head is damaged; it is read all the same"), std::string::npos);
}

TEST_F(ExportLosses, ReadsABlockWhoseTailIsUnreadable) {
    Record();
    const Json manifest = Compare(0, {}, BadBytes(Disk().TailOffset(3), 4));
    EXPECT_EQ(KindsOf(manifest["notes"]), std::vector<std::string>{"tail_damaged"});
    EXPECT_NE(m_messages.find("block 3: its tail is damaged; it is read all the same"), std::string::npos);
}

TEST_F(ExportLosses, NamesABlockThatTheDiskDoesNotDeliver) {
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

TEST_F(ExportLosses, ReadsABlockWhoseHeadIsDamaged) {
    Record();
    Disk().Change<BlockHead_t>(Disk().HeadOffset(3), [](BlockHead_t& head) { head.ValidFlag = 0; });
    const Json manifest = Compare(0);
    EXPECT_EQ(KindsOf(manifest["notes"]), std::vector<std::string>{"head_damaged"});
}

TEST_F(ExportLosses, WaitsForAKeyFrameAfterABlockThatWasWiped) {
    Record();
    Wipe(3);
    LoseBlocks(3, 3);
    const Json manifest = Compare(3);
    ASSERT_FALSE(manifest["losses"].empty());
    EXPECT_EQ(manifest["losses"][0]["problem"], "block_wiped");
    EXPECT_EQ(manifest["losses"][0]["block"], 3);
    EXPECT_NE(m_messages.find("block 3: was recorded, but holds no recording any more"), std::string::npos)
        << m_messages;
}

TEST_F(ExportLosses, TakesASuspectBlockButNoBadOne) {
    Record();
    Disk().SetSuspect(2, 1);
    Compare(0);
    Disk().SetBad(4);
    Lose(FrameOf(4, 0), FrameOf(5, 0) - 1);
    Compare(3);
}

TEST_F(ExportLosses, NamesEveryBlockOfAStretchThatWasWiped) {
    Record();
    Wipe(2);
    Wipe(3);
    LoseBlocks(2, 3);
    const Json manifest = Compare(3);
    EXPECT_EQ(manifest["losses"][0]["block"], 2);
    EXPECT_EQ(manifest["losses"][1]["block"], 3);
    EXPECT_EQ(manifest["losses"][1]["problem"], "block_wiped");
    for (const char* const command : {"list", "events", "play"}) {
        const ProgramResult result = RunOther(command, {"--from", At(15), "--to", At(30)});
        EXPECT_EQ(result.exitCode, 3) << command;
        for (const char* const block : {"block 2: was recorded", "block 3: was recorded"}) {
            EXPECT_NE(result.err.find(block), std::string::npos) << command << ": " << result.err;
        }
    }
}

TEST_F(ExportLosses, NamesFramesThatOnlyTheIndexTellsOf) {
    RecordOneCamera({0, 10, 10, 1000, 300, 0, 40}, 60);
    const uint32_t newest = m_recorded.back().block;
    std::vector<size_t> sizes(newest + 1);
    for (const Recorded& recorded : m_recorded) {
        sizes[recorded.block] += 24 + recorded.frame.payload.size();
    }
    for (uint32_t block = 0; block <= newest; ++block) {
        const std::vector<uint8_t> zeros(sizes[block]);
        Disk().Write(Disk().FrameOffset(block, 0), zeros.data(), zeros.size());
    }
    const ProgramResult result = Run({"--raw"});
    EXPECT_EQ(result.exitCode, 3);
    for (uint32_t block = 0; block <= newest; ++block) {
        EXPECT_NE(result.err.find("block " + std::to_string(block) + ": "), std::string::npos) << result.err;
    }
    EXPECT_NE(result.err.find("no frames of that time and these channels could be read; nothing was written"),
              std::string::npos)
        << result.err;
    EXPECT_FALSE(std::filesystem::exists(File("out.json")));
}

TEST_F(ExportLosses, NamesFramesWhoseKindOrChannelIsWrong) {
    Record();
    const size_t damaged = FrameOf(2, 24);
    const auto good = Disk().Get<FrameHead_t>(HeadOf(damaged));
    const auto exported = [&](const std::string& what) {
        const ProgramResult result = Run({"--raw", "--force"});
        EXPECT_EQ(result.exitCode, 3) << what;
        EXPECT_NE(result.err.find("block 2"), std::string::npos) << what << ": " << result.err;
        Disk().Put(HeadOf(damaged), good);
    };
    for (const uint32_t type : {0u, 1u, 2u, 3u, 0x40000000u}) {
        if (type != good.type) {
            Disk().Change<FrameHead_t>(HeadOf(damaged), [type](FrameHead_t& head) { head.type = type; });
            exported("type " + std::to_string(type));
        }
    }
    for (const uint32_t channel : {0u, 1u, 5u, 0x80000000u}) {
        if (channel != good.chn) {
            Disk().Change<FrameHead_t>(HeadOf(damaged), [channel](FrameHead_t& head) { head.chn = channel; });
            exported("channel " + std::to_string(channel));
        }
    }
}

TEST_F(ExportLosses, TheBlockBeingWrittenHasNothingOfLaterYears) {
    Record();
    for (const char* const later : {"2027-01-01", "2090-01-01", "2200-01-01"}) {
        for (const char* const command : {"list", "events", "play"}) {
            const ProgramResult result = RunOther(command, {"--from", later, "--json"});
            EXPECT_EQ(result.exitCode, 0) << command << later;
            EXPECT_EQ(result.err, "") << command << later;
            const Json document = Json::parse(result.out);
            const char* const rows = std::string(command) == "list"   ? "records"
                                     : std::string(command) == "play" ? "frames"
                                                                      : "events";
            EXPECT_EQ(document[rows], Json::array()) << command << later;
        }
        const ProgramResult nothing = Run({"--raw", "--from", later});
        EXPECT_EQ(nothing.exitCode, 0) << later;
        EXPECT_NE(nothing.err.find("holds no frames of that time"), std::string::npos) << nothing.err;
    }
}

TEST_F(ExportLosses, NamesLockedChannels) {
    Record();
    Disk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 0x2;
        std::strcpy(head.CipherCode, "open");
    });
    for (Recorded& recorded : m_recorded) {
        recorded.lost = recorded.frame.channel == 1;
    }
    const Json manifest = Compare(0);
    ASSERT_EQ(KindsOf(manifest["notes"]), std::vector<std::string>{"channels_locked"});
    EXPECT_EQ(manifest["notes"][0]["channels"], Json{1});
    EXPECT_EQ(std::count(m_messages.begin(), m_messages.end(), '\n'), 1) << m_messages;
    // A channel that is not asked for needs no word in the manifest.
    const Json other = Compare(0, {"--channel", "0"});
    EXPECT_EQ(other["notes"], Json::array());
    // Nothing but locked channels: that there are no frames of theirs is not known.
    const ProgramResult locked = Run({"--raw", "--force", "--channel", "1"});
    EXPECT_EQ(locked.err.find("holds no frames"), std::string::npos) << locked.err;
    EXPECT_NE(locked.err.find("channel 1 is locked and left out"), std::string::npos) << locked.err;
    ProgramSetting setting;
    setting.environment = {"DISKACCESS_PASSWORD=wrong"};
    const ProgramResult wrong = Run({"--raw", "--force"}, setting);
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_EQ(std::count(wrong.err.begin(), wrong.err.end(), '\n'), 1) << wrong.err;
}

TEST_F(ExportLosses, PlayingARecordOfAWipedBlockSaysSo) {
    Record();
    Wipe(3);
    const ProgramResult result = RunOther("play", {"--record", "3/0/0"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.out, "Frames   0\nPayload  0 B\n");
    EXPECT_EQ(result.err.rfind("diskaccess: block 3: was recorded, but holds no recording any more", 0), 0u)
        << result.err;
}

} // namespace
