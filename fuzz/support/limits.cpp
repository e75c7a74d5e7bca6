#include "support/limits.h"

#include <algorithm>

#include "format/block_geometry.h"

namespace fuzzing {

namespace {

/// Whatever is read of a ring that is no longer than this may be read block by block.
constexpr uint64_t kShortRing = 300;

} // namespace

Limits::Limits(const PartitionInput& input)
    : m_deviceSize(std::min<uint64_t>(input.head.deviceSize, MemoryDevice::kLargest)),
      m_blkSize(input.Word(offsetof(PartHead_t, BlkSize))), m_weight(input.Weight()) {
    const auto geometry = disk_access::BlockGeometry::Of(static_cast<uint32_t>(m_blkSize),
                                                         input.Word(offsetof(PartHead_t, FmtVersion)));
    m_blocks =
        disk_access::CredibleBlocks(input.Word(offsetof(PartHead_t, BlkCount)), geometry, m_deviceSize);
}

uint64_t Limits::Calls() const {
    return 4000 + 40 * m_blocks + 600 * std::min(m_blocks, kShortRing) + 10 * m_weight;
}

size_t Limits::SearchAllocation() const {
    return std::max<size_t>(0x20000, static_cast<size_t>(2 * m_deviceSize));
}

size_t Limits::PlaybackAllocation() const {
    return std::max(SearchAllocation(), static_cast<size_t>(2 * m_blkSize));
}

} // namespace fuzzing
