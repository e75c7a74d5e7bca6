#ifndef FUZZ_SUPPORT_RECORDINGS_SOURCE_H
#define FUZZ_SUPPORT_RECORDINGS_SOURCE_H

/// @file recordings_source.h
/// A disk in memory for the library of recordings. Its reads are counted, and may fail.

#include <cstdint>
#include <string>

#include "host/call_watch.h"
#include "recordings/source.h"
#include "support/partition_input.h"

namespace fuzzing {

/// What reading a disk has cost so far.
struct ReadCost {
    uint64_t reads = 0;
    uint64_t bytes = 0; ///< asked for
};

class RecordingsSource : public recordings::Source {
public:
    /// @param device, cost must outlive the source
    RecordingsSource(const PartitionInput& input, const MemoryDevice& device, ReadCost& cost);

    const std::string& Name() const override { return m_name; }
    uint64_t Size() const override { return m_device.Size(); }
    size_t Read(uint64_t offset, void* data, size_t size) const override;

private:
    std::string m_name = Machine::kNames[0];
    const MemoryDevice& m_device;
    ReadCost& m_cost;
    test_support::Strike m_strike;
    bool m_comesShort; ///< what is struck delivers half; else nothing
};

} // namespace fuzzing

#endif // FUZZ_SUPPORT_RECORDINGS_SOURCE_H
