#include "support/limits.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "format/block_geometry.h"

namespace fuzzing {

namespace {

/// Whatever is read of a ring that is no longer than this may be read block by block.
constexpr uint64_t kShortRing = 300;

} // namespace

Limits::Limits(const PartitionInput& input, const MemoryDevice& device)
    : m_deviceSize(device.Size()), m_weight(input.Weight()) {
    PartHead_t head = {};
    std::array<uint8_t, sizeof head> bytes = {};
    device.Copy(0, bytes.data(), bytes.size()); // several extents may make it up
    std::memcpy(&head, bytes.data(), sizeof head);
    const auto geometry = disk_access::BlockGeometry::Of(head.BlkSize, head.FmtVersion);
    m_blkSize = head.BlkSize;
    m_blocks = disk_access::CredibleBlocks(head.BlkCount, geometry, m_deviceSize);
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
