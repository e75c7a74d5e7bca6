#ifndef DISK_ACCESS_DUMP_PRINT_BLOCK_H
#define DISK_ACCESS_DUMP_PRINT_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "disk_format.h"
#include "dump/dump_device.h"
#include "dump/printer.h"
#include "format/block_geometry.h"

namespace disk_access {

/// Memory that grows to the largest table needed, and is used for one block after the other.
class ScratchBuffer {
public:
    ScratchBuffer() = default;
    ~ScratchBuffer() { std::free(m_memory); }
    ScratchBuffer(const ScratchBuffer&) = delete;
    ScratchBuffer& operator=(const ScratchBuffer&) = delete;

    /// @return at least @p size bytes; null if there is no memory: the buffer was then freed
    void* Get(size_t size);

private:
    void* m_memory = nullptr;
    size_t m_size = 0;
};

/// Prints the blocks of a partition.
class BlockPrinter {
public:
    /// @param detailed with channel properties and index tables
    BlockPrinter(const DumpDevice& device, uint64_t deviceSize, const BlockGeometry& geometry, bool detailed,
                 const Printer& out)
        : m_device(device), m_deviceSize(deviceSize), m_geometry(geometry), m_detailed(detailed), m_out(out) {
    }

    /// Prints the parts of a block that can be read.
    void Print(uint32_t block);

private:
    void PrintHead(const BlockHead_t& head) const;
    void PrintDetail(const BlockHead_t& head) const;
    void PrintProperties(int chn, const ChnProp_t& prop) const;
    /// These three print tables of the index.
    /// @return false when they cannot be read or would not end within the block
    bool PrintIndex(uint64_t start);
    bool PrintSegments(uint64_t offset, uint32_t count);
    bool PrintEvents(uint64_t offset, uint32_t count);
    void PrintTails(uint64_t start) const;
    /// Ends a line with the local time for a time from the disk.
    void PrintTime(uint32_t seconds) const;

    /// Reads the @p count entries of a table, at least one, into the scratch buffer.
    /// @return null if that fails
    template <typename Entry>
    const Entry* Load(uint64_t offset, uint32_t count);

    const DumpDevice& m_device;
    uint64_t m_deviceSize;
    BlockGeometry m_geometry;
    bool m_detailed;
    Printer m_out;
    ScratchBuffer m_scratch;
};

} // namespace disk_access

#endif // DISK_ACCESS_DUMP_PRINT_BLOCK_H
