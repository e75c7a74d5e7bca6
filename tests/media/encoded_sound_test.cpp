// Sound that MP4 cannot hold, encoded for it: what is heard, and when.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

#include "media/cameras.h"
#include "media/container_file.h"
#include "media/earlier.h"
#include "media/error.h"
#include "media/exporter.h"
#include "media/heard_sound.h"
#include "media/verify.h"
#include "recordings/recordings_fixture.h"
#include "sample_recorder/recorder.h"
#include "support/files.h"

namespace {

using namespace media;
using namespace media_test;
using test_support::ReadFile;
using Json = nlohmann::json;
using Lines = std::vector<std::string>;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC
constexpr int64_t kSecond = 1000000;
constexpr double kPi = 3.14159265358979323846;

/// The recorder's codes of codecs.
enum Code : uint8_t { kALaw = 1, kPcm16 = 3 };

/// A-law by its definition: the sign, how often the sample can be halved, and the four bits after its first.
uint8_t ALawOf(int sample) {
    const uint8_t sign = sample >= 0 ? 0x80 : 0;
    const int size = std::min(std::abs(sample) / 8, 4095);
    int exponent = 0;
    while (exponent < 7 && size >= 32 << exponent) {
        ++exponent;
    }
    const int mantissa = exponent == 0 ? size / 2 : (size >> exponent) & 0xF;
    return static_cast<uint8_t>((sign | exponent << 4 | mantissa) ^ 0x55);
}

/// A piece of sound: a tone, or nothing where its frequency is 0.
OwnedFrame Piece(uint32_t channel, int64_t time, int64_t samples, uint32_t rate, double frequency, Code code,
                 double amplitude = 0.25) {
    OwnedFrame frame = Sound(channel, time, 0);
    for (int64_t i = 0; i < samples; ++i) {
        // By the time, so that a tone goes on from piece to piece.
        const double seconds =
            static_cast<double>(time % (1000 * kSecond)) / kSecond + static_cast<double>(i) / rate;
        const auto sample =
            static_cast<int>(std::lround(32767 * amplitude * std::sin(2 * kPi * frequency * seconds)));
        if (code == kALaw) {
            frame.payload.push_back(ALawOf(sample));
        } else {
            frame.payload.push_back(static_cast<uint8_t>(sample));
            frame.payload.push_back(static_cast<uint8_t>(static_cast<unsigned>(sample) >> 8));
        }
    }
    return frame;
}

/// One camera with sound, on blocks of 64 KiB.
class EncodedSound : public test_support::RecordingsFixture {
protected:
    EncodedSound() { QuietContainers(); }

    void SetUp() override {
        sample_recorder::Format format;
        format.blockCount = 64;
        MakeDisk(format);
        m_settings.channels = 1;
        Sounds(kPcm16, 8000);
    }

    void Sounds(Code code, uint32_t rate) {
        m_settings.properties.at(0).AType = code;
        m_settings.properties.at(0).Sample = rate;
        m_code = code;
        m_rate = rate;
    }

    sample_recorder::Recorder& Recorder() {
        if (!m_recorder) {
            m_recorder.emplace(Image(), m_settings);
        }
        return *m_recorder;
    }

    void Write(const OwnedFrame& owned) {
        sample_recorder::Frame frame;
        frame.pts = owned.frame.time;
        frame.type = owned.frame.type;
        frame.channel = owned.frame.channel;
        frame.payload = owned.payload;
        Recorder().Write(frame);
    }

    void End() {
        Recorder().PowerOff();
        m_recorder.reset();
    }

    /// The camera's picture, one a second.
    void Pictures(int64_t from, int64_t to) {
        for (int64_t second = from; second < to; ++second) {
            Write(KeyFrame(0, (kStart + second) * kSecond, 500));
        }
    }

    /// Records with sound, pictures and pieces of a fifth of a second by their time.
    /// @param frequency of the sound in a fifth; nothing: it has none
    void Record(int64_t seconds, const std::function<std::optional<double>(int64_t fifth)>& frequency) {
        for (int64_t fifth = 0; fifth < 5 * seconds; ++fifth) {
            const int64_t time = kStart * kSecond + fifth * kSecond / 5;
            if (fifth % 5 == 0) {
                Write(KeyFrame(0, time, 500));
            }
            if (const auto tone = frequency(fifth)) {
                Write(Piece(0, time, m_rate / 5, m_rate, *tone, m_code));
            }
        }
        End();
    }

    ExportRequest Request() const {
        ExportRequest request;
        request.name = File("out.mp4");
        request.container = Container::Mp4;
        request.aac = true;
        request.clockText = false;
        request.replace = true;
        request.wording.timestamp = [](int64_t time) { return std::to_string(time); };
        request.wording.utcTimestamp = [](int64_t) { return "2026-11-20T14:00:00.000000Z"; };
        request.wording.readableTime = request.wording.timestamp;
        request.wording.readableSecond = request.wording.timestamp;
        request.wording.printable = [](const std::string& text) { return text; };
        return request;
    }

    std::optional<ExportResult> Run(const ExportRequest& request) {
        const recordings::Disk& disk = Open();
        const recordings::BlockList blocks = recordings::BlockList::Read(disk);
        const int source = open(Image().Path().c_str(), O_RDONLY | O_CLOEXEC);
        const SourceIdentity identity(source);
        m_problems.clear();
        auto result = Export(disk, blocks, identity, request, [this](const recordings::Problem& problem) {
            m_problems.push_back(Describe(problem, [](int64_t time) { return std::to_string(time); }));
        });
        close(source);
        return result;
    }

    /// What verifying says of frames, each as "result text".
    Lines Verified() {
        const recordings::Disk& disk = Open();
        const recordings::BlockList blocks = recordings::BlockList::Read(disk);
        const ManifestFile manifest = ReadManifest(File("out.mp4.json"));
        VerifyRequest request{manifest};
        request.disk = &disk;
        request.blocks = &blocks;
        request.timeOf = [](const std::string& text) { return std::optional<int64_t>(std::stoll(text)); };
        Lines lines;
        Verify(request, [&lines](const Check& check) {
            if (check.subject == Check::Subject::Frames) {
                lines.push_back(NameOf(check.result) + (" " + check.text));
            }
        });
        return lines;
    }

    Json Manifest() const { return Json::parse(ReadFile(File("out.mp4.json"))); }
    HeardSound Heard(const std::string& file = "out.mp4") const { return {File(file), 1}; }

    sample_recorder::RecorderSettings m_settings;
    std::optional<sample_recorder::Recorder> m_recorder;
    Code m_code = kPcm16;
    uint32_t m_rate = 8000;
    Lines m_problems;
};

const std::string kPicturesAsRecorded =
    "good out.mp4: channel 0 video: 10 frames, those of the source, byte for byte";
const std::string kEncoded =
    " were encoded as AAC: the times are those of the source, the sound itself is not compared";

TEST_F(EncodedSound, HasToneAndLevelAtTheirTime) {
    for (const auto& [code, rate] : std::vector<std::pair<Code, uint32_t>>{
             {kALaw, 8000}, {kPcm16, 8000}, {kPcm16, 16000}, {kPcm16, 48000}, {kPcm16, 10000}}) {
        SetUp();
        Sounds(code, rate);
        // A tone from second 4 to second 6.
        Record(10, [](int64_t fifth) { return fifth >= 20 && fifth < 30 ? 1000.0 : 0.0; });
        const auto result = Run(Request());
        ASSERT_TRUE(result);
        EXPECT_TRUE(m_problems.empty());
        const ContainerFile file = ContainerFile::Read(File("out.mp4"));
        ASSERT_EQ(file.streams.size(), 2u);
        EXPECT_EQ(file.streams[1].codec, "aac");
        EXPECT_EQ(file.streams[1].sampleRate, rate == 10000 ? 11025 : static_cast<int>(rate));
        const HeardSound heard = Heard();
        EXPECT_NEAR(heard.Tone(1000, 4.1, 5.9), 0.25, 0.01) << rate;
        EXPECT_NEAR(heard.Tone(1100, 4.1, 5.9), 0, 0.01) << rate;
        EXPECT_NEAR(heard.FirstLouder(0.12, 0), 4, 0.01) << rate;
        EXPECT_NEAR(heard.LastLouder(0.12, 10), 6, 0.01) << rate;
        EXPECT_LT(heard.Peak(0, 3.9), 0.02) << rate;
        EXPECT_EQ(Verified(),
                  (Lines{kPicturesAsRecorded,
                         "unchecked out.mp4: channel 0 audio: 50 frames of the source" + kEncoded}));
    }
}

/// The times of the packets of sound, in samples.
std::vector<int64_t> TimesOf(const ContainerFile& file) {
    std::vector<int64_t> times;
    for (const ContainerFile::Packet& packet : file.packets) {
        if (packet.stream == 1) {
            times.push_back(
                std::llround(static_cast<double>(packet.micros) * file.streams[1].sampleRate / kSecond));
        }
    }
    return times;
}

TEST_F(EncodedSound, KeepsAPause) {
    // Tones up to second 2 and from second 5 on; the third packet before the pause is the last whole one.
    Record(10, [](int64_t fifth) { return fifth < 10 || fifth >= 25 ? std::optional(440.0) : std::nullopt; });
    ASSERT_TRUE(Run(Request()));
    const HeardSound heard = Heard();
    EXPECT_NEAR(heard.Tone(440, 0.1, 1.9), 0.25, 0.01);
    EXPECT_NEAR(heard.Tone(440, 5.1, 9.9), 0.25, 0.01);
    EXPECT_NEAR(heard.FirstLouder(0.12, 0), 0, 0.01);
    EXPECT_NEAR(heard.LastLouder(0.12, 4), 2, 0.01);
    EXPECT_NEAR(heard.FirstLouder(0.12, 3), 5, 0.01);
    EXPECT_NEAR(heard.LastLouder(0.12, 20), 10, 0.01);
    // 16000 samples in 16 packets, from the one before zero on; then 40000 in 40, from one before second 5 on.
    std::vector<int64_t> expected;
    for (int64_t packet = -1; packet < 16; ++packet) {
        expected.push_back(packet * 1024);
    }
    for (int64_t packet = -1; packet < 40; ++packet) {
        expected.push_back(40000 + packet * 1024);
    }
    EXPECT_EQ(TimesOf(ContainerFile::Read(File("out.mp4"))), expected);
    EXPECT_EQ(Verified().at(1), "unchecked out.mp4: channel 0 audio: 35 frames of the source" + kEncoded);
}

TEST_F(EncodedSound, FillsAFrameThatIsMissingWithSilence) {
    Record(10, [](int64_t fifth) { return fifth == 22 ? std::nullopt : std::optional(440.0); });
    ASSERT_TRUE(Run(Request()));
    const HeardSound heard = Heard();
    EXPECT_NEAR(heard.LastLouder(0.12, 4.5), 4.4, 0.01);
    EXPECT_NEAR(heard.FirstLouder(0.12, 4.5), 4.6, 0.01);
    EXPECT_LT(heard.Peak(4.43, 4.57), 0.03);
    EXPECT_NEAR(heard.Tone(440, 4.7, 9.9), 0.25, 0.01);
    const std::vector<int64_t> times = TimesOf(ContainerFile::Read(File("out.mp4")));
    ASSERT_EQ(times.size(), 80u); // 80000 samples in 79 packets, and the one before
    for (size_t i = 0; i < times.size(); ++i) {
        EXPECT_EQ(times[i], static_cast<int64_t>(i) * 1024 - 1024);
    }
    EXPECT_EQ(Verified().at(1), "unchecked out.mp4: channel 0 audio: 49 frames of the source" + kEncoded);
}

TEST_F(EncodedSound, BeginsAndEndsWithItself) {
    // The sound begins 77.777 ms after the picture, and drifts by a sample in a piece.
    for (int64_t fifth = 0; fifth < 50; ++fifth) {
        const int64_t time = kStart * kSecond + fifth * kSecond / 5;
        if (fifth % 5 == 0) {
            Write(KeyFrame(0, time, 500));
        }
        Write(Piece(0, time + 77777 + fifth * 125, 1600, 8000, 440, kPcm16));
    }
    End();
    ExportRequest request = Request();
    for (const bool withText : {false, true}) {
        request.clockText = withText;
        ASSERT_TRUE(Run(request));
        EXPECT_NEAR(Heard().FirstLouder(0.12, 0), 0.077777, 0.01);
        EXPECT_NEAR(Heard().LastLouder(0.12, 20), 10.077777 + 0.006, 0.01);
        EXPECT_EQ(Verified().at(1), "unchecked out.mp4: channel 0 audio: 50 frames of the source" + kEncoded);
    }
}

TEST_F(EncodedSound, FollowsTheClockOverHoursAndBack) {
    // A journey, another one five hours later, and a third before which the clock was set back by an hour.
    const auto journey = [this](int64_t from) {
        for (int64_t fifth = 0; fifth < 25; ++fifth) {
            const int64_t time = (kStart + from) * kSecond + fifth * kSecond / 5;
            if (fifth % 5 == 0) {
                Write(KeyFrame(0, time, 500));
            }
            Write(Piece(0, time, 1600, 8000, 440, kPcm16));
        }
        Recorder().WriteEvent((kStart + from + 1) * kSecond, 4, 0);
        Recorder().PowerOff();
    };
    journey(0);
    journey(18000);
    journey(14400);
    ExportRequest request = Request();
    request.clockText = true;
    request.wording.readableSecond = [](int64_t time) { return std::to_string(time / kSecond - kStart); };
    const auto result = Run(request);
    ASSERT_TRUE(result);
    ASSERT_EQ(result->outputs.size(), 1u);
    const HeardSound heard = Heard();
    EXPECT_NEAR(heard.FirstLouder(0.12, 0), 0, 0.01);
    EXPECT_NEAR(heard.LastLouder(0.12, 10000), 5, 0.01);
    EXPECT_NEAR(heard.FirstLouder(0.12, 10000), 18000, 0.01);
    // The third one follows the second, whose last picture is shown for a second; its own begins with it.
    const ContainerFile file = ContainerFile::Read(File("out.mp4"));
    std::vector<int64_t> pictures;
    std::vector<std::string> texts;
    for (const ContainerFile::Packet& packet : file.packets) {
        if (packet.stream == 0) {
            pictures.push_back(packet.micros);
        } else if (packet.stream == 2 && packet.data.size() > 2) {
            texts.emplace_back(packet.data.begin() + 2, packet.data.end());
        }
    }
    ASSERT_EQ(pictures.size(), 15u);
    EXPECT_EQ(pictures[5], 18000 * kSecond);
    const double third = static_cast<double>(pictures[10]) / kSecond;
    EXPECT_NEAR(third, 18005, 1);
    EXPECT_NEAR(heard.Tone(440, third + 0.1, third + 4.9), 0.25, 0.01);
    EXPECT_NEAR(heard.LastLouder(0.12, 20000), third + 5, 0.011);
    ASSERT_EQ(texts.size(), 15u);
    EXPECT_EQ(texts[5].substr(0, 5), "18000");
    EXPECT_EQ(texts[10].substr(0, 5), "14400");
    ASSERT_EQ(file.chapters.size(), 4u); // the beginning, and three events
    EXPECT_EQ(file.chapters[2].start, 18001 * kSecond);
    EXPECT_EQ(Verified().at(1), "unchecked out.mp4: channel 0 audio: 75 frames of the source" + kEncoded);
}

TEST_F(EncodedSound, GoesOnInAnotherFileAfterAPauseThatMp4CannotShow) {
    // At 8000 samples a second, 2^31 of them are 74 hours and 34 minutes.
    for (const int64_t from : {0, 74 * 3600, 2 * 74 * 3600 + 3600}) {
        for (int64_t second = from; second < from + 2; ++second) {
            Write(KeyFrame(0, (kStart + second) * kSecond, 500));
            Write(Piece(0, (kStart + second) * kSecond, 8000, 8000, 440, kPcm16));
        }
        Recorder().PowerOff();
    }
    const auto result = Run(Request());
    ASSERT_TRUE(result);
    ASSERT_EQ(result->outputs.size(), 2u);
    EXPECT_NEAR(Heard().FirstLouder(0.12, 100), 74 * 3600, 0.01);
    EXPECT_NEAR(Heard("out-2.mp4").FirstLouder(0.12, 0), 0, 0.01);
    EXPECT_NEAR(Heard("out-2.mp4").LastLouder(0.12, 100), 2, 0.01);
    for (const std::string& line : Verified()) {
        EXPECT_NE(line.substr(0, 3), "bad") << line;
    }
}

TEST_F(EncodedSound, TakesAnotherCodecOrRateBetweenJourneys) {
    const auto journey = [this](int64_t from, Code code, uint32_t rate) {
        for (int64_t second = from; second < from + 4; ++second) {
            Write(KeyFrame(0, (kStart + second) * kSecond, 500));
            Write(Piece(0, (kStart + second) * kSecond, rate, rate, 440, code));
        }
        Image().Change<BlockHead_t>(Image().HeadOffset(*Recorder().CurrentBlock()), [&](BlockHead_t& head) {
            head.prop[0].AType = code;
            head.prop[0].Sample = rate;
        });
        Recorder().PowerOff();
    };
    journey(0, kALaw, 8000);
    journey(100, kPcm16, 8000);
    journey(200, kPcm16, 16000);
    const auto result = Run(Request());
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->leftOut.empty());
    ASSERT_EQ(result->tracks.size(), 4u);
    EXPECT_EQ(result->tracks[2].audio.name, "pcm_s16le");
    EXPECT_EQ(result->tracks[3].encoded->sampleRate, 16000u);
    EXPECT_NEAR(Heard().Tone(440, 0.1, 3.9), 0.25, 0.01);
    EXPECT_LT(Heard().LastLouder(0.02, 1000), 5);
    for (const char* const part : {"out-2.mp4", "out-3.mp4"}) { // of sound alone: the camera's picture stays
        const HeardSound heard(File(part), 0);
        EXPECT_EQ(heard.Rate(), part == std::string("out-2.mp4") ? 8000 : 16000);
        EXPECT_NEAR(heard.Tone(440, 0.1, 3.9), 0.25, 0.01) << part;
        EXPECT_NEAR(heard.FirstLouder(0.12, 0), 0, 0.01) << part;
    }
    for (const std::string& line : Verified()) {
        EXPECT_NE(line.substr(0, 3), "bad") << line;
    }
}

TEST_F(EncodedSound, IsTheSameEachTimeAndToldOf) {
    Record(10, [](int64_t fifth) { return fifth < 20 ? 440.0 : 1200.0; });
    ASSERT_TRUE(Run(Request()));
    const std::string file = ReadFile(File("out.mp4"));
    const std::string text = ReadFile(File("out.mp4.json"));
    ASSERT_TRUE(Run(Request()));
    EXPECT_TRUE(ReadFile(File("out.mp4")) == file);
    EXPECT_EQ(ReadFile(File("out.mp4.json")), text);
    const Json manifest = Manifest();
    EXPECT_EQ(manifest["aac"], true);
    EXPECT_FALSE(manifest["tracks"][0].contains("encoded"));
    const Json& track = manifest["tracks"][1];
    EXPECT_EQ(track["codec"], "pcm_s16le");
    EXPECT_EQ(track["sample_rate"], 8000);
    EXPECT_EQ(track["frame_count"], 50);
    EXPECT_EQ(track["payload_bytes"], 160000); // as recorded
    EXPECT_EQ(track["encoded"]["codec"], "aac");
    EXPECT_EQ(track["encoded"]["sample_rate"], 8000);
    EXPECT_EQ(track["encoded"]["encoder"].get<std::string>().rfind("aac of libavcodec ", 0), 0u);
    EXPECT_EQ(manifest["left_out"], Json::array());
}

TEST_F(EncodedSound, IsNoneWhereItIsNotAskedForOrNotNeeded) {
    Record(10, [](int64_t) { return 440.0; });
    ExportRequest request = Request();
    request.aac = false;
    auto result = Run(request);
    ASSERT_TRUE(result);
    ASSERT_EQ(result->leftOut.size(), 1u);
    EXPECT_EQ(result->leftOut[0].reason, LeftOutReason::NotForContainer);
    EXPECT_EQ(Manifest()["aac"], false);
    // MP4 holds MP3 as it is.
    request = Request();
    request.audio.all = {"mp3", 44100};
    result = Run(request);
    ASSERT_EQ(result->tracks.size(), 2u);
    EXPECT_FALSE(result->tracks[1].encoded);
    EXPECT_EQ(Verified().at(1),
              "good out.mp4: channel 0 audio: 50 frames, those of the source, byte for byte");
    // Matroska holds everything that the disk tells of.
    request = Request();
    request.container = Container::Matroska;
    result = Run(request);
    ASSERT_EQ(result->tracks.size(), 2u);
    EXPECT_FALSE(result->tracks[1].encoded);
}

/// A sample of it has two to five bits, and nothing says how many.
TEST_F(EncodedSound, OfACodecThatNothingTellsHowToDecodeIsLeftOut) {
    Record(2, [](int64_t) { return 440.0; });
    ExportRequest request = Request();
    request.audio.all = {"adpcm_g726", 8000};
    const auto result = Run(request);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->tracks.size(), 1u);
    ASSERT_EQ(result->leftOut.size(), 1u);
    EXPECT_EQ(result->leftOut[0].reason, LeftOutReason::NotForContainer);
    EXPECT_TRUE(result->problems.empty());
}

TEST_F(EncodedSound, OfARateThatNoCameraHasIsLeftOut) {
    for (const uint32_t rate : {1u, 3999u, 192001u, 0xFFFFFFFFu}) {
        SetUp();
        m_settings.properties.at(0).Sample = rate;
        Pictures(0, 2);
        Write(Sound(0, (kStart + 1) * kSecond, 1600));
        End();
        const auto result = Run(Request());
        ASSERT_TRUE(result) << rate;
        ASSERT_EQ(result->leftOut.size(), 1u) << rate;
        EXPECT_EQ(result->leftOut[0].reason, LeftOutReason::NotForContainer);
    }
}

TEST_F(EncodedSound, ThatDoesNotDecodeIsALoss) {
    // Blocks of ADPCM: a head of four bytes, whose third is a step of at most 88. 1601 samples each but the bad ones.
    const auto piece = [](int64_t fifth, size_t size, uint8_t step) {
        OwnedFrame frame = Sound(0, kStart * kSecond + fifth * kSecond / 5, size);
        std::fill(frame.payload.begin(), frame.payload.end(), uint8_t{0});
        if (size > 2) {
            frame.payload[2] = step;
        }
        return frame;
    };
    Pictures(0, 1);
    for (int64_t fifth = 0; fifth < 50; ++fifth) {
        if (fifth == 7 || fifth == 8) {
            Write(piece(fifth, 804, 255));
        } else if (fifth == 20) {
            Write(piece(fifth, 3, 0));
        } else if (fifth == 21) {
            Write(piece(fifth, 0, 0));
        } else {
            Write(piece(fifth, 804, 3));
        }
    }
    End();
    ExportRequest request = Request();
    request.audio.all = {"adpcm_ima_wav", 8000};
    const auto result = Run(request);
    ASSERT_TRUE(result);
    const std::string time = std::to_string(kStart * kSecond + 7 * kSecond / 5);
    EXPECT_EQ(m_problems,
              (Lines{"block 0, channel 0: 3 frames of sound do not decode and are not in the file, from " +
                     time + " on"}));
    ASSERT_EQ(result->problems.size(), 1u);
    EXPECT_EQ(result->problems[0].severity, recordings::Severity::Loss);
    EXPECT_EQ(Manifest()["losses"][0]["problem"], "sound_damaged");
    EXPECT_EQ(Verified().at(1), "unchecked out.mp4: channel 0 audio: 50 frames of the source" + kEncoded);
    // Nothing of it decodes: the track is empty, and everything is named.
    request.audio.all = {"flac", 8000};
    ASSERT_TRUE(Run(request));
    EXPECT_EQ(m_problems.size(), 1u);
    EXPECT_EQ(m_problems[0].substr(0, 36), "block 0, channel 0: 49 frames of sou");
    EXPECT_EQ(Verified().at(1),
              "unchecked out.mp4: channel 0 audio: 50 frames of the source were encoded as AAC: neither "
              "times nor the sound itself are compared");
}

TEST_F(EncodedSound, ThatLastsTooLongIsALoss) {
    Sounds(kALaw, 4000);
    Pictures(0, 2);
    Write(Piece(0, (kStart + 2) * kSecond, 40000, 4000, 440, kALaw));
    Write(Piece(0, (kStart + 13) * kSecond, 40001, 4000, 440, kALaw));
    End();
    ASSERT_TRUE(Run(Request()));
    EXPECT_EQ(m_problems.size(), 1u);
    EXPECT_NEAR(Heard().Tone(440, 2.2, 11.8), 0.25, 0.01);
    EXPECT_NEAR(Heard().LastLouder(0.02, 30), 12, 0.05);
}

TEST_F(EncodedSound, IsHeldAgainstTheDisk) {
    Record(10, [](int64_t) { return 440.0; });
    ASSERT_TRUE(Run(Request()));
    const std::string sound = "out.mp4: channel 0 audio: ";
    const auto forge = [this](const std::function<void(Json&)>& change) {
        Json manifest = Manifest();
        change(manifest);
        std::ofstream(File("out.mp4.json")) << manifest.dump();
    };
    // Another number of frames, and a codec whose frames last twice as long.
    forge([](Json& manifest) { manifest["tracks"][1]["frame_count"] = 49; });
    EXPECT_EQ(Verified().at(1), "bad " + sound + "the source has 50 frames, the manifest 49");
    forge([](Json& manifest) {
        manifest["tracks"][1]["frame_count"] = 50;
        manifest["tracks"][1]["codec"] = "pcm_alaw";
    });
    EXPECT_EQ(Verified().at(1), "bad " + sound + "its times are not those of the source");
    // What MP4 can hold is never encoded: nobody gets round the comparison of bytes by saying so.
    forge([](Json& manifest) {
        manifest["tracks"][1]["codec"] = "mp3";
        manifest["tracks"][1]["sample_rate"] = 44100;
        manifest["tracks"][1]["encoded"]["sample_rate"] = 44100;
    });
    EXPECT_EQ(Verified().at(1),
              "bad " + sound + "is said to be encoded, but mp4 holds mp3 as it was recorded");
    for (const auto& change : std::vector<std::function<void(Json&)>>{
             [](Json& manifest) { manifest["tracks"][0]["encoded"] = manifest["tracks"][1]["encoded"]; },
             [](Json& manifest) { manifest["tracks"][1]["encoded"] = "aac"; },
             [](Json& manifest) { manifest["tracks"][1]["encoded"]["codec"] = "mp3"; },
             [](Json& manifest) { manifest["tracks"][1]["encoded"]["sample_rate"] = 16000; },
             [](Json& manifest) { manifest["tracks"][1]["sample_rate"] = 0; },
             [](Json& manifest) { manifest["container"] = "matroska"; }}) {
        ASSERT_TRUE(Run(Request()));
        forge(change);
        EXPECT_THROW(ReadManifest(File("out.mp4.json")), Error);
    }
}

TEST_F(EncodedSound, IsPartOfWhatWasAskedFor) {
    Record(10, [](int64_t) { return 440.0; });
    ExportRequest request = Request();
    ASSERT_TRUE(Run(request));
    const auto difference = [this](const ExportRequest& asked) {
        const recordings::Disk& disk = Open();
        return LookForEarlier(disk, recordings::BlockList::Read(disk), asked).difference;
    };
    EXPECT_EQ(difference(request), "");
    request.aac = false;
    EXPECT_EQ(difference(request), "its manifest has another 'aac'");
}

} // namespace
