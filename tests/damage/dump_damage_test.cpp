// Dumps of damaged disks: whatever lies there, every dump returns, stays inside its memory, takes little of it,
// and names no more blocks than a disk can have.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "damage/damaged_disk.h"
#include "disk_access.h"
#include "host/system_calls.h"
#include "support/allocations.h"

namespace {

using namespace test_support;

constexpr uint32_t kCasesAShard = 250 / SEEDED_DISKS_DIVISOR;
constexpr uint32_t kShards = 8;
/// The cases of searches and playback have the seeds below.
constexpr uint32_t kFirstSeed = 0x200000;

/// Blocks that are believed in: a ring that ids can name, or what begins inside the device.
constexpr size_t kMostBlocks = 0x10000;

/// What a print function was given.
struct Counts {
    size_t blocks = 0;
    bool ended = false;
};

int Count(void* ctx, const char* format, ...) __attribute__((format(printf, 2, 3)));

int Count(void* ctx, const char* format, ...) {
    auto& counts = *static_cast<Counts*>(ctx);
    char piece[512];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(piece, sizeof piece, format, values);
    va_end(values);
    EXPECT_LT(length, static_cast<int>(sizeof piece));
    counts.blocks += std::strncmp(piece, "[NUM]", 5) == 0 ? 1u : 0u;
    counts.ended = counts.ended || std::strstr(piece, "BODY END") != nullptr;
    return 0;
}

class DumpDamage : public ::testing::TestWithParam<uint32_t> {
protected:
    static void Dump(const DamagedDisk& disk, int level) {
        PartAccess_t access = disk.Image().Access();
        Counts counts;
        const AllocationFaults watch;
        const int result = CPrintDisk().Print(&access, level, Count, &counts);
        EXPECT_LE(watch.Largest(), disk.Size());
        if (disk.Size() < sizeof(PartHead_t)) {
            EXPECT_EQ(result, -1);
            return;
        }
        EXPECT_TRUE(result == 0 || (result == -1 && level == 0)) << result;
        EXPECT_EQ(counts.ended, level >= 2);
        EXPECT_LE(counts.blocks, kMostBlocks);
    }
};

TEST_P(DumpDamage, EndsWellOnEveryDisk) {
    const BlockDeviceGuise guise;
    for (const uint32_t fmtVersion : {0u, 1u}) {
        DamagedDisk disk(fmtVersion);
        for (uint32_t i = 0; i < kCasesAShard / 2; ++i) {
            const uint32_t seed =
                kFirstSeed + GetParam() * kCasesAShard + fmtVersion * (kCasesAShard / 2) + i;
            disk.Damage(seed);
            for (const int level : {-1, 0, 3}) {
                Dump(disk, level);
            }
            // Of a ring forged to be long, most blocks are lines without contents: once is enough.
            if (disk.Head().BlkCount < 4096) {
                Dump(disk, 2);
            }
            ASSERT_FALSE(HasFailure()) << "case " << seed << ": " << disk.Story();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Shards, DumpDamage, ::testing::Range(0u, kShards));

} // namespace
