// Spans of recorded time, merged.

#include <gtest/gtest.h>

#include <vector>

#include "view/survey.h"

namespace diskaccess::view {

bool operator==(const Span& a, const Span& b) {
    return a.first == b.first && a.last == b.last;
}
void PrintTo(const Span& span, std::ostream* out) {
    *out << span.first << "-" << span.last;
}

} // namespace diskaccess::view

namespace {

using diskaccess::view::Span;
using diskaccess::view::SpanList;
using Spans = std::vector<Span>;

SpanList ListOf(const Spans& spans) {
    SpanList list;
    for (const Span& span : spans) {
        list.Add(span);
    }
    return list;
}

Spans All(const SpanList& list) {
    return list.Within({}, 0);
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
    EXPECT_EQ(list.Within({}, 11), (Spans{{10, 39}, {60, 69}})); // 30 - 19 = 11
    EXPECT_EQ(list.Within({}, 10), (Spans{{10, 19}, {30, 39}, {60, 69}}));
}

} // namespace
