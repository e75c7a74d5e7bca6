// Where the bytes of a partition come from: whole disks with a partition table, split images, E01.

#include "recordings/source.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "recordings/error.h"
#include "recordings/recordings_fixture.h"
#include "support/files.h"
#include "support/loop_device.h"
#include "support/partition_tables.h"

namespace test_support {

namespace {

namespace fs = std::filesystem;
using recordings::Error;
using recordings::ErrorKind;
using recordings::OpenSource;
using recordings::OpenWhole;
using recordings::Partition;
using recordings::ReadPartitionTable;
using recordings::Source;

constexpr uint64_t kSector = 512;
constexpr uint64_t kMiB = 0x100000;

std::string Bytes(const Source& source, uint64_t offset, size_t size) {
    std::string bytes(size, '\0');
    bytes.resize(source.Read(offset, bytes.data(), size));
    return bytes;
}

/// Partitions as lines: "number start+size", an R after those of recorders.
std::vector<std::string> Lines(const std::vector<Partition>& partitions) {
    std::vector<std::string> lines;
    for (const Partition& each : partitions) {
        lines.push_back(std::to_string(each.number) + " " + std::to_string(each.start) + "+" +
                        std::to_string(each.size) + (each.recorder ? " R" : ""));
    }
    return lines;
}

using Strings = std::vector<std::string>;

class SourceTest : public RecordingsFixture {
protected:
    void SetUp() override {
        sample_recorder::Format format;
        format.blockCount = 2;
        MakeDisk(format);
        m_partition = ReadFile(Image().Path());
    }

    /// The kind of error that opening ends with, and what it says after the name.
    template <typename Open>
    std::pair<ErrorKind, std::string> RefusalOf(const std::string& name, const Open& open) {
        try {
            open();
        } catch (const Error& error) {
            const std::string text = error.what();
            EXPECT_EQ(text.rfind(File(name) + ": ", 0), 0u) << text;
            return {error.Kind(), text.substr(File(name).size() + 2)};
        }
        ADD_FAILURE() << "not refused";
        return {};
    }

    std::pair<ErrorKind, std::string> Refusal(const std::string& name,
                                              std::optional<uint32_t> partition = {}) {
        return RefusalOf(name, [&] { OpenSource(File(name), partition); });
    }

    /// A disk with the recorder's partition from some sectors on; they must be in its table too.
    std::string MakeWhole(const std::string& name, const std::vector<uint64_t>& starts, uint64_t bytes = 0) {
        MakeDiskFile(File(name), bytes != 0 ? bytes : 16 * kMiB);
        for (const uint64_t start : starts) {
            WriteInto(File(name), start * kSector, m_partition);
        }
        return File(name);
    }
    uint64_t Sectors() const { return m_partition.size() / kSector; }

    /// Cuts the partition into files: NAME.ENDING each.
    void Split(const std::string& name, const Strings& endings) {
        const size_t piece = m_partition.size() / endings.size() + 1;
        for (size_t i = 0; i < endings.size(); ++i) {
            std::ofstream(File(name + "." + endings[i]), std::ios::binary)
                << m_partition.substr(i * piece, piece);
        }
    }

    std::string m_partition;
};

// ---- partition tables

TEST_F(SourceTest, APartitionByItselfIsAllThatThereIs) {
    const auto source = OpenSource(Image().Path());
    EXPECT_EQ(source->Size(), m_partition.size());
    EXPECT_FALSE(source->PartOfDisk());
    EXPECT_EQ(source->Descriptors().size(), 1u);
}

TEST_F(SourceTest, TheRecordersPartitionOfAnMbrIsFound) {
    const std::string path = MakeWhole("whole", {20480});
    WriteMbr(path, {{2048, 8192}, {20480, Sectors()}});
    const auto source = OpenSource(path);
    EXPECT_EQ(source->Name(), path);
    EXPECT_EQ(source->Size(), m_partition.size());
    ASSERT_TRUE(source->PartOfDisk());
    EXPECT_EQ(source->PartOfDisk()->number, 2u);
    EXPECT_EQ(source->PartOfDisk()->start, 20480 * kSector);
    EXPECT_EQ(Bytes(*source, 0, m_partition.size()), m_partition);
    // Nothing of what lies after it is seen.
    EXPECT_EQ(Bytes(*source, m_partition.size() - 2, 10).size(), 2u);
    EXPECT_EQ(Bytes(*source, m_partition.size() + 5, 10).size(), 0u);
    EXPECT_EQ(recordings::Disk(OpenSource(path)).BlockCount(), 2u);
    EXPECT_EQ(Lines(ReadPartitionTable(*OpenWhole(path))),
              (Strings{"1 1048576+4194304", "2 10485760+" + std::to_string(m_partition.size()) + " R"}));
}

/// A source that remembers the last stretch that it was told of.
class ToldSource : public Source {
public:
    ToldSource(uint64_t size, std::pair<uint64_t, size_t>& told) : m_size(size), m_told(told) {}
    const std::string& Name() const override { return m_name; }
    uint64_t Size() const override { return m_size; }
    bool IsBlockDevice() const override { return true; }
    size_t Read(uint64_t, void*, size_t) const override { return 0; }
    void WillNeed(uint64_t offset, size_t size) const override { m_told = {offset, size}; }

private:
    const std::string m_name = "told";
    uint64_t m_size;
    std::pair<uint64_t, size_t>& m_told;
};

/// What is asked for ahead must be what is read then: elsewhere it would take the disk's time for nothing.
TEST_F(SourceTest, OfAPartitionIsAskedForAheadWhatLiesInIt) {
    std::pair<uint64_t, size_t> told;
    const auto part =
        recordings::OpenPartition(std::make_unique<ToldSource>(10000, told), {1, 2000, 3000, true});
    EXPECT_EQ(part->Name(), "told");
    EXPECT_TRUE(part->IsBlockDevice());
    part->WillNeed(100, 200);
    EXPECT_EQ(told, (std::pair<uint64_t, size_t>(2100, 200)));
    part->WillNeed(2900, 200); // 100 bytes of it lie after the partition
    EXPECT_EQ(told, (std::pair<uint64_t, size_t>(4900, 100)));
    part->WillNeed(UINT64_MAX, 200);
    EXPECT_EQ(told, (std::pair<uint64_t, size_t>(5000, 0)));
}

TEST_F(SourceTest, ABlockDeviceIsAllThatThereIs) {
    fs::copy_file(Image().Path(), File("disk.001"));
    const LoopDevice device(File("disk.001"));
    if (!device.Attached()) {
        GTEST_SKIP() << "this machine attaches no loop device: it takes root, losetup and the kernel's leave";
    }
    // Named like the first part of a split image, which would be refused: the third is there, the second is not.
    fs::create_symlink(device.Path(), File("link.001"));
    std::ofstream(File("link.003")) << "x";
    const auto source = OpenSource(File("link.001"));
    EXPECT_TRUE(source->IsBlockDevice());
    EXPECT_EQ(source->Size(), m_partition.size());
    EXPECT_TRUE(Bytes(*source, 0, m_partition.size()) == m_partition);
}

TEST_F(SourceTest, LogicalPartitionsAreFound) {
    const std::string path = MakeWhole("whole", {30720}, 32 * kMiB);
    WriteMbr(path, {{2048, 8192}}, {{12289, 2048}, {20481, 1024}, {30720, Sectors()}});
    const auto source = OpenSource(path);
    ASSERT_TRUE(source->PartOfDisk());
    EXPECT_EQ(source->PartOfDisk()->number, 7u); // the primary ones have 1 to 4
    EXPECT_EQ(Bytes(*source, 0, 4096), m_partition.substr(0, 4096));
}

TEST_F(SourceTest, AGptIsFoundByEitherCopy) {
    for (const uint32_t sectorSize : {512u, 4096u}) {
        const uint64_t scale = sectorSize / kSector;
        const std::string path = MakeWhole("whole", {8192}, 24 * kMiB);
        WriteGpt(path, {{2048 / scale, 2048 / scale}, {8192 / scale, Sectors() / scale}}, sectorSize);
        EXPECT_EQ(OpenSource(path)->PartOfDisk().value_or(Partition()).number, 2u) << sectorSize;
        WriteInto(path, sectorSize, std::string(sectorSize, 'x'));
        EXPECT_EQ(OpenSource(path)->PartOfDisk().value_or(Partition()).number, 2u) << sectorSize;
        WriteInto(path, 24 * kMiB - sectorSize, std::string(sectorSize, 'x'));
        EXPECT_FALSE(OpenSource(path)->PartOfDisk()) << sectorSize;
    }
}

/// The other copy of a GPT lies at the disk's end, and a copy that is cut off does not reach there.
TEST_F(SourceTest, AGptIsReadOfACopyThatIsCutOff) {
    for (const uint32_t sectorSize : {512u, 4096u}) {
        const uint64_t scale = sectorSize / kSector;
        const std::string path = MakeWhole("whole", {8192}, 24 * kMiB);
        WriteGpt(path, {{2048 / scale, 2048 / scale}, {8192 / scale, Sectors() / scale}, {36864 / scale, 8}},
                 sectorSize);
        fs::resize_file(path, 10 * kMiB);
        EXPECT_EQ(Lines(ReadPartitionTable(*OpenWhole(path))),
                  (Strings{"1 1048576+1048576", "2 4194304+6291456 R"}))
            << sectorSize;
        const recordings::Disk disk(OpenSource(path));
        ASSERT_EQ(disk.OpeningProblems().size(), 1u);
        EXPECT_EQ(disk.OpeningProblems()[0].kind, recordings::ProblemKind::DeviceCutOff);
    }
}

TEST_F(SourceTest, OfSeveralRecordersOneIsChosen) {
    const std::string path = MakeWhole("whole", {2048, 40960}, 40 * kMiB);
    WriteMbr(path, {{2048, 20480}, {24576, 2048}, {40960, 24576}});
    EXPECT_EQ(Refusal("whole"),
              std::make_pair(ErrorKind::SeveralPartitions,
                             std::string("holds 2 partitions of recorders: 1 (10 MiB), 3 (12 MiB)")));
    EXPECT_EQ(OpenSource(path, 1)->Size(), 10 * kMiB);
    EXPECT_EQ(OpenSource(path, 3)->PartOfDisk()->start, 20 * kMiB);
    EXPECT_EQ(Refusal("whole", 4),
              std::make_pair(ErrorKind::NoSuchPartition,
                             std::string("holds no partition 4, but 1 (10 MiB), 2 (1 MiB), 3 (12 MiB)")));
    // One that has no head can be named too: what is wrong with it is said by who opens the disk.
    EXPECT_EQ(OpenSource(path, 2)->Size(), kMiB);
    EXPECT_EQ(RefusalOf("whole", [&] { recordings::Disk(OpenSource(path, 2)); }),
              std::make_pair(ErrorKind::NoSuchPartition,
                             std::string("partition 2 has no partition head (it begins 0x00000000)")));
}

TEST_F(SourceTest, APartitionIsNotLookedForOnAPartition) {
    const std::string name = Image().Path().substr(File("").size());
    EXPECT_EQ(Refusal(name, 1),
              std::make_pair(ErrorKind::NoSuchPartition,
                             std::string("holds no partition 1: there is no partition table on it")));
}

TEST_F(SourceTest, ADiskWithoutARecorderIsTakenAsItIs) {
    const std::string path = MakeWhole("whole", {});
    EXPECT_EQ(OpenSource(path)->Size(), 16 * kMiB);
    WriteMbr(path, {{2048, 8192}});
    EXPECT_FALSE(OpenSource(path)->PartOfDisk());
    EXPECT_EQ(Lines(ReadPartitionTable(*OpenWhole(path))), Strings{"1 1048576+4194304"});
}

TEST_F(SourceTest, APartitionWithoutItsHeadIsKnownByItsBlocks) {
    const std::string gone =
        "holds a recorder's blocks, but has no partition head: it was overwritten, or is missing "
        "from the copy; copy the partition again, or give an earlier copy";
    const auto refusal = [this](std::optional<uint32_t> partition = std::nullopt) {
        return RefusalOf("whole", [&] { recordings::Disk(OpenSource(File("whole"), partition)); });
    };
    const auto alone = [](const std::string& name) {
        return Lines(recordings::HeadlessPartitions(*OpenWhole(name)));
    };
    const std::string path = MakeWhole("whole", {10240}, 32 * kMiB);
    WriteMbr(path, {{2048, 8192}, {10240, Sectors()}});
    EXPECT_EQ(alone(path),
              Strings{}); // its head is there, and the small partition before it ends before the blocks
    WriteInto(path, 10240 * kSector, std::string(kMiB, '\0'));
    const std::string line = "2 5242880+" + std::to_string(Sectors() * kSector);
    EXPECT_EQ(alone(path), Strings{}); // nothing was recorded yet
    BlockHead_t head = {};
    head.ValidFlag = BLOCK_MAGIC;
    head.RecTime = 1795183200;
    head.RecSeq = 1;
    const std::string bytes(reinterpret_cast<const char*>(&head), sizeof head);
    WriteInto(path, 10240 * kSector + 8 * kMiB, bytes);
    EXPECT_EQ(alone(path), Strings{line});
    EXPECT_EQ(refusal(), std::make_pair(ErrorKind::NotAPartition, "partition 2 " + gone));
    EXPECT_EQ(refusal(2), std::make_pair(ErrorKind::NotAPartition, "partition 2 " + gone));
    EXPECT_EQ(refusal(1).first, ErrorKind::NoSuchPartition);
    // Without a table it is the disk itself, and another block than the first tells as well.
    WriteInto(path, 0, std::string(kSector, '\0'));
    EXPECT_EQ(alone(path), Strings{"0 0+" + std::to_string(32 * kMiB)});
    EXPECT_EQ(refusal(), std::make_pair(ErrorKind::NotAPartition, gone));
    // What only looks like the beginning of a block is none.
    WriteInto(path, 10240 * kSector + 8 * kMiB, bytes.substr(0, 4) + std::string(8, '\0'));
    EXPECT_EQ(alone(path), Strings{});
}

/// An extended partition holds the blocks of the logical ones in it, and is itself none of a recorder.
TEST_F(SourceTest, AnExtendedPartitionHasLostNoHead) {
    const std::string path = MakeWhole("whole", {16384}, 32 * kMiB);
    WriteMbr(path, {}, {{12289, 1024}, {16384, Sectors()}}); // the extended one begins at 12288, 2 MiB before
    BlockHead_t head = {};
    head.ValidFlag = BLOCK_MAGIC;
    head.RecTime = 1795183200;
    head.RecSeq = 1;
    WriteInto(path, 16384 * kSector + 8 * kMiB,
              std::string(reinterpret_cast<const char*>(&head), sizeof head));
    EXPECT_EQ(Lines(recordings::HeadlessPartitions(*OpenWhole(path))), Strings{});
    WriteInto(path, 16384 * kSector, std::string(kSector, '\0'));
    EXPECT_EQ(Lines(recordings::HeadlessPartitions(*OpenWhole(path))),
              Strings{"6 8388608+" + std::to_string(m_partition.size())});
}

TEST_F(SourceTest, APartitionThatReachesBeyondTheDiskIsCutThere) {
    const std::string path = MakeWhole("whole", {20480});
    WriteMbr(path, {{20480, 0x10000000}, {0x10000000, 2048}});
    fs::resize_file(path, 15 * kMiB);
    EXPECT_EQ(Lines(ReadPartitionTable(*OpenWhole(path))), Strings{"1 10485760+5242880 R"});
    const recordings::Disk disk(OpenSource(path));
    ASSERT_EQ(disk.OpeningProblems().size(), 1u);
    EXPECT_EQ(disk.OpeningProblems()[0].kind, recordings::ProblemKind::DeviceCutOff);
}

TEST_F(SourceTest, ForgedTablesEnd) {
    const std::string path = MakeWhole("whole", {});
    // A link that leads to itself.
    WriteMbr(path, {}, {{4097, 2048}, {4097, 2048}});
    ReadPartitionTable(*OpenWhole(path));
    // Tables of any bytes.
    std::mt19937 random(1);
    for (int round = 0; round < 50; ++round) {
        WriteGpt(path, {{2048, 2048}, {8192, 2048}});
        for (int i = 0; i < 20; ++i) {
            WriteInto(path, random() % 1200, std::string(1, static_cast<char>(random())));
        }
        WriteInto(path, 510, "\x55\xAA");
        for (const Partition& each : ReadPartitionTable(*OpenWhole(path))) {
            EXPECT_LE(each.start + each.size, 16 * kMiB);
            EXPECT_NE(each.size, 0u);
        }
    }
}

/// The links of logical partitions lie all over a disk. One that is worn takes those after it along, but not the others.
TEST_F(SourceTest, ALinkThatCannotBeReadEndsTheLogicalPartitionsAlone) {
    const std::string path = MakeWhole("whole", {2048}, 32 * kMiB);
    WriteMbr(path, {{2048, Sectors()}}, {{20481, 1024}, {30720, 1024}});
    const Strings sound = Lines(ReadPartitionTable(*OpenWhole(path)));
    ASSERT_EQ(sound.size(), 4u); // the primary one, the extended one, and two inside
    WornSource worn(OpenWhole(path));
    worn.Fail(30719 * kSector, 30720 * kSector);
    EXPECT_EQ(Lines(ReadPartitionTable(worn)), Strings(sound.begin(), sound.end() - 1));
    // The same where the copy ends before it.
    fs::resize_file(path, 30000 * kSector);
    EXPECT_EQ(Lines(ReadPartitionTable(*OpenWhole(path))).size(), 3u);
}

TEST_F(SourceTest, FewBytesAreReadForATable) {
    const std::string path = MakeWhole("whole", {20480}, 1024 * kMiB);
    WriteMbr(path, {{20480, Sectors()}});
    const WornSource worn(OpenWhole(path));
    EXPECT_EQ(ReadPartitionTable(worn).size(), 1u);
    EXPECT_LT(worn.BytesAsked(), 3 * kMiB);
}

TEST_F(SourceTest, ADiskWhoseFirstMegabyteIsWornIsLookedAtAllTheSame) {
    const std::string path = MakeWhole("whole", {20480});
    WriteMbr(path, {{20480, Sectors()}});
    WornSource worn(OpenWhole(path));
    worn.Fail(0x8000, 0x9000);
    EXPECT_EQ(ReadPartitionTable(worn).size(), 1u);
}

// ---- split images

TEST_F(SourceTest, ASplitImageIsOneDisk) {
    for (const Strings& endings :
         {Strings{"001", "002", "003"}, Strings{"000", "001", "002"}, Strings{"aa", "ab", "ac"}}) {
        Split("disk." + endings[1], endings);
        const std::string first = File("disk." + endings[1] + "." + endings[0]);
        const auto source = OpenSource(first);
        EXPECT_EQ(source->Name(), first);
        EXPECT_EQ(source->Descriptors().size(), 3u);
        EXPECT_TRUE(Bytes(*source, 0, m_partition.size() + 9) == m_partition) << first;
        // Across the end of the first part.
        const size_t end = m_partition.size() / 3 + 1;
        EXPECT_EQ(Bytes(*source, end - 3, 7), m_partition.substr(end - 3, 7));
        EXPECT_EQ(Bytes(*source, m_partition.size(), 1), "");
        source->WillNeed(end - 3, 7);
    }
}

TEST_F(SourceTest, EndingsCarryOver) {
    Strings endings;
    for (char c = 'a'; c <= 'z'; ++c) {
        endings.push_back(std::string("a") + c);
    }
    endings.emplace_back("ba");
    Split("disk", endings);
    EXPECT_EQ(OpenSource(File("disk.aa"))->Size(), m_partition.size());
}

TEST_F(SourceTest, AMissingPartIsNamed) {
    Split("disk", {"001", "002", "003", "004"});
    fs::remove(File("disk.003"));
    EXPECT_EQ(Refusal("disk.001"),
              std::make_pair(ErrorKind::PartMissing,
                             "part " + File("disk.003") + " of the split image is missing, though " +
                                 File("disk.004") + " is there; copy it into the same folder"));
    // The last ones leave no trace but the disk's own size.
    fs::remove(File("disk.004"));
    EXPECT_FALSE(recordings::Disk(OpenSource(File("disk.001"))).OpeningProblems().empty());
}

/// A part that has become shorter must not have the next one's bytes in place of its own: every frame after it would lie
/// elsewhere.
TEST_F(SourceTest, APartThatEndsEarlyEndsARead) {
    Split("disk", {"001", "002"});
    const auto source = OpenSource(File("disk.001"));
    const size_t end = m_partition.size() / 2 + 1;
    fs::resize_file(File("disk.001"), end - 100);
    EXPECT_EQ(Bytes(*source, end - 150, 200), m_partition.substr(end - 150, 50));
    EXPECT_EQ(Bytes(*source, end, 10), m_partition.substr(end, 10));
}

TEST_F(SourceTest, ALaterPartWithoutAFirstIsTakenAsItIs) {
    Split("disk", {"001", "002"});
    fs::remove(File("disk.001"));
    EXPECT_EQ(OpenSource(File("disk.002"))->Size(), m_partition.size() - (m_partition.size() / 2 + 1));
    fs::create_directory(File("disk.001")); // no file
    EXPECT_FALSE(OpenSource(File("disk.002"))->PartOfDisk());
}

TEST_F(SourceTest, ALaterPartNamesTheFirst) {
    Split("disk", {"001", "002"});
    EXPECT_EQ(Refusal("disk.002"),
              std::make_pair(ErrorKind::CannotOpen,
                             "is a later part of a split image; give its first part, " + File("disk.001")));
}

TEST_F(SourceTest, AnEndingAloneMakesNoSplitImage) {
    fs::copy_file(Image().Path(), File("disk.001"));
    EXPECT_EQ(OpenSource(File("disk.001"))->Descriptors().size(), 1u);
    fs::copy_file(Image().Path(), File("disk.02")); // too short an ending, and another one
    EXPECT_EQ(OpenSource(File("disk.001"))->Descriptors().size(), 1u);
    fs::copy_file(Image().Path(), File("other.002"));
    EXPECT_EQ(OpenSource(File("disk.001"))->Descriptors().size(), 1u);
    EXPECT_EQ(OpenSource(File("disk.02"))->Descriptors().size(), 1u);
}

TEST_F(SourceTest, PartsThatAreNoFilesAreRefused) {
    Split("disk", {"001", "002"});
    fs::remove(File("disk.002"));
    fs::create_directory(File("disk.002"));
    EXPECT_EQ(RefusalOf("disk.002", [&] { OpenSource(File("disk.001")); }).first, ErrorKind::CannotOpen);
}

TEST_F(SourceTest, AWholeDiskMayBeSplit) {
    const std::string whole = MakeWhole("whole", {30720}, 32 * kMiB);
    WriteMbr(whole, {}, {{4097, 2048}, {30720, Sectors()}});
    m_partition = ReadFile(whole);
    Split("disk", {"aa", "ab", "ac", "ad", "ae"});
    const auto source = OpenSource(File("disk.aa"));
    EXPECT_EQ(source->PartOfDisk().value_or(Partition()).number, 6u);
    EXPECT_EQ(source->Descriptors().size(), 5u);
}

TEST_F(SourceTest, LongPathsWork) {
    const std::string folder = File(std::string(200, 'f'));
    fs::create_directory(folder);
    fs::copy_file(Image().Path(), folder + "/disk");
    EXPECT_EQ(recordings::Disk(OpenSource(folder + "/disk")).BlockCount(), 2u);
}

// ---- E01

class ExpertImageTest : public SourceTest {
protected:
    /// Has ewfacquire make an image of a file: NAME.E01, NAME.E02, ...
    void Acquire(const std::string& file, const std::string& name, const std::string& options = "") {
        const std::string command = "ewfacquire -u -q " + options + " -t '" + File(name) + "' '" + file +
                                    "' >/dev/null 2>&1 </dev/null";
        if (std::system("command -v ewfacquire >/dev/null") != 0) {
            GTEST_SKIP() << "no ewfacquire here (package ewf-tools)";
        }
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
};

TEST_F(ExpertImageTest, IsADisk) {
    Acquire(Image().Path(), "disk");
    if (IsSkipped()) {
        return;
    }
    const auto source = OpenSource(File("disk.E01"));
    EXPECT_EQ(source->Name(), File("disk.E01"));
    EXPECT_TRUE(Bytes(*source, 0, m_partition.size() + 9) == m_partition);
    EXPECT_EQ(Bytes(*source, 70000, 3), m_partition.substr(70000, 3));
    EXPECT_EQ(source->Descriptors().size(), 1u);
    EXPECT_EQ(recordings::Disk(OpenSource(File("disk.E01"))).BlockCount(), 2u);
}

TEST_F(ExpertImageTest, OfSeveralParts) {
    std::mt19937 random(7);
    std::string noise = m_partition;
    for (size_t i = 4 * kMiB; i < noise.size(); ++i) {
        noise[i] = static_cast<char>(random());
    }
    std::ofstream(File("noise"), std::ios::binary) << noise;
    Acquire(File("noise"), "disk", "-S 1MiB");
    if (IsSkipped()) {
        return;
    }
    ASSERT_TRUE(fs::exists(File("disk.E03")));
    const auto source = OpenSource(File("disk.E01"));
    EXPECT_TRUE(Bytes(*source, 0, noise.size()) == noise);
    EXPECT_GE(source->Descriptors().size(), 3u);
    EXPECT_EQ(
        Refusal("disk.E02"),
        std::make_pair(ErrorKind::CannotOpen, std::string("is part 2 of an E01 image; give its first part")));
    const std::string second = ReadFile(File("disk.E02"));
    const auto damaged =
        std::make_pair(ErrorKind::CannotOpen, "part 2 of the E01 image, " + File("disk.E02") +
                                                  ", is damaged, or a part of another image; copy it again");
    WriteInto(File("disk.E02"), 0, std::string(8, '\0'));
    EXPECT_EQ(Refusal("disk.E01"), damaged);
    WriteInto(File("disk.E02"), 0, second.substr(0, 9) + "\x03");
    EXPECT_EQ(Refusal("disk.E01"), damaged);
    fs::resize_file(File("disk.E02"), 12);
    EXPECT_EQ(Refusal("disk.E01"), damaged);
    std::ofstream(File("disk.E02"), std::ios::binary) << second;
    fs::remove(File("disk.E03"));
    EXPECT_EQ(Refusal("disk.E01"),
              std::make_pair(ErrorKind::PartMissing, "the part of the E01 image after " + File("disk.E02") +
                                                         " is missing; copy it into the same folder"));
}

TEST_F(ExpertImageTest, OfAWholeDisk) {
    const std::string whole = MakeWhole("whole", {20480});
    WriteGpt(whole, {{2048, 2048}, {20480, 8192}});
    Acquire(whole, "disk");
    if (!IsSkipped()) {
        EXPECT_EQ(OpenSource(File("disk.E01"))->PartOfDisk().value_or(Partition()).number, 2u);
    }
}

TEST_F(ExpertImageTest, DamagedBytesAreNotDelivered) {
    Acquire(Image().Path(), "disk", "-c none");
    if (IsSkipped()) {
        return;
    }
    // Somewhere in the middle of the sectors, which are not compressed.
    std::string bytes = ReadFile(File("disk.E01"));
    const size_t at = bytes.size() / 2;
    bytes[at] = static_cast<char>(bytes[at] ^ 1);
    std::ofstream(File("disk.E01"), std::ios::binary) << bytes;
    const auto source = OpenWhole(File("disk.E01"));
    EXPECT_LT(Bytes(*source, 0, m_partition.size()).size(), m_partition.size());
    EXPECT_EQ(Bytes(*source, 0, 4096), m_partition.substr(0, 4096));
    // A chunk is lost, 64 sectors; what lies after it is delivered.
    const size_t sound = Bytes(*source, 0, m_partition.size()).size();
    EXPECT_EQ(sound % (64 * kSector), 0u);
    EXPECT_EQ(Bytes(*source, sound + 64 * kSector, 4096), m_partition.substr(sound + 64 * kSector, 4096));
}

/// Where the sectors of a part lie stands at its end.
TEST_F(ExpertImageTest, OneThatIsCutOffIsRefused) {
    Acquire(Image().Path(), "disk");
    if (IsSkipped()) {
        return;
    }
    for (const uint64_t size : {fs::file_size(File("disk.E01")) / 2, uint64_t{13}}) { // 13: the head alone
        fs::resize_file(File("disk.E01"), size);
        EXPECT_EQ(
            Refusal("disk.E01"),
            std::make_pair(ErrorKind::CannotOpen,
                           std::string("nothing of the E01 image can be read: it is cut off or damaged; "
                                       "copy it again")));
    }
}

TEST_F(ExpertImageTest, WhatOnlyBeginsLikeOneIsRefused) {
    std::ofstream(File("disk.E01"), std::ios::binary)
        << std::string("EVF\x09\x0D\x0A\xFF\x00", 8) << std::string(4096, 'x');
    const auto [kind, text] = Refusal("disk.E01");
    EXPECT_TRUE(kind == ErrorKind::CannotOpen || kind == ErrorKind::NotSupported);
    EXPECT_EQ(text.find('\n'), std::string::npos);
}

} // namespace

} // namespace test_support
