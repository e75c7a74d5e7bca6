#include "partition.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "cli/failure.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

/// A disk type whose magic is PART_MAGIC_ALT.
constexpr int kAlternativeDiskType = 52;

/// The partition-level search, open for one question.
class OpenPart {
public:
    explicit OpenPart(PartAccess_t access) { m_part.Init(&access); }
    ~OpenPart() { m_part.Quit(); }
    OpenPart(const OpenPart&) = delete;
    OpenPart& operator=(const OpenPart&) = delete;
    CSearchPart* operator->() const { return &m_part; }

private:
    mutable CSearchPart m_part;
};

} // namespace

Partition::Partition(const std::string& path, std::optional<int> diskType, int standardOutput)
    : m_path(path), m_file(path, standardOutput), m_access(m_file.Access()), m_fd(m_file.Descriptor()) {
    const off_t end = lseek(m_fd, 0, SEEK_END);
    m_size = end < 0 ? 0 : static_cast<uint64_t>(end);
    ReadHead(diskType);
    try {
        m_dev = dev_open(&m_access);
        if (m_dev == nullptr || m_search.Init(&m_access) != 0) {
            throw Failure(fmt::format("{}: cannot be opened a second time: {}", path, std::strerror(errno)));
        }
        ReadTables();
    } catch (...) {
        dev_close(m_dev);
        throw;
    }
}

Partition::~Partition() {
    m_search.Quit();
    dev_close(m_dev);
}

void Partition::ReadHead(std::optional<int> diskType) {
    if (m_size == 0) {
        throw Failure(m_path + ": is empty; copy the partition again");
    }
    if (m_size < sizeof m_head) {
        throw Failure(fmt::format("{}: is cut off after {} bytes, inside the partition head; copy it again",
                                  m_path, m_size));
    }
    if (pread(m_fd, &m_head, sizeof m_head, 0) != static_cast<ssize_t>(sizeof m_head)) {
        throw Failure(fmt::format("{}: the partition head cannot be read: {}; the disk may be failing",
                                  m_path, std::strerror(errno)));
    }
    if (m_head.FormatFlag != PART_MAGIC && m_head.FormatFlag != PART_MAGIC_ALT) {
        throw Failure(fmt::format("{}: bears no partition head (it begins 0x{:08x}); give the recorder's own "
                                  "partition, not the whole disk or another file system",
                                  m_path, m_head.FormatFlag));
    }
    m_access.DiskType = diskType.value_or(m_head.FormatFlag == PART_MAGIC_ALT ? kAlternativeDiskType : 0);
    const bool alternative = m_access.DiskType == 52 || m_access.DiskType == 19 || m_access.DiskType == 34;
    if (alternative != (m_head.FormatFlag == PART_MAGIC_ALT)) {
        throw Failure(
            fmt::format("{}: its head, 0x{:08x}, is not that of disk type {}; leave --disk-type out", m_path,
                        m_head.FormatFlag, m_access.DiskType));
    }
    if (m_head.BlkCount == 0 || m_head.BlkSize == 0) {
        throw Failure(
            fmt::format("{}: its head states {} blocks of {} bytes; the partition was never formatted, or "
                        "its head is damaged",
                        m_path, m_head.BlkCount, m_head.BlkSize));
    }
}

void Partition::ReadTables() {
    const auto read = [this](uint32_t offset, uint64_t bytes) {
        std::vector<uint8_t> table;
        if (offset + bytes <= m_size) {
            table.resize(bytes);
            const ssize_t got = pread(m_fd, table.data(), table.size(), offset);
            table.resize(got < 0 ? 0 : static_cast<size_t>(got));
        }
        return table;
    };
    m_bits = read(m_head.BBTabOffs, (uint64_t{m_head.BlkCount} + 7) / 8);
    m_counters = read(m_head.BBCounterOffs, m_head.BlkCount);
    if (m_bits.size() * 8 < m_head.BlkCount || m_counters.size() < m_head.BlkCount) {
        throw Failure(
            fmt::format("{}: its bad-block tables cannot be read (at bytes {} and {} of {}); without them no "
                        "block can be used: copy the partition again",
                        m_path, m_head.BBTabOffs, m_head.BBCounterOffs, m_size));
    }
}

uint32_t Partition::MissingBlocks() const {
    const uint64_t whole = m_size <= BLOCK_BASE_OFFSET ? 0 : (m_size - BLOCK_BASE_OFFSET) / m_head.BlkSize;
    return whole >= m_head.BlkCount ? 0 : static_cast<uint32_t>(m_head.BlkCount - whole);
}

BlockState Partition::StateOf(uint32_t block) const {
    if ((m_bits.at(block / 8) >> block % 8 & 1) != 0) {
        return BlockState::Bad;
    }
    if (m_counters.at(block) != 0) {
        return BlockState::Suspect;
    }
    return block >= m_head.BlkCount - MissingBlocks() ? BlockState::Missing : BlockState::Usable;
}

uint32_t Partition::CountOf(BlockState state) const {
    uint32_t count = 0;
    for (uint32_t block = 0; block < m_head.BlkCount; ++block) {
        count += StateOf(block) == state ? 1u : 0u;
    }
    return count;
}

std::optional<Partition::Ends> Partition::EndsOf(uint32_t block) {
    CSearchBlock blocks(m_dev, m_head.BlkSize, BLOCK_BASE_OFFSET, m_head.FmtVersion);
    Ends ends = {};
    if (blocks.GetBlockInfo(block, &ends.head, &ends.tail, nullptr, nullptr) != 0) {
        return std::nullopt;
    }
    ends.closed = ends.head.RecSeq == ends.tail.RecSeq;
    return ends;
}

std::vector<uint32_t> Partition::UnreadableBlocks() {
    std::vector<uint32_t> blocks;
    const uint32_t inside = m_head.BlkCount - MissingBlocks();
    for (uint32_t block = 0; block < inside; ++block) {
        if (StateOf(block) == BlockState::Usable && !EndsOf(block)) {
            blocks.push_back(block);
        }
    }
    return blocks;
}

std::optional<Partition::Ring> Partition::RecordedRing() {
    const OpenPart part(m_access);
    SearchParam_t everything = {0, 0, 0xFFFFFFFF, 0xFFFFFFFF};
    OutputTime_t region = {};
    if (part->InitSearch(&everything, &region) <= 0 || region.startTime == 0) {
        return std::nullopt;
    }
    // The search that begins before everything starts at the oldest block, the one that begins after it at
    // the newest.
    return Ring{static_cast<uint32_t>(part->GetSearchStartBlock(0, 1)),
                static_cast<uint32_t>(part->GetSearchStartBlock(0, 0))};
}

uint32_t Partition::StartBlockOf(uint32_t time) const {
    const OpenPart part(m_access);
    SearchParam_t request = {0, time, 0xFFFFFFFF, 0xFFFFFFFF};
    OutputTime_t region = {};
    const int code = part->InitSearch(&request, &region);
    return static_cast<uint32_t>(part->GetSearchStartBlock(time, static_cast<uint32_t>(code)));
}

bool Partition::Read(uint64_t offset, void* data, size_t size) const {
    return pread(m_fd, data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

uint32_t Partition::SafeSearchStart(uint32_t time) {
    const OpenPart part(m_access);
    BlockHead_t head = {};
    SearchParam_t request = {0, time, 0xFFFFFFFF, 0xFFFFFFFF};
    OutputTime_t region = {};
    int code = part->InitSearch(&request, &region);
    if (code == 0) {
        const auto newest = static_cast<uint32_t>(part->GetSearchStartBlock(time, 0));
        if (part->IsValidBlock(newest, 0, 0, &head) == 1 && head.RecTime != 0) {
            time = std::min(time, head.RecTime - 1);
        }
        request.startTime = time;
        code = part->InitSearch(&request, &region);
    }
    if (code != 2 && code != 4) {
        return time;
    }
    const auto start = static_cast<uint32_t>(part->GetSearchStartBlock(time, static_cast<uint32_t>(code)));
    const auto oldest = static_cast<uint32_t>(part->GetSearchStartBlock(0, 1));
    unsigned int before = 0;
    if (part->IsValidBlock(start, 0, 0, &head) == 1 ||
        part->GetPrevValidBlock(0, 0, start, oldest, &before, &head) != 0 || head.RecTime == 0) {
        return time;
    }
    return std::min(time, head.RecTime - 1);
}

} // namespace diskaccess
