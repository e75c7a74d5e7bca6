// Lists of ranges: what is read of them, and what is refused, by its row.

#include <gtest/gtest.h>

#include "cli/failure.h"
#include "cli/range_list.h"

namespace {

using namespace diskaccess;

std::vector<ListedRange> Read(const std::string& bytes) {
    return ParseRangeList("l.csv", bytes);
}

std::string Refusal(const std::string& bytes) {
    try {
        Read(bytes);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Code(), kFailed);
        return failure.what();
    }
    return "none";
}

bool IsRefused(const std::string& bytes, const std::string& beginning) {
    const std::string refusal = Refusal(bytes);
    EXPECT_EQ(refusal.substr(0, beginning.size()), beginning);
    EXPECT_EQ(refusal.find('\n'), std::string::npos);
    return refusal.rfind(beginning, 0) == 0;
}

TEST(RangeList, HasItsColumnsInAnyOrder) {
    const auto ranges = Read("note,to,file,channels,case,from\na note,14:31,a.mkv,3,A 7,14:30\n,2,,,,1");
    ASSERT_EQ(ranges.size(), 2u);
    EXPECT_EQ(ranges[0].row, 2u);
    EXPECT_EQ(ranges[0].from, "14:30");
    EXPECT_EQ(ranges[0].to, "14:31");
    EXPECT_EQ(ranges[0].channels, "3");
    EXPECT_EQ(ranges[0].file, "a.mkv");
    EXPECT_EQ(ranges[0].caseName, "A 7");
    EXPECT_EQ(ranges[0].note, "a note");
    EXPECT_EQ(ranges[1].row, 3u);
    EXPECT_EQ(ranges[1].from, "1");
    EXPECT_EQ(ranges[1].to, "2");
    EXPECT_EQ(ranges[1].note, "");
}

TEST(RangeList, TakesQuotationMarks) {
    const auto ranges =
        Read("\"from\",to,channels,note\n1,2,\"0,2-4\",\"she said \"\"stop\"\"\"\n1,\"2\",\"\",\"\"\"\"");
    ASSERT_EQ(ranges.size(), 2u);
    EXPECT_EQ(ranges[0].channels, "0,2-4");
    EXPECT_EQ(ranges[0].note, "she said \"stop\"");
    EXPECT_EQ(ranges[1].to, "2");
    EXPECT_EQ(ranges[1].channels, "");
    EXPECT_EQ(ranges[1].note, "\"");
}

TEST(RangeList, TakesWhatSpreadsheetsWrite) {
    const auto ranges = Read("\xEF\xBB\xBF"
                             "from,to,note\r\n\r\n1,2,T\xC3\xBCr\r\n\n3,4,\r\n\r\n");
    ASSERT_EQ(ranges.size(), 2u);
    EXPECT_EQ(ranges[0].row, 3u); // empty lines count
    EXPECT_EQ(ranges[0].note, "T\xC3\xBCr");
    EXPECT_EQ(ranges[1].row, 5u);
    EXPECT_EQ(ranges[1].note, "");
}

TEST(RangeList, RefusesColumnsByTheirNames) {
    EXPECT_TRUE(IsRefused("from,to,colour\n", "l.csv: row 1: 'colour' is no column; "));
    EXPECT_TRUE(
        IsRefused("from\\to\n", "l.csv: row 1: 'from\\to' is no column; ")); // escaped when it is shown
    EXPECT_TRUE(IsRefused("From,to\n", "l.csv: row 1: 'From' is no column; "));
    EXPECT_TRUE(IsRefused("\nfrom;to\n", "l.csv: row 2: 'from;to' is no column; "));
    EXPECT_TRUE(IsRefused("from,to,\n", "l.csv: row 1: '' is no column; "));
    EXPECT_TRUE(IsRefused("from,to,from\n", "l.csv: row 1: names the column 'from' twice"));
    EXPECT_TRUE(IsRefused("from,note\n", "l.csv: row 1: names no column 'to'"));
    EXPECT_TRUE(IsRefused("to\n", "l.csv: row 1: names no column 'from'"));
}

TEST(RangeList, RefusesWhatHoldsNoRange) {
    EXPECT_TRUE(IsRefused("", "l.csv: is empty; "));
    EXPECT_TRUE(IsRefused("\xEF\xBB\xBF\r\n\n", "l.csv: is empty; "));
    EXPECT_TRUE(IsRefused("from,to\r\n", "l.csv: names columns, and no range; "));
    EXPECT_TRUE(IsRefused("from,to\n1,2\n,2\n", "l.csv: row 3: says no 'from'"));
    EXPECT_TRUE(IsRefused("from,to\n1,\n", "l.csv: row 2: says no 'to'"));
}

TEST(RangeList, RefusesRowsOfOtherLengths) {
    EXPECT_TRUE(IsRefused("from,to\n1\n", "l.csv: row 2: has 1 cell where the first row names 2 columns"));
    EXPECT_TRUE(IsRefused("from,to,channels\n1,2,0,2\n", "l.csv: row 2: has 4 cells"));
}

TEST(RangeList, RefusesQuotationMarksThatMeanNothing) {
    EXPECT_TRUE(IsRefused("from,to\n\"1,2\n", "l.csv: row 2: has a cell whose quotation mark is not closed"));
    EXPECT_TRUE(IsRefused("from,to\n1,\"\n", "l.csv: row 2: has a cell whose quotation mark is not closed"));
    EXPECT_TRUE(IsRefused("from,to\n1,\"2\"\"\n", "l.csv: row 2: has a cell whose quotation mark is not"));
    EXPECT_TRUE(IsRefused("from,to\n\"1\"x,2\n", "l.csv: row 2: has text after a closing quotation mark"));
    EXPECT_TRUE(IsRefused("from,to\n1\",2\n", "l.csv: row 2: has a quotation mark in a cell"));
}

TEST(RangeList, RefusesWhatIsNoText) {
    EXPECT_TRUE(IsRefused(std::string("from,to\n1,2\0\n", 13), "l.csv: row 2: holds a zero byte"));
    EXPECT_TRUE(IsRefused("from,to\r1,2\r", "l.csv: row 1: holds a zero byte or another control"));
    EXPECT_TRUE(IsRefused("from,to\n1,2\x1b\n", "l.csv: row 2: holds a zero byte or another control"));
    EXPECT_TRUE(IsRefused("from,to\n1,\xFC\n", "l.csv: row 2: is not UTF-8"));
    EXPECT_TRUE(IsRefused("\xFF\xFE", "l.csv: row 1: is not UTF-8"));
}

TEST(RangeList, RefusesLongRows) {
    const std::string beginning = "from,to,note\n1,2,";
    EXPECT_EQ(Read(beginning + std::string(65536 - 4, 'x')).size(), 1u);
    EXPECT_TRUE(IsRefused(beginning + std::string(65536 - 3, 'x'), "l.csv: row 2: is longer than 64 KiB"));
}

TEST(RangeList, RefusesMoreRowsThanAnybodyTypes) {
    std::string list = "from,to\n";
    for (size_t row = 0; row < 100000; ++row) {
        list += "1,2\n";
    }
    EXPECT_EQ(Read(list).size(), 100000u);
    EXPECT_TRUE(IsRefused(list + "1,2\n", "l.csv: row 100002: is one more than the 100000"));
}

TEST(RangeList, IsAFile) {
    EXPECT_THROW(ReadRangeList("/nowhere/list.csv"), Failure);
    EXPECT_THROW(ReadRangeList("/"), Failure);
}

} // namespace
