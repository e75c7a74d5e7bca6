#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "dev_io.h"
#include "disk_format.h"
#include "host/system_calls.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;

constexpr uint32_t kBlkSize = 64;
constexpr uint32_t kBase = 16;

/// A device of 16 bytes and three windows of 64, the last one cut short by 10 bytes. Byte n holds n % 251.
class BlockWindow : public ::testing::Test {
protected:
    BlockWindow() {
        const int fd = open(m_dir.File("device").c_str(), O_CREAT | O_WRONLY, 0600);
        for (unsigned n = 0; n < kBase + 3 * kBlkSize - 10; ++n) {
            const auto byte = static_cast<uint8_t>(n % 251);
            EXPECT_EQ(write(fd, &byte, 1), 1);
        }
        close(fd);
    }

    block_info_t Info(uint32_t block) const {
        block_info_t info = {};
        m_dir.File("device").copy(info.PartName, sizeof info.PartName);
        info.BlockNum = block;
        info.BlkSize = kBlkSize;
        info.BaseOffs = kBase;
        return info;
    }

    bolck_op_st* Open(uint32_t block) const {
        block_info_t info = Info(block);
        return block_open(&info);
    }

    TempDir m_dir;
};

TEST_F(BlockWindow, NullRequestGivesNullWithoutAMessage) {
    EXPECT_EQ(Printed([] { EXPECT_EQ(block_open(nullptr), nullptr); }), "");
}

TEST_F(BlockWindow, PathThatCannotBeOpenedGivesNullAndOneMessage) {
    block_info_t info = Info(0);
    info.PartName[0] = '\0';
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(block_open(&info), nullptr); }),
              "block_open : #, Failed\n");
}

TEST_F(BlockWindow, FailedSeekOnOpeningClosesTheDescriptor) {
    block_info_t info = Info(0);
    const SystemCallLog log(
        [](const Call& call, size_t) { return call.kind == CallKind::Seek ? Fate::Failing() : Fate(); });
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(block_open(&info), nullptr); }),
              "block_open : #, Failed\n");
    EXPECT_EQ(log.Count(CallKind::Open), 1u);
    EXPECT_EQ(log.Count(CallKind::Close), 1u);
    EXPECT_EQ(log.Calls()[0].flags, O_RDONLY | O_LARGEFILE);
}

TEST_F(BlockWindow, StandsAtItsStart) {
    bolck_op_st* const block = Open(1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->StartOffs, 80);
    EXPECT_EQ(block->CurOffs, 80);
    EXPECT_EQ(block->EndOffs, 144);
    uint8_t bytes[2];
    EXPECT_EQ(block_read(block, bytes, 2), 0);
    EXPECT_EQ(bytes[0], 80);
    EXPECT_EQ(bytes[1], 81);
    EXPECT_EQ(block->CurOffs, 82);
    EXPECT_EQ(block_close(block), 0);
}

TEST_F(BlockWindow, ChainsReads) {
    bolck_op_st* const block = Open(0);
    uint8_t bytes[4];
    EXPECT_EQ(block_seek(block, 10), 0);
    EXPECT_EQ(block_read(block, bytes, 3), 0);
    EXPECT_EQ(block_read(block, bytes, 1), 0);
    EXPECT_EQ(bytes[0], 16 + 13);
    block_close(block);
}

TEST_F(BlockWindow, LiesAboveFourGigabytes) {
    block_info_t info = Info(600);
    info.BlkSize = 0x800000;
    info.BaseOffs = BLOCK_BASE_OFFSET;
    bolck_op_st* const block = block_open(&info);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->StartOffs, 0x12C800000LL);
    EXPECT_EQ(block->EndOffs, 0x12D000000LL);
    EXPECT_EQ(block->CurOffs, 0x12C800000LL);
    block_close(block);
}

TEST_F(BlockWindow, SeekAcceptsTheEndAndNothingBehindIt) {
    bolck_op_st* const block = Open(0);
    EXPECT_EQ(block_seek(block, kBlkSize), 0);
    EXPECT_EQ(block->CurOffs, 80);
    EXPECT_EQ(block_seek(block, 5), 0);
    EXPECT_EQ(block_seek(block, kBlkSize + 1), -1);
    EXPECT_EQ(block->CurOffs, 21);
    EXPECT_EQ(block_seek(block, 0xFFFFFFFF), -1);
    EXPECT_EQ(block->CurOffs, 21);
    block_close(block);
}

TEST_F(BlockWindow, SeekThatTheDeviceRefusesStandsAtTheStart) {
    bolck_op_st* const block = Open(0);
    EXPECT_EQ(block_seek(block, 20), 0);
    {
        const SystemCallLog log([](const Call&, size_t) { return Fate::Failing(); });
        EXPECT_EQ(block_seek(block, 30), -1);
        EXPECT_EQ(log.Calls()[0].offset, 46);
    }
    EXPECT_EQ(block->CurOffs, 16);
    block_close(block);
}

TEST_F(BlockWindow, ReadEndsAtTheWindowsEndAndNeverCrossesIt) {
    bolck_op_st* const block = Open(0);
    uint8_t bytes[21];
    EXPECT_EQ(block_seek(block, kBlkSize - 20), 0);
    EXPECT_EQ(block_read(block, bytes, 20), 0);
    {
        const SystemCallLog log;
        EXPECT_EQ(block_read(block, bytes, 1), -1);
        EXPECT_EQ(log.Calls().size(), 0u); // refused without touching the device
        EXPECT_EQ(block_read(block, bytes, 0xFFFFFFFF), -1);
        EXPECT_EQ(log.Calls().size(), 0u);
    }
    EXPECT_EQ(block_seek(block, kBlkSize - 20), 0);
    EXPECT_EQ(block_read(block, bytes, 21), -1);
    EXPECT_EQ(block->CurOffs, 60);
    block_close(block);
}

TEST_F(BlockWindow, ReadOfNothingSucceedsAndChangesNothing) {
    bolck_op_st* const block = Open(0);
    uint8_t byte = 7;
    EXPECT_EQ(block_read(block, &byte, 0), 0);
    EXPECT_EQ(byte, 7);
    EXPECT_EQ(block->CurOffs, 16);
    EXPECT_EQ(block_seek(block, kBlkSize), 0);
    EXPECT_EQ(block_read(block, &byte, 0), 0);
    block_close(block);
}

TEST_F(BlockWindow, ShortReadPutsTheDeviceBackAndIsTriedAgain) {
    bolck_op_st* const block = Open(2); // 54 bytes of it exist
    uint8_t bytes[20];
    EXPECT_EQ(block_seek(block, 40), 0);
    for (int attempt = 0; attempt < 2; ++attempt) {
        const SystemCallLog log;
        EXPECT_EQ(block_read(block, bytes, 20), -1);
        ASSERT_EQ(log.Calls().size(), 2u);
        EXPECT_EQ(log.Calls()[0].kind, CallKind::Read);
        EXPECT_EQ(log.Calls()[0].offset, 16 + 128 + 40);
        EXPECT_EQ(log.Calls()[1].kind, CallKind::Seek);
        EXPECT_EQ(log.Calls()[1].offset, 16 + 128 + 40);
        EXPECT_EQ(block->CurOffs, 16 + 128 + 40);
    }
    EXPECT_EQ(block_read(block, bytes, 14), 0);
    block_close(block);
}

TEST_F(BlockWindow, CloseFlushesFirst) {
    bolck_op_st* const block = Open(0);
    const SystemCallLog log;
    EXPECT_EQ(block_close(block), 0);
    ASSERT_EQ(log.Calls().size(), 2u);
    EXPECT_EQ(log.Calls()[0].kind, CallKind::Sync);
    EXPECT_EQ(log.Calls()[1].kind, CallKind::Close);
}

TEST_F(BlockWindow, WindowsDoNotShareAPosition) {
    bolck_op_st* const a = Open(0);
    bolck_op_st* const b = Open(0);
    uint8_t byte = 0;
    EXPECT_EQ(block_seek(a, 30), 0);
    EXPECT_EQ(block_read(b, &byte, 1), 0);
    EXPECT_EQ(byte, 16);
    EXPECT_EQ(block_read(a, &byte, 1), 0);
    EXPECT_EQ(byte, 46);
    block_close(a);
    block_close(b);
}

TEST_F(BlockWindow, RefusesNullAndInvalidHandles) {
    uint8_t byte = 0;
    bolck_op_st zero = {0, 0, 100, 0};
    bolck_op_st negative = {-1, 0, 100, 0};
    for (bolck_op_st* const bad : {static_cast<bolck_op_st*>(nullptr), &zero, &negative}) {
        EXPECT_EQ(block_seek(bad, 0), -1);
        EXPECT_EQ(block_read(bad, &byte, 1), -1);
        EXPECT_EQ(block_close(bad), -1);
    }
    bolck_op_st* const block = Open(0);
    EXPECT_EQ(block_read(block, nullptr, 0), -1);
    block_close(block);
}

TEST_F(BlockWindow, ForgedGeometryFailsQuietly) {
    block_info_t info = Info(0xFFFFFFFE);
    info.BlkSize = 0xFFFFFFFF;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(block_open(&info), nullptr); }),
              "block_open : #, Failed\n");
    // A window that ends exactly where offsets turn negative: sums after it wrap, and are refused.
    info.BlockNum = 0x7FFFFFFF;
    bolck_op_st* const block = block_open(&info);
    if (block != nullptr) { // some file systems refuse the offset
        uint8_t byte = 0;
        EXPECT_EQ(block_seek(block, 0xFFFFFFFF), 0);
        EXPECT_EQ(block_read(block, &byte, 1), -1);
        block_close(block);
    }
}

} // namespace
