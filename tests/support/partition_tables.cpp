#include "support/partition_tables.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace test_support {

namespace {

constexpr uint8_t kLinux = 0x83;
constexpr uint8_t kExtended = 0x05;
constexpr uint8_t kProtective = 0xEE;

template <typename T>
void Set(std::string& bytes, size_t offset, T value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

/// A sector with up to four entries of an MBR.
class MbrSector {
public:
    MbrSector() {
        m_bytes[510] = '\x55';
        m_bytes[511] = static_cast<char>(0xAA);
    }
    void Add(uint8_t type, uint64_t start, uint64_t sectors) {
        const size_t entry = 446 + 16 * m_count++;
        Set(m_bytes, entry + 4, type);
        Set(m_bytes, entry + 8, static_cast<uint32_t>(start));
        Set(m_bytes, entry + 12, static_cast<uint32_t>(sectors));
    }
    const std::string& Bytes() const { return m_bytes; }

private:
    std::string m_bytes = std::string(512, '\0');
    size_t m_count = 0;
};

uint32_t Crc32(const std::string& bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const char c : bytes) {
        crc ^= static_cast<uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
        }
    }
    return ~crc;
}

constexpr size_t kGptEntries = 128;
constexpr size_t kGptEntrySize = 128;

std::string GptEntries(const std::vector<TableEntry>& partitions) {
    // "Linux filesystem data", as its bytes stand in the table.
    constexpr std::array<uint8_t, 16> kType = {0xAF, 0x3D, 0xC6, 0x0F, 0x83, 0x84, 0x72, 0x47,
                                               0x8E, 0x79, 0x3D, 0x69, 0xD8, 0x47, 0x7D, 0xE4};
    std::string entries(kGptEntries * kGptEntrySize, '\0');
    for (size_t i = 0; i < partitions.size(); ++i) {
        const size_t at = i * kGptEntrySize;
        std::memcpy(&entries[at], kType.data(), kType.size());
        entries[at + 16] = static_cast<char>(i + 1); // its own identifier
        Set(entries, at + 32, partitions[i].start);
        Set(entries, at + 40, partitions[i].start + partitions[i].sectors - 1);
    }
    return entries;
}

/// @param at this header's sector @param other that of the other copy @param table where its entries begin
std::string GptHeader(uint64_t at, uint64_t other, uint64_t table, uint64_t last,
                      const std::string& entries) {
    std::string header = "EFI PART";
    header.resize(92);
    Set(header, 8, uint32_t{0x00010000});
    Set(header, 12, uint32_t{92});
    Set(header, 24, at);
    Set(header, 32, other);
    Set(header, 40, uint64_t{34});
    Set(header, 48, last - 34);
    header[56] = 'd'; // the disk's identifier
    Set(header, 72, table);
    Set(header, 80, static_cast<uint32_t>(kGptEntries));
    Set(header, 84, static_cast<uint32_t>(kGptEntrySize));
    Set(header, 88, Crc32(entries));
    Set(header, 16, Crc32(header));
    return header;
}

} // namespace

void MakeDiskFile(const std::string& path, uint64_t bytes) {
    std::ofstream(path, std::ios::binary).close();
    std::filesystem::resize_file(path, bytes);
}

void WriteInto(const std::string& path, uint64_t offset, const std::string& bytes) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(offset));
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void WriteMbr(const std::string& path, const std::vector<TableEntry>& primary,
              const std::vector<TableEntry>& logical) {
    MbrSector mbr;
    for (const TableEntry& entry : primary) {
        mbr.Add(kLinux, entry.start, entry.sectors);
    }
    if (!logical.empty()) {
        const uint64_t extended = logical.front().start - 1;
        mbr.Add(kExtended, extended, logical.back().start + logical.back().sectors - extended);
        for (size_t i = 0; i < logical.size(); ++i) {
            MbrSector link;
            link.Add(kLinux, 1, logical[i].sectors);
            if (i + 1 < logical.size()) {
                link.Add(kExtended, logical[i + 1].start - 1 - extended, logical[i + 1].sectors + 1);
            }
            WriteInto(path, (logical[i].start - 1) * 512, link.Bytes());
        }
    }
    WriteInto(path, 0, mbr.Bytes());
}

void WriteGpt(const std::string& path, const std::vector<TableEntry>& partitions, uint32_t sectorSize) {
    const uint64_t last = std::filesystem::file_size(path) / sectorSize - 1;
    const std::string entries = GptEntries(partitions);
    const uint64_t backup = last - entries.size() / sectorSize;
    MbrSector protective;
    protective.Add(kProtective, 1, last);
    WriteInto(path, 0, protective.Bytes());
    WriteInto(path, sectorSize, GptHeader(1, last, 2, last, entries));
    WriteInto(path, uint64_t{2} * sectorSize, entries);
    WriteInto(path, backup * sectorSize, entries);
    WriteInto(path, last * sectorSize, GptHeader(last, 1, backup, last, entries));
}

} // namespace test_support
