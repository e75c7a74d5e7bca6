// The media frames of a time range, from block to block.

#include "recordings/range_frames.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "key_frame_gate.h"
#include "recordings/error.h"
#include "recordings/frames_fixture.h"

namespace test_support {

namespace {

using namespace sample_recorder;
using recordings::BlockList;
using recordings::FrameQuery;
using recordings::Gap;
using recordings::Progress;
using recordings::Want;
using Lines = std::vector<std::string>;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC
const Lines kNone = {};

/// What a range gave: each frame as "channel type time", in milliseconds from the start on.
struct Range {
    Lines frames;
    Lines problems;
    std::vector<Gap> gaps;
    std::vector<uint32_t> blocks;
    Progress done;
    uint64_t bytesAsked = 0;
};

class RangeFrames : public FramesFixture {
protected:
    static int64_t At(int64_t millis) { return kStart * kMicrosPerSecond + millis * 1000; }

    static std::string Line(uint32_t channel, uint32_t type, int64_t millis) {
        return std::to_string(channel) + " " + std::to_string(type) + " " + std::to_string(millis);
    }

    /// Two frames a second of some channels, 3000 bytes each (a block of 64 KiB holds some 20), a key frame every four
    /// seconds, and audio of channel 1 every second.
    void RecordCameras(int64_t from, int64_t to, uint32_t channels = 1, int64_t keyEvery = 4000) {
        for (int64_t millis = from; millis < to; millis += 500) {
            for (uint32_t channel = 0; channel < 2; ++channel) {
                if ((channels >> channel & 1) != 0) {
                    Record(At(millis), millis % keyEvery == 0 ? kVideoI : kVideoP, channel, 3000);
                }
                if (channel == 1 && (channels & 2) != 0 && millis % 1000 == 0) {
                    Record(At(millis), kAudio, 1, 40);
                }
            }
        }
    }

    FrameQuery Seconds(int64_t first, int64_t last) const {
        FrameQuery query;
        query.range = {static_cast<uint32_t>(kStart + first), static_cast<uint32_t>(kStart + last)};
        return query;
    }

    Range Get(const FrameQuery& query) {
        recordings::Disk& disk = Open();
        if (!m_password.empty()) {
            disk.Unlock(m_password);
        }
        const BlockList blocks = BlockList::Read(disk);
        const uint64_t before = Worn().BytesAsked();
        Range range;
        recordings::RangeFrames frames(disk, blocks, query, [&](const recordings::Problem& problem) {
            range.problems.push_back(Brief(problem));
        });
        for (recordings::Frame frame; frames.Next(frame);) {
            range.frames.push_back(
                Line(frame.channel, frame.type, (frame.time - kStart * kMicrosPerSecond) / 1000));
            EXPECT_EQ(frames.CurrentBlock().number, frame.block);
            EXPECT_EQ(frame.data != nullptr, query.want == Want::Payloads && frame.size != 0);
        }
        range.gaps = frames.Gaps();
        range.blocks = frames.BlocksUsed();
        range.done = frames.Done();
        range.bytesAsked = Worn().BytesAsked() - before;
        return range;
    }

    /// Recorded media frames from one time to another, both included.
    Lines Expected(int64_t from, int64_t to,
                   const std::function<bool(const RecordedFrame&)>& wanted = {}) const {
        Lines lines;
        for (const RecordedFrame& each : Recorded()) {
            const int64_t millis = (each.frame.pts - kStart * kMicrosPerSecond) / 1000;
            if (each.frame.type <= kAudio && millis >= from && millis <= to && (!wanted || wanted(each))) {
                lines.push_back(Line(each.frame.channel, each.frame.type, millis));
            }
        }
        return lines;
    }

    std::string m_password;
};

TEST_F(RangeFrames, AreTheMediaOfTheRangeInRecordingOrder) {
    Start(1, 3);
    RecordCameras(0, 20000, 3);
    RecordEvent(At(20000), 1, 0);
    Record(At(20000), 5, 0, 10);
    RecordCameras(20000, 32000, 3);
    Recorder().CutPower();
    ASSERT_GT(Recorded().back().block, 3u);
    const Range all = Get({});
    EXPECT_EQ(all.frames, Expected(0, 32000));
    EXPECT_EQ(all.problems, kNone);
    EXPECT_EQ(all.blocks.size(), Recorded().back().block + 1);
    EXPECT_EQ(all.done.done, all.done.total);
    EXPECT_GT(all.done.bytes, 32 * 2 * 2 * 3000u);
    const Range some = Get(Seconds(12, 23)); // 12 seconds is a key frame's time
    EXPECT_EQ(some.frames, Expected(12000, 23500));
    EXPECT_EQ(some.problems, kNone);
    FrameQuery second = Seconds(12, 23);
    second.channels = {2};
    EXPECT_EQ(Get(second).frames,
              Expected(12000, 23500, [](const RecordedFrame& each) { return each.frame.channel == 1; }));
    second.want = Want::Heads;
    EXPECT_EQ(Get(second).frames,
              Expected(12000, 23500, [](const RecordedFrame& each) { return each.frame.channel == 1; }));
}

TEST_F(RangeFrames, BeginWithTheKeyFrameBeforeTheRange) {
    Start(0, 3);
    RecordCameras(0, 40000, 3);
    Recorder().PowerOff();
    // Key frames come at 20 and 24 seconds; audio begins with the video of its channel.
    const Range range = Get(Seconds(23, 30));
    EXPECT_EQ(range.frames, Expected(20000, 30500));
    EXPECT_EQ(range.problems, kNone);
    FrameQuery exact = Seconds(23, 30);
    exact.decodable = false;
    EXPECT_EQ(Get(exact).frames, Expected(23000, 30500));
}

TEST_F(RangeFrames, BeginWithTheKeyFrameOfAnEarlierBlock) {
    Start(0, 1);
    RecordCameras(0, 60000, 1, 30000); // blocks last some ten seconds
    Recorder().PowerOff();
    const auto blockOf = [this](int64_t millis) {
        for (const RecordedFrame& each : Recorded()) {
            if (each.frame.pts == At(millis)) {
                return each.block;
            }
        }
        return 0u;
    };
    ASSERT_GE(blockOf(58000), blockOf(30000) + 2);
    EXPECT_EQ(Get(Seconds(58, 59)).frames, Expected(30000, 59500));
    EXPECT_EQ(Get(Seconds(58, 59)).problems, kNone);
    EXPECT_EQ(Get(Seconds(29, 31)).frames, Expected(0, 31500));
}

/// What a block that is gone held is not known: pictures that lead in from before it would be decoded on top of others
/// than they were made for, and show what never was.
TEST_F(RangeFrames, TakeNoKeyFrameFromBeforeABlockThatIsGone) {
    for (const bool named : {false, true}) {
        Start(0, 1);
        RecordCameras(0, 72000, 1, 35000); // a block each ten seconds
        Recorder().PowerOff();
        ASSERT_EQ(Of(3).front().frame.pts, At(30000));
        ASSERT_EQ(Of(5).front().frame.pts, At(50000));
        if (named) { // without a head: it is listed as wiped
            const std::vector<uint8_t> zeros(Image().BlockSize());
            Image().Write(Image().BlockStart(4), zeros.data(), zeros.size());
        } else { // as formatting leaves it: it is not listed
            Image().WriteBlock(4, BlockContents::Closed(0, 0, 0));
        }
        const Range range = Get(Seconds(64, 71)); // pictures of 35 seconds on lead there, and of 70
        EXPECT_EQ(range.frames, Expected(70000, 71500)) << named;
        EXPECT_EQ(range.problems, (Lines{"not_decodable loss block 6 channel 0 count 12"})) << named;
    }
}

/// With 32 busy channels a block may last less than a second: 32 blocks are looked into, and no more.
TEST_F(RangeFrames, TakeNoKeyFrameFromMoreThan32BlocksBefore) {
    blockCount = 40;
    Start(0, 1);
    for (int64_t second = 0; second < 37; ++second) { // a block each
        Record(At(second * 1000), second % 36 == 0 ? kVideoI : kVideoP, 0, 50000);
    }
    Recorder().PowerOff();
    ASSERT_EQ(Recorded().back().block, 36u);
    // Block 32 may reach up to second 33, where the next one begins: from there 32 blocks lead back to block 0.
    EXPECT_EQ(Get(Seconds(33, 33)).frames, Expected(0, 33000));
    EXPECT_EQ(Get(Seconds(33, 33)).problems, kNone);
    const Range range = Get(Seconds(34, 36));
    EXPECT_EQ(range.frames, Expected(36000, 36000));
    EXPECT_EQ(range.problems, (Lines{"not_decodable loss block 34 channel 0 count 1",
                                     "not_decodable loss block 35 channel 0 count 1"}));
}

/// A recording is over when nothing follows on its last picture for a while, however long the blocks last.
TEST_F(RangeFrames, BeginWithTheKeyFrameOfAnEarlierBlockThatLastsLong) {
    Start(0, 1, 0x40000); // a block lasts some forty seconds
    RecordCameras(0, 150000, 1, 60000);
    Recorder().PowerOff();
    ASSERT_LE(Of(2).front().frame.pts, At(90000)); // the key frame of second 60 lies in a block before
    ASSERT_GE(Of(2).front().frame.pts, At(60500));
    ASSERT_GE(Of(3).front().frame.pts, At(116000));
    const Range range = Get(Seconds(110, 115));
    EXPECT_EQ(range.frames, Expected(60000, 115500));
    EXPECT_EQ(range.problems, kNone);
}

TEST_F(RangeFrames, LeaveOutARecordingThatWasOver) {
    Start(0, 1);
    RecordCameras(0, 5500);
    RecordCameras(22000, 30000, 1, 4000); // begins between key frames: 24 seconds is the first
    Recorder().PowerOff();
    const Range range = Get(Seconds(20, 30));
    EXPECT_EQ(range.frames, Expected(24000, 29500));
    EXPECT_EQ(range.problems, (Lines{"not_decodable note block 0 channel 0 count 4"}));
}

TEST_F(RangeFrames, BeforeTheFirstKeyFrameAreNoLoss) {
    Start(0, 1);
    RecordCameras(1000, 12000);
    Recorder().PowerOff();
    const Range range = Get({});
    EXPECT_EQ(range.frames, Expected(4000, 12000));
    EXPECT_EQ(range.problems, (Lines{"not_decodable note block 0 channel 0 count 6"}));
}

TEST_F(RangeFrames, WaitForAKeyFrameAfterALoss) {
    Start(0, 3);
    RecordCameras(0, 9500, 3);
    Recorder().CutPower();
    // Channel 0 at 5.5 seconds is gone; nothing tells whose frame it was.
    const auto damaged = std::find_if(Recorded().begin(), Recorded().end(), [](const RecordedFrame& each) {
        return each.frame.pts == At(5500) && each.frame.channel == 0;
    });
    Image().Change<FrameHead_t>(HeadOf(*damaged), [](FrameHead_t& head) { head.sync = 0; });
    const Range range = Get({});
    EXPECT_EQ(range.frames, Expected(0, 9000, [](const RecordedFrame& each) {
                  const bool before = each.frame.pts < At(5500) || each.frame.pts >= At(8000);
                  return before || each.frame.type == kAudio;
              }));
    // Channel 0 at 6, 6.5, 7, 7.5; channel 1 at 5.5 too.
    EXPECT_EQ(range.problems,
              (Lines{"bytes_damaged loss block 1", "not_decodable loss block 1 channel 0 count 4",
                     "not_decodable loss block 1 channel 1 count 5"}));
    FrameQuery all;
    all.decodable = false;
    EXPECT_EQ(Get(all).frames.size(), Expected(0, 9000).size() - 1);
}

TEST_F(RangeFrames, OfOtherChannelsGoOnWhenTheIndexTellsThatTheyAreComplete) {
    Start(0, 3);
    RecordCameras(0, 9500, 3);
    Recorder().PowerOff();
    const auto damaged = std::find_if(Recorded().begin(), Recorded().end(), [](const RecordedFrame& each) {
        return each.frame.pts == At(5500) && each.frame.channel == 0;
    });
    Image().Change<FrameHead_t>(HeadOf(*damaged), [](FrameHead_t& head) { head.sync = 0; });
    EXPECT_EQ(Get({}).problems,
              (Lines{"bytes_damaged loss block 1", "not_decodable loss block 1 channel 0 count 4"}));
}

TEST_F(RangeFrames, TakeALaterKeyFrameWhenTheFirstIsDamaged) {
    Start(0, 1);
    RecordCameras(0, 20000);
    Recorder().PowerOff();
    Image().Change<FrameHead_t>(HeadOf(Recorded()[0]), [](FrameHead_t& head) { head.sync = 0; });
    const Range range = Get({});
    EXPECT_EQ(range.frames, Expected(4000, 20000));
    EXPECT_EQ(range.problems,
              (Lines{"bytes_damaged loss block 0", "not_decodable loss block 0 channel 0 count 7"}));
}

TEST_F(RangeFrames, MissTheirKeyFrameWhenItIsDamagedBeforeTheRange) {
    Start(0, 1);
    RecordCameras(0, 20000);
    Recorder().PowerOff();
    // The key frame of second 8.
    Image().Change<FrameHead_t>(HeadOf(Recorded()[16]), [](FrameHead_t& head) { head.sync = 0; });
    const Range range = Get(Seconds(10, 13));
    EXPECT_EQ(range.frames, Expected(12000, 13500));
    EXPECT_EQ(range.problems, (Lines{"not_decodable loss block 1 channel 0 count 4"}));
}

TEST_F(RangeFrames, DoNotReportWhatLiesElsewhere) {
    Start(0, 1);
    RecordCameras(0, 9500);
    Recorder().PowerOff();
    Image().Change<FrameHead_t>(HeadOf(Recorded()[2]), [](FrameHead_t& head) { head.sync = 0; }); // second 1
    Image().Change<FrameHead_t>(HeadOf(Recorded()[17]),
                                [](FrameHead_t& head) { head.sync = 0; }); // second 8.5
    EXPECT_EQ(Get(Seconds(4, 7)).problems, kNone);
    EXPECT_EQ(Get(Seconds(0, 7)).problems,
              (Lines{"bytes_damaged loss block 0", "not_decodable loss block 0 channel 0 count 5"}));
    EXPECT_EQ(Get(Seconds(8, 8)).problems, (Lines{"bytes_damaged loss block 0"}));
}

TEST_F(RangeFrames, WaitForAKeyFrameAfterAMissingBlock) {
    Start(0, 1);
    RecordCameras(0, 60000);
    Recorder().PowerOff();
    ASSERT_GE(Recorded().back().block, 4u);
    const std::vector<uint8_t> zeros(Image().BlockSize());
    Image().Write(Image().BlockStart(2), zeros.data(), zeros.size());
    const int64_t lost = Of(2).front().frame.pts;
    int64_t resumed = Of(3).front().frame.pts;
    uint64_t leftOut = 0;
    while (resumed % 4000000 != kStart * kMicrosPerSecond % 4000000) {
        resumed += 500000;
        ++leftOut;
    }
    ASSERT_GT(leftOut, 0u);
    const Range range = Get({});
    EXPECT_EQ(range.frames, Expected(0, 60000, [&](const RecordedFrame& each) {
                  return each.frame.pts < lost || each.frame.pts >= resumed;
              }));
    EXPECT_EQ(range.problems,
              (Lines{"block_wiped loss block 2",
                     "not_decodable loss block 3 channel 0 count " + std::to_string(leftOut)}));
}

TEST_F(RangeFrames, ByTheirOwnTimeWhenTheClockWasSetBack) {
    Start(0, 1);
    RecordCameras(3600000, 3650000);
    Recorder().PowerOff();
    RecordCameras(0, 20000);
    Recorder().PowerOff();
    EXPECT_EQ(Get(Seconds(0, 19)).frames, Expected(0, 19500));
    EXPECT_EQ(Get(Seconds(3604, 3610)).frames, Expected(3604000, 3610500));
    const Range all = Get({});
    EXPECT_EQ(all.frames, Expected(0, 4000000));
    EXPECT_EQ(all.problems, kNone);
}

TEST_F(RangeFrames, OfAnOpenBlockAreNotThoseOfAnotherCentury) {
    Start(0, 1);
    RecordCameras(0, 8000);
    Recorder().CutPower();
    FrameQuery query;
    query.range = {0xF0000000, 0xFFFFFFFF};
    const Range range = Get(query);
    EXPECT_EQ(range.frames, kNone);
    EXPECT_EQ(range.problems, kNone);
    EXPECT_EQ(range.blocks, std::vector<uint32_t>());
}

TEST_F(RangeFrames, TellWhereNothingWasRecorded) {
    Start(0, 3);
    RecordCameras(0, 4000, 3);
    RecordCameras(16000, 20000, 1); // channel 1 pauses
    RecordCameras(20000, 24000, 3);
    Recorder().PowerOff();
    const Range range = Get({});
    ASSERT_EQ(range.gaps.size(), 2u); // channel 0 paused for 12.5 seconds alone
    EXPECT_EQ(range.gaps[0].channel, 1u);
    EXPECT_TRUE(range.gaps[0].video);
    EXPECT_EQ(range.gaps[0].before, At(3500));
    EXPECT_EQ(range.gaps[0].after, At(20000));
    EXPECT_FALSE(range.gaps[1].video);
    EXPECT_EQ(range.gaps[1].before, At(3000));
    EXPECT_EQ(range.gaps[1].block, 1u);
}

TEST_F(RangeFrames, OfLockedChannelsAreLeftOutAndNamed) {
    Start(0, 3);
    RecordCameras(0, 8000, 3);
    Recorder().PowerOff();
    Image().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 1;
        std::memcpy(head.CipherCode, "open", 5);
    });
    const Range locked = Get({});
    EXPECT_EQ(locked.frames,
              Expected(0, 8000, [](const RecordedFrame& each) { return each.frame.channel == 1; }));
    EXPECT_EQ(locked.problems, (Lines{"channels_locked note"}));
    m_password = "open";
    EXPECT_EQ(Get({}).frames, Expected(0, 8000));
    EXPECT_EQ(Get({}).problems, kNone);
}

/// An export of one camera must not end with a loss that is another camera's.
TEST_F(RangeFrames, OfOneChannelDoNotReportWhatTheIndexHasWrongOfAnother) {
    Start(0, 3);
    RecordCameras(0, 4000, 3);
    Recorder().PowerOff();
    // The segment of channel 1 is the last entry: one of channel 0 and a key frame of each come before it.
    const uint64_t segment =
        Image().IndexOffset(0) + sizeof(BlkIndexHead_t) + 2 * sizeof(IFrameItem_t) + sizeof(RecSegItem_t);
    Image().Change<RecSegItem_t>(segment, [](RecSegItem_t& item) { item.totalsize += 1000; });
    FrameQuery query;
    query.channels = {1};
    EXPECT_EQ(Get(query).problems, kNone);
    query.channels = {2};
    EXPECT_EQ(Get(query).problems, (Lines{"index_damaged note block 0 channel 1"}));
}

TEST_F(RangeFrames, EndWhenTheWatchSaysSo) {
    Start(0, 1);
    RecordCameras(0, 60000);
    Recorder().PowerOff();
    recordings::Disk& disk = Open();
    const BlockList blocks = BlockList::Read(disk);
    for (const int calls : {1, 3}) {
        int called = 0;
        recordings::RangeFrames frames(disk, blocks, {}, {}, [&](const Progress& progress) {
            EXPECT_LE(progress.done, progress.total);
            return ++called < calls;
        });
        recordings::Frame frame;
        try {
            while (frames.Next(frame)) {
            }
            ADD_FAILURE() << "was not ended";
        } catch (const recordings::Error& error) {
            EXPECT_EQ(error.Kind(), recordings::ErrorKind::Cancelled);
        }
        EXPECT_EQ(called, calls);
    }
}

TEST_F(RangeFrames, ReadTheBlocksOfTheRangeAlone) {
    Start(0, 1);
    RecordCameras(0, 75000);
    Recorder().PowerOff();
    ASSERT_GE(Recorded().back().block, 6u);
    // One or two blocks, of which the first is read for its heads too.
    EXPECT_LE(Get(Seconds(44, 45)).bytesAsked, 4u * 0x10000);
}

// ---- the gate by itself

recordings::Frame Picture(uint32_t channel, bool key, int64_t time) {
    recordings::Frame frame;
    frame.channel = channel;
    frame.type = key ? recordings::kKeyFrame : recordings::kPictureFrame;
    frame.time = time;
    return frame;
}

TEST(KeyFrameGate, CountsWhatItKeepsBack) {
    recordings::KeyFrameGate gate;
    gate.Begin({2}); // channel 1 has lost its key frame
    EXPECT_FALSE(gate.Passes(Picture(0, false, 10), true));
    EXPECT_FALSE(gate.Passes(Picture(1, false, 20), true));
    EXPECT_FALSE(gate.Passes(Picture(1, false, 30), false)); // not missed
    EXPECT_TRUE(gate.Passes(Picture(0, true, 40), true));
    EXPECT_TRUE(gate.Passes(Picture(0, false, 50), true));
    const auto problems = gate.Finish(7);
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_EQ(Brief(problems[0]), "not_decodable note block 7 channel 0 count 1");
    EXPECT_EQ(problems[0].after, 40);
    EXPECT_EQ(Brief(problems[1]), "not_decodable loss block 7 channel 1 count 1");
    EXPECT_EQ(problems[1].after, std::nullopt);
    EXPECT_TRUE(gate.Finish(8).empty());
}

TEST(KeyFrameGate, ClosesAfterALossOfTheChannel) {
    recordings::KeyFrameGate gate;
    gate.Begin({});
    EXPECT_TRUE(gate.Passes(Picture(0, true, 10), true));
    EXPECT_TRUE(gate.Passes(Picture(1, true, 10), true));
    gate.Lose({1});
    EXPECT_FALSE(gate.Passes(Picture(0, false, 20), true));
    EXPECT_TRUE(gate.Passes(Picture(1, false, 20), true));
    EXPECT_TRUE(gate.Passes(Picture(0, true, 30), true));
    const auto problems = gate.Finish(3);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(Brief(problems[0]), "not_decodable loss block 3 channel 0 count 1");
    EXPECT_EQ(problems[0].before, 10);
    EXPECT_EQ(problems[0].after, 30);
}

} // namespace

} // namespace test_support
