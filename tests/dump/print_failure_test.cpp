// Dumps of a device that fails: which calls end the dump, which a block, and what was printed before.

#include <fcntl.h>
#include <linux/fs.h>

#include <algorithm>
#include <cstdio>

#include "dump/dump_fixture.h"

namespace {

using namespace test_support;

class PrintFailure : public DumpFixture {
protected:
    /// The calls of a dump at a level, when none fails.
    std::vector<Call> CallsAt(int level) {
        const SystemCallLog log;
        DumpAt(level);
        return log.Calls();
    }

    /// Dumps with the @p nth call of a kind failing or coming short.
    Dumped FailAt(int level, CallKind kind, size_t nth, const Fate& fate = Fate::Failing()) {
        size_t seen = 0;
        return DumpWith(level, [=](const Call& call, size_t) mutable {
            return call.kind == kind && seen++ == nth ? fate : Fate();
        });
    }

    /// Dumps with every request of the given kinds failing.
    Dumped FailRequests(const std::vector<uint64_t>& requests) {
        return DumpWith(-1, [&](const Call& call, size_t) {
            const bool hit = call.kind == CallKind::Control &&
                             std::find(requests.begin(), requests.end(), call.request) != requests.end();
            return hit ? Fate::Failing() : Fate();
        });
    }

    /// Dumps with call @p failing failing, a seek to or a read at @p offset in the blocks, and expects the one
    /// block to end early and the others to be whole.
    void FailInABlock(int level, size_t failing, uint64_t offset) {
        const Lines whole = Pieces(DumpAt(level).text);
        const Dumped dumped = DumpWith(level, [failing](const Call&, size_t index) {
            return index == failing ? Fate::Failing() : Fate();
        });
        EXPECT_EQ(dumped.result, 0);
        const Lines left = Pieces(dumped.text);
        ASSERT_EQ(left.size(), whole.size());
        size_t cut = 0;
        for (size_t piece = 0; piece < whole.size(); ++piece) {
            cut += left[piece] != whole[piece] ? 1u : 0u;
            EXPECT_EQ(whole[piece].compare(0, left[piece].size(), left[piece]), 0) << failing;
        }
        // Nothing follows the forged index of block 4, nor the end of the device, in any case.
        const bool endsThere = (level == 3 && offset == Disk().IndexOffset(4)) ||
                               (!Disk().Extended() && offset == Disk().TailExOffset(4));
        EXPECT_EQ(cut, endsThere ? 0u : 1u) << failing;
    }

    static void ExpectNothing(const Dumped& dumped) {
        EXPECT_EQ(dumped.result, -1);
        EXPECT_EQ(dumped.text, "");
    }
};

// ---- the size

TEST_F(PrintFailure, OnlyEverOpensForReading) {
    MakeSample();
    for (const Call& call : CallsAt(3)) {
        if (call.kind == CallKind::Open) {
            EXPECT_EQ(call.flags & ~O_LARGEFILE, O_RDONLY);
        }
    }
}

TEST_F(PrintFailure, SizeIsAskedForInBytes) {
    MakeSample();
    std::vector<uint64_t> requests;
    for (const Call& call : CallsAt(-1)) {
        if (call.kind == CallKind::Control) {
            requests.push_back(call.request);
        }
    }
    EXPECT_EQ(requests, (std::vector<uint64_t>{BLKSSZGET, BLKGETSIZE64}));
}

TEST_F(PrintFailure, SizeInSectorsServesWhereBytesAreNotTold) {
    MakeSample();
    const Dumped dumped = FailRequests({BLKGETSIZE64});
    EXPECT_EQ(dumped.result, 0);
    EXPECT_EQ(dumped.text, Expected("normal_size"));
    // The number of sectors is multiplied by the device's own sector size.
    Guise().ClaimSectorSize(4096);
    EXPECT_EQ(FailRequests({BLKGETSIZE64}).text, "PartName : DEVICE, PartSize : 69730304\n");
    EXPECT_EQ(DumpAt(-1).text, Expected("normal_size"));
}

TEST_F(PrintFailure, WithoutASectorSizeThereIsNoSize) {
    MakeSample();
    ExpectNothing(FailRequests({BLKSSZGET}));
    ExpectNothing(FailRequests({BLKSSZGET, BLKGETSIZE64}));
    ExpectNothing(FailRequests({BLKGETSIZE64, BLKGETSIZE}));
}

TEST_F(PrintFailure, ADeviceWithoutBytesIsNone) {
    MakeSample().Truncate(0);
    ExpectNothing(DumpAt(3));
    Guise().ClaimSize(uint64_t{1} << 63); // negative, as the number that is printed
    ExpectNothing(DumpAt(3));
}

TEST_F(PrintFailure, ADeviceOfOneByteHasNoHead) {
    MakeSample().Truncate(1);
    const Dumped dumped = DumpAt(3);
    EXPECT_EQ(dumped.result, -1);
    EXPECT_EQ(dumped.text, "PartName : DEVICE, PartSize : 1\n");
}

TEST_F(PrintFailure, ADeviceThatCannotBeOpened) {
    MakeSample();
    ExpectNothing(FailAt(3, CallKind::Open, 0));
    const Dumped second = FailAt(3, CallKind::Open, 1);
    EXPECT_EQ(second.result, -1);
    EXPECT_EQ(second.text, Expected("normal_size"));
    PartAccess_t access = {};
    ExpectNothing(Dump(access, 3));
}

// ---- head and tables

TEST_F(PrintFailure, AHeadThatCannotBeRead) {
    MakeSample();
    for (const int level : {-1, 0, 1, 2, 3}) {
        for (const Dumped& dumped : {FailAt(level, CallKind::Seek, 0), FailAt(level, CallKind::Read, 0),
                                     FailAt(level, CallKind::Read, 0, Fate::Shortened(199)),
                                     FailAt(level, CallKind::Read, 0, Fate::Shortened(0))}) {
            EXPECT_EQ(dumped.result, -1);
            EXPECT_EQ(dumped.text, Expected("normal_size"));
        }
    }
}

TEST_F(PrintFailure, TablesThatCannotBeRead) {
    MakeSample();
    const std::string banner = Expected("normal_head") +
                               "*******************************BAD TAB********************************** \n";
    const std::string bits = banner + "BadBlockTab:\n 02\n";
    for (const CallKind kind : {CallKind::Seek, CallKind::Read}) {
        const Dumped first = FailAt(0, kind, 1);
        EXPECT_EQ(first.result, -1);
        EXPECT_EQ(first.text, banner);
        const Dumped second = FailAt(0, kind, 2);
        EXPECT_EQ(second.result, -1);
        EXPECT_EQ(second.text, bits);
    }
    EXPECT_EQ(FailAt(0, CallKind::Read, 1, Fate::Shortened(0)).text, banner);
    EXPECT_EQ(FailAt(0, CallKind::Read, 2, Fate::Shortened(4)).text, bits);
    EXPECT_EQ(FailAt(0, CallKind::Read, 2, Fate::Shortened(4)).result, -1);
}

// ---- blocks

TEST_F(PrintFailure, OneSeekAndOneReadAStructure) {
    MakeSample();
    using Counts = std::pair<size_t, size_t>;
    const auto counts = [this](int level) {
        const SystemCallLog log;
        DumpAt(level);
        return Counts(log.Count(CallKind::Seek), log.Count(CallKind::Read));
    };
    EXPECT_EQ(counts(-1), Counts(1, 1));
    EXPECT_EQ(counts(0), Counts(3, 3));
    EXPECT_EQ(counts(1), Counts(1, 1));
    // The partition head; five heads, and of the four blocks that were written two tails each.
    EXPECT_EQ(counts(2), Counts(14, 14));
    // Four index heads more, and the segments of one and the events of two blocks; block 4's tails not.
    EXPECT_EQ(counts(3), Counts(19, 19));
}

TEST_F(PrintFailure, EveryFailureInABlockEndsThatBlockAlone) {
    for (const uint32_t fmtVersion : {0u, 1u}) {
        MakeSample(fmtVersion);
        for (const int level : {2, 3}) {
            const std::vector<Call> calls = CallsAt(level);
            for (size_t i = 0; i < calls.size(); ++i) {
                const bool moves = calls[i].kind == CallKind::Seek || calls[i].kind == CallKind::Read;
                if (moves && calls[i].offset >= BLOCK_BASE_OFFSET) {
                    FailInABlock(level, i, static_cast<uint64_t>(calls[i].offset));
                }
            }
        }
        std::remove(Disk().Path().c_str());
    }
}

TEST_F(PrintFailure, ShortReadsEndTheBlockToo) {
    MakeSample();
    const std::string expected = Pieces(Expected("normal_detail"))[1];
    const struct {
        size_t read; ///< counted from the partition head's
        const char* lastBefore;
    } cases[] = {{1, "BLOCK HEAD"},
                 {2, "audio_frame_len = 4096"},
                 {3, "audio_frame_len = 4096"},
                 {4, "totalsize = 1000"},
                 {5, "BLOCK TAIL"},
                 {6, "EndTime : 1700000059"}};
    for (const auto& [read, lastBefore] : cases) {
        const Dumped dumped = FailAt(3, CallKind::Read, read, Fate::Shortened(11));
        EXPECT_EQ(dumped.result, 0);
        const size_t end = expected.find('\n', expected.rfind(lastBefore)) + 1;
        EXPECT_EQ(Pieces(dumped.text)[1], expected.substr(0, end)) << read;
        EXPECT_EQ(Pieces(dumped.text)[2], Pieces(Expected("normal_detail"))[2]) << read;
    }
}

TEST_F(PrintFailure, ADeviceThatFailsForGoodStillEnds) {
    MakeSample();
    for (size_t first = 0; first < CallsAt(3).size(); ++first) {
        const Dumped dumped = DumpWith(
            3, [first](const Call&, size_t index) { return index >= first ? Fate::Failing() : Fate(); });
        const std::string whole = Expected("normal_detail");
        if (dumped.result == 0) {
            EXPECT_EQ(Pieces(dumped.text).size(), 7u) << first;
        } else {
            EXPECT_EQ(whole.compare(0, dumped.text.size(), dumped.text), 0) << first;
        }
    }
}

} // namespace
