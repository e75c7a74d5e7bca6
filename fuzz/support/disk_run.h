#ifndef FUZZ_SUPPORT_DISK_RUN_H
#define FUZZ_SUPPORT_DISK_RUN_H

/// @file disk_run.h
/// What the harnesses have in common that read everything a disk holds, from a source in memory.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>

#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/error.h"
#include "recordings/query.h"
#include "support/findings.h"
#include "support/partition_input.h"
#include "support/recordings_source.h"
#include "support/script.h"

namespace fuzzing {

/// What one operation may cost. To each of these comes what any disk costs, however small. They are a few times what the
/// corpus needs, so that what grows faster than the disk is found.
struct CostLimits {
    uint64_t bytes;     ///< that are read, for each byte of the ring
    uint64_t reads;     ///< for each block of the ring
    uint64_t memory;    ///< bytes, for each byte of the ring
    uint64_t anyMemory; ///< and on any disk
};

/// A disk, opened, and operations on it, of which the costs are watched.
class DiskRun {
public:
    /// @throws recordings::Error when there is no partition
    DiskRun(const PartitionInput& input, const MemoryDevice& device, const CostLimits& limits);
    DiskRun(const DiskRun&) = delete;
    DiskRun& operator=(const DiskRun&) = delete;

protected:
    ~DiskRun() = default;

    /// Does an operation, which the caller may cancel, and for which memory may run short. It may end with an error for no
    /// other reason.
    /// @return whether it came to its end
    template <typename Operation>
    bool Try(const Operation& operation) {
        Begin();
        try {
            const AllocationWatch watch(m_input.FirstRefused(),
                                        m_input.Fault() == FaultKind::NoMemoryForever);
            operation();
            CheckCost();
            return true;
        } catch (const recordings::Error& error) {
            Require(error.Kind() == recordings::ErrorKind::Cancelled && IsCancelled(),
                    "an operation ends with an error, though nobody cancelled it");
        } catch (const std::bad_alloc&) {
            Require(m_input.FirstRefused() != AllocationWatch::kNone, "there is not enough memory");
        }
        CheckCost();
        return false;
    }

    const PartitionInput& Input() const { return m_input; }
    Script& Words() { return m_script; }
    const recordings::Disk& Disk() const { return m_disk; }
    const recordings::BlockList& Blocks() const { return *m_blocks; }
    bool IsFaultless() const { return m_input.Fault() == FaultKind::None; }

    /// Bytes of the ring that are on the device.
    uint64_t RingBytes() const;
    void CheckCost() const;
    recordings::ProblemSink Sink();
    void Take(const recordings::Problem& problem);
    /// Cancels, if the script says so, after some calls.
    recordings::Watch CancelSometime();

    recordings::TimeRange Range();
    recordings::ChannelSet Channels();

private:
    void Begin();
    bool IsCancelled() const { return m_watchesLeft && *m_watchesLeft == 0; }

    const PartitionInput& m_input;
    Script m_script;
    CostLimits m_limits;
    size_t m_memoryBefore; ///< the run
    ReadCost m_cost;
    uint64_t m_readsBefore = 0; ///< the operation
    uint64_t m_bytesBefore = 0;
    uint64_t m_problems = 0;
    std::optional<uint32_t> m_watchesLeft;
    recordings::Disk m_disk;
    std::optional<recordings::BlockList> m_blocks;
};

/// Runs the script of an input on its disk, if it is one.
template <typename Run>
void RunOnDisk(const PartitionInput& input, const MemoryDevice& device) {
    std::unique_ptr<Run> run;
    try {
        run = std::make_unique<Run>(input, device);
    } catch (const recordings::Error& error) {
        Require(*error.what() != '\0', "a disk is refused without a word");
        return;
    }
    run->RunScript();
}

} // namespace fuzzing

#endif // FUZZ_SUPPORT_DISK_RUN_H
