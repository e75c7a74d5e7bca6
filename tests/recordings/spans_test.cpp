// Spans of recorded time, merged.

#include <gtest/gtest.h>

#include <vector>

#include "recordings/spans.h"

namespace recordings {

bool operator==(const Span& a, const Span& b) {
    return a.start == b.start && a.end == b.end;
}
void PrintTo(const Span& span, std::ostream* out) {
    *out << span.start << "-" << span.end;
}

} // namespace recordings

namespace {

using recordings::Span;
using recordings::SpanList;
using Spans = std::vector<Span>;

SpanList ListOf(const Spans& spans) {
    SpanList list;
    for (const Span& span : spans) {
        list.Add(span);
    }
    return list;
}

Spans All(const SpanList& list) {
    EXPECT_EQ(list.Within({}, 0), list.All());
    return list.All();
}

TEST(SpanList, JoinsWhatTouches) {
    EXPECT_EQ(All(ListOf({{10, 19}, {20, 29}})), (Spans{{10, 29}}));
    EXPECT_EQ(All(ListOf({{20, 29}, {10, 19}})), (Spans{{10, 29}}));
    EXPECT_EQ(All(ListOf({{10, 19}, {21, 29}})), (Spans{{10, 19}, {21, 29}}));
    EXPECT_EQ(All(ListOf({{10, 19}, {30, 39}, {15, 30}})), (Spans{{10, 39}}));
    EXPECT_EQ(All(ListOf({{10, 40}, {20, 30}})), (Spans{{10, 40}}));
}

TEST(SpanList, KeepsOrderWhateverTheOrderOfAdding) {
    EXPECT_EQ(All(ListOf({{50, 59}, {10, 19}, {30, 39}})), (Spans{{10, 19}, {30, 39}, {50, 59}}));
}

TEST(SpanList, HoldsTheFirstAndTheLastSecondThereAre) {
    EXPECT_EQ(All(ListOf({{0, 0}, {0xFFFFFFFF, 0xFFFFFFFF}})), (Spans{{0, 0}, {0xFFFFFFFF, 0xFFFFFFFF}}));
    EXPECT_EQ(All(ListOf({{0, 0xFFFFFFFF}, {5, 6}})), (Spans{{0, 0xFFFFFFFF}}));
}

TEST(SpanList, TakesASpanThatEndsBeforeItBeginsForASecond) {
    EXPECT_EQ(All(ListOf({{100, 50}})), (Spans{{100, 100}}));
}

TEST(SpanList, GivesWhatMeetsAStretch) {
    const SpanList list = ListOf({{10, 19}, {30, 39}, {50, 59}});
    EXPECT_EQ(list.Within({19, 30}, 0), (Spans{{10, 19}, {30, 39}}));
    EXPECT_EQ(list.Within({20, 29}, 0), Spans());
    EXPECT_EQ(list.Within({60, 70}, 0), Spans());
}

TEST(SpanList, JoinsWhatIsTooFineToBeSeen) {
    const SpanList list = ListOf({{10, 19}, {30, 39}, {60, 69}});
    EXPECT_EQ(list.Within({}, 10), (Spans{{10, 39}, {60, 69}})); // 20 to 29: ten seconds
    EXPECT_EQ(list.Within({}, 9), (Spans{{10, 19}, {30, 39}, {60, 69}}));
    EXPECT_EQ(ListOf({{0, 0}, {0xFFFFFFFF, 0xFFFFFFFF}}).Within({}, 0xFFFFFFFF), (Spans{{0, 0xFFFFFFFF}}));
}

} // namespace
