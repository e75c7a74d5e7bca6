// When a container's text track says what.

#include "clock_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using media::ClockText;

constexpr int64_t kSecond = 1000000;
constexpr int64_t kMilli = 1000;

/// Says the second by its number.
ClockText Numbers() {
    return ClockText([](int64_t time) { return std::to_string(time / kSecond); });
}

/// The cues that frames begin: "text place-end", in milliseconds.
class Cues {
public:
    void Frame(int64_t time, int64_t place, size_t segment = 1) {
        if (const auto cue = m_text.Next(time * kMilli, place * kMilli, segment)) {
            all.push_back(cue->text + " " + std::to_string(cue->place / kMilli) + "-" +
                          std::to_string(cue->end / kMilli));
        }
    }

    std::vector<std::string> all;

private:
    ClockText m_text = Numbers();
};
using Lines = std::vector<std::string>;

TEST(ClockTexts, SayEachSecondOnceUntilItIsOver) {
    Cues cues;
    for (int64_t time = 5000; time < 7000; time += 200) {
        cues.Frame(time, time - 5000);
    }
    EXPECT_EQ(cues.all, (Lines{"5 0-1000", "6 1000-2000"}));
}

TEST(ClockTexts, ChangeWithTheSecondNotWithTheFile) {
    Cues cues;
    cues.Frame(5700, 0);
    cues.Frame(6100, 400);
    cues.Frame(6900, 1200);
    EXPECT_EQ(cues.all, (Lines{"5 0-300", "6 400-1300"}));
}

TEST(ClockTexts, SayNothingInGaps) {
    Cues cues;
    cues.Frame(5900, 900);
    cues.Frame(100500, 95500);
    EXPECT_EQ(cues.all, (Lines{"5 900-1000", "100 95500-96000"}));
}

TEST(ClockTexts, DoNotTurnBackForCamerasThatAreBehind) {
    Cues cues;
    cues.Frame(6010, 1010);
    cues.Frame(5990, 990);
    cues.Frame(6050, 1050);
    EXPECT_EQ(cues.all, (Lines{"6 1010-2000"}));
}

TEST(ClockTexts, TurnBackWithTheClock) {
    Cues cues;
    cues.Frame(9000, 4000);
    cues.Frame(3500, 4040, 2);
    cues.Frame(4000, 4540, 2);
    EXPECT_EQ(cues.all, (Lines{"9 4000-5000", "3 4040-4540", "4 4540-5540"}));
}

TEST(ClockTexts, TakeTimesBeforeTheEpoch) {
    EXPECT_EQ(ClockText::EndOf(-200 * kMilli, 0), 200 * kMilli);
    EXPECT_EQ(ClockText::EndOf(-1000 * kMilli, 0), 1000 * kMilli);
}

} // namespace
