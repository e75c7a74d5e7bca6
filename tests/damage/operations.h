#ifndef TESTS_DAMAGE_OPERATIONS_H
#define TESTS_DAMAGE_OPERATIONS_H

/// @file operations.h
/// Every operation of the library, held to what it may cost on any disk. docs/hostile-disks.md derives the
/// bounds.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "disk_access.h"
#include "host/system_calls.h"

namespace test_support {

/// Counts the system calls that reach a device. Passes all but flushes.
class CallCounter {
public:
    CallCounter();

    /// The calls since the last time that it was asked.
    size_t Take();

private:
    size_t m_calls = 0;
    SystemCallLog m_log;
};

/// What an operation may cost at most: system calls that reach the device, and bytes in one allocation.
struct Cost {
    uint64_t calls;
    uint64_t bytes;
};

/// The bounds of the operations on one disk.
class Bounds {
public:
    /// @param head       as it lies on the disk
    /// @param deviceSize bytes of the disk
    Bounds(const PartHead_t& head, uint64_t deviceSize);

    Cost Open() const { return {3, kObject}; }
    Cost FindNewest() const { return Searching(NewestCalls()); }
    Cost Space() const { return Searching(EndsCalls()); }
    Cost SearchMedia() const { return Searching(MediaCalls()); }
    Cost SearchEvent() const { return Searching(EventCalls()); }
    /// @param events, records that are on the disk
    Cost SearchAlarms(uint64_t events, uint64_t records) const {
        const Cost cost = Searching(MediaCalls() + EventCalls() + 2 * events);
        return {cost.calls, cost.bytes > 3 * records ? cost.bytes : 3 * records};
    }
    Cost MixSearch(uint64_t events, uint64_t records) const {
        return Searching(MediaCalls() + EventCalls() + 2 * (events + records));
    }
    Cost UnitMedia() const { return Searching(76); }
    Cost UnitList() const { return Searching(EndsCalls() + StartCalls() + 2 * m_blocks + 2 * kTables); }
    Cost InvalidUnits() const { return Searching(2 * m_blocks + 3 * kTables); }
    Cost Days() const { return Searching(EndsCalls() + 8 + 12 * m_blocks); }
    Cost BlockLook() const { return Searching(4); }
    Cost IndexList() const { return Searching(140); }
    Cost Rebuild() const { return {140 + 2 + 3 * m_heads, Rebuilt()}; }

    Cost StartRead() const { return {kOpenBlock + kLookAtBlock + 2 + WalkCalls(), Indexed()}; }
    Cost Seek() const { return {WalkCalls(), kObject}; }
    Cost ReadFrame() const { return {3 * WalkCalls() + RingCalls() + kLookAtBlock, Payload()}; }
    Cost Step() const { return {2 * WalkCalls(), Payload()}; }
    Cost UnitFrame() const { return {3, Payload()}; }
    Cost StopRead() const { return {2, kObject}; }
    Cost RecordInfo() const { return {kLookAtBlock + 3 * m_heads, Rebuilt()}; }
    Cost WalkRing() const { return {RingCalls(), Indexed()}; }

    Cost Dump(int level) const;

    /// Frames that can be read of one block.
    uint64_t Frames() const { return m_heads; }

private:
    static constexpr uint64_t kObject = 4096;      ///< states and handles are smaller
    static constexpr uint64_t kTables = 5;         ///< the device's size, then a seek and a read a table
    static constexpr uint64_t kOpenBlock = 139;    ///< opened, head, tails, index head, 65 tables
    static constexpr uint64_t kLookAtBlock = 141;  ///< and closed again, flushed
    static constexpr uint64_t kMeasuring = 9;      ///< opened, size, closed: the ring twice, its end once
    static constexpr uint64_t kMediaOfBlock = 78;  ///< heads, tails, index head, 32 tables
    static constexpr uint64_t kEventsOfBlock = 12; ///< head, tails, index head, table

    uint64_t NewestCalls() const { return 2 * (5 * m_blocks + 3 * m_halvings + 2) + 2 * kTables; }
    /// The ring's ends.
    uint64_t EndsCalls() const { return NewestCalls() + 2 * (2 * m_blocks + 3) + 3 * kTables; }
    uint64_t StartCalls() const { return 2 * (5 * m_blocks + 3 * m_halvings + 3) + 4 * kTables; }
    uint64_t MediaCalls() const { return EndsCalls() + StartCalls() + kTables + kMediaOfBlock * m_blocks; }
    uint64_t EventCalls() const { return EndsCalls() + StartCalls() + kTables + kEventsOfBlock * m_blocks; }
    /// A look at each block of the ring.
    uint64_t RingCalls() const { return kMeasuring + (kLookAtBlock + kTables) * (m_blocks + 1); }
    /// A walk over the frame heads of a block, and a payload.
    uint64_t WalkCalls() const { return 2 * m_heads + 3; }

    Cost Searching(uint64_t calls) const;
    uint64_t Indexed() const;
    uint64_t Payload() const;
    uint64_t Rebuilt() const;

    uint64_t m_blocks;   ///< that are looked at
    uint64_t m_halvings; ///< of the ring, until one block is left
    uint64_t m_heads;    ///< frame heads that a block can have, or the device after its start
    uint64_t m_blockSize;
    uint64_t m_indexArea; ///< bytes
    uint64_t m_deviceSize;
    uint64_t m_statedBlocks;
};

/// Puts one disk through the operations, and expects each to keep to its bounds.
class Operations {
public:
    Operations(const PartAccess_t& access, const PartHead_t& head, uint64_t deviceSize, CallCounter& counter)
        : m_access(access), m_head(head), m_bounds(head, deviceSize), m_counter(counter) {}

    /// All of them.
    /// @param which chooses the records that are played, of those that are found
    void All(uint32_t which);

    void Search();
    void SearchBlocks();
    void Play(uint32_t which);
    void PlayBlock(uint32_t block);
    /// Takes a BlockDeviceGuise.
    void Dump();

private:
    void Bounded(const char* operation, const Cost& most, const std::function<void()>& action);
    void PlayRecord(CReadDisk& disk, RecordItem_t record, int chnType);
    void PlayUnit(CReadDisk& disk, int unit);

    PartAccess_t m_access;
    PartHead_t m_head;
    Bounds m_bounds;
    CallCounter& m_counter;
    std::vector<RecordItem_t> m_found; ///< by the last search
};

} // namespace test_support

#endif // TESTS_DAMAGE_OPERATIONS_H
