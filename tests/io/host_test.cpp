// The table through which the library reaches its host: its default, tables that replace it, and a library that
// runs on one alone.

#include "io/host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "dump/dump_fixture.h"
#include "host/memory_devices.h"
#include "host/messages.h"
#include "playback/part_fixture.h"
#include "support/files.h"
#include "support/standard_output.h"
#include "support/transcript.h"

namespace {

using namespace test_support;
using disk_access::HostCalls;
using disk_access::HostScope;

// ---- the default

class DefaultHost : public ::testing::Test {
protected:
    DefaultHost() { std::ofstream(Path()) << "0123456789"; }
    std::string Path() const { return m_dir.File("device"); }

private:
    TempDir m_dir;
};

TEST_F(DefaultHost, CallsReachTheKernel) {
    const int fd = disk_access::HostOpen(Path().c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)), Path());
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(disk_access::HostSeek(fd, 3, SEEK_SET), 3);
    char bytes[4] = {};
    EXPECT_TRUE(disk_access::HostReadWhole(fd, bytes, 4));
    EXPECT_EQ(std::string(bytes, 4), "3456");
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 7);
    EXPECT_EQ(disk_access::HostSeek(fd, -1, SEEK_END), 9);
    disk_access::HostClose(fd);
    EXPECT_EQ(fcntl(fd, F_GETFL), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(DefaultHost, OffsetsAre64BitsWide) {
    const int fd = disk_access::HostOpen(Path().c_str(), O_RDONLY | O_LARGEFILE);
    EXPECT_EQ(disk_access::HostSeek(fd, 0x300000000, SEEK_SET), 0x300000000);
    EXPECT_EQ(disk_access::HostSeek(fd, 0, SEEK_CUR), 0x300000000);
    disk_access::HostClose(fd);
}

TEST_F(DefaultHost, ReadThatComesShortIsNoRead) {
    const int fd = disk_access::HostOpen(Path().c_str(), O_RDONLY);
    char bytes[16] = {};
    EXPECT_FALSE(disk_access::HostReadWhole(fd, bytes, 11));
    EXPECT_FALSE(disk_access::HostReadWhole(fd, bytes, 1)); // at the end
    EXPECT_TRUE(disk_access::HostReadWhole(fd, bytes, 0));
    disk_access::HostClose(fd);
    EXPECT_FALSE(disk_access::HostReadWhole(fd, bytes, 0)); // closed: the kernel's -1 is no size
    EXPECT_FALSE(disk_access::HostReadWhole(fd, bytes, SIZE_MAX));
}

TEST_F(DefaultHost, RefusalsAreTheKernels) {
    EXPECT_EQ(disk_access::HostOpen((Path() + "/missing").c_str(), O_RDONLY), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(disk_access::HostSeek(-1, 0, SEEK_SET), -1);
    int answer = 0;
    EXPECT_EQ(disk_access::HostControl(-1, FIONREAD, &answer), -1);
}

TEST_F(DefaultHost, RequestsAreAnsweredByTheKernel) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], "12345", 5), 5);
    int waiting = 0;
    EXPECT_EQ(disk_access::HostControl(ends[0], FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 5);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(DefaultHost, MessagesGoToTheStreamOfStandardOutput) {
    // One after the other with what the application prints itself.
    EXPECT_EQ(WrittenToStandardOutput([] {
                  std::printf("before\n");
                  disk_access::Message("%s : %d, Failed\n", "dev_open", 7);
                  std::printf("after\n");
              }),
              "before\ndev_open : 7, Failed\nafter\n");
}

// ---- other tables

/// A table whose calls all answer with a number of its own.
struct NumberedTable {
    explicit NumberedTable(int answer) : number(answer) {
        calls = {this,
                 [](void* self, const char*, int) { return Number(self); },
                 [](void* self, int, int64_t, int) -> int64_t { return Number(self); },
                 [](void* self, int, void*, size_t) -> int64_t { return Number(self); },
                 [](void* self, int) { return Number(self); },
                 [](void* self, int) { return Number(self); },
                 [](void* self, int, unsigned long, void*) { return Number(self); },
                 [](void* self, const char*, va_list) { ++static_cast<NumberedTable*>(self)->messages; }};
    }
    static int Number(void* self) { return static_cast<NumberedTable*>(self)->number; }

    int number;
    int messages = 0;
    HostCalls calls;
};

/// What the table in force answers; -1 from the default.
int Opened() {
    return disk_access::HostOpen("/no/such/file", O_RDONLY);
}

TEST(HostScope, PutsEachCallInForce) {
    NumberedTable table(7);
    const HostScope scope(table.calls);
    char byte = 0;
    EXPECT_EQ(disk_access::HostOpen("/", O_RDONLY), 7);
    EXPECT_EQ(disk_access::HostSeek(1, 0, SEEK_SET), 7);
    EXPECT_TRUE(disk_access::HostReadWhole(1, &byte, 7));
    EXPECT_FALSE(disk_access::HostReadWhole(1, &byte, 6));
    EXPECT_EQ(disk_access::HostControl(1, 0, &byte), 7);
    disk_access::Message("%d\n", 1);
    EXPECT_EQ(table.messages, 1);
}

TEST(HostScope, NestsAndRestores) {
    const NumberedTable outer(7);
    const NumberedTable inner(8);
    EXPECT_EQ(Opened(), -1);
    {
        const HostScope first(outer.calls);
        EXPECT_EQ(&first.Before(), &disk_access::kKernelCalls);
        EXPECT_EQ(Opened(), 7);
        {
            const HostScope second(inner.calls);
            EXPECT_EQ(&second.Before(), &outer.calls);
            EXPECT_EQ(Opened(), 8);
            const HostScope third(disk_access::kKernelCalls);
            EXPECT_EQ(Opened(), -1);
        }
        EXPECT_EQ(Opened(), 7);
        try {
            const HostScope second(inner.calls);
            throw std::runtime_error("the scope is left");
        } catch (const std::runtime_error&) {
            EXPECT_EQ(Opened(), 7);
        }
    }
    EXPECT_EQ(Opened(), -1);
}

TEST(HostScope, IsOfItsThreadAlone) {
    const NumberedTable ofFirst(7);
    const NumberedTable ofSecond(8);
    std::atomic<int> ready{0};
    const auto openedWhenAllAreReady = [&ready] {
        ++ready;
        while (ready < 3) {
            std::this_thread::yield();
        }
        return Opened();
    };
    int first = 0;
    int second = 0;
    int third = 0;
    std::thread threads[] = {std::thread([&] {
                                 const HostScope scope(ofFirst.calls);
                                 first = openedWhenAllAreReady();
                             }),
                             std::thread([&] {
                                 const HostScope scope(ofSecond.calls);
                                 second = openedWhenAllAreReady();
                             }),
                             std::thread([&] { third = openedWhenAllAreReady(); })};
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(first, 7);
    EXPECT_EQ(second, 8);
    EXPECT_EQ(third, -1);
    EXPECT_EQ(Opened(), -1);
}

// ---- messages

TEST(HostMessages, AreCapturedWholeAndInOrder) {
    const std::string longText(10000, 'x');
    EXPECT_EQ(Printed([&] {
                  disk_access::Message("%d\n", 1);
                  disk_access::Message("%s\n", longText.c_str());
                  disk_access::Message("no end of line");
                  disk_access::Message("%s : %d, Failed\n", "dev_open", 3);
              }),
              "1\n" + longText + "\nno end of linedev_open : 3, Failed\n");
}

TEST(HostMessages, GoToTheInnermostCapture) {
    std::string inner;
    const std::string outer = Printed([&] {
        disk_access::Message("before\n");
        inner = Printed([] { disk_access::Message("inside\n"); });
        Quietly([] { disk_access::Message("thrown away %.*s\n", 1, "x"); });
        disk_access::Message("after\n");
    });
    EXPECT_EQ(inner, "inside\n");
    EXPECT_EQ(outer, "before\nafter\n");
}

// ---- a library on devices in memory

/// Lays a file's bytes on a device; pages of zeros are left out.
void LayFile(const std::string& path, MemoryDevice& device) {
    constexpr size_t kPage = 4096;
    const std::string bytes = ReadFile(path);
    ASSERT_LE(bytes.size(), MemoryDevice::kLargest);
    device.SetSize(bytes.size());
    for (size_t at = 0; at < bytes.size(); at += kPage) {
        const std::string page = bytes.substr(at, kPage);
        if (page.find_first_not_of('\0') != std::string::npos) {
            device.Lay(at, reinterpret_cast<const uint8_t*>(page.data()), page.size());
        }
    }
}

/// A disk whose bytes come to lie in memory.
class InMemory : public PartFixture {
protected:
    /// Moves the disk to a device in memory with a name that no file has.
    /// @param name need not leave room for its end in a partition descriptor
    PartAccess_t MoveToMemory(const std::string& name = "/memory/disk") {
        PartAccess_t access = Disk().Access();
        LayFile(Disk().Path(), m_memory.Add(name));
        std::filesystem::remove(Disk().Path());
        std::memset(access.PartName, 0, sizeof access.PartName);
        name.copy(access.PartName, sizeof access.PartName);
        return access;
    }
    size_t OpenDescriptors() const { return m_memory.Table().OpenDescriptors(); }

private:
    MemoryDevices m_memory;
};

class InMemoryLayouts : public InMemory, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(InMemoryLayouts, SearchAndPlaybackAreThoseOfTheFile) {
    Format format;
    format.fmtVersion = GetParam();
    MakeDisk(format);
    Record(kRoundScript);
    std::string ofFile;
    const std::string saidOfFile = Printed([&] { ofFile = Transcript(Disk().Access()); });
    const PartAccess_t access = MoveToMemory();
    std::string ofMemory;
    const std::string saidOfMemory = Printed([&] { ofMemory = Transcript(access); });
    // Of the ten frames of block 0, the first is a P-frame: seven of 100 bytes follow, one of 16 and one of 700.
    EXPECT_NE(ofFile.find("unit 0: 9 frames, 1416 bytes"), std::string::npos) << ofFile;
    EXPECT_NE(saidOfFile.find("GetLastBlock LastBlockNum = 2"), std::string::npos) << saidOfFile;
    EXPECT_EQ(ofMemory, ofFile);
    EXPECT_EQ(saidOfMemory, saidOfFile);
    EXPECT_EQ(OpenDescriptors(), 0u);
}

TEST_P(InMemoryLayouts, DumpIsThatOfABlockDevice) {
    const ZoneSetting utc("UTC");
    MakeDisk(SampleFormat(GetParam()));
    WriteSampleBlocks(Disk());
    const PartAccess_t access = MoveToMemory();
    const std::string layout = GetParam() == 1 ? "extended_" : "normal_";
    const std::pair<int, const char*> levels[] = {
        {-1, "size"}, {0, "tables"}, {1, "head"}, {2, "blocks"}, {3, "detail"}};
    for (const auto& [level, name] : levels) {
        const Dumped dumped = Dump(access, level);
        EXPECT_EQ(dumped.result, 0) << level;
        EXPECT_EQ(dumped.text, Expected(layout + name)) << level;
    }
    EXPECT_EQ(OpenDescriptors(), 0u);
}

INSTANTIATE_TEST_SUITE_P(FmtVersion, InMemoryLayouts, ::testing::Values(0u, 1u));

TEST_F(InMemory, NameWithoutEndIsFoundAndPrintedWhole) {
    MakeDisk();
    const std::string name = "/" + std::string(127, 'n');
    PartAccess_t access = MoveToMemory(name);
    CReadPart part;
    ASSERT_EQ(part.Init(&access), 0);
    EXPECT_EQ(Printed([&] { part.PrintInitInfo(); }),
              "*********************PrintInitInfo START********************** \n"
              "PartName : " +
                  name +
                  "\n"
                  "BlockCount : 8\n"
                  "BlockSize : 65536\n"
                  "PartStatus : 0\n"
                  "**********************PrintInitInfo END*********************** \n");
    part.Quit();
}

} // namespace
