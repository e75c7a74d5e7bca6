// A process that closed its standard input gets descriptor 0 for the next device that it opens. Everything but the
// dump takes it for none: such a device is refused, and the handle on it can never be closed again.

#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "dump/sample_disk.h"
#include "faults/media.h"
#include "search/search_fixture.h"

// Intended leaks are reported to the leak checker, if there is one.
extern "C" {
__attribute__((weak)) void __lsan_disable();
__attribute__((weak)) void __lsan_enable();
}

namespace {

using namespace test_support;

/// Leaves descriptor 0 free for as long as it lives. Redirect output before: that takes
/// descriptors too.
class FreeDescriptorZero {
public:
    FreeDescriptorZero() : m_saved(dup(STDIN_FILENO)) {
        close(STDIN_FILENO);
        if (__lsan_disable != nullptr) {
            __lsan_disable();
        }
    }
    ~FreeDescriptorZero() {
        if (__lsan_enable != nullptr) {
            __lsan_enable();
        }
        close(STDIN_FILENO);
        if (m_saved >= 0) {
            dup2(m_saved, STDIN_FILENO);
            close(m_saved);
        }
    }
    FreeDescriptorZero(const FreeDescriptorZero&) = delete;
    FreeDescriptorZero& operator=(const FreeDescriptorZero&) = delete;

    /// Whether the descriptor is in use.
    static bool Taken() {
        const int fd = dup(STDIN_FILENO);
        if (fd >= 0) {
            close(fd);
        }
        return fd >= 0;
    }

private:
    int m_saved;
};

class DescriptorZero : public ::testing::Test {
protected:
    PartAccess_t& Make(Medium medium) {
        m_access = MakeMedium(medium, m_dir.File("disk")).Access();
        return m_access;
    }

    /// A ring of eight blocks. All of them are closed, so none is usable in mode 0.
    PartitionImage MakeDisk() {
        PartitionImage disk = PartitionImage::Create(m_dir.File("disk"), Format());
        for (uint32_t block = 0; block < disk.BlockCount(); ++block) {
            auto contents = BlockContents::Closed(block + 1, 1000, 1900);
            contents.tail.CloseState = 1;
            disk.WriteBlock(block, contents);
        }
        return disk;
    }

private:
    TempDir m_dir;
    PartAccess_t m_access = {};
};

TEST_F(DescriptorZero, DeviceIsRefusedAndStaysOpen) {
    PartAccess_t& access = Make(Medium::Search);
    const FreeDescriptorZero zero;
    dev_op_st* const dev = dev_open(&access);
    ASSERT_NE(dev, nullptr);
    EXPECT_EQ(dev->fd, 0);
    uint32_t word = 0x12345678;
    EXPECT_EQ(dev_seek(dev, 0), -1);
    EXPECT_EQ(dev_read(dev, &word, sizeof word), -1);
    EXPECT_EQ(word, 0x12345678u);
    EXPECT_EQ(dev_close(dev), -1);
    EXPECT_TRUE(FreeDescriptorZero::Taken());
    std::free(dev);
}

TEST_F(DescriptorZero, WindowIsRefusedAndStaysOpen) {
    block_info_t info = {};
    static_cast<PartAccess_t&>(info) = Make(Medium::Search);
    info.BlkSize = kMediaBlockSize;
    info.BaseOffs = BLOCK_BASE_OFFSET;
    const FreeDescriptorZero zero;
    bolck_op_st* const block = block_open(&info);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->fd, 0);
    uint32_t word = 0x12345678;
    EXPECT_EQ(block_seek(block, 0), -1);
    EXPECT_EQ(block_read(block, &word, sizeof word), -1);
    EXPECT_EQ(word, 0x12345678u);
    EXPECT_EQ(block_close(block), -1);
    EXPECT_TRUE(FreeDescriptorZero::Taken());
    std::free(block);
}

TEST_F(DescriptorZero, SearchPartitionDoesNotOpen) {
    PartAccess_t& access = Make(Medium::Search);
    CSearchPart part;
    {
        const FreeDescriptorZero zero;
        EXPECT_EQ(part.Init(&access), -1);
        EXPECT_TRUE(FreeDescriptorZero::Taken());
        EXPECT_EQ(part.GetBadBlockTab(), -1);
    }
    EXPECT_EQ(part.Init(&access), 0);
    EXPECT_EQ(part.GetBadBlockTab(), 0);
    part.Quit();
}

TEST_F(DescriptorZero, SearchDiskFindsNothing) {
    PartAccess_t& access = Make(Medium::Search);
    CSearchDisk disk;
    UnitList units;
    {
        const FreeDescriptorZero zero;
        EXPECT_EQ(disk.Init(&access), 0);
        EXPECT_EQ(disk.GetUnitInfo(&units), 0);
    }
    EXPECT_EQ(disk.GetUnitInfo(&units), 0); // it did not open, and does not later
    disk.Quit();
    EXPECT_EQ(disk.Init(&access), 0);
    Quietly([&] { EXPECT_EQ(disk.GetUnitInfo(&units), 4); });
}

TEST_F(DescriptorZero, BlockObjectReadsNothing) {
    PartAccess_t& access = Make(Medium::Search);
    const FreeDescriptorZero zero;
    dev_op_st* const dev = dev_open(&access);
    {
        CSearchBlock blocks(dev, kMediaBlockSize, BLOCK_BASE_OFFSET, 0);
        RecordList records;
        Quietly([&] {
            EXPECT_EQ(blocks.ReadBlockIndexList(0, 7), -1);
            EXPECT_EQ(blocks.RebuildRecSegInfo(0, 7, 0), -1);
            EXPECT_EQ(blocks.GetNoIndexMediaList(0, kAll, 0, &records), -1);
        });
    }
    std::free(dev);
}

TEST_F(DescriptorZero, PlaybackPartitionDoesNotOpen) {
    PartAccess_t& access = Make(Medium::Play);
    CReadPart part;
    {
        const FreeDescriptorZero zero;
        EXPECT_EQ(part.Init(&access), -1);
        EXPECT_TRUE(FreeDescriptorZero::Taken());
    }
    EXPECT_EQ(part.Init(&access), 0);
    part.Quit();
}

TEST_F(DescriptorZero, PlaybackGetsNoBadBlockTable) {
    PartAccess_t& access = Make(Medium::Play);
    CReadPart part;
    EXPECT_EQ(part.Init(&access), 0);
    {
        const FreeDescriptorZero zero;
        EXPECT_EQ(part.GetBadBlockTab(), -1);
        EXPECT_TRUE(FreeDescriptorZero::Taken());
        // The next device gets another descriptor. Without a table no block is bad.
        Quietly([&] { EXPECT_EQ(part.IsValidBlock(0, 5, 0), 1); });
    }
    EXPECT_EQ(part.GetBadBlockTab(), 0);
    part.Quit();
}

TEST_F(DescriptorZero, BlockThatIsLookedAtIsUnusable) {
    PartAccess_t& access = Make(Medium::Play);
    CReadPart part;
    EXPECT_EQ(part.Init(&access), 0);
    EXPECT_EQ(part.GetBadBlockTab(), 0);
    EncodeParam_t parameters = {};
    parameters.chn = 9;
    RecordItem_t record = {};
    Quietly([&] {
        const FreeDescriptorZero zero;
        EXPECT_EQ(part.IsValidBlock(0, 5, 0), 0);
    });
    Quietly([&] {
        const FreeDescriptorZero zero;
        EXPECT_EQ(part.GetRecInfo(&parameters, &record, 0), -1);
    });
    EXPECT_EQ(parameters.chn, 0u);
    EXPECT_EQ(part.GetRecInfo(&parameters, &record, 0), 0);
    part.Quit();
}

TEST_F(DescriptorZero, RingIsMeasuredAndItIsClosed) {
    PartitionImage disk = MakeDisk();
    disk.SetBad(3);
    disk.EditHead([](PartHead_t& head) { head.BlkCount = 70000; }); // more than ids can name
    PartAccess_t access = disk.Access();
    CReadPart part;
    EXPECT_EQ(part.Init(&access), 0);
    EXPECT_EQ(part.GetBadBlockTab(), 0);
    Quietly([&] {
        const FreeDescriptorZero zero;
        unsigned int found = 0;
        EXPECT_EQ(part.GetNextValidBlock(0, 0, 3, 3, &found), -1);
        EXPECT_FALSE(FreeDescriptorZero::Taken()); // and block 3 is bad: it was not opened
    });
    part.Quit();
}

TEST_F(DescriptorZero, BlocksBeyondTheDeviceAreReportedAndItIsClosed) {
    PartitionImage disk = MakeDisk();
    disk.Truncate(disk.BlockStart(2));
    PartAccess_t access = disk.Access();
    CReadPart part;
    EXPECT_EQ(part.Init(&access), 0);
    EXPECT_EQ(part.GetBadBlockTab(), 0);
    std::optional<FreeDescriptorZero> zero;
    size_t opened = 0;
    const SystemCallLog log([&](const Call& call, size_t) {
        opened += call.kind == CallKind::Open ? 1 : 0;
        // Opened are block 7, the device to measure it, blocks 0 and 1; then what tells of blocks 2 to 4.
        if (opened == 5 && !zero) {
            zero.emplace();
        }
        return Fate();
    });
    unsigned int found = 0;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(part.GetNextValidBlock(0, 0, 7, 4, &found), -1); }),
              "OpenBlock : #, Failed\nOpenBlock : #, Failed\nOpenBlock : #, Failed\nOpenBlock : #, Failed\n");
    EXPECT_EQ(opened, 5u);
    EXPECT_FALSE(FreeDescriptorZero::Taken());
    part.Quit();
}

TEST_F(DescriptorZero, BlockOfPlaybackDoesNotOpen) {
    PartAccess_t& access = Make(Medium::Play);
    CReadBlock block;
    Quietly([&] {
        const FreeDescriptorZero zero;
        EXPECT_EQ(block.OpenBlock(0, kMediaBlockSize, &access, 0, 0), -1);
        EXPECT_TRUE(FreeDescriptorZero::Taken());
    });
    EXPECT_EQ(block.CloseBlock(), -1); // closed
    EXPECT_EQ(block.OpenBlock(0, kMediaBlockSize, &access, 0, 0), 0);
    EXPECT_EQ(block.CloseBlock(), 0);
}

TEST_F(DescriptorZero, ReaderOfADiskFails) {
    PartAccess_t& access = Make(Medium::Play);
    CReadDisk disk;
    EXPECT_EQ(disk.Init(&access), 0);
    Quietly([&] {
        const FreeDescriptorZero zero;
        void* const reader = disk.StartUnitRead(0);
        FrameInfo_t info = {};
        void* payload = nullptr;
        EXPECT_EQ(disk.ReadUnitFrame(reader, &info, &payload), -1);
        EXPECT_EQ(disk.StopUnitRead(reader), 0);
        EXPECT_EQ(payload, nullptr);
    });
    disk.Quit();
}

int PrintNothing(void* /*ctx*/, const char* /*format*/, ...) {
    return 0;
}

TEST_F(DescriptorZero, DumpTakesIt) {
    PartAccess_t& access = Make(Medium::Dump);
    const BlockDeviceGuise guise;
    const FreeDescriptorZero zero;
    EXPECT_EQ(CPrintDisk().Print(&access, 3, PrintNothing, nullptr), 0);
    EXPECT_FALSE(FreeDescriptorZero::Taken());
}

} // namespace
