#include "conformance/disks.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"

namespace conformance {

namespace {

using namespace sample_recorder;

constexpr uint32_t kStart = 1700000000;
constexpr uint32_t kDay = 86400;
constexpr uint32_t kChannelSet = 0x80000007;

constexpr int64_t Stamp(uint32_t seconds) {
    return int64_t{seconds} * 1000000;
}

Format SmallFormat(uint32_t fmtVersion) {
    Format format;
    format.fmtVersion = fmtVersion;
    format.blockCount = 12;
    format.blockSize = 0x8000;
    return format;
}

/// Locked for channel 1, with one bad and one suspect block.
PartitionImage LockedDisk(const std::string& file, uint32_t fmtVersion) {
    Format format = SmallFormat(fmtVersion);
    format.encrypt = 1;
    format.encryptMap = 0x2;
    format.password = "secret";
    PartitionImage image = PartitionImage::Create(file, format);
    image.SetBad(3);
    image.SetSuspect(7, 1);
    return image;
}

RecorderSettings Settings() {
    RecorderSettings settings;
    settings.channels = kChannelSet;
    settings.preRecordSeconds = 3;
    settings.alarmDelaySeconds = 7;
    settings.vehicleNum = "B 4711 with a text too long";
    settings.properties[0] = {700000, 1, 25, 4, 50, 8000, 16, 320, 2, 9, {0, 0}};
    settings.properties[31] = {0xFFFFFFFF, 255, 30, 6, 60, 48000, 24, 4096, 7, 9, {1, 2}};
    return settings;
}

/// Records four cameras, one with sound, with an event every twentieth frame and every third of them left out of
/// the index.
void Drive(Recorder& recorder, uint32_t start, uint32_t seconds, uint32_t bytesAFrame = 300) {
    MergedSource frames;
    for (const uint32_t chn : {0u, 1u, 2u, 31u}) {
        GeneratedCamera camera;
        camera.channel = chn;
        camera.framesPerSecond = 2;
        camera.gop = 3;
        camera.iFrameBytes = 3 * bytesAFrame;
        camera.pFrameBytes = bytesAFrame;
        camera.audioFrameBytes = chn == 0 ? 160 : 0;
        camera.audioFrameMillis = 700;
        frames.Add(std::make_unique<GeneratedSource>(camera, start, start, seconds));
    }
    Frame frame;
    uint32_t count = 0;
    while (frames.Next(frame)) {
        recorder.Write(frame);
        if (++count % 20 == 0) {
            const uint32_t event = count / 20;
            recorder.WriteEvent(frame.pts + 1, uint64_t{1} << event * 9 % 64, event % 3, event % 3 != 2);
        }
    }
}

/// A ring that has wrapped: journeys, one with pauses short and long, and a newest block that was never closed.
void RecordRing(PartitionImage& image, const RecorderSettings& settings) {
    Recorder recorder(image, settings);
    for (const uint32_t start : {kStart, kStart + 5000, kStart + kDay, kStart + 9 * kDay}) {
        Drive(recorder, start, 30);
        Drive(recorder, start + 40, 15); // a pause of 10 s, which joins
        Drive(recorder, start + 75, 15); // and one of 20 s, which does not
        if (start == kStart + kDay) {
            recorder.CutPowerAfterIndex();
        }
        recorder.PowerOff();
    }
    Drive(recorder, kStart + 10 * kDay, 4);
    recorder.CutPower();
}

PartitionImage NormalDisk(const std::string& file) {
    PartitionImage image = LockedDisk(file, 0);
    RecordRing(image, Settings());
    return image;
}

PartitionImage ExtendedDisk(const std::string& file) {
    PartitionImage image = LockedDisk(file, 1);
    RecorderSettings settings = Settings();
    settings.extensionParameter = 0x80000001;
    RecordRing(image, settings);
    return image;
}

/// A ring that has not wrapped, with a lock that is none, without marks at the end of the frames.
PartitionImage FreshDisk(const std::string& file) {
    Format format = SmallFormat(1);
    format.encrypt = 2;
    format.encryptMap = 0xFFFFFFFF;
    format.blockCount = 21;
    PartitionImage image = PartitionImage::Create(file, format);
    RecorderSettings settings = Settings();
    settings.endMarker = false;
    Recorder recorder(image, settings);
    for (uint32_t day = 0; day < 5; ++day) {
        Drive(recorder, kStart + day * kDay, 10 + 9 * day);
        recorder.PowerOff();
    }
    return image;
}

PartitionImage EmptyDisk(const std::string& file) {
    return PartitionImage::Create(file, SmallFormat(0));
}

PartitionImage SingleDisk(const std::string& file) {
    Format format = SmallFormat(0);
    format.blockCount = 1;
    PartitionImage image = PartitionImage::Create(file, format);
    Recorder recorder(image, Settings());
    Drive(recorder, kStart, 5);
    recorder.CutPower();
    return image;
}

/// Blocks that are hardly larger than their head and their index.
PartitionImage TinyDisk(const std::string& file) {
    Format format = SmallFormat(1);
    format.blockSize = 2048 + 0x1000 + 500;
    format.blockCount = 40;
    PartitionImage image = PartitionImage::Create(file, format);
    image.SetSuspect(39, 255);
    Recorder recorder(image, Settings());
    Drive(recorder, kStart, 30, 80);
    recorder.PowerOff();
    return image;
}

/// A copy that was cut off inside a block's frames.
PartitionImage TruncatedDisk(const std::string& file) {
    PartitionImage image = NormalDisk(file);
    image.Truncate(image.FrameOffset(8, 5000));
    return image;
}

/// The clock passes 0x7FFFFFFF, 0x80000000 and, for the newest block, all ones.
PartitionImage LateDisk(const std::string& file) {
    PartitionImage image = PartitionImage::Create(file, SmallFormat(0));
    Recorder recorder(image, Settings());
    Drive(recorder, 0x7FFFFFFF - 25, 50);
    recorder.PowerOff();
    Drive(recorder, 0xFFFFFFFF - 20, 20);
    recorder.PowerOff();
    return image;
}

/// Of another disk type, which has another magic; every block without a mark of its own.
PartitionImage OtherTypeDisk(const std::string& file) {
    Format format = SmallFormat(7);
    format.diskType = 52;
    format.blockCount = 5;
    format.description.assign(40, 'D');
    format.password.assign(140, 'P');
    format.encrypt = 0xFFFFFFFF;
    format.encryptMap = 0x80000001;
    PartitionImage image = PartitionImage::Create(file, format);
    Recorder recorder(image, Settings());
    Drive(recorder, kStart, 60);
    recorder.PowerOff();
    return image;
}

/// Tables of bad blocks that cannot be read.
PartitionImage NoTablesDisk(const std::string& file) {
    PartitionImage image = NormalDisk(file);
    image.EditHead([](PartHead_t& head) { head.BBTabOffs = 0xFFFFFFF0; });
    return image;
}

/// Blocks written field by field: extreme times, texts without an end, counts that lie, and index entries whose
/// 64-bit fields use all their bits.
PartitionImage OddDisk(const std::string& file) {
    Format format = SmallFormat(1);
    format.blockCount = 9;
    PartitionImage image = PartitionImage::Create(file, format);
    auto first = BlockContents::Closed(1, 1, 100).Segment(0, 0, 0x7FFFFFFF, 0xFFFFFFFF).Segment(0, 50, 51, 0);
    first.Segment(31, 0x7FFFFFFF, 0x80000000, 7).IFrame(0, 0, 0).IFrame(0, INT64_MAX, 24).IFrame(31, -1, 48);
    image.WriteBlock(0, first.Event(0, UINT64_MAX).Event(INT64_MAX, 1).Event(INT64_MIN, uint64_t{1} << 63));
    auto second = BlockContents::Closed(2, 0x7FFFFFFE, 0x80000001);
    second.Segment(0, 0x7FFFFFFE, 0x80000001, 0x80000000).Segment(5, 0x80000000, 0xFFFFFFFE, 0x7FFFFFFF);
    second.Event(Stamp(0x7FFFFFFF), 0x80000000).Event(Stamp(0x80000000), 0x100000000);
    std::memset(second.head.VehicleID, 'I', sizeof second.head.VehicleID);
    std::memset(second.head.VehicleNum, 0xE9, sizeof second.head.VehicleNum);
    image.WriteBlock(1, second);
    auto third = BlockContents::Closed(3, 0x80000005, 0xFFFFFFFE).Segment(2, 0x80000005, 0xFFFFFFFF, 99);
    third.extHead = {1, 0x4, {}};
    third.head.AlmDelayTime = 0xFFFFFFFF;
    image.WriteBlock(2, third.Event(Stamp(0xFFFFFFFE), 3).Event(Stamp(0xFFFFFFFF), 4));
    image.WriteBlock(3, BlockContents::Open(4, 0xFFFFFFFE).Channels(0xFFFFFFFF));
    image.WriteBlock(4, BlockContents::Closed(0xFFFFFFFF, 0xFFFFFFFF, 0).Channels(0x2));
    image.Change<BlkIndexHead_t>(image.IndexOffset(4), [](auto& index) {
        index.iframeCount[1] = 0x10000001; // times 16, it wraps to 16
        index.recSegCount[1] = 1;
    });
    auto lying = BlockContents::Closed(5, kStart, kStart + 9).Segment(0, kStart, kStart + 9, 0x12345678);
    image.WriteBlock(5, lying.Event(Stamp(kStart), 1));
    image.Change<BlkIndexHead_t>(image.IndexOffset(5), [](auto& index) { index.eventCount = 0x0AAAAAAB; });
    auto swapped = BlockContents::Closed(6, kStart + 100, kStart + 10);
    swapped.Segment(0, kStart + 100, kStart + 10, 50).Segment(0, kStart + 10, kStart + 10, 60);
    image.WriteBlock(6, swapped);
    return image;
}

/// Writes a closed block with frames that begin at @p pos, as a block would be of which only this part is left.
void WriteFarBlock(PartitionImage& image, uint32_t block, uint32_t sequence, uint32_t start, uint32_t pos) {
    auto contents = BlockContents::Closed(sequence, start, start + 59);
    contents.head.pre_RecTime = contents.head.AlmDelayTime = 5;
    uint32_t at = pos;
    for (uint32_t i = 0; i < 60; ++i) {
        const bool key = i % 6 == 0;
        const FrameHead_t head = {Stamp(start + i), BLOCK_MAGIC, key ? 1u : 0u, 1, 100 + i};
        const std::vector<uint8_t> payload(head.len, static_cast<uint8_t>(block + i));
        image.Put(image.FrameOffset(block, at), head);
        image.Write(image.FrameOffset(block, at) + sizeof head, payload.data(), payload.size());
        if (key) {
            contents.IFrame(1, head.pts, at);
            contents.Event(head.pts, uint64_t{1} << i, at);
        }
        at += static_cast<uint32_t>(sizeof head) + head.len;
    }
    image.WriteBlock(block, contents.Segment(1, start, start + 59, at - pos, pos));
}

/// Blocks of 2 GiB and more: positions inside them take all 32 bits.
PartitionImage WideDisk(const std::string& file, uint32_t blockSize, uint32_t fmtVersion) {
    Format format;
    format.fmtVersion = fmtVersion;
    format.blockCount = 5;
    format.blockSize = blockSize;
    PartitionImage image = PartitionImage::Create(file, format);
    for (uint32_t block = 0; block < 4; ++block) {
        const uint32_t pos = block % 2 == 0 ? image.FrameAreaSize() - 0x8000 : 0;
        WriteFarBlock(image, block, block + 1, kStart + 100 * block, pos);
    }
    return image;
}

PartitionImage WidePositionsDisk(const std::string& file) {
    return WideDisk(file, 0x7FFFF000, 0);
}

PartitionImage WiderPositionsDisk(const std::string& file) {
    return WideDisk(file, 0xFFFFF000, 1);
}

/// 512 GiB of which most blocks are bad, so that walks are short: those that are not lie at both ends, on both
/// sides of 4 GiB and of multiples of 32 GiB, and around the newest.
PartitionImage LargeDisk(const std::string& file, uint32_t fmtVersion, uint32_t newest) {
    constexpr uint32_t kCount = 0x10000;
    Format format;
    format.fmtVersion = fmtVersion;
    format.blockCount = 1;
    format.blockSize = 0x800000;
    PartitionImage image = PartitionImage::Create(file, format);
    image.Truncate(image.BlockStart(kCount));
    image.EditHead([](PartHead_t& head) {
        head.BlkCount = kCount;
        head.BBCounterOffs = 0x10000;
        head.BBTabBakOffs = 0x30000;
        head.BBCounterBakOffs = 0x40000;
    });
    const std::vector<uint8_t> bad(kCount / 8, 0xFF);
    image.Write(image.Head().BBTabOffs, bad.data(), bad.size());
    uint32_t sequence = 0;
    for (uint32_t age = 0; age < kCount; ++age) {
        const uint32_t block = (newest + 1 + age) % kCount;
        const bool used = (block + 2) % 0x1000 < 3 || block < 3 || block > kCount - 4 ||
                          (block > 509 && block < 514) || (block + 3 > newest && block < newest + 3);
        if (used) {
            image.SetBad(block, false);
            ++sequence;
            WriteFarBlock(image, block, sequence, kStart + 100 * sequence, block % 3 * 0x300000);
        }
    }
    return image;
}

PartitionImage LargeNormalDisk(const std::string& file) {
    return LargeDisk(file, 0, 700);
}

PartitionImage LargeExtendedDisk(const std::string& file) {
    return LargeDisk(file, 1, 0xFFFF);
}

struct Maker {
    std::function<PartitionImage(const std::string&)> make;
    bool small;
};

const std::map<std::string, Maker>& Makers() {
    static const std::map<std::string, Maker> makers = {
        {"empty", {EmptyDisk, true}},
        {"extended", {ExtendedDisk, true}},
        {"fresh", {FreshDisk, true}},
        {"large_extended", {LargeExtendedDisk, false}},
        {"large_normal", {LargeNormalDisk, false}},
        {"late", {LateDisk, true}},
        {"no_tables", {NoTablesDisk, true}},
        {"normal", {NormalDisk, true}},
        {"odd", {OddDisk, true}},
        {"other_type", {OtherTypeDisk, true}},
        {"single", {SingleDisk, true}},
        {"tiny", {TinyDisk, true}},
        {"truncated", {TruncatedDisk, true}},
        {"wide", {WidePositionsDisk, true}},
        {"wider", {WiderPositionsDisk, true}},
    };
    return makers;
}

/// The blocks of a ring to look at: all of a small one.
std::vector<uint32_t> BlocksOf(uint32_t count) {
    std::set<uint32_t> blocks = {0, count - 1, count, count + 1, 0xFFFF, 0x10000, 70000, 0xFFFFFFFF};
    const uint32_t all = std::min(count, count < 0x1000 ? 12u : 3u);
    for (uint32_t block = 0; block < all; ++block) {
        blocks.insert(block);
    }
    for (const uint32_t block : {20u, 511u, 512u, 700u, 701u, 702u, 32768u}) {
        if (block < count) {
            blocks.insert(block);
        }
    }
    return {blocks.begin(), blocks.end()};
}

template <typename Structure>
Structure Lying(const PartitionImage& image, uint64_t offset) {
    try {
        return image.Get<Structure>(offset);
    } catch (const Error&) {
        return {}; // cut off
    }
}

std::vector<uint32_t> TimesOf(const PartitionImage& image, const std::vector<uint32_t>& blocks) {
    std::set<uint32_t> times = {0,          1,          0x7FFFFFFE, 0x7FFFFFFF, 0x80000000,
                                0x80000001, 0xFFFFFFFD, 0xFFFFFFFE, 0xFFFFFFFF};
    for (const uint32_t block : blocks) {
        if (block < image.BlockCount()) {
            const uint32_t start = Lying<BlockHead_t>(image, image.HeadOffset(block)).RecTime;
            const uint32_t end = Lying<BlockTail_t>(image, image.TailOffset(block)).EndTime;
            times.insert({start - 1, start, start + 1, start + (end - start) / 2, end - 1, end, end + 1});
        }
    }
    return {times.begin(), times.end()};
}

} // namespace

Disk Describe(const PartitionImage& image) {
    Disk disk;
    disk.access = image.Access();
    disk.head = image.Head();
    disk.blocks = BlocksOf(image.BlockCount());
    disk.times = TimesOf(image, disk.blocks);
    return disk;
}

const std::vector<std::string>& DiskNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const auto& [name, maker] : Makers()) {
            all.push_back(name);
        }
        return all;
    }();
    return names;
}

const Disk& DiskOf(const std::string& name) {
    static std::map<std::string, Disk> disks;
    const auto made = disks.find(name);
    if (made != disks.end()) {
        return made->second;
    }
    const Maker& maker = Makers().at(name);
    Disk disk = Describe(maker.make(name));
    disk.small = maker.small;
    return disks.emplace(name, std::move(disk)).first->second;
}

} // namespace conformance
