// A check of a disk: nothing on sound ones, and each kind of damage named with its place.

#include "recordings/health.h"

#include <gtest/gtest.h>

#include "recordings/error.h"
#include "recordings/frames_fixture.h"
#include "sample_recorder/generated_source.h"

namespace test_support {

namespace {

using recordings::Finding;
using recordings::ProblemKind;
using sample_recorder::BlockContents;
using sample_recorder::Frame;
using sample_recorder::GeneratedCamera;
using sample_recorder::GeneratedSource;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC

class Health : public FramesFixture {
protected:
    std::vector<Finding> Findings(bool full) {
        std::vector<Finding> findings;
        const recordings::Disk& disk = Open();
        recordings::CheckRequest request;
        request.full = full;
        m_checked = CheckHealth(disk, recordings::BlockList::Read(disk), request,
                                [&](const Finding& finding) { findings.push_back(finding); });
        return findings;
    }

    /// Each finding as "kind severity block (fields)".
    std::vector<std::string> Check(bool full = true) {
        std::vector<std::string> lines;
        for (const Finding& finding : Findings(full)) {
            lines.push_back(Brief(finding.problem) +
                            (finding.fields.empty() ? "" : " (" + finding.fields + ")"));
        }
        return lines;
    }
    using Lines = std::vector<std::string>;

    /// One camera, from second to second; blocks of 64 KiB take some forty seconds each.
    void RecordCamera(uint32_t seconds, uint32_t from = 0) {
        GeneratedSource camera(GeneratedCamera{0, 5, 5, 900, 250, 0, 0}, 1, kStart + from, seconds);
        RecordAll(camera);
    }

    /// A disk of four blocks, of which three are closed and the newest is open.
    void RecordFour(uint32_t fmtVersion = 0) {
        Start(fmtVersion, 1, 0x8000);
        for (uint32_t at = 0; Recorder().CurrentBlock() != 3; at += 5) {
            RecordCamera(5, at);
        }
    }

    uint32_t HeadTime(uint32_t block) { return Image().Get<BlockHead_t>(Image().HeadOffset(block)).RecTime; }

    /// Video as cameras send it: units after start codes, a key frame with its parameters, and pictures.
    void RecordVideo(int64_t pts, bool key, std::initializer_list<uint8_t> units) {
        Frame frame;
        frame.pts = pts;
        frame.type = key ? 1 : 0;
        for (const uint8_t unit : units) {
            frame.payload.insert(frame.payload.end(), {0, 0, 0, 1, unit, 0x80});
            frame.payload.resize(frame.payload.size() + 100, 0x55);
        }
        Record(frame);
    }

    recordings::Checked m_checked;
};

TEST_F(Health, SoundDisksHaveNoFinding) {
    for (const uint32_t fmtVersion : {0u, 1u}) {
        RecordFour(fmtVersion);
        EXPECT_EQ(Check(false), Lines()) << "open";
        EXPECT_EQ(m_checked.blocks, 4u);
        EXPECT_EQ(m_checked.frames, 0u);
        EXPECT_EQ(Check(), Lines());
        EXPECT_EQ(m_checked.frames, Recorded().size());
        Recorder().PowerOff();
        EXPECT_EQ(Check(), Lines()) << "closed";
        Image().EditHead([](PartHead_t& head) {
            head.Encrypt = 1;
            head.EncryptMap = 1;
        });
        EXPECT_EQ(Check(), Lines()) << "locked";
    }
}

TEST_F(Health, AWrappedRingWithAStaleRestHasNoFinding) {
    for (const uint32_t fmtVersion : {0u, 1u}) {
        RecordFour(fmtVersion);
        for (uint32_t at = 1000; Recorder().BlocksOpened() < 12; at += 5) {
            RecordCamera(5, at);
        }
        RecordCamera(5, 2000);
        Recorder().CutPower();
        EXPECT_EQ(Check(false), Lines());
        EXPECT_EQ(Check(), Lines());
    }
}

TEST_F(Health, AnEmptyDiskHasNoFinding) {
    MakeDisk();
    EXPECT_EQ(Check(), Lines());
    EXPECT_EQ(m_checked.blocks, 0u);
}

TEST_F(Health, TablesThatDifferFromTheirBackups) {
    RecordFour();
    const PartHead_t head = Image().Head();
    Image().Put(head.BBTabBakOffs, uint8_t{0x04});
    Image().Put(head.BBCounterBakOffs + 1, uint8_t{7});
    Image().Put(head.BBCounterBakOffs + 3, uint8_t{7});
    const std::vector<Finding> findings = Findings(false);
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].problem.kind, ProblemKind::TablesDiffer);
    EXPECT_EQ(findings[0].fields, "bad-block table");
    EXPECT_EQ(findings[0].problem.block, 2u);
    EXPECT_EQ(findings[0].problem.count, 1u);
    EXPECT_EQ(findings[0].place, uint64_t{head.BBTabOffs});
    EXPECT_EQ(findings[1].fields, "suspect table");
    EXPECT_EQ(findings[1].problem.block, 1u);
    EXPECT_EQ(findings[1].problem.count, 2u);
    EXPECT_EQ(findings[1].place, head.BBCounterOffs + uint64_t{1});
}

TEST_F(Health, BackupTablesThatCannotBeRead) {
    RecordFour();
    const PartHead_t head = Image().Head();
    Fail(head.BBCounterBakOffs, head.BBCounterBakOffs + 1);
    EXPECT_EQ(Check(), Lines{"backup_tables_unreadable note"});
    Forgive();
    Fail(head.BBTabOffs, head.BBTabOffs + 1);
    EXPECT_EQ(Check(), Lines{"backup_tables_used note"});
}

TEST_F(Health, TablesInTheRing) {
    RecordFour();
    Image().EditHead([](PartHead_t& head) { head.BBTabBakOffs = BLOCK_BASE_OFFSET + 100; });
    const Lines lines = Check();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "tables_misplaced note (backup of the bad-block table)");
}

TEST_F(Health, BlocksThatAreMarked) {
    RecordFour();
    Image().SetBad(6);
    Image().SetSuspect(2, 3);
    EXPECT_EQ(Check(), (Lines{"block_suspect note block 2", "block_retired note block 6"}));
}

TEST_F(Health, AHeadThatStatesTooFewBlocks) {
    RecordFour();
    Recorder().PowerOff();
    Image().EditHead([](PartHead_t& head) { head.BlkCount = 3; });
    const Lines lines = Check();
    EXPECT_EQ(lines, Lines{"blocks_outside_ring loss block 3"});
}

TEST_F(Health, FieldsOfAHead) {
    RecordFour();
    Image().Change<BlockHead_t>(Image().HeadOffset(1), [](BlockHead_t& head) {
        head.RecTime += 6;
        head.VehicleNum[0] = 'X';
        head.prop[4].FrameRate = 9;
    });
    const std::vector<Finding> findings = Findings(false);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0].problem.kind, ProblemKind::HeadDamaged);
    EXPECT_EQ(findings[0].fields, "start time, vehicle number, properties of channel 4");
    EXPECT_EQ(findings[0].place, Image().BlockStart(1));
    EXPECT_EQ(findings[0].channels.bits, 1u);
    EXPECT_EQ(findings[0].start, (HeadTime(1)) * int64_t{1000000});
}

TEST_F(Health, SettingsThatWereChangedAreNoDamage) {
    RecordFour();
    for (const uint32_t block : {2u, 3u}) {
        Image().Change<BlockHead_t>(Image().HeadOffset(block),
                                    [](BlockHead_t& head) { head.VehicleID[0] = 'X'; });
    }
    EXPECT_EQ(Check(), Lines());
}

TEST_F(Health, FieldsOfATail) {
    RecordFour(1);
    Image().Change<BlockTail_t>(Image().TailOffset(1), [](BlockTail_t& tail) { tail.EndTime += 6; });
    EXPECT_EQ(Check(false), Lines{"tail_damaged note block 1 (end time, extended end time)"});
    EXPECT_EQ(Findings(false).front().place, Image().TailOffset(1));
}

TEST_F(Health, ABlockThatWasNotClosedBeforeTheNext) {
    RecordFour();
    Image().Put(Image().TailOffset(1), BlockTail_t{});
    EXPECT_EQ(Check(false), Lines{"not_closed note block 1"});
}

TEST_F(Health, ATailThatLostItsNumber) {
    RecordFour();
    Image().Change<BlockTail_t>(Image().TailOffset(2), [](BlockTail_t& tail) { tail.RecSeq = 0; });
    EXPECT_EQ(Check(false), Lines{"tail_damaged note block 2 (number)"});
}

TEST_F(Health, ATailThatOnlyItsExtensionAnswersFor) {
    RecordFour(1);
    Image().Change<BlockTail_t>(Image().TailOffset(1), [](BlockTail_t& tail) { tail.RecSeq = 77; });
    EXPECT_EQ(Check(false), Lines{"tail_damaged note block 1 (number)"});
}

TEST_F(Health, ABlockThatWasClosedWithoutRecords) {
    MakeDisk();
    Image().WriteBlock(0, BlockContents::Closed(1, 1000, 1900));
    EXPECT_EQ(Check(false), Lines());
    // With no record to hold it against, the tail's start is held against the head's: five seconds are nothing.
    Image().Change<BlockTail_t>(Image().TailOffset(0), [](BlockTail_t& tail) { tail.StartTime = 1005; });
    EXPECT_EQ(Check(false), Lines());
    Image().Change<BlockTail_t>(Image().TailOffset(0), [](BlockTail_t& tail) { tail.StartTime = 1006; });
    EXPECT_EQ(Check(false), Lines{"head_damaged note block 0 (start time)"});
}

TEST_F(Health, BlocksThatAreGone) {
    RecordFour();
    const std::vector<uint8_t> zeros(Image().BlockSize());
    Image().Write(Image().BlockStart(1), zeros.data(), zeros.size());
    Fail(Image().BlockStart(2), Image().BlockStart(3));
    EXPECT_EQ(Check(), (Lines{"block_wiped loss block 1", "block_unreadable loss block 2"}));
    EXPECT_EQ(m_checked.blocks, 4u);
}

TEST_F(Health, ABlockThatIsMarkedBadThoughItHoldsARecording) {
    RecordFour();
    Image().SetBad(1);
    EXPECT_EQ(Check(), Lines{"block_marked_bad loss block 1"});
}

TEST_F(Health, AClockThatWasSetBack) {
    Start(0, 1, 0x8000);
    RecordCamera(5, 7200);
    Recorder().PowerOff();
    RecordCamera(5, 0);
    const std::vector<Finding> findings = Findings(true);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0].problem.kind, ProblemKind::ClockSetBack);
    EXPECT_EQ(findings[0].problem.block, 1u);
    EXPECT_EQ(findings[0].end, kStart * int64_t{1000000});
}

TEST_F(Health, AnIndexThatMakesNoSense) {
    RecordFour();
    const uint64_t firstKey = Image().IndexOffset(1) + sizeof(BlkIndexHead_t);
    Image().Change<IFrameItem_t>(firstKey, [](IFrameItem_t& key) { key.pos = 0x70000000; });
    EXPECT_EQ(Check(false), Lines{"index_damaged note block 1 (key frames)"});
    Image().Change<BlkIndexHead_t>(Image().IndexOffset(1),
                                   [](BlkIndexHead_t& counts) { counts.iframeCount[9] = 1; });
    EXPECT_EQ(Check(false), Lines{"index_damaged note block 1 (counts)"});
}

TEST_F(Health, EventsThatAnIndexHasWhereNoneCanBe) {
    Start(0, 1, 0x8000);
    RecordCamera(5);
    RecordEvent((kStart + 5) * int64_t{1000000}, 4, 0);
    RecordCamera(5, 6);
    Recorder().PowerOff();
    const auto counts = Image().Get<BlkIndexHead_t>(Image().IndexOffset(0));
    ASSERT_EQ(counts.eventCount, 1u);
    const uint64_t place = Image().IndexOffset(0) + sizeof counts +
                           counts.iframeCount[0] * sizeof(IFrameItem_t) +
                           counts.recSegCount[0] * sizeof(RecSegItem_t);
    const auto event = Image().Get<EventIndexItem_t>(place);
    ASSERT_EQ(event.type, 4u);
    const Lines odd = {"index_damaged note block 0 (events)"};

    Image().Change<EventIndexItem_t>(place,
                                     [&](EventIndexItem_t& item) { item.pos = Image().FrameAreaSize(); });
    EXPECT_EQ(Check(false), odd) << "after the end of the frame area";
    Image().Put(place, event);
    // The block goes from second 0 to second 10: a day before its start, and a day after its end.
    for (const int64_t second : {-86400 - 1, 10 + 86400 + 1}) {
        Image().Change<EventIndexItem_t>(
            place, [&](EventIndexItem_t& item) { item.pts = (kStart + second) * 1000000; });
        EXPECT_EQ(Check(false), odd) << second;
    }
    for (const int64_t second : {-86400, 10 + 86400}) {
        Image().Change<EventIndexItem_t>(
            place, [&](EventIndexItem_t& item) { item.pts = (kStart + second) * 1000000; });
        EXPECT_EQ(Check(false), Lines()) << second;
    }
}

TEST_F(Health, AnIndexThatHasAChannelEndElsewhere) {
    Start(0, 3, 0x8000);
    for (int64_t i = 0; i < 40; ++i) {
        Record(kStart * int64_t{1000000} + i * 200000, i % 5 == 0 ? 1 : 0, 0, 100);
        Record(kStart * int64_t{1000000} + i * 200000 + 1000, i % 5 == 0 ? 1 : 0, 1, 100);
    }
    Recorder().PowerOff();
    const uint64_t counts = Image().IndexOffset(0);
    const auto head = Image().Get<BlkIndexHead_t>(counts);
    const uint64_t segment =
        counts + sizeof head + (head.iframeCount[0] + head.iframeCount[1]) * sizeof(IFrameItem_t);
    ASSERT_EQ(Image().Get<RecSegItem_t>(segment).epos, Of(0).at(78).End());
    const auto endAt = [&](uint32_t end) {
        Image().Change<RecSegItem_t>(segment, [end](RecSegItem_t& item) { item.epos = end; });
        return Check();
    };
    const uint32_t end = Of(0).at(78).End();
    EXPECT_EQ(endAt(end - 4), Lines()) << "as a rebuilt index has it";
    for (const uint32_t wrong : {end - 124, end - 1, end + 1, end + 124}) {
        EXPECT_EQ(endAt(wrong), Lines{"index_damaged note block 0 channel 0"}) << wrong;
    }
}

TEST_F(Health, FramesThatAreNotWhereTheIndexHasThem) {
    RecordFour();
    Image().Change<FrameHead_t>(Image().FrameOffset(1, 0), [](FrameHead_t& head) { head.sync = 0; });
    EXPECT_EQ(Check(false), Lines{"frame_damaged loss block 1 channel 0"});
    Forgive();
    Fail(Image().FrameOffset(2, 0), Image().FrameOffset(2, 1));
    EXPECT_EQ(Check(false),
              (Lines{"frame_damaged loss block 1 channel 0", "bytes_unreadable loss block 2 channel 0"}));
}

TEST_F(Health, BytesInsideABlockTakeEveryFrameToBeFound) {
    RecordFour();
    const RecordedFrame frame = Of(1).at(20);
    Image().Write(HeadOf(frame), std::vector<uint8_t>(frame.End() - frame.offset, 0x11).data(),
                  frame.End() - frame.offset);
    EXPECT_EQ(Check(false), Lines());
    const std::vector<Finding> findings = Findings(true);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0].problem.kind, ProblemKind::BytesDamaged);
    // The frame before it leads to no other, so that its length is in doubt, and it with that.
    EXPECT_EQ(findings[0].place, HeadOf(Of(1).at(19)));
    EXPECT_EQ(findings[0].start, Of(1).at(18).frame.pts);
    EXPECT_EQ(findings[0].end, Of(1).at(21).frame.pts);
}

TEST_F(Health, VideoThatIsNotWhatItIsSaidToBe) {
    Start(0, 1);
    const auto time = [](int i) { return (kStart * int64_t{1000000}) + i * 200000; };
    for (int i = 0; i < 40; ++i) {
        if (i == 22) {
            Record(time(i), 0, 0, 200); // no start code
        } else if (i == 30) {
            RecordVideo(time(i), true, {0x41}); // a picture that needs others
        } else if (i % 5 == 0) {
            RecordVideo(time(i), true, {0x67, 0x68, 0x65});
        } else {
            RecordVideo(time(i), false, {0x41});
        }
    }
    Recorder().PowerOff();
    EXPECT_EQ(Check(false), Lines());
    EXPECT_EQ(Check(), (Lines{"payloads_damaged loss block 0 channel 0 count 1",
                              "payloads_damaged loss block 0 channel 0 count 1"}));
    EXPECT_EQ(Findings(true).front().place, HeadOf(Of(0).at(22)));
}

TEST_F(Health, KeyFramesWithoutParameters) {
    Start(0, 1);
    for (int i = 0; i < 20; ++i) {
        const int64_t time = (kStart * int64_t{1000000}) + i * 200000;
        if (i % 5 == 0) {
            RecordVideo(time, true, {0x65});
        } else {
            RecordVideo(time, false, {0x41});
        }
    }
    Recorder().PowerOff();
    EXPECT_EQ(Check(), Lines{"parameters_missing loss block 0 channel 0 count 4"});
}

TEST_F(Health, EndsWhenItsWatchSaysSo) {
    RecordFour();
    const recordings::Disk& disk = Open();
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    EXPECT_THROW(
        CheckHealth(
            disk, blocks, {}, [](const Finding&) {}, [](const recordings::Progress&) { return false; }),
        recordings::Error);
}

TEST_F(Health, AsksItsWatchBetweenTheFramesOfABlock) {
    RecordFour();
    const recordings::Disk& disk = Open();
    const recordings::BlockList blocks = recordings::BlockList::Read(disk);
    const uint64_t size = disk.Facts().blockSize;
    uint64_t before = 0;
    uint64_t within = 0;
    CheckHealth(
        disk, blocks, {true}, [](const Finding&) {},
        [&](const recordings::Progress& progress) {
            EXPECT_GE(progress.done, before);
            EXPECT_LT(progress.done, progress.total);
            EXPECT_EQ(progress.total, blocks.All().size() * size);
            before = progress.done;
            within += progress.done % size != 0 ? 1 : 0;
            return true;
        });
    EXPECT_GE(within, blocks.All().size());
}

TEST(HealthWords, EachKindHasAMeaningAndAdvice) {
    for (int kind = 0; kind <= static_cast<int>(ProblemKind::SoundDamaged); ++kind) {
        EXPECT_STRNE(recordings::MeaningOf(static_cast<ProblemKind>(kind)), "") << kind;
        EXPECT_STRNE(recordings::AdviceFor(static_cast<ProblemKind>(kind)), "") << kind;
    }
}

} // namespace

} // namespace test_support
