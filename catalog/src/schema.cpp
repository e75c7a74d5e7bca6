#include "schema.h"

#include <algorithm>
#include <array>
#include <string>

#include "catalog/catalog.h"
#include "catalog/error.h"

namespace catalog {

namespace {

/// What leads from one version to the next; KEY and BYTES stand for the database's own words.
struct Step {
    std::vector<const char*> statements;
};

const std::array<Step, kSchemaVersion>& Steps() {
    static const std::array<Step, kSchemaVersion> steps = {
        {{{"CREATE TABLE vehicle (id KEY, number TEXT NOT NULL, identity TEXT NOT NULL,"
           " longest BIGINT NOT NULL DEFAULT 0, UNIQUE (number, identity))",
           "CREATE TABLE disk (id KEY, head TEXT NOT NULL, revision BIGINT NOT NULL, source TEXT NOT NULL,"
           " host TEXT NOT NULL, description TEXT NOT NULL, size BIGINT NOT NULL, block_size BIGINT NOT NULL,"
           " block_count BIGINT NOT NULL, recorded_blocks BIGINT NOT NULL, hidden BIGINT NOT NULL, skew "
           "BIGINT NOT NULL,"
           " pre_record BIGINT NOT NULL, alarm_delay BIGINT NOT NULL, vehicle_id BIGINT REFERENCES vehicle "
           "(id),"
           " first_time BIGINT, last_time BIGINT, losses BIGINT NOT NULL, added BIGINT NOT NULL,"
           " updated BIGINT NOT NULL, blocks BYTES NOT NULL)",
           "CREATE TABLE mark (disk_id BIGINT NOT NULL REFERENCES disk (id) ON DELETE CASCADE, digest BIGINT "
           "NOT NULL)",
           "CREATE TABLE span (id KEY, disk_id BIGINT NOT NULL REFERENCES disk (id) ON DELETE CASCADE,"
           " vehicle_id BIGINT NOT NULL REFERENCES vehicle (id), channel INTEGER NOT NULL, start_time BIGINT "
           "NOT NULL,"
           " end_time BIGINT NOT NULL, first_sequence BIGINT NOT NULL, last_sequence BIGINT NOT NULL)",
           "CREATE TABLE event (disk_id BIGINT NOT NULL REFERENCES disk (id) ON DELETE CASCADE,"
           " vehicle_id BIGINT NOT NULL REFERENCES vehicle (id), sequence BIGINT NOT NULL, entry BIGINT NOT "
           "NULL,"
           " time BIGINT NOT NULL, type BIGINT NOT NULL)",
           "CREATE TABLE problem (disk_id BIGINT NOT NULL REFERENCES disk (id) ON DELETE CASCADE,"
           " contents BIGINT NOT NULL, loss BIGINT NOT NULL, kind TEXT NOT NULL, block BIGINT, text TEXT NOT "
           "NULL)"}},
         {{"CREATE INDEX mark_by_digest ON mark (digest)", "CREATE INDEX mark_by_disk ON mark (disk_id)",
           "CREATE INDEX span_by_vehicle ON span (vehicle_id, start_time)",
           "CREATE INDEX span_by_disk ON span (disk_id)",
           "CREATE INDEX event_by_vehicle ON event (vehicle_id, time)",
           "CREATE INDEX event_by_disk ON event (disk_id, sequence)",
           "CREATE INDEX problem_by_disk ON problem (disk_id)"}}}};
    return steps;
}

void Replace(std::string& text, const std::string& word, const std::string& by) {
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + by.size())) {
        text.replace(at, word.size(), by);
    }
}

std::string Worded(const char* statement, const Database& database) {
    std::string text = statement;
    Replace(text, "KEY,", database.Dialect().key + std::string(","));
    Replace(text, "BYTES", database.Dialect().bytes);
    return text;
}

int64_t VersionOf(Database& database) {
    int64_t version = 0;
    database.Run("SELECT version FROM catalog_version", {},
                 [&version](const Row& row) { version = NumberIn(row.at(0)); });
    return version;
}

} // namespace

bool HoldsCatalog(Database& database) {
    bool holds = false;
    database.Run(database.Dialect().tables, {std::string("catalog_version")},
                 [&holds](const Row& row) { holds = NumberIn(row.at(0)) != 0; });
    return holds;
}

void Migrate(Database& database, int64_t version) {
    // Made by itself: two programs may find a new database at once, and the second waits for the first here.
    database.Run(
        "CREATE TABLE IF NOT EXISTS catalog_version (one BIGINT PRIMARY KEY, version BIGINT NOT NULL)");
    if (VersionOf(database) == version) {
        return;
    }
    Transaction transaction(database);
    database.Run(
        "INSERT INTO catalog_version (one, version) VALUES (1, 0) ON CONFLICT (one) DO UPDATE SET one = 1");
    const int64_t found = VersionOf(database);
    if (found > kSchemaVersion || found < 0) {
        throw Error("the catalogue is of version " + std::to_string(found) +
                    ", and this program knows versions up to " + std::to_string(kSchemaVersion) +
                    "; use a later one");
    }
    for (int64_t at = found; at < version; ++at) {
        for (const char* statement : Steps().at(static_cast<size_t>(at)).statements) {
            database.Run(Worded(statement, database));
        }
    }
    database.Run("UPDATE catalog_version SET version = $1", {std::max(found, version)});
    transaction.Commit();
}

} // namespace catalog
