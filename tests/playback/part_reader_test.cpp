#include <cstring>
#include <memory>

#include "playback/part_fixture.h"

namespace {

using namespace test_support;

constexpr int kOneChannel = 0;
constexpr int kAllChannels = 1;

/// Six frames of channel 0 and one of channel 1; frame n of the seven lies at offset n * 124, as 24 bytes of
/// head and 100 of payload take. Segment of channel 0: 1000 to 1005; of channel 1: only second 1002.
const char* const kSevenFrames = "P0@1000 I0@1001 P0@1002 I1@1002 P0@1003 I0@1004 P0@1005 |";

/// What opening a reader always prints.
std::string Opening(uint32_t block, int chnType, const std::string& fields) {
    return "BeginReader BlockNum = " + std::to_string(block) + ", ChnType=" + std::to_string(chnType) +
           ", (" + fields + ") \n";
}

class PartReader : public PartFixture {
protected:
    /// Plays a record from its start to the first result that is no frame.
    static std::string Play(OpenReadPart& part, int chnType, const RecordItem_t& record) {
        PartPlayer player(*part, chnType, record);
        std::string words;
        Quietly([&] { words = player.Frames(); });
        return words;
    }
    /// What a reader's frames print.
    static std::string CrossingMessages(PartPlayer& player, const std::string& expectedFrames) {
        return PrintedWithoutLines([&] { EXPECT_EQ(player.Frames(), expectedFrames); });
    }
    void ForgeBlockCount(uint32_t count) {
        Disk().EditHead([count](PartHead_t& head) { head.BlkCount = count; });
    }
};

// Opening a reader.

TEST_F(PartReader, RecordFromItsSegmentsStartBeginsAtItsFirstIFrame) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000, 1900));
    EXPECT_EQ(player.Messages(), Opening(0, 0, "1000, 1900, 0, 0"));
    EXPECT_EQ(player.Frames(), "I0@1001 P0@1002 P0@1003 I0@1004 P0@1005 end");
}

TEST_F(PartReader, RecordOfAllChannelsBeginsAtTheFirstFrame) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    PartPlayer player(*part, kAllChannels, SegmentRecord(0, 0, 0, 1000, 1900));
    EXPECT_EQ(player.Messages(), Opening(0, 1, "1000, 1900, 0, 0"));
    EXPECT_EQ(player.Frames(), "P0@1000 I0@1001 P0@1002 I1@1002 P0@1003 I0@1004 P0@1005 end");
}

TEST_F(PartReader, RecordFromWithinItsSegmentBeginsAtTheNextIFrame) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    for (const int chnType : {kOneChannel, kAllChannels}) {
        PartPlayer player(*part, chnType, SegmentRecord(0, 0, 0, 1002, 1900));
        EXPECT_EQ(player.Messages(),
                  Opening(0, chnType, "1002, 1900, 0, 0") +
                      "SeekTime : Offset 620 (seek:1002)(1000, 1005, 0)(1004000000, 620)\n");
        EXPECT_EQ(player.Frames(), "I0@1004 P0@1005 end");
    }
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1001)),
              "I0@1001 P0@1002 P0@1003 I0@1004 P0@1005 end"); // an I-frame of that very second
}

TEST_F(PartReader, RecordThatEndsWithinItsSegmentEndsThere) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000, 1003));
    EXPECT_EQ(player.Frames(), "I0@1001 P0@1002 P0@1003 end");
    EXPECT_EQ(player.Frame(), "end"); // and stays there
    EXPECT_EQ(player.Handle()->BlockNum, 0u);
}

TEST_F(PartReader, HandleHoldsTheRecord) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    RecordItem_t record = SegmentRecord(0, 1, 0, 1002, 1900);
    record.alarmType = 0x123456789;
    record.size = 77;
    PartPlayer player(*part, 5, record);
    const PartReadHandle_st* const handle = player.Handle();
    EXPECT_EQ(handle->ChnType, 5);
    EXPECT_EQ(handle->BlockNum, 0u);
    EXPECT_NE(handle->pBlockObj, nullptr);
    EXPECT_EQ(std::memcmp(&handle->RecItem, &record, sizeof record), 0);
    EXPECT_NE(&handle->RecItem, &record);
}

TEST_F(PartReader, WholeBlockBeginsAsItsChannelsSuggest) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    PartPlayer one(*part, kOneChannel, WholeBlockRecord(0, 0));
    EXPECT_EQ(one.Messages(), Opening(0, 0, "0, 0, 1, 0"));
    EXPECT_EQ(one.Frames(), "I0@1001 P0@1002 P0@1003 I0@1004 P0@1005 end");
    PartPlayer all(*part, kAllChannels, WholeBlockRecord(0, 0));
    EXPECT_EQ(all.Messages(), Opening(0, 1, "0, 0, 1, 0"));
    EXPECT_EQ(all.Frames(), "P0@1000 I0@1001 P0@1002 I1@1002 P0@1003 I0@1004 P0@1005 end");
}

TEST_F(PartReader, OtherChannelTypesDeliverAllChannelsFromAnIFrame) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    for (const int chnType : {2, -1}) {
        for (const RecordItem_t& record : {WholeBlockRecord(0, 1), SegmentRecord(0, 0, 0, 1000)}) {
            EXPECT_EQ(Play(part, chnType, record), "I0@1001 P0@1002 I1@1002 P0@1003 I0@1004 P0@1005 end");
        }
    }
}

TEST_F(PartReader, RecordWithItsOwnWindowBeginsAtAnIFrame) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    PartPlayer one(*part, kOneChannel, WindowRecord(0, 0, 1002, 1004, 248));
    EXPECT_EQ(one.Messages(), Opening(0, 0, "1002, 1004, 2, 248"));
    EXPECT_EQ(one.Frames(), "I0@1004 end");
    PartPlayer all(*part, kAllChannels, WindowRecord(0, 0, 1002, 1004, 248));
    EXPECT_EQ(all.Messages(), Opening(0, 1, "1002, 1004, 2, 248"));
    EXPECT_EQ(all.Frames(), "I1@1002 P0@1003 I0@1004 end");
}

TEST_F(PartReader, WindowThatDoesNotFitItsFramesIsReported) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    PartPlayer early(*part, kOneChannel, WindowRecord(0, 0, 1003, 1004, 248));
    EXPECT_EQ(early.Messages(), Opening(0, 0, "1003, 1004, 2, 248") +
                                    "\n----------->BeginReader BlockNum = 0, ChnType=0, (1003, 1004, 2, 248) "
                                    "pReader->pBlockObj->SeekOffs:-1\n");
    // It then plays the block from its first frame, with any time.
    EXPECT_EQ(early.Frames(), "P0@1000 I0@1001 P0@1002 P0@1003 I0@1004 P0@1005 end");
    PartPlayer nowhere(*part, kAllChannels, WindowRecord(0, 0, 0x80000000, 0xFFFFFFFF, 0xFFFFFF00));
    EXPECT_EQ(nowhere.Messages(),
              Opening(0, 1, "-2147483648, -1, 2, -256") + "SeekOffs, # : fail\n" +
                  "\n----------->BeginReader BlockNum = 0, ChnType=1, (-2147483648, -1, 2, -256) "
                  "pReader->pBlockObj->SeekOffs:-1\n");
    EXPECT_EQ(nowhere.Frame(), "P0@1000");
}

TEST_F(PartReader, RecordOfAnotherKindDeliversNothing) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    for (const uint32_t flag : {3u, 0xFFFFFFFFu}) {
        for (const int chnType : {kOneChannel, kAllChannels}) {
            RecordItem_t record = WholeBlockRecord(0, 0);
            record.flag = flag;
            PartPlayer player(*part, chnType, record);
            EXPECT_EQ(player.Messages(), Opening(0, chnType, flag == 3 ? "0, 0, 3, 0" : "0, 0, -1, 0"));
            EXPECT_EQ(player.Frame(), "end");
            EXPECT_EQ(player.Frame(), "end");
        }
    }
}

TEST_F(PartReader, ChannelWithoutSegmentsIsPlayedFromTheFirstFrame) {
    OpenReadPart part(RecordOnNewDisk("P0@1000 D2@1001 I0@1002 D2@1003 |"));
    // The substitute for its segment begins with the block's first frame.
    PartPlayer atStart(*part, kOneChannel, SegmentRecord(0, 2, 0, 1000));
    EXPECT_EQ(atStart.Messages(), Opening(0, 0, "1000, 2147483647, 0, 0") + "SeekOffs, # : fail\n");
    EXPECT_EQ(atStart.Frames(), "D2@1001 D2@1003 end");
    PartPlayer later(*part, kOneChannel, SegmentRecord(0, 2, 0, 1002));
    EXPECT_EQ(later.Messages(), Opening(0, 0, "1002, 2147483647, 0, 0") + "SeekTime, # : chn = 2 , fail\n");
    EXPECT_EQ(later.Frames(), "D2@1001 D2@1003 end");
}

TEST_F(PartReader, IncompleteBlockIsPlayedFromItsFirstFrame) {
    OpenReadPart part(RecordOnNewDisk("P0@1000 I0@1001 P1@1002 P0@1003 /"));
    PartPlayer one(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(one.Messages(), Opening(0, 0, "1000, 2147483647, 0, 0") + "SeekOffs, # : fail\n");
    EXPECT_EQ(one.Frames(), "P0@1000 I0@1001 P0@1003 end");
    PartPlayer all(*part, kAllChannels, SegmentRecord(0, 0, 0, 1001));
    EXPECT_EQ(all.Messages(), Opening(0, 1, "1001, 2147483647, 0, 0") + "SeekTime, # : fail\n");
    EXPECT_EQ(all.Frames(), "P0@1000 I0@1001 P1@1002 P0@1003 end");
    EXPECT_EQ(Play(part, kOneChannel, WindowRecord(0, 0, 1000, 1002, 0)), "I0@1001 end");
}

TEST_F(PartReader, SegmentNumberBeyondTheChannelsSegmentsIsNotFound) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    for (const uint32_t segment : {1u, 511u}) {
        PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, segment, 1000));
        EXPECT_EQ(player.Messages(),
                  Opening(0, 0, "1000, 2147483647, 0, 0") + "SeekTime, # : chn = 0 , fail\n");
        EXPECT_EQ(player.Frame(), "P0@1000");
        const PartPlayer zero(*part, kOneChannel, SegmentRecord(0, 0, segment, 0));
        EXPECT_EQ(zero.Messages(), Opening(0, 0, "0, 2147483647, 0, 0") + "SeekOffs, # : fail\n");
    }
}

TEST_F(PartReader, ChannelNumberBeyondTheChannelsIsNotFound) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    for (const uint32_t chn : {32u, 127u}) {
        PartPlayer player(*part, kOneChannel, SegmentRecord(0, chn, 0, 1001));
        EXPECT_EQ(player.Messages(), Opening(0, 0, "1001, 2147483647, 0, 0") +
                                         "SeekTime, # : chn = " + std::to_string(chn) + " , fail\n");
        EXPECT_EQ(player.Frame(), "end");
        PartPlayer steps(*part, kOneChannel, WholeBlockRecord(0, chn));
        EXPECT_EQ(steps.NextIFrame(), "failed");
        EXPECT_EQ(steps.PrevIFrame(), "failed");
    }
}

TEST_F(PartReader, BlockThatWasNeverRecordedDeliversNothing) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    PartPlayer player(*part, kOneChannel, SegmentRecord(5, 0, 0, 0));
    EXPECT_EQ(player.Messages(), Opening(5, 0, "0, 2147483647, 0, 0") + "SeekOffs, # : fail\n");
    EXPECT_EQ(player.Frame(), "end");
}

TEST_F(PartReader, BlockThatCannotBeOpenedFailsEveryRead) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    for (const uint32_t block : {8u, 65535u}) {
        PartPlayer player(*part, kOneChannel, SegmentRecord(block, 0, 0, 1000));
        EXPECT_EQ(player.Messages(), "OpenBlock : #, Failed\n" + Opening(block, 0, "1000, 2147483647, 0, 0") +
                                         "OpenBlock : #, Failed\n");
        EXPECT_EQ(player.Frame(), "failed");
        EXPECT_EQ(player.UnitFrame(), "failed");
        EXPECT_EQ(player.NextIFrame(), "failed");
        EXPECT_EQ(player.PrevIFrame(), "failed");
        EXPECT_EQ(player.SeekTime(1000), -1);
        EXPECT_EQ(player.SeekPos(0), 0);
        const PartPlayer window(*part, kAllChannels, WindowRecord(block, 0, 1, 2, 3));
        EXPECT_EQ(window.Messages(), "OpenBlock : #, Failed\n" + Opening(block, 1, "1, 2, 2, 3") +
                                         "\n----------->BeginReader BlockNum = " + std::to_string(block) +
                                         ", ChnType=1, (1, 2, 2, 3) pReader->pBlockObj->SeekOffs:-1\n");
    }
}

TEST_F(PartReader, SegmentThatCannotBeLookedUpCountsAsTheRecords) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    size_t opens = 0;
    const SystemCallLog log([&opens](const Call& call, size_t) {
        return call.kind == CallKind::Open && ++opens == 2 ? Fate::Failing() : Fate();
    });
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1003));
    EXPECT_EQ(player.Messages(),
              Opening(0, 0, "1003, 2147483647, 0, 0") + "block_open : #, Failed\nOpenBlock : #, Failed\n");
    EXPECT_EQ(player.Frame(), "I0@1001"); // the segment's beginning, as if the record began there
}

TEST_F(PartReader, NeedsAPartitionAndARecord) {
    CReadPart closed;
    RecordItem_t record = SegmentRecord(0, 0, 0, 1000);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(closed.BeginReader(0, &record), nullptr); }), "");
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->BeginReader(0, nullptr), nullptr); }), "");
}

TEST_F(PartReader, NullHandlesAndArgumentsFail) {
    OpenReadPart part(RecordOnNewDisk(kSevenFrames));
    FrameInfo_t info = {};
    void* payload = nullptr;
    long time = 1000;
    unsigned int pos = 0;
    EXPECT_EQ(part->EndReader(nullptr), -1);
    EXPECT_EQ(part->SeekTime(nullptr, &time), -1);
    EXPECT_EQ(part->SeekPos(nullptr, &pos), -1);
    EXPECT_EQ(part->ReadFrame(nullptr, &info, &payload), -1);
    EXPECT_EQ(part->ReadNextIFrame(nullptr, &info, &payload), -1);
    EXPECT_EQ(part->ReadPrevIFrame(nullptr, &info, &payload), -1);
    EXPECT_EQ(part->ReadUnitFrame(nullptr, &info, &payload), -1);
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    PartReadHandle_st* const handle = player.Handle();
    EXPECT_EQ(part->SeekTime(handle, nullptr), -1);
    EXPECT_EQ(part->SeekPos(handle, nullptr), -1);
    EXPECT_EQ(part->ReadFrame(handle, nullptr, &payload), -1);
    EXPECT_EQ(part->ReadNextIFrame(handle, nullptr, &payload), -1);
    EXPECT_EQ(part->ReadPrevIFrame(handle, nullptr, &payload), -1);
    EXPECT_EQ(part->ReadUnitFrame(handle, nullptr, &payload), -1);
    EXPECT_EQ(part->ReadFrame(handle, &info, nullptr), -1);
    EXPECT_EQ(part->ReadNextIFrame(handle, &info, nullptr), -1);
    EXPECT_EQ(part->ReadPrevIFrame(handle, &info, nullptr), -1);
    EXPECT_EQ(part->ReadUnitFrame(handle, &info, nullptr), -1);
    EXPECT_EQ(payload, nullptr);
    EXPECT_EQ(player.Frame(), "I0@1001"); // nothing has moved
}

TEST_F(PartReader, ReadersOfAClosedPartitionCanOnlySeekAndEnd) {
    RecordOnNewDisk(kSevenFrames);
    CReadPart part;
    PartAccess_t access = Disk().Access();
    EXPECT_EQ(part.Init(&access), 0);
    PartPlayer player(part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.Frame(), "I0@1001");
    EXPECT_EQ(part.Quit(), 0);
    EXPECT_EQ(player.Frame(), "failed");
    EXPECT_EQ(player.NextIFrame(), "failed");
    EXPECT_EQ(player.PrevIFrame(), "failed");
    EXPECT_EQ(player.UnitFrame(), "failed");
    EXPECT_EQ(player.SeekPos(0), 0);
    Quietly([&] { EXPECT_EQ(player.SeekTime(1004), 0); });
    // Open again, the partition gives the frame that the seek found.
    EXPECT_EQ(part.Init(&access), 0);
    EXPECT_EQ(player.Frame(), "I0@1004");
    EXPECT_EQ(part.Quit(), 0);
}

// Seeking.

/// I-frames at offsets 0, 248 and 496 of one segment, 1000 to 1006.
const char* const kThreeIFrames = "I0@1000 P0@1001 I0@1002 P0@1003 I0@1005 P0@1006 |";

TEST_F(PartReader, SeekTimeGoesToTheNextIFrame) {
    OpenReadPart part(RecordOnNewDisk(kThreeIFrames));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    const struct {
        long time;
        const char* line;
        const char* frame;
    } cases[] = {
        {900, "SeekTime : Offset 0 (seek:900)(1000, 1006, 0)(1000000000, 0)\n", "I0@1000"},
        {-5, "SeekTime : Offset 0 (seek:-5)(1000, 1006, 0)(1000000000, 0)\n", "I0@1000"},
        {1000, "SeekTime : Offset 0 (seek:1000)(1000, 1006, 0)(1000000000, 0)\n", "I0@1000"},
        {1001, "SeekTime : Offset 248 (seek:1001)(1000, 1006, 0)(1002000000, 248)\n", "I0@1002"},
        {1002, "SeekTime : Offset 248 (seek:1002)(1000, 1006, 0)(1002000000, 248)\n", "I0@1002"},
        {1003, "SeekTime : Offset 496 (seek:1003)(1000, 1006, 0)(1005000000, 496)\n", "I0@1005"},
        {1006, "SeekTime : Offset 496 (seek:1006)(1000, 1006, 0)(1005000000, 496)\n", "I0@1005"},
        {0x7FFFFFFF, "SeekTime : Offset 496 (seek:2147483647)(1000, 1006, 0)(1005000000, 496)\n", "I0@1005"},
        // Seconds have 32 bits, however wide a long is.
        {static_cast<long>(0x1000003EALL),
         "SeekTime : Offset 248 (seek:1002)(1000, 1006, 0)(1002000000, 248)\n", "I0@1002"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Printed([&] { EXPECT_EQ(player.SeekTime(test.time), 0); }), test.line);
        EXPECT_EQ(player.Frame(), test.frame);
    }
}

TEST_F(PartReader, SeekPosCountsPayloadUpToAnIFrame) {
    OpenReadPart part(RecordOnNewDisk(kThreeIFrames));
    for (const int chnType : {kOneChannel, kAllChannels}) {
        PartPlayer player(*part, chnType, SegmentRecord(0, 0, 0, 1000));
        const struct {
            unsigned int pos;
            const char* frame;
        } cases[] = {{0, "I0@1000"},   {99, "I0@1000"},  {100, "I0@1002"}, {299, "I0@1002"},
                     {300, "I0@1005"}, {499, "I0@1005"}, {1, "I0@1000"}};
        for (const auto& test : cases) {
            EXPECT_EQ(Printed([&] { EXPECT_EQ(player.SeekPos(test.pos), 0); }), "");
            EXPECT_EQ(player.Frame(), test.frame) << test.pos;
        }
    }
}

TEST_F(PartReader, SeekPosReturnsZeroEvenWithoutAnIFrameBehind) {
    OpenReadPart part(RecordOnNewDisk(kThreeIFrames));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000, 1003));
    EXPECT_EQ(player.Frame(), "I0@1000");
    for (const unsigned int pos : {500u, 0xFFFFFFFFu}) {
        // The first media frame after the record's end stops the search, silently.
        EXPECT_EQ(Printed([&] { EXPECT_EQ(player.SeekPos(pos), 0); }), "");
    }
    // It has not moved, and plays on beyond the record.
    EXPECT_EQ(player.Frames(), "P0@1001 I0@1002 P0@1003 I0@1005 P0@1006 end");
    PartPlayer whole(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(whole.SeekPos(500), 0); }), "SeekOffs, # : fail\n");
}

TEST_F(PartReader, FailedTimeSeekOpensTheWindow) {
    OpenReadPart part(RecordOnNewDisk("P0@1000 P0@1001 P0@1100 P0@1101 |"));
    PartPlayer player(*part, kAllChannels, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.Frames(), "P0@1000 P0@1001 end");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(player.SeekTime(1000), -1); }), ""); // no I-frame at all
    EXPECT_EQ(player.Frames(), "P0@1100 P0@1101 end");
}

// Reading within a block.

TEST_F(PartReader, IFrameStepsGoThroughTheRecord) {
    OpenReadPart part(RecordOnNewDisk(kThreeIFrames));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.NextIFrame(), "I0@1002"); // the first one later than the read position
    EXPECT_EQ(player.NextIFrame(), "I0@1005");
    EXPECT_EQ(player.NextIFrame(), "end");
    EXPECT_EQ(player.NextIFrame(), "end");
    Quietly([&] { player.SeekTime(1000); });
    EXPECT_EQ(player.NextIFrame(), "I0@1002");
    EXPECT_EQ(player.PrevIFrame(), "I0@1005"); // a change of direction costs a step
    EXPECT_EQ(player.PrevIFrame(), "I0@1002");
    EXPECT_EQ(player.PrevIFrame(), "I0@1000");
    EXPECT_EQ(player.PrevIFrame(), "end");
    EXPECT_EQ(player.Frame(), "P0@1001");      // continues after the last I-frame read
    EXPECT_EQ(player.PrevIFrame(), "I0@1005"); // I0@1002 is passed to find the position
    EXPECT_EQ(player.Frame(), "P0@1006");
    EXPECT_EQ(player.NextIFrame(), "failed"); // nothing is read at the end
}

TEST_F(PartReader, IFrameStepsStayWithinTheWindow) {
    OpenReadPart part(RecordOnNewDisk(kThreeIFrames));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000, 1003));
    EXPECT_EQ(player.NextIFrame(), "I0@1002");
    EXPECT_EQ(player.NextIFrame(), "end"); // I0@1005 lies after the record
    EXPECT_EQ(player.NextIFrame(), "end");
}

TEST_F(PartReader, IFrameStepsBehindTheLastIFrameFail) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 P0@1002 |"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.NextIFrame(), "failed");
    EXPECT_EQ(player.PrevIFrame(), "failed");
    EXPECT_EQ(player.Frame(), "P0@1002"); // both have passed a frame
}

TEST_F(PartReader, IFrameStepsOfAllChannelsTakeTheNearest) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 I1@1001 P0@1002 I0@1003 I1@1004 P0@1005 |"));
    PartPlayer forwards(*part, kAllChannels, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(forwards.NextIFrame(), "I1@1001");
    EXPECT_EQ(forwards.NextIFrame(), "I0@1003");
    EXPECT_EQ(forwards.NextIFrame(), "I1@1004");
    EXPECT_EQ(forwards.NextIFrame(), "end");
    PartPlayer backwards(*part, kAllChannels, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(backwards.PrevIFrame(), "I0@1003");
    EXPECT_EQ(backwards.PrevIFrame(), "I1@1001");
    EXPECT_EQ(backwards.PrevIFrame(), "I0@1000");
    EXPECT_EQ(backwards.PrevIFrame(), "end");
}

TEST_F(PartReader, ForwardStepsOfAllChannelsFindNothingInTimesOfToday) {
    OpenReadPart part(RecordOnNewDisk("I0@1700000000 I1@1700000001 I0@1700000002 P0@1700000003 |"));
    PartPlayer player(*part, kAllChannels, SegmentRecord(0, 0, 0, 1700000000));
    EXPECT_EQ(player.NextIFrame(), "end");
    EXPECT_EQ(player.PrevIFrame(), "I0@1700000002");
    PartPlayer one(*part, kOneChannel, SegmentRecord(0, 0, 0, 1700000000));
    EXPECT_EQ(one.NextIFrame(), "I0@1700000002");
}

TEST_F(PartReader, UnitReadsDeliverEveryFrameOfTheBlock) {
    const std::string frames = "P0@1000 I0@1001 E1@1002:16 D31@900 A2@5000 P0@1003 P3@1004:0 I0@1005:4000";
    OpenReadPart part(RecordOnNewDisk(frames + " |"));
    PartPlayer player(*part, kAllChannels, WholeBlockRecord(0, 0));
    EXPECT_EQ(player.UnitFrames(), frames + " end");
    EXPECT_EQ(player.UnitFrame(), "end");
    // Windows and channels do not matter to them.
    PartPlayer narrow(*part, kOneChannel, WindowRecord(0, 0, 1000, 1001, 0));
    EXPECT_EQ(narrow.Frame(), "I0@1001");
    EXPECT_EQ(narrow.UnitFrame(), "E1@1002:16");
    EXPECT_EQ(narrow.Frame(), "end");
    EXPECT_EQ(narrow.UnitFrame(), "D31@900");
}

TEST_F(PartReader, UnitReadsEndAtAForeignChannelAndStayInTheBlock) {
    RecordOnNewDisk("P0@1000 I0@1001 P0@1002 | P0@1003 I0@1004 |");
    OpenReadPart part(Disk());
    {
        PartPlayer player(*part, kOneChannel, WholeBlockRecord(0, 0));
        EXPECT_EQ(Printed([&] { EXPECT_EQ(player.UnitFrames(), "I0@1001 P0@1002 end"); }), "");
        EXPECT_EQ(player.Handle()->BlockNum, 0u);
    }
    Disk().Change<FrameHead_t>(Disk().FrameOffset(0, 248), [](auto& head) { head.chn = 32; });
    PartPlayer player(*part, kOneChannel, WholeBlockRecord(0, 0));
    EXPECT_EQ(player.UnitFrames(), "I0@1001 end");
}

TEST_F(PartReader, FrameLongerThanItsBlockFails) {
    RecordOnNewDisk("I0@1000 P0@1001 |");
    for (const uint32_t len : {0x10000u, 0x7FFFFFFFu, 0xFFFFFFE8u, 0xFFFFFFFFu}) {
        Disk().Change<FrameHead_t>(Disk().FrameOffset(0, 124), [len](auto& head) { head.len = len; });
        OpenReadPart part(Disk());
        PartPlayer player(*part, kOneChannel, WholeBlockRecord(0, 0));
        EXPECT_EQ(player.Frame(), "I0@1000");
        EXPECT_EQ(player.Frame(), "failed") << len;
        EXPECT_EQ(player.Frame(), "failed") << len;
        EXPECT_EQ(player.UnitFrame(), "failed") << len;
    }
}

TEST_F(PartReader, EmptyFramesAreDelivered) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001:0 P0@1002:1 |"));
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)), "I0@1000 P0@1001:0 P0@1002:1 end");
}

TEST_F(PartReader, FrameOfOneByteIsTheFirst) {
    OpenReadPart part(RecordOnNewDisk("I0@1000:1 I0@1001 |"));
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)), "I0@1000:1 I0@1001 end");
    EXPECT_EQ(Play(part, kOneChannel, WindowRecord(0, 0, 1000, 1001, 0)), "I0@1000:1 I0@1001 end");
}

// Going on into the next block.

TEST_F(PartReader, GoesOnWithAFrameOfOneByte) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 | P0@1001:1 P0@1002 I0@1003 |"));
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)), "I0@1000 P0@1001:1 P0@1002 end");
}

TEST_F(PartReader, GoesOnIntoTheNextBlockUpToItsFirstIFrame) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 P1@1002 P0@1003 I0@1004 P0@1005 |"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 P0@1002 P0@1003 end"), "ReadFrame BlockNum = 1 \n");
    EXPECT_EQ(player.Handle()->BlockNum, 1u);
    // The I-frame was passed: reading on delivers what lies after it, up to the block's end.
    EXPECT_EQ(player.Frame(), "P0@1005");
    EXPECT_EQ(player.Frame(), "failed");
    EXPECT_EQ(player.Frame(), "failed");
}

TEST_F(PartReader, IFrameAtTheNextBlocksStartEndsTheRecording) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | I0@1002 P0@1003 |"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 end"), "ReadFrame BlockNum = 1 \n");
}

TEST_F(PartReader, IFrameStepsEndAfterACrossing) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 I0@1004 |"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    Quietly([&] { EXPECT_EQ(player.Frames(), "I0@1000 P0@1001 P0@1002 end"); });
    EXPECT_EQ(player.NextIFrame(), "end");
    EXPECT_EQ(player.PrevIFrame(), "end");
}

TEST_F(PartReader, SeeksAfterACrossingActInTheNewBlock) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 P0@1004 I0@1005 P0@1006 |"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    Quietly([&] { EXPECT_EQ(player.Frames(), "I0@1000 P0@1001 P0@1002 end"); });
    EXPECT_EQ(Printed([&] { EXPECT_EQ(player.SeekTime(1000), 0); }),
              "SeekTime : Offset 124 (seek:1000)(1002, 1006, 0)(1003000000, 124)\n");
    EXPECT_EQ(player.Frames(), "end"); // an I-frame, and they end there
    EXPECT_EQ(player.Frame(), "P0@1004");
    EXPECT_EQ(player.SeekPos(300), 0);
    EXPECT_EQ(player.Frame(), "end"); // I0@1005
    EXPECT_EQ(player.Frame(), "P0@1006");
    EXPECT_EQ(player.UnitFrames(), "end");
}

TEST_F(PartReader, WindowAfterACrossingIsThatOfTheNewBlocksSegment) {
    // The second segment of each block; that of block 1 begins after two frames.
    RecordOnNewDisk("I0@1000 P0@1001 I0@1100 P0@1101 | P0@1102 P0@1103 P0@1130 P0@1131 P0@1160 I0@1161 |");
    OpenReadPart part(Disk());
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 1, 1100)),
              "I0@1100 P0@1101 P0@1130 P0@1131 failed");
    // The record's end cuts it, as it would in the record's own block.
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 1, 1100, 1131)),
              "I0@1100 P0@1101 P0@1130 P0@1131 failed");
    RecordItem_t short30 = SegmentRecord(0, 0, 1, 1100, 1130);
    EXPECT_EQ(Play(part, kOneChannel, short30), "I0@1100 P0@1101 P0@1130 P0@1131 failed"); // not within it
    // The first segment does not reach the block's end.
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)), "I0@1000 P0@1001 end");
}

TEST_F(PartReader, RecordsEndCutsTheWindowAfterACrossing) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 P0@1003 P0@1004 P0@1005 I0@1006 |"));
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000, 1003)),
              "I0@1000 P0@1001 P0@1002 P0@1003 failed"); // a frame outside the window is a failure there
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000, 1006)),
              "I0@1000 P0@1001 P0@1002 P0@1003 P0@1004 P0@1005 end");
}

TEST_F(PartReader, WithoutTheSegmentInTheNewBlockItsFirstFramesArePlayed) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 I0@1100 P0@1101 | P1@1102 P0@1102 P0@1103 I0@1104 |"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 1, 1100));
    EXPECT_EQ(CrossingMessages(player, "I0@1100 P0@1101 P0@1102 P0@1103 end"),
              "ReadFrame BlockNum = 1 \nSeekOffs, # : fail\n");
}

TEST_F(PartReader, GoesOnIntoAnIncompleteBlock) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 P0@1003 /"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 P0@1002 P0@1003 failed"),
              "ReadFrame BlockNum = 1 \nSeekOffs, # : fail\n");
}

TEST_F(PartReader, GoesOnWithRecordsOfEveryKind) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |"));
    const std::string frames = "I0@1000 P0@1001 P0@1002 end";
    EXPECT_EQ(Play(part, kOneChannel, WholeBlockRecord(0, 0)), frames);
    EXPECT_EQ(Play(part, kOneChannel, WindowRecord(0, 0, 1000, 1900, 0)), frames);
}

TEST_F(PartReader, WindowOfTheRecordsOwnIsTheSameAfterACrossing) {
    OpenReadPart part(RecordOnNewDisk("P0@1000 I0@1001 | P0@1002 P0@1003 P0@1004 I0@1005 |"));
    // It begins after the first frame here and there, and ends with second 1003.
    EXPECT_EQ(Play(part, kOneChannel, WindowRecord(0, 0, 1001, 1900, 124)), "I0@1001 P0@1003 P0@1004 end");
    EXPECT_EQ(Play(part, kOneChannel, WindowRecord(0, 0, 1001, 1003, 124)), "I0@1001 P0@1003 failed");
}

TEST_F(PartReader, EndsWhereTheNextNumberIsMissing) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 P0@1003 I0@1004 |");
    for (const uint32_t sequence : {0u, 1u, 3u, 0xFFFFFFFFu}) {
        Renumber(1, sequence);
        OpenReadPart part(Disk());
        PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
        EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 end"), "") << sequence;
        // It stays in that block, where it plays nothing.
        EXPECT_EQ(player.Handle()->BlockNum, 1u);
        EXPECT_EQ(player.Frame(), "failed");
        EXPECT_EQ(player.Frame(), "failed");
        EXPECT_EQ(player.NextIFrame(), "end");
        EXPECT_EQ(player.PrevIFrame(), "end");
    }
}

TEST_F(PartReader, NumberAfterTheLargestIsZero) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 P0@1003 I0@1004 |");
    Renumber(0, 0xFFFFFFFF);
    Renumber(1, 0);
    OpenReadPart part(Disk());
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)), "I0@1000 P0@1001 P0@1002 P0@1003 end");
}

TEST_F(PartReader, ClosingStateOneCountsOnlyWithANumberNotBelow) {
    RecordOnNewDisk("I0@1000 | P0@1001 | P0@1002 I0@1003 |");
    Renumber(0, 5);
    Renumber(2, 6);
    const struct {
        uint32_t state, sequence; ///< of block 1
        const char* frames;
    } cases[] = {
        {1, 4, "I0@1000 P0@1002 end"},    // passed over
        {1, 5, "I0@1000 end"},            // taken, and does not continue it
        {1, 6, "I0@1000 P0@1001 failed"}, // continues it
        {0, 4, "I0@1000 end"},
        {2, 4, "I0@1000 end"},
        {0, 6, "I0@1000 P0@1001 failed"},
    };
    for (const auto& test : cases) {
        Renumber(1, test.sequence);
        SetCloseState(1, test.state);
        OpenReadPart part(Disk());
        EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)), test.frames)
            << test.state << ' ' << test.sequence;
    }
}

TEST_F(PartReader, PassesOverBlocksThatCannotBeUsed) {
    RecordOnNewDisk("I0@1000 | I0@1001 | I0@1002 | I0@1003 | P0@1004 I0@1005 |");
    Renumber(4, 2);
    Disk().SetBad(1);
    Disk().Change<BlockHead_t>(Disk().HeadOffset(2), [](auto& head) { head.ValidFlag = 0; });
    const auto headOf3 = static_cast<int64_t>(Disk().HeadOffset(3));
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    const SystemCallLog log([headOf3](const Call& call, size_t) {
        return call.kind == CallKind::Read && call.offset == headOf3 ? Fate::Failing() : Fate();
    });
    EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1004 end"), "IsValidBlock: bad block 1\n"
                                                               "IsValidBlock: invalid block 2\n"
                                                               "OpenBlock : #, Failed\n"
                                                               "ReadFrame BlockNum = 4 \n");
}

TEST_F(PartReader, GoesOnFromTheLastBlockToTheFirst) {
    MakeDisk(3);
    Record("I0@1000 | I0@1001 | I0@1002 P0@1003 | P0@1004 I0@1005 |"); // the last one in block 0
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(2, 0, 0, 1002));
    EXPECT_EQ(CrossingMessages(player, "I0@1002 P0@1003 P0@1004 end"), "ReadFrame BlockNum = 0 \n");
}

TEST_F(PartReader, LooksRoundTheWholeRingForTheNextBlock) {
    RecordOnNewDisk("I0@1000 | I0@1001 | I0@1002 P0@1003 | P0@1004 I0@1005 |");
    for (const uint32_t block : {3u, 4u, 5u, 6u, 7u, 0u}) {
        Disk().SetBad(block);
    }
    Renumber(1, 4);
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(2, 0, 0, 1002));
    EXPECT_EQ(CrossingMessages(player, "I0@1002 P0@1003 end"), // block 1 begins with an I-frame
              "IsValidBlock: bad block 3\nIsValidBlock: bad block 4\nIsValidBlock: bad block 5\n"
              "IsValidBlock: bad block 6\nIsValidBlock: bad block 7\nIsValidBlock: bad block 0\n"
              "ReadFrame BlockNum = 1 \n");
    Disk().SetBad(1);
    OpenReadPart again(Disk());
    PartPlayer none(*again, kOneChannel, SegmentRecord(2, 0, 0, 1002));
    Quietly([&] { EXPECT_EQ(none.Frames(), "I0@1002 P0@1003 end"); });
    EXPECT_EQ(none.Handle()->BlockNum, 2u); // it has not left its block
    Quietly([&] { EXPECT_EQ(none.Frame(), "end"); });
    Quietly([&] { EXPECT_EQ(none.SeekTime(1002), 0); });
    EXPECT_EQ(none.Frame(), "I0@1002");
}

TEST_F(PartReader, ReaderOfAllChannelsEndsWithItsBlock) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |"));
    for (const int chnType : {kAllChannels, 2}) {
        PartPlayer player(*part, chnType, SegmentRecord(0, 0, 0, 1000));
        const SystemCallLog log;
        EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 end"), "");
        EXPECT_EQ(log.Count(CallKind::Open), 0u); // no other block is looked at
        EXPECT_EQ(player.Frame(), "end");
        EXPECT_EQ(player.Handle()->BlockNum, 0u);
    }
}

TEST_F(PartReader, RingOfOneBlockEnds) {
    MakeDisk(1);
    Record("I0@1000 P0@1001 |");
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 end"), "");
    EXPECT_EQ(player.Frame(), "end");
    EXPECT_EQ(player.NextIFrame(), "failed");
    Quietly([&] { EXPECT_EQ(player.SeekTime(1000), 0); });
    EXPECT_EQ(player.Frame(), "I0@1000");
}

TEST_F(PartReader, RingWithoutBlocksEnds) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |");
    ForgeBlockCount(0);
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 end"), "");
    EXPECT_EQ(player.Frame(), "end");
    EXPECT_EQ(player.Handle()->BlockNum, 0u);
}

TEST_F(PartReader, BlockOutsideTheRingGoesOnInsideIt) {
    RecordOnNewDisk("P0@1002 I0@1003 | I0@1000 P0@1001 |");
    ForgeBlockCount(1);
    Renumber(0, 3);
    OpenReadPart part(Disk());
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(1, 0, 0, 1000)), "I0@1000 P0@1001 P0@1002 end");
    Renumber(0, 1);
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(1, 0, 0, 1000)), "I0@1000 P0@1001 end");
}

TEST_F(PartReader, ContinuationThatCannotBeOpenedEnds) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    size_t opens = 0;
    const SystemCallLog log([&opens](const Call& call, size_t) {
        // The table, the look at block 1, then block 1 to be played.
        return call.kind == CallKind::Open && ++opens == 3 ? Fate::Failing() : Fate();
    });
    EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 end"),
              "block_open : #, Failed\nOpenBlock : #, Failed\n");
    EXPECT_EQ(player.Frame(), "failed");
    EXPECT_EQ(player.UnitFrame(), "failed");
    EXPECT_EQ(player.NextIFrame(), "end");
    EXPECT_EQ(player.SeekTime(1002), -1);
    EXPECT_EQ(player.SeekPos(0), 0);
}

TEST_F(PartReader, WithoutATableNoBlockIsPassedOverAsBad) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |");
    Disk().SetBad(1);
    Disk().EditHead([](PartHead_t& head) { head.BBTabOffs = 0xFFFFFF00; });
    OpenReadPart part(Disk());
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)), "I0@1000 P0@1001 P0@1002 end");
}

TEST_F(PartReader, SearchForAContinuationInAForgedRingEndsSoon) {
    MakeDisk(2);
    Record("I0@1000 P0@1001 |");
    Disk().Change<BlockHead_t>(Disk().HeadOffset(1), [](auto& head) { head.ValidFlag = 0; });
    for (const uint32_t count : {65536u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        ForgeBlockCount(count);
        OpenReadPart part(Disk());
        PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
        const SystemCallLog log;
        // Of the blocks that ids can name, 65534 lie beyond the device. Only the first of them is opened.
        std::string messages = "IsValidBlock: invalid block 1\n";
        for (int i = 0; i < 65534; ++i) {
            messages += "OpenBlock : #, Failed\n";
        }
        EXPECT_TRUE(CrossingMessages(player, "I0@1000 P0@1001 end") == messages);
        EXPECT_EQ(log.Count(CallKind::Sync), 2u) << count;
        EXPECT_LE(log.Count(CallKind::Open), 10u) << count;
        EXPECT_LT(log.Calls().size(), 65536 + 60u) << count;
        EXPECT_EQ(player.Handle()->BlockNum, 0u);
    }
}

TEST_F(PartReader, ContinuationOnATruncatedDiskEnds) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |");
    Disk().Truncate(Disk().BlockStart(1) + 900); // within block 1
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    std::string messages; // for blocks 1 to 7
    for (int i = 0; i < 7; ++i) {
        messages += "OpenBlock : #, Failed\n";
    }
    EXPECT_EQ(CrossingMessages(player, "I0@1000 P0@1001 end"), messages);
}

TEST_F(PartReader, GoesOnIntoABlockThatTheDeviceGained) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |");
    std::vector<uint8_t> rest(static_cast<size_t>(Disk().BlockStart(8) - Disk().BlockStart(1)));
    Disk().Read(Disk().BlockStart(1), rest.data(), rest.size());
    Disk().Truncate(Disk().BlockStart(1));
    OpenReadPart part(Disk()); // a copy that is still being made
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    Quietly([&] { EXPECT_EQ(player.Frames(), "I0@1000 P0@1001 end"); });
    Disk().Write(Disk().BlockStart(1), rest.data(), rest.size());
    Quietly([&] { EXPECT_EQ(player.Frames(), "P0@1002 end"); });
}

TEST_F(PartReader, ExtendedLayoutPlaysAndGoesOn) {
    Format format;
    format.fmtVersion = 1;
    MakeDisk(format);
    Record("I0@1000 P0@1001 | P0@1002 I0@1003 |");
    OpenReadPart part(Disk());
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)), "I0@1000 P0@1001 P0@1002 end");
}

TEST_F(PartReader, BlockWithoutRoomForAnEndMarkEndsInAFailure) {
    MakeDisk();
    // The frame area has 0xF000 - 840 bytes. Two frames of 24 + 30000 leave 552 of them, and the third takes
    // these to the last one. After it nothing may be read, not even what would end the block.
    Record("I0@1000:30000 P0@1001:30000 P0@1002:528 P0@1003 I0@1004 |");
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.Frames(), "I0@1000:30000 P0@1001:30000 P0@1002:528 failed");
    EXPECT_EQ(player.Handle()->BlockNum, 0u);
}

TEST_F(PartReader, BlockWithoutAnEndMarkGoesOnWhereTheIndexAreaFollows) {
    MakeDisk();
    // 12 bytes are left of the frame area: a head read there reaches into the index area, and is none.
    Record("I0@1000:30000 P0@1001:30000 P0@1002:516 P0@1003 I0@1004 |");
    OpenReadPart part(Disk());
    EXPECT_EQ(Play(part, kOneChannel, SegmentRecord(0, 0, 0, 1000)),
              "I0@1000:30000 P0@1001:30000 P0@1002:516 P0@1003 end");
}

// Several readers, and a partition object that changes its disk.

TEST_F(PartReader, ReadersKeepTheirBlockWhenThePartitionChanges) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |");
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.Frame(), "I0@1000");
    Format format;
    format.blockCount = 2;
    PartitionImage other = PartitionImage::Create(File("other"), format);
    sample_recorder::RecorderSettings settings;
    settings.channels = kScriptChannels;
    sample_recorder::Recorder recorder(other, settings);
    RecordScript(recorder, "I0@2000 | P0@2001 I0@2002 |");
    PartAccess_t access = other.Access();
    EXPECT_EQ(part->Init(&access), 0);
    EXPECT_EQ(player.Frame(), "P0@1001"); // from its own block still
    EXPECT_EQ(CrossingMessages(player, "P0@2001 end"), "ReadFrame BlockNum = 1 \n"); // on the new disk
}

TEST_F(PartReader, ReadersSurviveAPartitionWithoutBlocks) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |");
    const PartitionImage other = [this] {
        PartitionImage image = PartitionImage::Create(File("other"), Format());
        image.EditHead([](PartHead_t& head) { head.BlkCount = 0; });
        return image;
    }();
    OpenReadPart part(Disk());
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    PartAccess_t access = other.Access();
    EXPECT_EQ(part->Init(&access), 0);
    EXPECT_EQ(player.Frames(), "I0@1000 P0@1001 end");
    // And one that cannot be opened.
    access.PartName[0] = '\0';
    Quietly([&] { EXPECT_EQ(part->Init(&access), -1); });
    EXPECT_EQ(player.Frame(), "failed");
}

TEST_F(PartReader, ReadersDoNotDisturbEachOther) {
    std::string script;
    for (int second = 1000; second < 1200; ++second) {
        for (int chn = 0; chn < 3; ++chn) {
            const char* const type = second % 4 == 0 ? "I" : "P";
            script += type + std::to_string(chn) + '@' + std::to_string(second) + ':' +
                      std::to_string(300 + (second * 37 + chn * 11) % 200) + ' ';
        }
    }
    OpenReadPart part(RecordOnNewDisk(script + '|')); // some four blocks
    const std::vector<std::pair<int, RecordItem_t>> played = {
        {kOneChannel, SegmentRecord(0, 0, 0, 1000)},
        {kOneChannel, SegmentRecord(0, 1, 0, 1000)},
        {kOneChannel, SegmentRecord(0, 0, 0, 1000)},
        {kAllChannels, SegmentRecord(1, 0, 0, 1060)},
        {kOneChannel, WholeBlockRecord(1, 2)},
        {kAllChannels, WholeBlockRecord(2, 0)},
        {kOneChannel, WindowRecord(0, 2, 1010, 1020, 0)},
    };
    std::vector<std::string> alone;
    std::vector<std::unique_ptr<PartPlayer>> players;
    for (const auto& [chnType, record] : played) {
        alone.push_back(Play(part, chnType, record));
        players.push_back(std::make_unique<PartPlayer>(*part, chnType, record));
    }
    std::vector<std::string> together(players.size());
    size_t playing = players.size();
    Quietly([&] {
        while (playing > 0) {
            playing = 0;
            for (size_t i = 0; i < players.size(); ++i) {
                std::string& words = together[i];
                if (words.empty() || words.back() != 'd') { // "end", "failed"
                    words += (words.empty() ? "" : " ") + players[i]->Frame();
                    ++playing;
                }
            }
        }
    });
    EXPECT_EQ(together, alone);
    EXPECT_GT(alone[0].size(), 200u);
}

TEST_F(PartReader, FrameCostsTwoReads) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P1@1001 P1@1002 P0@1003 |"));
    PartPlayer player(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
    {
        const SystemCallLog log;
        EXPECT_EQ(player.Frame(), "I0@1000");
        EXPECT_EQ(log.Count(CallKind::Read), 2u);
    }
    const SystemCallLog log;
    EXPECT_EQ(player.Frame(), "P0@1003");
    EXPECT_EQ(log.Count(CallKind::Read), 4u); // and one for each frame passed
}

TEST_F(PartReader, EndingReadersReleasesTheirWindows) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |"));
    const SystemCallLog log;
    {
        PartPlayer crossed(*part, kOneChannel, SegmentRecord(0, 0, 0, 1000));
        const PartPlayer unread(*part, kAllChannels, WholeBlockRecord(1, 0));
        Quietly([&] { crossed.Frames(); });
    }
    EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close));
    for (const Call& call : log.Calls()) {
        EXPECT_EQ(call.flags & 3, 0); // never but for reading
    }
}

} // namespace
