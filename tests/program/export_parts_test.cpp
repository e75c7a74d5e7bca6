// The parts of an export that need no disk.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "elementary.h"
#include "failure.h"
#include "output_file.h"
#include "progress.h"
#include "support/files.h"
#include "support/temp_dir.h"
#include "time_zone.h"

namespace {

using namespace diskaccess;
using test_support::ReadFile;
using test_support::TempDir;

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

// ---- output files

class OutputFiles : public ::testing::Test {
protected:
    TempDir m_dir;
    const std::string m_path = m_dir.File("out");
    // "abc", and a million times "a": the digests are those of the standard's own examples.
    const std::string m_abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    const std::string m_million = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";
};

TEST_F(OutputFiles, GetTheirNameWhenTheyAreWhole) {
    OutputFile file(m_path, false);
    file.Write("ab", 2);
    file.Write("c", 1);
    EXPECT_FALSE(std::filesystem::exists(m_path));
    file.Finish();
    EXPECT_EQ(ReadFile(m_path), "abc");
    EXPECT_EQ(file.Sha256(), m_abc);
    EXPECT_EQ(file.Size(), 3u);
    EXPECT_FALSE(std::filesystem::exists(m_path + ".part"));
}

TEST_F(OutputFiles, HashLargeOnesTooAndThoseThatWereMended) {
    OutputFile file(m_path, false);
    const std::string as(300000, 'a');
    for (int i = 0; i < 3; ++i) {
        file.Write(as.data(), as.size());
    }
    file.Write("b", 1);
    file.Write(as.data(), 99999);
    EXPECT_EQ(file.Seek(900000, SEEK_SET), 900000);
    file.Write("a", 1);
    file.Finish();
    EXPECT_EQ(file.Sha256(), m_million);
    EXPECT_EQ(file.Size(), 1000000u);
}

TEST_F(OutputFiles, GivenUpLeaveNothing) {
    {
        OutputFile file(m_path, false);
        file.Write("abc", 3);
    }
    EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::path(m_path).parent_path()));
}

TEST_F(OutputFiles, DoNotReplaceWhatCameUpMeanwhile) {
    OutputFile file(m_path, false);
    std::ofstream(m_path) << "precious";
    EXPECT_THROW(file.Finish(), Failure);
    EXPECT_EQ(ReadFile(m_path), "precious");
    EXPECT_THROW(OutputFile(m_path, false), Failure);
    OutputFile replacing(m_path, true);
    replacing.Write("abc", 3);
    replacing.Finish();
    EXPECT_EQ(ReadFile(m_path), "abc");
}

} // namespace
