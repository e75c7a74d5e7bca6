// The sample recorder's live mode, by a clock of the test's own.

#include "sample_recorder/live_recording.h"

#include <gtest/gtest.h>

#include "sample_recorder/generated_source.h"
#include "support/temp_dir.h"

namespace {

using namespace sample_recorder;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr uint32_t kStart = 1700000000;

class LiveRecordingTest : public ::testing::Test {
protected:
    static GeneratedCamera OneFrameASecond() {
        GeneratedCamera camera;
        camera.framesPerSecond = 1;
        camera.iFrameBytes = camera.pFrameBytes = 100;
        return camera;
    }
    static RecorderSettings OneChannel() {
        RecorderSettings settings;
        settings.channels = 1;
        return settings;
    }

    test_support::TempDir m_dir;
    PartitionImage m_image = PartitionImage::Create(m_dir.File("disk"), Format());
    Recorder m_recorder{m_image, OneChannel()};
    GeneratedSource m_source{OneFrameASecond(), 1, kStart, 30};
};

TEST_F(LiveRecordingTest, WritesWhatIsDueAndNoMore) {
    const LiveRecording::Clock::time_point begin;
    LiveRecording live(m_recorder, m_source, 10, begin);
    EXPECT_TRUE(live.WriteDue(begin - milliseconds(1)));
    EXPECT_EQ(live.FramesWritten(), 0u);
    EXPECT_TRUE(live.WriteDue(begin));
    EXPECT_EQ(live.FramesWritten(), 1u);
    // Ten recorded seconds a second: half a second more makes five frames more.
    EXPECT_TRUE(live.WriteDue(begin + milliseconds(500)));
    EXPECT_EQ(live.FramesWritten(), 6u);
    EXPECT_TRUE(live.WriteDue(begin + milliseconds(599)));
    EXPECT_EQ(live.FramesWritten(), 6u);
    EXPECT_FALSE(live.WriteDue(begin + seconds(10)));
    EXPECT_EQ(live.FramesWritten(), 30u);
}

TEST_F(LiveRecordingTest, LeavesTheNewestBlockOpen) {
    LiveRecording live(m_recorder, m_source, 1000);
    live.WriteDue(LiveRecording::Clock::now() + seconds(1));
    const auto head = m_image.Get<BlockHead_t>(m_image.HeadOffset(0));
    EXPECT_EQ(head.RecSeq, 1u);
    EXPECT_EQ(head.RecTime, kStart);
    EXPECT_EQ(m_image.Get<BlockTail_t>(m_image.TailOffset(0)).RecSeq, 0u);
    m_recorder.PowerOff();
    EXPECT_EQ(m_image.Get<BlockTail_t>(m_image.TailOffset(0)).RecSeq, 1u);
}

TEST_F(LiveRecordingTest, RepeatsEventsBetweenTheFrames) {
    LiveRecording live(m_recorder, m_source, 1000);
    live.RepeatEvents(10, 0);
    live.WriteDue(LiveRecording::Clock::now() + seconds(1));
    m_recorder.PowerOff();
    // Thirty seconds from 0 to 29: events at 10 and 20.
    const uint64_t index = m_image.IndexOffset(0);
    EXPECT_EQ(m_image.Get<BlkIndexHead_t>(index).eventCount, 2u);
    const uint64_t events = index + sizeof(BlkIndexHead_t) + 3 * sizeof(IFrameItem_t) + sizeof(RecSegItem_t);
    EXPECT_EQ(m_image.Get<EventIndexItem_t>(events).pts, (int64_t{kStart} + 10) * 1000000);
    EXPECT_EQ(m_image.Get<EventIndexItem_t>(events).type, 1u);
    EXPECT_EQ(m_image.Get<EventIndexItem_t>(events + sizeof(EventIndexItem_t)).type, 2u);
}

TEST_F(LiveRecordingTest, StopsWhenToldTo) {
    LiveRecording live(m_recorder, m_source, 0.001);
    int asked = 0;
    live.Run([&] { return ++asked == 3; });
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(live.FramesWritten(), 1u);
}

TEST_F(LiveRecordingTest, RefusesToStandStill) {
    EXPECT_THROW(LiveRecording(m_recorder, m_source, 0), Error);
}

} // namespace
