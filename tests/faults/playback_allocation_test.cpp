// What happens when memory is short while a disk is played: the results the interface promises, nothing lost,
// and a payload buffer that is always the caller's.

#include <algorithm>
#include <cstdlib>

#include "playback/part_fixture.h"
#include "support/allocations.h"

namespace {

using namespace test_support;

class PlaybackAllocations : public PartFixture {};

TEST_F(PlaybackAllocations, EveryFailureOfARoundLeavesNothingBehind) {
    RecordOnNewDisk(kRoundScript);
    const PartAccess_t access = Disk().Access();
    int whole = 0;
    Quietly([&] { whole = PlayRound(access).frames; });
    // The round is run with its first allocation failing, its second, and so on until none fails any more;
    // once with only that failure, once with all later ones failing too. The leak checker watches.
    for (const bool forever : {false, true}) {
        const SystemCallLog log([](const Call& call, size_t) { return PassUnflushed(call); });
        size_t failing = 0;
        for (bool reached = true; reached; ++failing) {
            RoundOutcome outcome;
            Quietly([&] {
                const AllocationFaults faults(failing, forever);
                outcome = PlayRound(access);
                reached = faults.Count() > failing;
            });
            EXPECT_EQ(outcome.wrongPayloads, 0) << failing;
            if (forever && reached) {
                EXPECT_LT(outcome.frames, whole) << failing;
            }
        }
        EXPECT_GT(failing, 80u);
        EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close));
    }
}

TEST_F(PlaybackAllocations, InitialisingThePartition) {
    PartAccess_t access = RecordOnNewDisk("I0@1000 |").Access();
    // The state, and the device handle.
    for (size_t failing = 0; failing < 2; ++failing) {
        CReadPart part;
        const SystemCallLog log;
        EXPECT_EQ(PrintedWithoutLines([&] {
                      const AllocationFaults faults(failing);
                      EXPECT_EQ(part.Init(&access), -1);
                  }),
                  failing == 0 ? "" : "dev_open : #, Failed\n");
        EXPECT_EQ(log.Calls().size(), 0u);
        EXPECT_EQ(part.GetBadBlockTab(), -1); // closed
    }
    OpenReadPart part(Disk());
    {
        const AllocationFaults faults(0);
        EXPECT_EQ(part->Init(&access), -1);
    }
    EXPECT_EQ(part->GetBadBlockTab(), -1); // closed, though it was open before
}

TEST_F(PlaybackAllocations, BadBlockTable) {
    RecordOnNewDisk("I0@1000 |").SetBad(2);
    for (size_t failing = 0; failing < 2; ++failing) {
        OpenReadPart part(Disk());
        const SystemCallLog log;
        Quietly([&] {
            const AllocationFaults faults(failing);
            EXPECT_EQ(part->GetBadBlockTab(), -1);
        });
        EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close));
        Quietly([&] {
            const AllocationFaults faults(failing);
            EXPECT_EQ(part->IsValidBlock(2, 5, 0), 1); // no table, no bad block
        });
        EXPECT_EQ(part->GetBadBlockTab(), 0);
        Quietly([&] { EXPECT_EQ(part->IsValidBlock(2, 5, 0), 0); });
    }
}

TEST_F(PlaybackAllocations, BlockThatGetsNoMemoryIsUnusable) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 |"));
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    for (const char* messages : {"OpenBlock : Failed\n", "block_open : #, Failed\nOpenBlock : #, Failed\n"}) {
        EXPECT_EQ(PrintedWithoutLines([&] {
                      const AllocationFaults faults(messages[0] == 'O' ? 0 : 1);
                      EXPECT_EQ(part->IsValidBlock(0, 5, 0), 0);
                  }),
                  messages);
    }
}

TEST_F(PlaybackAllocations, OpeningAReader) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 |"));
    RecordItem_t record = SegmentRecord(0, 0, 0, 1000);
    // The handle, and the block object.
    for (size_t failing = 0; failing < 2; ++failing) {
        EXPECT_EQ(Printed([&] {
                      const AllocationFaults faults(failing);
                      EXPECT_EQ(part->BeginReader(0, &record), nullptr);
                  }),
                  "");
    }
    PartReadHandle_st* reader = nullptr;
    EXPECT_EQ(PrintedWithoutLines([&] {
                  const AllocationFaults faults(2); // the block's state
                  reader = part->BeginReader(0, &record);
              }),
              "OpenBlock : Failed\nBeginReader BlockNum = 0, ChnType=0, (1000, 2147483647, 0, 0) \n");
    ASSERT_NE(reader, nullptr);
    FrameInfo_t info = {};
    void* payload = nullptr;
    EXPECT_EQ(part->ReadFrame(reader, &info, &payload), -1);
    EXPECT_EQ(part->EndReader(reader), 0);
}

TEST_F(PlaybackAllocations, InitialisingTheFacade) {
    PartAccess_t access = RecordOnNewDisk("I0@1000 |").Access();
    for (size_t failing = 0; failing < 2; ++failing) { // the state, the partition object
        CReadDisk disk;
        {
            const AllocationFaults faults(failing);
            EXPECT_EQ(disk.Init(&access), -1);
        }
        EXPECT_EQ(disk.Quit(), -1);
        EXPECT_EQ(disk.Init(&access), 0);
        EXPECT_EQ(disk.Quit(), 0);
    }
    CReadDisk disk;
    {
        const AllocationFaults faults(2);
        EXPECT_EQ(disk.Init(&access), 0); // a partition object that cannot open does not fail it
    }
    void* const reader = disk.StartUnitRead(0);
    FrameInfo_t info = {};
    void* payload = nullptr;
    EXPECT_EQ(disk.ReadUnitFrame(reader, &info, &payload), -1);
    EXPECT_EQ(disk.StopUnitRead(reader), 0);
    EXPECT_EQ(disk.Quit(), 0);
}

TEST_F(PlaybackAllocations, OpeningAReaderOfTheFacade) {
    OpenReadDisk disk(RecordOnNewDisk("I0@1000 P0@1001 |"));
    RecordItem_t record = SegmentRecord(0, 0, 0, 1000);
    {
        const AllocationFaults faults(0);
        EXPECT_EQ(disk->StartRead(0, &record), nullptr);
    }
    {
        const AllocationFaults faults(0);
        EXPECT_EQ(disk->StartUnitRead(0), nullptr);
    }
    // The facade's handle is there, the partition's is not.
    void* reader = nullptr;
    {
        const AllocationFaults faults(1);
        reader = disk->StartRead(0, &record);
    }
    ASSERT_NE(reader, nullptr);
    FrameInfo_t info = {};
    void* payload = nullptr;
    EXPECT_EQ(disk->ReadFrame(reader, &info, &payload), -1);
    EXPECT_EQ(disk->StopRead(reader), 0);
}

TEST_F(PlaybackAllocations, PayloadThatGetsNoMemoryLeavesBufferAndPlace) {
    OpenReadDisk disk(RecordOnNewDisk("I0@1000:40 P0@1001:4000 |"));
    RecordItem_t record = SegmentRecord(0, 0, 0, 1000);
    void* reader = nullptr;
    Quietly([&] { reader = disk->StartRead(0, &record); });
    FrameInfo_t info = {};
    void* payload = nullptr;
    EXPECT_EQ(disk->ReadFrame(reader, &info, &payload), 0);
    void* const before = payload;
    const FrameInfo_t first = info;
    for (const auto read : {&CReadDisk::ReadFrame, &CReadDisk::ReadUnitFrame}) {
        const AllocationFaults faults(0);
        EXPECT_EQ(((*disk).*read)(reader, &info, &payload), -1);
        EXPECT_EQ(payload, before);
        EXPECT_TRUE(PayloadFits(first, payload));
    }
    EXPECT_EQ(disk->ReadFrame(reader, &info, &payload), 0);
    EXPECT_EQ(info.len, 4000u);
    EXPECT_TRUE(PayloadFits(info, payload));
    std::free(payload);
    disk->StopRead(reader);
}

TEST_F(PlaybackAllocations, ContinuationThatGetsNoMemoryEnds) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 | P0@1001 I0@1002 |"));
    // Without a failure, a crossing continues; with one, it ends there or, if only the table is missing,
    // continues.
    size_t wentOn = 0;
    size_t allocations = 1;
    for (size_t failing = 0; failing < allocations; ++failing) {
        PartPlayer player(*part, 0, SegmentRecord(0, 0, 0, 1000));
        EXPECT_EQ(player.Frame(), "I0@1000");
        FrameInfo_t info = {};
        void* payload = nullptr;
        int result = 0;
        Quietly([&] {
            const AllocationFaults faults(failing);
            result = part->ReadFrame(player.Handle(), &info, &payload);
            allocations = std::max(allocations, faults.Count());
        });
        EXPECT_TRUE(result == 0 || result == 1 || result == -1) << failing;
        wentOn += result == 0 ? 1u : 0u;
        std::free(payload);
    }
    EXPECT_GT(allocations, 8u);
    EXPECT_GT(wentOn, 0u);
    EXPECT_LT(wentOn, allocations);
}

} // namespace
