#include <cstring>
#include <map>
#include <memory>

#include "playback/part_fixture.h"
#include "sample_recorder/generated_source.h"

namespace {

using namespace test_support;

constexpr int kOneChannel = 0;
constexpr int kAllChannels = 1;

const char* const kTwoBlocks = "P0@1000 I0@1001 P1@1001 I0@1002 P0@1003 | P0@1004 I0@1005 I1@1006 |";

class ReadDisk : public PartFixture {
protected:
    PartAccess_t Missing() const {
        PartAccess_t access = {};
        std::strcpy(access.PartName, "/nonexistent/partition");
        return access;
    }
    static int Check(OpenReadDisk& disk, const char* password) {
        unsigned char text[64] = {};
        std::strcpy(reinterpret_cast<char*>(text), password);
        return disk->CheckEncryptInfo(text);
    }
    /// Every operation on a handle through which nothing can be read.
    static void ExpectNothing(CReadDisk& disk, void* handle) {
        FrameInfo_t info = {};
        void* payload = nullptr;
        long time = 1000;
        unsigned int pos = 0;
        EXPECT_EQ(disk.ReadFrame(handle, &info, &payload), -1);
        EXPECT_EQ(disk.ReadNextIFrame(handle, &info, &payload), -1);
        EXPECT_EQ(disk.ReadPrevIFrame(handle, &info, &payload), -1);
        EXPECT_EQ(disk.ReadUnitFrame(handle, &info, &payload), -1);
        EXPECT_EQ(disk.SeekTime(handle, &time), -1);
        EXPECT_EQ(disk.SeekPos(handle, &pos), -1);
        EXPECT_EQ(payload, nullptr);
    }
};

TEST_F(ReadDisk, InitTwiceFailsAndChangesNothing) {
    RecordOnNewDisk(kTwoBlocks);
    OpenReadDisk disk(Disk());
    PartAccess_t access = Missing();
    EXPECT_EQ(Printed([&] { EXPECT_EQ(disk->Init(&access), -1); }), "");
    access = Disk().Access();
    EXPECT_EQ(disk->Init(&access), -1);
    DiskPlayer player(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.Frame(), "I0@1001");
}

TEST_F(ReadDisk, InitAfterQuitOpensAnew) {
    RecordOnNewDisk(kTwoBlocks);
    CReadDisk disk;
    PartAccess_t access = Disk().Access();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(disk.Init(&access), 0);
        DiskPlayer player(disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
        EXPECT_EQ(player.Frame(), "I0@1001");
        player.Stop();
        EXPECT_EQ(disk.Quit(), 0);
        EXPECT_EQ(disk.Quit(), -1);
    }
}

TEST_F(ReadDisk, DescriptorIsCopied) {
    RecordOnNewDisk(kTwoBlocks);
    CReadDisk disk;
    PartAccess_t access = Disk().Access();
    EXPECT_EQ(disk.Init(&access), 0);
    access = Missing();
    DiskPlayer player(disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.Frame(), "I0@1001");
    player.Stop();
    disk.Quit();
}

TEST_F(ReadDisk, NothingWorksBeforeInit) {
    CReadDisk disk;
    RecordItem_t record = SegmentRecord(0, 0, 0, 1000);
    EncodeParam_t out;
    std::memset(&out, 0xEE, sizeof out);
    unsigned char password[] = "secret";
    EXPECT_EQ(disk.Init(nullptr), -1);
    EXPECT_EQ(disk.Quit(), -1);
    EXPECT_EQ(disk.StartRead(0, &record), nullptr);
    EXPECT_EQ(disk.StartUnitRead(0), nullptr);
    EXPECT_EQ(disk.GetInfo(&out, &record, 0), -1);
    EXPECT_EQ(disk.CheckEncryptInfo(password), -1);
    EXPECT_EQ(disk.StopRead(nullptr), 0);
    EXPECT_EQ(disk.StopUnitRead(nullptr), 0);
    ExpectNothing(disk, nullptr);
}

TEST_F(ReadDisk, NullHandles) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    ExpectNothing(*disk, nullptr);
    EXPECT_EQ(disk->StopRead(nullptr), 0);
    EXPECT_EQ(disk->StopUnitRead(nullptr), 0);
    EXPECT_EQ(disk->StartRead(0, nullptr), nullptr);
}

TEST_F(ReadDisk, NullArgumentsFail) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer player(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    FrameInfo_t info = {};
    void* payload = nullptr;
    EXPECT_EQ(disk->SeekTime(player.Handle(), nullptr), -1);
    EXPECT_EQ(disk->SeekPos(player.Handle(), nullptr), -1);
    EXPECT_EQ(disk->ReadFrame(player.Handle(), nullptr, &payload), -1);
    EXPECT_EQ(disk->ReadFrame(player.Handle(), &info, nullptr), -1);
    EXPECT_EQ(disk->ReadNextIFrame(player.Handle(), nullptr, &payload), -1);
    EXPECT_EQ(disk->ReadPrevIFrame(player.Handle(), &info, nullptr), -1);
    EXPECT_EQ(disk->ReadUnitFrame(player.Handle(), nullptr, &payload), -1);
    EXPECT_EQ(player.Frame(), "I0@1001");
}

TEST_F(ReadDisk, DiskThatCannotBeReadGivesHandlesThatDeliverNothing) {
    MakeDisk().Truncate(100);
    for (PartAccess_t access : {Disk().Access(), Missing()}) {
        CReadDisk disk;
        Quietly([&] { EXPECT_EQ(disk.Init(&access), 0); });
        DiskPlayer record(disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
        EXPECT_EQ(record.Messages(), "");
        ASSERT_NE(record.Handle(), nullptr);
        ExpectNothing(disk, record.Handle());
        DiskPlayer unit(disk, 3);
        ASSERT_NE(unit.Handle(), nullptr);
        ExpectNothing(disk, unit.Handle());
        RecordItem_t asked = SegmentRecord(0, 0, 0, 1000);
        EncodeParam_t out;
        std::memset(&out, 0xEE, sizeof out);
        EXPECT_EQ(disk.GetInfo(&out, &asked, 0), -1);
        EXPECT_EQ(out.VehicleID[31], 0); // all zero
        unsigned char password[] = "secret";
        EXPECT_EQ(disk.CheckEncryptInfo(password), -1);
        EXPECT_EQ(disk.Init(&access), -1); // it counts as initialised
        record.Stop();
        unit.Stop();
        EXPECT_EQ(disk.Quit(), 0);
    }
}

TEST_F(ReadDisk, PartitionWithAnotherMagicDeliversNothing) {
    RecordOnNewDisk(kTwoBlocks).EditHead([](PartHead_t& head) { head.FormatFlag = 0; });
    OpenReadDisk disk(Disk());
    DiskPlayer player(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_NE(player.Handle(), nullptr);
    EXPECT_EQ(player.Frame(), "failed");
    EXPECT_EQ(player.UnitFrame(), "failed");
    EXPECT_EQ(Check(disk, "anything"), 0); // and it has no lock
}

TEST_F(ReadDisk, PlaysARecordOfOneChannelOrOfAll) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer one(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000, 1900));
    EXPECT_EQ(one.Messages(), "BeginReader BlockNum = 0, ChnType=0, (1000, 1900, 0, 0) \n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(one.Frames(), "I0@1001 I0@1002 P0@1003 P0@1004 end"); }),
              "ReadFrame BlockNum = 1 \n");
    EXPECT_EQ(one.NextIFrame(), "end");
    EXPECT_EQ(one.PrevIFrame(), "end");
    DiskPlayer all(*disk, kAllChannels, SegmentRecord(0, 0, 0, 1000, 1900));
    EXPECT_EQ(all.Messages(), "BeginReader BlockNum = 0, ChnType=1, (1000, 1900, 0, 0) \n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(all.Frames(), "P0@1000 I0@1001 P1@1001 I0@1002 P0@1003 end"); }), "");
}

TEST_F(ReadDisk, SeeksAndSteps) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer player(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(Printed([&] { EXPECT_EQ(player.SeekTime(1002), 0); }),
              "SeekTime : Offset 372 (seek:1002)(1000, 1003, 0)(1002000000, 372)\n");
    EXPECT_EQ(player.Frame(), "I0@1002");
    EXPECT_EQ(player.SeekPos(0), 0);
    EXPECT_EQ(player.NextIFrame(), "I0@1002");
    EXPECT_EQ(player.PrevIFrame(), "end"); // after the last one there is none to turn at
    EXPECT_EQ(player.SeekPos(0), 0);
    EXPECT_EQ(player.PrevIFrame(), "I0@1002");
    EXPECT_EQ(player.PrevIFrame(), "I0@1001");
    EXPECT_EQ(player.PrevIFrame(), "end");
}

TEST_F(ReadDisk, SeekPosBeyondTheRecordReturnsZero) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer player(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(player.SeekPos(0xFFFFFFFF), 0); }), "SeekOffs, # : fail\n");
    EXPECT_EQ(player.Frame(), "I0@1001"); // it has not moved
}

TEST_F(ReadDisk, FailedTimeSeekFails) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer player(*disk, kOneChannel, SegmentRecord(0, 1, 0, 1001)); // a segment without I-frames
    EXPECT_EQ(Printed([&] { EXPECT_EQ(player.SeekTime(1001), -1); }), "");
}

TEST_F(ReadDisk, GetInfoGivesTheParametersAndTheChannel) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    RecordItem_t record = SegmentRecord(0, 3, 0, 1000);
    record.chn = 99;
    EncodeParam_t out = {};
    EXPECT_EQ(Printed([&] { EXPECT_EQ(disk->GetInfo(&out, &record, 0), 0); }), "");
    EXPECT_EQ(record.chn, 3u);
    EXPECT_EQ(out.chn, 3u);
    EXPECT_EQ(out.pre_RecTime, 10u);
    EXPECT_EQ(out.AlmDelayTime, 30u);
    EXPECT_STREQ(out.VehicleNum, "SAMPLE 1");
    EXPECT_STREQ(out.VehicleID, "sample-recorder");
    record = SegmentRecord(0, 4, 0, 1000);
    EXPECT_EQ(disk->GetInfo(&out, &record, 1), -1);
    EXPECT_EQ(out.pre_RecTime, 0u);
    EXPECT_EQ(disk->GetInfo(nullptr, &record, 0), -1);
    EXPECT_EQ(disk->GetInfo(&out, nullptr, 0), -1);
}

TEST_F(ReadDisk, PasswordDecidesNothingButItsOwnResult) {
    Format format;
    format.encrypt = 1;
    format.encryptMap = 0xFFFFFFFF;
    format.password = "secret";
    MakeDisk(format);
    Record(kTwoBlocks);
    OpenReadDisk disk(Disk());
    DiskPlayer player(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.Frame(), "I0@1001"); // before any check
    EXPECT_EQ(Check(disk, "wrong"), -1);
    EXPECT_EQ(disk->CheckEncryptInfo(nullptr), -1);
    EXPECT_EQ(player.Frame(), "I0@1002"); // a refusal locks nothing
    EXPECT_EQ(Check(disk, "secret"), 0);
    EXPECT_EQ(player.Frame(), "P0@1003");
    EXPECT_EQ(Check(disk, "wrong"), -1);
    DiskPlayer another(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(another.NextIFrame(), "I0@1002");
}

TEST_F(ReadDisk, AnyPasswordOpensAnUnlockedDisk) {
    for (const uint32_t encrypt : {0u, 2u}) {
        Format format;
        format.encrypt = encrypt;
        format.password = "secret";
        const PartitionImage image = PartitionImage::Create(File(std::to_string(encrypt)), format);
        OpenReadDisk disk(image);
        EXPECT_EQ(Check(disk, "anything"), 0);
        EXPECT_EQ(Check(disk, ""), 0);
    }
}

TEST_F(ReadDisk, ChannelNumbersBeyondTheChannelsAreNotLocked) {
    OpenReadDisk disk(RecordOnNewDisk("I0@1000 P0@1001 |"));
    for (const uint32_t chn : {31u, 32u, 127u}) {
        DiskPlayer player(*disk, kOneChannel, WholeBlockRecord(0, chn));
        EXPECT_EQ(player.Frame(), "end");
    }
}

TEST_F(ReadDisk, UnitReaderStartsAtTheFirstIFrameOfTheFirstChannel) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer unit(*disk, 0);
    EXPECT_EQ(unit.Messages(), "BeginReader BlockNum = 0, ChnType=1, (0, 0, 0, 0) \n"
                               "SeekTime : Offset 124 (seek:0)(1000, 1003, 0)(1001000000, 124)\n");
    EXPECT_EQ(unit.UnitFrames(), "I0@1001 P1@1001 I0@1002 P0@1003 end");
    EXPECT_EQ(unit.UnitFrame(), "end");
    EXPECT_EQ(disk->StopUnitRead(disk->StartUnitRead(0)), 0);
}

TEST_F(ReadDisk, UnitReaderOfABlockWithoutChannelZeroStartsInTheFirstChannelThere) {
    // The substitute for channel 0's segment begins at 1000; a search from second 0 finds channel 2's
    // I-frame.
    OpenReadDisk disk(RecordOnNewDisk("D1@1000 P2@1001 I3@1002 I2@1003 P2@1004 |"));
    DiskPlayer unit(*disk, 0);
    EXPECT_EQ(unit.Messages(), "BeginReader BlockNum = 0, ChnType=1, (0, 0, 0, 0) \n"
                               "SeekTime : Offset 372 (seek:0)(1001, 1004, 124)(1003000000, 372)\n");
    EXPECT_EQ(unit.UnitFrames(), "I2@1003 P2@1004 end");
}

TEST_F(ReadDisk, UnitReaderOfABlockFromSecondZeroStartsAtTheFirstSegmentAfterIt) {
    // Channel 0's segment begins when the unit's record does: there is no time to seek. Its start counts as
    // none, so the first frame is that of channel 1's segment.
    OpenReadDisk disk(RecordOnNewDisk("P0@0 I1@1 I0@2 P1@3 P0@4 |"));
    DiskPlayer unit(*disk, 0);
    EXPECT_EQ(unit.Messages(), "BeginReader BlockNum = 0, ChnType=1, (0, 0, 0, 0) \n");
    EXPECT_EQ(unit.UnitFrames(), "I1@1 I0@2 P1@3 P0@4 end");
}

TEST_F(ReadDisk, UnitReaderOfAnIncompleteBlockStartsAtTheFirstFrame) {
    OpenReadDisk disk(RecordOnNewDisk("P0@1000 E1@1000:16 I2@1001 P0@1002 /"));
    DiskPlayer unit(*disk, 0);
    EXPECT_EQ(unit.Messages(), "BeginReader BlockNum = 0, ChnType=1, (0, 0, 0, 0) \n"
                               "SeekTime, # : fail\n");
    EXPECT_EQ(unit.UnitFrames(), "P0@1000 E1@1000:16 I2@1001 P0@1002 end");
}

TEST_F(ReadDisk, UnitReaderOfABlockThatWasNeverRecordedDeliversNothing) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer unit(*disk, 5);
    EXPECT_EQ(unit.Messages(), "BeginReader BlockNum = 5, ChnType=1, (0, 0, 0, 0) \n"
                               "SeekOffs, # : fail\n");
    EXPECT_EQ(unit.UnitFrame(), "end");
}

TEST_F(ReadDisk, UnitsOutsideTheDiskDeliverNothing) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    for (const int number : {8, 65535, -1}) {
        DiskPlayer unit(*disk, number);
        EXPECT_NE(unit.Handle(), nullptr);
        EXPECT_EQ(unit.UnitFrame(), "failed");
        EXPECT_EQ(unit.Frame(), "failed");
    }
}

TEST_F(ReadDisk, UnitReaderAlsoTakesTheOtherOperations) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer unit(*disk, 0);
    EXPECT_EQ(unit.Frame(), "I0@1001");
    EXPECT_EQ(unit.Frame(), "P1@1001");
    Quietly([&] { EXPECT_EQ(unit.SeekTime(1002), 0); });
    EXPECT_EQ(unit.UnitFrame(), "I0@1002");
    EXPECT_EQ(unit.SeekPos(0), 0);
    EXPECT_EQ(unit.NextIFrame(), "I0@1002");
}

TEST_F(ReadDisk, ReadersLeftOpenAtQuitCanBeStoppedLater) {
    RecordOnNewDisk(kTwoBlocks);
    PartAccess_t access = Disk().Access();
    const SystemCallLog log;
    CReadDisk disk;
    EXPECT_EQ(disk.Init(&access), 0);
    DiskPlayer first(disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    DiskPlayer second(disk, 0);
    EXPECT_EQ(first.Frame(), "I0@1001");
    EXPECT_EQ(disk.Quit(), 0);
    EXPECT_EQ(first.Frame(), "failed");
    EXPECT_EQ(first.NextIFrame(), "failed");
    EXPECT_EQ(first.PrevIFrame(), "failed");
    EXPECT_EQ(second.UnitFrame(), "failed");
    EXPECT_EQ(first.SeekPos(0), 0);
    Quietly([&] { EXPECT_EQ(first.SeekTime(1002), 0); });
    EXPECT_EQ(first.Frame(), "failed");
    // Another disk may be open on the object by then.
    EXPECT_EQ(disk.Init(&access), 0);
    DiskPlayer third(disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    first.Stop();
    EXPECT_EQ(third.Frame(), "I0@1001");
    EXPECT_EQ(second.Frame(), "failed");
    third.Stop();
    EXPECT_EQ(disk.Quit(), 0);
    second.Stop();
    EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close));
}

TEST_F(ReadDisk, ReadersOfOneDiskDoNotDisturbEachOther) {
    OpenReadDisk disk(RecordOnNewDisk(kTwoBlocks));
    DiskPlayer one(*disk, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    DiskPlayer all(*disk, kAllChannels, SegmentRecord(0, 0, 0, 1000));
    DiskPlayer unit(*disk, 1);
    std::string words;
    Quietly([&] {
        for (int i = 0; i < 5; ++i) {
            words += one.Frame() + ' ' + all.Frame() + ' ' + unit.UnitFrame() + ", ";
        }
    });
    EXPECT_EQ(words, "I0@1001 P0@1000 I0@1005, I0@1002 I0@1001 I1@1006, P0@1003 P1@1001 end, "
                     "P0@1004 I0@1002 end, end P0@1003 end, ");
}

/// Plays what a search finds, and compares it with what the cameras delivered.
class ReadRecordedDisk : public SearchFixture {
protected:
    using Key = std::tuple<uint32_t, int64_t, uint32_t>; ///< channel, time stamp, type
    using Frames = std::map<Key, std::vector<uint8_t>>;

    static std::unique_ptr<sample_recorder::FrameSource> Cameras(uint32_t start, uint32_t seconds) {
        auto cameras = std::make_unique<sample_recorder::MergedSource>();
        for (const uint32_t chn : {0u, 1u, 31u}) {
            sample_recorder::GeneratedCamera camera;
            camera.channel = chn;
            camera.framesPerSecond = 8 - chn % 4;
            camera.audioFrameBytes = chn == 1 ? 160 : 0;
            cameras->Add(std::make_unique<sample_recorder::GeneratedSource>(camera, 7, start, seconds));
        }
        return cameras;
    }

    Frames Record(uint32_t fmtVersion) {
        Format format;
        format.fmtVersion = fmtVersion;
        format.blockCount = 40;
        MakeDisk(format).SetBad(2);
        sample_recorder::RecorderSettings settings;
        settings.channels = 0x80000003;
        sample_recorder::Recorder recorder(Disk(), settings);
        Frames frames;
        // Both journeys end with a block of some seconds: a block of one second gives no record.
        const std::pair<uint32_t, uint32_t> journeys[] = {{1700000000, 62}, {1700100000, 61}};
        for (const auto& [start, seconds] : journeys) {
            const auto cameras = Cameras(start, seconds);
            sample_recorder::Frame frame;
            while (cameras->Next(frame)) {
                recorder.Write(frame);
                frames[{frame.channel, frame.pts, frame.type}] = frame.payload;
            }
            recorder.PowerOff();
        }
        EXPECT_LE(recorder.BlocksOpened(), 39u); // none was overwritten
        EXPECT_GT(recorder.BlocksOpened(), 8u);
        return frames;
    }
};

TEST_F(ReadRecordedDisk, RecordsPlayEveryFrameOnce) {
    for (const uint32_t fmtVersion : {0u, 1u}) {
        const Frames recorded = Record(fmtVersion);
        PartAccess_t access = Disk().Access();
        CSearchDisk search;
        EXPECT_EQ(search.Init(&access), 0);
        SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
        RecordList records;
        EXPECT_GT(search.SearchMedia(&everything, &records), 0);
        search.Quit();
        OpenReadDisk disk(Disk());
        Frames played;
        void* payload = nullptr;
        Quietly([&] {
            for (RecordItem_t record : Elements(records)) {
                void* const reader = disk->StartRead(kOneChannel, &record);
                FrameInfo_t info = {};
                while (disk->ReadFrame(reader, &info, &payload) == 0) {
                    EXPECT_EQ(info.chn, record.chn);
                    const auto* const bytes = static_cast<const uint8_t*>(payload);
                    const Key key = {info.chn, static_cast<int64_t>(info.pts), info.type};
                    const bool first =
                        played.emplace(key, std::vector<uint8_t>(bytes, bytes + info.len)).second;
                    EXPECT_TRUE(first) << info.chn << ' ' << info.pts;
                }
                disk->StopRead(reader);
            }
        });
        std::free(payload);
        EXPECT_EQ(played.size(), recorded.size());
        EXPECT_TRUE(played == recorded);
        std::filesystem::remove(Disk().Path());
    }
}

TEST_F(ReadRecordedDisk, UnitsPlayEveryFrameFromTheFirstIFrameOn) {
    const Frames recorded = Record(0);
    OpenReadDisk disk(Disk());
    Frames played;
    size_t missing = 0; // what is before the units' first I-frames of channel 0
    void* payload = nullptr;
    Quietly([&] {
        for (int block = 0; block < 40; ++block) {
            void* const reader = disk->StartUnitRead(block);
            FrameInfo_t info = {};
            bool first = true;
            while (disk->ReadUnitFrame(reader, &info, &payload) == 0) {
                if (first) {
                    EXPECT_EQ(info.chn, 0u);
                    EXPECT_EQ(info.type, 1u);
                    first = false;
                }
                const auto* const bytes = static_cast<const uint8_t*>(payload);
                const Key key = {info.chn, static_cast<int64_t>(info.pts), info.type};
                EXPECT_TRUE(played.emplace(key, std::vector<uint8_t>(bytes, bytes + info.len)).second);
            }
            disk->StopUnitRead(reader);
        }
    });
    std::free(payload);
    for (const auto& [key, bytes] : recorded) {
        const auto found = played.find(key);
        missing += found == played.end() ? 1u : 0u;
        EXPECT_TRUE(found == played.end() || found->second == bytes);
    }
    EXPECT_EQ(played.size() + missing, recorded.size());
    EXPECT_LT(missing, recorded.size() / 4);
}

} // namespace
