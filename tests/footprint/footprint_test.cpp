// What the library may take of a recorder's memory.

#include "footprint/footprint.h"

#include <gtest/gtest.h>

namespace test_support {
namespace {

constexpr size_t kKiB = 1024;

class FootprintLimits : public ::testing::Test {
protected:
    /// Measured once for all tests.
    static void SetUpTestSuite() { m_footprint = MeasureFootprint(); }

    static Footprint m_footprint;
};

Footprint FootprintLimits::m_footprint;

TEST_F(FootprintLimits, IdleFacadesAreSmall) {
    EXPECT_LE(m_footprint.searchInit, 3 * kKiB);
    EXPECT_LE(m_footprint.readInit, 1 * kKiB);
}

TEST_F(FootprintLimits, ASearchKeepsTheRingsTablesAndOneIndex) {
    const size_t ring = kFootprintBlocks / 8 + kFootprintBlocks;
    EXPECT_GE(m_footprint.searchKept, m_footprint.searchInit + ring);
    EXPECT_LE(m_footprint.searchKept, m_footprint.searchInit + ring + m_footprint.readerTables + 1 * kKiB);
    EXPECT_LE(m_footprint.searchPeak, m_footprint.searchKept + 1 * kKiB);
}

TEST_F(FootprintLimits, AReaderHoldsItsIndexAndLittleMore) {
    EXPECT_GT(m_footprint.readerTables, 0u);
    EXPECT_GE(m_footprint.nextReader, m_footprint.readerTables);
    EXPECT_LE(m_footprint.reader, m_footprint.readerTables + 8 * kKiB);
    EXPECT_LE(m_footprint.nextReader, m_footprint.readerTables + 8 * kKiB);
}

TEST_F(FootprintLimits, NothingIsLeft) {
    EXPECT_EQ(m_footprint.left, 0u);
}

} // namespace
} // namespace test_support
