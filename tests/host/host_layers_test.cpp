// The replacement of the library's host in tests and fuzzers: they are only as right as this is.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "host/memory_devices.h"
#include "host/messages.h"
#include "host/system_calls.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;
using disk_access::HostClose;
using disk_access::HostControl;
using disk_access::HostFlush;
using disk_access::HostOpen;
using disk_access::HostReadWhole;
using disk_access::HostSeek;

constexpr int kReading = O_RDONLY | O_LARGEFILE;

/// A file of the host of ten bytes, 0 to 9.
class HostFile : public ::testing::Test {
protected:
    HostFile() { std::ofstream(Path()) << "0123456789"; }
    std::string Path() const { return m_dir.File("file"); }
    int OpenFile() const { return HostOpen(Path().c_str(), kReading); }

private:
    TempDir m_dir;
};

// ---- calls that are watched

class WatchedCalls : public HostFile {};

TEST_F(WatchedCalls, AreNotedAndMade) {
    const SystemCallLog log;
    const int fd = OpenFile();
    char bytes[4] = {};
    HostSeek(fd, -7, SEEK_END);
    EXPECT_TRUE(HostReadWhole(fd, bytes, 4));
    EXPECT_EQ(std::string(bytes, 4), "3456");
    int answer = 0;
    HostControl(fd, BLKSSZGET, &answer);
    HostFlush(fd);
    HostClose(fd);
    ASSERT_EQ(log.Calls().size(), 6u);
    const CallKind kinds[] = {CallKind::Open,    CallKind::Seek, CallKind::Read,
                              CallKind::Control, CallKind::Sync, CallKind::Close};
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(log.Calls()[i].kind, kinds[i]) << i;
        EXPECT_EQ(log.Calls()[i].fd, i == 0 ? -1 : fd) << i;
    }
    EXPECT_EQ(log.Calls()[0].flags, kReading);
    EXPECT_EQ(log.Calls()[1].offset, -7);
    EXPECT_EQ(log.Calls()[2].offset, 3);
    EXPECT_EQ(log.Calls()[2].length, 4u);
    EXPECT_EQ(log.Calls()[3].request, static_cast<uint64_t>(BLKSSZGET));
    EXPECT_EQ(log.Count(CallKind::Read), 1u);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(WatchedCalls, FailAsTheTestDecides) {
    const int fd = OpenFile();
    {
        const SystemCallLog log([](const Call&, size_t) { return Fate::Failing(EINTR); });
        char byte = 0;
        int answer = 0;
        EXPECT_EQ(OpenFile(), -1);
        EXPECT_EQ(errno, EINTR);
        EXPECT_EQ(HostSeek(fd, 5, SEEK_SET), -1);
        EXPECT_FALSE(HostReadWhole(fd, &byte, 1));
        EXPECT_FALSE(HostReadWhole(fd, &byte, 0)); // -1, not 0
        EXPECT_EQ(HostControl(fd, FIONREAD, &answer), -1);
        EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 0);
        HostClose(fd);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1); // closed all the same
}

TEST_F(WatchedCalls, ReadsComeShortAsTheTestDecides) {
    const int fd = OpenFile();
    char bytes[5] = "....";
    {
        const SystemCallLog log([](const Call&, size_t) { return Fate::Shortened(2); });
        EXPECT_FALSE(HostReadWhole(fd, bytes, 4));
        EXPECT_STREQ(bytes, "01..");
        EXPECT_TRUE(HostReadWhole(fd, bytes, 2)); // no shorter than it was to be
        EXPECT_STREQ(bytes, "23..");
        EXPECT_EQ(HostSeek(fd, 7, SEEK_SET), 7); // nothing else can be
    }
    HostClose(fd);
}

TEST_F(WatchedCalls, AreCountedFromZero) {
    std::vector<size_t> indexes;
    SystemCallLog log([&](const Call&, size_t index) {
        indexes.push_back(index);
        return index == 1 ? Fate::Failing() : Fate();
    });
    const int fd = OpenFile();
    EXPECT_EQ(HostSeek(fd, 1, SEEK_SET), -1);
    EXPECT_EQ(HostSeek(fd, 2, SEEK_SET), 2);
    EXPECT_EQ(indexes, (std::vector<size_t>{0, 1, 2}));
    log.Clear();
    HostClose(fd);
    EXPECT_EQ(indexes.back(), 0u);
}

TEST_F(WatchedCalls, InnerLogTellsTheOuterWhatItPasses) {
    const SystemCallLog outer;
    {
        const SystemCallLog inner(
            [](const Call& call, size_t) { return call.kind == CallKind::Seek ? Fate::Failing() : Fate(); });
        const int fd = OpenFile();
        EXPECT_EQ(HostSeek(fd, 1, SEEK_SET), -1);
        HostClose(fd);
        EXPECT_EQ(inner.Calls().size(), 3u);
    }
    EXPECT_EQ(outer.Calls().size(), 2u);
}

TEST_F(WatchedCalls, FlushesThatAreSkippedOrFailAreNotMade) {
    for (const Fate& fate : {Fate::Skipped(), Fate::Failing()}) {
        const SystemCallLog below;
        const SystemCallLog log([&](const Call&, size_t) { return fate; });
        HostFlush(7);
        EXPECT_EQ(log.Count(CallKind::Sync), 1u);
        EXPECT_EQ(below.Count(CallKind::Sync), 0u);
    }
    EXPECT_EQ(PassUnflushed({CallKind::Sync, 7, 0, 0, 0}).kind, Fate::Fail);
    EXPECT_EQ(PassUnflushed({CallKind::Read, 7, 0, 0, 0}).kind, Fate::Pass);
}

TEST(Strike, HitsOnceOrFromThereOn) {
    const std::pair<Strike, std::vector<bool>> cases[] = {{{1, false}, {false, true, false}},
                                                          {{1, true}, {false, true, true}},
                                                          {{}, {false, false, false}},
                                                          {{Strike::kNever, true}, {false, false, false}}};
    for (const auto& [strike, hits] : cases) {
        for (size_t index = 0; index < hits.size(); ++index) {
            EXPECT_EQ(strike.Hits(index), hits[index]) << strike.position << ' ' << index;
        }
    }
}

// ---- devices in memory

class MemoryDisk : public HostFile {
protected:
    static constexpr const char* kName = "/memory/disk";
    static constexpr uint64_t kPage = 4096;

    MemoryDisk() : m_device(m_devices.Add(kName)) {}

    MemoryDevice& Device() { return m_device; }
    MemoryDevices& Devices() { return m_devices; }
    void Lay(uint64_t offset, const std::string& text) {
        m_device.Lay(offset, reinterpret_cast<const uint8_t*>(text.data()), text.size());
    }
    /// What a read of @p size bytes delivers.
    static std::string Read(int fd, size_t size) {
        std::string bytes(size, '.');
        return HostReadWhole(fd, bytes.data(), size) ? bytes : "short";
    }

private:
    MemoryDevices m_devices;
    MemoryDevice& m_device;
};

TEST_F(MemoryDisk, IsReadWhereItStands) {
    Device().SetSize(3 * kPage);
    Lay(kPage - 2, "abcd"); // over the border of two pages
    const int fd = HostOpen(kName, kReading);
    EXPECT_EQ(Read(fd, 2), std::string(2, '\0'));
    EXPECT_EQ(HostSeek(fd, 0, SEEK_CUR), 2);
    EXPECT_EQ(HostSeek(fd, kPage - 3, SEEK_SET), static_cast<int64_t>(kPage) - 3);
    EXPECT_EQ(Read(fd, 6), std::string("\0abcd\0", 6));
    EXPECT_EQ(HostSeek(fd, -1, SEEK_CUR), static_cast<int64_t>(kPage) + 2);
    EXPECT_EQ(HostSeek(fd, 0, SEEK_END), static_cast<int64_t>(3 * kPage));
    HostFlush(fd);
    HostClose(fd);
    EXPECT_EQ(Devices().Table().OpenDescriptors(), 0u);
}

TEST_F(MemoryDisk, EndsWhereItsSizeSays) {
    Device().SetSize(10);
    Lay(0, "0123456789ABCDEF");
    const int fd = HostOpen(kName, kReading);
    EXPECT_EQ(HostSeek(fd, 8, SEEK_SET), 8);
    EXPECT_EQ(Read(fd, 3), "short");
    EXPECT_EQ(HostSeek(fd, 0, SEEK_CUR), 10); // as far as there was anything
    EXPECT_EQ(Read(fd, 1), "short");
    EXPECT_EQ(HostSeek(fd, 0x200000000, SEEK_SET), 0x200000000); // as in a file
    EXPECT_EQ(Read(fd, 1), "short");
    EXPECT_EQ(HostSeek(fd, -1, SEEK_SET), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(HostSeek(fd, INT64_MAX, SEEK_CUR), -1);
    HostClose(fd);
}

TEST_F(MemoryDisk, LaysNothingBeyondTheMostItHolds) {
    Device().SetSize(MemoryDevice::kLargest + kPage);
    Lay(MemoryDevice::kLargest - 1, "ab");
    const int fd = HostOpen(kName, kReading);
    HostSeek(fd, MemoryDevice::kLargest - 1, SEEK_SET);
    EXPECT_EQ(Read(fd, 2), std::string("a\0", 2));
    HostClose(fd);
}

TEST_F(MemoryDisk, IsEmptyWhenCleared) {
    Device().SetSize(10);
    Lay(0, "0123456789");
    Device().Clear();
    EXPECT_EQ(HostOpen(kName, kReading), -1);
    EXPECT_EQ(errno, ENOENT);
    Device().SetSize(10);
    Lay(5, "x");
    const int fd = HostOpen(kName, kReading);
    EXPECT_EQ(Read(fd, 6), std::string("\0\0\0\0\0x", 6));
    HostClose(fd);
}

TEST_F(MemoryDisk, IsOnlyRead) {
    Device().SetSize(10);
    EXPECT_EQ(HostOpen(kName, O_RDWR), -1);
    EXPECT_EQ(errno, EROFS);
}

TEST_F(MemoryDisk, DescriptorsHaveAPlaceEach) {
    Device().SetSize(10);
    Lay(0, "0123456789");
    const int first = HostOpen(kName, kReading);
    const int second = HostOpen(kName, kReading);
    EXPECT_NE(first, second);
    EXPECT_EQ(Read(first, 3), "012");
    EXPECT_EQ(Read(second, 2), "01");
    EXPECT_EQ(Devices().Table().OpenDescriptors(), 2u);
    HostClose(first);
    EXPECT_EQ(Devices().Table().OpenOn(first), nullptr);
    EXPECT_EQ(Devices().Table().OpenOn(second), &Device());
    EXPECT_EQ(Read(first, 1), "short");
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(HostSeek(first, 0, SEEK_SET), -1);
    HostClose(second);
}

TEST_F(MemoryDisk, TellsItsSize) {
    Device().SetSize(5000);
    const int fd = HostOpen(kName, kReading);
    int sectorSize = 0;
    uint64_t bytes = 0;
    unsigned long sectors = 0;
    EXPECT_EQ(HostControl(fd, BLKSSZGET, &sectorSize), 0);
    EXPECT_EQ(HostControl(fd, BLKGETSIZE64, &bytes), 0);
    EXPECT_EQ(HostControl(fd, BLKGETSIZE, &sectors), 0);
    EXPECT_EQ(sectorSize, 512);
    EXPECT_EQ(bytes, 5000u);
    EXPECT_EQ(sectors, 9u);
    EXPECT_EQ(HostControl(fd, FIONREAD, &sectorSize), -1);
    Devices().SetSizeAnswers({0x300000000, 4096, 0});
    EXPECT_EQ(HostControl(fd, BLKSSZGET, &sectorSize), 0);
    EXPECT_EQ(HostControl(fd, BLKGETSIZE64, &bytes), 0);
    EXPECT_EQ(sectorSize, 4096);
    EXPECT_EQ(bytes, 0x300000000u);
    const unsigned long requests[] = {BLKSSZGET, BLKGETSIZE64, BLKGETSIZE};
    for (unsigned refused = 0; refused < 3; ++refused) {
        Devices().SetSizeAnswers({0, 512, static_cast<uint8_t>(1u << refused)});
        for (unsigned asked = 0; asked < 3; ++asked) {
            EXPECT_EQ(HostControl(fd, requests[asked], &bytes), asked == refused ? -1 : 0) << asked;
        }
    }
    HostClose(fd);
    EXPECT_EQ(HostControl(fd, BLKSSZGET, &sectorSize), -1);
}

TEST_F(MemoryDisk, LeavesOtherFilesToTheHost) {
    Device().SetSize(10);
    const int fd = OpenFile();
    EXPECT_EQ(Read(fd, 3), "012");
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 3);
    EXPECT_EQ(HostSeek(fd, 5, SEEK_SET), 5);
    HostFlush(fd);
    HostClose(fd);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(MemoryDisk, CanFailLikeAnyOther) {
    Device().SetSize(10);
    Lay(0, "0123456789");
    const SystemCallLog log(
        [](const Call& call, size_t) { return call.kind == CallKind::Read ? Fate::Shortened(3) : Fate(); });
    const int fd = HostOpen(kName, kReading);
    EXPECT_EQ(Read(fd, 4), "short");
    EXPECT_EQ(log.Calls().back().offset, 0);
    EXPECT_EQ(Read(fd, 3), "345");
    EXPECT_EQ(log.Calls().back().offset, 3);
    HostClose(fd);
}

// ---- files that pass for block devices

class Guise : public HostFile {};

TEST_F(Guise, FilesTellTheirSize) {
    const int before = OpenFile();
    BlockDeviceGuise guise;
    uint64_t bytes = 0;
    EXPECT_EQ(HostControl(before, BLKGETSIZE64, &bytes), 0);
    EXPECT_EQ(bytes, 10u);
    guise.ClaimSize(1 << 20);
    guise.ClaimSectorSize(2048);
    int sectorSize = 0;
    unsigned long sectors = 0;
    EXPECT_EQ(HostControl(before, BLKSSZGET, &sectorSize), 0);
    EXPECT_EQ(HostControl(before, BLKGETSIZE, &sectors), 0);
    EXPECT_EQ(sectorSize, 2048);
    EXPECT_EQ(sectors, 2048u);
    HostClose(before);
}

TEST_F(Guise, WhatIsNoFileAnswersForItself) {
    const BlockDeviceGuise guise;
    int answer = 0;
    const int directory = HostOpen("/", O_RDONLY);
    EXPECT_EQ(HostControl(directory, BLKSSZGET, &answer), -1);
    HostClose(directory);
    EXPECT_EQ(HostControl(-1, BLKSSZGET, &answer), -1);
}

} // namespace
