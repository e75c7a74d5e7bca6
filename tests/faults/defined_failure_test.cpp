// Reads that fail, are interrupted, or deliver less than a whole structure: all the same to the library, and what
// follows from each is known. The expectations here are worked out from the disks of media.h by hand.

#include <array>
#include <functional>
#include <optional>

#include "faults/fault_plan.h"
#include "faults/media.h"
#include "playback/part_fixture.h"

namespace {

using namespace test_support;

class DefinedFailures : public ::testing::Test {
protected:
    /// Runs a test once for each way in which a read can fail, on a disk of its own each time.
    void ForEachReadFault(const std::function<void()>& body) {
        for (const IoFault& fault : IoFaults()) {
            if (fault.fits(CallKind::Read)) {
                SCOPED_TRACE(fault.name);
                m_fault = &fault;
                body();
                Heal();
            }
        }
    }

    PartitionImage& Make(Medium medium) {
        m_disk.emplace(MakeMedium(medium, m_dir.File(m_fault->name)));
        m_access = m_disk->Access();
        return *m_disk;
    }
    PartitionImage& Disk() { return *m_disk; }
    PartAccess_t* Access() { return &m_access; }

    /// Makes the reads that @p which chooses fail, until Heal().
    void FailReads(std::function<bool(const Call&)> which) { m_which = std::move(which); }
    void FailReadsAt(uint64_t offset) {
        FailReads([offset](const Call& call) { return static_cast<uint64_t>(call.offset) == offset; });
    }
    void FailAllReads() {
        FailReads([](const Call&) { return true; });
    }
    void Heal() { m_which = nullptr; }

    /// Where the segment tables of a block begin: after the index head and one I-frame.
    uint64_t SegmentsOffset(uint32_t block) {
        return Disk().IndexOffset(block) + sizeof(BlkIndexHead_t) + 16;
    }
    /// Where its events begin: after three segments more.
    uint64_t EventsOffset(uint32_t block) { return SegmentsOffset(block) + 3 * sizeof(RecSegItem_t); }

private:
    Fate Decide(const Call& call) {
        const bool fails = call.kind == CallKind::Read && m_which != nullptr && m_which(call);
        return fails ? m_fault->fate(call) : Fate::Skipped();
    }

    TempDir m_dir;
    const IoFault* m_fault = nullptr;
    std::optional<PartitionImage> m_disk;
    PartAccess_t m_access = {};
    std::function<bool(const Call&)> m_which;
    SystemCallLog m_log{[this](const Call& call, size_t) { return Decide(call); }};
};

// ---- searches

/// A search disk on the test's device, and its lists as text.
class DefinedSearchFailures : public DefinedFailures {
protected:
    void Open(Medium medium = Medium::Search) {
        Make(medium);
        m_search.Quit(); // from the disk before
        EXPECT_EQ(m_search.Init(Access()), 0);
    }
    CSearchDisk& Search() { return m_search; }

    /// Without the types of events: those are taken from the events that were loaded last.
    Lines Media() {
        SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
        RecordList records;
        Quietly([&] { EXPECT_EQ(m_search.SearchMedia(&everything, &records), records.m_nCount); });
        for (auto* node = records.m_pHead; node != nullptr; node = node->pNext) {
            node->data.alarmType = 0;
        }
        return Describe(records);
    }
    Lines Events() {
        SearchParam_t everything = {0xFF, 0, 0x7FFFFFFF, kAll};
        EventList events;
        Quietly([&] { EXPECT_EQ(m_search.SearchEvent(&everything, &events), events.m_nCount); });
        return Describe(events);
    }
    Lines Units() {
        UnitList units;
        Quietly([&] { EXPECT_EQ(m_search.GetUnitInfo(&units), units.m_nCount); });
        return Describe(units);
    }
    Lines InvalidUnits() {
        UnitList units;
        Quietly([&] { EXPECT_EQ(m_search.GetInvalidUnit(&units), units.m_nCount); });
        return Describe(units);
    }
    std::vector<unsigned int> Days() {
        DayList days;
        Quietly([&] { EXPECT_EQ(m_search.GetDateInfo(&days), days.m_nCount); });
        return Elements(days);
    }
    /// Free bytes, or -1.
    long long FreeSpace() {
        DiskSpaceInfo_t space = {};
        int result = 0;
        Quietly([&] { result = m_search.GetSpaceInfo(&space); });
        EXPECT_EQ(space.totalSize, result == 0 ? uint64_t{kSearchBlocks} * kMediaBlockSize : 0u);
        return result == 0 ? static_cast<long long>(space.freeSize) : -1;
    }
    int LastBlock() {
        int block = 0;
        Quietly([&] { block = m_search.GetLastRecBlockId(); });
        return block;
    }

    static Lines Join(std::initializer_list<Lines> parts) {
        Lines all;
        for (const Lines& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }
    void ExpectEverything() {
        EXPECT_EQ(Media(), Join({kOfBlock2, kOfBlock4, kOfBlock0, kOfBlock1}));
        EXPECT_EQ(Events(), Join({kEventsOfBlock2, kEventsOfBlock4, kEventsOfBlock0}));
        EXPECT_EQ(Units(), (Lines{"2 1700120000", "4 1700200000", "0 1700280000", "1 1700320000"}));
        EXPECT_EQ(InvalidUnits(), (Lines{"3 0", "5 0"}));
        EXPECT_EQ(Days(), (std::vector<unsigned int>{1700092801, 1700179201, 1700265601}));
        EXPECT_EQ(FreeSpace(), 0);
        EXPECT_EQ(LastBlock(), 1);
    }

    const Lines kOfBlock2 = {"2/0/0 1700120000-1700130000 size 9000 alarm 0 flag 0",
                             "2/1/0 1700120000-1700159000 size 39000 alarm 0 flag 0",
                             "2/0/1 1700140000-1700159000 size 8000 alarm 0 flag 0"};
    const Lines kOfBlock4 = {"4/0/0 1700200000-1700210000 size 9000 alarm 0 flag 0",
                             "4/1/0 1700200000-1700239000 size 39000 alarm 0 flag 0",
                             "4/0/1 1700220000-1700239000 size 8000 alarm 0 flag 0"};
    const Lines kOfBlock0 = {"0/0/0 1700280000-1700290000 size 9000 alarm 0 flag 0",
                             "0/1/0 1700280000-1700319000 size 39000 alarm 0 flag 0",
                             "0/0/1 1700300000-1700319000 size 8000 alarm 0 flag 0"};
    const Lines kOfBlock1 = {"1/0/0 1700320000-1700352000 size 62914560 alarm 0 flag 1",
                             "1/1/0 1700320000-1700352000 size 62914560 alarm 0 flag 1"};
    const Lines kEventsOfBlock2 = {"2/0 1700120500 type 1", "2/1 1700145000 type 4"};
    const Lines kEventsOfBlock4 = {"4/0 1700200500 type 1", "4/1 1700225000 type 4"};
    const Lines kEventsOfBlock0 = {"0/0 1700280500 type 1", "0/1 1700305000 type 4"};

private:
    CSearchDisk m_search;
};

TEST_F(DefinedSearchFailures, PartitionHead) {
    ForEachReadFault([&] {
        Make(Medium::Search);
        FailReadsAt(0);
        CSearchPart part;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(part.Init(Access()), -1); }), "");
        EXPECT_EQ(part.GetBadBlockTab(), -1);
        unsigned int mode = 7;
        EXPECT_EQ(part.GetEncrypt(&mode), -1);
        EXPECT_EQ(mode, 7u);

        Search().Quit(); // from the disk before
        EXPECT_EQ(Search().Init(Access()), 0);
        Heal(); // too late: it is closed
        EXPECT_EQ(Media(), Lines());
        EXPECT_EQ(Events(), Lines());
        EXPECT_EQ(Units(), Lines());
        EXPECT_EQ(InvalidUnits(), Lines());
        EXPECT_TRUE(Days().empty());
        EXPECT_EQ(FreeSpace(), -1);
        EXPECT_EQ(LastBlock(), 0);
        EXPECT_EQ(Search().GetEncryptInfo(&mode), -1);
        unsigned char password[] = "secret";
        EXPECT_EQ(Search().CheckEncryptInfo(password), -1);
        EXPECT_EQ(Search().Init(Access()), -1); // it counts as initialised all the same

        EXPECT_EQ(Search().Quit(), 0);
        EXPECT_EQ(Search().Init(Access()), 0);
        ExpectEverything();
    });
}

TEST_F(DefinedSearchFailures, BadBlockTables) {
    ForEachReadFault([&] {
        Open();
        for (const uint32_t offset : {Disk().Head().BBTabOffs, Disk().Head().BBCounterOffs}) {
            FailReadsAt(offset);
            // Every block counts as bad.
            EXPECT_EQ(Media(), Lines());
            EXPECT_EQ(Events(), Lines());
            EXPECT_EQ(Units(), Lines());
            EXPECT_EQ(InvalidUnits(), (Lines{"0 0", "1 0", "2 0", "3 0", "4 0", "5 0"}));
            // No newest block was found: block 0 is used for it, and for the oldest, and its head and tail
            // can be read.
            EXPECT_EQ(Days(), std::vector<unsigned int>{1700265601});
            EXPECT_EQ(FreeSpace(), (kSearchBlocks - 1) * kMediaBlockSize);
            EXPECT_EQ(LastBlock(), 0);
        }
        Heal();
        ExpectEverything();
    });
}

TEST_F(DefinedSearchFailures, EverythingBehindTheBadBlockTables) {
    ForEachReadFault([&] {
        Open();
        EXPECT_EQ(InvalidUnits().size(), 2u); // loads the tables
        FailAllReads();
        EXPECT_EQ(Media(), Lines());
        EXPECT_EQ(Events(), Lines());
        EXPECT_EQ(Units(), Lines());
        EXPECT_EQ(InvalidUnits(), (Lines{"0 0", "1 0", "2 0", "3 0", "4 0", "5 0"}));
        EXPECT_TRUE(Days().empty());
        EXPECT_EQ(FreeSpace(), (kSearchBlocks - 1) * kMediaBlockSize);
        EXPECT_EQ(LastBlock(), 0);
        Heal();
        ExpectEverything();
    });
}

TEST_F(DefinedSearchFailures, EverythingBehindTheNewestBlock) {
    ForEachReadFault([&] {
        Open();
        ExpectEverything();
        FailAllReads();
        EXPECT_EQ(LastBlock(), 0); // none found
        EXPECT_EQ(FreeSpace(), 0); // the newest block found before is 1, the oldest 2
        Heal();
        ExpectEverything();
    });
}

TEST_F(DefinedSearchFailures, HeadOfABlock) {
    ForEachReadFault([&] {
        Open();
        FailReadsAt(Disk().HeadOffset(4));
        // The walk still holds the head of the block before, whose number is not that of this block's tail:
        // as in a block being written, it ends there.
        EXPECT_EQ(Media(), kOfBlock2);
        // The walk for events asks for no heads and no numbers.
        EXPECT_EQ(Events(), Join({kEventsOfBlock2, kEventsOfBlock0}));
        EXPECT_EQ(Units(), (Lines{"2 1700120000", "0 1700280000", "1 1700320000"}));
        EXPECT_EQ(InvalidUnits(), (Lines{"3 0", "4 0", "5 0"}));
        RecordList records;
        EventList events;
        Quietly([&] {
            EXPECT_EQ(Search().SearchUnitMedia(4, &records, &events), 0);
            EXPECT_EQ(Search().MixSearchUnit(4, &records, &events), 0);
            EXPECT_EQ(Search().GetBlockRecMap(4, 0), -1);
        });
        EXPECT_EQ(records.m_nCount + events.m_nCount, 0);
        Heal();
        ExpectEverything();
    });
}

TEST_F(DefinedSearchFailures, TailOfABlock) {
    ForEachReadFault([&] {
        Open();
        FailReadsAt(Disk().TailOffset(4));
        // Nothing was read into the walk's tail yet: its number is not that of a closed block.
        EXPECT_EQ(Media(), kOfBlock2);
        EXPECT_EQ(Events(), Join({kEventsOfBlock2, kEventsOfBlock0}));
        EXPECT_EQ(Units().size(), 4u); // tails do not matter
        EXPECT_EQ(InvalidUnits().size(), 2u);
        Heal();
        ExpectEverything();
    });
}

TEST_F(DefinedSearchFailures, IndexOfABlock) {
    ForEachReadFault([&] {
        Open();
        for (const uint64_t offset : {Disk().IndexOffset(4), SegmentsOffset(4)}) {
            FailReadsAt(offset);
            EXPECT_EQ(Media(), Join({kOfBlock2, kOfBlock0, kOfBlock1}));
            RecordList records;
            EventList events;
            Quietly([&] { EXPECT_EQ(Search().SearchUnitMedia(4, &records, &events), 0); });
            EXPECT_EQ(records.m_nCount + events.m_nCount, 0);
        }
        Heal();
        ExpectEverything();
    });
}

TEST_F(DefinedSearchFailures, EventsOfABlock) {
    ForEachReadFault([&] {
        Open();
        FailReadsAt(EventsOffset(4));
        EXPECT_EQ(Events(), Join({kEventsOfBlock2, kEventsOfBlock0}));
        EXPECT_EQ(Media().size(), 11u); // searches of media do not read them
        RecordList records;
        EventList events;
        Quietly([&] { EXPECT_EQ(Search().SearchUnitMedia(4, &records, &events), 0); });
        EXPECT_EQ(records.m_nCount + events.m_nCount, 0);
        Heal();
        Quietly([&] { EXPECT_EQ(Search().SearchUnitMedia(4, &records, &events), 3); });
        EXPECT_EQ(Describe(events), kEventsOfBlock4);
    });
}

TEST_F(DefinedSearchFailures, EventsReadInPartMarkNoRecords) {
    ForEachReadFault([&] {
        Open();
        RecordList records;
        EventList events;
        Quietly([&] {
            EXPECT_EQ(Search().SearchUnitMedia(2, &records, &events), 3);
            FailReadsAt(EventsOffset(4));
            EXPECT_EQ(Search().SearchUnitMedia(4, &records, &events), 0);
            Heal();
            records.RemoveAll();
            SearchParam_t everything = {0, 0, 0x7FFFFFFF, kAll};
            EXPECT_EQ(Search().SearchMedia(&everything, &records), 11);
        });
        // Neither block 2's events, which were in memory before, nor a part of block 4's.
        EXPECT_EQ(Describe(records), Join({kOfBlock2, kOfBlock4, kOfBlock0, kOfBlock1}));
    });
}

TEST_F(DefinedSearchFailures, PeriodsOfEventsWhoseHeadsCannotBeRead) {
    ForEachReadFault([&] {
        // Events were found; then their blocks' heads fail, so that no time before and after them is known.
        Open();
        SearchParam_t alarms = {1, SearchStart(5), SearchStart(5) + kSearchSpan, kAll};
        RecordList records;
        Quietly([&] { EXPECT_EQ(Search().SearchMedia(&alarms, &records), 2); });
        EXPECT_EQ(Describe(records), (Lines{"4/0/0 1700200490-1700200530 size 9000 alarm 1 flag 0",
                                            "4/1/0 1700200490-1700200530 size 39000 alarm 1 flag 0"}));
        records.RemoveAll();
        bool eventsRead = false;
        FailReads([&](const Call& call) {
            const auto offset = static_cast<uint64_t>(call.offset);
            eventsRead = eventsRead || offset == EventsOffset(4);
            return eventsRead && offset == Disk().HeadOffset(4);
        });
        // The event's window is the second it happened in: too short for a record.
        Quietly([&] { EXPECT_EQ(Search().SearchMedia(&alarms, &records), 0); });
        EXPECT_TRUE(eventsRead);
    });
}

TEST_F(DefinedSearchFailures, ParametersOfBlocks) {
    ForEachReadFault([&] {
        Make(Medium::ExtendedSearch);
        OpenPart part(Disk());
        unsigned int before = 9;
        unsigned int behind = 9;
        unsigned int channels = 9;
        FailAllReads();
        Quietly([&] {
            EXPECT_EQ(part->GetEventPara(4u << 16, &before, &behind), 0);
            EXPECT_EQ(part->GetRecordExtPara(4u << 16, &channels), 0);
        });
        EXPECT_EQ(before, 0u);
        EXPECT_EQ(behind, 0u);
        EXPECT_EQ(channels, 0xFFFFFFFFu);
        Heal();
        part->GetEventPara(4u << 16, &before, &behind);
        part->GetRecordExtPara(4u << 16, &channels);
        EXPECT_EQ(before, 10u);
        EXPECT_EQ(behind, 30u);
        EXPECT_EQ(channels, 1u);
    });
}

TEST_F(DefinedSearchFailures, PartsOfABlock) {
    ForEachReadFault([&] {
        Make(Medium::ExtendedSearch);
        OpenBlocks blocks(Disk());
        const std::array<uint64_t, 4> offsets = {Disk().HeadOffset(2), Disk().ExtHeadOffset(2),
                                                 Disk().TailOffset(2), Disk().TailExOffset(2)};
        for (size_t failing = 0; failing < offsets.size(); ++failing) {
            FailReadsAt(offsets.at(failing));
            BlockHead_t head = {};
            BlkExtHead_t extHead = {};
            BlockTail_t tail = {};
            BlockTailEx_t tailEx = {};
            EXPECT_EQ(PrintedWithoutLines(
                          [&] { EXPECT_EQ(blocks->GetBlockInfo(2, &head, &tail, &extHead, &tailEx), -1); }),
                      "GetBlockInfo : #, Failed\n");
            EXPECT_EQ(head.RecSeq, failing > 0 ? 3u : 0u);
            EXPECT_EQ(extHead.ExtPara, failing > 1 ? 1u : 0u);
            EXPECT_EQ(tail.RecSeq, failing > 2 ? 3u : 0u);
            EXPECT_EQ(tailEx.RecSeq, 0u);
        }
    });
}

TEST_F(DefinedSearchFailures, RebuildEndsWithWhatItHas) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenBlocks blocks(Disk());
        FailReadsAt(Disk().FrameOffset(2, 124)); // the second frame's head
        Quietly([&] { EXPECT_EQ(blocks->RebuildRecSegInfo(2, 7, 0), -1); });
        EXPECT_EQ(blocks.Index(), "IFrame[0][0]  1008000000, 0\nRecSeg[0][0]  1008, 1008, 0, 120\n");
    });
}

// ---- playback

class DefinedPlaybackFailures : public DefinedFailures {
protected:
    static constexpr const char* kWhole = "I0@1001 E0@1001:16 I0@1002 P0@1003 P0@1004 P0@1005 A0@1005:60 end";
    static RecordItem_t TheRecord() { return SegmentRecord(0, 0, 0, 1000); }

    /// The whole record, from a reader of its own.
    static std::string Played(CReadDisk& disk) {
        std::string frames;
        DiskPlayer player(disk, 0, TheRecord());
        Quietly([&] { frames = player.Frames(); });
        return frames;
    }
};

TEST_F(DefinedPlaybackFailures, PartitionHead) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        FailReadsAt(0);
        CReadPart part;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(part.Init(Access()), -1); }), "");
        RecordItem_t record = TheRecord();
        EXPECT_EQ(part.BeginReader(0, &record), nullptr);

        CReadDisk disk;
        EXPECT_EQ(disk.Init(Access()), 0);
        Heal(); // too late: it is closed
        {
            DiskPlayer player(disk, 0, TheRecord());
            ASSERT_NE(player.Handle(), nullptr);
            EXPECT_EQ(player.Frame(), "failed");
            EXPECT_EQ(player.NextIFrame(), "failed");
            EXPECT_EQ(player.PrevIFrame(), "failed");
            EXPECT_EQ(player.UnitFrame(), "failed");
            EXPECT_EQ(player.SeekTime(1000), -1);
            EXPECT_EQ(player.SeekPos(0), -1);
        }
        unsigned char password[] = "secret";
        EXPECT_EQ(disk.CheckEncryptInfo(password), -1);
        EXPECT_EQ(disk.Quit(), 0);
        EXPECT_EQ(disk.Init(Access()), 0);
        EXPECT_EQ(Played(disk), kWhole);
        disk.Quit();
    });
}

TEST_F(DefinedPlaybackFailures, BadBlockTable) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadPart part(Disk());
        FailReadsAt(Disk().Head().BBTabOffs);
        Quietly([&] {
            EXPECT_EQ(part->GetBadBlockTab(), -1);
            EXPECT_EQ(part->IsValidBlock(3, 5, 0), 1); // no block is bad
        });
        OpenReadDisk disk(Disk());
        EXPECT_EQ(Played(*disk), kWhole);
        Heal();
        Quietly([&] { EXPECT_EQ(part->IsValidBlock(3, 5, 0), 0); });
    });
}

TEST_F(DefinedPlaybackFailures, EndsOfTheBlock) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        for (const uint64_t offset : {Disk().HeadOffset(0), Disk().TailOffset(0)}) {
            FailReadsAt(offset);
            EncodeParam_t parameters = {};
            parameters.chn = 9;
            RecordItem_t record = TheRecord();
            DiskPlayer player(*disk, 0, TheRecord());
            DiskPlayer unit(*disk, 0);
            Quietly([&] { EXPECT_EQ(disk->GetInfo(&parameters, &record, 0), -1); });
            EXPECT_EQ(parameters.chn, 0u);
            EXPECT_EQ(player.Frame(), "failed");
            EXPECT_EQ(unit.UnitFrame(), "failed");
            Heal();
            EXPECT_EQ(player.Frame(), "failed"); // its block did not open
            EXPECT_EQ(player.SeekTime(1000), -1);
            EXPECT_EQ(player.SeekPos(0), 0); // whatever the seek finds
            EXPECT_EQ(Played(*disk), kWhole);
        }
    });
}

TEST_F(DefinedPlaybackFailures, Index) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        const uint64_t index = Disk().IndexOffset(0);
        const uint64_t iframes = index + sizeof(BlkIndexHead_t); // two of channel 0, one of channel 1
        const uint64_t segments = iframes + 3 * sizeof(IFrameItem_t);
        for (const uint64_t offset : {index, iframes, iframes + 2 * sizeof(IFrameItem_t), segments,
                                      segments + sizeof(RecSegItem_t)}) {
            FailReadsAt(offset);
            // Of half an index nothing is kept. Without tables there is no segment to seek in: the window is
            // wide open, from the first frame on.
            const std::string fromTheStart = std::string("P0@1000 ") + kWhole;
            EXPECT_EQ(Played(*disk), fromTheStart);
            DiskPlayer player(*disk, 0, TheRecord());
            Quietly([&] {
                EXPECT_EQ(player.SeekTime(1000), -1);
                EXPECT_EQ(player.Frame(), "P0@1000");
                EXPECT_EQ(player.NextIFrame(), "failed"); // no I-frame is known; this took the next frame
                EXPECT_EQ(player.Frame(), "E0@1001:16");
            });
            Heal();
            EXPECT_EQ(Played(*disk), kWhole);
        }
    });
}

TEST_F(DefinedPlaybackFailures, HeadOrPayloadOfAFrame) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        // Frames of 124 bytes, but the event frame, the fourth, of 40.
        for (const uint32_t pos : {412u, 412u + 24}) {
            DiskPlayer player(*disk, 0, TheRecord());
            EXPECT_EQ(player.Frame(), "I0@1001");
            EXPECT_EQ(player.Frame(), "E0@1001:16");
            FailReadsAt(Disk().FrameOffset(0, pos));
            for (int attempt = 0; attempt < 3; ++attempt) {
                EXPECT_EQ(player.Frame(), "failed");
            }
            Heal();
            EXPECT_EQ(player.Frame(), "I0@1002");
            EXPECT_EQ(player.Frame(), "P0@1003");
        }
    });
}

TEST_F(DefinedPlaybackFailures, FrameOfAUnit) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        for (const uint32_t pos : {248u, 248u + 24}) {
            DiskPlayer unit(*disk, 0);
            EXPECT_EQ(unit.UnitFrame(), "I0@1001");
            FailReadsAt(Disk().FrameOffset(0, pos));
            EXPECT_EQ(unit.UnitFrame(), "failed");
            EXPECT_EQ(unit.UnitFrame(), "failed");
            Heal();
            EXPECT_EQ(unit.UnitFrame(), "P1@1001");
        }
    });
}

TEST_F(DefinedPlaybackFailures, BlockThatContinuesTheRecording) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        for (const uint64_t offset : {Disk().HeadOffset(1), Disk().TailOffset(1)}) {
            DiskPlayer player(*disk, 0, TheRecord());
            FailReadsAt(offset);
            // Block 1 is unusable, and block 2 does not have the next number. The reader stays in it, where
            // nothing is in the window.
            Quietly([&] {
                EXPECT_EQ(player.Frames(), "I0@1001 E0@1001:16 I0@1002 P0@1003 P0@1004 end");
                EXPECT_EQ(player.Frame(), "failed");
            });
            Heal();
            EXPECT_EQ(player.Frame(), "failed");
            EXPECT_EQ(player.NextIFrame(), "end");
            EXPECT_EQ(Played(*disk), kWhole);
        }
    });
}

TEST_F(DefinedPlaybackFailures, ContinuationThatFailsAsItIsOpened) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        DiskPlayer player(*disk, 0, TheRecord());
        // Its head is read to test it, and again by the reader itself.
        size_t reads = 0;
        FailReads([&](const Call& call) {
            return static_cast<uint64_t>(call.offset) == Disk().HeadOffset(1) && ++reads == 2;
        });
        Quietly([&] { EXPECT_EQ(player.Frames(), "I0@1001 E0@1001:16 I0@1002 P0@1003 P0@1004 end"); });
        EXPECT_EQ(player.Frame(), "failed");
        EXPECT_EQ(Played(*disk), kWhole);
    });
}

TEST_F(DefinedPlaybackFailures, FrameBehindTheCrossing) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        DiskPlayer player(*disk, 0, TheRecord());
        Quietly([&] {
            for (int i = 0; i < 5; ++i) {
                player.Frame();
            }
            // The seek in the new block fails, and leaves a window that is wide open at the block's first
            // frame.
            FailReadsAt(Disk().FrameOffset(1, 0));
            EXPECT_EQ(player.Frame(), "failed");
            Heal();
            EXPECT_EQ(player.Frames(), "P0@1005 A0@1005:60 end");
        });
    });
}

TEST_F(DefinedPlaybackFailures, StepsFromIFrameToIFrame) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        {
            // The frame that is due cannot be read: nothing has moved.
            DiskPlayer player(*disk, 0, TheRecord());
            FailReadsAt(Disk().FrameOffset(0, 124));
            EXPECT_EQ(player.NextIFrame(), "failed");
            Heal();
            EXPECT_EQ(player.NextIFrame(), "I0@1002");
        }
        {
            // The I-frame itself cannot be read: the step was taken all the same.
            DiskPlayer player(*disk, 0, TheRecord());
            FailReadsAt(Disk().FrameOffset(0, 412));
            EXPECT_EQ(player.NextIFrame(), "failed");
            Heal();
            EXPECT_EQ(player.NextIFrame(), "end");
            EXPECT_EQ(player.Frame(), "E0@1001:16"); // reading continues after the frame at the read position
        }
    });
}

TEST_F(DefinedPlaybackFailures, Seeks) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        OpenReadDisk disk(Disk());
        DiskPlayer player(*disk, 0, TheRecord());
        FailAllReads();
        Quietly([&] {
            EXPECT_EQ(player.SeekTime(1002), 0); // the index is held: nothing is read
            EXPECT_EQ(player.SeekPos(0), 0);
        });
        Heal();
        EXPECT_EQ(player.Frame(), "I0@1002"); // where the time seek led
    });
}

TEST_F(DefinedPlaybackFailures, IndexMadeFromFrames) {
    ForEachReadFault([&] {
        Make(Medium::Play);
        CReadBlock block;
        FailReadsAt(Disk().FrameOffset(2, 124)); // the second frame's head
        EXPECT_EQ(block.OpenBlock(2, kMediaBlockSize, Access(), 0, 1), 0);
        RecordItem_t record = SegmentRecord(2, 0, 0, 1008);
        RecSegItem_t segment = {};
        EXPECT_EQ(block.GetRecSegInfo(&record, &segment), 0);
        EXPECT_EQ(segment.s, 1008u);
        EXPECT_EQ(segment.e, 1008u);
        EXPECT_EQ(segment.totalsize, 120u);
        EXPECT_EQ(block.RebuiltBlockIndex(), -1);
        EXPECT_EQ(block.CloseBlock(), 0);
    });
}

} // namespace
