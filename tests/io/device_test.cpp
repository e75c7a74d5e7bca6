// The helpers over dev_io.h that searches and playback share, and descriptors and offsets at the edges.

#include "io/device.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "host/system_calls.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;
using disk_access::DeviceSize;
using disk_access::LoadTable;
using disk_access::ReadAt;

/// A device of ten bytes.
class Device : public ::testing::Test {
protected:
    Device() {
        std::ofstream(m_dir.File("device")) << "0123456789";
        m_dir.File("device").copy(m_part.PartName, sizeof m_part.PartName);
    }
    ~Device() override { dev_close(m_dev); }

    dev_op_st* Open() { return m_dev = dev_open(&m_part); }

    PartAccess_t m_part = {};

private:
    TempDir m_dir;
    dev_op_st* m_dev = nullptr;
};

/// A program whose standard output was closed gets its number for the first file that it opens.
class AsDescriptorOne : public HostLayer {
protected:
    int Open(const char* path, int flags) override {
        m_fd = HostLayer::Open(path, flags);
        return m_fd < 0 ? -1 : 1;
    }
    int64_t Seek(int fd, int64_t offset, int whence) override {
        return fd == 1 ? HostLayer::Seek(m_fd, offset, whence) : -1;
    }
    int64_t Read(int fd, void* data, size_t size) override {
        return fd == 1 ? HostLayer::Read(m_fd, data, size) : -1;
    }
    int Flush(int fd) override { return fd == 1 ? 0 : -1; }
    int Close(int fd) override { return fd == 1 ? HostLayer::Close(m_fd) : -1; }

private:
    int m_fd = -1;
};

TEST_F(Device, DescriptorOneIsLikeAnyOther) {
    const AsDescriptorOne host;
    dev_op_st* const dev = dev_open(&m_part);
    ASSERT_NE(dev, nullptr);
    EXPECT_EQ(dev->fd, 1);
    EXPECT_EQ(DeviceSize(dev), 10u);
    char byte = 0;
    EXPECT_EQ(dev_seek(dev, 4), 0);
    EXPECT_EQ(dev_read(dev, &byte, 1), 0);
    EXPECT_EQ(byte, '4');
    EXPECT_EQ(dev_close(dev), 0);
}

TEST_F(Device, WindowOfDescriptorOneIsLikeAnyOther) {
    const AsDescriptorOne host;
    block_info_t info = {};
    static_cast<PartAccess_t&>(info) = m_part;
    info.BlkSize = 5;
    info.BlockNum = 1;
    bolck_op_st* const block = block_open(&info);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->fd, 1);
    char byte = 0;
    EXPECT_EQ(block_seek(block, 2), 0);
    EXPECT_EQ(block_read(block, &byte, 1), 0);
    EXPECT_EQ(byte, '7');
    EXPECT_EQ(block_close(block), 0);
}

TEST_F(Device, StartOfTheDeviceIsAPlaceLikeAnyOther) {
    dev_op_st* const dev = Open();
    char bytes[3] = {};
    EXPECT_EQ(dev_seek(dev, 5), 0);
    EXPECT_EQ(dev_seek(dev, 0), 0);
    EXPECT_EQ(dev_read(dev, bytes, 2), 0);
    EXPECT_STREQ(bytes, "01");
    block_info_t info = {};
    static_cast<PartAccess_t&>(info) = m_part;
    info.BlkSize = 5; // block 0 begins at offset 0, since info.BaseOffs is 0
    bolck_op_st* const block = block_open(&info);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block_seek(block, 3), 0);
    EXPECT_EQ(block_seek(block, 0), 0);
    EXPECT_EQ(block_read(block, bytes, 2), 0);
    EXPECT_STREQ(bytes, "01");
    EXPECT_EQ(block_close(block), 0);
}

TEST_F(Device, SizeOfNoDeviceIsNothing) {
    dev_op_st zero = {0};
    dev_op_st negative = {-1};
    const SystemCallLog log;
    for (dev_op_st* const bad : {static_cast<dev_op_st*>(nullptr), &zero, &negative}) {
        EXPECT_EQ(DeviceSize(bad), 0u);
    }
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(Device, SizeThatCannotBeDeterminedIsNothing) {
    dev_op_st* const dev = Open();
    EXPECT_EQ(DeviceSize(dev), 10u);
    const SystemCallLog log([](const Call&, size_t) { return Fate::Failing(); });
    EXPECT_EQ(DeviceSize(dev), 0u);
}

TEST_F(Device, ReadAtFailsWithItsSeek) {
    dev_op_st* const dev = Open();
    char bytes[3] = {};
    EXPECT_EQ(ReadAt(dev, 8, bytes, 2), 0);
    EXPECT_STREQ(bytes, "89");
    EXPECT_EQ(ReadAt(dev, 9, bytes, 2), -1);
    EXPECT_EQ(ReadAt(dev, 0xFFFFFFFFFFFFFFFF, bytes, 0), -1); // as a position it is negative
}

TEST_F(Device, TableMustEndInsideTheDevice) {
    dev_op_st* const dev = Open();
    uint8_t* const table = LoadTable(dev, 6, 4, 3, 10);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(std::memcmp(table, "678", 3), 0);
    std::free(table);
    EXPECT_EQ(LoadTable(dev, 6, 5, 3, 10), nullptr);          // states a byte more than there is
    EXPECT_EQ(LoadTable(dev, 6, 4, 5, 10), nullptr);          // cannot be read
    EXPECT_EQ(LoadTable(dev, 6, 0xFFFFFFFF, 3, 10), nullptr); // in 32 bits the end would be 5
}

} // namespace
