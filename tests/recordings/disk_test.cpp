// Opening a partition: what is refused and how it is said, geometry, tables, lock.

#include "recordings/disk.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>

#include "recordings/error.h"
#include "recordings/recordings_fixture.h"

namespace test_support {

namespace {

using recordings::BlockMark;
using recordings::Error;
using recordings::ErrorKind;
using sample_recorder::Format;

class OpenedDisk : public RecordingsFixture {
protected:
    void SetUp() override { MakeDisk(); }

    /// The kind of error that opening the disk ends with, and what it says after the disk's name.
    static std::pair<ErrorKind, std::string> Refusal(const std::string& path, std::optional<int> type = {}) {
        try {
            recordings::Disk disk(recordings::OpenSource(path), type);
        } catch (const Error& error) {
            const std::string text = error.what();
            EXPECT_EQ(text.rfind(path + ": ", 0), 0u) << text;
            return {error.Kind(), text.substr(path.size() + 2)};
        }
        ADD_FAILURE() << "not refused";
        return {};
    }
    std::vector<std::string> OpeningProblems() {
        std::vector<std::string> lines;
        for (const auto& problem : Open().OpeningProblems()) {
            lines.push_back(Brief(problem));
        }
        return lines;
    }
};

using Lines = std::vector<std::string>;

TEST_F(OpenedDisk, SaysWhatItsHeadSays) {
    Format format;
    format.blockCount = 5;
    format.blockSize = 0x20000;
    format.fmtVersion = 1;
    format.description = "bus 12";
    format.encrypt = 1;
    format.encryptMap = 0x9;
    MakeDisk(format);
    const recordings::Disk& disk = Open();
    EXPECT_EQ(disk.Facts().description, "bus 12");
    EXPECT_TRUE(disk.Facts().extendedLayout);
    EXPECT_EQ(disk.Facts().blockCount, 5u);
    EXPECT_EQ(disk.Facts().lockedSet.bits, 0x9u);
    EXPECT_EQ(disk.BlockCount(), 5u);
    EXPECT_EQ(disk.WholeBlocks(), 5u);
    EXPECT_EQ(disk.StartOf(3), 0x800000u + 3 * 0x20000u);
    // Head area 2048; tail area 512, with 1/256 of the block 1024: an index area of 4096.
    EXPECT_EQ(disk.Layout().frames, 2048u);
    EXPECT_EQ(disk.Layout().index, 0x20000u - 4096);
    EXPECT_EQ(disk.Layout().frameBytes, 0x20000u - 4096 - 2048);
    EXPECT_EQ(disk.Layout().tail, 0x20000u - 512);
    EXPECT_EQ(OpeningProblems(), Lines{});
}

TEST_F(OpenedDisk, RefusesWhatIsNoPartition) {
    std::ofstream(File("empty")).close();
    EXPECT_EQ(Refusal(File("empty")),
              std::make_pair(ErrorKind::Empty, std::string("is empty; copy the partition again")));
    std::ofstream(File("short")) << std::string(199, 'x');
    EXPECT_EQ(Refusal(File("short")).first, ErrorKind::CutOff);
    std::ofstream(File("other")) << std::string(400, 'x');
    EXPECT_EQ(Refusal(File("other")),
              std::make_pair(ErrorKind::NotAPartition,
                             std::string("has no partition head (it begins 0x78787878); give the recorder's "
                                         "partition, the disk that it lies on, or an image of one of them")));
    EXPECT_EQ(Refusal(File("missing")).first, ErrorKind::CannotOpen);
    EXPECT_EQ(Refusal(File("")).first, ErrorKind::CannotOpen);
}

TEST_F(OpenedDisk, RefusesAPipeAtOnce) {
    ASSERT_EQ(mkfifo(File("pipe").c_str(), 0600), 0);
    EXPECT_EQ(Refusal(File("pipe")).first, ErrorKind::CannotOpen);
}

TEST_F(OpenedDisk, RefusesTheWrongDiskType) {
    EXPECT_EQ(Refusal(Image().Path(), 52).first, ErrorKind::WrongDiskType);
    EXPECT_EQ(recordings::Disk(recordings::OpenSource(Image().Path()), 7).DiskType(), 7);
    EXPECT_EQ(Open().DiskType(), 0);
}

TEST_F(OpenedDisk, RefusesAGeometryThatHoldsNoBlock) {
    Image().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    EXPECT_EQ(Refusal(Image().Path()).first, ErrorKind::BadGeometry);
    // Head area 840 and an index area of 4096: one byte too few.
    Image().EditHead([](PartHead_t& head) {
        head.BlkCount = 8;
        head.BlkSize = 840 + 4096 - 1;
    });
    EXPECT_EQ(Refusal(Image().Path()).first, ErrorKind::BadGeometry);
}

TEST_F(OpenedDisk, AnUnreadableHeadIsSaid) {
    Fail(0, 200);
    try {
        Open();
        ADD_FAILURE() << "opened";
    } catch (const Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::HeadUnreadable);
    }
}

TEST_F(OpenedDisk, ADeviceThatEndsEarlyIsSaid) {
    Image().Truncate(Image().BlockStart(5) + 100);
    EXPECT_EQ(Open().BlockCount(), 6u);
    EXPECT_EQ(Open().WholeBlocks(), 5u);
    EXPECT_EQ(OpeningProblems(), Lines{"device_cut_off loss block 5 count 3"});
}

TEST_F(OpenedDisk, ReadsMarks) {
    Image().SetBad(2);
    Image().SetSuspect(3, 1);
    const recordings::Disk& disk = Open();
    EXPECT_EQ(disk.MarkOf(1), BlockMark::None);
    EXPECT_EQ(disk.MarkOf(2), BlockMark::Bad);
    EXPECT_EQ(disk.MarkOf(3), BlockMark::Suspect);
    EXPECT_EQ(disk.MarkOf(99), BlockMark::None);
}

TEST_F(OpenedDisk, TakesTheBackupOfATableThatCannotBeRead) {
    Image().SetBad(2);
    const PartHead_t& head = Image().Head();
    Fail(head.BBTabOffs, head.BBTabOffs + 1);
    EXPECT_EQ(OpeningProblems(), Lines{"backup_tables_used note"});
    EXPECT_EQ(Open().MarkOf(2), BlockMark::Bad);
    Fail(head.BBTabBakOffs, head.BBTabBakOffs + 1);
    EXPECT_EQ(OpeningProblems(), Lines{"tables_unreadable note"});
    EXPECT_EQ(Open().MarkOf(2), BlockMark::None);
}

TEST_F(OpenedDisk, HidesLockedChannelsUntilThePasswordIsGiven) {
    Format format;
    format.encrypt = 1;
    format.encryptMap = 0x6;
    format.password = "secret";
    MakeDisk(format);
    recordings::Disk& disk = Open();
    EXPECT_EQ(disk.Hidden().bits, 0x6u);
    EXPECT_FALSE(disk.Unlock("Secret"));
    EXPECT_EQ(disk.Hidden().bits, 0x6u);
    EXPECT_TRUE(disk.Unlock("secret"));
    EXPECT_EQ(disk.Hidden().bits, 0u);
}

TEST_F(OpenedDisk, ALockOfValueTwoIsNone) {
    Format format;
    format.encrypt = 2;
    format.encryptMap = 0x6;
    MakeDisk(format);
    EXPECT_EQ(Open().Hidden().bits, 0u);
}

TEST_F(OpenedDisk, APasswordWithoutEndCountsWithItsFirst127Characters) {
    Image().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 1;
        std::memset(head.CipherCode, 'p', sizeof head.CipherCode);
    });
    EXPECT_TRUE(Open().Unlock(std::string(127, 'p')));
    EXPECT_FALSE(Open().Unlock(std::string(128, 'p')));
}

} // namespace

} // namespace test_support
