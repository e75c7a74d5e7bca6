// The block reader when memory is short.

#include <cstdlib>
#include <cstring>

#include "playback/playback_fixture.h"
#include "support/allocations.h"

namespace {

using namespace test_support;

class BlockReaderAllocations : public PlaybackFixture {
protected:
    /// Makes block 0 a recording that was never closed.
    void MakeOpenRecording() {
        MakeDisk();
        WriteRecording(0);
        Disk().Change<BlockTail_t>(Disk().TailOffset(0), [](BlockTail_t& tail) { tail.RecSeq = 9; });
    }
};

TEST_F(BlockReaderAllocations, Opening) {
    MakeDisk();
    WriteRecording(0);
    PartAccess_t access = Disk().Access();
    const auto open = [&](size_t failing) {
        CReadBlock reader;
        const SystemCallLog log;
        std::string said = PrintedWithoutLines([&] {
            const AllocationFaults faults(failing);
            EXPECT_EQ(reader.OpenBlock(0, 0x10000, &access, 0, 1), -1);
        });
        EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close));
        EXPECT_EQ(reader.CloseBlock(), -1);
        EXPECT_EQ(reader.GetBlockInfo(nullptr, nullptr), -1);
        return said;
    };
    // The state, the window, two I-frame and two segment tables, the cursor.
    EXPECT_EQ(open(0), "OpenBlock : Failed\n");
    EXPECT_EQ(open(1), "block_open : #, Failed\nOpenBlock : #, Failed\n");
    EXPECT_EQ(open(6), "");
}

TEST_F(BlockReaderAllocations, IndexTables) {
    MakeDisk();
    WriteRecording(0);
    PartAccess_t access = Disk().Access();
    for (size_t failing = 2; failing < 6; ++failing) {
        CReadBlock reader;
        EXPECT_EQ(Printed([&] {
                      const AllocationFaults faults(failing);
                      EXPECT_EQ(reader.OpenBlock(0, 0x10000, &access, 0, 1), 0);
                  }),
                  "");
        RecordItem_t record = Record(0, 0);
        RecSegItem_t segment = {};
        EXPECT_EQ(reader.GetRecSegInfo(&record, &segment), -1);
        EXPECT_EQ(segment.e, 1600u); // the substitute
        Quietly([&] { EXPECT_EQ(reader.SeekTime(0, &record, 1000), -1); });
        EXPECT_EQ(reader.ReadBlockIndex(), 0);
        EXPECT_EQ(reader.GetRecSegInfo(&record, &segment), 0);
        reader.CloseBlock();
    }
    BlockReader reader(Disk());
    const AllocationFaults faults(3);
    EXPECT_EQ(reader->ReadBlockIndex(), -1);
    EXPECT_EQ(reader->GetBlockIndex(0), 0);
}

TEST_F(BlockReaderAllocations, TablesThatCannotBeGetNoMemory) {
    MakeDisk();
    WriteRecording(0);
    for (const uint32_t count : {0x10000001u, 0xFFFFFFFFu, 0x01000000u}) {
        Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(0),
                                      [&](BlkIndexHead_t& index) { index.iframeCount[0] = count; });
        const AllocationFaults faults;
        const BlockReader reader(Disk());
        EXPECT_LT(faults.Largest(), 0x10000u);
    }
}

TEST_F(BlockReaderAllocations, FramesThatFindNoMemoryInARebuildAreLeftOut) {
    MakeOpenRecording();
    {
        BlockReader reader(Disk());
        const AllocationFaults faults(0, true);
        EXPECT_EQ(reader->RebuiltBlockIndex(), 0);
        BlockTail_t tail = {};
        reader->GetBlockInfo(nullptr, &tail);
        EXPECT_EQ(tail.EndTime, 1010u); // the walk went on
    }
    // P0 1000 begins a segment, I0 1000 is an I-frame; then channel 1 has I-frame and segment.
    BlockReader reader(Disk());
    {
        const AllocationFaults faults(0);
        EXPECT_EQ(reader->RebuiltBlockIndex(), 0);
    }
    EXPECT_EQ(reader.Segments(),
              (Lines{"0/0 1000-1010 at 100-996, 576 bytes", "1/0 1001-1007 at 200-796, 288 bytes"}));
    BlockReader other(Disk());
    {
        const AllocationFaults faults(1);
        EXPECT_EQ(other->RebuiltBlockIndex(), 0);
    }
    EXPECT_EQ(other.IFrames(0), (Lines{"1004000000 at 500", "1008000000 at 800"}));
}

TEST_F(BlockReaderAllocations, OnlyEventsForTheIndexGetMemory) {
    MakeDisk();
    Disk().WriteBlock(0, BlockContents::Open(1, 1000));
    const auto allocations = [&](uint8_t indexed) {
        PutEvent(0, 0, Frame(4, 0, 1000), 1, indexed);
        PutEvent(0, 100, Frame(4, 31, 1), 2, indexed);
        PutHead(0, 200, EndMark());
        BlockReader reader(Disk());
        const AllocationFaults faults;
        EXPECT_EQ(reader->RebuiltBlockIndex(), 0);
        return std::pair{faults.Count(), faults.Largest()};
    };
    EXPECT_EQ(allocations(1), std::pair(size_t{2}, size_t{48})); // an entry of 24 bytes each
    for (const uint8_t indexed : {uint8_t{0}, uint8_t{2}, uint8_t{255}}) {
        EXPECT_EQ(allocations(indexed).first, 0u);
    }
    PutEvent(0, 0, Frame(4, 0, 1000), 1, 1);
    BlockReader reader(Disk());
    const AllocationFaults faults(0, true);
    EXPECT_EQ(reader->RebuiltBlockIndex(), 0); // and they can be left out
}

TEST_F(BlockReaderAllocations, PayloadsThatGetNoMemoryLeaveBufferAndPosition) {
    MakeDisk();
    WriteRecording(0);
    const auto next = &CReadBlock::ReadFrame;
    const auto unit = &CReadBlock::ReadBlockFrame;
    for (const auto read : {next, unit}) {
        BlockReader reader(Disk());
        EXPECT_EQ(reader.SeekOffs(0, WholeBlock()), 0);
        void* const buffer = std::malloc(4);
        std::memcpy(buffer, "abc", 4);
        reader.Payload() = buffer;
        FrameHead_t head = {};
        const SystemCallLog log;
        EXPECT_EQ(Printed([&] {
                      const AllocationFaults faults(0);
                      EXPECT_EQ((reader.operator->()->*read)(&head, &reader.Payload()), -1);
                  }),
                  "");
        EXPECT_EQ(log.Count(CallKind::Read), 1u);
        EXPECT_EQ(reader.Payload(), buffer);
        EXPECT_STREQ(static_cast<char*>(buffer), "abc");
        EXPECT_EQ(reader.Read(), "P0 1000");
    }
}

TEST_F(BlockReaderAllocations, PayloadGetsExactlyItsLength) {
    MakeDisk();
    PutFrames(0, 0, {Data(0, 1000, 5000), Data(0, 1001, 77)});
    PutHead(0, 5125, Data(0, 1002, 0x7FFFFFFF));
    BlockReader reader(Disk());
    for (const uint32_t len : {5000u, 77u}) {
        FrameHead_t head = {};
        const AllocationFaults faults;
        EXPECT_EQ(reader->ReadFrame(&head, &reader.Payload()), 0);
        EXPECT_EQ(faults.Count(), 1u);
        EXPECT_EQ(faults.Largest(), len);
    }
    // For what cannot be in the block, none is allocated.
    FrameHead_t head = {};
    const AllocationFaults faults;
    EXPECT_EQ(reader->ReadFrame(&head, &reader.Payload()), -1);
    EXPECT_EQ(reader->ReadBlockFrame(&head, &reader.Payload()), -1);
    EXPECT_EQ(faults.Count(), 0u);
}

TEST_F(BlockReaderAllocations, StepsWithoutMemory) {
    MakeDisk();
    WriteRecording(0);
    BlockReader reader(Disk());
    EXPECT_EQ(reader.SeekTime(0, Record(0, 0), 1000), 0);
    FrameHead_t head = {};
    {
        const AllocationFaults faults(0); // for the frame that is due
        EXPECT_EQ(reader->ReadNextIFrame(&head, &reader.Payload()), -1);
    }
    {
        const AllocationFaults faults(1); // for the I-frame
        EXPECT_EQ(reader->ReadNextIFrame(&head, &reader.Payload()), -1);
    }
    EXPECT_EQ(reader.Next(), "I0 1008"); // the position had moved
}

} // namespace
