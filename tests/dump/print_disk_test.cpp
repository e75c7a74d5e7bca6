// Dumps of a partition: what each level prints, the head and the bad-block tables.

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "dump/dump_fixture.h"

namespace {

using namespace test_support;

class PrintDisk : public DumpFixture {
protected:
    /// What level 0 prints after the head's section.
    std::string Tables() {
        const Dumped dumped = DumpAt(0);
        EXPECT_EQ(dumped.result, 0);
        return dumped.text.substr(dumped.text.find("BadBlockTab"));
    }

    /// The head's section, without its banner.
    std::string Head() {
        const std::string text = DumpAt(1).text;
        return text.substr(text.find("Description"));
    }
};

class PrintDiskLayouts : public PrintDisk, public ::testing::WithParamInterface<uint32_t> {
protected:
    static std::string Layout() { return GetParam() == 1 ? "extended_" : "normal_"; }
};

TEST_P(PrintDiskLayouts, EachLevelPrintsItsSections) {
    MakeSample(GetParam());
    const struct {
        int level;
        const char* name;
    } levels[] = {{INT_MIN, "size"}, {-1, "size"},  {0, "tables"}, {1, "head"},
                  {2, "blocks"},     {3, "detail"}, {4, "detail"}, {INT_MAX, "detail"}};
    for (const auto& [level, name] : levels) {
        const Dumped dumped = DumpAt(level);
        EXPECT_EQ(dumped.result, 0) << level;
        EXPECT_EQ(dumped.text, Expected(Layout() + name)) << level;
    }
}

INSTANTIATE_TEST_SUITE_P(FmtVersion, PrintDiskLayouts, ::testing::Values(0u, 1u));

TEST_F(PrintDisk, EveryOtherVersionIsTheNormalLayout) {
    MakeSample().EditHead([](PartHead_t& head) { head.FmtVersion = 2; });
    const std::string text = DumpAt(3).text;
    const std::string expected = Expected("normal_detail");
    EXPECT_EQ(text.substr(text.find("BlkCount")), expected.substr(expected.find("BlkCount")));
}

TEST_F(PrintDisk, MissingArguments) {
    PartAccess_t access = MakeSample().Access();
    Dumped dumped;
    CPrintDisk disk;
    const SystemCallLog log;
    EXPECT_EQ(disk.Print(nullptr, 3, Collect, &dumped), -1);
    EXPECT_EQ(disk.Print(&access, 3, nullptr, &dumped), -1);
    EXPECT_EQ(dumped.text, "");
    EXPECT_EQ(log.Calls().size(), 0u);
}

int CountAndFail(void* ctx, const char* /*format*/, ...) {
    ++*static_cast<int*>(ctx);
    return -1;
}

TEST_F(PrintDisk, WhatThePrintFunctionReturnsIsIgnored) {
    PartAccess_t access = MakeSample().Access();
    int calls = 0;
    EXPECT_EQ(CPrintDisk().Print(&access, 3, CountAndFail, &calls), 0);
    EXPECT_EQ(static_cast<size_t>(calls), DumpAt(3).formats.size());
}

int Ignore(void* /*ctx*/, const char* /*format*/, ...) {
    return 0;
}

TEST_F(PrintDisk, TheContextMayBeNull) {
    PartAccess_t access = MakeSample().Access();
    EXPECT_EQ(CPrintDisk().Print(&access, 3, Ignore, nullptr), 0);
}

int ThrowAtTheCount(void* ctx, const char* /*format*/, ...) {
    if (--*static_cast<int*>(ctx) == 0) {
        throw std::runtime_error("enough");
    }
    return 0;
}

TEST_F(PrintDisk, APrintFunctionMayThrow) {
    MakeSample();
    for (const int level : {0, 3}) {
        const size_t pieces = DumpAt(level).formats.size();
        for (size_t last = 1; last <= pieces; ++last) {
            PartAccess_t access = Disk().Access();
            auto count = static_cast<int>(last);
            const SystemCallLog log;
            EXPECT_THROW(CPrintDisk().Print(&access, level, ThrowAtTheCount, &count), std::runtime_error);
            EXPECT_EQ(log.Count(CallKind::Open), log.Count(CallKind::Close)) << last;
        }
    }
}

TEST_F(PrintDisk, OneObjectDumpsManyDisks) {
    PartAccess_t sample = MakeSample().Access();
    PartAccess_t other = PartitionImage::Create(File("other"), {}).Access();
    CPrintDisk disk;
    Dumped first;
    Dumped second;
    Dumped again;
    EXPECT_EQ(disk.Print(&sample, 3, Collect, &first), 0);
    EXPECT_EQ(disk.Print(&other, 2, Collect, &second), 0);
    EXPECT_EQ(disk.Print(&sample, 3, Collect, &again), 0);
    EXPECT_EQ(first.text, again.text);
    EXPECT_EQ(Pieces(second.text).size(), 8u + 2);
}

TEST_F(PrintDisk, TheDiskTypeAndTheMagicDoNotMatter) {
    PartAccess_t access = MakeSample().Access();
    access.DiskType = 52;
    EXPECT_EQ(Dump(access, 3).text, Expected("normal_detail"));
    Disk().EditHead([](PartHead_t& head) { head.FormatFlag = 0x1234; });
    EXPECT_EQ(DumpAt(1).result, 0);
    EXPECT_NE(DumpAt(1).text.find("FormatFlag : 0x00001234\n"), std::string::npos);
}

TEST_F(PrintDisk, ADeviceWithoutAnyHeadIsDumpedAsItIs) {
    MakeDisk(1).Write(0, std::string(sizeof(PartHead_t), '\xFF').data(), sizeof(PartHead_t));
    EXPECT_EQ(Head(), "Description : " + std::string(32, '\xFF') +
                          "\n"
                          "FormatFlag : 0xffffffff\n"
                          "FmtVersion : -1\n"
                          "BlkCount : -1\n"
                          "BlkSize : 0xffffffff\n"
                          "BBTabOffs : 0xffffffff\n"
                          "BBTabBakOffs : 0xffffffff\n"
                          "BBCounterOffs : 0xffffffff\n"
                          "BBCounterBakOffs : 0xffffffff\n"
                          "Encrypt : -1\n"
                          "EncryptMap : 0xffffffff\n"
                          "CipherCode : " +
                          std::string(127, '\xFF') + "\n \n");
}

TEST_F(PrintDisk, AllOfAPathThatIsNotTerminatedCounts) {
    MakeSample();
    // A path of exactly 128 characters, through a directory whose name fills it up.
    const std::string end = "/disk";
    PartAccess_t access = {};
    std::string path = File("");
    path += std::string(sizeof access.PartName - path.size() - end.size(), 'd') + end;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::create_hard_link(Disk().Path(), path);
    ASSERT_EQ(path.size(), sizeof access.PartName);
    std::memcpy(access.PartName, path.data(), path.size());
    EXPECT_EQ(Dump(access, 3).text, Expected("normal_detail"));
}

// ---- the bad-block tables

TEST_F(PrintDisk, TablesOfNoBlocks) {
    MakeSample().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    EXPECT_EQ(Tables(), "BadBlockTab:\n"
                        "PossibleBBTab:\n");
}

TEST_F(PrintDisk, LinesOfTheTables) {
    PartitionImage& disk = MakeDisk(33);
    disk.SetBad(0);
    disk.SetBad(15);
    disk.SetBad(32);
    disk.SetSuspect(19, 19);
    disk.SetSuspect(20, 20);
    disk.SetSuspect(32, 255);
    EXPECT_EQ(Tables(), "BadBlockTab:\n"
                        " 01 80 00 00 01\n"
                        "PossibleBBTab:\n"
                        " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 19\n"
                        " 20 0 0 0 0 0 0 0 0 0 0 0 255\n");
}

TEST_F(PrintDisk, LinesOfTablesThatEndWithALine) {
    // 128 blocks: 16 bytes of bits are one line, 128 counters six lines of 20 and one of 8.
    MakeDisk(128).SetBad(127);
    std::string expected = "BadBlockTab:\n 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 80\nPossibleBBTab:\n";
    for (const int length : {20, 20, 20, 20, 20, 20, 8}) {
        for (int i = 0; i < length; ++i) {
            expected += " 0";
        }
        expected += "\n";
    }
    EXPECT_EQ(Tables(), expected);
    Disk().EditHead([](PartHead_t& head) { head.BlkCount = 129; });
    EXPECT_NE(Tables().find(" 80\n 00\nPossibleBBTab:\n"), std::string::npos);
}

TEST_F(PrintDisk, TablesArePassedOnPieceByPiece) {
    MakeSample();
    const Lines formats = DumpAt(0).formats;
    const Lines expected = {"BadBlockTab:", "\n",  " %02x", "\n", "PossibleBBTab:", "\n", " %d", " %d",
                            " %d",          " %d", " %d",   "\n"};
    ASSERT_GT(formats.size(), expected.size());
    EXPECT_EQ(Lines(formats.end() - static_cast<std::ptrdiff_t>(expected.size()), formats.end()), expected);
}

TEST_F(PrintDisk, TablesLieWhereTheHeadSaysAndNotInTheirBackups) {
    PartitionImage& disk = MakeSample();
    const uint64_t behind = disk.BlockStart(4) + 1000;
    disk.Put(behind, uint8_t{0xA5});
    disk.Put(behind + 1, std::array<uint8_t, 5>{1, 2, 3, 4, 5});
    disk.EditHead([&](PartHead_t& head) {
        head.BBTabOffs = static_cast<uint32_t>(behind);
        head.BBCounterOffs = static_cast<uint32_t>(behind + 1);
        head.BBTabBakOffs = head.BBCounterBakOffs = 0xFFFFFFFF;
    });
    EXPECT_EQ(Tables(), "BadBlockTab:\n a5\nPossibleBBTab:\n 1 2 3 4 5\n");
}

TEST_F(PrintDisk, TablesMayReachTheDevicesEnd) {
    const uint64_t size = MakeSample().BlockStart(5);
    Disk().Put(size - 5, std::array<uint8_t, 5>{1, 2, 3, 4, 5});
    Disk().EditHead([&](PartHead_t& head) {
        head.BBTabOffs = static_cast<uint32_t>(size - 1);
        head.BBCounterOffs = static_cast<uint32_t>(size - 5);
    });
    EXPECT_EQ(Tables(), "BadBlockTab:\n 05\nPossibleBBTab:\n 1 2 3 4 5\n");
}

TEST_F(PrintDisk, TablesThatReachBeyondTheDeviceEndTheDump) {
    const auto size = static_cast<uint32_t>(MakeSample().BlockStart(5));
    const auto endOf = [&](auto edit) {
        const PartHead_t before = Disk().Head();
        Disk().EditHead(edit);
        const Dumped dumped = DumpAt(0);
        EXPECT_EQ(dumped.result, -1);
        Disk().EditHead([&](PartHead_t& changed) { changed = before; });
        return dumped.text.substr(dumped.text.find(" \n", dumped.text.find("BAD TAB")) + 2);
    };
    EXPECT_EQ(endOf([&](PartHead_t& h) { h.BBTabOffs = size; }), "");
    EXPECT_EQ(endOf([](PartHead_t& h) { h.BBTabOffs = 0xFFFFFFFF; }), "");
    EXPECT_EQ(endOf([&](PartHead_t& h) { h.BBCounterOffs = size - 4; }), "BadBlockTab:\n 02\n");
    EXPECT_EQ(endOf([](PartHead_t& h) { h.BBCounterOffs = 0xFFFFFFFF; }), "BadBlockTab:\n 02\n");
    // 2^32 - 1 and seven more bits wrap to six: no byte at all.
    EXPECT_EQ(endOf([](PartHead_t& h) { h.BlkCount = 0xFFFFFFFF; }), "");
    EXPECT_EQ(endOf([](PartHead_t& h) { h.BlkCount = 0x80000000; }), "");
}

// ---- rings

TEST_F(PrintDisk, NoBlocks) {
    MakeSample().EditHead([](PartHead_t& head) { head.BlkCount = 0; });
    const Dumped dumped = DumpAt(3);
    EXPECT_EQ(dumped.result, 0);
    const size_t body = dumped.text.find("*******************************BODY");
    EXPECT_EQ(dumped.text.substr(body),
              "*******************************BODY********************************** \n"
              "*****************************BODY END******************************** \n");
}

TEST_F(PrintDisk, ACutOffCopyNamesTheBlocksThatItLacks) {
    MakeSample().Truncate(Disk().BlockStart(2) + 100);
    const Dumped dumped = DumpAt(3);
    EXPECT_EQ(dumped.result, 0);
    const Lines pieces = Pieces(dumped.text);
    ASSERT_EQ(pieces.size(), 7u);
    EXPECT_EQ(pieces[1], Pieces(Expected("normal_detail"))[1]);
    EXPECT_EQ(pieces[3], "\n\n[NUM] : 2, 8519680\n"
                         "*********************BLOCK HEAD********************** \n");
    EXPECT_EQ(pieces[5], "\n\n[NUM] : 4, 8650752\n"
                         "*********************BLOCK HEAD********************** \n");
    EXPECT_EQ(pieces[6], "*****************************BODY END******************************** \n");
}

TEST_F(PrintDisk, BillionsOfBlocksEnd) {
    MakeSample();
    for (const uint32_t blkSize : {0x10000u, 0xFFFFFFFFu, 0u, 1u}) {
        Disk().EditHead([&](PartHead_t& head) {
            head.BlkCount = 0xFFFFFFFF;
            head.BlkSize = blkSize;
        });
        const Lines pieces = Pieces(DumpAt(2).text);
        EXPECT_EQ(pieces.size(), 0x10000u + 2) << blkSize; // as many as ids can name
        const uint64_t last = 0x800000 + 65535 * uint64_t{blkSize};
        EXPECT_EQ(pieces.at(0x10000).rfind("\n\n[NUM] : 65535, " + std::to_string(last) + "\n", 0), 0u);
    }
}

TEST_F(PrintDisk, ManyBlocksOnALargeDeviceAreAllPrinted) {
    // Blocks of 8 KiB: 70,000 of them begin inside the device, more than ids can name.
    MakeSample().EditHead([](PartHead_t& head) {
        head.BlkCount = 0xFFFFFFFF;
        head.BlkSize = 0x2000;
    });
    Guise().ClaimSize(0x800000 + 70000 * uint64_t{0x2000} - 1);
    EXPECT_EQ(Pieces(DumpAt(2).text).size(), 70000u + 2);
}

TEST_F(PrintDisk, BlocksFarIntoALargeDisk) {
    // Block 3 of four that are 4 GiB less a page each begins beyond 8 GiB.
    MakeSample().EditHead([](PartHead_t& head) {
        head.BlkCount = 4;
        head.BlkSize = 0xFFFFF000;
    });
    Disk().Truncate(0x800000 + 4 * uint64_t{0xFFFFF000});
    BlockHead_t head = {};
    head.RecSeq = 77;
    Disk().Put(Disk().HeadOffset(3), head);
    Disk().Put(Disk().TailOffset(3), BlockTail_t{0, 0, 78, 0, 0});
    EXPECT_EQ(Pieces(DumpAt(2).text).at(4), "\n\n[NUM] : 3, 12893278208\n"
                                            "*********************BLOCK HEAD********************** \n"
                                            "ValidFlag : 0x00000000\n"
                                            "RecSeq : 77\n"
                                            "RecTime : 0, [1970.01.01 00:00:00]\n"
                                            "*******************BLOCK TAIL******************* \n"
                                            "RecSeq : 78\n"
                                            "StartTime : 0, [1970.01.01 00:00:00]\n"
                                            "EndTime : 0, [1970.01.01 00:00:00]\n");
}

} // namespace
