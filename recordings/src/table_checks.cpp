#include "table_checks.h"

#include <array>
#include <vector>

#include "disk_format.h"
#include "format/block_geometry.h"
#include "format/part_head.h"

namespace recordings {

namespace {

/// A table before the ring.
struct Table {
    const char* name;
    uint64_t offset;
    uint64_t bytes;
    bool backup; ///< one that need not be there: its offset is 0 then

    uint64_t End() const { return offset + bytes; }
    bool Overlaps(const Table& other) const { return offset < other.End() && other.offset < End(); }
};

class TableCheck {
public:
    TableCheck(const Disk& disk, const FindingSink& findings)
        : m_disk(disk), m_facts(disk.Facts()), m_findings(findings), m_count(disk.BlockCount()) {}

    void Run() {
        CheckPlaces();
        CheckBackups();
    }

private:
    /// The tables as large as the head's ring makes them.
    std::array<Table, 4> Tables() const {
        const uint64_t bits = disk_access::BadBlockTabSize(m_facts.blockCount);
        const uint64_t counts = m_facts.blockCount;
        return {{{"bad-block table", m_facts.badBlockTable, bits, false},
                 {"suspect table", m_facts.suspectTable, counts, false},
                 {"backup of the bad-block table", m_facts.badBlockTableBackup, bits, true},
                 {"backup of the suspect table", m_facts.suspectTableBackup, counts, true}}};
    }

    bool Misplaced(const Table& table) const {
        const Table head = {"", 0, sizeof(PartHead_t), false};
        const Table ring = {"", BLOCK_BASE_OFFSET, uint64_t{m_facts.blockCount} * m_facts.blockSize, false};
        const bool none = table.backup && table.offset == 0;
        return !none && (table.Overlaps(head) || table.Overlaps(ring));
    }

    void CheckPlaces() {
        const std::array<Table, 4> tables = Tables();
        std::string fields;
        for (size_t i = 0; i < tables.size(); ++i) {
            bool odd = Misplaced(tables.at(i));
            for (size_t other = 0; other < tables.size() && tables.at(i).offset != 0; ++other) {
                odd = odd ||
                      (other != i && tables.at(other).offset != 0 && tables.at(i).Overlaps(tables.at(other)));
            }
            if (odd) {
                fields += (fields.empty() ? "" : ", ") + std::string(tables.at(i).name);
            }
        }
        if (!fields.empty()) {
            Finding finding;
            finding.problem.kind = ProblemKind::TablesMisplaced;
            finding.problem.severity = Severity::Note;
            finding.fields = fields;
            finding.place = 0;
            m_findings(finding);
        }
    }

    std::optional<std::vector<uint8_t>> Read(uint64_t offset, uint32_t bytes) const {
        std::vector<uint8_t> table(bytes);
        return m_disk.Bytes().ReadWhole(offset, table.data(), bytes) ? std::optional(std::move(table))
                                                                     : std::nullopt;
    }

    void CheckBackups() {
        const uint32_t bitBytes = disk_access::BadBlockTabSize(m_count);
        const auto bad = Read(m_facts.badBlockTable, bitBytes);
        const auto badBackup = Read(m_facts.badBlockTableBackup, bitBytes);
        const auto suspect = Read(m_facts.suspectTable, m_count);
        const auto suspectBackup = Read(m_facts.suspectTableBackup, m_count);
        if ((!badBackup && m_facts.badBlockTableBackup != 0) ||
            (!suspectBackup && m_facts.suspectTableBackup != 0)) {
            NoteUnreadable(badBackup ? m_facts.suspectTableBackup : m_facts.badBlockTableBackup);
        }
        if (bad && badBackup && m_facts.badBlockTableBackup != 0) {
            Compare("bad-block table", m_facts.badBlockTable, 8, [&](uint32_t block) {
                return disk_access::MarkedBad(bad->data(), block) !=
                       disk_access::MarkedBad(badBackup->data(), block);
            });
        }
        if (suspect && suspectBackup && m_facts.suspectTableBackup != 0) {
            Compare("suspect table", m_facts.suspectTable, 1,
                    [&](uint32_t block) { return (*suspect)[block] != (*suspectBackup)[block]; });
        }
    }

    void NoteUnreadable(uint64_t place) {
        Finding finding;
        finding.problem.kind = ProblemKind::BackupTablesUnreadable;
        finding.problem.severity = Severity::Note;
        finding.place = place;
        m_findings(finding);
    }

    template <typename Differs>
    void Compare(const char* name, uint64_t table, uint32_t blocksAByte, const Differs& differs) {
        Finding finding;
        finding.problem.kind = ProblemKind::TablesDiffer;
        finding.problem.severity = Severity::Note;
        finding.fields = name;
        for (uint32_t block = 0; block < m_count; ++block) {
            if (differs(block)) {
                finding.problem.block = finding.problem.block.value_or(block);
                ++finding.problem.count;
            }
        }
        if (finding.problem.block) {
            finding.place = table + *finding.problem.block / blocksAByte;
            m_findings(finding);
        }
    }

    const Disk& m_disk;
    const DiskFacts& m_facts;
    const FindingSink& m_findings;
    uint32_t m_count;
};

/// A recording that goes on after the last block of the ring: the head states too few blocks.
void CheckEndOfRing(const Disk& disk, const BlockList& blocks, const FindingSink& findings) {
    const uint32_t count = disk.Facts().blockCount;
    const std::optional<size_t> last = blocks.Find(count - 1);
    BlockHead_t head = {};
    if (count >= disk_access::kBlocksOfIds || !last ||
        !disk.Bytes().ReadWhole(disk.StartOf(count), &head, sizeof head) || head.ValidFlag != BLOCK_MAGIC ||
        head.RecSeq != blocks.All()[*last].sequence + 1) {
        return;
    }
    Finding finding;
    finding.problem.kind = ProblemKind::BlocksOutsideRing;
    finding.problem.block = count;
    finding.place = disk.StartOf(count);
    finding.start = int64_t{head.RecTime} * kMicros;
    findings(finding);
}

} // namespace

void CheckTables(const Disk& disk, const BlockList& blocks, const FindingSink& findings) {
    TableCheck(disk, findings).Run();
    CheckEndOfRing(disk, blocks, findings);
}

} // namespace recordings
