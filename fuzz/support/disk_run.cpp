#include "support/disk_run.h"

#include <algorithm>
#include <memory>
#include <string>

#include "disk_format.h"

namespace fuzzing {

namespace {

/// What any disk may cost, however small.
constexpr uint64_t kAnyBytes = 16 << 10;
constexpr uint64_t kAnyReads = 40;
constexpr uint64_t kAnyProblems = 16;

/// Bytes that are read of each block, however small: head, tail, head of the index.
constexpr uint64_t kBytesOfABlock = 4 << 10;
/// Memory for each block of the list.
constexpr uint64_t kMemoryOfABlock = 500;
/// Problems of a block as a whole.
constexpr uint64_t kProblemsOfABlock = 8;
/// What fails is asked for in sectors, and each may be a problem of its own.
constexpr uint64_t kSector = 512;
/// Of a block above this no more than a window is kept: a search after damage begins with reading that again. There are
/// 256 such searches at most in a block, in each of its readings, and a window has 8 KiB where damage lies close.
constexpr uint64_t kLargestKept = 64 << 20;
constexpr uint64_t kReadsOfSearches = 1024;
constexpr uint64_t kBytesOfAWindow = 8 << 10;
constexpr uint64_t kBytesOfSearches = kReadsOfSearches * kBytesOfAWindow;
/// Bytes of the input that a frame takes, of which something may be wrong.
constexpr uint64_t kFrame = 24;

} // namespace

DiskRun::DiskRun(const PartitionInput& input, const MemoryDevice& device, const CostLimits& limits)
    : m_input(input), m_script(input.script), m_limits(limits), m_memoryBefore(Allocated()),
      m_disk(std::make_unique<RecordingsSource>(input, device, m_cost)) {
    if (m_script.Flag()) {
        m_disk.Unlock(std::string(m_script.Below(3), 'k'));
    }
    m_blocks.emplace(recordings::BlockList::Read(m_disk));
    CheckCost();
    Require(m_blocks->All().size() <= m_disk.BlockCount(), "there are more recorded blocks than blocks");
}

void DiskRun::Begin() {
    m_readsBefore = m_cost.reads;
    m_bytesBefore = m_cost.bytes;
    m_problems = 0;
    m_watchesLeft = m_script.Below(8) == 0 ? std::optional<uint32_t>(m_script.Byte()) : std::nullopt;
}

uint64_t DiskRun::RingBytes() const {
    const uint64_t size = m_disk.Bytes().Size();
    const uint64_t room = size > BLOCK_BASE_OFFSET ? size - BLOCK_BASE_OFFSET : 0;
    return std::min<uint64_t>(uint64_t{m_disk.BlockCount()} * m_disk.Facts().blockSize, room);
}

void DiskRun::CheckCost() const {
    const uint64_t blocks = m_disk.BlockCount();
    const uint64_t bytes = m_cost.bytes - m_bytesBefore;
    const bool isKept = m_disk.Facts().blockSize <= kLargestKept;
    const uint64_t ofABlock = kBytesOfABlock + (isKept ? 0 : kBytesOfSearches);
    if (bytes > kAnyBytes + ofABlock * blocks + m_limits.bytes * RingBytes()) {
        Report("an operation reads more bytes than the disk's size allows: %llu of a ring of %llu in %llu "
               "blocks",
               static_cast<unsigned long long>(bytes), static_cast<unsigned long long>(RingBytes()),
               static_cast<unsigned long long>(blocks));
    }
    const uint64_t reads = m_cost.reads - m_readsBefore;
    const uint64_t readsOfABlock = m_limits.reads + (isKept ? 0 : kReadsOfSearches);
    if (reads > kAnyReads + readsOfABlock * blocks + m_limits.bytes * RingBytes() / kSector) {
        Report("an operation reads more often than the disk's size allows: %llu times in %llu blocks",
               static_cast<unsigned long long>(reads), static_cast<unsigned long long>(blocks));
    }
    const size_t memory = Allocated();
    if (memory >
        m_memoryBefore + m_limits.anyMemory + kMemoryOfABlock * blocks + m_limits.memory * RingBytes()) {
        Report("an operation takes more memory than the disk's size allows: %zu bytes, ring of %llu, %llu "
               "blocks",
               memory - m_memoryBefore, static_cast<unsigned long long>(RingBytes()),
               static_cast<unsigned long long>(blocks));
    }
}

recordings::ProblemSink DiskRun::Sink() {
    return [this](const recordings::Problem& problem) { Take(problem); };
}

void DiskRun::Take(const recordings::Problem& problem) {
    Require(!recordings::Describe(problem, {}).empty(), "a problem has no words");
    Require(!problem.channel || *problem.channel < recordings::kChannels,
            "a problem has a channel that there is not");
    const uint64_t sectors = m_input.ReadsFail() ? RingBytes() / kSector : 0;
    Require(++m_problems <=
                kAnyProblems + kProblemsOfABlock * m_disk.BlockCount() + m_input.Weight() / kFrame + sectors,
            "there are more problems than bytes that could cause them");
    CheckCost();
}

recordings::Watch DiskRun::CancelSometime() {
    return [this](const recordings::Progress&) {
        CheckCost();
        if (!m_watchesLeft) {
            return true;
        }
        *m_watchesLeft -= *m_watchesLeft > 0 ? 1 : 0;
        return *m_watchesLeft > 0;
    };
}

recordings::TimeRange DiskRun::Range() {
    if (m_script.Flag()) {
        return {};
    }
    const uint32_t one = m_script.Time();
    const uint32_t other = m_script.Time();
    return {std::min(one, other), std::max(one, other)};
}

recordings::ChannelSet DiskRun::Channels() {
    return m_script.Flag() ? recordings::ChannelSet::All() : recordings::ChannelSet{m_script.Word()};
}

} // namespace fuzzing
