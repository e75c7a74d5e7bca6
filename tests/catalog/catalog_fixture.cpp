#include "catalog/catalog_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace test_support {

void CatalogFixture::SetUp() {
    if (GetParam() == Engine::Sqlite) {
        m_location = File("catalog.db");
        return;
    }
    const char* const server = std::getenv("DISKACCESS_TEST_SERVER");
    if (server == nullptr) {
        GTEST_SKIP() << "no PostgreSQL server; tests/catalog/with_postgres.sh starts one";
    }
    const auto database = catalog::OpenDatabase(server);
    database->Run("DROP SCHEMA IF EXISTS test CASCADE");
    database->Run("CREATE SCHEMA test");
    m_location = std::string(server) + "&options=-csearch_path%3Dtest";
}

catalog::Catalog& CatalogFixture::Catalog() {
    if (!m_catalog) {
        m_catalog = std::make_unique<catalog::Catalog>(Connect());
    }
    return *m_catalog;
}

void CatalogFixture::WriteBlock(uint32_t block, sample_recorder::BlockContents contents,
                                const std::string& vehicle) {
    vehicle.copy(contents.head.VehicleNum, sizeof contents.head.VehicleNum);
    std::string("id of ").copy(contents.head.VehicleID, sizeof contents.head.VehicleID);
    vehicle.copy(contents.head.VehicleID + 6, sizeof contents.head.VehicleID - 6);
    Image().WriteBlock(block, contents);
}

void CatalogFixture::WriteBlock(uint32_t block, uint32_t sequence, uint32_t start, uint32_t end,
                                const std::string& vehicle) {
    WriteBlock(block,
               sample_recorder::BlockContents::Closed(sequence, start, end).Segment(0, start, end, 9000),
               vehicle);
}

catalog::Added CatalogFixture::Add(const std::string& source, int64_t skew) {
    const recordings::Disk& disk = Open();
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    catalog::Reading reading;
    reading.source = source;
    reading.host = "host";
    reading.now = 1700000000;
    reading.skewSeconds = skew;
    reading.printable = [](const std::string& text) {
        std::string printable = text;
        std::replace_if(
            printable.begin(), printable.end(), [](char letter) { return letter < ' '; }, '?');
        return printable;
    };
    return Catalog().Add(disk, blocks, reading);
}

std::vector<std::string> CatalogFixture::Find(const catalog::Question& question) {
    std::vector<std::string> lines;
    for (const catalog::Found& found : Catalog().Find(question)) {
        std::ostringstream line;
        line << found.vehicleNumber << " " << found.disk << " " << found.start << "-" << found.end << " "
             << std::hex << found.channels.bits;
        if (found.events != 0) {
            line << " " << found.events;
        }
        lines.push_back(line.str());
    }
    return lines;
}

std::vector<std::string> CatalogFixture::Find(int64_t from, int64_t to) {
    catalog::Question question;
    question.from = from;
    question.to = to;
    return Find(question);
}

} // namespace test_support
