#ifndef TESTS_SUPPORT_PARTITION_TABLES_H
#define TESTS_SUPPORT_PARTITION_TABLES_H

#include <cstdint>
#include <string>
#include <vector>

namespace test_support {

/// Where a partition lies, in sectors.
struct TableEntry {
    uint64_t start = 0;
    uint64_t sectors = 0;
};

/// Makes a file of so many bytes, all zero.
void MakeDiskFile(const std::string& path, uint64_t bytes);
/// Writes bytes into a file that is there.
void WriteInto(const std::string& path, uint64_t offset, const std::string& bytes);

/// Writes an MBR with primary partitions 1, 2, 3, and logical ones from 5 on. The link of a logical partition stands in the
/// sector before it.
void WriteMbr(const std::string& path, const std::vector<TableEntry>& primary,
              const std::vector<TableEntry>& logical = {});

/// Writes a GPT with partitions 1, 2, ... and its backup.
void WriteGpt(const std::string& path, const std::vector<TableEntry>& partitions, uint32_t sectorSize = 512);

} // namespace test_support

#endif // TESTS_SUPPORT_PARTITION_TABLES_H
