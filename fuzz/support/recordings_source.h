#ifndef FUZZ_SUPPORT_RECORDINGS_SOURCE_H
#define FUZZ_SUPPORT_RECORDINGS_SOURCE_H

/// @file recordings_source.h
/// A small disk in memory for the library of recordings. Its reads are counted, and may fail.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "disk_format.h"
#include "host/call_watch.h"
#include "recordings/source.h"
#include "support/partition_input.h"

namespace fuzzing {

/// What reading a disk has cost so far. Several threads may read.
struct ReadCost {
    std::atomic<uint64_t> reads{0};
    std::atomic<uint64_t> bytes{0}; ///< asked for
};

class RecordingsSource : public recordings::Source {
public:
    /// What lies after it is not there: reading through megabytes of zeros teaches nothing, and takes most of the time.
    static constexpr uint64_t kLargest = BLOCK_BASE_OFFSET + (256 << 10);

    /// @param device, cost must outlive the source
    RecordingsSource(const PartitionInput& input, const MemoryDevice& device, ReadCost& cost);

    const std::string& Name() const override { return m_name; }
    uint64_t Size() const override { return std::min(m_device.Size(), kLargest); }
    size_t Read(uint64_t offset, void* data, size_t size) const override;

private:
    std::string m_name = Machine::kNames[0];
    const MemoryDevice& m_device;
    ReadCost& m_cost;
    std::thread::id m_owner = std::this_thread::get_id();
    /// Reads of the thread that made the source, and of the others: which of them comes first is not known.
    mutable std::atomic<size_t> m_own{0};
    mutable std::atomic<size_t> m_others{0};
    test_support::Strike m_strike;
    bool m_comesShort; ///< what is struck delivers half; else nothing
};

} // namespace fuzzing

#endif // FUZZ_SUPPORT_RECORDINGS_SOURCE_H
