#include <cstdio>
#include <cstring>
#include <memory>

#include "playback/part_fixture.h"

namespace {

using namespace test_support;

class ReadPartOpen : public PartFixture {
protected:
    static std::string Summary(CReadPart& part) {
        return Printed([&] { EXPECT_EQ(part.PrintInitInfo(), 0); });
    }
    static std::string SummaryLines(const std::string& name, int count, int size, int status) {
        return "*********************PrintInitInfo START********************** \n"
               "PartName : " +
               name + "\nBlockCount : " + std::to_string(count) + "\nBlockSize : " + std::to_string(size) +
               "\nPartStatus : " + std::to_string(status) +
               "\n**********************PrintInitInfo END*********************** \n";
    }
    /// A disk with a lock of this mode, the password "secret", and channels 0 and 2 hidden.
    PartitionImage& MakeLockedDisk(uint32_t encrypt) {
        Format format;
        format.encrypt = encrypt;
        format.encryptMap = 5;
        format.password = "secret";
        return MakeDisk(format);
    }
    static int Check(CReadPart& part, const char* password) {
        unsigned char text[256] = {};
        std::strcpy(reinterpret_cast<char*>(text), password);
        return part.CheckEncrypt(text);
    }
};

TEST_F(ReadPartOpen, NullDescriptorFailsAndChangesNothing) {
    OpenReadPart part(MakeDisk());
    EXPECT_EQ(part->Init(nullptr), -1);
    EXPECT_EQ(Summary(*part), SummaryLines(Disk().Path(), 8, 0x10000, 0)); // still open
    CReadPart closed;
    EXPECT_EQ(closed.Init(nullptr), -1);
}

TEST_F(ReadPartOpen, MagicOfTheDiskTypeShowsInTheStatus) {
    MakeDisk();
    for (const int type : {0, 1, -7, 52, 19, 34, 51}) {
        const bool alternative = type == 52 || type == 19 || type == 34;
        for (const uint32_t magic : {0xAA55AA55u, 0xAA55AA50u}) {
            Disk().EditHead([magic](PartHead_t& head) { head.FormatFlag = magic; });
            PartAccess_t access = Disk().Access();
            access.DiskType = type;
            CReadPart part;
            EXPECT_EQ(Printed([&] { EXPECT_EQ(part.Init(&access), 0); }), "");
            const bool right = (magic == 0xAA55AA50u) == alternative;
            EXPECT_EQ(Summary(part), right ? SummaryLines(Disk().Path(), 8, 0x10000, 0)
                                           : SummaryLines(Disk().Path(), 0, 0, 2));
            part.Quit();
        }
    }
}

TEST_F(ReadPartOpen, PartitionWithAnotherMagicHasNoBlocksAndNoLock) {
    MakeLockedDisk(1).EditHead([](PartHead_t& head) { head.FormatFlag = 0x0055AA55; });
    OpenReadPart part(Disk());
    unsigned int map = 7;
    unsigned int encrypt = 7;
    unsigned char password[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(part->GetEncrypt(&map, &encrypt, password, 4), 0);
    EXPECT_EQ(map, 0u);
    EXPECT_EQ(encrypt, 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(password), 4), std::string(4, '\0'));
    EXPECT_EQ(Check(*part, "anything"), 0);
    Quietly([&] { EXPECT_EQ(part->IsValidBlock(0, 5, 0), 0); });
    PartPlayer reader(*part, 0, WholeBlockRecord(0, 0));
    EXPECT_EQ(reader.Messages(), "OpenBlock : #, Failed\n"
                                 "BeginReader BlockNum = 0, ChnType=0, (0, 0, 1, 0) \n");
    EXPECT_NE(reader.Handle(), nullptr);
    EXPECT_EQ(reader.Frame(), "failed");
    EXPECT_EQ(reader.UnitFrame(), "failed");
}

TEST_F(ReadPartOpen, SummaryOfNoPartitionIsEmpty) {
    CReadPart part;
    EXPECT_EQ(Summary(part), "");
    PartAccess_t access = MakeDisk().Access();
    EXPECT_EQ(part.Init(&access), 0);
    EXPECT_EQ(part.Quit(), 0);
    EXPECT_EQ(Summary(part), "");
}

TEST_F(ReadPartOpen, SummaryPrintsLargeNumbersAsSigned) {
    MakeDisk().EditHead([](PartHead_t& head) {
        head.BlkCount = 0xFFFFFFFF;
        head.BlkSize = 0x80000000;
    });
    OpenReadPart part(Disk());
    EXPECT_EQ(Summary(*part), SummaryLines(Disk().Path(), -1, -2147483647 - 1, 0));
}

TEST_F(ReadPartOpen, NameMayFillItsField) {
    const std::string directory = File("");
    Format format;
    const PartitionImage image =
        PartitionImage::Create(directory + std::string(128 - directory.size(), 'x'), format);
    OpenReadPart part(image);
    EXPECT_EQ(Summary(*part), SummaryLines(image.Path(), 8, 0x10000, 0));
}

TEST_F(ReadPartOpen, MissingDeviceFailsWithTheDevicesMessageAlone) {
    PartAccess_t access = {};
    std::strcpy(access.PartName, "/nonexistent/partition");
    CReadPart part;
    EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(part.Init(&access), -1); }), "dev_open : #, Failed\n");
    EXPECT_EQ(Summary(part), "");
}

TEST_F(ReadPartOpen, HeadCutShortFails) {
    MakeDisk().Truncate(199);
    PartAccess_t access = Disk().Access();
    CReadPart part;
    {
        const SystemCallLog log;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(part.Init(&access), -1); }), "");
        EXPECT_EQ(log.Count(CallKind::Open), 1u);
        EXPECT_EQ(log.Count(CallKind::Close), 1u);
    }
    EXPECT_EQ(Summary(part), "");
    Disk().Truncate(200);
    EXPECT_EQ(part.Init(&access), 0);
    part.Quit();
}

TEST_F(ReadPartOpen, ReadsTheHeadWithoutASeekAndLetsTheDeviceGo) {
    PartAccess_t access = MakeDisk().Access();
    CReadPart part;
    {
        const SystemCallLog log;
        EXPECT_EQ(part.Init(&access), 0);
        ASSERT_GE(log.Calls().size(), 3u);
        EXPECT_EQ(log.Calls()[1].kind, CallKind::Read);
        EXPECT_EQ(log.Calls()[1].offset, 0);
        EXPECT_EQ(log.Calls()[1].length, 200u);
        EXPECT_EQ(log.Calls().back().kind, CallKind::Close);
        EXPECT_EQ(log.Count(CallKind::Open), 1u);
        EXPECT_EQ(log.Count(CallKind::Close), 1u);
    }
    part.Quit();
}

TEST_F(ReadPartOpen, InitOnAnOpenObjectReopens) {
    OpenReadPart part(MakeDisk());
    Format format;
    format.blockCount = 3;
    const PartitionImage other = PartitionImage::Create(File("other"), format);
    PartAccess_t access = other.Access();
    EXPECT_EQ(part->GetBadBlockTab(), 0); // a table that must not be lost
    EXPECT_EQ(part->Init(&access), 0);
    EXPECT_EQ(Summary(*part), SummaryLines(other.Path(), 3, 0x10000, 0));
    // A failure leaves it closed.
    access.PartName[0] = '\0';
    Quietly([&] { EXPECT_EQ(part->Init(&access), -1); });
    EXPECT_EQ(Summary(*part), "");
}

TEST_F(ReadPartOpen, QuitIsAlwaysFine) {
    CReadPart part;
    EXPECT_EQ(part.Quit(), 0);
    PartAccess_t access = MakeDisk().Access();
    EXPECT_EQ(part.Init(&access), 0);
    EXPECT_EQ(part.GetBadBlockTab(), 0);
    EXPECT_EQ(part.Quit(), 0);
    EXPECT_EQ(part.Quit(), 0);
}

TEST_F(ReadPartOpen, ObjectsMayLieOnTheHeap) {
    PartAccess_t access = MakeDisk().Access();
    const std::unique_ptr<CReadPart> part(new CReadPart);
    const std::unique_ptr<CReadDisk> disk(new CReadDisk);
    EXPECT_EQ(part->Init(&access), 0);
    EXPECT_EQ(disk->Init(&access), 0);
    EXPECT_EQ(part->Quit(), 0);
    EXPECT_EQ(disk->Quit(), 0);
}

TEST_F(ReadPartOpen, BadBlockTableIsReadWhole) {
    OpenReadPart part(MakeDisk(9));
    const SystemCallLog log;
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    std::vector<Call> reads;
    for (const Call& call : log.Calls()) {
        if (call.kind == CallKind::Read) {
            reads.push_back(call);
        }
    }
    ASSERT_EQ(reads.size(), 1u); // only the bits, no counters
    EXPECT_EQ(reads[0].offset, Disk().Head().BBTabOffs);
    EXPECT_EQ(reads[0].length, 2u); // nine blocks take two bytes of bits
    EXPECT_EQ(log.Count(CallKind::Open), 1u);
    EXPECT_EQ(log.Count(CallKind::Close), 1u);
}

TEST_F(ReadPartOpen, BadBlockTableMayLieAnywhereBelowFourGigabytes) {
    MakeDisk();
    Disk().Truncate(0xF0000001);
    Disk().Put(0xF0000000, uint8_t{0x04});
    Disk().EditHead([](PartHead_t& head) { head.BBTabOffs = 0xF0000000; });
    OpenReadPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->IsValidBlock(2, 5, 0), 0); }), "IsValidBlock: bad block 2\n");
}

TEST_F(ReadPartOpen, BadBlockTableIsReadAgainOnRequest) {
    OpenReadPart part(MakeDisk());
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    Disk().SetBad(2);
    EXPECT_EQ(part->IsValidBlock(2, 5, 0), 1);
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->IsValidBlock(2, 5, 0), 0); }), "IsValidBlock: bad block 2\n");
}

TEST_F(ReadPartOpen, BadBlockTableThatCannotBeLoaded) {
    CReadPart closed;
    EXPECT_EQ(closed.GetBadBlockTab(), -1);
    MakeDisk().SetBad(2);
    OpenReadPart part(Disk());
    // Each call in turn fails: the open, the seeks, the read; a failed close is none.
    for (const CallKind kind : {CallKind::Open, CallKind::Seek, CallKind::Read}) {
        const SystemCallLog log(
            [kind](const Call& call, size_t) { return call.kind == kind ? Fate::Failing() : Fate(); });
        EXPECT_EQ(PrintedWithoutLines([&] { EXPECT_EQ(part->GetBadBlockTab(), -1); }),
                  kind == CallKind::Open ? "dev_open : #, Failed\n" : "");
        EXPECT_EQ(log.Count(CallKind::Close), kind == CallKind::Open ? 0u : 1u);
    }
    {
        const SystemCallLog log([](const Call&, size_t) { return Fate::Shortened(0); });
        EXPECT_EQ(part->GetBadBlockTab(), -1);
    }
    EXPECT_EQ(part->GetBadBlockTab(), 0);
    {
        const SystemCallLog log([](const Call&, size_t) { return Fate::Failing(); });
        Quietly([&] { EXPECT_EQ(part->GetBadBlockTab(), -1); });
    }
    EXPECT_EQ(Printed([&] { EXPECT_EQ(part->IsValidBlock(2, 5, 0), 0); }),
              "IsValidBlock: bad block 2\n"); // by the table loaded before
}

TEST_F(ReadPartOpen, BadBlockTableBeyondTheDeviceFails) {
    MakeDisk().EditHead([](PartHead_t& head) { head.BBTabOffs = 0xFFFFFFFF; });
    OpenReadPart part(Disk());
    EXPECT_EQ(part->GetBadBlockTab(), -1);
}

TEST_F(ReadPartOpen, LockSettings) {
    for (const uint32_t encrypt : {0u, 1u, 2u, 3u, 0x80000000u}) {
        Format format;
        format.encrypt = encrypt;
        format.encryptMap = 5;
        format.password = "secret";
        const PartitionImage image = PartitionImage::Create(File(std::to_string(encrypt)), format);
        OpenReadPart part(image);
        unsigned int map = 7;
        unsigned int mode = 7;
        char password[10];
        std::memset(password, 'x', sizeof password);
        EXPECT_EQ(part->GetEncrypt(&map, &mode, reinterpret_cast<unsigned char*>(password), 9), 0);
        EXPECT_EQ(mode, encrypt);
        EXPECT_EQ(map, encrypt == 0 || encrypt == 2 ? 0u : 5u);
        EXPECT_EQ(std::string(password, 10), std::string("secret\0\0\0x", 10)); // filled up, not beyond
    }
}

TEST_F(ReadPartOpen, PasswordIsCutToTheLengthAsked) {
    OpenReadPart part(MakeLockedDisk(1));
    unsigned int map = 0;
    unsigned int mode = 0;
    for (const int length : {-1, 0, 3, 6, 7}) {
        char password[] = "xxxxxxxx";
        EXPECT_EQ(part->GetEncrypt(&map, &mode, reinterpret_cast<unsigned char*>(password), length), 0);
        const std::string expected = length <= 0   ? "xxxxxxxx"
                                     : length == 3 ? "secxxxxx"
                                     : length == 6 ? "secretxx" // no room for an end
                                                   : std::string("secret\0x", 8);
        EXPECT_EQ(std::string(password, 8), expected) << length;
    }
}

TEST_F(ReadPartOpen, LockSettingsNeedAPartitionAndPlaces) {
    unsigned int map = 7;
    unsigned int mode = 7;
    unsigned char password[] = "xx";
    CReadPart closed;
    EXPECT_EQ(closed.GetEncrypt(&map, &mode, password, 2), -1);
    OpenReadPart part(MakeLockedDisk(1));
    EXPECT_EQ(part->GetEncrypt(nullptr, &mode, password, 2), -1);
    EXPECT_EQ(part->GetEncrypt(&map, nullptr, password, 2), -1);
    EXPECT_EQ(part->GetEncrypt(&map, &mode, nullptr, 2), -1);
    EXPECT_EQ(map, 7u);
    EXPECT_EQ(mode, 7u);
    EXPECT_STREQ(reinterpret_cast<char*>(password), "xx");
}

TEST_F(ReadPartOpen, PasswordOpensALockedDiskOnlyWhole) {
    for (const uint32_t encrypt : {0u, 1u, 2u, 3u, 4u}) {
        Format format;
        format.encrypt = encrypt;
        format.password = "secret";
        const PartitionImage image = PartitionImage::Create(File(std::to_string(encrypt)), format);
        OpenReadPart part(image);
        const int refused = encrypt == 0 || encrypt == 2 ? 0 : -1;
        EXPECT_EQ(Check(*part, "secret"), 0) << encrypt;
        for (const char* wrong : {"", "secre", "secrets", "Secret"}) {
            EXPECT_EQ(Check(*part, wrong), refused) << encrypt << wrong;
        }
        EXPECT_EQ(part->CheckEncrypt(nullptr), refused) << encrypt;
    }
    CReadPart closed;
    EXPECT_EQ(Check(closed, "secret"), -1);
}

TEST_F(ReadPartOpen, PasswordThatFillsItsFieldCountsWithout128thCharacter) {
    Format format;
    format.encrypt = 1;
    format.password = std::string(128, 'p');
    OpenReadPart part(MakeDisk(format));
    EXPECT_EQ(Check(*part, std::string(127, 'p').c_str()), 0);
    EXPECT_EQ(Check(*part, std::string(128, 'p').c_str()), -1);
    unsigned int map = 0;
    unsigned int mode = 0;
    unsigned char password[130] = {};
    EXPECT_EQ(part->GetEncrypt(&map, &mode, password, 129), 0);
    EXPECT_EQ(reinterpret_cast<char*>(password), std::string(127, 'p'));
}

TEST_F(ReadPartOpen, DebugLogIsSilent) {
    EXPECT_EQ(Printed([] { EXPECT_EQ(DebugLog("%s %d\n", "text", 7), 0); }), "");
    EXPECT_EQ(DebugLog(nullptr), 0);
}

} // namespace
