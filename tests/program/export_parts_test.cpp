// The parts of an export that need no disk.

#include <gtest/gtest.h>

#include "cli/failure.h"
#include "cli/progress.h"
#include "elementary.h"
#include "render/time_zone.h"

namespace {

using namespace diskaccess;

VideoCodec Detect(const std::vector<uint8_t>& bytes) {
    return DetectVideo(bytes.data(), bytes.size());
}

TEST(VideoDetection, TellsByParameterSets) {
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x67, 0x42, 0, 0x1E}), VideoCodec::H264);
    EXPECT_EQ(Detect({0, 0, 1, 0x27, 0x42, 0, 0x1E}), VideoCodec::H264); // no reference
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x09, 0x10, 0, 0, 0, 1, 0x67, 1, 2}),
              VideoCodec::H264); // behind a delimiter
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x40, 0x01, 0x0C, 1}), VideoCodec::H265);
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x46, 0x01, 0x50, 0, 0, 1, 0x42, 0x01, 1}), VideoCodec::H265);
    EXPECT_EQ(Detect({0, 0, 0, 1, 0x65, 0x88, 0x84, 0}), VideoCodec::Unknown); // a picture without its sets
    EXPECT_EQ(Detect({0xFF, 0xD8, 0xFF, 0xE0}), VideoCodec::Unknown);
    EXPECT_EQ(Detect({}), VideoCodec::Unknown);
    EXPECT_EQ(Detect({0, 0, 1}), VideoCodec::Unknown);
}

TEST(AudioCodecs, ComeFromTheChannelsProperties) {
    ChnProp_t properties = {};
    EXPECT_FALSE(AudioOf(properties).Known());
    properties.Sample = 16000;
    for (const auto& [code, name] : {std::pair(1, "pcm_alaw"), {2, "pcm_mulaw"}, {3, "pcm_s16le"}}) {
        properties.AType = static_cast<uint8_t>(code);
        EXPECT_EQ(AudioOf(properties).name, name);
        EXPECT_EQ(AudioOf(properties).samplesASecond, 16000u);
    }
    properties.AType = 4;
    EXPECT_FALSE(AudioOf(properties).Known());
    properties.AType = 1;
    properties.Sample = 0;
    EXPECT_FALSE(AudioOf(properties).Known());
}

TEST(AudioCodecs, ComeFromTheUser) {
    EXPECT_EQ(ReadAudioCodec("alaw:8000").name, "pcm_alaw");
    EXPECT_EQ(ReadAudioCodec("adpcm_ima_wav:11025").name, "adpcm_ima_wav");
    EXPECT_EQ(ReadAudioCodec("pcm16:48000").samplesASecond, 48000u);
    for (const char* const wrong :
         {"", "alaw", "alaw:", ":8000", "alaw:x", "alaw:-1", "alaw:0", "alaw:10000000"}) {
        EXPECT_THROW(ReadAudioCodec(wrong), WrongUse) << wrong;
    }
}

TEST(ProgressLine, TellsHowFarAndHowLong) {
    EXPECT_EQ(ProgressText("exporting", 0.25, 100 << 20, 10), "exporting  25 %  10.0 MiB/s  0:30 left");
    EXPECT_EQ(ProgressText("exporting", 0, 1 << 20, 1), "exporting   0 %  1.0 MiB/s");
}

TEST(Times, OfMicroseconds) {
    const TimeZone berlin("Europe/Berlin");
    EXPECT_EQ(berlin.TextOfMicros(1795185005040999), "2026-11-20 15:30:05.040");
    EXPECT_EQ(berlin.Rfc3339OfMicros(1795185005040999), "2026-11-20T15:30:05.040999+01:00");
    EXPECT_EQ(TimeZone::UtcOfMicros(1795185005040999), "2026-11-20T14:30:05.040999Z");
    EXPECT_EQ(TimeZone::UtcOfMicros(-1), "1969-12-31T23:59:59.999999Z");
}

} // namespace
