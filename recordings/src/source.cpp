#include "recordings/source.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "disk_format.h"
#include "expert_image.h"
#include "file_source.h"
#include "format/block_geometry.h"
#include "recordings/error.h"
#include "split_image.h"

namespace recordings {

namespace {

class PartSource : public Source {
public:
    PartSource(std::unique_ptr<Source> disk, const Partition& partition)
        : m_disk(std::move(disk)), m_partition(partition) {}

    const std::string& Name() const override { return m_disk->Name(); }
    uint64_t Size() const override { return m_partition.size; }
    bool IsBlockDevice() const override { return m_disk->IsBlockDevice(); }
    std::optional<Partition> PartOfDisk() const override { return m_partition; }
    std::vector<int> Descriptors() const override { return m_disk->Descriptors(); }
    size_t Read(uint64_t offset, void* data, size_t size) const override {
        return m_disk->Read(m_partition.start + std::min(offset, Size()), data, Inside(offset, size));
    }
    void WillNeed(uint64_t offset, size_t size) const override {
        m_disk->WillNeed(m_partition.start + std::min(offset, Size()), Inside(offset, size));
    }

private:
    /// What of a stretch lies inside the partition.
    size_t Inside(uint64_t offset, size_t size) const {
        return static_cast<size_t>(std::min<uint64_t>(size, Size() - std::min(offset, Size())));
    }

    std::unique_ptr<Source> m_disk;
    Partition m_partition;
};

std::string SizeText(uint64_t bytes) {
    return std::to_string(bytes >> 20) + " MiB";
}

std::string ListText(const std::vector<Partition>& partitions) {
    std::string text;
    for (const Partition& partition : partitions) {
        text += (text.empty() ? "" : ", ") + std::to_string(partition.number) + " (" +
                SizeText(partition.size) + ")";
    }
    return text;
}

/// The partition that is meant.
Partition ChoosePartition(const Source& disk, const std::vector<Partition>& partitions, uint32_t number) {
    const auto found = std::find_if(partitions.begin(), partitions.end(),
                                    [number](const Partition& each) { return each.number == number; });
    if (found == partitions.end()) {
        throw Error(ErrorKind::NoSuchPartition,
                    disk.Name() + ": holds no partition " + std::to_string(number) +
                        (partitions.empty() ? ": there is no partition table on it"
                                            : ", but " + ListText(partitions)));
    }
    return *found;
}

void RefuseSeveral(const Source& disk, const std::vector<Partition>& recorders) {
    if (recorders.size() > 1) {
        throw Error(ErrorKind::SeveralPartitions, disk.Name() + ": holds " +
                                                      std::to_string(recorders.size()) +
                                                      " partitions of recorders: " + ListText(recorders));
    }
}

/// Whether recorded blocks lie where the first ones of a recorder's partition do.
bool HoldsBlocks(const Source& disk, const Partition& partition) {
    // The very first may be damaged too; in rings of any usual block size, others begin at whole megabytes after it.
    constexpr uint64_t kStep = 0x100000;
    constexpr uint64_t kEnd = BLOCK_BASE_OFFSET + 16 * kStep;
    constexpr size_t kNeeded = offsetof(BlockHead_t, pre_RecTime);
    for (uint64_t at = BLOCK_BASE_OFFSET; at < kEnd && at + kNeeded <= partition.size; at += kStep) {
        BlockHead_t head = {};
        if (disk.ReadWhole(partition.start + at, &head, kNeeded) && head.ValidFlag == BLOCK_MAGIC &&
            head.RecTime != 0 && head.RecSeq != 0) {
            return true;
        }
    }
    return false;
}

/// Whether a partition lies in another: a logical one in its extended one, whose blocks are then those of the logical one.
bool LiesIn(const Partition& inner, const Partition& outer) {
    return inner.start > outer.start && inner.start - outer.start < outer.size;
}

/// Whether a later part of a split image begins with a block: its head bears the magic of a partition's.
bool BeginsWithBlock(const Source& source) {
    PartHead_t head = {};
    return !FirstPartOf(source.Name()).empty() && source.ReadWhole(0, &head, sizeof head) &&
           !disk_access::BlockGeometry::Of(head.BlkSize, head.FmtVersion).HoldsBlock();
}

/// A later part of a split image by itself is of no use, and hardly what was meant.
void RefuseLaterPart(const Source& source) {
    const std::string first = FirstPartOf(source.Name());
    if (!first.empty()) {
        throw Error(ErrorKind::CannotOpen,
                    source.Name() + ": is a later part of a split image; give its first part, " + first);
    }
}

} // namespace

bool BearsPartitionHead(const Source& source, uint64_t offset) {
    uint32_t magic = 0;
    static_assert(offsetof(PartHead_t, FormatFlag) == 0);
    const bool known =
        source.ReadWhole(offset, &magic, sizeof magic) && (magic == PART_MAGIC || magic == PART_MAGIC_ALT);
    return known && !(offset == 0 && BeginsWithBlock(source));
}

std::vector<Partition> HeadlessPartitions(const Source& disk) {
    std::vector<Partition> headless;
    if (BearsPartitionHead(disk) || !FirstPartOf(disk.Name()).empty()) {
        return headless;
    }
    std::vector<Partition> known;
    for (const Partition& partition : ReadPartitionTable(disk)) {
        if (partition.recorder || HoldsBlocks(disk, partition)) {
            known.push_back(partition);
        }
    }
    const auto holdsAnother = [&known](const Partition& outer) {
        return std::any_of(known.begin(), known.end(),
                           [&outer](const Partition& inner) { return LiesIn(inner, outer); });
    };
    std::copy_if(known.begin(), known.end(), std::back_inserter(headless),
                 [&](const Partition& partition) { return !partition.recorder && !holdsAnother(partition); });
    const Partition whole = {0, 0, disk.Size(), false};
    if (known.empty() && HoldsBlocks(disk, whole)) {
        headless.push_back(whole);
    }
    return headless;
}

std::string DescribeHeadless(const Source& disk, const Partition& partition) {
    return disk.Name() + ": " +
           (partition.number == 0 ? "" : "partition " + std::to_string(partition.number) + " ") +
           "holds a recorder's blocks, but has no partition head: it was overwritten, or is missing from "
           "the copy; "
           "copy the partition again, or give an earlier copy";
}

std::unique_ptr<Source> OpenPartition(std::unique_ptr<Source> disk, const Partition& partition) {
    return std::make_unique<PartSource>(std::move(disk), partition);
}

bool IsExpertImage(const Source& file) {
    // What the first parts of images of libewf's formats begin with.
    constexpr char kSignatures[][9] = {"EVF\x09\x0D\x0A\xFF\x00", "EVF2\x0D\x0A\x81\x00"};
    char start[8] = {};
    return file.ReadWhole(0, start, sizeof start) &&
           std::any_of(std::begin(kSignatures), std::end(kSignatures), [&start](const char(&signature)[9]) {
               return std::memcmp(start, signature, sizeof start) == 0;
           });
}

std::unique_ptr<Source> OpenWhole(const std::string& path) {
    auto first = std::make_unique<FileSource>(path);
    if (first->IsBlockDevice()) {
        return first;
    }
    if (IsExpertImage(*first)) {
        return OpenExpertImage(std::move(first));
    }
    const std::vector<std::string> parts = PartsOfImage(path);
    if (parts.size() == 1) {
        return first;
    }
    std::vector<std::unique_ptr<FileSource>> files;
    files.push_back(std::move(first));
    for (size_t i = 1; i < parts.size(); ++i) {
        files.push_back(std::make_unique<FileSource>(parts[i]));
    }
    return JoinFiles(std::move(files));
}

std::unique_ptr<Source> OpenSource(const std::string& path, std::optional<uint32_t> partition) {
    return FindPartition(OpenWhole(path), partition);
}

std::unique_ptr<Source> FindPartition(std::unique_ptr<Source> source, std::optional<uint32_t> partition) {
    if (!partition && BearsPartitionHead(*source)) {
        return source;
    }
    const std::vector<Partition> partitions = ReadPartitionTable(*source);
    if (partition) {
        const Partition chosen = ChoosePartition(*source, partitions, *partition);
        return OpenPartition(std::move(source), chosen);
    }
    std::vector<Partition> recorders;
    std::copy_if(partitions.begin(), partitions.end(), std::back_inserter(recorders),
                 [](const Partition& each) { return each.recorder; });
    RefuseSeveral(*source, recorders);
    if (recorders.empty()) {
        RefuseLaterPart(*source);
        return source;
    }
    return OpenPartition(std::move(source), recorders.front());
}

} // namespace recordings
