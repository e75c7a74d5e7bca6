// Matroska and MP4 files: what players find in them.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>

extern "C" {
#include <libavutil/log.h>
}

#include "digest.h"
#include "media/cameras.h"
#include "media/container_file.h"
#include "media/error.h"
#include "media/sink.h"
#include "support/files.h"
#include "support/temp_dir.h"

namespace {

using namespace media;
using namespace media_test;
using test_support::ReadFile;

constexpr int64_t kStart = 1795183200000000; // 2026-11-20 14:00:00 UTC
constexpr int64_t kSecond = 1000000;

std::string DigestOf(const std::string& bytes) {
    Digest digest;
    digest.Add(bytes.data(), bytes.size());
    return digest.Text();
}

ContainerFacts Facts() {
    ContainerFacts facts;
    facts.title = "journey";
    facts.comment = "vehicle 4711, bus";
    facts.startTime = "2026-11-20T14:00:00.000000Z";
    facts.start = kStart;
    return facts;
}

// Exports of two threads: the messages of others come back when the last of them ends.
TEST(QuietPeriods, GiveBackTheMessagesOfOthers) {
    const int before = av_log_get_level();
    av_log_set_level(AV_LOG_INFO);
    auto first = std::make_unique<QuietPeriod>();
    EXPECT_EQ(av_log_get_level(), AV_LOG_FATAL);
    auto second = std::make_unique<QuietPeriod>();
    first.reset();
    EXPECT_EQ(av_log_get_level(), AV_LOG_FATAL);
    second.reset();
    EXPECT_EQ(av_log_get_level(), AV_LOG_INFO);
    av_log_set_level(AV_LOG_QUIET);
    {
        const QuietPeriod quieter;
        EXPECT_EQ(av_log_get_level(), AV_LOG_QUIET);
    }
    EXPECT_EQ(av_log_get_level(), AV_LOG_QUIET);
    {
        const QuietPeriod chosenMeanwhile;
        av_log_set_level(AV_LOG_DEBUG);
    }
    EXPECT_EQ(av_log_get_level(), AV_LOG_DEBUG);
    av_log_set_level(before);
}

class Containers : public ::testing::TestWithParam<Container> {
protected:
    Containers() {
        QuietContainers();
        std::ofstream(m_dir.File("source")) << "evidence";
        m_source = open(m_dir.File("source").c_str(), O_RDONLY | O_CLOEXEC);
        m_identity.emplace(m_source);
    }
    ~Containers() override { close(m_source); }

    /// Begins a file, in place of the one before.
    Sink& Begin() {
        m_sink.reset();
        m_outputs.emplace(OutputRules{*m_identity, true});
        m_sink = MakeContainerSink(m_path, GetParam(), *m_outputs);
        return *m_sink;
    }

    Exported End() {
        m_sink->Finish();
        OutputFile& manifest = m_outputs->Make(m_dir.File("manifest"));
        const std::vector<Exported> made = m_outputs->CompleteOthers(manifest);
        manifest.Complete();
        m_outputs->Publish();
        return made.at(0);
    }

    void Write(size_t index, const OwnedFrame& frame) { m_sink->Write(index, frame.Get()); }

    /// Two cameras, a key frame a second and a picture between.
    /// @return what was written, by track
    std::vector<std::vector<OwnedFrame>> WriteTwoCameras(int seconds,
                                                         const std::optional<Estimate>& estimate) {
        Sink& sink = Begin();
        Track first = VideoTrack(0);
        Track second = VideoTrack(5);
        EXPECT_FALSE(sink.Add(first, KeyFrame(0, kStart, 1000).Get()));
        EXPECT_FALSE(sink.Add(second, KeyFrame(5, kStart, 1000).Get()));
        sink.Start(Facts(), estimate);
        std::vector<std::vector<OwnedFrame>> written(2);
        for (int i = 0; i < seconds; ++i) {
            for (const uint32_t channel : {0u, 5u}) {
                const int64_t time = kStart + i * kSecond + channel * 1000;
                auto& track = written[channel == 0 ? 0 : 1];
                track.push_back(KeyFrame(channel, time, 20000 + static_cast<size_t>(i)));
                Write(channel == 0 ? 0 : 1, track.back());
                track.push_back(Picture(channel, time + kSecond / 2, 3000));
                Write(channel == 0 ? 0 : 1, track.back());
            }
        }
        return written;
    }

    /// What is right to expect of WriteTwoCameras().
    static Estimate RightEstimate(int seconds) {
        Estimate estimate;
        for (int i = 0; i < seconds; ++i) {
            estimate.bytes +=
                2 * (KeyFrame(0, 0, 20000 + static_cast<size_t>(i)).payload.size() + 24 + 3004 + 24);
        }
        estimate.keyFrames = 2 * static_cast<uint64_t>(seconds);
        const int64_t last = kStart + (seconds - 1) * kSecond + kSecond / 2;
        estimate.lastFrames = {LastFrame{last, 3004}, LastFrame{last + 5000, 3004}};
        return estimate;
    }

    test_support::TempDir m_dir;
    const std::string m_path = m_dir.File("out");
    int m_source = -1;
    std::optional<SourceIdentity> m_identity;
    std::optional<Outputs> m_outputs;
    std::unique_ptr<Sink> m_sink;
};

INSTANTIATE_TEST_SUITE_P(All, Containers, ::testing::Values(Container::Matroska, Container::Mp4),
                         [](const auto& one) { return std::string(NameOf(one.param)); });

TEST_P(Containers, HoldEveryFrame) {
    const auto written = WriteTwoCameras(5, std::nullopt);
    End();
    const ContainerFile file = ContainerFile::Read(m_path);
    EXPECT_NE(file.format.find(GetParam() == Container::Mp4 ? "mp4" : "matroska"), std::string::npos);
    ASSERT_EQ(file.streams.size(), 2u);
    for (const auto& stream : file.streams) {
        EXPECT_EQ(stream.codec, "h264");
        EXPECT_EQ(stream.width, 64);
        ASSERT_FALSE(stream.extradata.empty());
        EXPECT_EQ(stream.extradata[0], 1); // parameter sets as containers keep them
    }
    std::vector<size_t> next(2);
    ASSERT_EQ(file.packets.size(), 20u);
    for (const ContainerFile::Packet& packet : file.packets) {
        const size_t i = next.at(packet.stream)++;
        const OwnedFrame& frame = written[packet.stream].at(i);
        EXPECT_EQ(packet.key, i % 2 == 0);
        EXPECT_EQ(packet.micros, frame.frame.time - kStart);
        // A key frame's three units, and a picture's one, have lengths for start codes.
        Bytes expected;
        if (packet.key) {
            expected = {0, 0, 0, 23};
            expected.insert(expected.end(), kH264Sets.begin() + 4, kH264Sets.begin() + 27);
            expected.insert(expected.end(), {0, 0, 0, 5, 0x68, 0xCB, 0x83, 0xCB, 0x20, 0, 0, 0x4E,
                                             static_cast<uint8_t>(0x20 + i / 2)});
            expected.insert(expected.end(), frame.payload.begin() + 39, frame.payload.end());
        } else {
            expected = {0, 0, 0x0B, 0xB8};
            expected.insert(expected.end(), frame.payload.begin() + 4, frame.payload.end());
        }
        EXPECT_EQ(packet.data, expected);
    }
}

TEST_P(Containers, SayWhatTheyHold) {
    Sink& sink = Begin();
    Track track = VideoTrack(7);
    sink.Add(track, KeyFrame(7, kStart, 100).Get());
    ContainerFacts facts = Facts();
    facts.chapters = {{kStart - kSecond, "before"}, {kStart + 2 * kSecond, "event 0x1"}};
    sink.Start(facts, std::nullopt);
    for (int i = 0; i < 4; ++i) {
        Write(0, KeyFrame(7, kStart + i * kSecond, 100));
    }
    End();
    ContainerFile file = ContainerFile::Read(m_path);
    EXPECT_EQ(file.tags["title"], "journey");
    EXPECT_EQ(file.tags["comment"].empty() ? file.tags["COMMENT"] : file.tags["comment"],
              "vehicle 4711, bus");
    EXPECT_EQ(file.tags["creation_time"], "2026-11-20T14:00:00.000000Z");
    ASSERT_EQ(file.chapters.size(), 2u);
    EXPECT_EQ(file.chapters[0].title, "before");
    EXPECT_EQ(file.chapters[0].start, 0);
    EXPECT_EQ(file.chapters[1].title, "event 0x1");
    EXPECT_EQ(file.chapters[1].start, 2 * kSecond);
    EXPECT_GE(file.duration, 3 * kSecond);
}

/// What the text track shows: "place-end text", in milliseconds.
std::vector<std::string> TextsOf(const ContainerFile& file) {
    std::vector<std::string> texts;
    for (const ContainerFile::Packet& packet : file.packets) {
        const std::string& codec = file.streams[packet.stream].codec;
        if (codec != "subrip" && codec != "mov_text") {
            continue;
        }
        // MP4 has the length first, and fills pauses with empty texts.
        const std::ptrdiff_t head = codec == "mov_text" ? 2 : 0;
        const std::string text(packet.data.begin() + head, packet.data.end());
        if (!text.empty()) {
            texts.push_back(std::to_string(packet.micros / 1000) + "-" +
                            std::to_string((packet.micros + packet.duration) / 1000) + " " + text);
        }
    }
    return texts;
}
using Lines = std::vector<std::string>;

/// Says a second by its distance from the start.
std::string SecondInWords(int64_t time) {
    return "second " + std::to_string((time - kStart) / kSecond) + ", 4711";
}

TEST_P(Containers, SayWhenEachSecondWasRecorded) {
    Sink& sink = Begin();
    Track first = VideoTrack(0);
    Track second = VideoTrack(5);
    sink.Add(first, KeyFrame(0, kStart, 100).Get());
    sink.Add(second, KeyFrame(5, kStart, 100).Get());
    ContainerFacts facts = Facts();
    facts.start = kStart + 300000; // the first second has 700 ms
    facts.clockText = SecondInWords;
    sink.Start(facts, std::nullopt);
    const auto record = [&](int64_t millis) {
        Write(0, KeyFrame(0, kStart + millis * 1000, 100));
        Write(1, KeyFrame(5, kStart + millis * 1000, 100));
    };
    for (const int64_t millis : {300, 800, 1300, 1800, 2300}) {
        record(millis);
    }
    record(100000); // after a gap
    record(50000);  // the clock is set back: the file goes on a second later
    record(51000);
    End();
    const ContainerFile file = ContainerFile::Read(m_path);
    ASSERT_EQ(file.streams.size(), 3u);
    EXPECT_EQ(file.streams[2].codec, GetParam() == Container::Mp4 ? "mov_text" : "subrip");
    const std::string vehicle = ", 4711, channels 0, 5";
    EXPECT_EQ(TextsOf(file),
              (Lines{"0-700 second 0" + vehicle, "1000-1700 second 1" + vehicle,
                     "2000-2700 second 2" + vehicle, "99700-100700 second 100" + vehicle,
                     "100700-101700 second 50" + vehicle, "101700-102700 second 51" + vehicle}));
}

TEST_P(Containers, SayOfOneChannelThatItIsOne) {
    Sink& sink = Begin();
    Track video = VideoTrack(7);
    sink.Add(video, KeyFrame(7, kStart, 100).Get());
    ContainerFacts facts = Facts();
    facts.clockText = SecondInWords;
    sink.Start(facts, std::nullopt);
    Write(0, KeyFrame(7, kStart, 100));
    End();
    EXPECT_EQ(TextsOf(ContainerFile::Read(m_path)), (Lines{"0-1000 second 0, 4711, channel 7"}));
}

TEST_P(Containers, CanBeSoughtIn) {
    for (const bool predicted : {false, true}) {
        WriteTwoCameras(30, predicted ? std::optional(RightEstimate(30)) : std::nullopt);
        End();
        const ContainerFile::Packet found = ContainerFile::After(m_path, 1, 17 * kSecond + 700000);
        EXPECT_EQ(found.micros, 17 * kSecond + 5000);
        EXPECT_TRUE(found.key);
    }
}

TEST_P(Containers, AreHashedAsTheyAre) {
    const Estimate right = RightEstimate(20);
    Estimate tooSmall = right;
    tooSmall.bytes /= 2;
    Estimate tooLarge = right;
    tooLarge.bytes *= 2;
    Estimate otherEnd = right;
    otherEnd.lastFrames[1]->time += kSecond;
    Estimate noEnd = right;
    noEnd.lastFrames[0].reset();
    Estimate fewKeyFrames = right;
    fewKeyFrames.keyFrames = 0;
    const std::vector<std::optional<Estimate>> estimates = {std::nullopt, right, tooSmall,     tooLarge,
                                                            otherEnd,     noEnd, fewKeyFrames, Estimate()};
    for (const auto& estimate : estimates) {
        WriteTwoCameras(20, estimate);
        const Exported made = End();
        const std::string bytes = ReadFile(m_path);
        EXPECT_EQ(made.size, bytes.size());
        EXPECT_EQ(made.sha256, DigestOf(bytes));
        const ContainerFile file = ContainerFile::Read(m_path);
        EXPECT_EQ(file.packets.size(), 80u);
        EXPECT_NEAR(static_cast<double>(file.duration), 19.505e6, 0.6e6);
    }
}

TEST_P(Containers, AreTheSameEachTime) {
    for (const auto& estimate : {std::optional<Estimate>(), std::optional(RightEstimate(10))}) {
        WriteTwoCameras(10, estimate);
        End();
        const std::string first = ReadFile(m_path);
        WriteTwoCameras(10, estimate);
        End();
        EXPECT_TRUE(ReadFile(m_path) == first);
    }
}

TEST_P(Containers, WasteLittleOnWhatIsPredicted) {
    WriteTwoCameras(50, std::nullopt);
    const uint64_t size = End().size;
    WriteTwoCameras(50, RightEstimate(50));
    EXPECT_LT(End().size, size + size / 50 + 0x4000);
    // Much more than that is not filled.
    Estimate tooLarge = RightEstimate(50);
    tooLarge.bytes *= 3;
    WriteTwoCameras(50, tooLarge);
    EXPECT_LT(End().size, size + size / 50 + 0x4000);
}

TEST_P(Containers, HoldH265) {
    Sink& sink = Begin();
    Track track = VideoTrack(1, VideoCodec::H265);
    const OwnedFrame frame = KeyFrame(1, kStart, 500, kH265Sets);
    ASSERT_FALSE(sink.Add(track, frame.Get()));
    sink.Start(Facts(), std::nullopt);
    Write(0, frame);
    End();
    const ContainerFile file = ContainerFile::Read(m_path);
    ASSERT_EQ(file.streams.size(), 1u);
    EXPECT_EQ(file.streams[0].codec, "hevc");
    EXPECT_EQ(file.streams[0].width, 64);
    ASSERT_EQ(file.packets.size(), 1u);
    // Four units: video, sequence and picture parameter sets, and the slice.
    EXPECT_EQ(file.packets[0].data.size(), kH265Sets.size() + 4 + 500);
    EXPECT_EQ(Bytes(file.packets[0].data.begin(), file.packets[0].data.begin() + 5),
              (Bytes{0, 0, 0, 24, 0x40}));
}

TEST_P(Containers, RefuseASampleRateThatNoFileCanState) {
    Sink& sink = Begin();
    Track forged = AudioTrack(0, "aac");
    forged.audio.sampleRate = 0xFFFFFFFF;
    EXPECT_EQ(sink.Add(forged, Sound(0, kStart, 320).Get()), LeftOutReason::NotForContainer);
    // What can be recorded goes into the file all the same.
    Track video = VideoTrack(1);
    EXPECT_EQ(sink.Add(video, KeyFrame(1, kStart, 100).Get()), std::nullopt);
    sink.Start(Facts(), std::nullopt);
}

/// What says how such sound is to be decoded stands beside it, where a recorder keeps nothing.
TEST_P(Containers, RefuseSoundThatNobodyCouldDecode) {
    Sink& sink = Begin();
    for (const char* const name : {"aac", "vorbis", "adpcm_g726"}) {
        EXPECT_EQ(sink.Refusal(AudioTrack(0, name), Sound(0, kStart, 320).Get()),
                  LeftOutReason::NotForContainer)
            << name;
    }
    EXPECT_EQ(sink.Refusal(AudioTrack(0, "opus"), Sound(0, kStart, 320).Get()),
              GetParam() == Container::Mp4 ? std::optional(LeftOutReason::NotForContainer) : std::nullopt);
}

TEST_P(Containers, HoldAudioThatTheyKnow) {
    Sink& sink = Begin();
    Track video = VideoTrack(0);
    Track alaw = AudioTrack(0);
    Track unknown = AudioTrack(1, "");
    Track nonsense = AudioTrack(1, "h264");
    Track mp3 = AudioTrack(2, "mp3");
    mp3.audio.sampleRate = 44100;
    sink.Add(video, KeyFrame(0, kStart, 100).Get());
    const auto refusal = sink.Add(alaw, Sound(0, kStart, 320).Get());
    EXPECT_EQ(sink.Refusal(unknown, Sound(1, kStart, 320).Get()), LeftOutReason::EncodingUnknown);
    EXPECT_EQ(sink.Add(unknown, Sound(1, kStart, 320).Get()), LeftOutReason::EncodingUnknown);
    EXPECT_EQ(sink.Add(nonsense, Sound(1, kStart, 320).Get()), LeftOutReason::EncodingUnknown);
    EXPECT_EQ(sink.Refusal(mp3, Sound(2, kStart, 320).Get()), std::nullopt);
    if (GetParam() == Container::Mp4) {
        EXPECT_EQ(refusal, LeftOutReason::NotForContainer);
        return;
    }
    EXPECT_EQ(refusal, std::nullopt);
    sink.Start(Facts(), std::nullopt);
    for (int i = 0; i < 25; ++i) {
        Write(1, Sound(0, kStart + i * 40000, 320));
    }
    Write(0, KeyFrame(0, kStart + kSecond, 100));
    End();
    const ContainerFile file = ContainerFile::Read(m_path);
    ASSERT_EQ(file.streams.size(), 2u);
    EXPECT_EQ(file.streams[1].codec, "pcm_alaw");
    EXPECT_EQ(file.streams[1].sampleRate, 8000);
    size_t bytes = 0;
    for (const auto& packet : file.packets) {
        bytes += packet.stream == 1 ? packet.data.size() : 0;
    }
    EXPECT_EQ(bytes, 25u * 320);
}

TEST_P(Containers, RefuseWhatTheyCannotName) {
    Sink& sink = Begin();
    Track unknown = VideoTrack(0, VideoCodec::Unknown);
    EXPECT_EQ(sink.Add(unknown, KeyFrame(0, kStart, 100).Get()), LeftOutReason::EncodingUnknown);
    // Parameter sets that say nothing: cut off, and not there.
    Track track = VideoTrack(0);
    const Bytes cut = {0, 0, 0, 1, 0x67, 0x42, 0xC0};
    EXPECT_EQ(sink.Add(track, KeyFrame(0, kStart, 100, cut).Get()), LeftOutReason::NoPictureSize);
    EXPECT_EQ(sink.Add(track, Picture(0, kStart, 100).Get()), LeftOutReason::NoPictureSize);
    EXPECT_EQ(sink.Refusal(track, KeyFrame(0, kStart, 100).Get()), std::nullopt);
    EXPECT_EQ(sink.Add(track, KeyFrame(0, kStart, 100).Get()), std::nullopt);
    sink.Start(Facts(), std::nullopt);
    Track late = VideoTrack(1);
    EXPECT_EQ(sink.Add(late, KeyFrame(1, kStart, 100).Get()), LeftOutReason::TrackBegunTooLate);
}

TEST_P(Containers, LeaveEmptyFramesOut) {
    Sink& sink = Begin();
    Track track = VideoTrack(0);
    sink.Add(track, KeyFrame(0, kStart, 100).Get());
    sink.Start(Facts(), std::nullopt);
    Write(0, KeyFrame(0, kStart, 100));
    OwnedFrame empty = Picture(0, kStart + 40000, 1);
    empty.payload.clear();
    Write(0, empty);
    Write(0, Picture(0, kStart + 80000, 100));
    End();
    EXPECT_EQ(ContainerFile::Read(m_path).packets.size(), 2u);
}

TEST_P(Containers, TakeTimesThatStandStillOrGoBack) {
    Sink& sink = Begin();
    Track track = VideoTrack(0);
    sink.Add(track, KeyFrame(0, kStart, 100).Get());
    sink.Start(Facts(), std::nullopt);
    for (const int64_t time :
         {int64_t{0}, int64_t{0}, int64_t{100}, -kSecond, 2 * kSecond, -3600 * kSecond}) {
        Write(0, KeyFrame(0, kStart + time, 100));
    }
    End();
    const ContainerFile file = ContainerFile::Read(m_path);
    ASSERT_EQ(file.packets.size(), 6u);
    for (size_t i = 1; i < 6; ++i) {
        EXPECT_GT(file.packets[i].micros, file.packets[i - 1].micros);
    }
    EXPECT_GE(file.packets[5].micros, 2 * kSecond);
    EXPECT_LT(file.packets[5].micros, 5 * kSecond);
}

TEST_P(Containers, KeepGapsOfSecondsAndOfDays) {
    for (const int64_t gap : {1, 60, 2140, 2147, 2148, 2160, 4294, 4295, 86400, 178957, 864000}) {
        Sink& sink = Begin();
        Track video = VideoTrack(0);
        Track late = VideoTrack(1);
        sink.Add(video, KeyFrame(0, kStart, 100).Get());
        sink.Add(late, KeyFrame(1, kStart, 100).Get());
        sink.Start(Facts(), std::nullopt);
        const std::vector<int64_t> times = {0, 40000, gap * kSecond, gap * kSecond + 40000,
                                            2 * gap * kSecond};
        for (const int64_t time : times) {
            Write(0, KeyFrame(0, kStart + time, 100));
        }
        Write(1, KeyFrame(1, kStart + 2 * gap * kSecond, 100)); // begins after two gaps
        End();
        std::vector<int64_t> found;
        int64_t foundLate = 0;
        for (const ContainerFile::Packet& packet : ContainerFile::Read(m_path).packets) {
            if (packet.stream == 0) {
                found.push_back(packet.micros);
            } else {
                foundLate = packet.micros;
            }
        }
        EXPECT_EQ(found, times) << gap;
        EXPECT_EQ(foundLate, 2 * gap * kSecond);
        EXPECT_EQ(sink.Segments().size(), 1u);
    }
}

TEST_P(Containers, TellOfGapsThatTheyCannotShow) {
    Sink& sink = Begin();
    Track video = VideoTrack(0);
    sink.Add(video, KeyFrame(0, kStart, 100).Get());
    sink.Start(Facts(), std::nullopt);
    const int64_t month = 30 * 86400 * kSecond;
    for (const int64_t time : {int64_t{0}, kSecond, month, month + kSecond}) {
        Write(0, KeyFrame(0, kStart + time, 100));
    }
    End();
    const ContainerFile file = ContainerFile::Read(m_path);
    ASSERT_EQ(file.packets.size(), 4u);
    if (GetParam() == Container::Matroska) {
        EXPECT_EQ(file.packets[2].micros, month);
        EXPECT_EQ(sink.Segments().size(), 1u);
        return;
    }
    EXPECT_EQ(file.packets[2].micros, 2 * kSecond);
    EXPECT_EQ(file.packets[3].micros, 3 * kSecond);
    ASSERT_EQ(sink.Segments().size(), 2u);
    EXPECT_EQ(sink.Segments()[1].place, 2 * kSecond);
    EXPECT_EQ(sink.Segments()[1].time, kStart + month);
}

TEST_P(Containers, HaveChaptersWhereTheyBelongWhenTheClockIsSet) {
    Sink& sink = Begin();
    Track track = VideoTrack(7);
    sink.Add(track, KeyFrame(7, kStart, 100).Get());
    ContainerFacts facts = Facts();
    facts.chapters = {{kStart + 2 * kSecond, "first", 0},
                      {kStart + 3602 * kSecond, "behind", 1},
                      {kStart + 7199 * kSecond, "last", 1},
                      {kStart + 7205 * kSecond, "right again", 3}};
    sink.Start(facts, std::nullopt);
    const auto write = [&](uint32_t block, int64_t from, int64_t to) {
        for (int64_t second = from; second <= to; ++second) {
            OwnedFrame frame = KeyFrame(7, kStart + second * kSecond, 100);
            frame.frame.block = block;
            Write(0, frame);
        }
    };
    write(0, 0, 5);
    write(1, 7190, 7199);
    write(1, 3600, 3603); // an hour back, in the same block
    write(3, 7204, 7210);
    End();
    std::map<std::string, int64_t> starts;
    for (const ContainerFile::Chapter& chapter : ContainerFile::Read(m_path).chapters) {
        starts[chapter.title] = chapter.start / kSecond;
    }
    if (GetParam() == Container::Mp4) {
        EXPECT_EQ(starts.at("beginning"),
                  0); // players take the first chapter for one that begins with the file
        starts.erase("beginning");
    }
    EXPECT_EQ(starts, (std::map<std::string, int64_t>{
                          {"first", 2}, {"behind", 7202}, {"last", 7199}, {"right again", 7205}}));
    std::vector<int64_t> places;
    for (const ContainerFile::Packet& packet : ContainerFile::Read(m_path).packets) {
        places.push_back(packet.micros / kSecond);
    }
    EXPECT_EQ(places, (std::vector<int64_t>{0,    1,    2,    3,    4,    5,    7190, 7191, 7192,
                                            7193, 7194, 7195, 7196, 7197, 7198, 7199, 7200, 7201,
                                            7202, 7203, 7204, 7205, 7206, 7207, 7208, 7209, 7210}));
}

// Time stamps of a damaged disk may be any.
TEST_P(Containers, HaveNoChaptersADayAfterTheirEnd) {
    Sink& sink = Begin();
    Track track = VideoTrack(0);
    const OwnedFrame last = KeyFrame(0, kStart + 10 * kSecond, 100);
    sink.Add(track, KeyFrame(0, kStart, 100).Get());
    ContainerFacts facts = Facts();
    facts.chapters = {{INT64_MIN, "least"},
                      {kStart + 5 * kSecond, "within"},
                      {kStart + (10 + 86400) * kSecond, "a day after"},
                      {kStart + (11 + 86400) * kSecond, "more than a day after"},
                      {INT64_MAX - 1, "largest"},
                      {INT64_MAX, "largest"}};
    Estimate estimate;
    estimate.bytes = 200;
    estimate.keyFrames = 2;
    estimate.lastFrames = {LastFrame{last.frame.time, last.frame.size}};
    sink.Start(facts, estimate);
    Write(0, KeyFrame(0, kStart, 100));
    Write(0, last);
    End();
    std::map<std::string, int64_t> starts;
    for (const ContainerFile::Chapter& chapter : ContainerFile::Read(m_path).chapters) {
        starts[chapter.title] = chapter.start / kSecond;
    }
    EXPECT_EQ(starts,
              (std::map<std::string, int64_t>{{"least", 0}, {"within", 5}, {"a day after", 10 + 86400}}));
}

TEST_P(Containers, HaveSoManyChaptersAtMost) {
    Sink& sink = Begin();
    Track track = VideoTrack(0);
    sink.Add(track, KeyFrame(0, kStart, 100).Get());
    ContainerFacts facts = Facts();
    for (int i = 0; i < 5000; ++i) {
        facts.chapters.push_back({kStart + i * 1000, "event"});
    }
    sink.Start(facts, std::nullopt);
    Write(0, KeyFrame(0, kStart, 100));
    Write(0, KeyFrame(0, kStart + 10 * kSecond, 100));
    End();
    EXPECT_EQ(ContainerFile::Read(m_path).chapters.size(), kMostChapters);
}

TEST_P(Containers, LeaveNothingOnAFullMedium) {
    void (*const handler)(int) = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit = {3000000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    try {
        WriteTwoCameras(2000, RightEstimate(2000));
        End();
        ADD_FAILURE();
    } catch (const Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::CannotWrite);
        EXPECT_EQ(error.what(), m_path + ": cannot be written: File too large; nothing was kept");
    }
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    m_sink.reset();
    m_outputs.reset();
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_dir.File(""))) {
        EXPECT_EQ(entry.path().filename(), "source");
        ++files;
    }
    EXPECT_EQ(files, 1u);
}

} // namespace
