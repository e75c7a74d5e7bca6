#ifndef FUZZ_SUPPORT_LIMITS_H
#define FUZZ_SUPPORT_LIMITS_H

#include <cstddef>
#include <cstdint>

#include "support/partition_input.h"

namespace fuzzing {

/// What one operation may cost on the partition of an input.
class Limits {
public:
    /// @param device on which the input lies
    Limits(const PartitionInput& input, const MemoryDevice& device);

    /// System calls. Each block of the ring is looked at in some walks, head and tails; those that can hold
    /// anything, with their index, in all; and whatever lies on the disk may be read some times.
    uint64_t Calls() const;
    /// Bytes of one allocation of a search: tables of a ring that ids can name, or an index, which was read from
    /// the device.
    size_t SearchAllocation() const;
    /// Bytes of one allocation of playback: a payload may claim what is left of its block.
    size_t PlaybackAllocation() const;

private:
    uint64_t m_deviceSize;
    uint64_t m_blkSize;
    uint64_t m_blocks;
    uint64_t m_weight;
};

/// System calls of a run, beyond which no further operation begins: rings forged to be long take their share.
constexpr uint64_t kEnoughCalls = 10000;

} // namespace fuzzing

#endif // FUZZ_SUPPORT_LIMITS_H
