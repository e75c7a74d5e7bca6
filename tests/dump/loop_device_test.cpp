// Dumps of real block devices: sample partitions attached to loop devices, where the machine allows that.

#include <cstdio>

#include "dump/dump_fixture.h"
#include "support/loop_device.h"

namespace {

using namespace test_support;

class LoopDump : public DumpDisk {
protected:
    static PartAccess_t AccessTo(const LoopDevice& device) {
        PartAccess_t access = {};
        std::snprintf(access.PartName, sizeof access.PartName, "%s", device.Path().c_str());
        return access;
    }
};

TEST_F(LoopDump, AnImageFilePrintsNothing) {
    MakeSample();
    for (const int level : {-1, 0, 1, 2, 3}) {
        const Dumped dumped = Dump(Disk().Access(), level);
        EXPECT_EQ(dumped.result, -1);
        EXPECT_EQ(dumped.text, "");
    }
}

TEST_F(LoopDump, ADirectoryPrintsNothing) {
    PartAccess_t access = {};
    std::snprintf(access.PartName, sizeof access.PartName, "/");
    EXPECT_EQ(Dump(access, 3).result, -1);
    EXPECT_EQ(Dump(access, 3).text, "");
}

TEST_F(LoopDump, EachLevelOfBothLayouts) {
    for (const uint32_t fmtVersion : {0u, 1u}) {
        MakeSample(fmtVersion);
        const LoopDevice device(Disk().Path());
        if (!device.Attached()) {
            GTEST_SKIP()
                << "this machine attaches no loop device: it takes root, losetup and the kernel's leave";
        }
        const std::string layout = fmtVersion == 1 ? "extended_" : "normal_";
        const struct {
            int level;
            const char* name;
        } levels[] = {{-1, "size"}, {0, "tables"}, {1, "head"}, {2, "blocks"}, {3, "detail"}, {4, "detail"}};
        for (const auto& [level, name] : levels) {
            const Dumped dumped = Dump(AccessTo(device), level);
            EXPECT_EQ(dumped.result, 0) << level;
            EXPECT_EQ(dumped.text, Expected(layout + name)) << level;
        }
        std::remove(Disk().Path().c_str());
    }
}

TEST_F(LoopDump, BlocksBeyondTheDevice) {
    // Seeks beyond the end fail on a device; on a file they do not.
    MakeSample().Truncate(Disk().BlockStart(1) + 512);
    const LoopDevice device(Disk().Path());
    if (!device.Attached()) {
        GTEST_SKIP() << "this machine attaches no loop device: it takes root, losetup and the kernel's leave";
    }
    const Dumped dumped = Dump(AccessTo(device), 3);
    EXPECT_EQ(dumped.result, 0);
    const Lines pieces = Pieces(dumped.text);
    ASSERT_EQ(pieces.size(), 7u);
    EXPECT_EQ(pieces[1], Pieces(Expected("normal_detail"))[1]);
    for (const size_t block : {1u, 2u, 4u}) {
        const std::string banner = "*********************BLOCK HEAD********************** \n";
        EXPECT_EQ(pieces[block + 1].substr(pieces[block + 1].size() - banner.size()), banner) << block;
    }
}

} // namespace
