// Four disks in four threads of one process, under the thread sanitizer: none knows of the others.

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/health.h"
#include "recordings/range_frames.h"
#include "recordings/records.h"
#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "support/temp_dir.h"

/// The first race ends the program, so that its test counts as failed.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "halt_on_error=1";
}

namespace test_support {

namespace {

using namespace recordings;
using sample_recorder::PartitionImage;

constexpr uint32_t kDisks = 4;
constexpr uint32_t kSeconds = 20;
constexpr uint32_t kFramesPerSecond = 5;

/// A frame's head has its length here.
constexpr uint32_t kLengthInHead = offsetof(FrameHead_t, len);

/// What was found on a disk.
struct Found {
    std::string text; ///< all of it, a line each
    uint64_t frames = 0;
    uint64_t events = 0;
    bool anyLoss = false;
};

bool operator==(const Found& one, const Found& other) {
    return one.text == other.text && one.frames == other.frames && one.events == other.events &&
           one.anyLoss == other.anyLoss;
}

Found ReadAll(const std::string& path) {
    Found found;
    ProblemList problems;
    const auto line = [&](uint64_t one, uint64_t two, uint64_t three) {
        found.text += std::to_string(one) + " " + std::to_string(two) + " " + std::to_string(three) + "\n";
    };
    const Disk disk(OpenSource(path));
    const BlockList blocks = BlockList::Read(disk);
    ForEachRecord(disk, blocks, {}, problems.Sink(), {},
                  [&](const Record& record) { line(record.channel, record.start, record.end); });
    for (const Event& event : FindEvents(disk, blocks, {}, kAllEvents, problems.Sink())) {
        line(event.block, event.type, event.time);
        ++found.events;
    }
    RangeFrames frames(disk, blocks, {}, problems.Sink());
    for (Frame frame; frames.Next(frame); ++found.frames) {
        line(frame.block, frame.offset, frame.size == 0 ? 0 : frame.data[frame.size - 1]);
    }
    CheckHealth(disk, blocks, {true}, [&](const Finding& finding) { problems.Add(finding.problem); });
    for (const Problem& problem : problems.All()) {
        found.text += Describe(problem, {}) + "\n";
    }
    found.anyLoss = problems.AnyLoss();
    return found;
}

class Threads : public ::testing::Test {
protected:
    /// Disk @p number: both layouts, and more channels on each.
    PartitionImage Record(uint32_t number) {
        sample_recorder::Format format;
        format.fmtVersion = number % 2;
        format.blockCount = 4;
        format.blockSize = 0x10000;
        m_paths.push_back(m_dir.File("disk" + std::to_string(number)));
        PartitionImage image = PartitionImage::Create(m_paths.back(), format);
        sample_recorder::RecorderSettings settings;
        settings.channels = (2u << number) - 1;
        sample_recorder::Recorder recorder(image, settings);
        sample_recorder::MergedSource frames;
        for (uint32_t channel = 0; channel <= number; ++channel) {
            sample_recorder::GeneratedCamera camera;
            camera.channel = channel;
            camera.framesPerSecond = kFramesPerSecond;
            camera.gop = kFramesPerSecond;
            camera.iFrameBytes = 300;
            camera.pFrameBytes = 80;
            frames.Add(std::make_unique<sample_recorder::GeneratedSource>(camera, number, 1700000000 + number,
                                                                          kSeconds));
        }
        sample_recorder::Frame frame;
        while (frames.Next(frame)) {
            recorder.Write(frame);
        }
        recorder.WriteEvent(1700000010000000, 1, 0);
        recorder.PowerOff();
        return image;
    }
    const std::string& Path(uint32_t number) const { return m_paths.at(number); }

private:
    TempDir m_dir;
    std::vector<std::string> m_paths;
};

TEST_F(Threads, ReadFourDisksAsOneThreadReadsEach) {
    std::vector<Found> alone(kDisks);
    for (uint32_t number = 0; number < kDisks; ++number) {
        PartitionImage image = Record(number);
        if (number == kDisks - 1) { // one of them is damaged: the length of its first frame
            image.Put<uint32_t>(image.FrameOffset(0, kLengthInHead), 0xFFFFFF);
        }
        alone[number] = ReadAll(Path(number));
    }
    std::vector<Found> together(kDisks);
    std::vector<std::thread> threads;
    for (uint32_t number = 0; number < kDisks; ++number) {
        threads.emplace_back([&, number] { together[number] = ReadAll(Path(number)); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (uint32_t number = 0; number < kDisks; ++number) {
        SCOPED_TRACE(number);
        EXPECT_TRUE(together[number] == alone[number]) << together[number].text;
        EXPECT_EQ(together[number].anyLoss, number == kDisks - 1) << together[number].text;
        EXPECT_EQ(together[number].events, 1u);
    }
    for (uint32_t number = 0; number + 1 < kDisks; ++number) {
        EXPECT_EQ(together[number].frames, (number + 1) * kSeconds * kFramesPerSecond) << number;
    }
}

} // namespace

} // namespace test_support
