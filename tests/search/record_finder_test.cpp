// Finding the records that overlap a time span: each of them, in the list's order, however many there are.

#include "search/record_finder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "search_records.h"

namespace {

using disk_access::RecordFinder;

/// Records of ten seconds, one every hundred: number n is from n * 100 to n * 100 + 10. The first is number 1.
class RecordFinding : public ::testing::TestWithParam<uint32_t> {
protected:
    RecordFinding() {
        for (uint32_t number = 1; number <= GetParam(); ++number) {
            RecordItem_t record = {};
            record.recId = number;
            record.startTime = number * 100;
            record.endTime = number * 100 + 10;
            m_records.AddTail(record);
        }
    }

    /// The numbers of the records that overlap a span.
    std::vector<uint32_t> Found(uint32_t start, uint32_t end) const {
        std::vector<uint32_t> numbers;
        RecordFinder(m_records).Find(start, end, [&](const RecordItem_t& record) {
            if (record.startTime <= end && start <= record.endTime) {
                numbers.push_back(record.recId);
            }
        });
        return numbers;
    }

private:
    CCommList<RecordItem_t> m_records;
};

TEST_P(RecordFinding, FindsEachRecordByItself) {
    for (uint32_t number = 1; number <= GetParam(); ++number) {
        EXPECT_EQ(Found(number * 100, number * 100), std::vector<uint32_t>{number});
        EXPECT_EQ(Found(number * 100 + 10, number * 100 + 99), std::vector<uint32_t>{number});
        EXPECT_EQ(Found(number * 100 + 11, number * 100 + 99), std::vector<uint32_t>{});
    }
}

TEST_P(RecordFinding, FindsAllRecordsInTheirOrder) {
    std::vector<uint32_t> all;
    for (uint32_t number = 1; number <= GetParam(); ++number) {
        all.push_back(number);
    }
    EXPECT_EQ(Found(100, GetParam() * 100), all);
    EXPECT_EQ(Found(1, UINT32_MAX), all); // the longest span that an alarm can have: it begins after second 0
}

// 16 records have one stretch: around its end, and where the tree has leaves without records.
INSTANTIATE_TEST_SUITE_P(Records, RecordFinding, ::testing::Values(1u, 15u, 16u, 17u, 32u, 33u, 49u, 65u));

} // namespace
