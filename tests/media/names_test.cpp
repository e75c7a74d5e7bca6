// The names of documents and of messages, and those of a file's parts.

#include <gtest/gtest.h>

#include "media/sink.h"
#include "media/stills.h"

namespace {

using namespace media;

TEST(Names, OfContainersAreThoseOfDocuments) {
    EXPECT_STREQ(NameOf(Container::Matroska), "matroska");
    EXPECT_STREQ(NameOf(Container::Mp4), "mp4");
    EXPECT_STREQ(NameOf(Container::Raw), "raw");
}

TEST(Names, OfPicturesThatCannotBeShownSayWhy) {
    EXPECT_STREQ(NameOf(StillState::Whole), "whole");
    EXPECT_STREQ(NameOf(StillState::Damaged), "damaged");
    EXPECT_STREQ(NameOf(StillState::NotRecorded), "not recorded");
    EXPECT_STREQ(NameOf(StillState::KeyFrameMissing), "key frame missing");
    EXPECT_STREQ(NameOf(StillState::NotDecodable), "not decodable");
    EXPECT_STREQ(NameOf(StillState::UnknownCodec), "unknown codec");
}

/// A track that a file lacks is a loss: who looks for the missing camera must find the true reason.
TEST(Names, OfTracksThatAreLeftOutSayWhy) {
    Track track;
    const auto said = [&](LeftOutReason reason) {
        return std::string(NameOf(reason)) + ": " + Describe(reason, Container::Mp4, track);
    };
    EXPECT_EQ(said(LeftOutReason::EncodingUnknown), "encoding_unknown: its encoding is not known");
    track.isVideo = false;
    track.audio.name = "pcm_alaw";
    EXPECT_EQ(said(LeftOutReason::NotForContainer), "not_for_container: mp4 cannot hold pcm_alaw");
    EXPECT_EQ(said(LeftOutReason::NoPictureSize),
              "no_picture_size: its key frames do not say how large the picture is");
    EXPECT_EQ(said(LeftOutReason::FrameTooLarge), "frame_too_large: no container's frames can be as large");
    EXPECT_EQ(said(LeftOutReason::TrackBegunTooLate),
              "track_begun_too_late: it begins after the file's tracks were laid down");
}

} // namespace
