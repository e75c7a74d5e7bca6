#include "playback/playback_fixture.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

using namespace test_support;

/// The frame area of a block of 64 KiB: from 840 to 65536 - 4096.
constexpr uint32_t kFrameArea = 60600;
/// Where frames that run over the frame area's end meet the end of the block.
constexpr uint32_t kBlockEnd = 65536 - 840;

class BlockFrames : public PlaybackFixture {
protected:
    /// Opens block 0, which begins with a frame that is no media and has any window's time.
    BlockReader OpenAnyWindow() {
        MakeDisk();
        PutHead(0, PutFrames(0, 0, {Data(0, 0)}), EndMark());
        return BlockReader(Disk());
    }

    static int KindOf(BlockReader& reader, int64_t pts, uint32_t type = 0) {
        FrameHead_t head = Frame(type, 0, 0);
        head.pts = pts;
        return reader->CheckFrameHead(&head);
    }

    /// GetFrame() as text: the frame and the bytes skipped, or the result.
    static std::string Get(BlockReader& reader, uint32_t offs) {
        FrameHead_t head = {};
        int skipped = -7;
        const int result = reader->GetFrame(offs, &head, &reader.Payload(), &skipped);
        if (result != 0) {
            EXPECT_EQ(skipped, -7);
            return std::to_string(result);
        }
        return Describe(head) + " behind " + std::to_string(skipped);
    }
};

TEST_F(BlockFrames, OffsetsLieInTheFrameArea) {
    MakeDisk();
    BlockReader reader(Disk());
    const SystemCallLog log;
    EXPECT_EQ(reader->GetOffset(0), 840);
    EXPECT_EQ(reader->GetOffset(1), 841);
    EXPECT_EQ(reader->GetOffset(kFrameArea - 1), 61439);
    for (const uint32_t offs : {kFrameArea, kFrameArea + 1, 0x80000000u, 0xFFFFFCB8u, 0xFFFFFFFFu}) {
        EXPECT_EQ(reader->GetOffset(offs), -1) << offs;
    }
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(BlockFrames, OffsetsOfTheExtendedLayout) {
    MakeExtendedDisk();
    BlockReader reader(Disk());
    EXPECT_EQ(reader->GetOffset(0), 2048);
    EXPECT_EQ(reader->GetOffset(59391), 61439); // 61440 - 2048 = 59392
    EXPECT_EQ(reader->GetOffset(59392), -1);
}

TEST_F(BlockFrames, OffsetsBeforeTheWindowAreRefused) {
    MakeDisk();
    PutFrames(0, 500, {PFrame(0, 1000)});
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010, 500)), 0);
    EXPECT_EQ(reader->GetOffset(499), -1);
    EXPECT_EQ(reader->GetOffset(500), 1340);
    EXPECT_EQ(Get(reader, 499), "-1");
    EXPECT_EQ(Get(reader, 500), "P0 1000 behind 0");
}

TEST_F(BlockFrames, ChannelsWanted) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    const auto wanted = [&](uint32_t chn) {
        FrameHead_t head = PFrame(chn, 1000);
        return reader->CheckValidChn(&head);
    };
    EXPECT_EQ(wanted(0), 0); // as opened, only channel 0
    EXPECT_EQ(wanted(1), -1);
    RecordItem_t record = Record(5, 3);
    record.recId |= 0xFFFF0000; // block and segment do not matter
    reader.SeekOffs(0, record);
    EXPECT_EQ(wanted(5), 0);
    EXPECT_EQ(wanted(4), -1);
    EXPECT_EQ(wanted(5 + 128), -1);
    reader.SeekOffs(0, Record(100, 0));
    EXPECT_EQ(wanted(100), 0);
    EXPECT_EQ(wanted(4), -1);
    for (const int all : {1, 2, -1}) {
        reader.SeekOffs(all, record);
        EXPECT_EQ(wanted(0), 0);
        EXPECT_EQ(wanted(0xFFFFFFFF), 0);
    }
    EXPECT_EQ(reader->CheckValidChn(nullptr), -1);
}

TEST_F(BlockFrames, EndMarkIsToldFromErasedSpace) {
    MakeDisk();
    BlockReader reader(Disk());
    FrameHead_t mark = EndMark();
    EXPECT_EQ(reader->CheckFrameHead(&mark), 2);
    FrameHead_t erased = EndMark();
    erased.pts = -1;
    EXPECT_EQ(reader->CheckFrameHead(&erased), -1);
    for (const int field : {0, 1, 2, 3, 4}) {
        FrameHead_t other = EndMark();
        if (field == 0) {
            other.type = 0xFFFFFFFE;
        } else if (field == 1) {
            other.chn = 0;
        } else if (field == 2) {
            other.len = 0x7FFFFFFF;
        } else if (field == 3) {
            other.pts = 0xFFFFFFFE;
        } else {
            other.pts = 0x1FFFFFFFF;
        }
        EXPECT_EQ(reader->CheckFrameHead(&other), -1) << field;
    }
    EXPECT_EQ(reader->CheckFrameHead(nullptr), -1);
}

TEST_F(BlockFrames, OtherSyncWordsAreNoFrames) {
    MakeDisk();
    BlockReader reader(Disk());
    for (const uint32_t sync : {0u, 0xAA55AA50u, 0x55AA55AAu, 0xFFFFFFFEu}) {
        FrameHead_t head = Data(1, 1000); // the sync word comes before channel and time
        head.sync = sync;
        EXPECT_EQ(reader->CheckFrameHead(&head), -1) << sync;
    }
}

TEST_F(BlockFrames, EndMarkAndErasedSpaceAndGarbageAllEndTheFrames) {
    MakeDisk();
    BlockReader reader(Disk());
    FrameHead_t erased = EndMark();
    erased.pts = -1;
    for (const FrameHead_t& head : {EndMark(), erased, FrameHead_t{}}) {
        PutHead(0, 0, head);
        EXPECT_EQ(reader.Read(), "2");
        EXPECT_EQ(Get(reader, 0), "2");
    }
}

TEST_F(BlockFrames, ChannelComesBeforeTime) {
    BlockReader reader = OpenAnyWindow();
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010)), 0);
    FrameHead_t head = PFrame(1, 5000);
    EXPECT_EQ(reader->CheckFrameHead(&head), 1);
    head.chn = 0;
    EXPECT_EQ(reader->CheckFrameHead(&head), 3);
}

TEST_F(BlockFrames, MediaPassFromFiveSecondsBeforeTheWindowToItsLastSecond) {
    BlockReader reader = OpenAnyWindow();
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010)), 0);
    for (const uint32_t type : {0u, 1u, 2u}) {
        EXPECT_EQ(KindOf(reader, Pts(994), type), 3);
        EXPECT_EQ(KindOf(reader, Pts(995) - 1, type), 3);
        EXPECT_EQ(KindOf(reader, Pts(995), type), 0);
        EXPECT_EQ(KindOf(reader, Pts(1000), type), 0);
        EXPECT_EQ(KindOf(reader, Pts(1010), type), 0);
        EXPECT_EQ(KindOf(reader, Pts(1011) - 1, type), 0); // less than a second after it
        EXPECT_EQ(KindOf(reader, Pts(1011), type), 3);
        EXPECT_EQ(KindOf(reader, Pts(1012), type), 3);
    }
    for (const uint32_t type : {3u, 4u, 0xFFFFFFFFu}) {
        EXPECT_EQ(KindOf(reader, Pts(0), type), 0);
        EXPECT_EQ(KindOf(reader, Pts(5000), type), 0);
    }
}

TEST_F(BlockFrames, WindowEdgesWrapInThirtyTwoBits) {
    BlockReader reader = OpenAnyWindow();
    // Second 0 less 1 is the last second that exists, and no window ends after it.
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 0, 0xFFFFFFFF)), 0);
    EXPECT_EQ(KindOf(reader, Pts(0)), 3);
    EXPECT_EQ(KindOf(reader, -999999), 3); // a part of a second before 1970 is second 0
    EXPECT_EQ(KindOf(reader, Pts(1)), 0);
    EXPECT_EQ(KindOf(reader, Pts(0xFFFFFFFF)), 0);
    EXPECT_EQ(KindOf(reader, Pts(-1)), 0);
    EXPECT_EQ(KindOf(reader, Pts(0x100000000)), 3); // second 0 again
    // Five seconds after 0xFFFFFFFB lies second 0, before any window that starts later.
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1, 0xFFFFFFFF)), 0);
    EXPECT_EQ(KindOf(reader, Pts(0xFFFFFFFA)), 0);
    EXPECT_EQ(KindOf(reader, Pts(0xFFFFFFFB)), 3);
    EXPECT_EQ(KindOf(reader, Pts(0xFFFFFFFC)), 0);
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 5, 0xFFFFFFFF)), 0);
    EXPECT_EQ(KindOf(reader, Pts(0xFFFFFFFF)), 3);
    EXPECT_EQ(KindOf(reader, Pts(1)), 0);
}

TEST_F(BlockFrames, WindowsAfter2038AndOnBothSidesOfIt) {
    BlockReader reader = OpenAnyWindow();
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 0x7FFFFFF0, 0x80000010)), 0);
    EXPECT_TRUE(reader.HasWindow(0x7FFFFFF0, 0x80000010, 0));
    EXPECT_EQ(KindOf(reader, Pts(0x7FFFFFFF)), 0);
    EXPECT_EQ(KindOf(reader, Pts(0x80000000)), 0);
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 0x80000000, 0xFFFFFFF0)), 0);
    EXPECT_TRUE(reader.HasWindow(0x80000000, 0xFFFFFFF0, 0));
    EXPECT_EQ(KindOf(reader, Pts(-0x70000000)), 0); // 0x90000000
    EXPECT_EQ(KindOf(reader, Pts(0x10000000)), 3);
}

TEST_F(BlockFrames, WithoutASeekTheFirstMediaFrameIsTheEnd) {
    MakeDisk();
    PutFrames(0, 0, {Data(0, 1000), PFrame(0, 1001)});
    BlockReader reader(Disk());
    EXPECT_EQ(reader.ReadAll(), (Lines{"T3.0 1000", "1"}));
    EXPECT_EQ(reader.Read(), "1"); // it stays there
}

TEST_F(BlockFrames, OneChannelInOrder) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(1)), 0);
    EXPECT_EQ(reader.ReadAll(), (Lines{"I1 1001", "P1 1003", "I1 1007", "2"}));
    EXPECT_EQ(reader.Read(), "2");
}

TEST_F(BlockFrames, AllChannelsInOrder) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock()), 0);
    EXPECT_EQ(reader.ReadAll(), (Lines{"P0 1000", "I0 1000", "I1 1001", "P0 1002", "P1 1003", "I0 1004",
                                       "P0 1006", "I1 1007", "I0 1008", "P0 1010", "2"}));
}

TEST_F(BlockFrames, AllChannelsMeansAnyNumber) {
    MakeDisk();
    PutHead(0, PutFrames(0, 0, {PFrame(31, 1000), PFrame(32, 1001), PFrame(0xFFFFFFFF, 1002)}), EndMark());
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(1, WholeBlock()), 0);
    EXPECT_EQ(reader.ReadAll(), (Lines{"P31 1000", "P32 1001", "P4294967295 1002", "2"}));
}

TEST_F(BlockFrames, MediaOutsideTheWindowEndReading) {
    MakeDisk();
    PutFrames(0, 0, {PFrame(0, 1000), PFrame(0, 995), PFrame(1, 5000), Data(0, 5000), PFrame(0, 1011)});
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010)), 0);
    EXPECT_EQ(reader.ReadAll(), (Lines{"P0 1000", "P0 995", "T3.0 5000", "1"}));
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1011)), 0);
    EXPECT_EQ(reader.SeekOffs(1, OwnWindow(0, 1000, 1011)), 0);
    EXPECT_EQ(reader.ReadAll(), (Lines{"P0 1000", "P0 995", "1"}));
}

TEST_F(BlockFrames, TwoReadsAFrame) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    const SystemCallLog log;
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(reader.Read(), "P0 1000");
                  EXPECT_EQ(reader.Read(), "I0 1000");
              }),
              "");
    EXPECT_EQ(CallsInBlock(log, Disk(), 0), (Lines{"seek 840", "read 24 at 840", "read 76 at 864", "seek 940",
                                                   "read 24 at 940", "read 76 at 964"}));
}

TEST_F(BlockFrames, OneReadAFrameOfAnotherChannel) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    const SystemCallLog log;
    reader.SeekTime(0, Record(1, 0), 1000);
    EXPECT_EQ(reader.Read(), "I1 1001");
    EXPECT_EQ(log.Calls().size(), 3u); // the seek needed none
    EXPECT_EQ(reader.Read(), "P1 1003");
    EXPECT_EQ(CallsInBlock(log, Disk(), 0),
              (Lines{"seek 1040", "read 24 at 1040", "read 76 at 1064", "seek 1140", "read 24 at 1140",
                     "seek 1240", "read 24 at 1240", "read 76 at 1264"}));
}

TEST_F(BlockFrames, GetFrameTellsWhatItStepsOverAndStaysThere) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(1)), 0);
    EXPECT_EQ(Get(reader, 0), "I1 1001 behind 200");
    EXPECT_EQ(Get(reader, 200), "I1 1001 behind 0");
    EXPECT_EQ(Get(reader, 500), "I1 1007 behind 200");
    EXPECT_EQ(Get(reader, 800), "2");
    EXPECT_EQ(Get(reader, 1000), "2");
    EXPECT_EQ(Get(reader, 50), "2"); // in the midst of a payload
    EXPECT_EQ(reader.Read(), "I1 1001");
    EXPECT_EQ(reader.SeekTime(0, Record(1, 0, 0, 1005), 0), 0);
    EXPECT_EQ(Get(reader, 500), "1");
}

TEST_F(BlockFrames, GetFrameWithoutABufferReadsTheHeadAlone) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(1)), 0);
    FrameHead_t head = {};
    int skipped = 0;
    const SystemCallLog log;
    EXPECT_EQ(reader->GetFrame(300, &head, nullptr, &skipped), 0);
    EXPECT_EQ(Describe(head), "P1 1003");
    EXPECT_EQ(head.len, 76u);
    EXPECT_EQ(skipped, 100);
    EXPECT_EQ(CallsInBlock(log, Disk(), 0),
              (Lines{"seek 1140", "read 24 at 1140", "seek 1240", "read 24 at 1240"}));
    // The payload's stated length does not matter either.
    PutHead(0, 400, PFrame(1, 1003, 0xFFFFFFE8));
    EXPECT_EQ(reader->GetFrame(300, &head, nullptr, &skipped), 0);
    EXPECT_EQ(head.len, 0xFFFFFFE8);
}

TEST_F(BlockFrames, HeadsWhoseLengthWrapsLeadNowhereBack) {
    MakeDisk();
    WriteRecording(0);
    for (const uint32_t len : {0xFFFFFFE8u, 0xFFFFFF84u, 0xFFFFFFFFu}) {
        // 24 + 0xFFFFFFE8 is nothing in 32 bits, 24 + 0xFFFFFF84 goes back by 100.
        PutHead(0, 100, KeyFrame(0, 1000, len));
        BlockReader reader(Disk());
        EXPECT_EQ(reader.SeekOffs(1, WholeBlock()), 0);
        FrameHead_t head = {};
        EXPECT_EQ(reader->ForwardReadFrame(&head, nullptr), 0);
        EXPECT_EQ(reader->ForwardReadFrame(&head, nullptr), 0);
        EXPECT_EQ(head.len, len);
        EXPECT_EQ(reader->ForwardReadFrame(&head, nullptr), -1) << len;
        EXPECT_EQ(reader->ReadIFrame(100, &head, nullptr), 0);
        EXPECT_EQ(reader->ForwardReadFrame(&head, nullptr), -1) << len;
    }
}

TEST_F(BlockFrames, EveryReadAfterAForgedLengthFails) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .IFrame(0, Pts(1000), 0)
                             .IFrame(0, Pts(1001), 100)
                             .IFrame(0, Pts(1002), 200)
                             .Segment(0, 1000, 1010, 996));
    PutFrames(0, 0, {KeyFrame(0, 1000)});
    PutFrames(0, 200, {KeyFrame(0, 1002)});
    // What lies in the block's head where a position that wrapped would lead: 840 + 124 + len, in 32 bits.
    for (const uint32_t at : {100u, 839u}) {
        Disk().Put(Disk().BlockStart(0) + at, KeyFrame(0, 1000, 10));
    }
    // Beyond the frame area, the block, 2^31; in 32 bits at the frame itself, at the one before, at bytes 100 and
    // 839 of the block's head; and the most there is.
    for (const uint32_t len : {64696u - 124, 70000u, 0x7FFFFFFFu, 0xFFFFFFE8u, 0xFFFFFF84u, 0xFFFFFCA0u,
                               0xFFFFFF83u, 0xFFFFFFFFu}) {
        PutHead(0, 100, KeyFrame(0, 1001, len));
        for (const bool step : {false, true}) {
            BlockReader reader(Disk());
            const auto readHeadAlone = [&] {
                EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1001), 0);
                FrameHead_t head = {};
                EXPECT_EQ(step ? reader->ReadIFrame(100, &head, nullptr)
                               : reader->ForwardReadFrame(&head, nullptr),
                          0);
                EXPECT_EQ(head.len, len);
            };
            readHeadAlone();
            EXPECT_EQ(reader.Read(), "-1") << len;
            EXPECT_EQ(reader.ReadUnit(), "-1") << len;
            EXPECT_EQ(reader.Next(), "-1") << len;
            EXPECT_EQ(reader.Prev(), "-1") << len;
            readHeadAlone();
            EXPECT_EQ(reader.ReadUnit(), "-1") << len; // and none of these moves
            readHeadAlone();
            EXPECT_EQ(reader.Next(), "-1") << len;
        }
    }
}

TEST_F(BlockFrames, ForwardReadWithoutABufferMovesBehindTheFrame) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(1)), 0);
    FrameHead_t head = {};
    EXPECT_EQ(reader->ForwardReadFrame(&head, nullptr), 0);
    EXPECT_EQ(Describe(head), "I1 1001");
    EXPECT_EQ(reader->ForwardReadFrame(&head, &reader.Payload()), 0);
    EXPECT_EQ(Describe(head), "P1 1003");
    EXPECT_EQ(reader.Read(), "I1 1007");
    EXPECT_EQ(reader->ForwardReadFrame(&head, &reader.Payload()), 2);
}

TEST_F(BlockFrames, ArgumentsThatAreMissing) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    FrameHead_t head = {};
    void* payload = nullptr;
    int skipped = 0;
    const SystemCallLog log;
    EXPECT_EQ(reader->GetFrame(0, nullptr, &payload, &skipped), -1);
    EXPECT_EQ(reader->GetFrame(0, &head, &payload, nullptr), -1);
    EXPECT_EQ(reader->ForwardReadFrame(nullptr, &payload), -1);
    EXPECT_EQ(reader->ReadFrame(nullptr, &payload), -1);
    EXPECT_EQ(reader->ReadFrame(&head, nullptr), -1);
    EXPECT_EQ(reader->ReadBlockFrame(nullptr, &payload), -1);
    EXPECT_EQ(reader->ReadBlockFrame(&head, nullptr), -1);
    EXPECT_EQ(log.Calls().size(), 0u);
    EXPECT_EQ(payload, nullptr);
    EXPECT_EQ(reader.Read(), "P0 1000");
}

TEST_F(BlockFrames, FailedCallsLeaveTheReaderWhereItIs) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(1), 76), 0); // before P1 1003
    reader.IFrameAt(200);                                // and after I1 1001: P0 1002 is to be skipped
    // Seek and read of the other channel's head, of this one's, and the payload's read.
    for (size_t call = 0; call < 5; ++call) {
        for (const auto& fate : {FailingCall(call), ShortCall(call)}) {
            const SystemCallLog log(fate);
            const std::string result = Printed([&] {
                FrameHead_t head = {};
                const int read = reader->ReadFrame(&head, &reader.Payload());
                if (read == 0) { // a seek that cannot be short
                    EXPECT_EQ(log.Count(CallKind::Read), 3u);
                    reader.IFrameAt(200);
                } else {
                    EXPECT_EQ(read, -1);
                }
                EXPECT_NE(reader.Payload(), nullptr);
                std::memset(reader.Payload(), 0xEE, 76);
            });
            EXPECT_EQ(result, "");
        }
    }
    EXPECT_EQ(reader.Read(), "P1 1003");
}

TEST_F(BlockFrames, FailedHeadReadLeavesTheBufferAlone) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    void* const buffer = std::malloc(4);
    std::memcpy(buffer, "abc", 4);
    reader.Payload() = buffer;
    for (const size_t call : {0u, 1u}) {
        const SystemCallLog log(FailingCall(call));
        EXPECT_EQ(reader.Read(), "-1");
        EXPECT_EQ(reader.Payload(), buffer);
        EXPECT_STREQ(static_cast<char*>(buffer), "abc");
    }
    for (const auto& [head, result] : {std::pair{EndMark(), "2"}, {PFrame(0, 0), "1"}}) {
        PutHead(0, 0, head);
        EXPECT_EQ(reader.Read(), result);
        EXPECT_EQ(reader.Payload(), buffer);
        EXPECT_STREQ(static_cast<char*>(buffer), "abc");
    }
    PutHead(0, 0, EndMark());
    EXPECT_EQ(reader.ReadUnit(), "1");
    EXPECT_EQ(reader.Payload(), buffer);
    EXPECT_STREQ(static_cast<char*>(buffer), "abc");
}

TEST_F(BlockFrames, BufferFollowsTheFrames) {
    MakeDisk();
    PutHead(0,
            PutFrames(0, 0,
                      {PFrame(0, 1000, 1), PFrame(0, 1001, 20000), PFrame(0, 1002, 5), PFrame(0, 1003, 0),
                       PFrame(0, 1004, 3000), PFrame(0, 1005, 0)}),
            EndMark());
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
    EXPECT_EQ(reader.ReadAll(),
              (Lines{"P0 1000", "P0 1001", "P0 1002", "P0 1003", "P0 1004", "P0 1005", "2"}));
    EXPECT_NE(reader.Payload(), nullptr);
}

TEST_F(BlockFrames, EmptyPayloadHasABufferToo) {
    MakeDisk();
    PutHead(0, PutFrames(0, 0, {Data(0, 1000, 0), Data(0, 1001, 0)}), EndMark());
    BlockReader reader(Disk());
    EXPECT_EQ(reader.Read(), "T3.0 1000");
    EXPECT_NE(reader.Payload(), nullptr);
    BlockReader unit(Disk());
    EXPECT_EQ(unit.ReadUnit(), "T3.0 1000");
    EXPECT_NE(unit.Payload(), nullptr);
    EXPECT_EQ(unit.ReadUnit(), "T3.0 1001");
    EXPECT_EQ(unit.ReadUnit(), "1");
}

TEST_F(BlockFrames, PayloadMayRunToTheEndOfTheBlock) {
    MakeDisk();
    // Of this frame only the head lies in the frame area.
    const FrameHead_t last = PFrame(0, 1000, kBlockEnd - (kFrameArea - 1) - 24);
    PutFrames(0, kFrameArea - 1, {last});
    PutFrames(0, 0, {PFrame(1, 1000, kFrameArea - 1 - 24)});
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010)), 0);
    EXPECT_EQ(reader.Read(), "P0 1000");
    EXPECT_EQ(reader.Read(), "-1"); // beyond the frame area

    // In the unit read, the end of the block is that of the frames.
    BlockReader unit(Disk());
    EXPECT_EQ(unit.ReadUnit(), "P1 1000");
    EXPECT_EQ(unit.ReadUnit(), "P0 1000");
    EXPECT_EQ(unit.ReadUnit(), "-1");
}

TEST_F(BlockFrames, LengthsBehindTheEndOfTheBlockAreRefusedBeforeAnythingIsRead) {
    MakeDisk();
    PutFrames(0, 0, {Data(0, 1000)});
    for (const uint32_t len :
         {kBlockEnd - 124 + 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFE8u, 0xFFFFFF84u, 0xFFFFFFFFu}) {
        PutHead(0, 100, Data(0, 1001, len));
        BlockReader reader(Disk());
        EXPECT_EQ(reader.Read(), "T3.0 1000");
        void* const buffer = reader.Payload();
        std::memcpy(buffer, "abc", 4);
        const SystemCallLog log;
        EXPECT_EQ(reader.Read(), "-1") << len;
        EXPECT_EQ(reader.Read(), "-1");
        EXPECT_EQ(log.Count(CallKind::Read), 2u); // of the head, twice
        EXPECT_EQ(reader.IFrameAt(100), "-1");
        EXPECT_EQ(reader.Payload(), buffer);
        EXPECT_STREQ(static_cast<char*>(buffer), "abc");

        BlockReader unit(Disk());
        EXPECT_EQ(unit.ReadUnit(), "T3.0 1000");
        EXPECT_EQ(unit.ReadUnit(), "-1");
        EXPECT_EQ(unit.ReadUnit(), "-1");
    }
}

TEST_F(BlockFrames, OtherChannelsLengthsNeverLeadBackOrRound) {
    MakeDisk();
    PutFrames(0, 0, {Data(0, 1000)});
    for (const uint32_t len :
         {kFrameArea - 124, 0x7FFFFFFFu, 0xFFFFFC9Fu, 0xFFFFFFE8u, 0xFFFFFF84u, 0xFFFFFFFFu}) {
        PutHead(0, 100, Data(1, 1001, len));
        BlockReader reader(Disk());
        const SystemCallLog log;
        EXPECT_EQ(Get(reader, 100), "-1") << len;
        EXPECT_EQ(log.Count(CallKind::Read), 1u);
    }
}

TEST_F(BlockFrames, FramesWithoutPayloadAreStillSteppedOver) {
    MakeDisk();
    PutHead(0, PutFrames(0, 0, {Data(1, 1000, 0), Data(1, 1000, 0), Data(0, 1001)}), EndMark());
    BlockReader reader(Disk());
    EXPECT_EQ(Get(reader, 0), "T3.0 1001 behind 48");
}

TEST_F(BlockFrames, HeadsMayBeginInTheFrameAreasLastByte) {
    MakeDisk();
    BlockReader reader(Disk());
    // There is no frame in what was never written.
    EXPECT_EQ(Get(reader, kFrameArea - 1), "2");
    EXPECT_EQ(Get(reader, kFrameArea), "-1");
    EXPECT_EQ(Get(reader, 0xFFFFFFFF), "-1");
}

TEST_F(BlockFrames, UnitReadTakesEveryFrame) {
    MakeDisk();
    PutFrames(0, 0, {PFrame(0, 1000), KeyFrame(31, 1), Data(7, -1, 0), Audio(5, 0x80000000, 500)});
    BlockReader reader(Disk());
    const SystemCallLog log;
    EXPECT_EQ(reader.ReadUnit(), "P0 1000");
    EXPECT_EQ(CallsInBlock(log, Disk(), 0), (Lines{"seek 840", "read 24 at 840", "read 76 at 864"}));
    EXPECT_EQ(reader.ReadUnit(), "I31 1");
    EXPECT_EQ(reader.ReadUnit(), "T3.7 -1");
    EXPECT_EQ(reader.ReadUnit(), "A5 2147483648");
    EXPECT_EQ(reader.ReadUnit(), "1");
    EXPECT_EQ(reader.ReadUnit(), "1");
}

TEST_F(BlockFrames, UnitReadEndsAtWhatIsNoFrame) {
    MakeDisk();
    FrameHead_t erased = EndMark();
    erased.pts = -1;
    for (const FrameHead_t& head :
         {EndMark(), erased, FrameHead_t{}, PFrame(32, 1000), PFrame(0xFFFFFFFF, 1000)}) {
        PutFrames(0, 0, {PFrame(0, 1000)});
        PutHead(0, 100, head);
        BlockReader reader(Disk());
        EXPECT_EQ(reader.ReadUnit(), "P0 1000");
        EXPECT_EQ(reader.ReadUnit(), "1");
    }
}

TEST_F(BlockFrames, UnitReadKnowsNoWindowAndNoFrameArea) {
    MakeDisk();
    PutFrames(0, 0, {PFrame(0, 1000, kFrameArea - 24), PFrame(1, 5000)});
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekOffs(0, OwnWindow(0, 1000, 1010)), 0);
    EXPECT_EQ(reader.ReadUnit(), "P0 1000");
    EXPECT_EQ(reader.ReadUnit(), "P1 5000"); // in the index area
}

TEST_F(BlockFrames, UnitReadThatFailsStays) {
    MakeDisk();
    PutFrames(0, 0, {PFrame(0, 1000), PFrame(0, 1001)});
    BlockReader reader(Disk());
    EXPECT_EQ(reader.ReadUnit(), "P0 1000");
    for (const auto& fate : {FailingCall(0), FailingCall(1), ShortCall(1), FailingCall(2), ShortCall(2)}) {
        const SystemCallLog log(fate);
        EXPECT_EQ(Printed([&] { EXPECT_EQ(reader.ReadUnit(), "-1"); }), "");
    }
    EXPECT_EQ(reader.ReadUnit(), "P0 1001");
}

} // namespace
