// Single pictures: the frame that was shown at a time, decoded where nothing can go wrong, and written as a file.

#include "media/stills.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "libav.h"
#include "media/encoding_camera.h"
#include "media/error.h"
#include "media/picture_series.h"
#include "recordings/error.h"
#include "recordings/recordings_fixture.h"
#include "sample_recorder/recorder.h"

namespace {

using media::Still;
using media::StillState;
using media_test::kHeight;
using media_test::kStart;
using media_test::kStep;
using media_test::kWidth;
using Bytes = std::vector<uint8_t>;

/// Pictures of one grey each, brighter from picture to picture.
class GreyCamera : public media_test::EncodingCamera {
public:
    using EncodingCamera::EncodingCamera;

    /// The grey of picture @p number, between black (16) and white (235).
    static int GreyOf(int number) { return 30 + 6 * number; }

private:
    void Draw(int number, int plane, uint8_t* bytes, int count) override {
        std::fill_n(bytes, count, static_cast<uint8_t>(plane == 0 ? GreyOf(number) : 128));
    }
};

class Stills : public test_support::RecordingsFixture {
protected:
    /// Two cameras, the second in H.265, thirty pictures each; then what @p after says.
    void Record(uint32_t channels = 0x3) {
        sample_recorder::PartitionImage& image = MakeDisk();
        sample_recorder::RecorderSettings settings;
        settings.channels = channels;
        m_recorder.emplace(image, settings);
        GreyCamera h264("libx264");
        GreyCamera h265("libx265");
        for (int number = 0; number < 30; ++number) {
            m_frames.push_back(h264.Take(number));
            m_recorder->Write(m_frames.back());
            sample_recorder::Frame other = h265.Take(number);
            other.channel = 1;
            m_recorder->Write(other);
        }
    }

    std::vector<Still> Take(int64_t time, recordings::ChannelSet channels = recordings::ChannelSet::All()) {
        m_problems.clear();
        const recordings::Disk& disk = Open();
        return media::TakeStills(
            disk, recordings::BlockList::Read(disk), {time, channels},
            [this](const recordings::Problem& problem) { m_problems.push_back(problem); });
    }

    /// The grey of a picture's middle, as it was recorded.
    static int GreyOf(const media::Picture& picture) {
        const size_t middle = (size_t{picture.height / 2} * picture.width + picture.width / 2) * 3;
        const int red = picture.pixels.at(middle);
        return 16 + (red * 219 + 127) / 255;
    }

    static constexpr recordings::ChannelSet kFirst = {0x1};

    std::optional<sample_recorder::Recorder> m_recorder;
    std::vector<sample_recorder::Frame> m_frames; ///< of channel 0
    std::vector<recordings::Problem> m_problems;
};

TEST_F(Stills, AreTheLastPicturesAtOrBeforeATime) {
    Record();
    m_recorder->PowerOff();
    for (const int number : {0, 4, 5, 13, 29}) {
        for (const int64_t after : {int64_t{0}, kStep - 1}) {
            const std::vector<Still> stills = Take(kStart + number * kStep + after);
            ASSERT_EQ(stills.size(), 2u);
            for (const Still& still : stills) {
                EXPECT_EQ(still.state, StillState::Whole);
                EXPECT_EQ(still.time, kStart + number * kStep);
                EXPECT_EQ(still.picture.width, static_cast<uint32_t>(kWidth));
                EXPECT_EQ(still.picture.height, static_cast<uint32_t>(kHeight));
                EXPECT_NEAR(GreyOf(still.picture), GreyCamera::GreyOf(number), 2) << still.channel;
            }
            EXPECT_EQ(stills[0].channel, 0u);
            EXPECT_EQ(stills[1].channel, 1u);
        }
    }
    EXPECT_TRUE(m_problems.empty());
}

TEST_F(Stills, SayWhereTheFrameLies) {
    Record();
    const Still still = Take(kStart + kStep, kFirst).at(0);
    EXPECT_EQ(still.block, 0u);
    const auto head = Image().Get<FrameHead_t>(Image().FrameOffset(still.block, still.offset));
    EXPECT_EQ(head.pts, kStart + kStep);
    EXPECT_EQ(head.chn, 0u);
}

TEST_F(Stills, NothingIsShownWhereNothingWasRecorded) {
    Record();
    m_recorder->PowerOff();
    EXPECT_TRUE(Take(kStart - 1000000).empty());
    const int64_t last = kStart + 29 * kStep;
    EXPECT_EQ(Take(last + media::kLongestShown, kFirst).at(0).state, StillState::Whole);
    const std::vector<Still> late = Take(last + media::kLongestShown + 1, kFirst);
    EXPECT_TRUE(late.empty() || late.at(0).state == StillState::NotRecorded);
    EXPECT_TRUE(Take(last + 3600 * int64_t{1000000}).empty());
    EXPECT_TRUE(Take(std::numeric_limits<int64_t>::min()).empty());
    EXPECT_TRUE(Take(std::numeric_limits<int64_t>::max()).empty());
}

TEST_F(Stills, WithoutTheirKeyFrameAreNotTakenForNotRecorded) {
    Record();
    const Still first = Take(kStart, kFirst).at(0);
    Image().Put(Image().FrameOffset(first.block, first.offset), FrameHead_t{});
    const std::vector<Still> stills = Take(kStart + kStep);
    ASSERT_EQ(stills.size(), 2u);
    EXPECT_EQ(stills[0].state, StillState::KeyFrameMissing);
    EXPECT_FALSE(stills[0].HasFrame());
    EXPECT_EQ(stills[1].state, StillState::Whole);
    EXPECT_EQ(Take(kStart + 29 * kStep, kFirst).at(0).state, StillState::Whole);
}

TEST_F(Stills, OfVideoThatIsNotKnown) {
    sample_recorder::PartitionImage& image = MakeDisk();
    sample_recorder::RecorderSettings settings;
    settings.channels = 0x1;
    sample_recorder::Recorder recorder(image, settings);
    sample_recorder::Frame frame;
    frame.pts = kStart;
    frame.type = 1;
    frame.payload = Bytes(300, 0x37);
    recorder.Write(frame);
    EXPECT_EQ(Take(kStart).at(0).state, StillState::UnknownCodec);
}

TEST_F(Stills, OfADamagedPictureAreNotTakenForWhole) {
    Record();
    m_recorder->PowerOff();
    const Still sound = Take(kStart, kFirst).at(0);
    // The second half of the key frame's payload.
    const auto size = static_cast<uint32_t>(m_frames.front().payload.size());
    const Bytes rubbish(size / 2, 0xFF);
    Image().Write(Image().FrameOffset(sound.block, sound.offset) + sizeof(FrameHead_t) + size - size / 2,
                  rubbish.data(), rubbish.size());
    const Still still = Take(kStart, kFirst).at(0);
    EXPECT_TRUE(still.state == StillState::Damaged || still.state == StillState::NotDecodable)
        << static_cast<int>(still.state);
}

TEST_F(Stills, AreNotTouchedByWhatIsLostBeforeTheirKeyFrames) {
    Record();
    m_recorder->PowerOff();
    const Still lost = Take(kStart + 2 * kStep, kFirst).at(0);
    Image().Put(Image().FrameOffset(lost.block, lost.offset), FrameHead_t{});
    const std::vector<Still> later = Take(kStart + 29 * kStep);
    EXPECT_EQ(later.at(0).state, StillState::Whole);
    EXPECT_EQ(later.at(1).state, StillState::Whole);
    EXPECT_TRUE(m_problems.empty());
    EXPECT_NE(Take(kStart + 2 * kStep, kFirst).at(0).time, kStart + 2 * kStep);
    EXPECT_FALSE(m_problems.empty());
}

TEST_F(Stills, LeaveTheMessagesOfTheProcessAlone) {
    Record();
    m_recorder->PowerOff();
    const Still sound = Take(kStart, kFirst).at(0);
    const auto size = static_cast<uint32_t>(m_frames.front().payload.size());
    const uint64_t payload = Image().FrameOffset(sound.block, sound.offset) + sizeof(FrameHead_t);
    const Bytes rubbish(6, 0x00);
    Image().Write(payload + size - rubbish.size(), rubbish.data(), rubbish.size());
    // A program may take messages to a place that waits for its other threads; a child has none of these.
    av_log_set_callback([](void*, int, const char*, va_list) { _exit(1); });
    const Still still = Take(kStart, kFirst).at(0);
    av_log_set_callback(av_log_default_callback);
    EXPECT_EQ(still.state, StillState::Damaged);
}

TEST_F(Stills, EndWhenTheirWatchSaysSo) {
    Record();
    const recordings::Disk& disk = Open();
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    EXPECT_THROW(media::TakeStills(disk, blocks, {kStart, kFirst}, {},
                                   [](const recordings::Progress&) { return false; }),
                 recordings::Error);
}

// ---- files

class Series : public ::testing::Test {
protected:
    /// Ten pictures of a camera: a key frame, four after it, and the same again.
    static std::vector<media::SeriesFrame> Frames(const char* encoder) {
        GreyCamera camera(encoder);
        std::vector<media::SeriesFrame> frames;
        for (int number = 0; number < 10; ++number) {
            frames.push_back({camera.Take(number).payload, true});
        }
        return frames;
    }

    /// The grey in the middle of a JPEG file, and its height.
    static std::pair<int, int> Read(const Bytes& jpeg) {
        const AVCodec* const decoder = avcodec_find_decoder(AV_CODEC_ID_MJPEG);
        const media::Codec codec(avcodec_alloc_context3(decoder));
        const media::Packet packet(av_packet_alloc());
        AVFrame* frame = av_frame_alloc();
        std::pair<int, int> read = {-1, -1};
        if (avcodec_open2(codec.get(), decoder, nullptr) >= 0 &&
            av_new_packet(packet.get(), static_cast<int>(jpeg.size())) >= 0) {
            std::copy(jpeg.begin(), jpeg.end(), packet->data);
            if (avcodec_send_packet(codec.get(), packet.get()) >= 0 &&
                avcodec_receive_frame(codec.get(), frame) >= 0) {
                const int value = frame->data[0][frame->linesize[0] * (frame->height / 2) + frame->width / 2];
                read = {16 + (value * 219 + 127) / 255, frame->height};
            }
        }
        av_frame_free(&frame);
        return read;
    }
};

TEST_F(Series, IsAPictureOfEveryWantedFrame) {
    for (const char* const encoder : {"libx264", "libx265"}) {
        std::vector<media::SeriesFrame> frames = Frames(encoder);
        for (const int unwanted : {0, 1, 7}) {
            frames[static_cast<size_t>(unwanted)].wanted = false;
        }
        const auto pictures = media::DecodeSeries(frames, 2160);
        ASSERT_TRUE(pictures) << encoder;
        ASSERT_EQ(pictures->size(), 7u);
        size_t at = 0;
        for (const int number : {2, 3, 4, 5, 6, 8, 9}) {
            const auto [grey, height] = Read(pictures->at(at++));
            EXPECT_NEAR(grey, GreyCamera::GreyOf(number), 2) << encoder << number;
            EXPECT_EQ(height, kHeight);
        }
    }
}

TEST_F(Series, IsMadeSmaller) {
    const auto pictures = media::DecodeSeries(Frames("libx265"), 32);
    ASSERT_TRUE(pictures);
    EXPECT_EQ(Read(pictures->at(9)).second, 32);
    EXPECT_NEAR(Read(pictures->at(9)).first, GreyCamera::GreyOf(9), 2);
}

TEST_F(Series, HasNothingWhereNoPictureCanBeDecoded) {
    std::vector<media::SeriesFrame> frames = Frames("libx265");
    frames.erase(frames.begin()); // the key frame
    const auto pictures = media::DecodeSeries(frames, 720);
    ASSERT_TRUE(pictures);
    ASSERT_EQ(pictures->size(), 9u);
    EXPECT_TRUE(pictures->front().empty());
    EXPECT_TRUE(media::DecodeSeries({}, 720)->empty());
    EXPECT_TRUE(media::DecodeSeries({{Bytes(300, 0x37), true}}, 720)->front().empty());
}

TEST_F(Series, OfAHostileStreamEnds) {
    for (const char* const encoder : {"libx264", "libx265"}) {
        for (unsigned seed = 1; seed <= 20; ++seed) {
            std::vector<media::SeriesFrame> frames = Frames(encoder);
            unsigned random = seed;
            for (media::SeriesFrame& frame : frames) {
                for (size_t i = 60; i < frame.payload.size(); ++i) {
                    random = random * 1664525 + 1013904223;
                    if (random >> 28 == 0) {
                        frame.payload[i] = static_cast<uint8_t>(random >> 16);
                    }
                }
            }
            const auto pictures = media::DecodeSeries(frames, 720);
            EXPECT_TRUE(!pictures || pictures->size() == frames.size());
        }
    }
}

TEST(PictureFiles, PngKeepsEveryPixel) {
    media::Picture picture = {3, 2, {255, 0, 0, 0, 255, 0, 0, 0, 255, 1, 2, 3, 40, 50, 60, 255, 255, 255}};
    const Bytes file = media::EncodePicture(picture, media::PictureFormat::Png);
    ASSERT_GT(file.size(), 8u);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 8), (Bytes{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}));
    const media::Codec codec(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_PNG)));
    ASSERT_EQ(avcodec_open2(codec.get(), nullptr, nullptr), 0);
    const media::Packet packet(av_packet_alloc());
    ASSERT_EQ(av_new_packet(packet.get(), static_cast<int>(file.size())), 0);
    std::copy(file.begin(), file.end(), packet->data);
    AVFrame* frame = av_frame_alloc();
    ASSERT_EQ(avcodec_send_packet(codec.get(), packet.get()), 0);
    ASSERT_EQ(avcodec_receive_frame(codec.get(), frame), 0);
    EXPECT_EQ(frame->format, AV_PIX_FMT_RGB24);
    for (size_t row = 0; row < 2; ++row) {
        const uint8_t* const from = frame->data[0] + row * static_cast<size_t>(frame->linesize[0]);
        EXPECT_TRUE(
            std::equal(from, from + 9, picture.pixels.begin() + static_cast<std::ptrdiff_t>(row * 9)));
    }
    av_frame_free(&frame);
}

TEST(PictureFiles, JpegIsOne) {
    const Bytes file = media::EncodePicture({64, 32, Bytes(64 * 32 * 3, 90)}, media::PictureFormat::Jpeg);
    ASSERT_GT(file.size(), 4u);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 3), (Bytes{0xFF, 0xD8, 0xFF}));
    EXPECT_EQ(Bytes(file.end() - 2, file.end()), (Bytes{0xFF, 0xD9}));
}

} // namespace
