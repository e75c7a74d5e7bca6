// The dump of a block device, and of an image file.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "dump/sample_disk.h"
#include "support/loop_device.h"
#include "support/run_program.h"

namespace {

using namespace test_support;

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class DumpProgram : public DumpDisk {
protected:
    static ProgramResult Run(std::vector<std::string> arguments, const ProgramSetting& setting = {}) {
        arguments.insert(arguments.begin(), {DISKACCESS_PROGRAM, "dump"});
        return RunProgram(arguments, setting);
    }

    /// Expects a command to fail with one line on standard error and nothing on standard output.
    static std::string Refused(const std::vector<std::string>& arguments, int exitCode) {
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, exitCode);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        return result.err;
    }

    /// A dump with DEVICE in the place of the path.
    static std::string Named(const std::string& text) {
        const size_t begin = std::strlen("PartName : ");
        return "PartName : DEVICE" + text.substr(std::min(text.size(), text.find(',', begin)));
    }

    /// Dumps the image, and expects silence otherwise.
    std::string Show(std::vector<std::string> options = {}) {
        options.insert(options.begin(), Disk().Path());
        const ProgramResult result = Run(options);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.err, "");
        return Named(result.out);
    }

    /// Makes a dump far longer than a pipe holds.
    void MakeDumpLong() {
        Disk().EditHead([](PartHead_t& head) { head.BlkCount = 0x10000; });
    }
};

// ---- image files

TEST_F(DumpProgram, AnImageIsDumpedAsADeviceIs) {
    MakeSample();
    EXPECT_EQ(Show({"--utc"}), Expected("normal_detail"));
    EXPECT_EQ(Show({"--utc", "--level=-1"}), Expected("normal_size"));
    EXPECT_EQ(Run({Disk().Path(), "--level=-1"}).out.find("PartName : " + Disk().Path() + ", PartSize : "),
              0u);
}

TEST_F(DumpProgram, ALongPathIsCutInTheDumpAlone) {
    MakeSample();
    const std::string path = File(std::string(200, 'x'));
    std::filesystem::copy_file(Disk().Path(), path);
    const ProgramResult result = Run({path, "--utc"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(Named(result.out), Expected("normal_detail"));
}

TEST_F(DumpProgram, AnEmptyFileIsSaid) {
    MakeSample();
    Disk().Truncate(0);
    EXPECT_EQ(Refused({Disk().Path()}, 1),
              "diskaccess: " + Disk().Path() + ": is empty, or the disk was taken out\n");
}

TEST_F(DumpProgram, IsTextOnly) {
    MakeSample();
    for (const char* const format : {"json", "ndjson", "CSV"}) {
        EXPECT_EQ(Refused({Disk().Path(), "--format", format}, 2),
                  std::string("diskaccess: --format: '") + format + "' is not text, which is all there is\n");
    }
    EXPECT_EQ(Run({Disk().Path(), "--format", "text"}).exitCode, 0);
    EXPECT_EQ(Run({Disk().Path(), "--json"}).exitCode, 2);
}

TEST_F(DumpProgram, WrongUse) {
    MakeSample();
    EXPECT_EQ(Run({}).exitCode, 2);
    EXPECT_EQ(Run({Disk().Path(), "--level", "all"}).exitCode, 2);
    EXPECT_EQ(Run({Disk().Path(), "--channel", "1"}).exitCode, 2);
    EXPECT_EQ(Run({Disk().Path(), "--skew", "1"}).exitCode, 2);
    EXPECT_TRUE(Contains(Refused({Disk().Path(), "--tz", "Nowhere/Land"}, 2), "no zone is called"));
}

TEST_F(DumpProgram, WhatIsNoPartition) {
    EXPECT_TRUE(Contains(Refused({File("missing")}, 1), "cannot be opened: No such file"));
    EXPECT_TRUE(Contains(Refused({File("")}, 1), "is a directory"));
    EXPECT_TRUE(Contains(Refused({"/dev/null"}, 1), "neither a block device nor a file"));
    std::ofstream(File("notes")) << std::string(600, 'x');
    const ProgramResult result = Run({File("notes"), "--level", "1"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(Contains(result.out, "\nFormatFlag : 0x78787878\n")); // a damaged head can be looked at
    EXPECT_EQ(result.err, "diskaccess: " + File("notes") +
                              ": has no partition head: what was dumped is no partition, or a damaged one; "
                              "`diskaccess find` says where recordings are\n");
}

TEST_F(DumpProgram, HelpNamesItsOptionsAlone) {
    const std::string help = Run({"--help"}).out;
    for (const char* const option : {"PARTITION", "--level", "--partition", "--format", "--tz", "--utc"}) {
        EXPECT_TRUE(Contains(help, option)) << option;
    }
    for (const char* const option : {"--json", "--skew", "--password", "--disk-type", "--from", "--alarm"}) {
        EXPECT_FALSE(Contains(help, option)) << option;
    }
}

// ---- with loop devices

class DumpProgramOnDevices : public DumpProgram {
protected:
    void SetUp() override {
        MakeSample();
        const LoopDevice device(Disk().Path());
        if (!device.Attached()) {
            GTEST_SKIP()
                << "this machine attaches no loop device: it takes root, losetup and the kernel's leave";
        }
    }
};

TEST_F(DumpProgramOnDevices, EachLevel) {
    const LoopDevice device(Disk().Path());
    const std::pair<const char*, const char*> levels[] = {{"-1", "size"},  {"0", "tables"}, {"1", "head"},
                                                          {"2", "blocks"}, {"3", "detail"}, {"4", "detail"}};
    for (const auto& [level, name] : levels) {
        const ProgramResult result = Run({device.Path(), "--utc", "--level", level});
        EXPECT_EQ(result.exitCode, 0) << level;
        EXPECT_EQ(result.err, "") << level;
        EXPECT_EQ(Named(result.out), Expected(std::string("normal_") + name)) << level;
    }
    EXPECT_EQ(Named(Run({device.Path(), "--utc"}).out), Expected("normal_detail"));
}

TEST_F(DumpProgram, Zones) {
    MakeSample();
    EXPECT_TRUE(Contains(Show({"--utc"}), "RecTime : 1720000000, [2024.07.03 09:46:40]\n"));
    EXPECT_TRUE(Contains(Show({"--tz", "Europe/Berlin"}), "RecTime : 1720000000, [2024.07.03 11:46:40]\n"));
    EXPECT_TRUE(
        Contains(Show({"--tz", "America/New_York"}), "RecTime : 1720000000, [2024.07.03 05:46:40]\n"));
}

TEST_F(DumpProgram, NamesOnTheDiskAreShownEscaped) {
    MakeSample();
    Disk().EditHead([](PartHead_t& head) {
        std::memcpy(head.Description, "\x1b[2J\xff\nBlkCount : 1\n", 20);
        std::memcpy(head.CipherCode, "50%s\t", 6);
    });
    Disk().Change<BlockHead_t>(Disk().HeadOffset(0),
                               [](auto& head) { std::memcpy(head.VehicleID, "\a", 2); });
    const std::string text = Show();
    EXPECT_TRUE(Contains(text, "\nDescription : \\x1b[2J\\xff\\x0aBlkCount : 1\\x0a\nFormatFlag")) << text;
    EXPECT_TRUE(Contains(text, "\nCipherCode : 50%s\\x09\n \n")) << text;
    EXPECT_TRUE(Contains(text, "\nVehicleID : \\x07\nVehicleNum : B 4711\n")) << text;
}

TEST_F(DumpProgramOnDevices, ADeviceThatIsNoPartitionIsDumpedAsItIs) {
    Disk().EditHead([](PartHead_t& head) {
        head.FormatFlag = 0x20202020;
        head.BlkCount = 0;
    });
    const LoopDevice device(Disk().Path());
    EXPECT_TRUE(Contains(Run({device.Path()}).out, "\nFormatFlag : 0x20202020\n"));
}

TEST_F(DumpProgramOnDevices, AFailureSaysHowFarItCame) {
    Disk().EditHead([](PartHead_t& head) { head.BBCounterOffs = 0xFFFFFFFF; });
    ProgramResult result = Run({Disk().Path(), "--level", "0"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: " + Disk().Path() +
                              ": the dump ends here: the partition head or a bad-block table cannot be read; "
                              "the disk may be failing\n");
    EXPECT_TRUE(Contains(result.out, "BadBlockTab:\n 02\n"));

    const LoopDevice device(Disk().Path());
    ProgramSetting setting;
    setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_BAD_FILE=" + device.Path(), "SHIM_BAD_FROM=0",
                           "SHIM_BAD_TO=1"};
    result = Run({device.Path()}, setting);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: " + device.Path() +
                              ": the dump ends here: the partition head cannot be read; the disk may be "
                              "failing\n");
    EXPECT_EQ(Named(result.out), Expected("normal_size"));
}

TEST_F(DumpProgramOnDevices, ADeviceWithoutASize) {
    Disk().Truncate(0);
    const LoopDevice device(Disk().Path());
    EXPECT_EQ(Refused({device.Path()}, 1),
              "diskaccess: " + device.Path() + ": is empty, or the disk was taken out\n");
}

TEST_F(DumpProgram, OnlyEverOpensForReading) {
    MakeSample();
    ProgramSetting setting;
    setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_LOG=" + File("log"), "SHIM_WATCH=/d"};
    EXPECT_EQ(Run({Disk().Path()}, setting).exitCode, 0);
    std::ifstream log(File("log"));
    std::string path;
    int flags = 0;
    size_t opens = 0;
    while (log >> path >> flags) {
        const bool counters =
            path.size() > 5 && path.compare(path.size() - 5, 5, ".gcda") == 0; // of coverage
        if (path != "/dev/null" && !counters) {
            EXPECT_EQ(flags & (O_ACCMODE | O_CREAT | O_TRUNC), O_RDONLY) << path;
            ++opens;
        }
    }
    EXPECT_GE(opens, 2u); // to see that nothing is printed into it, and to read it
}

TEST_F(DumpProgram, AClosedPipeEndsTheDump) {
    MakeSample();
    MakeDumpLong();
    ProgramSetting setting;
    setting.closedPipe = true;
    const ProgramResult result = Run({Disk().Path()}, setting);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(DumpProgram, AFullDiskEndsTheDump) {
    MakeSample();
    MakeDumpLong();
    const ProgramResult result =
        RunProgram({"sh", "-c", "exec " DISKACCESS_PROGRAM " dump '" + Disk().Path() + "' >/dev/full"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "diskaccess: standard output cannot be written: No space left on device\n");
}

} // namespace
