// Playback of damaged disks: whatever lies there, every call returns, delivers nothing that does not lie within
// its block, stays inside its memory, and takes little of it and of the device's time.

#include <algorithm>
#include <cstdlib>

#include "damage/damaged_disk.h"
#include "search/search_fixture.h"
#include "support/allocations.h"

namespace {

using namespace test_support;

constexpr uint32_t kCasesAShard = 2500 / SEEDED_DISKS_DIVISOR;
constexpr uint32_t kShards = 8;
/// The search's cases have the seeds below.
constexpr uint32_t kFirstSeed = 0x100000;

/// The most that one allocation may take: tables of a ring that ids can name, or what a block can hold.
constexpr size_t kLargestAllocation = 0x10000;

/// What a case may cost, from the partition head as it lies on the disk.
class Limits {
public:
    Limits(const PartHead_t& head, uint64_t deviceSize)
        : m_blkSize(head.BlkSize),
          m_headsABlock(static_cast<size_t>(std::min<uint64_t>(head.BlkSize, deviceSize) / 24 + 2)) {
        // Smaller ones do not hold their own head and index, and are not opened.
        if (head.BlkSize >= 0x1000 && deviceSize > BLOCK_BASE_OFFSET) {
            const uint64_t inside = (deviceSize - BLOCK_BASE_OFFSET) / head.BlkSize + 1;
            m_blocks = static_cast<size_t>(std::min<uint64_t>(head.BlkCount, inside));
        }
    }
    uint32_t LongestFrame() const { return m_blkSize; }
    /// The frames of a block and of its continuation.
    size_t Frames() const { return 2 * m_headsABlock; }
    /// Heads passed and payloads read there, and every block of the ring looked at: head, tail, and index
    /// with at most two tables a channel and one of events.
    size_t Reads() const { return 2 * Frames() + (m_blocks + 2) * (2 + 1 + 65); }
    size_t Allocation() const {
        return std::max(kLargestAllocation, 4 * std::max<size_t>(m_blkSize, 0x4000));
    }

private:
    uint32_t m_blkSize;
    size_t m_headsABlock;
    size_t m_blocks = 0; ///< that can be opened
};

/// A caller's payload buffer, checked after every read.
class Payload {
public:
    Payload() = default;
    ~Payload() { std::free(m_buffer); }
    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;

    void** Place() { return &m_buffer; }
    void Check(int result, uint32_t len, const Limits& limits) {
        EXPECT_TRUE(result >= -1 && result <= 2) << result;
        if (result == 0) {
            EXPECT_LE(len, limits.LongestFrame());
            EXPECT_NE(m_buffer, nullptr);
            if (len > 0) {
                auto* const bytes = static_cast<volatile uint8_t*>(m_buffer);
                bytes[0] = bytes[len - 1];
            }
        }
    }

private:
    void* m_buffer = nullptr;
};

class PlaybackDamage : public ::testing::TestWithParam<uint32_t> {
protected:
    uint32_t Random(uint32_t below) { return static_cast<uint32_t>(m_random() % below); }

    /// A number that may be anything, but is often near what the disk holds.
    uint32_t RandomNumber(uint32_t usual) {
        switch (Random(8)) {
        case 0:
            return static_cast<uint32_t>(m_random());
        case 1:
            return 0xFFFFFFFF - Random(4);
        default:
            return Random(usual);
        }
    }
    uint32_t RandomTime() { return 1700000000 - 50 + RandomNumber(200) + 90000 * Random(2); }

    RecordItem_t RandomRecord() {
        RecordItem_t record = {};
        const uint32_t block = Random(16) == 0 ? Random(0x10000) : Random(14);
        const uint32_t chn = Random(3) == 0 ? Random(128) : Random(3);
        const uint32_t segment = Random(3) == 0 ? Random(512) : Random(2);
        record.recId = block << 16 | chn << 9 | segment;
        record.startTime = Random(3) == 0 ? 0 : RandomTime();
        record.endTime = Random(3) == 0 ? 0x7FFFFFFF : RandomTime();
        record.size = RandomNumber(0x4000);
        record.flag = Random(4);
        return record;
    }

    /// One call on a reader.
    void Operate(CReadDisk& disk, void* reader, Payload& payload, const Limits& limits) {
        FrameInfo_t info = {};
        int result = 0;
        switch (Random(7)) {
        case 0: {
            long time = static_cast<int32_t>(RandomTime());
            disk.SeekTime(reader, &time);
            return;
        }
        case 1: {
            unsigned int pos = RandomNumber(0x4000);
            disk.SeekPos(reader, &pos);
            return;
        }
        case 2:
        case 3:
            result = disk.ReadNextIFrame(reader, &info, payload.Place());
            break;
        case 4:
            result = disk.ReadPrevIFrame(reader, &info, payload.Place());
            break;
        case 5:
            result = disk.ReadUnitFrame(reader, &info, payload.Place());
            break;
        default:
            result = disk.ReadFrame(reader, &info, payload.Place());
        }
        payload.Check(result, info.len, limits);
    }

    using Read = int (CReadDisk::*)(void*, FrameInfo_t*, void**);

    /// Reads to the first result that is no frame.
    void PlayToTheEnd(CReadDisk& disk, Read read, void* reader, Payload& payload, const Limits& limits) {
        m_reads = 0;
        size_t frames = 0;
        int result = 0;
        while (result == 0 && frames <= limits.Frames()) {
            FrameInfo_t info = {};
            result = (disk.*read)(reader, &info, payload.Place());
            payload.Check(result, info.len, limits);
            ++frames;
        }
        EXPECT_LE(frames, limits.Frames());
        EXPECT_LE(m_reads, limits.Reads());
        m_frames += frames - 1;
    }

    void PlayRecord(CReadDisk& disk, RecordItem_t record, const Limits& limits) {
        EncodeParam_t parameters = {};
        disk.GetInfo(&parameters, &record, static_cast<int>(Random(2)));
        Payload payload;
        void* const reader = disk.StartRead(static_cast<int>(Random(3)), &record);
        for (uint32_t count = Random(10); count > 0; --count) {
            Operate(disk, reader, payload, limits);
        }
        PlayToTheEnd(disk, &CReadDisk::ReadFrame, reader, payload, limits);
        disk.StopRead(reader);
    }

    void PlayUnit(CReadDisk& disk, const Limits& limits) {
        Payload payload;
        void* const reader = disk.StartUnitRead(static_cast<int>(Random(14)));
        PlayToTheEnd(disk, &CReadDisk::ReadUnitFrame, reader, payload, limits);
        disk.StopUnitRead(reader);
    }

    /// What a search finds, where that does not take long: records as a caller would play them.
    static std::vector<RecordItem_t> Search(const PartitionImage& image) {
        PartAccess_t access = image.Access();
        CSearchDisk disk;
        disk.Init(&access);
        RecordList records;
        SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
        disk.SearchMedia(&everything, &records);
        disk.Quit();
        return Elements(records);
    }

    void PlayDisk(const PartitionImage& image, const PartHead_t& head, const Limits& limits) {
        PartAccess_t access = image.Access();
        CReadDisk disk;
        disk.Init(&access);
        // A ring forged to be long takes a search its time.
        if (head.BlkCount < 4096) {
            const std::vector<RecordItem_t> found = Search(image);
            for (uint32_t i = 0; i < 2 && !found.empty(); ++i) {
                PlayRecord(disk, found[Random(static_cast<uint32_t>(found.size()))], limits);
            }
        }
        for (uint32_t i = 0; i < 2; ++i) {
            PlayRecord(disk, RandomRecord(), limits);
        }
        PlayUnit(disk, limits);
        disk.Quit();
    }

    /// The lower classes, with arguments that a caller might take from anywhere.
    void PlayBlock(const PartitionImage& image, const PartHead_t& head, const Limits& limits) {
        PartAccess_t access = image.Access();
        CReadBlock block;
        if (block.OpenBlock(Random(13), head.BlkSize, &access, head.FmtVersion, 1) != 0) {
            return;
        }
        m_reads = 0;
        block.RebuiltBlockIndex();
        RecordItem_t record = RandomRecord();
        RecSegItem_t segment = {};
        block.GetRecSegInfo(&record, &segment);
        block.SeekTime(static_cast<int>(Random(2)), &record, static_cast<int32_t>(RandomTime()));
        Payload payload;
        FrameHead_t frame = {};
        const auto checked = [&](int result) {
            payload.Check(result, frame.len, limits);
            return result;
        };
        size_t frames = 0;
        while (frames <= limits.Frames() && checked(block.ReadFrame(&frame, payload.Place())) == 0) {
            ++frames;
        }
        checked(block.ReadPrevIFrame(&frame, payload.Place()));
        checked(block.ReadIFrame(RandomNumber(0x4000), &frame, payload.Place()));
        block.SeekOffs(static_cast<int>(Random(2)), &record, RandomNumber(0x4000),
                       static_cast<int>(Random(3)));
        EXPECT_LE(frames, limits.Frames());
        EXPECT_LE(m_reads, 3 * limits.Reads());
        block.CloseBlock();
    }

    void WalkPart(const PartitionImage& image, const PartHead_t& head) {
        PartAccess_t access = image.Access();
        CReadPart part;
        part.Init(&access);
        part.PrintInitInfo();
        unsigned int found = 0;
        part.GetNextValidBlock(Random(6), Random(20), RandomNumber(13), RandomNumber(13), &found);
        part.GetPrevValidBlock(Random(6), Random(20), RandomNumber(13), head.BlkCount - 1, &found);
        part.Quit();
    }

    void PlayCase(DamagedDisk& disk, uint32_t seed) {
        disk.DamageWithFrames(seed);
        m_random.seed(seed);
        const PartHead_t head = disk.Head();
        const Limits limits(head, disk.Size());
        size_t largest = 0;
        Quietly([&] {
            const AllocationFaults watch;
            PlayDisk(disk.Image(), head, limits);
            PlayBlock(disk.Image(), head, limits);
            WalkPart(disk.Image(), head);
            largest = watch.Largest();
        });
        EXPECT_LE(largest, limits.Allocation());
    }

    size_t m_reads = 0;  ///< counted from 0 in each part of a case
    size_t m_frames = 0; ///< delivered in all cases

private:
    std::mt19937 m_random;
};

TEST_P(PlaybackDamage, EndsWellOnEveryDisk) {
    int open = 0;
    SystemCallLog log([&](const Call& call, size_t) {
        m_reads += call.kind == CallKind::Read ? 1u : 0u;
        open += call.kind == CallKind::Open ? 1 : call.kind == CallKind::Close ? -1 : 0;
        log.Clear(); // a long ring's calls would count as memory taken
        return PassUnflushed(call);
    });
    for (const uint32_t fmtVersion : {0u, 1u}) {
        DamagedDisk disk(fmtVersion);
        for (uint32_t i = 0; i < kCasesAShard / 2; ++i) {
            open = 0;
            const uint32_t seed =
                kFirstSeed + GetParam() * kCasesAShard + fmtVersion * (kCasesAShard / 2) + i;
            PlayCase(disk, seed);
            EXPECT_EQ(open, 0);
            ASSERT_FALSE(HasFailure()) << "case " << seed << ": " << disk.Story();
        }
    }
    EXPECT_GT(m_frames, size_t{20} * kCasesAShard); // most disks can be played, more or less
}

INSTANTIATE_TEST_SUITE_P(Shards, PlaybackDamage, ::testing::Range(0u, kShards));

} // namespace
