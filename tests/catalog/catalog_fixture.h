#ifndef TESTS_CATALOG_CATALOG_FIXTURE_H
#define TESTS_CATALOG_CATALOG_FIXTURE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "catalog/catalog.h"
#include "recordings/recordings_fixture.h"

namespace test_support {

enum class Engine { Sqlite, Postgres };

/// A test on a database of its own: a file, or a schema of the server that tests/catalog/with_postgres.sh starts.
class CatalogFixture : public RecordingsFixture, public ::testing::WithParamInterface<Engine> {
protected:
    void SetUp() override;

    /// Where the database is; made again for each test.
    const std::string& Location() const { return m_location; }
    std::unique_ptr<catalog::Database> Connect() const { return catalog::OpenDatabase(m_location); }
    catalog::Catalog& Catalog();

    /// Writes a closed block with one record of channel 0 all over it.
    void WriteBlock(uint32_t block, uint32_t sequence, uint32_t start, uint32_t end,
                    const std::string& vehicle = "bus 12");
    /// The same, of what is in @p contents.
    void WriteBlock(uint32_t block, sample_recorder::BlockContents contents,
                    const std::string& vehicle = "bus 12");

    /// Adds the disk as it is now.
    catalog::Added Add(const std::string& source = "/shelf/disk.img", int64_t skew = 0);
    /// What is found, as lines "VEHICLE DISK START-END CHANNELS[ EVENTS]"; channels and events in hexadecimal.
    std::vector<std::string> Find(const catalog::Question& question);
    std::vector<std::string> Find(int64_t from, int64_t to);

private:
    std::string m_location;
    std::unique_ptr<catalog::Catalog> m_catalog;
};

} // namespace test_support

#endif // TESTS_CATALOG_CATALOG_FIXTURE_H
