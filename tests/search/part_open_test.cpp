#include <cstdio>
#include <cstring>

#include "search/search_fixture.h"

namespace {

using namespace test_support;

class PartOpen : public SearchFixture {};

TEST_F(PartOpen, NullDescriptorFailsAndChangesNothing) {
    OpenPart part(MakeDisk());
    EXPECT_EQ(part->Init(nullptr), -1);
    EXPECT_EQ(part->GetUnitRecMap(0, 1), 8); // still open
}

TEST_F(PartOpen, MagicMustBeThatOfTheDiskType) {
    MakeDisk();
    for (const int type : {0, 1, -7, 52, 19, 34, 51}) {
        const bool alternative = type == 52 || type == 19 || type == 34;
        for (const uint32_t magic : {0xAA55AA55u, 0xAA55AA50u}) {
            Disk().EditHead([magic](PartHead_t& head) { head.FormatFlag = magic; });
            PartAccess_t access = Disk().Access();
            access.DiskType = type;
            CSearchPart part;
            const int expected = (magic == 0xAA55AA50u) == alternative ? 0 : -1;
            EXPECT_EQ(Printed([&] { EXPECT_EQ(part.Init(&access), expected) << type << ' ' << magic; }), "");
            part.Quit();
        }
    }
}

TEST_F(PartOpen, MagicIsComparedInFull) {
    MakeDisk().EditHead([](PartHead_t& head) { head.FormatFlag = 0x0055AA55; });
    PartAccess_t access = Disk().Access();
    CSearchPart part;
    EXPECT_EQ(part.Init(&access), -1);
    EXPECT_EQ(part.GetUnitRecMap(0, 1), -1); // closed
}

TEST_F(PartOpen, MissingDeviceFailsWithTheDevicesMessageAlone) {
    PartAccess_t access = {};
    std::strcpy(access.PartName, "/nonexistent/partition");
    CSearchPart part;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(part.Init(&access), -1); }), "dev_open : #, Failed\n");
}

TEST_F(PartOpen, HeadCutShortFails) {
    MakeDisk().Truncate(199);
    PartAccess_t access = Disk().Access();
    CSearchPart part;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part.Init(&access), -1); }), "");
    Disk().Truncate(200);
    EXPECT_EQ(part.Init(&access), 0);
    part.Quit();
}

TEST_F(PartOpen, ReadsTheHeadWithoutASeek) {
    PartAccess_t access = MakeDisk().Access();
    CSearchPart part;
    {
        const SystemCallLog log;
        EXPECT_EQ(part.Init(&access), 0);
        ASSERT_EQ(log.Calls().size(), 2u);
        EXPECT_EQ(log.Calls()[1].kind, CallKind::Read);
        EXPECT_EQ(log.Calls()[1].length, 200u);
    }
    part.Quit();
}

TEST_F(PartOpen, FailuresCloseTheDevice) {
    MakeDisk().EditHead([](PartHead_t& head) { head.FormatFlag = 0; });
    PartAccess_t access = Disk().Access();
    CSearchPart part;
    const SystemCallLog log;
    EXPECT_EQ(part.Init(&access), -1);
    EXPECT_EQ(log.Count(CallKind::Open), 1u);
    EXPECT_EQ(log.Count(CallKind::Close), 1u);
}

TEST_F(PartOpen, InitOnAnOpenObjectReopens) {
    OpenPart part(MakeDisk());
    const PartitionImage other = PartitionImage::Create(File("other"), [] {
        Format format;
        format.blockCount = 3;
        return format;
    }());
    PartAccess_t access = other.Access();
    const SystemCallLog log;
    EXPECT_EQ(part->Init(&access), 0);
    EXPECT_EQ(log.Count(CallKind::Close), 1u);
    EXPECT_EQ(part->GetUnitRecMap(0, 1), 3);
    // A failure leaves it closed.
    access.PartName[0] = '\0';
    Quietly([&] { EXPECT_EQ(part->Init(&access), -1); });
    EXPECT_EQ(part->GetUnitRecMap(0, 1), -1);
}

TEST_F(PartOpen, QuitIsAlwaysFine) {
    CSearchPart part;
    EXPECT_EQ(part.Quit(), 0);
    PartAccess_t access = MakeDisk().Access();
    EXPECT_EQ(part.Init(&access), 0);
    EXPECT_EQ(part.Quit(), 0);
    EXPECT_EQ(part.Quit(), 0);
}

TEST_F(PartOpen, PrintInitInfoPrintsNothing) {
    CSearchPart closed;
    OpenPart part(MakeDisk());
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(closed.PrintInitInfo(), 0);
                  EXPECT_EQ(part->PrintInitInfo(), 0);
              }),
              "");
}

TEST_F(PartOpen, BadBlockTablesAreReadOnce) {
    OpenPart part(MakeDisk(9));
    {
        const SystemCallLog log;
        EXPECT_EQ(part->GetBadBlockTab(), 0);
        ASSERT_EQ(log.Count(CallKind::Read), 2u);
        std::vector<Call> reads;
        for (const Call& call : log.Calls()) {
            if (call.kind == CallKind::Read) {
                reads.push_back(call);
            }
        }
        EXPECT_EQ(reads[0].offset, Disk().Head().BBTabOffs);
        EXPECT_EQ(reads[0].length, 2u); // nine blocks take two bytes of bits
        EXPECT_EQ(reads[1].offset, Disk().Head().BBCounterOffs);
        EXPECT_EQ(reads[1].length, 9u);
    }
    const SystemCallLog log;
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    EXPECT_EQ(log.Calls().size(), 0u);
}

TEST_F(PartOpen, BackupTablesAreNeverRead) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BBTabBakOffs = head.BBCounterBakOffs = 0xFFFFFFFF; });
    OpenPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
}

TEST_F(PartOpen, TablesOfAClosedObjectCannotBeRead) {
    CSearchPart part;
    EXPECT_EQ(part.GetBadBlockTab(), -1);
}

TEST_F(PartOpen, EveryFailureOfATableReadLeavesNoTable) {
    MakeDisk();
    // Size of the device, then a seek and a read for each table.
    for (size_t failing = 1; failing < 5; ++failing) {
        OpenPart part(Disk());
        {
            const SystemCallLog log(
                [failing](const Call&, size_t index) { return index >= failing ? Fate::Failing() : Fate(); });
            EXPECT_EQ(Printed([&] { EXPECT_EQ(part->GetBadBlockTab(), -1) << failing; }), "");
            EXPECT_EQ(part->IsBadBlock(0), 0) << failing;
        }
        EXPECT_EQ(part->IsBadBlock(0), 1) << failing; // the fault has gone
    }
}

TEST_F(PartOpen, TableThatReachesBeyondTheDeviceIsNotLoaded) {
    MakeDisk();
    const uint64_t size = Disk().BlockStart(8);
    const auto at = [&](uint32_t bits, uint32_t counters) {
        Disk().EditHead([&](PartHead_t& head) {
            head.BBTabOffs = bits;
            head.BBCounterOffs = counters;
        });
        OpenPart part(Disk());
        return part->GetBadBlockTab();
    };
    EXPECT_EQ(at(static_cast<uint32_t>(size) - 1, 0x2000), 0); // one byte of bits
    EXPECT_EQ(at(static_cast<uint32_t>(size), 0x2000), -1);
    EXPECT_EQ(at(0x1000, static_cast<uint32_t>(size) - 8), 0);
    EXPECT_EQ(at(0x1000, static_cast<uint32_t>(size) - 7), -1);
    EXPECT_EQ(at(0xFFFFFFFF, 0x2000), -1);
}

TEST_F(PartOpen, TableOfBillionsOfBlocksIsNotLoaded) {
    for (const uint32_t count : {0x7FFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFF9u, 0xFFFFFFFFu}) {
        std::remove(File("disk").c_str());
        MakeDisk().EditHead([count](PartHead_t& head) { head.BlkCount = count; });
        OpenPart part(Disk());
        EXPECT_EQ(part->GetBadBlockTab(), -1) << count;
        EXPECT_EQ(part->IsBadBlock(0), 0) << count;
    }
}

TEST_F(PartOpen, GivesTheLockMode) {
    MakeDisk().EditHead([](PartHead_t& head) { head.Encrypt = 7; });
    OpenPart part(Disk());
    unsigned int mode = 0;
    EXPECT_EQ(part->GetEncrypt(&mode), 0);
    EXPECT_EQ(mode, 7u);
    EXPECT_EQ(part->GetEncrypt(nullptr), -1);
    CSearchPart closed;
    mode = 99;
    EXPECT_EQ(closed.GetEncrypt(&mode), -1);
    EXPECT_EQ(mode, 99u);
}

TEST_F(PartOpen, LockPassesTheRightPasswordOnly) {
    MakeDisk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 0x6;
        std::strcpy(head.CipherCode, "Secret");
    });
    OpenPart part(Disk());
    unsigned int map = 99;
    EXPECT_EQ(part->CheckEncrypt("Secret", &map), 0);
    EXPECT_EQ(map, 0u);
    for (const char* const wrong : {"secret", "Secre", "Secret ", "", "Secret1"}) {
        map = 99;
        EXPECT_EQ(part->CheckEncrypt(wrong, &map), -1) << wrong;
        EXPECT_EQ(map, 0x6u);
    }
    map = 99;
    EXPECT_EQ(part->CheckEncrypt(nullptr, &map), -1);
    EXPECT_EQ(map, 0x6u);
}

TEST_F(PartOpen, LockModesZeroAndTwoPassEverything) {
    MakeDisk();
    for (const uint32_t mode : {0u, 2u}) {
        Disk().EditHead([mode](PartHead_t& head) {
            head.Encrypt = mode;
            head.EncryptMap = 0x6;
            std::strcpy(head.CipherCode, "Secret");
        });
        OpenPart part(Disk());
        unsigned int map = 99;
        EXPECT_EQ(part->CheckEncrypt("anything", &map), 0);
        EXPECT_EQ(map, 0u);
    }
}

TEST_F(PartOpen, LockModeThreeIsALock) {
    MakeDisk().EditHead([](PartHead_t& head) {
        head.Encrypt = 3;
        head.EncryptMap = 0xFFFFFFFF;
    });
    OpenPart part(Disk());
    unsigned int map = 0;
    EXPECT_EQ(part->CheckEncrypt("anything", &map), -1);
    EXPECT_EQ(map, 0xFFFFFFFFu);
    EXPECT_EQ(part->CheckEncrypt("", &map), 0); // the password on this disk is empty
}

TEST_F(PartOpen, PasswordWithoutTerminatorCountsToItsHundredAndTwentySeventhCharacter) {
    MakeDisk().EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        std::memset(head.CipherCode, 'k', sizeof head.CipherCode);
    });
    OpenPart part(Disk());
    unsigned int map = 0;
    EXPECT_EQ(part->CheckEncrypt(std::string(127, 'k').c_str(), &map), 0);
    EXPECT_EQ(part->CheckEncrypt(std::string(128, 'k').c_str(), &map), -1);
}

TEST_F(PartOpen, LockOfAClosedObjectRefusesAndHidesNothing) {
    CSearchPart part;
    unsigned int map = 99;
    EXPECT_EQ(part.CheckEncrypt("anything", &map), -1);
    EXPECT_EQ(map, 0u);
}

} // namespace
