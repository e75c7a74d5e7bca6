#include "catalog/catalog.h"

#include <utility>

#include "catalog/error.h"
#include "disk_contents.h"
#include "disk_state.h"
#include "schema.h"
#include "store.h"

namespace catalog {

namespace {

/// Times that a disk is entered again because others entered it meanwhile.
constexpr int kMostTries = 8;

std::optional<int64_t> NumberOrNothing(const Cell& cell) {
    const auto* const number = std::get_if<int64_t>(&cell);
    return number == nullptr ? std::nullopt : std::optional(*number);
}

std::string TextOrNothing(const Cell& cell) {
    const auto* const text = std::get_if<std::string>(&cell);
    return text == nullptr ? std::string() : *text;
}

CataloguedDisk DiskOf(const Row& row) {
    CataloguedDisk disk;
    disk.id = NumberIn(row.at(0));
    disk.source = TextIn(row.at(1));
    disk.host = TextIn(row.at(2));
    disk.description = TextIn(row.at(3));
    disk.vehicleNumber = TextOrNothing(row.at(4));
    disk.vehicleId = TextOrNothing(row.at(5));
    disk.size = static_cast<uint64_t>(NumberIn(row.at(6)));
    disk.recordedBlocks = static_cast<uint64_t>(NumberIn(row.at(7)));
    disk.skewSeconds = NumberIn(row.at(8));
    disk.first = NumberOrNothing(row.at(9));
    disk.last = NumberOrNothing(row.at(10));
    disk.losses = static_cast<uint64_t>(NumberIn(row.at(11)));
    disk.updated = NumberIn(row.at(12));
    return disk;
}

} // namespace

Catalog::Catalog(std::unique_ptr<Database> database) : m_database(std::move(database)) {
    Migrate(*m_database);
}

Added Catalog::Add(const recordings::Disk& disk, const recordings::BlockList& blocks, const Reading& reading,
                   const recordings::Watch& watch) {
    const DiskState state = ReadState(disk, blocks, reading, watch);
    const DiskFacts facts = {disk, blocks, state, reading, RowsOf(*m_database, state.vehicles)};
    for (int tries = 0; tries < kMostTries; ++tries) {
        const KnownDisk known = LoadKnown(*m_database, state);
        const DiskContents contents =
            ReadContents(disk, blocks, state, facts.vehicles, known, reading, watch);
        if (const auto id = Store(*m_database, facts, known, contents)) {
            Added added;
            added.disk = *id;
            added.isNew = !known.id;
            added.blocks = blocks.All().size();
            added.read = contents.read;
            for (const ProblemRow& problem : contents.problems) {
                added.losses += problem.loss ? 1 : 0;
            }
            return added;
        }
    }
    throw Error(reading.source + ": others enter the same disk again and again; try once more");
}

std::vector<CataloguedDisk> Catalog::List() {
    std::vector<CataloguedDisk> disks;
    m_database->Run(
        "SELECT d.id, d.source, d.host, d.description, v.number, v.identity, d.size, d.recorded_blocks,"
        " d.skew, d.first_time, d.last_time, d.losses, d.updated FROM disk d"
        " LEFT JOIN vehicle v ON v.id = d.vehicle_id ORDER BY v.number, v.identity, d.id",
        {}, [&disks](const Row& row) { disks.push_back(DiskOf(row)); });
    return disks;
}

std::vector<CataloguedProblem> Catalog::ProblemsOf(int64_t disk) {
    std::vector<CataloguedProblem> problems;
    m_database->Run("SELECT kind, loss, text FROM problem WHERE disk_id = $1 ORDER BY block, kind, text",
                    {disk}, [&problems](const Row& row) {
                        problems.push_back({TextIn(row.at(0)), NumberIn(row.at(1)) != 0, TextIn(row.at(2))});
                    });
    return problems;
}

bool Catalog::Remove(int64_t disk) {
    bool found = false;
    Transaction transaction(*m_database);
    m_database->LockForWriting();
    m_database->Run("DELETE FROM disk WHERE id = $1 RETURNING id", {disk},
                    [&found](const Row& /*row*/) { found = true; });
    transaction.Commit();
    return found;
}

} // namespace catalog
