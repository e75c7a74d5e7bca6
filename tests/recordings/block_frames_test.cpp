// The frames of a block: all of a sound one, and of a damaged one what is left, with a name for what is not.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "recordings/error.h"
#include "recordings/frames_fixture.h"
#include "sample_recorder/generated_source.h"

namespace test_support {

namespace {

using namespace sample_recorder;
using recordings::Want;
using Lines = std::vector<std::string>;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC
const Lines kNone = {};

/// The time of a frame, in milliseconds from the start on.
constexpr int64_t At(int64_t millis) {
    return kStart * kMicrosPerSecond + millis * 1000;
}

/// Blocks of 64 KiB of both layouts.
class BlockFrames : public FramesFixture, public ::testing::WithParamInterface<uint32_t> {
protected:
    void Begin(uint32_t channels = 3, bool endMarker = true) {
        Start(GetParam(), channels, 0x10000, endMarker);
    }

    /// Ten frames a second of channel 0, of 100 bytes, a key frame of 200 bytes each second.
    void RecordSeconds(int64_t from, int64_t seconds) {
        for (int64_t i = 0; i < seconds * 10; ++i) {
            Record(At(from * 1000 + i * 100), i % 10 == 0 ? kVideoI : kVideoP, 0, i % 10 == 0 ? 200 : 100);
        }
    }

    /// Fills the ring's eight blocks, one an hour, with two seconds each: what is recorded next goes to the first again.
    void RecordAWholeTurn() {
        Begin(1);
        for (int64_t hour = 0; hour < 8; ++hour) {
            RecordSeconds(hour * 3600, 2);
            Recorder().PowerOff();
        }
    }

    void ExpectSound(uint32_t block) {
        for (const Want want : {Want::Payloads, Want::Heads}) {
            const ReadFrames read = Read(block, want);
            EXPECT_TRUE(Same(read, block, want));
            EXPECT_EQ(read.Lines(), kNone);
            EXPECT_FALSE(read.lossAtEnd);
            EXPECT_EQ(std::count(read.afterLoss.begin(), read.afterLoss.end(), true), 0);
        }
    }

    /// Changes the head of a frame.
    void Change(const RecordedFrame& frame, const std::function<void(FrameHead_t&)>& edit) {
        Image().Change<FrameHead_t>(HeadOf(frame), edit);
    }

    void Fill(uint64_t from, uint64_t to, uint8_t value) {
        const std::vector<uint8_t> bytes(static_cast<size_t>(to - from), value);
        Image().Write(from, bytes.data(), bytes.size());
    }

    /// The frames of a block but for some of them.
    std::vector<uint32_t> OffsetsWithout(uint32_t block, const std::vector<size_t>& left) const {
        std::vector<uint32_t> offsets;
        const auto frames = Of(block);
        for (size_t i = 0; i < frames.size(); ++i) {
            if (std::find(left.begin(), left.end(), i) == left.end()) {
                offsets.push_back(frames[i].offset);
            }
        }
        return offsets;
    }
    static std::vector<uint32_t> Offsets(const ReadFrames& read) {
        std::vector<uint32_t> offsets;
        for (const RecordedFrame& frame : read.frames) {
            offsets.push_back(frame.offset);
        }
        return offsets;
    }
    static std::string At(const RecordedFrame& frame) {
        return " at " + std::to_string(frame.offset) + "+" + std::to_string(frame.End() - frame.offset);
    }
    static int64_t At(int64_t millis) { return ::test_support::At(millis); }

    /// Puts frames of an hour ago on the disk.
    void PutOld(uint64_t at, int64_t count) {
        for (int64_t i = 0; i < count; ++i) {
            Image().Put(at, FrameHead_t{At(-3600000 + i * 100), BLOCK_MAGIC, i % 10 == 0 ? 1u : 0u, 0, 60});
            Fill(at + 24, at + 84, 0xA5);
            at += 84;
        }
    }
    /// Device offset after the last frame that was recorded.
    uint64_t EndOfLast() { return HeadOf(Recorded().back()) + 24 + Recorded().back().frame.payload.size(); }
};

INSTANTIATE_TEST_SUITE_P(Layouts, BlockFrames, ::testing::Values(0u, 1u),
                         [](const auto& layout) { return layout.param == 1 ? "Extended" : "Normal"; });

// ---- sound blocks

TEST_P(BlockFrames, OfSoundBlocksAreThoseThatWereRecorded) {
    for (const bool endMarker : {true, false}) {
        Begin(3, endMarker);
        MergedSource source;
        source.Add(
            std::make_unique<GeneratedSource>(GeneratedCamera{0, 25, 50, 900, 200, 160, 20}, 1, kStart, 25));
        source.Add(
            std::make_unique<GeneratedSource>(GeneratedCamera{1, 7, 21, 900, 200, 0, 40}, 2, kStart, 25));
        RecordAll(source);
        Recorder().CutPower();
        ASSERT_GT(Recorded().back().block, 2u);
        for (uint32_t block = 0; block <= Recorded().back().block; ++block) {
            ExpectSound(block);
        }
    }
}

TEST_P(BlockFrames, OfSeveralSegmentsAreSound) {
    for (const bool closed : {true, false}) {
        Begin(1);
        RecordSeconds(0, 3);
        RecordSeconds(60, 3);
        RecordSeconds(300, 3);
        closed ? Recorder().PowerOff() : Recorder().CutPower();
        ExpectSound(0);
    }
}

TEST_P(BlockFrames, AfterTheClockWasSetAreSound) {
    // Back by 5 seconds, by 20, by an hour; forwards by a day. Of an open block the recorder takes what is more than 30
    // seconds older for left over.
    for (const int64_t change : {-5, -20, -3600, 86400}) {
        for (const bool closed : {true, false}) {
            Begin(1);
            RecordSeconds(7200, 4);
            RecordSeconds(7204 + change, 4);
            closed ? Recorder().PowerOff() : Recorder().CutPower();
            if (closed || change > -30) {
                ExpectSound(0);
            }
        }
    }
}

TEST_P(BlockFrames, AfterTheClockWasSetAtAnyTimeAreSound) {
    for (const int64_t change : {-3600000, -3000, 7200000}) {
        for (int64_t setAt = 50; setAt < 3000; setAt += 50) {
            Begin(3);
            for (int64_t millis = 0; millis < 3000; millis += 50) {
                const int64_t time = At(millis + (millis >= setAt ? change : 0));
                if (millis % 100 == 0) {
                    Record(time, millis % 1000 == 0 ? kVideoI : kVideoP, 0, 60);
                }
                if (millis % 200 == 50) {
                    Record(time, millis % 1000 == 50 ? kVideoI : kVideoP, 1, 50);
                }
                Record(time, kAudio, 1, 16);
            }
            Recorder().PowerOff();
            const ReadFrames read = Read(0);
            EXPECT_TRUE(Same(read, 0)) << change << " at " << setAt;
            EXPECT_EQ(read.Lines(), kNone) << change << " at " << setAt;
        }
    }
}

TEST_P(BlockFrames, SetByLessThanAFrameAreSound) {
    for (const bool closed : {true, false}) {
        Begin(1);
        RecordSeconds(0, 3);
        for (int64_t i = 0; i < 30; ++i) { // goes on 160 milliseconds earlier than it should
            Record(At(2840 + i * 100), i % 10 == 0 ? kVideoI : kVideoP, 0, 90);
        }
        closed ? Recorder().PowerOff() : Recorder().CutPower();
        ExpectSound(0);
    }
}

TEST_P(BlockFrames, OfOtherTypesAndWithoutPayloadAreSound) {
    for (const bool closed : {true, false}) {
        Begin(3);
        for (int64_t i = 0; i < 60; ++i) {
            Record(At(i * 100), i % 10 == 0 ? kVideoI : kVideoP, 0, i % 3 == 0 ? 0 : 50);
            if (i % 7 == 0) {
                Record(At(i * 100), 3, 0, 0);
                Record(At(i * 100), 9, 1, 33);
                Record(At(i * 100), 0x1000, 1, 20);
            }
            if (i % 20 == 5) {
                RecordEvent(At(i * 100), 0x10, 0, i % 40 == 5);
            }
        }
        RecordEvent(At(6000), 0x1, 0);
        Record(At(6000), 7, 1, 5);
        closed ? Recorder().PowerOff() : Recorder().CutPower();
        ExpectSound(0);
    }
}

TEST_P(BlockFrames, OfAFewFramesAreSound) {
    for (const int count : {1, 2, 3, 5}) {
        for (const bool closed : {true, false}) {
            Begin(3);
            for (int64_t i = 0; i < count; ++i) {
                Record(At(i * 1000), i == 0 ? kVideoI : kVideoP, 0, 30);
                Record(At(i * 1000), i == 0 ? kVideoI : kVideoP, 1, 20);
            }
            closed ? Recorder().PowerOff() : Recorder().CutPower();
            ExpectSound(0);
        }
    }
}

TEST_P(BlockFrames, OfUnevenCamerasAreSound) {
    // Frames when something moves: no pace, key frames at will.
    for (const bool closed : {true, false}) {
        Begin(3);
        int64_t time = 0;
        for (int i = 0; i < 150; ++i) {
            time += 20 + (i * i * 37) % 700;
            Record(At(time), i % 17 == 0 || i == 40 ? kVideoI : kVideoP, 0,
                   static_cast<size_t>(20 + i * 13 % 90));
            if (i % 5 == 0) {
                Record(At(time - 350), kAudio, 1, static_cast<size_t>(10 + i % 4));
            }
        }
        closed ? Recorder().PowerOff() : Recorder().CutPower();
        ExpectSound(0);
    }
}

/// Any bytes may stand in a picture: it must not be cut at them.
TEST_P(BlockFrames, MayHoldWhatLooksLikeAHead) {
    // One that leads into the middle of the picture, to what is no head though its length would fit, and two that lead out
    // of it.
    for (const uint32_t length : {20u, 90u, 400u}) {
        for (const bool closed : {true, false}) {
            Begin(1);
            RecordSeconds(0, 3);
            sample_recorder::Frame frame;
            frame.pts = At(3000);
            frame.type = kVideoI;
            frame.payload.assign(200, 0x5A);
            const FrameHead_t head = {At(2900), BLOCK_MAGIC, kVideoP, 0, length};
            std::memcpy(frame.payload.data() + 100, &head, sizeof head);
            const FrameHead_t none = {At(2900), 0, kVideoP, 0, 200 - 144 - sizeof head};
            std::memcpy(frame.payload.data() + 144, &none, sizeof none);
            Record(frame);
            Record(At(3100), kVideoP, 0, 100);
            closed ? Recorder().PowerOff() : Recorder().CutPower();
            SCOPED_TRACE(length);
            ExpectSound(0);
        }
    }
}

TEST_P(BlockFrames, OfLockedChannelsAreDeliveredToo) {
    // A check of a whole block needs all of it. Of ten frames five are of the channel that the lock hides.
    Begin(3);
    for (int64_t i = 0; i < 10; ++i) {
        Record(At(i * 100), i < 2 ? kVideoI : kVideoP, i % 2 == 0 ? 0 : 1, 100);
    }
    Recorder().PowerOff();
    Image().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 2;
        std::memcpy(head.CipherCode, "open", 5);
    });
    const ReadFrames read = Read(0);
    EXPECT_EQ(Open().Hidden().bits, 2u);
    EXPECT_EQ(read.frames.size(), 10u);
    EXPECT_EQ(std::count_if(read.frames.begin(), read.frames.end(),
                            [](const RecordedFrame& each) { return each.frame.channel == 1; }),
              5);
    ExpectSound(0);
}

TEST_P(BlockFrames, OfAnIndexThatWasRebuiltAreSound) {
    // The recorder counts 20 bytes for a head, and ends segments 4 bytes early.
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    const uint64_t segment = Image().IndexOffset(0) + sizeof(BlkIndexHead_t) + 5 * sizeof(IFrameItem_t);
    Image().Change<RecSegItem_t>(segment, [](RecSegItem_t& item) {
        item.epos -= 4;
        item.totalsize -= 4 * 50;
    });
    ExpectSound(0);
}

TEST_P(BlockFrames, LeaveOutWhatThePreviousTurnHasLeft) {
    // Eight hours ago frames lay right where those of now end.
    RecordAWholeTurn();
    const size_t before = Recorded().size();
    RecordSeconds(8 * 3600, 5);
    Recorder().CutPower();
    uint64_t at = HeadOf(Recorded().back()) + 24 + Recorded().back().frame.payload.size();
    for (int64_t i = 0; i < 20; ++i) {
        Image().Put(at, FrameHead_t{At(i * 100), BLOCK_MAGIC, i % 10 == 0 ? 1u : 0u, 0, 300});
        at += 324;
    }
    const ReadFrames read = Read(0);
    EXPECT_EQ(read.frames.size(), Recorded().size() - before);
    EXPECT_EQ(read.frames.back().offset, Recorded().back().offset);
    EXPECT_EQ(read.Lines(), kNone);
}

TEST_P(BlockFrames, LeaveOutWhatLayThereBeforeTheDiskWasFormatted) {
    // Nothing was recorded in the other blocks since; old frames begin where those of now end, or somewhere after it.
    for (const int64_t count : {1, 2, 20}) {
        for (const uint64_t distance : {uint64_t{0}, uint64_t{77}, uint64_t{290}}) {
            for (const bool endMarker : {true, false}) {
                Begin(1, endMarker);
                RecordSeconds(0, 5);
                Recorder().CutPower();
                Fill(EndOfLast(), EndOfLast() + distance, 0xA5); // the rest of an old picture
                PutOld(EndOfLast() + distance, count);
                SCOPED_TRACE(std::to_string(count) + " after " + std::to_string(distance));
                ExpectSound(0);
            }
        }
    }
}

TEST_P(BlockFrames, LeaveOutWhatIsOlderThanAClockThatWasSet) {
    // The block begins in 1970, until the clock is set. Everything that lay there before is newer than its start.
    Begin(1, false);
    for (int64_t i = 0; i < 20; ++i) {
        Record(i * 100000, i % 10 == 0 ? kVideoI : kVideoP, 0, 100);
    }
    RecordSeconds(0, 5);
    Recorder().CutPower();
    Fill(EndOfLast(), EndOfLast() + 77, 0xA5);
    PutOld(EndOfLast() + 77, 20);
    ExpectSound(0);
}

TEST_P(BlockFrames, LeaveOutAnOldFrameThatLeadsOutOfTheBlock) {
    // Blocks were larger before the disk was formatted.
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().CutPower();
    Image().Put(EndOfLast(), FrameHead_t{At(-3600000), BLOCK_MAGIC, 1, 0, 0x10000});
    ExpectSound(0);
}

TEST_P(BlockFrames, LeaveOutASingleOneOfThePreviousTurn) {
    // The ninth block, which was cut off, is followed by one frame of the first.
    RecordAWholeTurn();
    const size_t before = Recorded().size();
    RecordSeconds(8 * 3600, 5);
    Recorder().CutPower();
    Image().Put(EndOfLast(), FrameHead_t{At(2000), BLOCK_MAGIC, 0, 0, 300});
    const ReadFrames read = Read(0);
    EXPECT_EQ(read.frames.size(), Recorded().size() - before);
    EXPECT_EQ(read.Lines(), kNone);
}

TEST_P(BlockFrames, AreNotLeftOverWhenTheRingHoldsOlderOnes) {
    // The clock is set back by an hour while the ninth block is written, which was cut off.
    RecordAWholeTurn();
    const size_t before = Recorded().size();
    RecordSeconds(8 * 3600, 3);
    RecordSeconds(7 * 3600, 3);
    Recorder().CutPower();
    const ReadFrames read = Read(0);
    EXPECT_EQ(read.frames.size(), Recorded().size() - before);
    EXPECT_EQ(read.Lines(), kNone);
}

/// Else frames of the previous turn would pass for damage of this one, or this one's damage would go with them.
TEST_P(BlockFrames, KeepTheirOwnDamageWhenThePreviousTurnIsLeftOut) {
    RecordAWholeTurn();
    RecordSeconds(8 * 3600, 5);
    Recorder().CutPower();
    std::vector<RecordedFrame> frames = Of(0);
    frames.erase(frames.begin(), frames.end() - 50); // those of the ninth hour
    uint64_t at = EndOfLast();
    for (int64_t i = 0; i < 20; ++i) { // of the first
        Image().Put(at, FrameHead_t{At(i * 100), BLOCK_MAGIC, i % 10 == 0 ? 1u : 0u, 0, 300});
        at += 324;
    }
    Change(frames[25], [](FrameHead_t& head) { head.sync = 0; });
    Change(frames[35], [](FrameHead_t& head) { head.len = 101; });
    const ReadFrames read = Read(0);
    EXPECT_EQ(Offsets(read).size(), 49u);
    EXPECT_EQ(read.frames.back().offset, frames.back().offset);
    EXPECT_EQ(read.Lines(), (Lines{"bytes_damaged loss block 0" + At(frames[25]),
                                   "frame_damaged loss block 0 channel 0" + At(frames[35])}));
    EXPECT_FALSE(read.lossAtEnd);
}

/// The whole block would be taken for one of the previous turn, and be empty without a word.
TEST_P(BlockFrames, AreNotLeftOverWhenTheTimeOfTheHeadIsWrong) {
    // The second block's head states a time that is an hour late, which a clock that was set would explain too. But its
    // frames are newer than the block before it.
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    RecordSeconds(3600, 5);
    Recorder().CutPower();
    Image().Change<BlockHead_t>(Image().HeadOffset(1), [](BlockHead_t& head) { head.RecTime += 3600; });
    const ReadFrames read = Read(1);
    EXPECT_TRUE(Same(read, 1));
    EXPECT_EQ(read.Lines(), (Lines{"head_damaged note block 1"}));
}

/// What was recorded after the clock was set back would be lost in silence.
TEST_P(BlockFrames, AreNotLeftOverWhenTheNextPlaceIsMarkedBad) {
    // As before; the second place is worn, and the recorder passes over it: what is older lies in the third.
    RecordAWholeTurn();
    const size_t before = Recorded().size();
    RecordSeconds(8 * 3600, 3);
    RecordSeconds(7 * 3600, 3);
    Recorder().CutPower();
    Image().SetBad(1);
    Fail(Image().BlockStart(1), Image().BlockStart(2));
    const ReadFrames read = Read(0);
    EXPECT_EQ(read.frames.size(), Recorded().size() - before);
    EXPECT_EQ(read.Lines(), kNone);
}

TEST_P(BlockFrames, LeaveOutThePreviousTurnOfABlockThatHoldsNothingYet) {
    Begin(1);
    RecordSeconds(-7200, 5);
    Recorder().CutPower();
    Image().Change<BlockHead_t>(Image().HeadOffset(0), [](BlockHead_t& head) { head.RecTime = kStart; });
    const ReadFrames read = Read(0);
    EXPECT_EQ(read.frames.size(), 0u);
    EXPECT_EQ(read.Lines(), kNone);
}

/// A viewer reads heads first, and pictures when it shows them: never what lies elsewhere on the disk, or nothing.
TEST_P(BlockFrames, GetTheirPayloadLater) {
    Begin(1);
    RecordSeconds(0, 1);
    Recorder().PowerOff();
    recordings::Frame frame;
    frame.block = 0;
    frame.offset = Recorded()[1].offset;
    frame.size = 100;
    std::vector<uint8_t> payload(100);
    EXPECT_TRUE(recordings::ReadPayload(Open(), frame, payload.data()));
    EXPECT_EQ(payload, Recorded()[1].frame.payload);
    payload.resize(0x10000);
    frame.size = Image().FrameAreaSize() - frame.offset - 24; // up to the end of the frame area
    EXPECT_TRUE(recordings::ReadPayload(Open(), frame, payload.data()));
    ++frame.size;
    EXPECT_FALSE(recordings::ReadPayload(Open(), frame, payload.data()));
    frame.size = 100;
    Fail(HeadOf(Recorded()[1]) + 123, HeadOf(Recorded()[1]) + 124); // its last byte
    EXPECT_FALSE(recordings::ReadPayload(Open(), frame, payload.data()));
    frame.offset = 0xFFFFFFFF;
    EXPECT_FALSE(recordings::ReadPayload(Open(), frame, payload.data()));
}

// ---- damaged heads

TEST_P(BlockFrames, PassAHeadThatIsGone) {
    for (const bool closed : {true, false}) {
        for (const auto& edit : std::vector<std::function<void(FrameHead_t&)>>{
                 [](FrameHead_t& head) { head.sync ^= 0x10; }, [](FrameHead_t& head) { head.sync = 0; },
                 [](FrameHead_t& head) { head.chn = 32; }}) {
            Begin(1);
            RecordSeconds(0, 5);
            closed ? Recorder().PowerOff() : Recorder().CutPower();
            const RecordedFrame damaged = Recorded()[25];
            Change(damaged, edit);
            const ReadFrames read = Read(0);
            EXPECT_EQ(Offsets(read), OffsetsWithout(0, {25}));
            EXPECT_EQ(read.Lines(), (Lines{"bytes_damaged loss block 0" + At(damaged)}));
            EXPECT_EQ(read.problems[0].before, At(2400));
            EXPECT_EQ(read.problems[0].after, At(2600));
            EXPECT_EQ(std::find(read.afterLoss.begin(), read.afterLoss.end(), true) - read.afterLoss.begin(),
                      25);
        }
    }
}

TEST_P(BlockFrames, CutAFrameThatIsTooLong) {
    for (const bool closed : {true, false}) {
        for (const uint32_t length : {101u, 228u, 5000u, 0xEFFFu, 0x7FFFFFFFu, 0xFFFFFFE8u}) {
            Begin(1);
            RecordSeconds(0, 5);
            closed ? Recorder().PowerOff() : Recorder().CutPower();
            const RecordedFrame damaged = Recorded()[25];
            Change(damaged, [&](FrameHead_t& head) { head.len = length; });
            const ReadFrames read = Read(0);
            EXPECT_TRUE(Same(read, 0)) << length;
            EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(damaged)})) << length;
        }
    }
}

TEST_P(BlockFrames, FindFramesThatALengthSwallows) {
    // 25's length leads to the head of 26 + n: nothing but the index, or the pace, tells.
    for (const bool closed : {true, false}) {
        for (const uint32_t swallowed : {1u, 2u, 6u}) {
            Begin(1);
            RecordSeconds(0, 5);
            closed ? Recorder().PowerOff() : Recorder().CutPower();
            const RecordedFrame damaged = Recorded()[25];
            Change(damaged, [&](FrameHead_t& head) {
                head.len = Recorded()[25 + swallowed].End() - damaged.offset - 24;
            });
            const ReadFrames read = Read(0);
            EXPECT_TRUE(Same(read, 0)) << swallowed;
            EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(damaged)}));
        }
    }
}

TEST_P(BlockFrames, DropAFrameThatIsTooShortUnlessTheIndexTellsItsLength) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    Change(Recorded()[25], [](FrameHead_t& head) { head.len = 3; });
    const ReadFrames closed = Read(0);
    EXPECT_TRUE(Same(closed, 0));
    EXPECT_EQ(closed.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(Recorded()[25])}));

    Begin(1);
    RecordSeconds(0, 5);
    Recorder().CutPower();
    Change(Recorded()[25], [](FrameHead_t& head) { head.len = 3; });
    const ReadFrames open = Read(0);
    EXPECT_EQ(Offsets(open), OffsetsWithout(0, {25}));
    EXPECT_EQ(open.Lines(), (Lines{"bytes_damaged loss block 0" + At(Recorded()[25])}));
}

TEST_P(BlockFrames, NoticeALengthThatReachesOverTheIndexsEnd) {
    for (const uint32_t length : {0u, 90u, 101u, 108u, 5000u}) {
        for (const bool endMarker : {true, false}) {
            Begin(1, endMarker);
            RecordSeconds(0, 5);
            Recorder().PowerOff();
            Change(Recorded().back(), [&](FrameHead_t& head) { head.len = length; });
            const ReadFrames read = Read(0);
            EXPECT_TRUE(Same(read, 0)) << length << endMarker;
            EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(Recorded().back())}));
        }
    }
}

/// An event after the last picture: the crash itself, often. No media end there that the index tells of.
TEST_P(BlockFrames, OfAnEventAfterTheLastPictureEndAtTheEndMark) {
    for (const uint32_t length : {0u, 3u, 100u, 5000u}) {
        Begin(1);
        RecordSeconds(0, 5);
        RecordEvent(At(5000), 0x10, 0);
        Recorder().PowerOff();
        ExpectSound(0);
        Change(Recorded().back(), [&](FrameHead_t& head) { head.len = length; });
        const ReadFrames read = Read(0);
        EXPECT_TRUE(Same(read, 0)) << length;
        EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(Recorded().back())}));
    }
}

TEST_P(BlockFrames, NoticeALengthThatReachesIntoThePreviousTurn) {
    // The ring has wrapped: after the last frame of the open block lie frames of an hour ago, not where it ends.
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().CutPower();
    uint64_t at = HeadOf(Recorded().back()) + 24 + 100 + 77;
    for (int64_t i = 0; i < 20; ++i) {
        Image().Put(at, FrameHead_t{At(-3600000 + i * 100), BLOCK_MAGIC, i % 10 == 0 ? 1u : 0u, 0, 300});
        at += 324;
    }
    ExpectSound(0);
    for (const uint32_t length : {201u, 600u, 5000u}) {
        Change(Recorded().back(), [&](FrameHead_t& head) { head.len = length; });
        const ReadFrames read = Read(0);
        EXPECT_EQ(Offsets(read), OffsetsWithout(0, {})) << length;
        EXPECT_EQ(read.problems.size(), 1u) << length;
        EXPECT_TRUE(read.AnyLoss()) << length;
    }
}

TEST_P(BlockFrames, NoticeALengthThatIsTooShortBeforeErasedSpace) {
    // Before the ring has wrapped, what was never written is zero.
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().CutPower();
    Change(Recorded().back(), [](FrameHead_t& head) { head.len = 20; });
    EXPECT_EQ(Read(0).Lines(), (Lines{"frame_damaged loss block 0 channel 0 at 6576+44"}));
}

TEST_P(BlockFrames, MayEndInErasedBytes) {
    // The power was cut before the last picture was written; or its encoder has filled it up.
    Begin(1);
    RecordSeconds(0, 5);
    sample_recorder::Frame last;
    last.pts = At(5000);
    last.type = kVideoI;
    last.payload.resize(300);
    last.payload[0] = 0x5A;
    Record(last);
    Recorder().CutPower();
    ExpectSound(0);
}

TEST_P(BlockFrames, OfAClockThatWasNeverSetEndBeforeErasedSpace) {
    // Recorders without a battery begin in 1970, where erased bytes taken for a time stamp lie too.
    for (const int64_t start : {int64_t{0}, int64_t{20}, int64_t{3600}}) {
        for (const uint8_t erased : {uint8_t{0}, uint8_t{0xFF}}) {
            Begin(1, false);
            for (int64_t i = 0; i < 30; ++i) {
                Record((start * 10 + i) * 100000, i % 10 == 0 ? kVideoI : kVideoP, 0, 100);
            }
            Recorder().CutPower();
            Fill(EndOfLast(), EndOfLast() + 0x2000, erased);
            ExpectSound(0);
        }
    }
}

TEST_P(BlockFrames, GiveADamagedTimeStampOneBetweenItsNeighbours) {
    for (const bool closed : {true, false}) {
        for (const int64_t time :
             {int64_t{0}, At(-86400000), At(86400000), At(4000), At(1000), INT64_MAX, INT64_MIN}) {
            Begin(1);
            RecordSeconds(0, 5);
            closed ? Recorder().PowerOff() : Recorder().CutPower();
            Change(Recorded()[25], [&](FrameHead_t& head) { head.pts = time; });
            const ReadFrames read = Read(0);
            ASSERT_EQ(Offsets(read), OffsetsWithout(0, {}));
            EXPECT_EQ(read.frames[25].frame.pts, At(2500)); // half-way between 2400 and 2600
            EXPECT_EQ(read.frames[26].frame.pts, At(2600));
            EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(Recorded()[25])}));
        }
    }
}

TEST_P(BlockFrames, OfOneSegmentAreNoFurtherApartThanItsFramesMayBe) {
    // Five frames are too few to tell their pace, but the index has them in one segment.
    for (const int64_t time : {int64_t{0}, At(-20000), At(20000)}) {
        Begin(1);
        for (int64_t i = 0; i < 5; ++i) {
            Record(At(i * 200), i == 0 ? kVideoI : kVideoP, 0, 100);
        }
        Recorder().PowerOff();
        Change(Recorded()[2], [&](FrameHead_t& head) { head.pts = time; });
        const ReadFrames read = Read(0);
        EXPECT_TRUE(Same(read, 0)); // half-way between its neighbours
        EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(Recorded()[2])}));
    }
}

TEST_P(BlockFrames, TakeTheTimeOfAKeyFrameFromTheIndex) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    Change(Recorded()[20], [](FrameHead_t& head) { head.pts += 7000000; });
    const ReadFrames read = Read(0);
    EXPECT_TRUE(Same(read, 0));
    EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(Recorded()[20])}));
}

TEST_P(BlockFrames, TakeTheTimeOfAKeyFrameThatCameLateFromTheIndex) {
    // Half-way between its neighbours would be 30 milliseconds too early.
    Begin(1);
    for (int64_t i = 0; i < 50; ++i) {
        Record(At(i * 100 + (i == 20 ? 30 : 0)), i % 10 == 0 ? kVideoI : kVideoP, 0, 100);
    }
    Recorder().PowerOff();
    Change(Recorded()[20], [](FrameHead_t& head) { head.pts += 7000000; });
    const ReadFrames read = Read(0);
    EXPECT_TRUE(Same(read, 0));
    EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(Recorded()[20])}));
}

TEST_P(BlockFrames, TellOneDamagedTimeStampFromThePreviousTurn) {
    // The last frame but one of an open block: a frame of the block's own time follows.
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().CutPower();
    const RecordedFrame& damaged = Recorded()[Recorded().size() - 2];
    Change(damaged, [](FrameHead_t& head) { head.pts -= 3600000000; });
    const ReadFrames read = Read(0);
    EXPECT_EQ(Offsets(read), OffsetsWithout(0, {}));
    EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(damaged)}));
}

TEST_P(BlockFrames, OfATimeThatNoClockHasAreNotLeftOver) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().CutPower();
    Change(Recorded().back(), [](FrameHead_t& head) { head.pts = -1; });
    const ReadFrames read = Read(0);
    EXPECT_EQ(Offsets(read), OffsetsWithout(0, {}));
    EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 0" + At(Recorded().back())}));
}

// ---- types and channels

/// Two cameras at 10 and 5 frames a second, sizes 100 and 70 for pictures, 200 and 140 for key frames, and audio of
/// channel 1 every 50 milliseconds, of 32 bytes.
class ChangedFrames : public BlockFrames {
protected:
    void RecordCameras(bool closed) {
        Begin(3);
        for (int64_t millis = 0; millis < 6000; millis += 50) {
            if (millis % 100 == 0) {
                const bool key = millis % 1000 == 0;
                Record(At(millis), key ? kVideoI : kVideoP, 0, key ? 200 : 100);
            }
            if (millis % 200 == 0) {
                const bool key = millis % 2000 == 0;
                Record(At(millis), key ? kVideoI : kVideoP, 1, key ? 140 : 70);
            }
            Record(At(millis), kAudio, 1, 32);
        }
        closed ? Recorder().PowerOff() : Recorder().CutPower();
    }

    /// The frame of a track at a time.
    RecordedFrame Find(int64_t millis, uint32_t channel, uint32_t type) const {
        for (const RecordedFrame& each : Recorded()) {
            if (each.frame.pts == At(millis) && each.frame.channel == channel && each.frame.type == type) {
                return each;
            }
        }
        ADD_FAILURE() << "no frame at " << millis;
        return {};
    }

    std::string Named(const RecordedFrame& frame) const {
        return "frame_damaged loss block 0 channel " + std::to_string(frame.frame.channel) + At(frame);
    }
};

INSTANTIATE_TEST_SUITE_P(Layouts, ChangedFrames, ::testing::Values(0u, 1u),
                         [](const auto& layout) { return layout.param == 1 ? "Extended" : "Normal"; });

TEST_P(ChangedFrames, GetTheirChannelBack) {
    for (const bool closed : {true, false}) {
        RecordCameras(closed);
        for (const RecordedFrame& frame :
             {Find(2500, 0, kVideoP), Find(2600, 1, kVideoP), Find(2000, 1, kVideoI)}) {
            for (const uint32_t channel : {1 - frame.frame.channel, 9u}) {
                Change(frame, [&](FrameHead_t& head) { head.chn = channel; });
                const ReadFrames read = Read(0);
                EXPECT_TRUE(Same(read, 0)) << closed << frame.frame.channel << " to " << channel;
                EXPECT_EQ(read.Lines(), (Lines{Named(frame)}));
                Change(frame, [&](FrameHead_t& head) { head.chn = frame.frame.channel; });
            }
        }
    }
}

TEST_P(ChangedFrames, OfUnevenCamerasAreOfAChannelThatIsNotThere) {
    // No pace tells whose frame it was; but nobody records channel 9.
    Begin(1);
    for (int64_t i = 0, time = 0; i < 80; ++i) {
        time += 20 + i * i * 37 % 700;
        Record(At(time), i % 17 == 0 ? kVideoI : kVideoP, 0, static_cast<size_t>(20 + i * 13 % 90));
    }
    Recorder().CutPower();
    ExpectSound(0);
    Change(Recorded()[40], [](FrameHead_t& head) { head.chn = 9; });
    const ReadFrames read = Read(0);
    EXPECT_EQ(Offsets(read), OffsetsWithout(0, {}));
    EXPECT_EQ(read.Lines(), (Lines{"frame_damaged loss block 0 channel 9" + At(Recorded()[40])}));
}

TEST_P(ChangedFrames, OfSoundInFramesOfAnySizeGetTheirChannelBack) {
    Begin(3);
    for (int64_t i = 0; i < 60; ++i) {
        Record(At(i * 100), i % 10 == 0 ? kVideoI : kVideoP, 0, 100);
        Record(At(i * 100 + 2), kAudio, 1, i % 3 == 0 ? 161 : 160);
    }
    Recorder().CutPower();
    const RecordedFrame frame = Find(2502, 1, kAudio);
    Change(frame, [](FrameHead_t& head) { head.chn = 0; });
    EXPECT_TRUE(Same(Read(0), 0));
    EXPECT_EQ(Read(0).Lines(), (Lines{Named(frame)}));
}

TEST_P(ChangedFrames, GetTheirTypeBackWhereTheIndexOrThePaceHasIt) {
    for (const bool closed : {true, false}) {
        RecordCameras(closed);
        for (const auto& [frame, type] :
             std::vector<std::pair<RecordedFrame, uint32_t>>{{Find(2500, 0, kVideoP), kAudio},
                                                             {Find(2500, 0, kVideoP), 5},
                                                             {Find(2600, 1, kVideoP), kEvent},
                                                             {Find(2600, 1, kAudio), kVideoP},
                                                             {Find(2600, 1, kAudio), 8}}) {
            Change(frame, [&, changed = type](FrameHead_t& head) { head.type = changed; });
            const ReadFrames read = Read(0);
            EXPECT_EQ(Offsets(read), OffsetsWithout(0, {}));
            EXPECT_EQ(read.Lines(), (Lines{Named(frame)})) << closed << " to " << type;
            Change(frame, [&, held = frame.frame.type](FrameHead_t& head) { head.type = held; });
        }
    }
}

TEST_P(ChangedFrames, AreKeyFramesAsTheIndexHasThem) {
    RecordCameras(true);
    const RecordedFrame key = Find(3000, 0, kVideoI);
    for (const uint32_t type : {0u, 2u, 4u, 5u, 0x80000001u}) {
        Change(key, [&](FrameHead_t& head) { head.type = type; });
        const ReadFrames read = Read(0);
        EXPECT_TRUE(Same(read, 0)) << type;
        EXPECT_EQ(read.Lines(), (Lines{Named(key)}));
    }
    Change(key, [](FrameHead_t& head) { head.type = kVideoI; });
    const RecordedFrame picture = Find(3300, 0, kVideoP);
    Change(picture, [](FrameHead_t& head) { head.type = kVideoI; });
    EXPECT_EQ(Read(0).Lines(), (Lines{Named(picture)}));
}

TEST_P(ChangedFrames, KeepTheDistanceOfKeyFramesWithoutAnIndex) {
    RecordCameras(false);
    const RecordedFrame key = Find(3000, 0, kVideoI);
    Change(key, [](FrameHead_t& head) { head.type = kVideoP; });
    EXPECT_EQ(Read(0).Lines(), (Lines{Named(key)}));
    Change(key, [](FrameHead_t& head) { head.type = kVideoI; });
    const RecordedFrame picture = Find(3300, 0, kVideoP);
    Change(picture, [](FrameHead_t& head) { head.type = kVideoI; });
    EXPECT_EQ(Read(0).Lines(), (Lines{Named(picture)}));
}

/// A key frame that passes for another picture is lost to everything that begins with it.
TEST_P(ChangedFrames, KeepTheDistanceOfTheBlockBeforeABadPlace) {
    // Three key frames, each two seconds, are too few to tell their distance: the block before has it.
    Begin(1);
    Image().SetBad(1);
    for (int64_t i = 0; i < 120; ++i) {
        Record(At(i * 100), i % 20 == 0 ? kVideoI : kVideoP, 0, i % 20 == 0 ? 600 : 100);
        if (i == 59) {
            Recorder().PowerOff();
        }
    }
    Recorder().CutPower();
    ASSERT_EQ(Recorded().back().block, 2u);
    ExpectSound(2);
    const RecordedFrame key = Of(2)[20];
    ASSERT_EQ(key.frame.type, kVideoI);
    Change(key, [](FrameHead_t& head) { head.type = kVideoP; });
    EXPECT_EQ(Read(2).Lines(), (Lines{"frame_damaged loss block 2 channel 0" + At(key)}));
}

TEST_P(ChangedFrames, MayBeAKeyFrameOutOfTurnWhereSizesDoNotTell) {
    // An encoder is told to send a key frame. There are pictures that are larger than key frames.
    Begin(1);
    for (int64_t i = 0; i < 60; ++i) {
        const bool key = i % 10 == 0 || i == 33;
        const size_t size = i == 33 ? 120 : key ? (i % 20 == 0 ? 100 : 300) : (i % 2 == 0 ? 90 : 200);
        Record(At(i * 100), key ? kVideoI : kVideoP, 0, size);
    }
    Recorder().CutPower();
    ExpectSound(0);
}

TEST_P(ChangedFrames, MayBeASingleKeyFrameOutOfTurn) {
    // The block before has a key frame every four seconds, the last one at 16. This one ends before the next is due.
    Begin(1);
    for (int64_t i = 0; i < 171; ++i) {
        Record(At(i * 100), i % 40 == 0 ? kVideoI : kVideoP, 0, i % 40 == 0 ? 600 : 100);
    }
    Recorder().PowerOff();
    for (int64_t i = 171; i < 199; ++i) {
        Record(At(i * 100), i == 185 ? kVideoI : kVideoP, 0, i == 185 ? 600 : 100);
    }
    Recorder().CutPower();
    ASSERT_EQ(Of(1).size(), 28u);
    ExpectSound(1);
}

/// Else each picture of such a camera would be a key frame, and each a loss.
TEST_P(ChangedFrames, OfAnEncodingThatOnlyLooksFamiliarKeepTheirTypes) {
    Begin(1);
    for (int64_t i = 0; i < 60; ++i) {
        Frame frame;
        frame.pts = At(i * 100);
        frame.type = i % 10 == 0 ? kVideoI : kVideoP;
        frame.payload.assign(80, static_cast<uint8_t>(i + 1));
        const std::vector<uint8_t> begin = {0, 0, 0, 1, 0x65, 0x88}; // as a key frame of H.264
        std::copy(begin.begin(), begin.end(), frame.payload.begin());
        Record(frame);
    }
    Recorder().CutPower();
    ExpectSound(0);
}

TEST_P(ChangedFrames, AreToldByTheirPayloadWithoutAnIndex) {
    Begin(1);
    for (int64_t i = 0; i < 60; ++i) {
        Frame frame;
        frame.pts = At(i * 100);
        const bool key = i % 10 == 0 || i == 33; // one comes out of turn
        frame.type = key ? kVideoI : kVideoP;
        frame.payload.assign(80, static_cast<uint8_t>(i + 1));
        const std::vector<uint8_t> begin =
            key ? std::vector<uint8_t>{0, 0, 0, 1, 0x67, 0x42} : std::vector<uint8_t>{0, 0, 0, 1, 0x41, 0x9A};
        std::copy(begin.begin(), begin.end(), frame.payload.begin());
        Record(frame);
    }
    Recorder().CutPower();
    EXPECT_EQ(Read(0).Lines(), kNone);
    for (const size_t entry : {size_t{33}, size_t{34}, size_t{0}, size_t{59}}) {
        const RecordedFrame frame = Recorded()[entry];
        Change(frame, [&](FrameHead_t& head) { head.type ^= 1; });
        const ReadFrames read = Read(0);
        EXPECT_TRUE(Same(read, 0)) << entry;
        EXPECT_EQ(read.Lines(), (Lines{Named(frame)}));
        Change(frame, [&](FrameHead_t& head) { head.type ^= 1; });
    }
}

// ---- stretches

TEST_P(BlockFrames, PassAStretchThatWasWrittenOver) {
    for (const bool closed : {true, false}) {
        for (const uint8_t fill : {uint8_t{0}, uint8_t{0xFF}, uint8_t{0x5A}}) {
            Begin(1);
            RecordSeconds(0, 5);
            closed ? Recorder().PowerOff() : Recorder().CutPower();
            const RecordedFrame first = Recorded()[15];
            const RecordedFrame last = Recorded()[30];
            Fill(HeadOf(first) + 30, HeadOf(last) + 10, fill); // from within one frame to within another
            const ReadFrames read = Read(0);
            std::vector<size_t> left(16);
            std::generate(left.begin(), left.end(), [n = size_t{15}]() mutable { return n++; });
            EXPECT_EQ(Offsets(read), OffsetsWithout(0, left));
            EXPECT_EQ(read.Lines(), (Lines{"bytes_damaged loss block 0 at " + std::to_string(first.offset) +
                                           "+" + std::to_string(last.End() - first.offset)}));
        }
    }
}

TEST_P(BlockFrames, AreMissingWhereTheIndexHasThem) {
    Begin(3);
    RecordSeconds(0, 5);
    Record(At(5000), kVideoI, 1, 40);
    Recorder().PowerOff();
    const uint64_t start = Image().FrameOffset(0, 0);
    Fill(start, start + Image().FrameAreaSize(), 0);
    const ReadFrames read = Read(0);
    EXPECT_EQ(read.frames.size(), 0u);
    EXPECT_TRUE(read.lossAtEnd);
    EXPECT_EQ(read.Lines(),
              (Lines{"frames_missing loss block 0 channel 0 count 5",
                     "frames_missing loss block 0 channel 1 count 1",
                     "bytes_damaged loss block 0 at 0+" + std::to_string(Recorded().back().End())}));
    EXPECT_EQ(read.problems[0].before, kStart * kMicrosPerSecond);
    EXPECT_EQ(read.problems[0].after, (kStart + 4) * kMicrosPerSecond);
}

TEST_P(BlockFrames, LoseTheEndOfAClosedBlock) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    // From the head of the fifth but last frame on: what follows nothing like a head may be damaged itself.
    const auto& frames = Recorded();
    Fill(HeadOf(frames[45]), HeadOf(frames.back()) + 124, 0);
    const ReadFrames read = Read(0);
    EXPECT_EQ(Offsets(read), OffsetsWithout(0, {44, 45, 46, 47, 48, 49}));
    EXPECT_TRUE(read.lossAtEnd);
    EXPECT_EQ(read.Lines(), (Lines{"bytes_damaged loss block 0 at " + std::to_string(frames[44].offset) +
                                   "+" + std::to_string(frames.back().End() - frames[44].offset)}));
}

// ---- what the disk does not deliver

TEST_P(BlockFrames, AreMissingWhereACopyHasAHoleUpToTheEndOfABlock) {
    // In a ring that has wrapped each place has a tail, if only that of an earlier turn. Without one, and with zeros from
    // inside a picture up to it, a block that was closed looks like one that was cut off.
    Begin(1);
    for (int64_t hour = 0; hour < 40; ++hour) {
        RecordSeconds(hour * 3600, 5);
        Recorder().PowerOff();
    }
    const std::vector<RecordedFrame> frames = Of(2); // of all turns
    const RecordedFrame& last = frames[frames.size() - 20];
    ASSERT_GE(last.frame.payload.size(), 32U);
    ASSERT_NE(last.frame.payload.back(), 0);
    Fill(HeadOf(last) + 24 + last.frame.payload.size(), Image().BlockStart(3), 0);
    // A recorder that lost its power between two frames leaves this, too.
    EXPECT_EQ(Read(2).Lines(), kNone);
    Fill(HeadOf(last) + 24 + last.frame.payload.size() - 32, Image().BlockStart(3), 0);
    const ReadFrames read = Read(2);
    EXPECT_EQ(read.frames.back().offset, last.offset);
    EXPECT_EQ(read.Lines(), (Lines{"bytes_damaged loss block 2 at " + std::to_string(last.End()) + "+" +
                                   std::to_string(Image().FrameAreaSize() - last.End())}));
    EXPECT_TRUE(read.lossAtEnd);
    // A place where the power is always cut has none.
    Fill(Image().TailOffset(3), Image().BlockStart(4), 0);
    EXPECT_EQ(Read(2).Lines(), kNone);
}

/// The same, where the zeros are the camera's own or do not reach up to the end: the recorder was cut off, and nothing is
/// lost.
TEST_P(BlockFrames, AreNotMissingAfterSilence) {
    for (const bool silence : {true, false}) {
        Begin(1);
        for (int64_t hour = 0; hour < 40; ++hour) {
            RecordSeconds(hour * 3600, 5);
            if (silence) {
                sample_recorder::Frame sound;
                sound.pts = At(hour * 3600000 + 4950);
                sound.type = kAudio;
                sound.payload.resize(160);
                Record(sound);
            }
            Recorder().PowerOff();
        }
        const std::vector<RecordedFrame> frames = Of(2);
        const uint64_t end = HeadOf(frames.back()) + 24 + frames.back().frame.payload.size();
        Fill(silence ? end : end - 32, Image().BlockStart(3), 0);
        if (!silence) {
            Fill(end + 5000, end + 5001, 0x47); // of an earlier turn
        }
        EXPECT_EQ(Read(2).Lines(), kNone) << silence;
    }
}

TEST_P(BlockFrames, AreUnreadableUpToTheEndOfTheIndex) {
    // The last five heads and all after them: one loss, not a second one of the same bytes.
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    const RecordedFrame& first = Recorded()[45];
    const uint64_t end = (EndOfLast() + 511) / 512 * 512;
    Fail(HeadOf(first), end);
    for (const Want want : {Want::Payloads, Want::Heads}) {
        const ReadFrames read = Read(0, want);
        EXPECT_EQ(Offsets(read), OffsetsWithout(0, {45, 46, 47, 48, 49}));
        EXPECT_TRUE(read.lossAtEnd);
        EXPECT_EQ(read.Lines(), (Lines{"bytes_unreadable loss block 0 at " + std::to_string(first.offset) +
                                       "+" + std::to_string(end - HeadOf(first))}));
    }
}

TEST_P(BlockFrames, DropAPayloadThatCannotBeRead) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    const RecordedFrame damaged = Recorded()[25];
    const uint64_t sector = (HeadOf(damaged) + 60) / 512 * 512;
    Fail(HeadOf(damaged) + 60, HeadOf(damaged) + 61);
    const ReadFrames read = Read(0);
    const auto from = static_cast<uint32_t>(HeadOf(damaged) + 60 - Image().FrameOffset(0, 0));
    const auto to = static_cast<uint32_t>(sector + 512 - Image().FrameOffset(0, 0));
    std::vector<size_t> left;
    for (size_t i = 0; i < Recorded().size(); ++i) {
        // The frames that the rest of the sector reaches into: those whose heads are lost too.
        if (Recorded()[i].offset < to && Recorded()[i].End() > from) {
            left.push_back(i);
        }
    }
    EXPECT_EQ(Offsets(read), OffsetsWithout(0, left));
    EXPECT_EQ(read.Lines(), (Lines{"bytes_unreadable loss block 0 at " + std::to_string(from) + "+" +
                                   std::to_string(to - from)}));
    EXPECT_EQ(read.problems[0].before, At(2400));
    EXPECT_EQ(read.problems[0].after, Recorded()[left.back() + 1].frame.pts);
}

TEST_P(BlockFrames, EndWhenTheWatchSaysSo) {
    Begin(1);
    RecordSeconds(100, 60);
    Recorder().PowerOff();
    const recordings::Disk& disk = Open();
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    int calls = 0;
    try {
        const recordings::BlockFrames stopped(disk, blocks.All().at(0), Want::Heads, {},
                                              [&](const recordings::Progress&) {
                                                  ++calls;
                                                  return false;
                                              });
        ADD_FAILURE();
    } catch (const recordings::Error& error) {
        EXPECT_EQ(error.Kind(), recordings::ErrorKind::Cancelled);
    }
    EXPECT_EQ(calls, 1);
}

TEST_P(BlockFrames, MergeUnreadableSectors) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    const uint64_t from = (HeadOf(Recorded()[10]) + 511) / 512 * 512;
    for (int i = 0; i < 4; ++i) {
        Fail(from + static_cast<uint64_t>(i) * 512, from + static_cast<uint64_t>(i) * 512 + 512);
    }
    const ReadFrames read = Read(0);
    EXPECT_EQ(read.Lines(), (Lines{"bytes_unreadable loss block 0 at " +
                                   std::to_string(from - Image().FrameOffset(0, 0)) + "+2048"}));
}

TEST_P(BlockFrames, OfACopyThatWasCutOff) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    RecordSeconds(10, 5);
    Recorder().PowerOff();
    const uint64_t end = HeadOf(Of(1)[20]) + 50;
    Image().Truncate(end);
    const ReadFrames read = Read(1);
    EXPECT_EQ(read.frames.size(), 20u);
    ASSERT_EQ(read.problems.size(), 1u);
    EXPECT_EQ(read.problems[0].kind, recordings::ProblemKind::BytesUnreadable);
    EXPECT_EQ(*read.problems[0].offset, Of(1)[20].offset + 50);
}

TEST_P(BlockFrames, OfAWipedBlockAreWhatLooksLikeFrames) {
    Begin(1);
    for (int64_t i = 0; i < 3; ++i) {
        RecordSeconds(i * 10, 5);
        Recorder().PowerOff();
    }
    const std::vector<uint8_t> zeros(512);
    Image().Write(Image().HeadOffset(1), zeros.data(), zeros.size());
    Image().Change<BlockTail_t>(Image().TailOffset(1), [](BlockTail_t& tail) { tail = {}; });
    if (Image().Extended()) {
        Image().Change<BlockTailEx_t>(Image().TailExOffset(1), [](BlockTailEx_t& tail) { tail = {}; });
    }
    const ReadFrames read = Read(1);
    EXPECT_TRUE(Same(read, 1));
    EXPECT_EQ(read.Lines(), kNone); // the list of blocks has named it
}

// ---- a damaged index

/// No block is closed before it has a frame. Here all but the tail became zeros.
TEST_P(BlockFrames, AreNamedWhenNothingButTheTailIsLeft) {
    Begin(1);
    for (int64_t hour = 0; hour < 3; ++hour) {
        RecordSeconds(hour * 3600, 2);
        Recorder().PowerOff();
    }
    for (const uint64_t from : {Image().FrameOffset(1, 0), Image().HeadOffset(1)}) {
        Fill(from, Image().TailOffset(1), 0);
        const ReadFrames read = Read(1);
        EXPECT_EQ(read.frames.size(), 0u);
        EXPECT_EQ(read.Lines(), Lines{"block_wiped loss block 1"});
        EXPECT_TRUE(read.lossAtEnd);
    }
}

/// The disk lost what was written to block 1 but for its tail, and shows what lay there before: here that of block 0.
TEST_P(BlockFrames, AreNamedWhenAnEarlierTurnShowsUnderTheTail) {
    for (const bool withoutIndex : {false, true}) {
        Begin(1);
        for (int64_t hour = 0; hour < 3; ++hour) {
            RecordSeconds(hour * 3600, 2);
            Recorder().PowerOff();
        }
        std::vector<uint8_t> earlier(static_cast<size_t>(Image().TailOffset(0) - Image().HeadOffset(0)));
        Image().Read(Image().HeadOffset(0), earlier.data(), earlier.size());
        Image().Write(Image().HeadOffset(1), earlier.data(), earlier.size());
        Lines expected = {"block_wiped loss block 1"};
        if (withoutIndex) {
            Fill(Image().IndexOffset(1), Image().TailOffset(1), 0xFF);
            expected.insert(expected.begin(), "index_damaged note block 1");
        }
        const ReadFrames read = Read(1);
        EXPECT_EQ(read.Lines(), expected);
        EXPECT_TRUE(read.lossAtEnd);
    }
}

TEST_P(BlockFrames, AreDeliveredWhenTheIndexIsLost) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    Image().Change<BlkIndexHead_t>(Image().IndexOffset(0),
                                   [](BlkIndexHead_t& head) { head.iframeCount[0] = 0xFFFFFF; });
    EXPECT_TRUE(Same(Read(0), 0));
    EXPECT_EQ(Read(0).Lines(),
              (Lines{"index_damaged note block 0"})); // the end mark tells that nothing is missing
    Begin(1, false);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    Image().Change<BlkIndexHead_t>(Image().IndexOffset(0),
                                   [](BlkIndexHead_t& head) { head.iframeCount[0] = 6; });
    EXPECT_TRUE(Same(Read(0), 0));
    EXPECT_EQ(Read(0).Lines(), (Lines{"index_damaged loss block 0 channel 0"}));
}

TEST_P(BlockFrames, ProveThatASegmentIsWrong) {
    Begin(1);
    RecordSeconds(0, 5);
    Recorder().PowerOff();
    const uint64_t segment = Image().IndexOffset(0) + sizeof(BlkIndexHead_t) + 5 * sizeof(IFrameItem_t);
    const auto good = Image().Get<RecSegItem_t>(segment);
    const auto expect = [&](const char* line, const std::function<void(RecSegItem_t&)>& edit) {
        Image().Change<RecSegItem_t>(segment, edit);
        const ReadFrames read = Read(0);
        EXPECT_TRUE(Same(read, 0));
        EXPECT_EQ(read.Lines(), Lines{line});
        Image().Put(segment, good);
    };
    const char* const note = "index_damaged note block 0 channel 0";
    expect(note, [](RecSegItem_t& item) { item.spos += 8; });
    expect(note, [](RecSegItem_t& item) { item.totalsize += 1000; });
    expect(note, [](RecSegItem_t& item) { item.s -= 1; }); // the index has the key frame's time too
    expect(note, [](RecSegItem_t& item) { item.epos -= 300; });
}

} // namespace

} // namespace test_support
