#ifndef FUZZ_SUPPORT_PARTITION_INPUT_H
#define FUZZ_SUPPORT_PARTITION_INPUT_H

/// @file partition_input.h
/// An input of the harnesses that read partitions: the bytes of a partition that are not zero, and a script of
/// operations. The README beside the harnesses describes its layout.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "dev_io.h"
#include "support/findings.h"
#include "support/machine.h"

namespace fuzzing {

/// Bytes that lie together on the device.
struct Extent {
    uint32_t offset = 0;
    std::vector<uint8_t> bytes;
};

/// What an input says besides extents and script, in the order in which it says it.
#pragma pack(push, 1)
struct InputHead {
    uint32_t deviceSize = 0; ///< bytes
    uint32_t blockSize = 0;  ///< as recorded; the partition head on the device may say otherwise
    uint8_t blockCount = 0;  ///< likewise
    uint8_t fmtVersion = 0;  ///< likewise
    uint8_t diskType = 0;    ///< of the request to open the partition
    uint8_t fault = 0;       ///< a FaultKind
    uint16_t faultCall = 0;  ///< the system call or allocation that fails, counted from 0
    uint16_t extents = 0;    ///< how many follow
};
#pragma pack(pop)

struct PartitionInput {
    InputHead head;
    std::vector<Extent> extents;
    std::vector<uint8_t> script;

    /// Takes any bytes: what is missing is zero or empty.
    static PartitionInput Parse(const uint8_t* data, size_t size);
    /// The bytes that Parse() would make this from.
    std::vector<uint8_t> Bytes() const;

    /// Lays the partition on a device.
    void LayOn(MemoryDevice& device) const;
    /// How the partition on a device of the machine is opened.
    PartAccess_t Access(size_t device) const;

    FaultKind Fault() const { return static_cast<FaultKind>(head.fault % kFaultKinds); }
    /// Whether reads fail or come short.
    bool ReadsFail() const { return Fault() >= FaultKind::FailOnce && Fault() <= FaultKind::ShortForever; }
    /// The allocation that is refused, or AllocationWatch::kNone.
    size_t FirstRefused() const {
        const bool refused = Fault() == FaultKind::NoMemoryOnce || Fault() == FaultKind::NoMemoryForever;
        return refused ? head.faultCall : AllocationWatch::kNone;
    }

    /// The 32-bit word at a device offset.
    uint32_t Word(uint32_t offset) const;
    /// Overwrites it, in an extent of its own if no extent holds it.
    void PutWord(uint32_t offset, uint32_t value);
    /// Bytes of all extents.
    size_t Weight() const;
};

} // namespace fuzzing

#endif // FUZZ_SUPPORT_PARTITION_INPUT_H
