// What counts as the source, as the kernel tells of devices: its folders are made up here.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "media/source_identity.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using media::SourceIdentity;
using test_support::TempDir;

class SourceIdentities : public ::testing::Test {
protected:
    SourceIdentities() {
        for (const char* const name : {"source", "other", "store", "cellar"}) {
            std::ofstream(m_dir.File(name)) << name;
        }
        fs::create_directories(m_dir.File("sys/dev/block"));
        m_source = open(m_dir.File("source").c_str(), O_RDONLY | O_CLOEXEC);
        // The device that the test's files lie on.
        AddEntry(NumberOf(Status("source").st_dev), "disk");
    }
    ~SourceIdentities() override { close(m_source); }

    struct stat Status(const std::string& name) const {
        struct stat status = {};
        EXPECT_EQ(stat(m_dir.File(name).c_str(), &status), 0) << name;
        return status;
    }

    static std::string NumberOf(dev_t device) {
        return std::to_string(major(device)) + ":" + std::to_string(minor(device));
    }

    /// A node of a block device, without making one.
    static struct stat Node(unsigned int majorNumber, unsigned int minorNumber) {
        struct stat status = {};
        status.st_mode = S_IFBLK | 0600;
        status.st_rdev = makedev(majorNumber, minorNumber);
        return status;
    }

    /// Makes the kernel's folder about a device.
    void AddEntry(const std::string& number, const std::string& path) const {
        Put(path + "/dev", number + "\n");
        fs::create_directory_symlink(m_dir.File("sys/devices/" + path),
                                     m_dir.File("sys/dev/block/" + number));
    }

    void Put(const std::string& file, const std::string& text) const {
        const fs::path path = m_dir.File("sys/devices/" + file);
        fs::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }

    SourceIdentity Identity() const { return SourceIdentity(m_source, m_dir.File("sys")); }

    TempDir m_dir;
    int m_source = -1;
};

TEST_F(SourceIdentities, AFileIsItself) {
    fs::create_hard_link(m_dir.File("source"), m_dir.File("link"));
    EXPECT_TRUE(Identity().Includes(Status("source")));
    EXPECT_TRUE(Identity().Includes(Status("link")));
    EXPECT_FALSE(Identity().Includes(Status("other")));
    EXPECT_FALSE(Identity().Includes(Node(7, 77)));
}

TEST_F(SourceIdentities, WithIsTheDeviceThatItLiesOn) {
    const dev_t device = Status("source").st_dev;
    EXPECT_TRUE(Identity().Includes(Node(major(device), minor(device))));
    // Without a word from the kernel, too.
    EXPECT_TRUE(SourceIdentity(m_source, m_dir.File("none")).Includes(Node(major(device), minor(device))));
}

TEST_F(SourceIdentities, WithIsTheFileBehindALoopDevice) {
    Put("disk/loop/backing_file", m_dir.File("store") + "\n");
    EXPECT_TRUE(Identity().Includes(Status("store")));
    EXPECT_FALSE(Identity().Includes(Status("other")));
}

TEST_F(SourceIdentities, WithIsAFileWhoseNameHoldsALineEnd) {
    fs::rename(m_dir.File("store"), m_dir.File("a\nstore\n"));
    Put("disk/loop/backing_file", m_dir.File("a\nstore\n") + "\n");
    EXPECT_TRUE(Identity().Includes(Status("a\nstore\n")));
}

TEST_F(SourceIdentities, WithIsTheWholeDiskOfAPartition) {
    fs::remove(m_dir.File("sys/dev/block/" + NumberOf(Status("source").st_dev)));
    AddEntry(NumberOf(Status("source").st_dev), "whole/part1");
    Put("whole/part1/partition", "1\n");
    AddEntry("7:77", "whole");
    Put("whole/loop/backing_file", m_dir.File("store") + "\n");
    AddEntry("7:78", "whole/part2");
    EXPECT_TRUE(Identity().Includes(Node(7, 77)));
    EXPECT_TRUE(Identity().Includes(Status("store")));
    EXPECT_FALSE(Identity().Includes(Node(7, 78)));
}

TEST_F(SourceIdentities, WithIsWhatAMappedDeviceIsMadeOf) {
    AddEntry("7:70", "loop70");
    Put("loop70/loop/backing_file", m_dir.File("store") + "\n");
    AddEntry("7:71", "loop71");
    Put("loop71/loop/backing_file", m_dir.File("cellar") + "\n");
    fs::create_directories(m_dir.File("sys/devices/disk/slaves"));
    for (const char* const name : {"loop70", "loop71"}) {
        fs::create_directory_symlink(m_dir.File("sys/devices/") + name,
                                     m_dir.File("sys/devices/disk/slaves/") + name);
    }
    for (const unsigned int number : {70u, 71u}) {
        EXPECT_TRUE(Identity().Includes(Node(7, number)));
    }
    EXPECT_TRUE(Identity().Includes(Status("store")));
    EXPECT_TRUE(Identity().Includes(Status("cellar")));
    EXPECT_FALSE(Identity().Includes(Status("other")));
}

TEST_F(SourceIdentities, DevicesThatLeadInACircleEnd) {
    AddEntry("7:70", "loop70");
    for (const auto& [from, to] :
         {std::pair<std::string, std::string>{"disk", "loop70"}, {"loop70", "disk"}}) {
        fs::create_directories(m_dir.File("sys/devices/" + from + "/slaves"));
        fs::create_directory_symlink(m_dir.File("sys/devices/" + to),
                                     m_dir.File("sys/devices/" + from + "/slaves/" + to));
    }
    EXPECT_TRUE(Identity().Includes(Node(7, 70)));
}

} // namespace
