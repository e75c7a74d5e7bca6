#include "playback/playback_fixture.h"

#include <cstring>

namespace {

using namespace test_support;

class BlockOpen : public PlaybackFixture {
protected:
    int Open(CReadBlock& reader, uint32_t block = 0, int rebuild = 0) {
        PartAccess_t access = Disk().Access();
        return reader.OpenBlock(block, Disk().BlockSize(), &access, Disk().Head().FmtVersion, rebuild);
    }

    /// Expects every operation that needs an open block to refuse, and to say nothing.
    static void ExpectClosed(CReadBlock& reader) {
        BlockHead_t head = {};
        BlockTail_t tail = {};
        RecordItem_t record = WholeBlock();
        RecSegItem_t segment = {};
        FrameInfo_t info = {};
        EventHead_t event = {};
        FrameHead_t frame = PFrame(0, 1000);
        void* payload = nullptr;
        int skipped = 0;
        EXPECT_EQ(Printed([&] {
                      EXPECT_EQ(reader.CloseBlock(), -1);
                      EXPECT_EQ(reader.GetBlockInfo(&head, &tail), -1);
                      EXPECT_EQ(reader.GetRecSegInfo(&record, &segment), -1);
                      EXPECT_EQ(reader.GetBlockIndex(1), -1);
                      EXPECT_EQ(reader.ReadBlockIndex(), -1);
                      EXPECT_EQ(reader.RebuiltBlockIndex(), -1);
                      EXPECT_EQ(reader.RefreshBlockIndex(&info, 0, &event), -1);
                      EXPECT_EQ(reader.GetOffset(0), -1);
                      EXPECT_EQ(reader.CheckValidChn(&frame), -1);
                      EXPECT_EQ(reader.CheckFrameHead(&frame), -1);
                      EXPECT_EQ(reader.GetFrame(0, &frame, &payload, &skipped), -1);
                      EXPECT_EQ(reader.ForwardReadFrame(&frame, &payload), -1);
                      EXPECT_EQ(reader.ReadFrame(&frame, &payload), -1);
                      EXPECT_EQ(reader.ReadBlockFrame(&frame, &payload), -1);
                      EXPECT_EQ(reader.SeekTime(0, &record, 0), -1);
                      EXPECT_EQ(reader.SeekOffs(0, &record, 0, 0), -1);
                      EXPECT_EQ(reader.GetIFrameIndex(), -1);
                      EXPECT_EQ(reader.ReadIFrame(0, &frame, &payload), -1);
                      EXPECT_EQ(reader.ReadNextIFrame(&frame, &payload), -1);
                      EXPECT_EQ(reader.ReadPrevIFrame(&frame, &payload), -1);
                  }),
                  "");
        EXPECT_EQ(payload, nullptr);
        EXPECT_EQ(segment.totalsize, 0u);
    }
};

TEST_F(BlockOpen, ClosedReaderRefusesEverything) {
    CReadBlock reader;
    ExpectClosed(reader);
    MakeDisk();
    WriteRecording(0);
    EXPECT_EQ(Open(reader), 0);
    EXPECT_EQ(reader.CloseBlock(), 0);
    ExpectClosed(reader);
}

TEST_F(BlockOpen, ReadsHeadTailAndIndexHead) {
    MakeDisk();
    Disk().WriteBlock(3, BlockContents::Closed(4, 1000, 1900));
    CReadBlock reader;
    const SystemCallLog log;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Open(reader, 3), 0); }), "");
    // The tail lies 20 bytes before the end of 65536, the index 4096.
    EXPECT_EQ(CallsInBlock(log, Disk(), 3), (Lines{"open", "seek 0", "seek 0", "read 840 at 0", "seek 65516",
                                                   "read 20 at 65516", "seek 61440", "read 260 at 61440"}));
    reader.CloseBlock();
}

TEST_F(BlockOpen, ReadsTheExtendedTailBehindTheTail) {
    MakeExtendedDisk();
    Disk().WriteBlock(3, BlockContents::Closed(4, 1000, 1900));
    CReadBlock reader;
    const SystemCallLog log;
    EXPECT_EQ(Open(reader, 3), 0);
    EXPECT_EQ(CallsInBlock(log, Disk(), 3),
              (Lines{"open", "seek 0", "seek 0", "read 840 at 0", "seek 65024", "read 20 at 65024",
                     "read 12 at 65044", "seek 61440", "read 260 at 61440"}));
    EXPECT_EQ(reader.GetOffset(0), 2048);
    reader.CloseBlock();
}

TEST_F(BlockOpen, EveryVersionButOneIsTheNormalLayout) {
    PartAccess_t access = MakeDisk().Access();
    for (const unsigned int version : {0u, 2u, 0xFFFFFFFFu}) {
        CReadBlock reader;
        EXPECT_EQ(reader.OpenBlock(0, 0x10000, &access, version, 0), 0);
        EXPECT_EQ(reader.GetOffset(0), 840) << version;
        reader.CloseBlock();
    }
}

TEST_F(BlockOpen, ClosingFlushesAndClosesTheDevice) {
    MakeDisk();
    CReadBlock reader;
    EXPECT_EQ(Open(reader), 0);
    const SystemCallLog log([](const Call&, size_t) { return Fate::Failing(); }); // the result is not used
    EXPECT_EQ(Printed([&] { EXPECT_EQ(reader.CloseBlock(), 0); }), "");
    EXPECT_EQ(CallsInBlock(log, Disk(), 0), (Lines{"sync", "close"}));
}

TEST_F(BlockOpen, OpenReaderSaysSoAndStays) {
    MakeDisk();
    WriteRecording(0);
    WriteRecording(1, 2000);
    BlockReader reader(Disk(), 0);
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1004), 0);
    const SystemCallLog log;
    PartAccess_t access = Disk().Access();
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(reader->OpenBlock(1, 0x10000, &access, 0, 1), 0);
                  EXPECT_EQ(reader->OpenBlock(0, 0, nullptr, 1, 0), 0);
              }),
              "OpenBlock : Already Opened\nOpenBlock : Already Opened\n");
    EXPECT_EQ(log.Calls().size(), 0u);
    BlockHead_t head = {};
    EXPECT_EQ(reader->GetBlockInfo(&head, nullptr), 0);
    EXPECT_EQ(head.RecTime, 1000u);
    EXPECT_TRUE(reader.HasWindow(1000, 1010, 0));
    EXPECT_EQ(reader.Read(), "I0 1004");
}

TEST_F(BlockOpen, ClosedReaderCanBeOpenedOnAnotherBlock) {
    MakeDisk();
    WriteRecording(0);
    WriteRecording(1, 2000);
    BlockReader reader(Disk(), 0);
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1004), 0);
    EXPECT_EQ(reader->CloseBlock(), 0);
    PartAccess_t access = Disk().Access();
    EXPECT_EQ(reader->OpenBlock(1, 0x10000, &access, 0, 0), 0);
    EXPECT_EQ(reader.Segments(),
              (Lines{"0/0 2000-2010 at 0-996, 996 bytes", "1/0 2001-2007 at 200-796, 596 bytes"}));
    EXPECT_EQ(reader.Read(), "1"); // the window is closed again
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.Read(), "P0 2000");
}

TEST_F(BlockOpen, ReadersOfOneBlockDoNotDisturbEachOther) {
    MakeDisk();
    WriteRecording(0);
    BlockReader one(Disk());
    BlockReader other(Disk());
    EXPECT_EQ(one.SeekTime(0, Record(0, 0), 1000), 0);
    EXPECT_EQ(other.SeekTime(0, Record(1, 0), 1000), 0);
    EXPECT_EQ(one.Read(), "I0 1000");
    EXPECT_EQ(other.Read(), "I1 1001");
    EXPECT_EQ(one.Read(), "P0 1002");
    EXPECT_EQ(other.Read(), "P1 1003");
}

TEST_F(BlockOpen, WithoutAPartitionNothingOpens) {
    CReadBlock reader;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(reader.OpenBlock(0, 0x10000, nullptr, 0, 0), -1); }), "");
    ExpectClosed(reader);
}

TEST_F(BlockOpen, DeviceThatCannotBeOpened) {
    PartAccess_t access = {};
    File("missing").copy(access.PartName, sizeof access.PartName);
    CReadBlock reader;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(reader.OpenBlock(0, 0x10000, &access, 0, 0), -1); }),
              "block_open : #, Failed\nOpenBlock : #, Failed\n");
    ExpectClosed(reader);
}

TEST_F(BlockOpen, EveryFailedCallBeforeTheIndexFailsTheOpening) {
    for (const uint32_t version : {0u, 1u}) {
        Format format;
        format.fmtVersion = version;
        const TempDir directory;
        PartAccess_t access = PartitionImage::Create(directory.File("disk"), format).Access();
        // Open and seek of the window; seek and read of the head; seek and one or two reads of the tail.
        for (size_t failing = 0; failing < 6 + version; ++failing) {
            CReadBlock reader;
            const SystemCallLog log(FailingCall(failing));
            EXPECT_EQ(PrintedWithoutLines(
                          [&] { EXPECT_EQ(reader.OpenBlock(0, 0x10000, &access, version, 1), -1); }),
                      failing < 2 ? "block_open : #, Failed\nOpenBlock : #, Failed\n"
                                  : "OpenBlock : #, Failed\n")
                << failing;
            EXPECT_EQ(log.Count(CallKind::Close), failing == 0 ? 0u : log.Count(CallKind::Open));
            ExpectClosed(reader);
        }
    }
}

TEST_F(BlockOpen, EveryShortReadBeforeTheIndexFailsTheOpening) {
    PartAccess_t access = MakeExtendedDisk().Access();
    for (const size_t failing : {3u, 5u, 6u}) {
        CReadBlock reader;
        const SystemCallLog log(ShortCall(failing));
        EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(reader.OpenBlock(0, 0x10000, &access, 1, 1), -1); }),
                  "OpenBlock : #, Failed\n");
        EXPECT_EQ(log.Count(CallKind::Open), 1u);
        EXPECT_EQ(log.Count(CallKind::Close), 1u);
        ExpectClosed(reader);
    }
}

TEST_F(BlockOpen, BlocksThatTheDeviceDoesNotReach) {
    MakeDisk();
    Disk().Truncate(Disk().BlockStart(1) + 0x8000);
    for (const uint32_t block : {1u, 2u, 65535u}) {
        CReadBlock reader;
        EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(Open(reader, block), -1); }), "OpenBlock : #, Failed\n")
            << block;
        ExpectClosed(reader);
    }
    CReadBlock reader;
    Quietly([&] { EXPECT_EQ(Open(reader, 0xFFFFFFFF), -1); }); // some file systems refuse even to seek there
    ExpectClosed(reader);
}

TEST_F(BlockOpen, BlocksTooSmallForTheirOwnAreas) {
    PartAccess_t access = MakeDisk().Access();
    // Head area 840 or 2048, index and tail area 4096.
    for (const unsigned int version : {0u, 1u}) {
        const uint32_t smallest = version == 1 ? 6144 : 4936;
        for (const uint32_t size : {0u, 1u, 20u, 840u, 4095u, 4096u, smallest - 1}) {
            CReadBlock reader;
            EXPECT_EQ(
                PrintedWithoutLines([&] { EXPECT_EQ(reader.OpenBlock(0, size, &access, version, 1), -1); }),
                "OpenBlock : #, Failed\n")
                << size;
            ExpectClosed(reader);
        }
        CReadBlock reader;
        EXPECT_EQ(reader.OpenBlock(0, smallest, &access, version, 1), 0);
        EXPECT_EQ(reader.GetOffset(0), -1); // without room for a single frame
        EXPECT_EQ(reader.CloseBlock(), 0);
    }
}

TEST_F(BlockOpen, FramesBeyondTwoAndFourGigabytes) {
    Format format;
    format.blockCount = 2;
    format.blockSize = 0xC0000000;
    MakeDisk(format);
    const uint32_t pos = 0x90000000;
    PutFrames(1, pos, {KeyFrame(0, 1000), PFrame(0, 1001)});
    PutHead(1, pos + 200, EndMark());
    Disk().WriteBlock(
        1, BlockContents::Closed(1, 1000, 1001).IFrame(0, Pts(1000), pos).Segment(0, 1000, 1001, 196, pos));
    BlockReader reader(Disk(), 1);
    // As 32-bit numbers with a sign, these positions are negative.
    EXPECT_EQ(Printed([&] {
                  RecordItem_t record = Record(0, 0);
                  EXPECT_EQ(reader->SeekTime(0, &record, 0), 0);
              }),
              "SeekTime : Offset -1879048192 (seek:0)(1000, 1001, -1879048192)(1000000000, -1879048192)\n");
    EXPECT_EQ(reader.ReadAll(), (Lines{"I0 1000", "P0 1001", "2"}));
    EXPECT_EQ(reader.SeekOffs(1, Record(0, 0), 76), 0);
    EXPECT_EQ(reader.Read(), "P0 1001");
}

TEST_F(BlockOpen, InfoIsTheHeadAndTheTail) {
    MakeDisk();
    auto contents = BlockContents::Closed(7, 1000, 1900);
    contents.head.prop[31].propRes = 9;
    contents.tail.Reserved = 11;
    contents.tail.CloseState = 1;
    Disk().WriteBlock(2, contents);
    BlockReader reader(Disk(), 2);
    BlockHead_t head = {};
    BlockTail_t tail = {};
    const SystemCallLog log;
    EXPECT_EQ(reader->GetBlockInfo(&head, &tail), 0);
    EXPECT_EQ(std::memcmp(&head, &contents.head, 840), 0);
    EXPECT_EQ(std::memcmp(&tail, &contents.tail, 20), 0);

    head = {};
    tail = {};
    EXPECT_EQ(reader->GetBlockInfo(&head, nullptr), 0);
    EXPECT_EQ(head.RecSeq, 7u);
    EXPECT_EQ(reader->GetBlockInfo(nullptr, &tail), 0);
    EXPECT_EQ(tail.EndTime, 1900u);
    EXPECT_EQ(reader->GetBlockInfo(nullptr, nullptr), 0);
    EXPECT_EQ(log.Calls().size(), 0u); // all of it is held
}

TEST_F(BlockOpen, SegmentOfARecord) {
    MakeDisk();
    auto contents = BlockContents::Closed(1, 1000, 1900);
    for (uint32_t i = 0; i < 3; ++i) {
        contents.Segment(5, 1000 + i, 1100 + i, 900 + i, 50 * i);
    }
    Disk().WriteBlock(0, contents);
    BlockReader reader(Disk());
    const SystemCallLog log;
    RecordItem_t record = {};
    record.recId = 0x12340A02; // block 0x1234, channel 5, segment 2: the block's number is not looked at
    RecSegItem_t segment = {};
    EXPECT_EQ(reader->GetRecSegInfo(&record, &segment), 0);
    EXPECT_EQ(Describe(segment), "1002-1102 at 100-1002, 902 bytes");
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(BlockOpen, SegmentNumbersBehindTheTableAreNoSegments) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    const SystemCallLog log;
    for (const uint32_t number : {1u, 2u, 511u}) {
        RecordItem_t record = Record(0, number);
        RecSegItem_t segment = {1, 2, 3, 4, 5};
        EXPECT_EQ(reader->GetRecSegInfo(&record, &segment), -1);
        EXPECT_EQ(Describe(segment), "1-2 at 3-4, 5 bytes");
    }
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(BlockOpen, ChannelWithoutSegmentsHasAStandInOfTenMinutes) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    // Channel 2 records nothing; 32 and 127 are channels that an id can name and a block cannot hold.
    for (const uint32_t chn : {2u, 31u, 32u, 127u}) {
        const SystemCallLog log;
        RecordItem_t record = Record(chn, 3);
        RecSegItem_t segment = {1, 2, 3, 4, 5};
        EXPECT_EQ(reader->GetRecSegInfo(&record, &segment), -1);
        EXPECT_EQ(Describe(segment), "1000-1600 at 0-0, 268435456 bytes") << chn; // 0x10000000
        EXPECT_EQ(CallsInBlock(log, Disk(), 0), (Lines{"seek 840", "read 24 at 840"}));
    }
}

TEST_F(BlockOpen, StandInOfOddTimes) {
    MakeExtendedDisk();
    const std::vector<std::pair<int64_t, uint32_t>> starts = {{Pts(-1), 0xFFFFFFFF},
                                                              {-999999, 0},
                                                              {999999, 0},
                                                              {Pts(0x80000000), 0x80000000},
                                                              {Pts(0x100000007), 7}};
    for (const auto& [pts, start] : starts) {
        FrameHead_t head = Data(40, 0); // whatever its type and channel
        head.pts = pts;
        PutHead(0, 0, head);
        BlockReader reader(Disk());
        RecordItem_t record = Record(0, 0);
        RecSegItem_t segment = {};
        EXPECT_EQ(reader->GetRecSegInfo(&record, &segment), -1);
        EXPECT_EQ(segment.s, start);
        EXPECT_EQ(segment.e, start + 600);
    }
}

TEST_F(BlockOpen, NoStandInWithoutAFirstFrame) {
    MakeDisk();
    BlockReader reader(Disk());
    RecordItem_t record = Record(0, 0);
    for (const FrameHead_t& head : {FrameHead_t{}, EndMark()}) {
        PutHead(0, 0, head);
        RecSegItem_t segment = {1, 2, 3, 4, 5};
        EXPECT_EQ(reader->GetRecSegInfo(&record, &segment), -1);
        EXPECT_EQ(Describe(segment), "1-2 at 3-4, 5 bytes");
    }
    PutHead(0, 0, PFrame(0, 1000));
    for (const auto& fate : {FailingCall(0), FailingCall(1), ShortCall(1)}) {
        const SystemCallLog log(fate);
        RecSegItem_t segment = {1, 2, 3, 4, 5};
        EXPECT_EQ(Printed([&] { EXPECT_EQ(reader->GetRecSegInfo(&record, &segment), -1); }), "");
        EXPECT_EQ(Describe(segment), "1-2 at 3-4, 5 bytes");
    }
}

TEST_F(BlockOpen, SegmentInfoWithoutArguments) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    RecordItem_t record = Record(0, 0);
    RecSegItem_t segment = {};
    EXPECT_EQ(reader->GetRecSegInfo(nullptr, &segment), -1);
    EXPECT_EQ(reader->GetRecSegInfo(&record, nullptr), -1);
}

} // namespace
