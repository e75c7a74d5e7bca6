// Spans of a disk, from one reading of it to the next.

#include "spans.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using catalog::BlockTimes;
using catalog::Span;
using catalog::Spans;

Span Make(uint32_t sequence, int64_t start, int64_t end, uint32_t channel = 0, int64_t vehicle = 1) {
    Span span;
    span.vehicle = vehicle;
    span.channel = channel;
    span.start = start;
    span.end = end;
    span.firstSequence = span.lastSequence = sequence;
    return span;
}

/// "CHANNEL START-END FIRST..LAST"
std::vector<std::string> Lines(const Spans& spans) {
    std::vector<std::string> lines;
    for (const Span& span : spans.All()) {
        lines.push_back(std::to_string(span.channel) + " " + std::to_string(span.start) + "-" +
                        std::to_string(span.end) + " " + std::to_string(span.firstSequence) + ".." +
                        std::to_string(span.lastSequence));
    }
    return lines;
}

using Texts = std::vector<std::string>;

TEST(Spans, GoOnOverBlocksAndShortPauses) {
    Spans spans;
    spans.Add(Make(1, 100, 200));
    spans.Add(Make(2, 215, 300)); // 15 seconds later
    spans.Add(Make(3, 316, 400)); // 16 seconds later
    EXPECT_EQ(Lines(spans), (Texts{"0 100-300 1..2", "0 316-400 3..3"}));
}

TEST(Spans, EndWithTheirChannelVehicleAndRunOfBlocks) {
    Spans spans;
    spans.Add(Make(1, 100, 200));
    spans.Add(Make(1, 100, 200, 5));
    spans.Add(Make(2, 201, 300, 0, 2));
    spans.Add(Make(4, 201, 300, 5)); // block 3 is lost
    EXPECT_EQ(Lines(spans), (Texts{"0 100-200 1..1", "5 100-200 1..1", "0 201-300 2..2", "5 201-300 4..4"}));
}

TEST(Spans, EndWhereTheClockWasSetBack) {
    Spans spans;
    spans.Add(Make(1, 1000, 1100));
    spans.Add(Make(2, 500, 600));
    EXPECT_EQ(Lines(spans), (Texts{"0 1000-1100 1..1", "0 500-600 2..2"}));
}

TEST(Spans, GrowNoLongerThanAnHour) {
    Spans spans;
    spans.Add(Make(1, 0, 1800));
    spans.Add(Make(2, 1801, 3599));
    spans.Add(Make(3, 3600, 5000));
    spans.Add(Make(4, 10000, 20000)); // by itself
    EXPECT_EQ(Lines(spans), (Texts{"0 0-3599 1..2", "0 3600-5000 3..3", "0 10000-20000 4..4"}));
    EXPECT_EQ(spans.Longest(), 10000);
}

Span Known(int64_t row, uint32_t first, uint32_t last, int64_t start, int64_t end) {
    Span span = Make(first, start, end);
    span.row = row;
    span.lastSequence = last;
    return span;
}

TEST(Spans, EndWhereTheBlocksDoThatAreLeft) {
    Spans spans({Known(7, 1, 5, 100, 599)});
    spans.Keep({{2, {200, 299}}, {3, {300, 399}}, {5, {500, 599}}});
    EXPECT_EQ(Lines(spans), (Texts{"0 200-399 2..3", "0 500-599 5..5"}));
    EXPECT_EQ(spans.All()[0].row, 7);
    EXPECT_TRUE(spans.All()[0].changed);
    EXPECT_FALSE(spans.All()[1].row);
    EXPECT_TRUE(spans.Gone().empty());
}

TEST(Spans, StayAsTheyAreWhenAllTheirBlocksDo) {
    Spans spans({Known(7, 1, 2, 105, 295)});
    spans.Keep({{1, {100, 199}}, {2, {200, 299}}});
    EXPECT_EQ(Lines(spans), Texts{"0 105-295 1..2"});
    EXPECT_FALSE(spans.All()[0].changed);
}

TEST(Spans, GoWithTheirBlocks) {
    Spans spans({Known(7, 1, 2, 105, 295), Known(8, 3, 3, 300, 400)});
    spans.Keep({{3, {300, 400}}});
    EXPECT_EQ(Lines(spans), Texts{"0 300-400 3..3"});
    EXPECT_EQ(spans.Gone(), std::vector<int64_t>{7});
}

TEST(Spans, GoOnWithWhatWasKnown) {
    Spans spans({Known(7, 1, 2, 105, 295)});
    spans.Keep({{1, {100, 199}}, {2, {200, 299}}});
    spans.Add(Make(3, 300, 400));
    EXPECT_EQ(Lines(spans), Texts{"0 105-400 1..3"});
    EXPECT_EQ(spans.All()[0].row, 7);
    EXPECT_TRUE(spans.All()[0].changed);
}

TEST(Spans, NeverEndBeforeTheyStart) {
    Spans spans({Known(7, 1, 2, 1000, 1100)});
    spans.Keep({{1, {100, 200}}}); // a block whose head and tail tell other times than its index
    EXPECT_EQ(Lines(spans), Texts{"0 1000-1000 1..1"});
}

} // namespace
