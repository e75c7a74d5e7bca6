// What happens when the device fails: the results the interface promises, and nothing lost.

#include "playback/part_fixture.h"

namespace {

using namespace test_support;

class PlaybackFaults : public PartFixture {
protected:
    /// Runs the round with fate @p fate for system call @p first, and for all after it if @p forever.
    /// @return false when the round ended before that call
    bool RunWith(const Fate& fate, size_t first, bool forever) {
        size_t opened = 0;
        size_t closed = 0;
        size_t calls = 0;
        RoundOutcome outcome;
        const SystemCallLog log([&](const Call& call, size_t index) {
            const bool struck = forever ? index >= first : index == first;
            calls = index + 1;
            opened += call.kind == CallKind::Open && !(struck && fate.kind == Fate::Fail) ? 1u : 0u;
            closed += call.kind == CallKind::Close ? 1u : 0u;
            return struck && call.kind != CallKind::Sync ? fate : PassUnflushed(call);
        });
        Quietly([&] { outcome = PlayRound(Disk().Access()); });
        EXPECT_EQ(opened, closed) << first;
        EXPECT_EQ(outcome.wrongPayloads, 0) << first;
        EXPECT_LE(outcome.frames, m_frames + 20) << first; // a failed seek plays from another place
        return calls > first;
    }

    void RunWithEach(const Fate& fate, bool forever) {
        RecordOnNewDisk(kRoundScript);
        Quietly([&] { m_frames = PlayRound(Disk().Access()).frames; });
        size_t first = 0;
        while (RunWith(fate, first, forever)) {
            ++first;
        }
        EXPECT_GT(first, 200u);
    }

private:
    int m_frames = 0;
};

TEST_F(PlaybackFaults, RoundMeetsEveryResult) {
    RecordOnNewDisk(kRoundScript);
    RoundOutcome outcome;
    Quietly([&] { outcome = PlayRound(Disk().Access()); });
    EXPECT_GT(outcome.frames, 25);
    EXPECT_EQ(outcome.wrongPayloads, 0);
    EXPECT_GT(outcome.results[0], 0); // -1
    EXPECT_GT(outcome.results[2], 3); // 1
    EXPECT_EQ(outcome.results[3], 0); // 2 never gets past the partition object
}

TEST_F(PlaybackFaults, EachCallFailingOnce) {
    RunWithEach(Fate::Failing(), false);
}

TEST_F(PlaybackFaults, EachCallAndAllAfterItFailing) {
    RunWithEach(Fate::Failing(), true);
}

TEST_F(PlaybackFaults, EachReadComingShortOnce) {
    RunWithEach(Fate::Shortened(7), false);
}

TEST_F(PlaybackFaults, EachReadAndAllAfterItComingShort) {
    RunWithEach(Fate::Shortened(15), true);
}

TEST_F(PlaybackFaults, ReadThatFailedCanBeRepeated) {
    OpenReadPart part(RecordOnNewDisk("I0@1000 P0@1001 P0@1002 |"));
    PartPlayer player(*part, 0, SegmentRecord(0, 0, 0, 1000));
    EXPECT_EQ(player.Frame(), "I0@1000");
    for (const Fate& fate : {Fate::Failing(), Fate::Shortened(0), Fate::Shortened(23)}) {
        // The seek, the head, the payload.
        for (const size_t failing : {size_t{0}, size_t{1}, size_t{2}}) {
            const SystemCallLog log(
                [&](const Call&, size_t index) { return index == failing ? fate : Fate(); });
            const bool harmless = failing == 0 && fate.kind == Fate::Short;
            if (!harmless) {
                EXPECT_EQ(player.Frame(), "failed");
            }
        }
    }
    EXPECT_EQ(player.Frame(), "P0@1001");
    EXPECT_EQ(player.Frame(), "P0@1002");
}

TEST_F(PlaybackFaults, FailedCloseLosesNothing) {
    RecordOnNewDisk("I0@1000 P0@1001 | P0@1002 I0@1003 |");
    const SystemCallLog log([](const Call& call, size_t) {
        return call.kind == CallKind::Close || call.kind == CallKind::Sync ? Fate::Failing() : Fate();
    });
    OpenReadDisk disk(Disk());
    DiskPlayer player(*disk, 0, SegmentRecord(0, 0, 0, 1000));
    Quietly([&] { EXPECT_EQ(player.Frames(), "I0@1000 P0@1001 P0@1002 end"); });
}

} // namespace
