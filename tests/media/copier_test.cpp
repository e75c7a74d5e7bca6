// Frames on their way to tracks.

#include "copier.h"

#include <gtest/gtest.h>

#include "media/cameras.h"

namespace {

using namespace media;
using namespace media_test;

/// Takes video of two channels at most, and frames of 1000 bytes at most.
class SmallSink : public Sink {
public:
    std::optional<LeftOutReason> Refusal(const Track& track,
                                         const recordings::Frame& /*frame*/) const override {
        return track.isVideo && m_tracks < 2 ? std::nullopt : std::optional(LeftOutReason::NotForContainer);
    }
    std::optional<LeftOutReason> Add(Track& track, const recordings::Frame& first) override {
        const auto refusal = Refusal(track, first);
        if (!refusal) {
            track.output = m_tracks++;
        }
        return refusal;
    }
    bool Continues(size_t /*index*/, const Track& now, const recordings::Frame& /*frame*/) const override {
        return now.video == codec;
    }
    uint32_t LargestFrame() const override { return 1000; }
    void Write(size_t index, const recordings::Frame& frame) override {
        written.emplace_back(index, frame.channel);
    }
    void Finish() override {}
    const std::vector<ClockSegment>& Segments() const override { return m_segments; }

    VideoCodec codec = VideoCodec::H264; ///< of the tracks it was given
    std::vector<std::pair<size_t, uint32_t>> written;

private:
    size_t m_tracks = 0;
    std::vector<ClockSegment> m_segments;
};

TEST(Copiers, SendFramesToTheirTracksAndCountThem) {
    SmallSink sink;
    Copier copier(sink, Container::Mp4);
    EXPECT_FALSE(copier.Knows({5, false}));
    EXPECT_TRUE(copier.AddTrack(VideoTrack(5), KeyFrame(5, 0, 10).Get()));
    EXPECT_FALSE(copier.AddTrack(AudioTrack(5), Sound(5, 0, 10).Get()));
    EXPECT_TRUE(copier.AddTrack(VideoTrack(2), KeyFrame(2, 0, 10).Get()));
    EXPECT_TRUE(copier.Knows({5, false}));
    EXPECT_TRUE(copier.Knows({5, true}));
    copier.Copy(KeyFrame(5, 300, 10).Get());
    copier.Copy(Picture(2, 500, 10).Get());
    copier.Copy(Sound(5, 400, 10).Get());
    copier.Copy(Picture(5, 100, 20).Get()); // times may go back
    copier.Copy(Sound(5, 440, 10).Get());
    EXPECT_EQ(sink.written, (std::vector<std::pair<size_t, uint32_t>>{{0, 5}, {1, 2}, {0, 5}}));
    ASSERT_EQ(copier.Tracks().size(), 2u);
    const Track& track = copier.Tracks()[0];
    EXPECT_EQ(track.frames, 2u);
    EXPECT_EQ(track.keyFrames, 1u);
    EXPECT_EQ(track.bytes, kH264Sets.size() + 3 + 10 + 4 + 20);
    EXPECT_EQ(track.first, 100);
    EXPECT_EQ(track.last, 300);
    EXPECT_EQ(copier.Tracks()[1].output, 1u);
    ASSERT_EQ(copier.Refused().size(), 1u);
    EXPECT_EQ(copier.Refused()[0].frames, 2u);
    EXPECT_FALSE(copier.Refused()[0].isVideo);
    EXPECT_EQ(copier.Refused()[0].description, "mp4 cannot hold pcm_alaw");
}

TEST(Copiers, SendAnotherEncodingToItsOwnPlace) {
    SmallSink first;
    SmallSink second;
    second.codec = VideoCodec::H265;
    Copier copier(first, Container::Mp4);
    copier.AddTrack(VideoTrack(5), KeyFrame(5, 0, 10).Get());
    copier.Copy(KeyFrame(5, 0, 10).Get());
    const Track other = VideoTrack(5, VideoCodec::H265);
    EXPECT_TRUE(copier.Follow(VideoTrack(5), KeyFrame(5, 40, 10).Get()));
    EXPECT_FALSE(copier.Follow(other, KeyFrame(5, 40, 10).Get()));
    EXPECT_TRUE(copier.AddTrack(other, KeyFrame(5, 40, 10).Get(), second));
    copier.Copy(KeyFrame(5, 40, 10).Get());
    EXPECT_EQ(first.written.size(), 1u);
    EXPECT_EQ(second.written.size(), 1u);
    // Where the first encoding comes back, it is another track: one follows the other.
    EXPECT_FALSE(copier.Follow(VideoTrack(5), KeyFrame(5, 80, 10).Get()));
    EXPECT_TRUE(copier.IsNew(VideoTrack(5), KeyFrame(5, 80, 10).Get()));
    SmallSink third;
    copier.PrepareTrack(VideoTrack(5), KeyFrame(5, 80, 10).Get(), third);
    copier.Copy(Picture(5, 79, 10).Get());
    EXPECT_EQ(second.written.size(), 2u);
    EXPECT_FALSE(copier.IsNew(VideoTrack(5), KeyFrame(5, 80, 10).Get()));
    EXPECT_TRUE(copier.Follow(VideoTrack(5), KeyFrame(5, 80, 10).Get()));
    copier.Copy(KeyFrame(5, 80, 10).Get());
    EXPECT_EQ(third.written.size(), 1u);
    ASSERT_EQ(copier.Tracks().size(), 3u);
    EXPECT_EQ(copier.Tracks()[1].frames, 2u);
    EXPECT_TRUE(copier.AllCollisions().empty());
}

TEST(Copiers, StayWithWhatIsLeftOut) {
    SmallSink sink;
    Copier copier(sink, Container::Mp4);
    copier.AddTrack(AudioTrack(5), Sound(5, 0, 10).Get());
    EXPECT_TRUE(copier.Follow(AudioTrack(5), Sound(5, 40, 10).Get()));
    EXPECT_FALSE(copier.Follow(AudioTrack(5, "aac"), Sound(5, 40, 10).Get()));
    EXPECT_TRUE(copier.IsNew(AudioTrack(5, "aac"), Sound(5, 40, 10).Get()));
    EXPECT_FALSE(copier.IsNew(AudioTrack(5), Sound(5, 40, 10).Get()));
    EXPECT_TRUE(copier.IsNew(AudioTrack(6), Sound(6, 40, 10).Get()));
}

TEST(Copiers, CountTimesThatCollide) {
    SmallSink sink;
    Copier copier(sink, Container::Mp4);
    copier.AddTrack(VideoTrack(5), KeyFrame(5, 0, 10).Get());
    for (const int64_t time : {100000, 140000, 140000, 139999, 180000}) {
        copier.Copy(Picture(5, time, 10).Get());
    }
    copier.Copy(Picture(5, 180000 - 1000001, 10).Get()); // the clock was set
    const auto collisions = copier.AllCollisions();
    ASSERT_EQ(collisions.size(), 1u);
    EXPECT_EQ(collisions[0].channel, 5u);
    EXPECT_EQ(collisions[0].count, 2u);
    EXPECT_EQ(collisions[0].time, 140000);
}

TEST(Copiers, LeaveOutWhatIsTooLarge) {
    SmallSink sink;
    Copier copier(sink, Container::Matroska);
    copier.AddTrack(VideoTrack(1), KeyFrame(1, 0, 10).Get());
    copier.Copy(Picture(1, 0, 996).Get()); // 1000 bytes with its start code
    copier.Copy(Picture(1, 1, 997).Get());
    copier.Copy(Picture(1, 2, 5000).Get());
    EXPECT_EQ(sink.written.size(), 1u);
    EXPECT_EQ(copier.Tracks()[0].frames, 1u);
    ASSERT_EQ(copier.Refused().size(), 1u);
    EXPECT_EQ(copier.Refused()[0].reason, LeftOutReason::FrameTooLarge);
    EXPECT_EQ(copier.Refused()[0].frames, 2u);
}

} // namespace
