// Elementary streams: a file a track.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "media/error.h"
#include "media/sink.h"
#include "support/files.h"
#include "support/temp_dir.h"

namespace {

using namespace media;
using recordings::Frame;
using test_support::ReadFile;

Frame FrameOf(uint32_t channel, uint32_t type, const std::string& payload) {
    Frame frame;
    frame.channel = channel;
    frame.type = type;
    frame.size = static_cast<uint32_t>(payload.size());
    frame.data = reinterpret_cast<const uint8_t*>(payload.data());
    return frame;
}

Track Video(uint32_t channel, VideoCodec codec) {
    Track track;
    track.channel = channel;
    track.video = codec;
    return track;
}

Track Audio(uint32_t channel, const std::string& name) {
    Track track;
    track.channel = channel;
    track.isVideo = false;
    track.audio = {name, 8000};
    return track;
}

class RawSinks : public ::testing::Test {
protected:
    RawSinks() {
        std::ofstream(m_dir.File("source")) << "evidence";
        m_source = open(m_dir.File("source").c_str(), O_RDONLY | O_CLOEXEC);
        m_identity.emplace(m_source);
        m_outputs.emplace(OutputRules{*m_identity, false});
        m_sink = MakeRawSink(m_dir.File("out"), *m_outputs);
    }
    ~RawSinks() override { close(m_source); }

    test_support::TempDir m_dir;
    int m_source = -1;
    std::optional<SourceIdentity> m_identity;
    std::optional<Outputs> m_outputs;
    std::unique_ptr<Sink> m_sink;
};

TEST_F(RawSinks, MakeAFileATrack) {
    const std::string first = "first";
    const std::string second = "second";
    const std::string sound = "sound";
    Track video = Video(3, VideoCodec::H264);
    Track audio = Audio(3, "pcm_alaw");
    EXPECT_FALSE(m_sink->Add(video, FrameOf(3, 1, first)));
    m_sink->Write(0, FrameOf(3, 1, first));
    // A track may begin at any time.
    EXPECT_FALSE(m_sink->Refusal(audio, FrameOf(3, 2, sound)));
    EXPECT_FALSE(m_sink->Add(audio, FrameOf(3, 2, sound)));
    EXPECT_EQ(video.output, 0u);
    EXPECT_EQ(audio.output, 1u);
    m_sink->Write(1, FrameOf(3, 2, sound));
    m_sink->Write(0, FrameOf(3, 0, second));
    m_sink->Write(0, FrameOf(3, 0, ""));
    m_sink->Finish();
    OutputFile& manifest = m_outputs->Make(m_dir.File("out.json"));
    const std::vector<Exported> made = m_outputs->CompleteOthers(manifest);
    manifest.Complete();
    m_outputs->Publish();
    ASSERT_EQ(made.size(), 2u);
    EXPECT_EQ(made[0].path, m_dir.File("out-ch3.h264"));
    EXPECT_EQ(made[0].size, 11u);
    EXPECT_EQ(made[1].path, m_dir.File("out-ch3.alaw"));
    EXPECT_EQ(ReadFile(m_dir.File("out-ch3.h264")), "firstsecond");
    EXPECT_EQ(ReadFile(m_dir.File("out-ch3.alaw")), "sound");
}

TEST_F(RawSinks, NumberTracksOfOneName) {
    const std::string sound = "sound";
    Track audio = Audio(3, "h264");
    Track video = Video(3, VideoCodec::H264);
    m_sink->Add(video, FrameOf(3, 1, sound));
    m_sink->Add(audio, FrameOf(3, 2, sound));
    m_sink->Add(video, FrameOf(3, 1, sound));
    EXPECT_EQ(video.output, 2u);
    OutputFile& manifest = m_outputs->Make(m_dir.File("out.json"));
    const std::vector<Exported> made = m_outputs->CompleteOthers(manifest);
    ASSERT_EQ(made.size(), 3u);
    EXPECT_EQ(made[1].path, m_dir.File("out-ch3-2.h264"));
    EXPECT_EQ(made[2].path, m_dir.File("out-ch3-3.h264"));
}

TEST(RawFileNames, TellChannelAndEncoding) {
    EXPECT_EQ(RawFileName("a/b", Video(0, VideoCodec::Unknown)), "a/b-ch0.video");
    EXPECT_EQ(RawFileName("b", Video(31, VideoCodec::H265)), "b-ch31.h265");
    EXPECT_EQ(RawFileName("b", Audio(1, "")), "b-ch1.audio");
    EXPECT_EQ(RawFileName("b", Audio(1, "pcm_s16le")), "b-ch1.s16le");
    EXPECT_EQ(RawFileName("b", Audio(1, "adpcm_ima_wav")), "b-ch1.adpcm_ima_wav");
}

TEST(RawFileNames, AreAllKnownBefore) {
    recordings::ChannelSet channels;
    channels.Add(2);
    EXPECT_EQ(PossibleRawFiles("b", channels, {{"aac", 8000}, {}}),
              (std::vector<std::string>{"b-ch2.aac", "b-ch2.alaw", "b-ch2.audio", "b-ch2.h264", "b-ch2.h265",
                                        "b-ch2.mulaw", "b-ch2.s16le", "b-ch2.video"}));
    EXPECT_TRUE(PossibleRawFiles("b", {}, {}).empty());
}

} // namespace
