// Where frames lie in a container's time.

#include "timeline.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using media::Timeline;

constexpr int64_t kStart = 1795183200000000;
constexpr int64_t kSecond = 1000000;

TEST(Timelines, FollowTheRecordersClock) {
    Timeline timeline(kStart);
    const size_t video = timeline.AddTrack();
    const size_t audio = timeline.AddTrack();
    EXPECT_EQ(timeline.PlaceOf(video, kStart), 0);
    EXPECT_EQ(timeline.PlaceOf(audio, kStart + 20000), 20000);
    EXPECT_EQ(timeline.PlaceOf(video, kStart + 40000), 40000);
    // A gap of an hour stays one.
    EXPECT_EQ(timeline.PlaceOf(video, kStart + 3600 * kSecond), 3600 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(kStart + 7), 7);
}

TEST(Timelines, TellHowLongFramesLast) {
    Timeline timeline(kStart);
    const size_t track = timeline.AddTrack();
    timeline.PlaceOf(track, kStart);
    EXPECT_EQ(timeline.IntervalOf(track), 40000); // not known yet
    timeline.PlaceOf(track, kStart + 100000);
    EXPECT_EQ(timeline.IntervalOf(track), 100000);
    timeline.PlaceOf(track, kStart + 90000);
    EXPECT_EQ(timeline.IntervalOf(track), 100000);
    timeline.PlaceOf(track, kStart + 60 * kSecond); // a gap is no frame's length
    EXPECT_EQ(timeline.IntervalOf(track), kSecond);
}

TEST(Timelines, HaveNothingBeforeTheirStart) {
    Timeline timeline(kStart);
    const size_t track = timeline.AddTrack();
    EXPECT_EQ(timeline.PlaceOf(track, kStart - 500000), 0);
    EXPECT_EQ(timeline.PlaceOf(kStart - 500000), 0);
}

TEST(Timelines, TakeJitterForWhatItIs) {
    Timeline timeline(kStart);
    const size_t track = timeline.AddTrack();
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 5 * kSecond), 5 * kSecond);
    // A second back is the most.
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 4 * kSecond), 4 * kSecond);
}

TEST(Timelines, GoOnWhenTheClockIsSetBack) {
    Timeline timeline(kStart);
    const size_t video = timeline.AddTrack();
    const size_t audio = timeline.AddTrack();
    timeline.PlaceOf(video, kStart + 100 * kSecond);
    timeline.PlaceOf(video, kStart + 100 * kSecond + 50000);
    timeline.PlaceOf(audio, kStart + 100 * kSecond + 60000);
    // An hour back: the video goes on at its own pace after the latest frame of all, the audio in step with it.
    const int64_t earlier = kStart + 100 * kSecond - 3600 * kSecond;
    EXPECT_EQ(timeline.PlaceOf(video, earlier), 100 * kSecond + 60000 + 50000);
    EXPECT_EQ(timeline.PlaceOf(video, earlier + 50000), 100 * kSecond + 60000 + 100000);
    EXPECT_EQ(timeline.PlaceOf(audio, earlier + 10000), 100 * kSecond + 60000 + 60000);
}

/// The places and times of segments, in seconds after the start.
std::vector<std::pair<int64_t, int64_t>> SecondsOf(const Timeline& timeline) {
    std::vector<std::pair<int64_t, int64_t>> seconds;
    for (const media::ClockSegment& segment : timeline.Segments()) {
        seconds.emplace_back(segment.place / kSecond, (segment.time - kStart) / kSecond);
    }
    return seconds;
}
using Seconds = std::vector<std::pair<int64_t, int64_t>>;

TEST(Timelines, AreRightAgainWhenTheClockIs) {
    Timeline timeline(kStart);
    const size_t video = timeline.AddTrack();
    const size_t audio = timeline.AddTrack();
    const auto record = [&](int64_t from, int64_t to) {
        for (int64_t second = from; second <= to; ++second) {
            timeline.PlaceOf(video, kStart + second * kSecond);
            timeline.PlaceOf(audio, kStart + second * kSecond + 1000);
        }
    };
    record(0, 7200);
    record(3600, 3899); // five minutes with a clock that is an hour behind
    record(7501, 7510);
    EXPECT_EQ(timeline.PlaceOf(video, kStart + 7511 * kSecond), 7511 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(audio, kStart + 7511 * kSecond), 7511 * kSecond);
    EXPECT_EQ(SecondsOf(timeline), (Seconds{{0, 0}, {7201, 3600}, {7501, 7501}}));
}

TEST(Timelines, KeepGapsWhileTheClockIsBehind) {
    Timeline timeline(kStart);
    const size_t track = timeline.AddTrack();
    timeline.PlaceOf(track, kStart + 7200 * kSecond);
    timeline.PlaceOf(track, kStart + 7201 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 3600 * kSecond), 7202 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 4200 * kSecond), 7802 * kSecond);
    EXPECT_EQ(timeline.Segments().size(), 2u);
    // A step of ten seconds back, and a gap of two.
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 4190 * kSecond), 7803 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 4192 * kSecond), 7805 * kSecond);
    EXPECT_EQ(timeline.Segments().size(), 3u);
}

TEST(Timelines, TakeWhatComesLateWhereItBelongs) {
    Timeline timeline(kStart);
    const size_t video = timeline.AddTrack();
    const size_t audio = timeline.AddTrack();
    timeline.PlaceOf(video, kStart + 7200 * kSecond);
    timeline.PlaceOf(audio, kStart + 7200 * kSecond);
    const int64_t place = timeline.PlaceOf(video, kStart + 3600 * kSecond);
    EXPECT_EQ(place, 7200 * kSecond + 40000);
    // The audio was recorded just before the clock was set.
    EXPECT_EQ(timeline.PlaceOf(audio, kStart + 7200 * kSecond + 20000), 7200 * kSecond + 20000);
    EXPECT_EQ(timeline.PlaceOf(audio, kStart + 3600 * kSecond + 10000), place + 10000);
    EXPECT_EQ(timeline.PlaceOf(video, kStart + 3600 * kSecond + 40000), place + 40000);
    EXPECT_EQ(timeline.Segments().size(), 2u);
}

TEST(Timelines, LeaveOutGapsThatTheContainerCannotShow) {
    Timeline timeline(kStart, 1000 * kSecond);
    const size_t track = timeline.AddTrack();
    timeline.PlaceOf(track, kStart);
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 1000 * kSecond), 1000 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 2001 * kSecond), 1001 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(track, kStart + 2002 * kSecond), 1002 * kSecond);
    EXPECT_EQ(SecondsOf(timeline), (Seconds{{0, 0}, {1001, 2001}}));
}

TEST(Timelines, AssumeAUsualPaceWhereNoneIsKnown) {
    Timeline timeline(kStart);
    const size_t track = timeline.AddTrack();
    timeline.PlaceOf(track, kStart + 10 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(track, kStart), 10 * kSecond + 40000);
}

} // namespace
