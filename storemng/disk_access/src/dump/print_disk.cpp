// CPrintDisk: the device's size, the partition head and the bad-block tables; then one block after the other.

#include "print_disk.h"

#include <fcntl.h>
#include <linux/fs.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "disk_format.h"
#include "dump/dump_device.h"
#include "dump/print_block.h"
#include "dump/printer.h"
#include "format/block_geometry.h"
#include "format/field_text.h"
#include "format/part_head.h"
#include "io/device.h"
#include "io/host.h"

using namespace disk_access;

namespace {

/// The size of a block device in bytes; below 1 if it cannot be determined, as for every other kind of file.
long long BlockDeviceSize(const char* path) {
    const DumpDevice device(HostOpen(path, O_RDONLY));
    int sectorSize = 0;
    if (!device.Opened() || HostControl(device.Descriptor(), BLKSSZGET, &sectorSize) < 0) {
        return 0;
    }
    uint64_t bytes = 0;
    if (HostControl(device.Descriptor(), BLKGETSIZE64, &bytes) >= 0) {
        return static_cast<long long>(bytes);
    }
    // A kernel without this call returns the size in sectors.
    unsigned long sectors = 0;
    if (HostControl(device.Descriptor(), BLKGETSIZE, &sectors) < 0) {
        return 0;
    }
    bytes = uint64_t{sectors} * static_cast<unsigned int>(sectorSize);
    return static_cast<long long>(bytes);
}

void PrintHead(const PartHead_t& head, const Printer& out) {
    char cipherCode[sizeof head.CipherCode];
    CopyCipherCode(cipherCode, head);
    out.print(out.ctx, "*******************************HEAD********************************** \n");
    out.print(out.ctx, "Description : %s\n", FieldText(head.Description).chars);
    out.print(out.ctx, "FormatFlag : 0x%08x\n", head.FormatFlag);
    out.print(out.ctx, "FmtVersion : %d\n", Decimal(head.FmtVersion));
    out.print(out.ctx, "BlkCount : %d\n", Decimal(head.BlkCount));
    out.print(out.ctx, "BlkSize : 0x%08x\n", head.BlkSize);
    out.print(out.ctx, "BBTabOffs : 0x%08x\n", head.BBTabOffs);
    out.print(out.ctx, "BBTabBakOffs : 0x%08x\n", head.BBTabBakOffs);
    out.print(out.ctx, "BBCounterOffs : 0x%08x\n", head.BBCounterOffs);
    out.print(out.ctx, "BBCounterBakOffs : 0x%08x\n", head.BBCounterBakOffs);
    out.print(out.ctx, "Encrypt : %d\n", Decimal(head.Encrypt));
    out.print(out.ctx, "EncryptMap : 0x%08x\n", head.EncryptMap);
    out.print(out.ctx, "CipherCode : %s\n", cipherCode);
    out.print(out.ctx, " \n");
}

using Table = std::unique_ptr<uint8_t, decltype(&std::free)>;

/// Reads a table of @p size bytes. No memory is allocated for a table that would reach beyond the device.
/// @return null if it cannot be read, or if there is no memory
Table ReadTable(const DumpDevice& device, uint64_t deviceSize, uint32_t offset, uint32_t size) {
    Table table(nullptr, std::free);
    if (device.Seek(offset) && uint64_t{offset} + size <= deviceSize) {
        table.reset(static_cast<uint8_t*>(std::calloc(std::max(size, 1u), 1)));
        if (table != nullptr && !device.Read(table.get(), size)) {
            table.reset();
        }
    }
    return table;
}

int PrintBadBlocks(const DumpDevice& device, uint64_t deviceSize, const PartHead_t& head,
                   const Printer& out) {
    constexpr uint32_t kBytesALine = 16;
    const uint32_t bytes = BadBlockTabSize(head.BlkCount);
    const Table bits = ReadTable(device, deviceSize, head.BBTabOffs, bytes);
    if (bits == nullptr) {
        return -1;
    }
    out.print(out.ctx, "BadBlockTab:");
    for (uint32_t i = 0; i < bytes; ++i) {
        if (i % kBytesALine == 0) {
            out.print(out.ctx, "\n");
        }
        out.print(out.ctx, " %02x", unsigned{bits.get()[i]});
    }
    out.print(out.ctx, "\n");
    return 0;
}

int PrintCounters(const DumpDevice& device, uint64_t deviceSize, const PartHead_t& head, const Printer& out) {
    constexpr uint32_t kCountersALine = 20;
    const Table counters = ReadTable(device, deviceSize, head.BBCounterOffs, head.BlkCount);
    if (counters == nullptr) {
        return -1;
    }
    out.print(out.ctx, "PossibleBBTab:");
    for (uint32_t i = 0; i < head.BlkCount; ++i) {
        if (i % kCountersALine == 0) {
            out.print(out.ctx, "\n");
        }
        out.print(out.ctx, " %d", int{counters.get()[i]});
    }
    out.print(out.ctx, "\n");
    return 0;
}

/// One table after the other: only one is in memory at a time.
int PrintTables(const DumpDevice& device, uint64_t deviceSize, const PartHead_t& head, const Printer& out) {
    out.print(out.ctx, "*******************************BAD TAB********************************** \n");
    const int result = PrintBadBlocks(device, deviceSize, head, out);
    return result == 0 ? PrintCounters(device, deviceSize, head, out) : result;
}

void PrintBlocks(const DumpDevice& device, uint64_t deviceSize, const PartHead_t& head, bool detailed,
                 const Printer& out) {
    out.print(out.ctx, "*******************************BODY********************************** \n");
    const BlockGeometry geometry = BlockGeometry::Of(head.BlkSize, head.FmtVersion);
    BlockPrinter printer(device, deviceSize, geometry, detailed, out);
    const uint32_t count = CredibleBlocks(head.BlkCount, geometry, deviceSize);
    for (uint32_t block = 0; block < count; ++block) {
        printer.Print(block);
    }
    out.print(out.ctx, "*****************************BODY END******************************** \n");
}

} // namespace

CPrintDisk::CPrintDisk() = default;

CPrintDisk::~CPrintDisk() = default;

int CPrintDisk::Print(PartAccess_t* part, int level, int (*print)(void* ctx, const char* format, ...),
                      void* ctx) {
    if (part == nullptr || print == nullptr) {
        return -1;
    }
    const FieldText path(part->PartName);
    const long long size = BlockDeviceSize(path.chars);
    if (size < 1) {
        return -1;
    }
    const Printer out = {print, ctx};
    out.print(out.ctx, "PartName : %s, PartSize : %lld\n", path.chars, size);
    const DumpDevice device(OpenReadOnly(*part));
    PartHead_t head = {};
    if (!device.Opened() || !device.ReadAt(0, &head, sizeof head)) {
        return -1;
    }
    if (level < 0) {
        return 0;
    }
    PrintHead(head, out);
    const auto deviceSize = static_cast<uint64_t>(size);
    if (level == 0) {
        return PrintTables(device, deviceSize, head, out);
    }
    if (level >= 2) {
        PrintBlocks(device, deviceSize, head, level >= 3, out);
    }
    return 0;
}
