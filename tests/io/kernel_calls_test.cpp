// The calls that the shared library makes on the real kernel: complete lists for a search, a playback and a dump, which
// together make every kind of call; and where its messages go. Other tests may rely on a replacement of the kernel.

#include "io/kernel_calls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "disk_access.h"
#include "sample_recorder/recorder.h"
#include "support/loop_device.h"
#include "support/standard_output.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;

using Lines = std::vector<std::string>;

constexpr uint32_t kStart = 1700000000;
constexpr uint64_t kBlock = 0x800000;        // where block 0 begins
constexpr uint64_t kFrames = kBlock + 840;   // its frames
constexpr uint64_t kIndex = kBlock + 0xF000; // its index area: one page, the last of 64 KiB
constexpr uint64_t kTail = kBlock + 0xFFEC;  // its tail: the last 20 bytes

/// Calls as KernelCalls notes them.
/// @{
std::string Open(int flags) {
    char text[32];
    std::snprintf(text, sizeof text, "open64(%#x)", static_cast<unsigned int>(flags));
    return text;
}
std::string Request(unsigned long request) {
    char text[32];
    std::snprintf(text, sizeof text, "ioctl(%#lx)", request);
    return text;
}
std::string SeekTo(uint64_t offset) {
    return "lseek64(" + std::to_string(offset) + ", SEEK_SET)";
}
std::string Read(size_t size) {
    return "read(" + std::to_string(size) + ")";
}
Lines Part(uint64_t offset, size_t size) {
    return {SeekTo(offset), Read(size)};
}
Lines BlockHead() {
    return Part(kBlock, 840);
}
const std::string kSize = "lseek64(0, SEEK_END)";
const std::string kFlush = "fsync()";
const std::string kClose = "close()";
/// @}

Lines Joined(const std::vector<Lines>& parts) {
    Lines lines;
    for (const Lines& part : parts) {
        lines.insert(lines.end(), part.begin(), part.end());
    }
    return lines;
}

int Ignore(void* /*ctx*/, const char* /*format*/, ...) {
    return 0;
}

/// A ring of one block, closed, in which channel 0 has I-frames of 100 and 50 bytes, two seconds apart.
class KernelCallsOf : public ::testing::Test {
protected:
    KernelCallsOf() : m_image(MakeImage()) {
        sample_recorder::RecorderSettings settings;
        settings.channels = 1;
        sample_recorder::Recorder recorder(m_image, settings);
        recorder.Write(IFrame(0, 100));
        recorder.Write(IFrame(2, 50));
        recorder.PowerOff();
    }

    const std::string& Path() const { return m_image.Path(); }
    PartAccess_t Access() const { return m_image.Access(); }

    /// Runs an action with the library's own messages thrown away.
    /// @return its calls on a file
    template <typename Action>
    static Lines CallsOn(const std::string& path, Action action) {
        const KernelCalls calls(path);
        WrittenToStandardOutput([&] { action(); });
        return calls.Lines();
    }

private:
    sample_recorder::PartitionImage MakeImage() const {
        sample_recorder::Format format;
        format.blockCount = 1;
        format.blockSize = 0x10000;
        return sample_recorder::PartitionImage::Create(m_dir.File("disk"), format);
    }
    static sample_recorder::Frame IFrame(uint32_t second, size_t length) {
        sample_recorder::Frame frame;
        frame.type = sample_recorder::kVideoI;
        frame.pts = int64_t{kStart + second} * 1000000;
        frame.payload.assign(length, 7);
        return frame;
    }

    TempDir m_dir;
    sample_recorder::PartitionImage m_image;
};

TEST_F(KernelCallsOf, ASearch) {
    PartAccess_t access = Access();
    int found = 0;
    const Lines calls = CallsOn(Path(), [&] {
        CSearchDisk disk;
        CCommList<RecordItem_t> records;
        SearchParam_t everything = {0, 0, 0x7FFFFFFF, 0xFFFFFFFF};
        disk.Init(&access);
        found = disk.SearchMedia(&everything, &records);
        disk.Quit();
    });
    EXPECT_EQ(found, 1);
    EXPECT_EQ(
        calls,
        Joined({{Open(O_RDONLY | O_LARGEFILE), Read(200)},
                // The bad-block tables: a byte of bits, and a counter.
                {kSize},
                Part(0x1000, 1),
                Part(0x2000, 1),
                // The newest block: the ring's two ends, and its middle. The oldest. The newest's time.
                BlockHead(),
                BlockHead(),
                BlockHead(),
                BlockHead(),
                BlockHead(),
                // The walk's one block: whether it holds anything; then all that tells of its records. In
                // the index, two entries of 16 bytes for I-frames come before the segment's.
                BlockHead(),
                BlockHead(),
                Part(kTail, 20),
                Part(kIndex, 260),
                Part(kIndex + 260 + 2 * 16, 20),
                {kClose}}));
}

TEST_F(KernelCallsOf, APlayback) {
    PartAccess_t access = Access();
    CReadDisk disk;
    ASSERT_EQ(disk.Init(&access), 0);
    RecordItem_t record = {};
    record.startTime = kStart;
    record.endTime = kStart + 2;
    int result = -1;
    const Lines calls = CallsOn(Path(), [&] {
        FrameInfo_t info = {};
        void* payload = nullptr;
        void* const reader = disk.StartRead(0, &record);
        result = disk.ReadFrame(reader, &info, &payload);
        disk.StopRead(reader);
        std::free(payload);
    });
    disk.Quit();
    EXPECT_EQ(result, 0);
    const Lines opening = Joined({{Open(O_RDONLY | O_LARGEFILE), SeekTo(kBlock)},
                                  BlockHead(),
                                  Part(kTail, 20),
                                  Part(kIndex, 260),
                                  Part(kIndex + 260, 2 * 16),
                                  Part(kIndex + 260 + 2 * 16, 20)});
    EXPECT_EQ(calls, Joined({opening,
                             // The record begins where its segment does: it is looked up by a second window.
                             opening,
                             {kFlush, kClose},
                             // The walk to the segment's first I-frame, and on to the frame after it.
                             Part(kFrames, 24),
                             {SeekTo(kFrames + 124)},
                             // The frame.
                             Part(kFrames, 24),
                             {Read(100)},
                             {kFlush, kClose}}));
}

TEST_F(KernelCallsOf, ADumpOfAFile) {
    PartAccess_t access = Access();
    EXPECT_EQ(CallsOn(Path(), [&] { CPrintDisk().Print(&access, 3, Ignore, nullptr); }),
              (Lines{Open(O_RDONLY), Request(BLKSSZGET), kClose})); // it is none of those that have a size
}

TEST_F(KernelCallsOf, ADumpOfABlockDevice) {
    const LoopDevice device(Path());
    if (!device.Attached()) {
        GTEST_SKIP() << "this machine attaches no loop device: it takes root, losetup and the kernel's leave";
    }
    PartAccess_t access = {};
    device.Path().copy(access.PartName, sizeof access.PartName);
    int result = -1;
    const Lines calls =
        CallsOn(device.Path(), [&] { result = CPrintDisk().Print(&access, 3, Ignore, nullptr); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(calls, Joined({{Open(O_RDONLY), Request(BLKSSZGET), Request(BLKGETSIZE64), kClose},
                             {Open(O_RDONLY | O_LARGEFILE)},
                             Part(0, 200),
                             BlockHead(),
                             Part(kIndex, 260),
                             Part(kIndex + 260 + 2 * 16, 20),
                             Part(kTail, 20),
                             // What would be an extended tail: in this layout it lies after the block.
                             Part(kTail + 20, 12),
                             {kClose}}));
}

TEST_F(KernelCallsOf, AFailureThatIsTold) {
    PartAccess_t missing = Access();
    missing.PartName[0] = 'x';
    const std::string said = WrittenToStandardOutput([&] {
        std::printf("The disk:\n");
        EXPECT_EQ(dev_open(&missing), nullptr);
        std::printf("It is gone.\n");
    });
    const std::string before = "The disk:\ndev_open : ";
    const std::string after = ", Failed\nIt is gone.\n";
    ASSERT_GT(said.size(), before.size() + after.size()) << said;
    EXPECT_EQ(said.substr(0, before.size()), before);
    EXPECT_EQ(said.substr(said.size() - after.size()), after);
    EXPECT_EQ(said.find_first_not_of("0123456789", before.size()), said.size() - after.size()) << said;
}

} // namespace
