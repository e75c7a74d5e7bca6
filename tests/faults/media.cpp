#include "faults/media.h"

#include "dump/sample_disk.h"
#include "playback/part_fixture.h"

namespace test_support {

const char* const kPlayScript =
    "P0@1000 I0@1001 P1@1001 E0@1001:16 I0@1002 P0@1003 I1@1003 P0@1004 | "
    "P0@1005 A0@1005:60 I0@1006 P0@1007 | I0@1008 P0@1012 E0@1012:16 I1@1012 P1@1016 /";

namespace {

BlockContents Recorded(uint32_t sequence, bool closed) {
    const uint32_t start = SearchStart(sequence);
    const uint32_t end = start + kSearchSpan;
    BlockContents contents =
        closed ? BlockContents::Closed(sequence, start, end) : BlockContents::Open(sequence, start);
    contents.head.pre_RecTime = 10;
    contents.head.AlmDelayTime = 30;
    contents.extHead.ExtParaValid = 1;
    contents.extHead.ExtPara = 1;
    contents.Channels(3);
    if (closed) {
        contents.Segment(0, start, start + 10000, 9000).Segment(0, start + 20000, end, 8000, 9000);
        contents.Segment(1, start, end, 39000).IFrame(0, Pts(start), 0);
        contents.Event(Pts(start + 500), 1).Event(Pts(start + 25000), 4);
    }
    return contents;
}

void WriteSearchRing(PartitionImage& disk) {
    for (uint32_t block = 0; block < kSearchBlocks; ++block) {
        disk.WriteBlock(block, Recorded(SearchSequence(block), block != 1));
    }
    disk.SetBad(3);
    disk.SetSuspect(5, 1);
}

void RecordPlayScript(PartitionImage& disk) {
    sample_recorder::RecorderSettings settings;
    settings.channels = kScriptChannels;
    sample_recorder::Recorder recorder(disk, settings);
    RecordScript(recorder, kPlayScript);
    disk.SetBad(disk.BlockCount() - 1);
}

Format FormatOf(Medium medium) {
    if (medium == Medium::Dump || medium == Medium::ExtendedDump) {
        return SampleFormat(LayoutOf(medium));
    }
    Format format;
    format.blockSize = kMediaBlockSize;
    format.fmtVersion = LayoutOf(medium);
    format.blockCount = medium == Medium::Search || medium == Medium::ExtendedSearch ? kSearchBlocks : 4;
    format.encrypt = 1;
    format.encryptMap = 2;
    format.password = "secret";
    return format;
}

} // namespace

PartitionImage MakeMedium(Medium medium, const std::string& path) {
    PartitionImage disk = PartitionImage::Create(path, FormatOf(medium));
    switch (medium) {
    case Medium::Search:
    case Medium::ExtendedSearch:
        WriteSearchRing(disk);
        break;
    case Medium::Play:
    case Medium::ExtendedPlay:
        RecordPlayScript(disk);
        break;
    default:
        WriteSampleBlocks(disk);
        break;
    }
    return disk;
}

} // namespace test_support
