#include "dump/sample_disk.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "support/files.h"

namespace test_support {

ZoneSetting::ZoneSetting(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

ZoneSetting::~ZoneSetting() {
    unsetenv("TZ");
    tzset();
}

std::string Expected(const std::string& name) {
    return ReadFile(EXPECTED_DUMPS "/" + name + ".txt");
}

Format SampleFormat(uint32_t fmtVersion) {
    Format format;
    format.fmtVersion = fmtVersion;
    format.blockCount = 5;
    format.description = "Bus 7, front";
    format.encrypt = 3;
    format.encryptMap = 0x80000001;
    format.password = "secret";
    return format;
}

void WriteSampleBlocks(PartitionImage& disk) {
    disk.SetBad(1);
    disk.SetSuspect(3, 255);
    disk.SetSuspect(4, 7);

    auto closed = BlockContents::Closed(7, 1700000000, 1700000059);
    closed.head.pre_RecTime = 10;
    closed.head.AlmDelayTime = 30;
    std::strcpy(closed.head.VehicleID, "bus-7");
    std::strcpy(closed.head.VehicleNum, "B 4711");
    closed.head.prop[0] = {700000, 1, 25, 4, 50, 8000, 16, 320, 2, 9, {0, 0}};
    closed.head.prop[31] = {0xFFFFFFFF, 255, 30, 6, 60, 48000, 24, 4096, 7, 9, {0, 0}};
    closed.IFrame(0, Pts(1700000000), 0).IFrame(0, Pts(1700000002), 900).IFrame(31, Pts(1700000000), 5000);
    closed.Segment(0, 1700000000, 1700000030, 5000)
        .Segment(0, 1700000031, 1700000059, 4000, 6000)
        .Segment(31, 1700000000, 1700000059, 1000, 5000);
    closed.Event(Pts(1700000010), 0x5, 1024).Event(Pts(1700000020) + 5, uint64_t{1} << 63, 0xFFFFFFFF);
    disk.WriteBlock(0, closed);

    disk.WriteBlock(2, BlockContents::Open(8, 1711846800));

    auto late = BlockContents::Closed(4000000000, 0x80000000, 0xFFFFFFFE);
    late.head.ValidFlag = 0x12345678;
    late.head.RecTime = 0xFFFFFFFF;
    std::memset(late.head.VehicleID, 'I', sizeof late.head.VehicleID);
    std::memset(late.head.VehicleNum, 'N', sizeof late.head.VehicleNum);
    late.tailEx = {1, 2, 3};
    disk.WriteBlock(3, late.Event(-1, 0x100000000, 16));

    disk.WriteBlock(4, BlockContents::Closed(9, 1720000000, 1720000100).Channels(0x2));
    disk.Change<BlkIndexHead_t>(disk.IndexOffset(4), [](auto& index) {
        index.iframeCount[1] = 0x10000000; // times 16, it wraps to nothing
        index.recSegCount[1] = 1;
    });
}

PartitionImage& DumpDisk::MakeSample(uint32_t fmtVersion) {
    PartitionImage& disk = MakeDisk(SampleFormat(fmtVersion));
    WriteSampleBlocks(disk);
    return disk;
}

} // namespace test_support
