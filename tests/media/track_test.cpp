// What streams are told to be.

#include "media/track.h"

#include <gtest/gtest.h>

#include <vector>

#include "media/sink.h"

namespace {

using namespace media;
using Bytes = std::vector<uint8_t>;

VideoCodec Detect(const std::vector<uint8_t>& bytes) {
    return DetectVideo(bytes.data(), bytes.size());
}

TEST(VideoDetection, TellsByParameterSets) {
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x67, 0x42, 0, 0x1E}), VideoCodec::H264);
    EXPECT_EQ(Detect({0, 0, 1, 0x27, 0x42, 0, 0x1E}), VideoCodec::H264); // no reference
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x09, 0x10, 0, 0, 0, 1, 0x67, 1, 2}),
              VideoCodec::H264); // after a delimiter
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x40, 0x01, 0x0C, 1}), VideoCodec::H265);
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x46, 0x01, 0x50, 0, 0, 1, 0x42, 0x01, 1}), VideoCodec::H265);
    EXPECT_EQ(Detect({0, 0, 1, 0x44, 0x01}), VideoCodec::H265);
}

TEST(VideoDetection, TellsNothingWithoutThem) {
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x65, 0x88, 0x84, 0}), VideoCodec::Unknown); // a picture without its sets
    EXPECT_EQ(Detect({0, 0, 1, 0xE7, 0x42, 0}), VideoCodec::Unknown);          // its first bit must be 0
    EXPECT_EQ(Detect({0xFF, 0xD8, 0xFF, 0xE0}), VideoCodec::Unknown);
    EXPECT_EQ(Detect({}), VideoCodec::Unknown);
    EXPECT_EQ(Detect({0, 0, 1}), VideoCodec::Unknown);
    EXPECT_EQ(Detect({0, 0, 1, 0x67}), VideoCodec::Unknown);
}

TEST(SequenceSets, AreTheUnitWithoutTheZerosAfterIt) {
    Bytes frame = {0, 0, 0, 1, 9, 0x10, 0, 0, 0, 1, 0x67, 1, 2, 3, 0, 0, 0, 1, 0x68, 4, 0, 0, 1, 0x65, 5};
    EXPECT_EQ(SequenceSet(frame.data(), frame.size()), (Bytes{0x67, 1, 2, 3}));
    frame = {0, 0, 1, 0x40, 1, 7, 0, 0, 1, 0x42, 1, 8, 9};
    EXPECT_EQ(SequenceSet(frame.data(), frame.size()), (Bytes{0x42, 1, 8, 9}));
    frame = {0, 0, 1, 0x65, 5, 6, 7};
    EXPECT_EQ(SequenceSet(frame.data(), frame.size()), Bytes());
    EXPECT_EQ(SequenceSet(frame.data(), 0), Bytes());
}

TEST(AudioCodecs, ComeFromTheChannelsProperties) {
    recordings::ChannelProperties properties;
    EXPECT_FALSE(AudioOf(properties).Known());
    properties.sampleRate = 16000;
    for (const auto& [code, name] : {std::pair(1, "pcm_alaw"), {2, "pcm_mulaw"}, {3, "pcm_s16le"}}) {
        properties.audioCode = static_cast<uint8_t>(code);
        EXPECT_EQ(AudioOf(properties).name, name);
        EXPECT_EQ(AudioOf(properties).sampleRate, 16000u);
        EXPECT_TRUE(AudioOf(properties).Known());
    }
    for (const int code : {4, 255}) {
        properties.audioCode = static_cast<uint8_t>(code);
        EXPECT_FALSE(AudioOf(properties).Known());
    }
    properties.audioCode = 1;
    properties.sampleRate = 0;
    EXPECT_FALSE(AudioOf(properties).Known());
}

TEST(Tracks, AreNamedByTheirCodec) {
    Track track;
    EXPECT_EQ(track.Codec(), "unknown");
    track.video = VideoCodec::H265;
    EXPECT_EQ(track.Codec(), "h265");
    track.isVideo = false;
    EXPECT_EQ(track.Codec(), "unknown");
    track.audio.name = "pcm_mulaw";
    EXPECT_EQ(track.Codec(), "pcm_mulaw");
}

TEST(ReasonsToLeaveFramesOut, AreNamed) {
    Track track;
    track.isVideo = false;
    track.audio.name = "pcm_alaw";
    EXPECT_EQ(Describe(LeftOutReason::NotForContainer, Container::Mp4, track), "mp4 cannot hold pcm_alaw");
    EXPECT_STREQ(NameOf(LeftOutReason::EncodingUnknown), "encoding_unknown");
    EXPECT_STREQ(NameOf(LeftOutReason::NotForContainer), "not_for_container");
    EXPECT_STREQ(NameOf(LeftOutReason::NoPictureSize), "no_picture_size");
    EXPECT_STREQ(NameOf(LeftOutReason::FrameTooLarge), "frame_too_large");
    EXPECT_STREQ(NameOf(LeftOutReason::TrackBegunTooLate), "track_begun_too_late");
}

} // namespace
