// A check that decodes: nothing on sound pictures, and the frame of each that does not decode.

#include "media/picture_check.h"

#include <gtest/gtest.h>

#include <map>

#include "media/encoding_camera.h"
#include "picture_states.h"
#include "recordings/recordings_fixture.h"
#include "sample_recorder/recorder.h"

namespace {

using media::VideoCodec;
using media_test::kDistance;
using media_test::kStart;
using media_test::kStep;
using recordings::Finding;
using recordings::ProblemKind;
using sample_recorder::Frame;
using Bytes = std::vector<uint8_t>;

constexpr int kPictures = 20;

/// Pictures full of detail that moves.
class BusyCamera : public media_test::EncodingCamera {
public:
    using EncodingCamera::EncodingCamera;

private:
    void Draw(int number, int /*plane*/, uint8_t* bytes, int count) override {
        for (int at = 0; at < count; ++at) {
            m_seed = m_seed * 1103515245 + 12345;
            bytes[at] =
                static_cast<uint8_t>((static_cast<uint32_t>(at / 3 + number * 7) + (m_seed >> 28)) & 0xFF);
        }
    }

    uint32_t m_seed = 1;
};

std::vector<Bytes> Payloads(VideoCodec codec) {
    BusyCamera camera(codec == VideoCodec::H264 ? "libx264" : "libx265");
    std::vector<Bytes> payloads;
    for (int number = 0; number < kDistance; ++number) {
        payloads.push_back(camera.Take(number).payload);
    }
    return payloads;
}

class PictureCheck : public test_support::RecordingsFixture {
protected:
    /// Camera 3 sends H.264, camera 5 H.265.
    void Record() {
        sample_recorder::RecorderSettings settings;
        settings.channels = 0x28;
        sample_recorder::Format format;
        format.blockSize = 4 << 20; // one holds all
        sample_recorder::Recorder recorder(MakeDisk(format), settings);
        BusyCamera h264("libx264");
        BusyCamera h265("libx265");
        uint32_t offset = 0;
        for (int number = 0; number < kPictures; ++number) {
            for (const uint32_t channel : {3u, 5u}) {
                Frame frame = (channel == 3 ? h264 : h265).Take(number);
                frame.channel = channel;
                ASSERT_EQ(frame.type, number % kDistance == 0 ? 1u : 0u);
                recorder.Write(frame);
                m_offsets[channel].push_back(offset);
                m_sizes[channel].push_back(static_cast<uint32_t>(frame.payload.size()));
                offset += static_cast<uint32_t>(sizeof(FrameHead_t) + frame.payload.size());
            }
        }
        recorder.PowerOff();
    }

    /// All but the first quarter of a payload is other bytes; its length stays.
    void Damage(uint32_t channel, size_t number) {
        const uint32_t size = m_sizes[channel].at(number);
        const Bytes rubbish(size - size / 4, 0xFF);
        Image().Write(Image().FrameOffset(0, m_offsets[channel].at(number)) + sizeof(FrameHead_t) + size / 4,
                      rubbish.data(), rubbish.size());
    }

    std::vector<Finding> Check() {
        m_check = media::PictureCheck();
        std::vector<Finding> findings;
        const recordings::Disk& disk = Open();
        recordings::CheckRequest request;
        request.full = true;
        request.payloads = &m_check;
        CheckHealth(disk, recordings::BlockList::Read(disk), request,
                    [&](const Finding& finding) { findings.push_back(finding); });
        return findings;
    }

    std::map<uint32_t, std::vector<uint32_t>> m_offsets; ///< of each channel's frames
    std::map<uint32_t, std::vector<uint32_t>> m_sizes;
    media::PictureCheck m_check;
};

TEST_F(PictureCheck, FindsNothingOnASoundDisk) {
    Record();
    EXPECT_TRUE(Check().empty());
    EXPECT_EQ(m_check.Decoded(), uint64_t{2 * kPictures});
    EXPECT_EQ(m_check.LeftOut(), 0u);
}

TEST_F(PictureCheck, NamesTheFrameThatDoesNotDecode) {
    for (const uint32_t channel : {3u, 5u}) {
        for (const size_t number : {size_t{10}, size_t{17}}) { // a key frame, and one that builds on others
            Record();
            Damage(channel, number);
            const std::vector<Finding> findings = Check();
            ASSERT_FALSE(findings.empty()) << channel << " " << number;
            const recordings::Problem& problem = findings.front().problem;
            EXPECT_EQ(problem.kind, ProblemKind::PicturesDamaged);
            EXPECT_EQ(problem.severity, recordings::Severity::Loss);
            EXPECT_EQ(problem.block, 0u);
            EXPECT_EQ(problem.offset, m_offsets[channel].at(number));
            EXPECT_EQ(problem.channel, channel);
            EXPECT_EQ(problem.before, kStart + static_cast<int64_t>(number) * kStep);
            EXPECT_EQ(findings.front().place, Image().FrameOffset(0, m_offsets[channel].at(number)));
            EXPECT_EQ(findings.front().channels.bits, 1u << channel);
            EXPECT_EQ(m_check.Decoded(), uint64_t{2 * kPictures});
            m_offsets.clear();
            m_sizes.clear();
        }
    }
}

TEST_F(PictureCheck, PicturesInARowAreOneFinding) {
    Record();
    for (const size_t number : {size_t{6}, size_t{7}, size_t{8}}) {
        Damage(3, number);
    }
    const std::vector<Finding> findings = Check();
    ASSERT_FALSE(findings.empty());
    EXPECT_EQ(findings.front().problem.offset, m_offsets[3].at(6));
    EXPECT_GE(findings.front().problem.count, 3u);
    EXPECT_EQ(findings.front().problem.before, kStart + 6 * kStep);
    EXPECT_GE(findings.front().problem.after.value_or(0), kStart + 8 * kStep);
}

TEST_F(PictureCheck, WhatComesAfterALossIsLeftOut) {
    Record();
    // Nothing is left of picture 6 of camera 3: no picture of any camera up to its next key frame is judged.
    const uint64_t start = Image().FrameOffset(0, m_offsets[3].at(6));
    const Bytes rubbish(m_offsets[5].at(6) - m_offsets[3].at(6), 0x11);
    Image().Write(start, rubbish.data(), rubbish.size());
    for (const Finding& finding : Check()) {
        EXPECT_NE(finding.problem.kind, ProblemKind::PicturesDamaged);
    }
    EXPECT_GE(m_check.LeftOut(), 6u);
    EXPECT_GE(m_check.Decoded(), 20u);
}

TEST_F(PictureCheck, IsEndedByWhatIsCalledMeanwhile) {
    Record();
    m_check = media::PictureCheck([] { throw std::runtime_error("enough"); });
    const recordings::Disk& disk = Open();
    recordings::CheckRequest request;
    request.full = true;
    request.payloads = &m_check;
    EXPECT_THROW(CheckHealth(disk, recordings::BlockList::Read(disk), request, [](const Finding&) {}),
                 std::runtime_error);
    EXPECT_EQ(m_check.Decoded(), 0u);
}

TEST_F(PictureCheck, VideoThatIsNotKnownIsLeftOut) {
    sample_recorder::RecorderSettings settings;
    settings.channels = 0x1;
    sample_recorder::Recorder recorder(MakeDisk(), settings);
    for (int number = 0; number < 8; ++number) {
        Frame frame;
        frame.pts = kStart + number * kStep;
        frame.type = number % 4 == 0 ? 1 : 0;
        frame.payload = Bytes(300, 0x37);
        recorder.Write(frame);
    }
    recorder.PowerOff();
    EXPECT_TRUE(Check().empty());
    EXPECT_EQ(m_check.LeftOut(), 8u);
    EXPECT_EQ(m_check.Decoded(), 0u);
}

TEST(PictureStates, AnswerForEveryFrame) {
    for (const VideoCodec codec : {VideoCodec::H264, VideoCodec::H265}) {
        std::vector<Bytes> payloads = Payloads(codec);
        EXPECT_EQ(media::DecodePictures(codec, payloads), std::vector<bool>(kDistance, true));
        payloads[4].clear();
        EXPECT_EQ(media::DecodePictures(codec, payloads), (std::vector<bool>{true, true, true, true, false}));
        payloads.assign(3, Bytes(500, 0xFF));
        EXPECT_EQ(media::DecodePictures(codec, payloads), std::vector<bool>(3, false));
    }
}

} // namespace
