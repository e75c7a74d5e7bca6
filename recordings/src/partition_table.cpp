// Partition tables, by libblkid. It reads from a descriptor, and what a disk is stored in need not have one: it is shown a
// file in memory, with the sectors in it that tables stand in and nothing else.

#include <blkid/blkid.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include "recordings/source.h"

namespace recordings {

namespace {

constexpr uint32_t kSectorSize = 512; ///< of tables, and of libblkid's counts
/// An image does not tell the size of its disk's sectors, which tables count in.
constexpr uint32_t kSectorSizes[] = {kSectorSize, 8 * kSectorSize};
/// Bytes at both ends of a disk that tables lie in: a GPT takes 17 KiB at each, or more with large sectors.
constexpr uint64_t kTableArea = 0x100000;
constexpr size_t kPiece = 0x1000;
/// Logical partitions of a disk; the kernel takes fewer.
constexpr int kMostLogical = 128;

/// What an MBR, and each link of an extended partition, consists of. libblkid says what it means; these fields are needed
/// to find the next link.
constexpr size_t kEntries = 446;
constexpr size_t kEntrySize = 16;
constexpr int kEntryCount = 4;
constexpr size_t kEntryType = 4;
constexpr size_t kEntryStart = 8;
constexpr uint8_t kExtendedTypes[] = {0x05, 0x0F, 0x85};

/// The header of a GPT: its signature, where it stands itself, and where its other copy does, at the disk's end.
constexpr char kGptSignature[] = "EFI PART";
constexpr size_t kGptOwnPlace = 24;
constexpr size_t kGptOtherPlace = 32;

/// The size of the disk that the GPT at its start was made for; 0 without one.
uint64_t SizeByGpt(const Source& disk) {
    for (const uint32_t sectorSize : kSectorSizes) {
        uint8_t header[kGptOtherPlace + sizeof(uint64_t)] = {};
        uint64_t own = 0;
        uint64_t other = 0;
        if (disk.ReadWhole(sectorSize, header, sizeof header) &&
            std::memcmp(header, kGptSignature, std::strlen(kGptSignature)) == 0) {
            std::memcpy(&own, header + kGptOwnPlace, sizeof own);
            std::memcpy(&other, header + kGptOtherPlace, sizeof other);
            constexpr uint64_t kMost = LLONG_MAX;
            return own == 1 && other < kMost / sectorSize ? (other + 1) * sectorSize : 0;
        }
    }
    return 0;
}

/// A file in memory with a few of a disk's bytes, as large as the disk is, or larger.
class DiskShadow {
public:
    DiskShadow(const Source& disk, uint64_t size)
        : m_disk(disk), m_fd(memfd_create("disk", MFD_CLOEXEC)),
          m_size(std::min<uint64_t>(disk.Size(), LLONG_MAX)) {
        if (m_fd >= 0 && ftruncate(m_fd, static_cast<off_t>(std::max(m_size, size))) == 0) {
            Copy(0, kTableArea);
            Copy(m_size - std::min(m_size, kTableArea), kTableArea);
            CopyLinks();
        }
    }
    ~DiskShadow() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    DiskShadow(const DiskShadow&) = delete;
    DiskShadow& operator=(const DiskShadow&) = delete;

    int Descriptor() const { return m_fd; }

private:
    /// Copies a stretch. What the disk does not deliver stays zero.
    void Copy(uint64_t from, uint64_t bytes) {
        const uint64_t end = std::min(from + bytes, m_size);
        for (uint64_t at = from; at < end; at += kPiece) {
            uint8_t piece[kPiece];
            const size_t got =
                m_disk.Read(at, piece, static_cast<size_t>(std::min<uint64_t>(kPiece, end - at)));
            if (pwrite(m_fd, piece, got, static_cast<off_t>(at)) < 0) {
                return;
            }
        }
    }

    /// Copies the links of extended partitions: each stands before its logical partition and leads to the next link.
    void CopyLinks() {
        uint8_t sector[kSectorSize] = {};
        if (!m_disk.ReadWhole(0, sector, sizeof sector)) {
            return;
        }
        const uint64_t extended = ExtendedIn(sector);
        uint64_t link = extended;
        for (int i = 0; link != 0 && i < kMostLogical; ++i) {
            const uint64_t place = link * kSectorSize;
            if (place >= m_size || !m_disk.ReadWhole(place, sector, sizeof sector)) {
                return;
            }
            Copy(place, kSectorSize);
            const uint64_t next = ExtendedIn(sector);
            link = next == 0 ? 0 : extended + next;
        }
    }

    /// The first sector of the extended partition that a table names; 0 when it names none.
    static uint64_t ExtendedIn(const uint8_t (&sector)[kSectorSize]) {
        for (int i = 0; i < kEntryCount; ++i) {
            const uint8_t* const entry = sector + kEntries + static_cast<size_t>(i) * kEntrySize;
            if (std::find(std::begin(kExtendedTypes), std::end(kExtendedTypes), entry[kEntryType]) !=
                std::end(kExtendedTypes)) {
                uint32_t start = 0;
                std::memcpy(&start, entry + kEntryStart, sizeof start);
                return start;
            }
        }
        return 0;
    }

    const Source& m_disk;
    int m_fd;
    uint64_t m_size;
};

Partition PartitionOf(const Source& disk, blkid_partition entry) {
    Partition partition;
    partition.number = static_cast<uint32_t>(blkid_partition_get_partno(entry));
    const auto start = static_cast<uint64_t>(blkid_partition_get_start(entry));
    const auto sectors = static_cast<uint64_t>(blkid_partition_get_size(entry));
    if (start < disk.Size() / kSectorSize) {
        partition.start = start * kSectorSize;
        const uint64_t rest = disk.Size() - partition.start;
        partition.size = sectors > rest / kSectorSize ? rest : sectors * kSectorSize;
    }
    return partition;
}

std::vector<Partition> Probe(const Source& disk, int descriptor, unsigned int sectorSize) {
    const std::unique_ptr<blkid_struct_probe, decltype(&blkid_free_probe)> probe(blkid_new_probe(),
                                                                                 blkid_free_probe);
    std::vector<Partition> partitions;
    if (!probe || blkid_probe_set_device(probe.get(), descriptor, 0, 0) != 0 ||
        blkid_probe_set_sectorsize(probe.get(), sectorSize) != 0) {
        return partitions;
    }
    blkid_partlist list = blkid_probe_get_partitions(probe.get());
    const int count = list == nullptr ? 0 : blkid_partlist_numof_partitions(list);
    for (int i = 0; i < count; ++i) {
        const Partition partition = PartitionOf(disk, blkid_partlist_get_partition(list, i));
        if (partition.size != 0) {
            partitions.push_back(partition);
        }
    }
    return partitions;
}

/// @param size of the disk, as far as its table is concerned
std::vector<Partition> ReadTableOf(const Source& disk, uint64_t size) {
    const DiskShadow shadow(disk, size);
    std::vector<Partition> first;
    for (const uint32_t sectorSize : kSectorSizes) {
        std::vector<Partition> partitions = Probe(disk, shadow.Descriptor(), sectorSize);
        for (Partition& partition : partitions) {
            partition.recorder = BearsPartitionHead(disk, partition.start);
        }
        const bool recorder = std::any_of(partitions.begin(), partitions.end(),
                                          [](const Partition& each) { return each.recorder; });
        if (recorder) {
            return partitions;
        }
        if (first.empty()) {
            first = std::move(partitions);
        }
    }
    return first;
}

} // namespace

// libblkid takes no GPT that reaches beyond the disk, as that of a copy does which is cut off.
std::vector<Partition> ReadPartitionTable(const Source& disk) {
    const std::vector<Partition> partitions = ReadTableOf(disk, disk.Size());
    const uint64_t size = partitions.empty() ? SizeByGpt(disk) : 0;
    return size > disk.Size() ? ReadTableOf(disk, size) : partitions;
}

} // namespace recordings
