// How long a catalogue of many disks takes to answer, and how large it is. The disks are made up: each of a ring of 65,536
// blocks of 8 MiB, that is 142 hours of eight channels at 1 MiB a second, recorded twelve hours a day.
//
//   catalog_bench DATABASE DISKS      DATABASE: a new file, or an empty database postgresql://...

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "catalog/catalog.h"

namespace {

constexpr int64_t kBlocks = 65536;
constexpr int64_t kStart = 1700000000;

/// Fills the tables by statements that make many rows each; both databases know recursive queries.
void Fill(catalog::Database& database, int64_t disks) {
    const std::string count =
        "WITH RECURSIVE n (i) AS (SELECT CAST(1 AS BIGINT) UNION ALL SELECT i + 1 FROM n WHERE i < $1) ";
    catalog::Transaction transaction(database);
    database.Run(
        count + "INSERT INTO vehicle (number, identity, longest) SELECT 'bus ' || i, 'id ' || i, 3599 FROM n",
        {disks});
    catalog::Blob blocks(kBlocks * 8);
    uint64_t state = 88172645463325252;
    for (int64_t disk = 1; disk <= disks; ++disk) {
        for (uint8_t& byte : blocks) { // digests are like random bytes: nothing makes them smaller
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            byte = static_cast<uint8_t>(state);
        }
        database.Run(
            "INSERT INTO disk (head, revision, source, host, description, size, block_size, block_count,"
            " recorded_blocks, hidden, skew, pre_record, alarm_delay, vehicle_id, first_time, last_time, "
            "losses,"
            " added, updated, blocks) VALUES ('made up', 1, '/shelf/' || $1 || '.img', 'host', 'made up',"
            " 549755813888, 8388608, 65536, 65536, 0, 0, 10, 30, $2, $3, $3, 0, 0, 0, $4)",
            {std::to_string(disk), disk, kStart, blocks});
        // 142 hours of eight channels: spans of an hour.
        database.Run(
            count + "INSERT INTO span (disk_id, vehicle_id, channel, start_time, end_time, first_sequence,"
                    " last_sequence) SELECT $2, $2, i % 8, CAST($3 AS BIGINT) + (i / 8) / 12 * 86400 + (i / "
                    "8) % 12 * 3600,"
                    " CAST($3 AS BIGINT) + (i / 8) / 12 * 86400 + (i / 8) % 12 * 3600 + 3599, i * 57, i * 57 "
                    "+ 56 FROM n",
            {int64_t{142} * 8, disk, kStart});
        database.Run(count + "INSERT INTO event (disk_id, vehicle_id, sequence, entry, time, type)"
                             " SELECT $2, $2, i * 65, 0, (CAST($3 AS BIGINT) + i * 997) * 1000000, 4 FROM n",
                     {int64_t{1000}, disk, kStart});
        database.Run(
            count + "INSERT INTO mark (disk_id, digest) SELECT $2, CAST($2 AS BIGINT) * 1000000 + i FROM n",
            {int64_t{80}, disk});
    }
    transaction.Commit();
}

/// The median of several answers, in milliseconds.
double Measure(catalog::Catalog& catalogue, const catalog::Question& question, size_t& found) {
    std::vector<double> times;
    for (int turn = 0; turn < 11; ++turn) {
        const auto begin = std::chrono::steady_clock::now();
        found = catalogue.Find(question).size();
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void Ask(catalog::Catalog& catalogue, const char* what, const catalog::Question& question) {
    size_t found = 0;
    const double time = Measure(catalogue, question, found);
    std::printf("%-36s %8.2f ms  %zu found\n", what, time, found);
}

void Run(const std::string& location, int64_t disks) {
    auto database = catalog::OpenDatabase(location);
    catalog::Catalog catalogue(catalog::OpenDatabase(location));
    Fill(*database, disks);
    if (catalog::IsServer(location)) {
        database->Run("ANALYZE");
        database->Run("SELECT pg_database_size(current_database())", {}, [disks](const catalog::Row& row) {
            std::printf("%.0f KiB a disk\n", static_cast<double>(catalog::NumberIn(row.at(0))) / 1024 /
                                                 static_cast<double>(disks));
        });
    }
    catalog::Question question;
    question.from = kStart + int64_t{3} * 86400 + int64_t{5} * 3600 + 600;
    question.to = question.from + 600;
    Ask(catalogue, "every vehicle, ten minutes", question);
    question.vehicle = "bus " + std::to_string(disks / 2);
    Ask(catalogue, "a vehicle, ten minutes", question);
    question.to = question.from + 86400;
    question.events = 4;
    Ask(catalogue, "a vehicle, a day, around events", question);
    question = {};
    question.vehicle = "id 1";
    question.to = 0xFFFFFFFF;
    Ask(catalogue, "a vehicle, all times", question);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: catalog_bench DATABASE DISKS\n");
        return 2;
    }
    try {
        Run(argv[1], std::strtoll(argv[2], nullptr, 10));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
