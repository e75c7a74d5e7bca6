// What the sample recorder writes, read back by hand: these tests know the format from its byte offsets
// alone.

#include "sample_recorder/recorder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/indexed_ring.h"
#include "support/printed.h"
#include "support/temp_dir.h"

namespace {

using namespace sample_recorder;
using test_support::TempDir;

constexpr uint32_t kStart = 1700000000;

class RecorderTest : public ::testing::Test {
protected:
    PartitionImage& Make(uint32_t blockCount, uint32_t fmtVersion = 0, uint32_t blockSize = 0x10000) {
        Format format;
        format.blockCount = blockCount;
        format.blockSize = blockSize;
        format.fmtVersion = fmtVersion;
        m_image.emplace(PartitionImage::Create(m_dir.File("disk"), format));
        return *m_image;
    }

    template <typename T>
    T At(uint64_t offset) const {
        return m_image->Get<T>(offset);
    }

    /// The frames of a block from its first on, up to the first thing that is none.
    std::vector<Frame> Frames(uint32_t block, uint32_t headArea = 840) const {
        std::vector<Frame> frames;
        const uint64_t start = 0x800000 + uint64_t{block} * m_image->BlockSize() + headArea;
        const uint64_t end =
            0x800000 + uint64_t{block + 1} * m_image->BlockSize() - 0x1000; // index area of 4 KiB
        for (uint64_t at = start; at + 24 <= end && At<uint32_t>(at + 8) == 0xAA55AA55;) {
            Frame frame;
            frame.pts = At<int64_t>(at);
            frame.type = At<uint32_t>(at + 12);
            frame.channel = At<uint32_t>(at + 16);
            frame.payload.resize(At<uint32_t>(at + 20));
            m_image->Read(at + 24, frame.payload.data(), frame.payload.size());
            at += 24 + frame.payload.size();
            EXPECT_LE(at, end);
            frames.push_back(std::move(frame));
        }
        return frames;
    }

    static Frame MakeFrame(uint32_t second, uint32_t type, uint32_t channel, size_t bytes) {
        Frame frame;
        frame.pts = (int64_t{kStart} + second) * 1000000;
        frame.type = type;
        frame.channel = channel;
        frame.payload.assign(bytes, static_cast<uint8_t>(second));
        return frame;
    }

    static RecorderSettings Channels(uint32_t set) {
        RecorderSettings settings;
        settings.channels = set;
        return settings;
    }

    TempDir m_dir;
    std::optional<PartitionImage> m_image;
};

TEST_F(RecorderTest, FormatsAPartition) {
    Make(9);
    EXPECT_EQ(At<uint32_t>(0), 0xAA55AA55u);
    EXPECT_EQ(At<uint32_t>(4), 0u);
    EXPECT_EQ(At<uint32_t>(8), 9u);
    EXPECT_EQ(At<uint32_t>(12), 0x10000u);
    const auto bits = At<uint32_t>(16);
    const auto counters = At<uint32_t>(20);
    const auto bitsBackup = At<uint32_t>(24);
    const auto countersBackup = At<uint32_t>(28);
    EXPECT_GE(bits, 200u);
    EXPECT_GE(counters, bits + 2);
    EXPECT_GE(bitsBackup, counters + 9);
    EXPECT_GE(countersBackup, bitsBackup + 2);
    EXPECT_LE(countersBackup + 9, 0x800000u);
    for (uint32_t block = 0; block < 9; ++block) {
        EXPECT_EQ(At<uint32_t>(0x800000 + block * 0x10000), 0xAA55AA55u);
        EXPECT_EQ(At<uint32_t>(0x800000 + block * 0x10000 + 4), 0u); // RecTime
        EXPECT_EQ(At<uint32_t>(0x800000 + block * 0x10000 + 8), 0u); // RecSeq
    }
    EXPECT_EQ(std::filesystem::file_size(m_dir.File("disk")), 0x800000u + 9 * 0x10000);
    m_image->SetBad(8);
    m_image->SetSuspect(7, 5);
    EXPECT_EQ(At<uint8_t>(bits + 1), 1);
    EXPECT_EQ(At<uint8_t>(bitsBackup + 1), 1);
    EXPECT_EQ(At<uint8_t>(counters + 7), 5);
    EXPECT_EQ(At<uint8_t>(countersBackup + 7), 5);
    m_image->SetBad(8, false);
    EXPECT_EQ(At<uint8_t>(bits + 1), 0);
}

TEST_F(RecorderTest, DiskTypeChoosesTheMagic) {
    Format format;
    format.diskType = 34;
    const auto image = PartitionImage::Create(m_dir.File("disk"), format);
    EXPECT_EQ(image.Get<uint32_t>(0), 0xAA55AA50u);
}

TEST_F(RecorderTest, OverwritesNothing) {
    std::ofstream(m_dir.File("precious")) << "do not lose this";
    EXPECT_THROW(PartitionImage::Create(m_dir.File("precious"), {}), Error);
    EXPECT_THROW(PartitionImage::Create("/dev/null", {}), Error);
    std::ifstream file(m_dir.File("precious"));
    std::string text;
    std::getline(file, text);
    EXPECT_EQ(text, "do not lose this");
}

TEST_F(RecorderTest, RefusesGeometryThatHoldsNoBlock) {
    Format format;
    format.blockCount = 0;
    EXPECT_THROW(PartitionImage::Create(m_dir.File("disk"), format), Error);
    format.blockCount = 1;
    format.blockSize = 4935;
    EXPECT_THROW(PartitionImage::Create(m_dir.File("disk"), format), Error);
    format.blockSize = 0x10000;
    format.blockCount = 0x800000; // tables larger than the room before block 0
    EXPECT_THROW(PartitionImage::Create(m_dir.File("disk"), format), Error);
}

TEST_F(RecorderTest, WritesFramesIndexAndTail) {
    Make(2);
    RecorderSettings settings = Channels(0x21);
    settings.vehicleNum = "ABC";
    settings.vehicleId = "vehicle";
    settings.properties[5].FrameRate = 25;
    Recorder recorder(*m_image, settings);
    recorder.Write(MakeFrame(0, kVideoI, 0, 1000));
    recorder.Write(MakeFrame(1, kVideoP, 0, 100));
    recorder.Write(MakeFrame(2, kVideoI, 5, 500));
    recorder.WriteEvent((int64_t{kStart} + 3) * 1000000, 0x10, 0);
    recorder.WriteEvent((int64_t{kStart} + 3) * 1000000, 0x20, 0, false);
    recorder.Write(MakeFrame(4, kAudio, 5, 320));
    recorder.Write(MakeFrame(20, kVideoI, 5, 400)); // 16 s after: a new segment
    EXPECT_EQ(recorder.CurrentBlock(), 0u);
    recorder.PowerOff();
    EXPECT_EQ(recorder.CurrentBlock(), std::nullopt);

    const uint64_t block = 0x800000;
    EXPECT_EQ(At<uint32_t>(block + 4), kStart);
    EXPECT_EQ(At<uint32_t>(block + 8), 1u);
    EXPECT_EQ(At<uint32_t>(block + 12), 10u);
    EXPECT_EQ(At<uint32_t>(block + 16), 30u);
    EXPECT_EQ(At<uint32_t>(block + 20), 0x00434241u); // "ABC"
    EXPECT_EQ(At<uint8_t>(block + 36), 'v');
    EXPECT_EQ(At<uint32_t>(block + 68), 0x21u);
    EXPECT_EQ(At<uint8_t>(block + 72 + 5 * 24 + 5), 25);
    // Frames at 0, 1024, 1148, 1672, 1712, 1752, 2096; the end at 2520.
    const auto frames = Frames(0);
    ASSERT_EQ(frames.size(), 7u);
    EXPECT_EQ(frames[3].type, 4u);
    EXPECT_EQ(frames[3].payload[0], 0x10);
    EXPECT_EQ(frames[3].payload[9], 1);
    EXPECT_EQ(frames[4].payload[9], 0);
    // End marker: low word of the time and all other words ones, high word zero.
    EXPECT_EQ(At<uint64_t>(block + 840 + 2520), 0xFFFFFFFFu);
    EXPECT_EQ(At<uint32_t>(block + 840 + 2520 + 8), 0xFFFFFFFFu);
    EXPECT_EQ(At<uint64_t>(block + 840 + 2520 + 16), 0xFFFFFFFFFFFFFFFFu);

    const uint64_t index = block + 0xF000;
    EXPECT_EQ(At<uint32_t>(index + 4 * 0), 1u);
    EXPECT_EQ(At<uint32_t>(index + 4 * 5), 2u);
    EXPECT_EQ(At<uint32_t>(index + 128 + 4 * 0), 1u);
    EXPECT_EQ(At<uint32_t>(index + 128 + 4 * 5), 2u);
    EXPECT_EQ(At<uint32_t>(index + 256), 1u);
    // I-frames: channel 0 at 260, channel 5 at 276 and 292.
    EXPECT_EQ(At<int64_t>(index + 260), int64_t{kStart} * 1000000);
    EXPECT_EQ(At<uint32_t>(index + 260 + 8), 0u);
    EXPECT_EQ(At<uint32_t>(index + 276 + 8), 1148u);
    EXPECT_EQ(At<uint32_t>(index + 292 + 8), 2096u);
    // Segments: channel 0 at 308, channel 5 at 328 and 348.
    const auto seg = At<RecSegItem_t>(index + 308);
    EXPECT_EQ(seg.s, kStart);
    EXPECT_EQ(seg.e, kStart + 1);
    EXPECT_EQ(seg.spos, 0u);
    EXPECT_EQ(seg.epos, 1148u);
    EXPECT_EQ(seg.totalsize, 1148u);
    const auto first = At<RecSegItem_t>(index + 328);
    EXPECT_EQ(first.s, kStart + 2);
    EXPECT_EQ(first.e, kStart + 4);
    EXPECT_EQ(first.spos, 1148u);
    EXPECT_EQ(first.epos, 2096u);
    EXPECT_EQ(first.totalsize, 524u + 344u);
    const auto second = At<RecSegItem_t>(index + 348);
    EXPECT_EQ(second.s, kStart + 20);
    EXPECT_EQ(second.spos, 2096u);
    // The event at 368.
    EXPECT_EQ(At<uint64_t>(index + 368), 0x10u);
    EXPECT_EQ(At<uint32_t>(index + 368 + 16), 1672u);

    const uint64_t tail = block + 0xFFEC;
    EXPECT_EQ(At<uint32_t>(tail + 8), 1u);
    EXPECT_EQ(At<uint32_t>(tail + 12), kStart);
    EXPECT_EQ(At<uint32_t>(tail + 16), kStart + 20);
}

TEST_F(RecorderTest, WritesTheExtendedLayout) {
    Make(2, 1);
    RecorderSettings settings = Channels(0x1);
    settings.extensionParameter = 0x0F;
    Recorder recorder(*m_image, settings);
    recorder.Write(MakeFrame(0, kVideoI, 0, 1000));
    recorder.PowerOff();
    EXPECT_NE(At<uint32_t>(0x800000 + 840), 0u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 844), 0x0Fu);
    EXPECT_EQ(Frames(0, 2048).size(), 1u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0xFE00 + 8), 1u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0xFE14), 1u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0xFE14 + 8), kStart);
}

TEST_F(RecorderTest, GoesOnInTheNextBlockAndRoundTheRing) {
    Make(3);
    m_image->SetBad(1);
    Recorder recorder(*m_image, Channels(0x1));
    // A frame area of 61440 - 840 = 60600 bytes holds three frames of 20024, and not a fourth.
    for (uint32_t i = 0; i < 8; ++i) {
        recorder.Write(MakeFrame(i, i % 3 == 0 ? kVideoI : kVideoP, 0, 20000));
    }
    // Blocks 0, 2 and again 0.
    EXPECT_EQ(recorder.CurrentBlock(), 0u);
    EXPECT_EQ(recorder.BlocksOpened(), 3u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 8), 3u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0x20000 + 8), 2u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0x10000 + 8), 0u);
    recorder.CutPower();
    // The third turn wrote two frames; behind them the first turn's third is still there, and so is its tail.
    const auto frames = Frames(0);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[1].Seconds(), kStart + 7);
    EXPECT_EQ(frames[2].Seconds(), kStart + 2);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0xFFEC + 8), 1u);
    EXPECT_EQ(Frames(2).size(), 3u);
}

TEST_F(RecorderTest, ClosesABlockWhoseIndexIsFull) {
    Make(3);
    Recorder recorder(*m_image, Channels(0x1));
    for (uint32_t i = 0; i < 300; ++i) {
        recorder.Write(MakeFrame(i, kVideoI, 0, 10));
    }
    recorder.PowerOff();
    EXPECT_EQ(recorder.BlocksOpened(), 2u);
    // 4096 - 20 - 260 = 3816 bytes of tables, of which one segment takes 20.
    EXPECT_LE(At<uint32_t>(0x800000 + 0xF000) * 16 + 20, 3816u);
    EXPECT_EQ(Frames(0).size() + Frames(1).size(), 300u);
}

TEST_F(RecorderTest, FrameAreaIsUsedToItsLastByte) {
    Make(2);
    Recorder recorder(*m_image, Channels(0x1));
    recorder.Write(MakeFrame(0, kVideoI, 0, 60600 - 24));
    EXPECT_EQ(recorder.BlocksOpened(), 1u);
    recorder.PowerOff();
    EXPECT_EQ(Frames(0).size(), 1u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0xF000), 1u); // no end marker ran into the index
    EXPECT_THROW(recorder.Write(MakeFrame(1, kVideoI, 0, 60600 - 23)), Error);
}

TEST_F(RecorderTest, PowerCutLeavesTheBlockOpen) {
    Make(2, 1);
    Recorder recorder(*m_image, Channels(0x1));
    recorder.Write(MakeFrame(0, kVideoI, 0, 1000));
    recorder.CutPower();
    EXPECT_EQ(At<uint32_t>(0x800000 + 8), 1u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0xFE00 + 8), 0u);
    EXPECT_EQ(At<uint32_t>(0x800000 + 0xFE14), 0u);
    recorder.Write(MakeFrame(100, kVideoI, 0, 1000));
    recorder.CutPowerAfterIndex();
    EXPECT_EQ(At<uint32_t>(0x810000 + 0xFE00 + 8), 0u);
    EXPECT_EQ(At<uint32_t>(0x810000 + 0xFE14), 2u);
    EXPECT_EQ(At<uint32_t>(0x810000 + 0xF000), 1u);
}

TEST_F(RecorderTest, NewJourneyBeginsANewBlock) {
    Make(4);
    Recorder recorder(*m_image, Channels(0x1));
    recorder.Write(MakeFrame(0, kVideoI, 0, 1000));
    recorder.PowerOff();
    recorder.PowerOff(); // harmless
    recorder.Write(MakeFrame(86400, kVideoI, 0, 1000));
    recorder.PowerOff();
    EXPECT_EQ(At<uint32_t>(0x810000 + 4), kStart + 86400);
    EXPECT_EQ(At<uint32_t>(0x810000 + 8), 2u);
}

TEST_F(RecorderTest, RefusesWhatItCannotRecord) {
    Make(2);
    Recorder recorder(*m_image, Channels(0x1));
    EXPECT_THROW(recorder.Write(MakeFrame(0, kVideoI, 1, 10)), Error);
    EXPECT_THROW(recorder.Write(MakeFrame(0, kVideoI, 32, 10)), Error);
    m_image->SetBad(0);
    m_image->SetBad(1);
    EXPECT_THROW(recorder.Write(MakeFrame(0, kVideoI, 0, 10)), Error);
}

TEST_F(RecorderTest, EveryGeneratedFrameComesBack) {
    Make(64);
    MergedSource written;
    MergedSource expected;
    for (uint32_t chn = 0; chn < 3; ++chn) {
        GeneratedCamera camera;
        camera.channel = chn;
        camera.framesPerSecond = 7 + chn;
        camera.audioFrameBytes = chn == 1 ? 160 : 0;
        written.Add(std::make_unique<GeneratedSource>(camera, 9, kStart, 30));
        expected.Add(std::make_unique<GeneratedSource>(camera, 9, kStart, 30));
    }
    Recorder recorder(*m_image, Channels(0x7));
    Frame frame;
    while (written.Next(frame)) {
        recorder.Write(frame);
    }
    recorder.PowerOff();
    size_t frames = 0;
    uint32_t iframes = 0;
    for (uint32_t block = 0; block < recorder.BlocksOpened(); ++block) {
        for (const Frame& found : Frames(block)) {
            ASSERT_TRUE(expected.Next(frame));
            EXPECT_EQ(found.pts, frame.pts);
            EXPECT_EQ(found.type, frame.type);
            EXPECT_EQ(found.channel, frame.channel);
            EXPECT_EQ(found.payload, frame.payload);
            iframes += found.type == kVideoI ? 1u : 0u;
            ++frames;
        }
        for (uint32_t chn = 0; chn < 3; ++chn) {
            iframes -= At<uint32_t>(0x800000 + block * 0x10000 + 0xF000 + 4 * chn);
        }
    }
    EXPECT_FALSE(expected.Next(frame));
    EXPECT_EQ(frames, 30u * (7 + 8 + 9) + 750); // video, and audio every 40 ms
    EXPECT_EQ(iframes, 0u);
    EXPECT_GT(recorder.BlocksOpened(), 3u);
}

TEST_F(RecorderTest, GeneratedFramesDependOnTheSeedAlone) {
    const auto bytes = [](uint32_t seed) {
        GeneratedSource source({}, seed, kStart, 5);
        std::vector<uint8_t> all;
        Frame frame;
        while (source.Next(frame)) {
            all.insert(all.end(), frame.payload.begin(), frame.payload.end());
        }
        return all;
    };
    EXPECT_EQ(bytes(1), bytes(1));
    EXPECT_NE(bytes(1), bytes(2));
}

TEST_F(RecorderTest, MergedFramesComeInOrder) {
    MergedSource merged;
    for (uint32_t chn = 0; chn < 5; ++chn) {
        GeneratedCamera camera;
        camera.channel = chn;
        camera.framesPerSecond = 5 + 3 * chn;
        camera.audioFrameBytes = 10;
        merged.Add(std::make_unique<GeneratedSource>(camera, 1, kStart, 3));
    }
    merged.Add(std::make_unique<GeneratedSource>(GeneratedCamera(), 1, kStart, 0)); // no frames at all
    Frame frame;
    int64_t last = 0;
    size_t count = 0;
    while (merged.Next(frame)) {
        EXPECT_GE(frame.pts, last);
        last = frame.pts;
        ++count;
    }
    EXPECT_EQ(count, 3u * (5 + 8 + 11 + 14 + 17) + 5 * 75);
}

TEST_F(RecorderTest, IndexedRingIsFullAndWrapped) {
    Make(6);
    IndexedRing ring;
    ring.newest = 2;
    ring.firstTime = kStart;
    ring.secondsPerBlock = 100;
    ring.segmentsPerChannel = 2;
    ring.iframesPerChannel = 3;
    ring.eventsPerBlock = 1;
    WriteIndexedRing(*m_image, ring);
    EXPECT_EQ(At<uint32_t>(0x830000 + 8), 1u);
    EXPECT_EQ(At<uint32_t>(0x820000 + 8), 6u);
    EXPECT_EQ(At<uint32_t>(0x820000 + 4), kStart + 500);
    EXPECT_EQ(At<uint32_t>(0x82F000 + 4 * 3), 3u);
    EXPECT_EQ(At<uint32_t>(0x82F000 + 128), 2u);
    EXPECT_EQ(At<uint32_t>(0x82F000 + 256), 1u);
    EXPECT_EQ(At<uint32_t>(0x82FFEC + 8), 6u);
    // Four channels of three I-frames each, then the segments: the second of channel 0.
    const auto seg = At<RecSegItem_t>(0x82F000 + 260 + 12 * 16 + 20);
    EXPECT_EQ(seg.s, kStart + 550);
    EXPECT_EQ(seg.e, kStart + 599);
    // A block of 65,536 bytes has 60,600 for frames: an eighth for each of the eight segments.
    EXPECT_EQ(seg.totalsize, 7575u);
    EXPECT_EQ(seg.spos, 7575u);
    EXPECT_EQ(seg.epos, 2 * 7575u);
}

TEST_F(RecorderTest, IndexTooLargeForItsAreaIsRefused) {
    Make(1);
    auto contents = BlockContents::Closed(1, 100, 200);
    for (int i = 0; i < 200; ++i) {
        contents.Segment(0, 100, 200, 10);
    }
    EXPECT_THROW(m_image->WriteBlock(0, contents), Error);
}

TEST_F(RecorderTest, ReadingBeyondTheFileFails) {
    Make(1);
    EXPECT_THROW(At<uint32_t>(0x810000 - 2), Error);
}

} // namespace
