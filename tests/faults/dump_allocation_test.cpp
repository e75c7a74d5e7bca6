// Dumps when memory is short, and what a forgery makes them allocate.

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "dump/dump_fixture.h"
#include "support/allocations.h"

namespace {

using namespace test_support;

class DumpAllocations : public DumpFixture {
protected:
    struct Outcome {
        int result;
        std::string text;
        size_t allocations;
        size_t largest;
    };

    /// Dumps with the allocation @p failing and, if @p forever, all after it failing. The collected text is
    /// made room for beforehand: its own memory is not at stake.
    Outcome DumpFailing(int level, size_t failing, bool forever = false) {
        PartAccess_t access = Disk().Access();
        Text text;
        const AllocationFaults faults(failing, forever);
        const int result = CPrintDisk().Print(&access, level, Append, &text);
        return {result, text.chars, faults.Count(), faults.Largest()};
    }

private:
    struct Text {
        char chars[0x4000] = "";
        size_t length = 0;
    };

    __attribute__((format(printf, 2, 3))) static int Append(void* ctx, const char* format, ...) {
        auto& text = *static_cast<Text*>(ctx);
        va_list values;
        va_start(values, format);
        const int length =
            std::vsnprintf(text.chars + text.length, sizeof text.chars - text.length, format, values);
        va_end(values);
        text.length = std::min(text.length + static_cast<size_t>(length), sizeof text.chars - 1);
        return length;
    }
};

TEST_F(DumpAllocations, OnlyTablesTakeMemory) {
    MakeSample();
    EXPECT_EQ(DumpFailing(-1, AllocationFaults::kNone).allocations, 0u);
    EXPECT_EQ(DumpFailing(1, AllocationFaults::kNone).allocations, 0u);
    EXPECT_EQ(DumpFailing(2, AllocationFaults::kNone).allocations, 0u);
    // A byte for five bits, and five counters.
    const Outcome tables = DumpFailing(0, AllocationFaults::kNone);
    EXPECT_EQ(tables.allocations, 2u);
    EXPECT_EQ(tables.largest, 5u);
    // Block 0's three segments of 20 bytes serve for its two events of 24 and for block 3's one.
    const Outcome detail = DumpFailing(3, AllocationFaults::kNone);
    EXPECT_EQ(detail.allocations, 1u);
    EXPECT_EQ(detail.largest, 60u);
}

TEST_F(DumpAllocations, BadBlockTablesThatGetNoMemory) {
    MakeSample();
    const Outcome whole = DumpFailing(0, AllocationFaults::kNone);
    for (const size_t failing : {0u, 1u}) {
        const Outcome outcome = DumpFailing(0, failing);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.text,
                  whole.text.substr(0, whole.text.find(failing == 0 ? "BadBlockTab:" : "PossibleBBTab:")));
    }
}

TEST_F(DumpAllocations, ABlockWhoseTableGetsNoMemoryIsSkipped) {
    MakeSample();
    const Lines whole = Pieces(DumpFailing(3, AllocationFaults::kNone).text);
    const Outcome outcome = DumpFailing(3, 0);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.allocations, 2u); // the next table that is needed tries again
    const Lines left = Pieces(outcome.text);
    ASSERT_EQ(left.size(), whole.size());
    EXPECT_EQ(left[1], whole[1].substr(0, whole[1].find("Rec Seg")));
    for (size_t piece = 2; piece < whole.size(); ++piece) {
        EXPECT_EQ(left[piece], whole[piece]) << piece;
    }
}

TEST_F(DumpAllocations, ABufferThatCannotGrowIsGivenUp) {
    // One event in block 0, two segments in block 1, one event in blocks 2 and 3: the buffer is to grow in
    // block 1.
    MakeDisk(4);
    for (uint32_t block = 0; block < 4; ++block) {
        BlockContents contents = BlockContents::Closed(block + 1, 10, 20);
        if (block == 1) {
            contents.Segment(0, 10, 12, 5).Segment(0, 13, 20, 5);
        } else {
            contents.Event(block, 1);
        }
        Disk().WriteBlock(block, contents);
    }
    const Lines whole = Pieces(DumpFailing(3, AllocationFaults::kNone).text);
    const Outcome once = DumpFailing(3, 1);
    EXPECT_EQ(once.result, 0);
    EXPECT_EQ(once.allocations, 3u); // block 2 starts with no buffer
    const Lines left = Pieces(once.text);
    EXPECT_EQ(left[1], whole[1]);
    EXPECT_EQ(left[2], whole[2].substr(0, whole[2].find("Rec Seg")));
    EXPECT_EQ(left[3], whole[3]);
    EXPECT_EQ(left[4], whole[4]);

    const Lines never = Pieces(DumpFailing(3, 1, true).text);
    EXPECT_EQ(never[1], whole[1]);
    EXPECT_EQ(never[3], whole[3].substr(0, whole[3].find("Event")));
    EXPECT_EQ(never[4], whole[4].substr(0, whole[4].find("Event")));
}

TEST_F(DumpAllocations, NothingIsAllocatedForTablesBeyondTheDevice) {
    MakeSample().EditHead([](PartHead_t& head) { head.BlkCount = 0xFFFFFFFF; });
    EXPECT_EQ(DumpFailing(0, AllocationFaults::kNone).allocations, 0u);
    Disk().EditHead([](PartHead_t& head) {
        head.BlkCount = 5;
        head.BBTabOffs = 0xFFFFFF00;
    });
    EXPECT_EQ(DumpFailing(0, AllocationFaults::kNone).allocations, 0u);
    // Bits of 512 blocks take 64 bytes, of which the device has 63.
    Disk().EditHead([this](PartHead_t& head) {
        head.BlkCount = 512;
        head.BBTabOffs = static_cast<uint32_t>(Disk().BlockStart(5) - 63);
    });
    EXPECT_EQ(DumpFailing(0, AllocationFaults::kNone).allocations, 0u);
}

TEST_F(DumpAllocations, NothingIsAllocatedForTablesBeyondABlock) {
    for (const uint32_t count : {0x0CCCCCCDu, 0x10000000u, 0xFFFFFFFFu}) {
        MakeDisk(1).WriteBlock(0, BlockContents::Closed(1, 10, 20));
        Disk().Change<BlkIndexHead_t>(Disk().IndexOffset(0), [=](auto& index) {
            index.recSegCount[0] = count;
            index.eventCount = count;
        });
        EXPECT_EQ(DumpFailing(3, AllocationFaults::kNone).allocations, 0u);
        std::remove(Disk().Path().c_str());
    }
}

TEST_F(DumpAllocations, NothingIsAllocatedForTheTablesOfAHugeBlockBeyondTheDevice) {
    // A block of nearly 4 GiB on a device that ends with its index head: 800,000 segments would fit the 16 MiB of
    // its index area.
    MakeDisk(1).WriteBlock(0, BlockContents::Closed(1, 10, 20));
    Disk().EditHead([](PartHead_t& head) { head.BlkSize = 0xFFFFF000; });
    const uint64_t indexStart = Disk().IndexOffset(0);
    BlkIndexHead_t index = {};
    index.recSegCount[0] = 800000;
    Disk().Truncate(indexStart + sizeof index);
    Disk().Put(indexStart, index);
    const Outcome outcome = DumpFailing(3, AllocationFaults::kNone);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.allocations, 0u);
    EXPECT_EQ(outcome.text.find("Rec Seg"), std::string::npos);
}

} // namespace
