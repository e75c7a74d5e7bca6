// Bounds that no disk may break: system calls, and memory.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <new>
#include <random>

#include "damage/damaged_disk.h"
#include "damage/matrix_disk.h"
#include "damage/operations.h"
#include "format/block_geometry.h"
#include "search/search_fixture.h"
#include "support/allocations.h"

namespace {

using namespace test_support;
using disk_access::BlockGeometry;

/// Seeded disks each of a shard's two layouts; other cases than those of the tests that play and search at length.
constexpr uint32_t kSeedsALayout = 240;
constexpr uint32_t kShards = 4;
constexpr uint32_t kFirstSeed = 0x300000;

class SeededBounds : public ::testing::TestWithParam<uint32_t> {};

TEST_P(SeededBounds, HoldOnEveryDisk) {
    const BlockDeviceGuise guise;
    CallCounter counter;
    Quietly([&] {
        for (const uint32_t fmtVersion : {0u, 1u}) {
            DamagedDisk disk(fmtVersion);
            for (uint32_t i = 0; i < kSeedsALayout; i += std::min<uint32_t>(DAMAGE_STRIDE, 16)) {
                const uint32_t seed = kFirstSeed + (GetParam() * 2 + fmtVersion) * kSeedsALayout + i;
                disk.DamageWithFrames(seed);
                const PartHead_t head = disk.Head();
                Operations operations(disk.Image().Access(), head, disk.Size(), counter);
                if (head.BlkCount < 4096 || seed % 16 == 0) {
                    operations.All(seed);
                } else {
                    operations.SearchBlocks();
                    operations.Play(seed);
                }
                ASSERT_FALSE(::testing::Test::HasFailure()) << "case " << seed << ": " << disk.Story();
            }
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Shards, SeededBounds, ::testing::Range(0u, kShards));

/// A long ring in a sparse file.
class LongRing : public SearchFixture {
protected:
    static constexpr uint32_t kBlockSize = 8192;
#if DAMAGE_STRIDE == 1
    static constexpr uint32_t kBlocks = 65536; ///< all that ids can name
#else
    static constexpr uint32_t kBlocks = 8192;
#endif

    /// Makes the ring out of a short one: blocks that are not written hold zeros, and their heads no magic.
    void MakeRing() {
        Format format;
        format.blockCount = 1;
        format.blockSize = kBlockSize;
        MakeDisk(format).EditHead([](PartHead_t& head) {
            head.BlkCount = kBlocks;
            head.BBTabOffs = 0x10000;
            head.BBCounterOffs = 0x20000;
        });
        Disk().Truncate(Disk().BlockStart(kBlocks));
    }

    void RunOperations() {
        const BlockDeviceGuise guise;
        CallCounter counter;
        Operations operations(Disk().Access(), Disk().Head(), Disk().BlockStart(kBlocks), counter);
        Quietly([&] { operations.All(1); });
    }
};

TEST_F(LongRing, OfInvalidBlocksIsWalkedWithinBounds) {
    MakeRing();
    RunOperations();
}

TEST_F(LongRing, WithFewBlocksInDisorderIsWalkedWithinBounds) {
    MakeRing();
    std::mt19937 random(1);
    for (uint32_t block = 5; block < kBlocks; block += 32) {
        const auto sequence = static_cast<uint32_t>(random() % kBlocks + 1);
        const auto start = static_cast<uint32_t>(1600000000 + random() % 200000000);
        Disk().WriteBlock(block, BlockContents::Closed(sequence, start, start + 300)
                                     .Segment(0, start, start + 300, 9000)
                                     .Segment(31, start + 20, start + 200, 9000)
                                     .Event(Pts(start + 50), 1));
    }
    RunOperations();
}

/// Tables of one channel each that fill the index area: as an object goes from block to block, each of its tables
/// grows to its largest.
class HungryDisk : public SearchFixture {
protected:
    static constexpr uint32_t kBlockSize = 0x100000;
    static constexpr uint32_t kChannels = 32;
    static constexpr size_t kIndexArea = BlockGeometry::Of(kBlockSize, 0).IndexAreaSize();

    void MakeHungryDisk() {
        Format format;
        format.blockCount = kChannels + 1;
        format.blockSize = kBlockSize;
        MakeDisk(format);
        const uint32_t room = Disk().IndexCapacity() - static_cast<uint32_t>(sizeof(BlkIndexHead_t));
        for (uint32_t chn = 0; chn < kChannels; ++chn) {
            BlockContents contents = BlockContents::Closed(chn + 1, 1000 + chn * 1000, 1900 + chn * 1000);
            for (uint32_t i = 0; i < room / sizeof(RecSegItem_t); ++i) {
                contents.Segment(chn, 1000 + chn * 1000, 1900 + chn * 1000, 100);
            }
            Disk().WriteBlock(chn, contents);
        }
        BlockContents events = BlockContents::Closed(kChannels + 1, 40000, 40900).Channels(1);
        for (uint32_t i = 0; i < room / sizeof(EventIndexItem_t); ++i) {
            events.Event(Pts(40000 + i), 1);
        }
        Disk().WriteBlock(kChannels, events);
    }
};

TEST_F(HungryDisk, SearchObjectKeepsNoMoreThanItsTables) {
    MakeHungryDisk();
    size_t held = 0;
    Quietly([&] {
        PartAccess_t access = Disk().Access();
        const HeapWatch heap;
        CSearchDisk disk;
        disk.Init(&access);
        for (uint32_t unit = 0; unit <= kChannels; ++unit) {
            RecordList records;
            EventList events;
            disk.SearchUnitMedia(unit, &records, &events);
            EXPECT_GT(records.m_nCount + events.m_nCount, 300);
        }
        held = heap.Held();
        disk.Quit();
    });
    // 32 tables of segments and one of events, each of the index area at most; beside them, the objects.
    EXPECT_GT(held, 32 * (kIndexArea - 1024));
    EXPECT_LE(held, 33 * kIndexArea + 8192);
    EXPECT_LT(held, size_t{kBlockSize} / 2);
}

TEST_F(HungryDisk, ReaderHoldsOneIndexAndOnePayload) {
    MakeHungryDisk();
    size_t held = 0;
    Quietly([&] {
        PartAccess_t access = Disk().Access();
        const HeapWatch heap;
        CReadDisk disk;
        disk.Init(&access);
        const size_t before = heap.Held();
        for (uint32_t block = 0; block < kChannels; ++block) {
            RecordItem_t record = {};
            record.recId = block << 16 | block << 9;
            record.startTime = 1000 + block * 1000;
            record.endTime = 0x7FFFFFFF;
            void* const reader = disk.StartRead(0, &record);
            held = std::max(held, heap.Held() - before);
            disk.StopRead(reader);
        }
        disk.Quit();
    });
    EXPECT_GT(held, kIndexArea - 1024);
    EXPECT_LE(held, kIndexArea + 8192);
}

#if !defined(DAMAGE_NO_ADDRESS_LIMIT)

/// Bytes of address space that this process has taken.
rlim_t AddressSpace() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    EXPECT_GT(pages, 0u);
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

/// Runs a check in a child that may take @p bytes of address space more than it has.
/// @return what waitpid() says of it: 0 when the check failed nowhere
int InLittleSpace(rlim_t bytes, const std::function<void()>& check) {
    const pid_t child = fork();
    if (child == 0) {
        const rlim_t most = AddressSpace() + bytes;
        const rlimit limit = {most, most};
        setrlimit(RLIMIT_AS, &limit);
        try {
            check();
        } catch (const std::bad_alloc&) {
            _exit(2);
        }
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

TEST(LittleSpace, IsEnoughForEveryDamagedDisk) {
    for (const uint32_t fmtVersion : {0u, 1u}) {
        MatrixDisk disk(fmtVersion);
        const auto check = [&] {
            Quietly([&] {
                const BlockDeviceGuise guise;
                CallCounter counter;
                uint32_t number = 0;
                for (const FieldPlace& field : disk.Fields()) {
                    std::vector<uint8_t> held(field.bytes);
                    disk.Image().Read(field.offset, held.data(), held.size());
                    for (const std::vector<uint8_t>& value : HostileValues(held, field.numberWidth)) {
                        // The partition head's all; of the rest, some.
                        if (field.offset >= sizeof(PartHead_t) && number++ % 8 != 0) {
                            continue;
                        }
                        disk.Image().Write(field.offset, value.data(), value.size());
                        const auto head = disk.Image().Get<PartHead_t>(0);
                        Operations(disk.Image().Access(), head, disk.Size(), counter).All(number);
                        disk.Image().Write(field.offset, held.data(), held.size());
                    }
                }
            });
        };
        // Of a disk of 8 MiB, with blocks of 8 KiB. A forged ring of 65,536 blocks makes the longest list.
        EXPECT_EQ(InLittleSpace(16 << 20, check), 0);
    }
}

TEST(LittleSpace, IsTooLittleForALeak) {
    // The limit holds: a child cannot take more than it may.
    const int status = InLittleSpace(16 << 20, [] {
        const std::vector<char> all(64 << 20);
        EXPECT_EQ(all.back(), 0);
    });
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
}

#endif

} // namespace
