// The disks of a machine, as the kernel tells of them.

#include "recordings/host_disks.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/temp_dir.h"

namespace test_support {

namespace {

namespace fs = std::filesystem;

class HostDisksTest : public ::testing::Test {
protected:
    void Write(const std::string& name, const std::string& text) {
        fs::create_directories(fs::path(m_dir.File(name)).parent_path());
        std::ofstream(m_dir.File(name)) << text << "\n";
    }
    std::string Kernel() const { return m_dir.File(""); }

private:
    TempDir m_dir;
};

TEST_F(HostDisksTest, ThoseWithAMediumAreListedByName) {
    Write("block/sdb/size", "2048");
    Write("block/sda/size", "1000000000000");
    Write("block/sr0/size", "0"); // an empty drive
    Write("block/loop0/size", "0");
    Write("block/cciss!c0d0/size", "1");
    Write("block/odd/size", "none");
    const std::vector<recordings::HostDisk> disks = recordings::HostDisks(Kernel());
    ASSERT_EQ(disks.size(), 3u);
    EXPECT_EQ(disks[0].path, "/dev/cciss/c0d0");
    EXPECT_EQ(disks[1].path, "/dev/sda");
    EXPECT_EQ(disks[1].size, 512000000000000u);
    EXPECT_EQ(disks[2].path, "/dev/sdb");
    EXPECT_EQ(disks[2].size, 1048576u);
}

TEST_F(HostDisksTest, WithoutTheKernelsFolderThereAreNone) {
    EXPECT_TRUE(recordings::HostDisks(Kernel()).empty());
}

TEST_F(HostDisksTest, PartitionsHaveNamesOfTheirOwn) {
    Write("class/block/sdb/sdb5/partition", "5");
    Write("class/block/nvme0n1/nvme0n1p2/partition", "2");
    EXPECT_EQ(recordings::PartitionPath("/dev/sdb", 5, Kernel()), "/dev/sdb5");
    EXPECT_EQ(recordings::PartitionPath("/dev/nvme0n1", 2, Kernel()), "/dev/nvme0n1p2");
    EXPECT_EQ(recordings::PartitionPath("/dev/sdb", 6, Kernel()), "");
    EXPECT_EQ(recordings::PartitionPath("/dev/sdc", 5, Kernel()), "");
    EXPECT_EQ(recordings::PartitionPath("/dev/sdb", 0, Kernel()), "");
}

} // namespace

} // namespace test_support
