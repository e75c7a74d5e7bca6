#include "playback/playback_fixture.h"

#include <cstdlib>
#include <utility>

namespace {

using namespace test_support;

class BlockIndexLoad : public PlaybackFixture {
protected:
    static Lines NoLines() { return {}; }

    /// The calls that opening block 0 makes after those for its head and tail.
    Lines IndexCalls(int rebuild = 0) {
        const SystemCallLog log;
        const BlockReader reader(Disk(), 0, rebuild);
        Lines calls = CallsInBlock(log, Disk(), 0);
        calls.erase(calls.begin(), calls.begin() + (Disk().Extended() ? 7 : 6));
        return calls;
    }

    /// Changes the head of the index area of block 0.
    template <typename Edit>
    void EditIndexHead(Edit edit) {
        Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(0), edit);
    }

    void EditHead(uint32_t block, uint32_t validFlag, uint32_t recSeq) {
        Disk().Change<BlockHead_t>(Disk().HeadOffset(block), [&](BlockHead_t& head) {
            head.ValidFlag = validFlag;
            head.RecSeq = recSeq;
        });
    }

    void SetTailNumber(uint32_t recSeq) {
        Disk().Change<BlockTail_t>(Disk().TailOffset(0), [&](BlockTail_t& tail) { tail.RecSeq = recSeq; });
    }
};

const char* const kSegment0 = "0/0 1000-1010 at 0-996, 996 bytes";
const char* const kSegment1 = "1/0 1001-1007 at 200-796, 596 bytes";

TEST_F(BlockIndexLoad, OneSeekAndOneReadATable) {
    MakeDisk();
    WriteRecording(0);
    Disk().WriteIndex(0, BlockContents::Closed(1, 1000, 1010)
                             .IFrame(0, Pts(1000), 100)
                             .IFrame(0, Pts(1004), 500)
                             .IFrame(0, Pts(1008), 800)
                             .IFrame(1, Pts(1001), 200)
                             .IFrame(1, Pts(1007), 700)
                             .Segment(0, 1000, 1010, 996)
                             .Segment(1, 1001, 1007, 596, 200)
                             .Event(Pts(1003), 4)
                             .Event(Pts(1005), 8));
    // 260 bytes of head, 3 and 2 I-frames of 16, two segments of 20, two events of 24.
    EXPECT_EQ(IndexCalls(), (Lines{"seek 61440", "read 260 at 61440", "seek 61700", "read 48 at 61700",
                                   "seek 61748", "read 32 at 61748", "seek 61780", "read 20 at 61780",
                                   "seek 61800", "read 20 at 61800", "seek 61820", "read 48 at 61820"}));
    BlockReader reader(Disk());
    EXPECT_EQ(reader.Segments(), (Lines{kSegment0, kSegment1}));
    EXPECT_EQ(reader.IFrames(0), (Lines{"1000000000 at 100", "1004000000 at 500", "1008000000 at 800"}));
    EXPECT_EQ(reader.IFrames(1), (Lines{"1001000000 at 200", "1007000000 at 700"}));
}

TEST_F(BlockIndexLoad, ExtendedLayout) {
    MakeExtendedDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.Segments(), (Lines{kSegment0, kSegment1}));
    EXPECT_EQ(reader.IFrames(1), (Lines{"1001000000 at 200", "1007000000 at 700"}));
}

TEST_F(BlockIndexLoad, FirstAndLastChannel) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Closed(1, 1000, 1010)
                             .Segment(0, 1000, 1010, 1)
                             .Segment(31, 1001, 1002, 2)
                             .Segment(31, 1003, 1004, 3));
    BlockReader reader(Disk());
    EXPECT_EQ(reader.Segments(), (Lines{"0/0 1000-1010 at 0-1, 1 bytes", "31/0 1001-1002 at 0-2, 2 bytes",
                                        "31/1 1003-1004 at 0-3, 3 bytes"}));
}

TEST_F(BlockIndexLoad, ChannelThatIsNotPresentHasNoTables) {
    MakeDisk();
    WriteRecording(0);
    // Channels 2 and 8 state entries that were never written: no space is skipped for them.
    EditIndexHead([](BlkIndexHead_t& index) {
        index.iframeCount[2] = 7;
        index.recSegCount[2] = 5;
        index.iframeCount[8] = 0xFFFFFFFF;
        index.recSegCount[8] = 0xFFFFFFFF;
    });
    EXPECT_EQ(IndexCalls(), (Lines{"seek 61440", "read 260 at 61440", "seek 61700", "read 48 at 61700",
                                   "seek 61748", "read 32 at 61748", "seek 61780", "read 20 at 61780",
                                   "seek 61800", "read 20 at 61800"}));
    BlockReader reader(Disk());
    EXPECT_EQ(reader.Segments(), (Lines{kSegment0, kSegment1}));
    // What their counts say is not believed anywhere.
    RecordItem_t record = Record(2, 1);
    EXPECT_EQ(PrintedWithoutLines([&] {
                  EXPECT_EQ(reader->SeekTime(0, &record, 0), -1);
                  EXPECT_EQ(reader->SeekTime(1, &record, 0), -1); // no channel has a segment 1
                  EXPECT_EQ(reader->SeekOffs(0, &record, 0, 0), -1);
                  EXPECT_EQ(reader->SeekOffs(1, &record, 0, 0), -1);
              }),
              "SeekTime, # : chn = 2 , fail\nSeekTime, # : fail\nSeekOffs, # : fail\nSeekOffs, # : fail\n");
    EXPECT_EQ(reader.SeekOffs(0, WholeBlock(2)), -1);
    EXPECT_EQ(reader->GetIFrameIndex(), -1);
    RecSegItem_t segment = {};
    EXPECT_EQ(reader->GetRecSegInfo(&record, &segment), -1);
    EXPECT_EQ(segment.e, 1600u); // the substitute
}

TEST_F(BlockIndexLoad, TableOfAChannelThatIsNoLongerPresentIsNotLoaded) {
    MakeDisk();
    WriteRecording(0);
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [](BlockHead_t& head) { head.media_chn_bitmap = 2; });
    // Channel 1's tables are then taken from where channel 0's lie.
    EXPECT_EQ(IndexCalls(), (Lines{"seek 61440", "read 260 at 61440", "seek 61700", "read 32 at 61700",
                                   "seek 61732", "read 20 at 61732"}));
}

TEST_F(BlockIndexLoad, BlockThatWasNeverRecordedOrIsInvalid) {
    MakeDisk();
    WriteRecording(0);
    for (const auto& [validFlag, recSeq] :
         {std::pair{BLOCK_MAGIC, 0u}, {0xAA55AA50u, 1u}, {0u, 1u}, {0xFFFFFFFFu, 0u}}) {
        EditHead(0, validFlag, recSeq);
        SetTailNumber(recSeq);
        EXPECT_EQ(IndexCalls(1), NoLines());
        BlockReader reader(Disk(), 0, 1);
        EXPECT_EQ(reader.Segments(), NoLines());
        const SystemCallLog log;
        EXPECT_EQ(reader->GetBlockIndex(0), -1);
        EXPECT_EQ(reader->GetBlockIndex(1), -1);
        EXPECT_EQ(log.Calls().size(), 0u);
    }
}

TEST_F(BlockIndexLoad, IncompleteBlockHasEmptyTablesUnlessItIsRebuilt) {
    MakeDisk();
    WriteRecording(0);
    SetTailNumber(9);
    for (const int rebuild : {0, 2, -1}) {
        EXPECT_EQ(IndexCalls(rebuild), NoLines());
        BlockReader reader(Disk(), 0, rebuild);
        EXPECT_EQ(reader->GetBlockIndex(rebuild), 0);
        EXPECT_EQ(reader.Segments(), NoLines());
        BlockTail_t tail = {};
        reader->GetBlockInfo(nullptr, &tail);
        EXPECT_EQ(tail.RecSeq, 9u);
    }
    BlockReader reader(Disk(), 0, 1);
    // As the recorder counts, a frame of 76 bytes adds 96; its end leaves the last 4 out. Channel 0: seven
    // frames, the last at 900; channel 1: three, the last at 700.
    EXPECT_EQ(reader.Segments(),
              (Lines{"0/0 1000-1010 at 0-996, 672 bytes", "1/0 1001-1007 at 200-796, 288 bytes"}));
    EXPECT_EQ(reader.IFrames(0), (Lines{"1000000000 at 100", "1004000000 at 500", "1008000000 at 800"}));
}

TEST_F(BlockIndexLoad, ExtendedTailVouchesForTheIndex) {
    MakeExtendedDisk();
    WriteRecording(0);
    SetTailNumber(9);
    {
        BlockReader reader(Disk(), 0, 1);
        EXPECT_EQ(reader.Segments(), (Lines{kSegment0, kSegment1})); // loaded, not rebuilt
    }
    SetTailNumber(1);
    Disk().Change<BlockTailEx_t>(Disk().TailExOffset(0), [](BlockTailEx_t& tail) { tail.RecSeq = 9; });
    {
        BlockReader reader(Disk());
        EXPECT_EQ(reader.Segments(), (Lines{kSegment0, kSegment1}));
    }
    SetTailNumber(9);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.Segments(), NoLines());
}

TEST_F(BlockIndexLoad, NothingBehindTheNormalTailVouches) {
    MakeDisk();
    WriteRecording(0);
    SetTailNumber(9);
    EditHead(1, 1, 1); // the next block's head begins with this block's number
    BlockReader reader(Disk());
    EXPECT_EQ(reader.Segments(), NoLines());
}

TEST_F(BlockIndexLoad, EveryFailureLeavesTheBlockOpenWithEmptyTables) {
    MakeDisk();
    WriteRecording(0);
    EditIndexHead([](BlkIndexHead_t& index) { index.eventCount = 1; });
    PartAccess_t access = Disk().Access();
    // Seek and read of the index head, two I-frame, two segment tables, the event table; from call 6 on.
    for (size_t call = 6; call < 6 + 12; ++call) {
        for (const auto& fate : {FailingCall(call), ShortCall(call)}) {
            CReadBlock reader;
            RecordItem_t record = Record(0, 0);
            RecSegItem_t segment = {};
            bool failed = false;
            {
                const SystemCallLog log([&](const Call& made, size_t index) {
                    const Fate result = fate(made, index);
                    failed = failed || result.kind != Fate::Pass;
                    return result;
                });
                EXPECT_EQ(Printed([&] { EXPECT_EQ(reader.OpenBlock(0, 0x10000, &access, 0, 1), 0); }), "");
            }
            if (failed) { // a seek cannot be short
                EXPECT_EQ(reader.GetRecSegInfo(&record, &segment), -1);
                EXPECT_EQ(Describe(segment), "1000-1600 at 0-0, 268435456 bytes");
                Quietly([&] {
                    EXPECT_EQ(reader.SeekTime(0, &record, 1000), -1);
                    EXPECT_EQ(reader.SeekTime(1, &record, 1000), -1);
                    EXPECT_EQ(reader.SeekOffs(1, &record, 0, 0), -1);
                });
                FrameHead_t head = {};
                void* payload = nullptr;
                EXPECT_EQ(reader.ReadFrame(&head, &payload), 0); // frames need no index
                EXPECT_EQ(Describe(head), "P0 1000");
                std::free(payload);
            }
            EXPECT_EQ(reader.ReadBlockIndex(), 0);
            EXPECT_EQ(reader.GetRecSegInfo(&record, &segment), 0);
            EXPECT_EQ(reader.CloseBlock(), 0);
        }
    }
}

TEST_F(BlockIndexLoad, FailedLoadIsReported) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader->GetBlockIndex(0), 0);
    for (const size_t call : {0u, 1u, 2u, 3u, 6u, 9u}) {
        const SystemCallLog log(FailingCall(call));
        EXPECT_EQ(Printed([&] { EXPECT_EQ(reader->ReadBlockIndex(), -1); }), "");
        EXPECT_EQ(reader.Segments(), NoLines());
        EXPECT_EQ(reader->GetBlockIndex(0), 0); // the calls that follow pass
        EXPECT_EQ(reader.Segments(), (Lines{kSegment0, kSegment1}));
    }
    const SystemCallLog log(FailingCall(0));
    EXPECT_EQ(reader->GetBlockIndex(1), -1);
    EXPECT_EQ(reader.Segments(), NoLines());
}

TEST_F(BlockIndexLoad, LoadingDoesNotAskWhetherTheBlockIsComplete) {
    MakeDisk();
    WriteRecording(0);
    SetTailNumber(9);
    BlockReader reader(Disk());
    EXPECT_EQ(reader->ReadBlockIndex(), 0);
    EXPECT_EQ(reader.Segments(), (Lines{kSegment0, kSegment1}));
}

TEST_F(BlockIndexLoad, TablesMayReachTheEndOfTheBlock) {
    MakeDisk();
    WriteRecording(0);
    // From 61440 + 260 to 65536 there are 3836 bytes: an I-frame of 16 and 191 segments of 20.
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [](BlockHead_t& head) { head.media_chn_bitmap = 1; });
    const auto count = [&](uint32_t iframes, uint32_t segments, uint32_t events) {
        EditIndexHead([&](BlkIndexHead_t& index) {
            index.iframeCount[0] = iframes;
            index.recSegCount[0] = segments;
            index.eventCount = events;
        });
        BlockReader reader(Disk());
        return reader.Segments().size();
    };
    EXPECT_EQ(count(1, 191, 0), 191u);
    EXPECT_EQ(count(1, 192, 0), 0u);
    EXPECT_EQ(count(2, 191, 0), 0u);
    EXPECT_EQ(count(1, 191, 1), 0u);
    EXPECT_EQ(count(0, 1, 159), 1u); // 20 + 159 * 24 = 3836
    EXPECT_EQ(count(0, 1, 160), 0u);
}

TEST_F(BlockIndexLoad, CountsWhoseTablesCannotBeAreRefusedBeforeAnythingIsRead) {
    MakeDisk();
    WriteRecording(0);
    const Lines headAlone = {"seek 61440", "read 260 at 61440"};
    // In 32 bits, 0x10000001 * 16 = 16, 0x0CCCCCCD * 20 = 4 and 0x0AAAAAAB * 24 = 8.
    for (const uint32_t count : {0x10000001u, 0x10000000u, 0xFFFFFFFFu, 0x01000000u, 4096u}) {
        EditIndexHead([&](BlkIndexHead_t& index) { index.iframeCount[0] = count; });
        EXPECT_EQ(IndexCalls(), headAlone);
    }
    EditIndexHead([](BlkIndexHead_t& index) { index = {}; });
    for (const uint32_t count : {0x0CCCCCCDu, 0xFFFFFFFFu, 192u}) {
        EditIndexHead([&](BlkIndexHead_t& index) { index.recSegCount[0] = count; });
        EXPECT_EQ(IndexCalls(), headAlone);
    }
    EditIndexHead([](BlkIndexHead_t& index) { index = {}; });
    for (const uint32_t count : {0x0AAAAAABu, 0xFFFFFFFFu, 160u}) {
        EditIndexHead([&](BlkIndexHead_t& index) { index.eventCount = count; });
        EXPECT_EQ(IndexCalls(), headAlone);
        BlockReader reader(Disk());
        EXPECT_EQ(reader->GetBlockIndex(1), -1);
        EXPECT_EQ(reader.SeekTime(1, Record(0, 0), 0), -1);
    }
}

TEST_F(BlockIndexLoad, CountsOfATableThatIsMissingGiveWayToARebuild) {
    MakeDisk();
    WriteRecording(0);
    EditIndexHead([](BlkIndexHead_t& index) { index.eventCount = 0xFFFFFFFF; });
    BlockReader reader(Disk());
    EXPECT_EQ(reader.Segments(), NoLines());
    // Three I-frames and a segment of channel 0 were counted, and none is held.
    EXPECT_EQ(reader->RebuiltBlockIndex(), 0);
    EXPECT_EQ(reader.Segments(),
              (Lines{"0/0 1000-1010 at 0-996, 672 bytes", "1/0 1001-1007 at 200-796, 288 bytes"}));
    EXPECT_EQ(reader.IFrames(0), (Lines{"1000000000 at 100", "1004000000 at 500", "1008000000 at 800"}));
}

} // namespace
