#include "recordings/disk.h"

#include <algorithm>
#include <cstring>

#include "format/block_geometry.h"
#include "format/part_head.h"
#include "recordings/error.h"

namespace recordings {

namespace {

using disk_access::BlockGeometry;

static_assert(sizeof(PartHead_t) == kPartitionHeadBytes, "callers read the head by this size");

/// A disk type whose partitions have the other magic.
constexpr int kAlternativeDiskType = 52;

/// A copy of a text field, which need not be terminated.
template <size_t Size>
std::string TextOf(const char (&field)[Size]) {
    return std::string(field, strnlen(field, Size));
}

std::string Hex(uint32_t value) {
    char text[11];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

PartHead_t ReadHead(const Source& source) {
    PartHead_t head = {};
    if (source.Size() == 0) {
        throw Error(ErrorKind::Empty, source.Name() + ": is empty; copy the partition again");
    }
    if (source.Size() < sizeof head) {
        throw Error(ErrorKind::CutOff, source.Name() + ": is cut off after " + std::to_string(source.Size()) +
                                           " bytes, inside the partition head; copy it again");
    }
    if (!source.ReadWhole(0, &head, sizeof head)) {
        throw Error(ErrorKind::HeadUnreadable,
                    source.Name() + ": the partition head cannot be read; the disk may be failing");
    }
    return head;
}

/// A partition whose head is gone is told from what never was one.
void RefuseHeadless(const Source& source) {
    const std::vector<Partition> headless = HeadlessPartitions(source);
    if (!headless.empty()) {
        throw Error(ErrorKind::NotAPartition,
                    DescribeHeadless(source, source.PartOfDisk().value_or(headless.front())));
    }
}

void RequirePartition(const Source& source, const PartHead_t& head, int diskType) {
    if (head.FormatFlag != PART_MAGIC && head.FormatFlag != PART_MAGIC_ALT) {
        RefuseHeadless(source);
        const std::string what = "has no partition head (it begins " + Hex(head.FormatFlag) + ")";
        if (const std::optional<Partition> part = source.PartOfDisk()) {
            throw Error(ErrorKind::NoSuchPartition,
                        source.Name() + ": partition " + std::to_string(part->number) + " " + what);
        }
        throw Error(
            ErrorKind::NotAPartition,
            source.Name() + ": " + what +
                "; give the recorder's partition, the disk that it lies on, or an image of one of them");
    }
    if (head.FormatFlag != disk_access::ExpectedMagic(diskType)) {
        throw Error(ErrorKind::WrongDiskType, source.Name() + ": its head, " + Hex(head.FormatFlag) +
                                                  ", is not that of disk type " + std::to_string(diskType));
    }
    if (head.BlkCount == 0 || !BlockGeometry::Of(head.BlkSize, head.FmtVersion).HoldsBlock()) {
        throw Error(ErrorKind::BadGeometry,
                    source.Name() + ": its head states " + std::to_string(head.BlkCount) + " blocks of " +
                        std::to_string(head.BlkSize) +
                        " bytes; the partition was never formatted, or its head is damaged");
    }
}

DiskFacts FactsOf(const PartHead_t& head) {
    DiskFacts facts;
    facts.magic = head.FormatFlag;
    facts.extendedLayout = BlockGeometry::Of(head.BlkSize, head.FmtVersion).Extended();
    facts.blockCount = head.BlkCount;
    facts.blockSize = head.BlkSize;
    facts.badBlockTable = head.BBTabOffs;
    facts.badBlockTableBackup = head.BBTabBakOffs;
    facts.suspectTable = head.BBCounterOffs;
    facts.suspectTableBackup = head.BBCounterBakOffs;
    facts.description = TextOf(head.Description);
    facts.locked = disk_access::LockActive(head.Encrypt);
    facts.lockedSet = {facts.locked ? head.EncryptMap : 0};
    return facts;
}

BlockLayout LayoutOf(const BlockGeometry& geometry) {
    return {geometry.headAreaSize, geometry.FrameAreaSize(), geometry.IndexAreaStart(), geometry.TailStart()};
}

} // namespace

struct Disk::State {
    std::unique_ptr<Source> source;
    DiskFacts facts;
    int diskType = 0;
    BlockGeometry geometry = {};
    BlockLayout layout;
    uint32_t blockCount = 0;
    uint32_t wholeBlocks = 0;
    char password[sizeof(PartHead_t::CipherCode)] = {};
    bool unlocked = false;
    std::vector<uint8_t> badBits;
    std::vector<uint8_t> suspectCounts;
    std::vector<Problem> problems;

    void CountBlocks() {
        const uint64_t size = source->Size();
        const uint64_t begun = disk_access::BlocksInside(geometry, size);
        const uint64_t whole = size <= BLOCK_BASE_OFFSET ? 0 : (size - BLOCK_BASE_OFFSET) / geometry.blkSize;
        const uint32_t named = std::min(facts.blockCount, disk_access::kBlocksOfIds);
        blockCount = static_cast<uint32_t>(std::min<uint64_t>(begun, named));
        wholeBlocks = static_cast<uint32_t>(std::min<uint64_t>(whole, named));
        if (wholeBlocks < named) {
            NoteMissing(ProblemKind::DeviceCutOff, wholeBlocks, named - wholeBlocks);
        }
        if (named < facts.blockCount) {
            NoteMissing(ProblemKind::BlocksNotNamed, named, facts.blockCount - named);
        }
    }

    void NoteMissing(ProblemKind kind, uint32_t first, uint32_t count) {
        Problem problem;
        problem.kind = kind;
        problem.block = first;
        problem.count = count;
        problems.push_back(problem);
    }

    /// Loads a table, or its backup copy.
    /// @return whether it was the table itself; nothing when neither can be read
    std::optional<bool> Load(std::vector<uint8_t>& table, uint32_t bytes, uint32_t offset,
                             uint32_t backup) const {
        table.resize(bytes);
        if (source->ReadWhole(offset, table.data(), bytes)) {
            return true;
        }
        if (backup != 0 && source->ReadWhole(backup, table.data(), bytes)) {
            return false;
        }
        table.clear();
        return std::nullopt;
    }

    void LoadTables() {
        const auto bits = Load(badBits, disk_access::BadBlockTabSize(blockCount), facts.badBlockTable,
                               facts.badBlockTableBackup);
        const auto counts = Load(suspectCounts, blockCount, facts.suspectTable, facts.suspectTableBackup);
        Problem problem;
        problem.severity = Severity::Note;
        if (!bits || !counts) {
            problem.kind = ProblemKind::TablesUnreadable;
            problems.push_back(problem);
        } else if (!*bits || !*counts) {
            problem.kind = ProblemKind::BackupTablesUsed;
            problems.push_back(problem);
        }
    }
};

Disk::Disk(std::unique_ptr<Source> source, std::optional<int> diskType) : m_state(std::make_unique<State>()) {
    m_state->source = std::move(source);
    const PartHead_t head = ReadHead(*m_state->source);
    m_state->diskType = diskType.value_or(head.FormatFlag == PART_MAGIC_ALT ? kAlternativeDiskType : 0);
    RequirePartition(*m_state->source, head, m_state->diskType);
    m_state->facts = FactsOf(head);
    m_state->geometry = BlockGeometry::Of(head.BlkSize, head.FmtVersion);
    m_state->layout = LayoutOf(m_state->geometry);
    disk_access::CopyCipherCode(m_state->password, head);
    m_state->CountBlocks();
    m_state->LoadTables();
}

Disk::~Disk() = default;

const Source& Disk::Bytes() const {
    return *m_state->source;
}

const DiskFacts& Disk::Facts() const {
    return m_state->facts;
}

int Disk::DiskType() const {
    return m_state->diskType;
}

const BlockLayout& Disk::Layout() const {
    return m_state->layout;
}

uint32_t Disk::BlockCount() const {
    return m_state->blockCount;
}

uint32_t Disk::WholeBlocks() const {
    return m_state->wholeBlocks;
}

BlockMark Disk::MarkOf(uint32_t block) const {
    if (block / 8 < m_state->badBits.size() && disk_access::MarkedBad(m_state->badBits.data(), block)) {
        return BlockMark::Bad;
    }
    const bool suspect = block < m_state->suspectCounts.size() && m_state->suspectCounts[block] != 0;
    return suspect ? BlockMark::Suspect : BlockMark::None;
}

uint64_t Disk::StartOf(uint32_t block) const {
    return m_state->geometry.BlockStart(BLOCK_BASE_OFFSET, block);
}

ChannelSet Disk::Hidden() const {
    return m_state->unlocked ? ChannelSet() : m_state->facts.lockedSet;
}

bool Disk::Unlock(const std::string& password) {
    m_state->unlocked = !m_state->facts.locked || password == m_state->password;
    return m_state->unlocked;
}

const std::vector<Problem>& Disk::OpeningProblems() const {
    return m_state->problems;
}

} // namespace recordings
