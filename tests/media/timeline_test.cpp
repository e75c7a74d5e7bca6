// Where frames lie in a container's time.

#include "timeline.h"

#include <gtest/gtest.h>

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
    const int64_t back = kStart + 100 * kSecond - 3600 * kSecond;
    EXPECT_EQ(timeline.PlaceOf(video, back), 100 * kSecond + 60000 + 50000);
    EXPECT_EQ(timeline.PlaceOf(video, back + 50000), 100 * kSecond + 60000 + 100000);
    EXPECT_EQ(timeline.PlaceOf(audio, back + 10000), 100 * kSecond + 60000 + 60000);
}

TEST(Timelines, AssumeAUsualPaceWhereNoneIsKnown) {
    Timeline timeline(kStart);
    const size_t track = timeline.AddTrack();
    timeline.PlaceOf(track, kStart + 10 * kSecond);
    EXPECT_EQ(timeline.PlaceOf(track, kStart), 10 * kSecond + 40000);
}

} // namespace
