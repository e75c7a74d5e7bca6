// What is known of frames by themselves: their tracks, their pace, what a payload is, and how problems are named.

#include <gtest/gtest.h>

#include "block_problems.h"
#include "found_frames.h"
#include "picture_kind.h"
#include "tracks.h"

namespace test_support {

namespace {

using namespace recordings;

FoundFrame Found(uint32_t channel, uint32_t type, int64_t time, uint32_t offset = 0, uint32_t size = 0) {
    FoundFrame frame;
    frame.channel = channel;
    frame.type = type;
    frame.time = time;
    frame.offset = offset;
    frame.size = size;
    return frame;
}

PictureKind Kind(const std::vector<uint8_t>& bytes) {
    return PictureKindOf(bytes.data(), bytes.size());
}

TEST(PictureKinds, AreToldByTheFirstUnitThatTells) {
    EXPECT_EQ(Kind({0, 0, 0, 1, 0x67, 0x42, 0, 0x1E}), PictureKind::Key);
    EXPECT_EQ(Kind({0, 0, 1, 0x65, 0x88, 0x84, 0}), PictureKind::Key);
    EXPECT_EQ(Kind({0, 0, 0, 1, 0x41, 0x9A, 0, 0}), PictureKind::Other);
    EXPECT_EQ(Kind({0, 0, 0, 1, 0x09, 0x30, 0, 0, 0, 1, 0x61, 1, 2}),
              PictureKind::Other); // after a delimiter
    EXPECT_EQ(Kind({0, 0, 0, 1, 0x06, 0x01, 0x01, 0, 0, 1, 0x65, 1, 2}), PictureKind::Key); // after a message
    EXPECT_EQ(Kind({0, 0, 0, 1, 0x40, 0x01, 0x0C, 1}), PictureKind::Key); // H.265: parameter sets
    EXPECT_EQ(Kind({0, 0, 0, 1, 0x26, 0x01, 0xAF, 1}), PictureKind::Key); // and a picture by itself
    EXPECT_EQ(Kind({0, 0, 0, 1, 0x02, 0x01, 0xD0, 1}), PictureKind::Other);
    EXPECT_EQ(Kind({0x67, 0, 0, 0, 1, 0x67, 1, 2}), PictureKind::Unknown); // does not begin with a unit
    EXPECT_EQ(Kind({0xFF, 0xD8, 0xFF, 0xE0, 0, 0}), PictureKind::Unknown);
    EXPECT_EQ(Kind({0, 0, 1}), PictureKind::Unknown);
    EXPECT_EQ(Kind({}), PictureKind::Unknown);
}

TEST(TimesOfAnyValue, NeverOverflow) {
    EXPECT_EQ(TimeBetween(10, 25), 15);
    EXPECT_EQ(TimeBetween(INT64_MIN, 5), INT64_MAX);
    EXPECT_EQ(TimeBetween(5, INT64_MIN), INT64_MIN);
    EXPECT_EQ(TimeApart(25, 10), 15);
    EXPECT_EQ(TimeApart(INT64_MAX, INT64_MIN), INT64_MAX);
    EXPECT_EQ(TimeAfter(10, -25), -15);
    EXPECT_EQ(TimeAfter(INT64_MAX, 1), INT64_MAX);
    EXPECT_EQ(TimeAfter(INT64_MIN, -1), INT64_MIN);
}

TEST(TracksOfABlock, HaveAPace) {
    std::vector<FoundFrame> frames;
    for (int64_t i = 0; i < 6; ++i) {
        frames.push_back(Found(3, i == 0 ? 1 : 0, i * 100)); // entries 0, 2, 4, ...
        frames.push_back(Found(3, 2, i * i * 10));
    }
    frames.push_back(Found(3, 4, 7));
    const Tracks tracks(frames);
    const Track& video = tracks.All()[6];
    EXPECT_EQ(video.channel, 3u);
    EXPECT_FALSE(video.audio);
    EXPECT_EQ(video.frames, (std::vector<size_t>{0, 2, 4, 6, 8, 10}));
    EXPECT_EQ(video.pace, 100);
    EXPECT_TRUE(video.regular);
    const Track& audio = tracks.All()[7];
    EXPECT_TRUE(audio.audio);
    EXPECT_EQ(audio.frames.size(), 6u);
    EXPECT_EQ(audio.pace, 50); // steps of 10, 30, 50, 70, 90
    EXPECT_FALSE(audio.regular);
}

TEST(TracksOfABlock, HaveNoPaceWithTooFewFrames) {
    const std::vector<FoundFrame> frames = {Found(0, 1, 0), Found(0, 0, 100)};
    const Tracks tracks(frames);
    EXPECT_EQ(tracks.All()[0].pace, 0);
    EXPECT_FALSE(tracks.All()[0].regular);
}

TEST(TracksOfABlock, KnowTheirNeighboursOnTheDisk) {
    const std::vector<FoundFrame> frames = {Found(0, 1, 0), Found(1, 1, 0), Found(1, 0, 0),
                                            Found(1, 7, 0), Found(1, 0, 0), Found(0, 2, 0)};
    const Tracks tracks(frames);
    EXPECT_EQ(tracks.OtherBefore(0), std::nullopt);
    EXPECT_EQ(tracks.OtherAfter(0), 1u);
    EXPECT_EQ(tracks.OtherBefore(2), 0u);
    EXPECT_EQ(tracks.OtherAfter(2), 5u);
    EXPECT_EQ(tracks.OtherBefore(3), 2u); // no media itself
    EXPECT_EQ(tracks.OtherAfter(3), 4u);
    EXPECT_EQ(tracks.OtherBefore(4), 0u);
    EXPECT_EQ(tracks.OtherBefore(5), 4u);
    EXPECT_EQ(tracks.OtherAfter(5), std::nullopt);
}

TEST(ProblemsOfABlock, AreCompletedAndSorted) {
    FoundFrames found;
    found.frames = {Found(0, 1, 10, 0, 76), Found(0, 4, 99, 100, 76), Found(0, 0, 30, 400, 76),
                    Found(0, 0, 40, 500, 76)};
    found.damaged = {{200, 400}};
    found.NoteDamaged(found.frames[3]);
    found.NoteDamaged(found.frames[3]);
    CompleteProblems(found, 9, {{50, 60}, {450, 460}, {5000, 6000}});
    ASSERT_EQ(found.problems.size(), 4u); // what lies after the last frame is nobody's loss
    EXPECT_EQ(found.problems[0].kind, ProblemKind::BytesUnreadable);
    EXPECT_EQ(found.problems[0].before, 10);
    EXPECT_EQ(found.problems[0].after, 30); // events' times say nothing
    EXPECT_EQ(found.problems[1].kind, ProblemKind::BytesDamaged);
    EXPECT_EQ(found.problems[1].offset, 200u);
    EXPECT_EQ(found.problems[1].bytes, 200u);
    EXPECT_EQ(found.problems[1].block, 9u);
    EXPECT_EQ(found.problems[2].offset, 450u);
    EXPECT_EQ(found.problems[3].kind, ProblemKind::FrameDamaged);
    EXPECT_EQ(found.problems[3].bytes, 100u);
    EXPECT_EQ(found.problems[3].before, 30);
    EXPECT_EQ(found.problems[3].after, std::nullopt);
}

TEST(ProblemsOfABlock, AreCountedTogetherWhenThereAreTooMany) {
    FoundFrames found;
    for (uint32_t i = 0; i < 3000; ++i) {
        found.damaged.push_back({i * 100, i * 100 + 50});
    }
    CompleteProblems(found, 1, {});
    ASSERT_EQ(found.problems.size(), 1000u);
    EXPECT_EQ(found.problems[998].count, 0u);
    EXPECT_EQ(found.problems[999].count, 2001u);
    EXPECT_EQ(found.problems[999].bytes, 2001u * 50);
}

} // namespace

} // namespace test_support
