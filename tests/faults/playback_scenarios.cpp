// Playback: the disk object, the partition object and the block object.

#include <cstring>

#include "faults/scenario.h"
#include "playback/part_fixture.h"

namespace test_support {

namespace {

/// A reader of the disk object.
class Reader {
public:
    Reader(CReadDisk& disk, Transcript& transcript, int chnType, RecordItem_t record)
        : m_disk(disk), m_transcript(transcript), m_sink(transcript),
          m_handle(disk.StartRead(chnType, &record)) {}
    Reader(CReadDisk& disk, Transcript& transcript, int unit)
        : m_disk(disk), m_transcript(transcript), m_sink(transcript), m_handle(disk.StartUnitRead(unit)) {}
    ~Reader() { Stop(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    using Read = int (CReadDisk::*)(void*, FrameInfo_t*, void**);
    bool Take(const char* call, Read read) {
        return m_sink.Take(
            call, [&](FrameInfo_t* info, void** payload) { return (m_disk.*read)(m_handle, info, payload); });
    }
    void TakeAll(const char* call, Read read) {
        for (int i = 0; i < 30 && Take(call, read); ++i) {
        }
    }
    void Frames() { TakeAll("ReadFrame", &CReadDisk::ReadFrame); }
    void SeekTime(long time) { m_transcript.Result("SeekTime", m_disk.SeekTime(m_handle, &time), -1, 0); }
    void SeekPos(unsigned int pos) { m_transcript.Result("SeekPos", m_disk.SeekPos(m_handle, &pos), -1, 0); }
    void Stop() {
        m_transcript.Result("StopRead", m_disk.StopRead(m_handle), 0, 0);
        m_handle = nullptr;
    }

private:
    CReadDisk& m_disk;
    Transcript& m_transcript;
    FrameSink m_sink;
    void* m_handle;
};

void Play(CReadDisk& disk, Transcript& transcript, int chnType, const RecordItem_t& record) {
    Reader(disk, transcript, chnType, record).Frames();
}

void Seeks(CReadDisk& disk, Transcript& transcript) {
    Reader reader(disk, transcript, 0, SegmentRecord(0, 0, 0, 1000));
    reader.SeekTime(1002);
    reader.Take("ReadFrame", &CReadDisk::ReadFrame);
    reader.SeekPos(150);
    reader.Take("ReadFrame", &CReadDisk::ReadFrame);
    reader.SeekPos(5000);
    reader.SeekTime(2000);
    reader.Take("ReadFrame", &CReadDisk::ReadFrame);
}

void Steps(CReadDisk& disk, Transcript& transcript, int chnType) {
    Reader reader(disk, transcript, chnType, SegmentRecord(0, 0, 0, 1000));
    reader.TakeAll("ReadNextIFrame", &CReadDisk::ReadNextIFrame);
    reader.TakeAll("ReadPrevIFrame", &CReadDisk::ReadPrevIFrame);
    reader.SeekTime(1001);
    reader.Take("ReadFrame", &CReadDisk::ReadFrame);
    reader.Take("ReadPrevIFrame", &CReadDisk::ReadPrevIFrame);
    reader.Take("ReadFrame", &CReadDisk::ReadFrame);
}

void StepBehindTheRecord(CReadDisk& disk, Transcript& transcript) {
    Reader reader(disk, transcript, 0, SegmentRecord(1, 0, 0, 1005));
    reader.Frames();
    reader.Take("ReadNextIFrame", &CReadDisk::ReadNextIFrame);
    reader.Take("ReadPrevIFrame", &CReadDisk::ReadPrevIFrame);
    reader.SeekTime(1008);
    reader.Take("ReadFrame", &CReadDisk::ReadFrame);
}

template <typename Get>
void Parameters(Transcript& transcript, const RecordItem_t& wanted, Get get) {
    RecordItem_t record = wanted;
    EncodeParam_t parameters;
    std::memset(&parameters, 0xEE, sizeof parameters);
    const EncodeParam_t untouched = parameters;
    const EncodeParam_t none = {};
    const int result = transcript.Result("GetInfo", get(&parameters, &record), -1, 0);
    const bool zero = std::memcmp(&parameters, &none, sizeof none) == 0;
    const bool kept = std::memcmp(&parameters, &untouched, sizeof untouched) == 0; // by a disk never opened
    transcript.Require(result == 0 || zero || kept, "no parameters without a result");
    transcript.Require(result == -1 || record.chn == (record.recId >> 9 & 0x7F), "the record's channel");
    transcript.Add("%d %u %.16s\n", result, parameters.chn, result == 0 ? parameters.VehicleNum : "");
}

void Parameters(CReadDisk& disk, Transcript& transcript) {
    for (const int rebuild : {0, 1}) {
        for (const RecordItem_t& record : {SegmentRecord(0, 1, 0, 0), SegmentRecord(2, 0, 0, 0)}) {
            Parameters(transcript, record, [&](EncodeParam_t* out, RecordItem_t* item) {
                return disk.GetInfo(out, item, rebuild);
            });
        }
    }
    unsigned char wrong[] = "guess";
    unsigned char right[] = "secret";
    transcript.Result("CheckEncryptInfo", disk.CheckEncryptInfo(wrong), -1, -1);
    transcript.Result("CheckEncryptInfo", disk.CheckEncryptInfo(right), -1, 0);
}

/// Two readers in turn, one of which is stopped only after the disk was closed.
void LateStop(PartAccess_t& access, Transcript& transcript) {
    CReadDisk disk;
    transcript.Result("Init", disk.Init(&access), -1, 0);
    Reader one(disk, transcript, 0, SegmentRecord(0, 0, 0, 1000));
    Reader all(disk, transcript, 1, WholeBlockRecord(1, 0));
    for (int i = 0; i < 2; ++i) {
        one.Take("ReadFrame", &CReadDisk::ReadFrame);
        all.Take("ReadFrame", &CReadDisk::ReadFrame);
    }
    one.Stop();
    transcript.Result("Quit", disk.Quit(), -1, 0);
    transcript.Require(!all.Take("ReadFrame", &CReadDisk::ReadFrame), "no frames after the disk was let go");
}

void PartBlocks(CReadPart& part, Transcript& transcript) {
    transcript.Result("GetBadBlockTab", part.GetBadBlockTab(), -1, 0);
    for (unsigned int mode = 0; mode < 6; ++mode) {
        transcript.Result("IsValidBlock", part.IsValidBlock(1, mode, 2), 0, 1);
    }
    transcript.Result("IsValidBlock", part.IsValidBlock(3, 5, 0), 0, 1);
    unsigned int found = 99;
    int result = transcript.Result("GetNextValidBlock", part.GetNextValidBlock(1, 2, 3, 1, &found), -1, 0);
    transcript.Require((result == 0) == (found != 99), "a block when one was found");
    transcript.Add("found %u\n", found);
    found = 99;
    result = transcript.Result("GetPrevValidBlock", part.GetPrevValidBlock(4, 0, 0, 1, &found), -1, 0);
    transcript.Require((result == 0) == (found != 99), "a block when one was found");
    transcript.Add("found %u\n", found);
}

void PartReader(CReadPart& part, Transcript& transcript) {
    RecordItem_t record = SegmentRecord(1, 0, 0, 1006);
    PartReadHandle_st* const reader = part.BeginReader(0, &record);
    {
        FrameSink sink(transcript);
        const auto read = [&](FrameInfo_t* info, void** payload) {
            return part.ReadFrame(reader, info, payload);
        };
        sink.TakeAll("ReadFrame", read);
        long time = 1006;
        unsigned int pos = 10;
        transcript.Result("SeekTime", part.SeekTime(reader, &time), -1, 0);
        sink.Take("ReadFrame", read);
        transcript.Result("SeekPos", part.SeekPos(reader, &pos), -1, 0);
        sink.Take("ReadUnitFrame", [&](FrameInfo_t* info, void** payload) {
            return part.ReadUnitFrame(reader, info, payload);
        });
    }
    transcript.Result("EndReader", part.EndReader(reader), -1, 0);
    Parameters(transcript, record,
               [&](EncodeParam_t* out, RecordItem_t* item) { return part.GetRecInfo(out, item, 1); });
    unsigned int map = 99;
    unsigned int mode = 99;
    unsigned char password[8] = {};
    const int result =
        transcript.Result("GetEncrypt", part.GetEncrypt(&map, &mode, password, sizeof password), -1, 0);
    transcript.Require(result == 0 ? std::memcmp(password, "secret", 7) == 0 : map == 99 && mode == 99,
                       "the lock whole or untouched");
    transcript.Add("%u %u\n", map, mode);
}

/// Work for a block object.
class BlockScenario : public Scenario {
public:
    using WorkFunction = void (*)(CReadBlock&, Transcript&);
    BlockScenario(Medium medium, uint32_t block, int rebuild, WorkFunction work)
        : m_medium(medium), m_block(block), m_rebuild(rebuild), m_work(work) {}

    bool Open(PartAccess_t& access) override {
        return m_reader.OpenBlock(m_block, kMediaBlockSize, &access, LayoutOf(m_medium), m_rebuild) == 0;
    }
    void Work(Transcript& transcript) override { m_work(m_reader, transcript); }
    void Close() override { m_reader.CloseBlock(); }

private:
    Medium m_medium;
    uint32_t m_block;
    int m_rebuild;
    WorkFunction m_work;
    CReadBlock m_reader;
};

ScenarioEntry WithBlock(const char* name, Medium medium, uint32_t block, int rebuild,
                        BlockScenario::WorkFunction work, Recovery recovery = Recovery::SameObject) {
    return {name, medium, [=] { return std::make_unique<BlockScenario>(medium, block, rebuild, work); },
            recovery};
}

/// A read of the block object as one that gives a FrameInfo_t.
using BlockRead = int (CReadBlock::*)(FrameHead_t*, void**);
auto InfoFrom(CReadBlock& block, BlockRead read) {
    return [&block, read](FrameInfo_t* info, void** payload) {
        FrameHead_t head = {};
        const int result = (block.*read)(&head, payload);
        if (result == 0) {
            info->pts = static_cast<uint64_t>(head.pts);
            info->type = head.type;
            info->chn = head.chn;
            info->len = head.len;
        }
        return result;
    };
}

void BlockFrames(CReadBlock& block, Transcript& transcript) {
    FrameSink sink(transcript);
    RecordItem_t record = SegmentRecord(0, 0, 0, 1000);
    transcript.Result("SeekOffs", block.SeekOffs(1, &record, 0, 0), -1, 0);
    sink.Take("ReadFrame", InfoFrom(block, &CReadBlock::ReadFrame));
    sink.Take("ReadNextIFrame", InfoFrom(block, &CReadBlock::ReadNextIFrame));
    sink.Take("ReadPrevIFrame", InfoFrom(block, &CReadBlock::ReadPrevIFrame));
    transcript.Result("SeekTime", block.SeekTime(0, &record, 1002), -1, 0);
    sink.TakeAll("ReadFrame", InfoFrom(block, &CReadBlock::ReadFrame));
    transcript.Result("SeekOffs", block.SeekOffs(0, &record, 0, 1), -1, 0);
    sink.TakeAll("ReadBlockFrame", InfoFrom(block, &CReadBlock::ReadBlockFrame));
}

void BlockInfo(CReadBlock& block, Transcript& transcript) {
    BlockHead_t head = {};
    BlockTail_t tail = {};
    transcript.Result("GetBlockInfo", block.GetBlockInfo(&head, &tail), -1, 0);
    transcript.Add("%u %u\n", head.RecSeq, tail.RecSeq);
    RecordItem_t record = SegmentRecord(0, 0, 0, 1000);
    RecSegItem_t segment = {};
    transcript.Result("GetRecSegInfo", block.GetRecSegInfo(&record, &segment), -1, 0);
    transcript.Require(segment.s == 0 || (kPlayStart <= segment.s && segment.s <= kPlayEnd),
                       "a segment's start");
    transcript.Add("%u-%u\n", segment.s, segment.e);
}

void BlockIndex(CReadBlock& block, Transcript& transcript) {
    transcript.Result("GetBlockIndex", block.GetBlockIndex(1), -1, 0);
    BlockInfo(block, transcript);
}

} // namespace

std::vector<ScenarioEntry> PlaybackScenarios() {
    using Disk = CReadDisk;
    using Part = CReadPart;
    return {
        With<Disk>("PlaySegment", Medium::Play,
                   [](Disk& disk, Transcript& t) { Play(disk, t, 0, SegmentRecord(0, 0, 0, 1000)); }),
        With<Disk>("PlaySegmentExtended", Medium::ExtendedPlay,
                   [](Disk& disk, Transcript& t) { Play(disk, t, 0, SegmentRecord(0, 0, 0, 1000)); }),
        With<Disk>("PlayInsideSegment", Medium::Play,
                   [](Disk& disk, Transcript& t) { Play(disk, t, 0, SegmentRecord(0, 0, 0, 1002, 1003)); }),
        With<Disk>("PlayAllChannels", Medium::Play,
                   [](Disk& disk, Transcript& t) { Play(disk, t, 1, SegmentRecord(0, 0, 0, 1000)); }),
        With<Disk>("PlayOpenBlock", Medium::Play,
                   [](Disk& disk, Transcript& t) { Play(disk, t, 0, SegmentRecord(2, 1, 0, 1009)); }),
        With<Disk>("PlayWholeBlock", Medium::ExtendedPlay,
                   [](Disk& disk, Transcript& t) { Play(disk, t, 0, WholeBlockRecord(2, 0)); }),
        With<Disk>("PlayOwnWindow", Medium::Play,
                   [](Disk& disk, Transcript& t) { Play(disk, t, 0, WindowRecord(1, 0, 1005, 1900, 124)); }),
        With<Disk>("PlayUnknownFlag", Medium::Play,
                   [](Disk& disk, Transcript& t) {
                       RecordItem_t record = WholeBlockRecord(0, 0);
                       record.flag = 7;
                       Play(disk, t, 0, record);
                   }),
        With<Disk>("PlayUnit", Medium::Play,
                   [](Disk& disk, Transcript& t) {
                       Reader(disk, t, 0).TakeAll("ReadUnitFrame", &Disk::ReadUnitFrame);
                   }),
        With<Disk>("PlaybackSeeks", Medium::Play, Seeks),
        With<Disk>("PlaybackSteps", Medium::Play, [](Disk& disk, Transcript& t) { Steps(disk, t, 0); }),
        With<Disk>("PlaybackStepsOfAllChannels", Medium::ExtendedPlay,
                   [](Disk& disk, Transcript& t) { Steps(disk, t, 1); }),
        With<Disk>("StepsBehindTheRecord", Medium::Play, StepBehindTheRecord),
        With<Disk>("PlaybackParameters", Medium::Play, Parameters),
        Free("LateStop", Medium::Play, LateStop),
        With<Part>("PlaybackBlocks", Medium::ExtendedPlay, PartBlocks),
        With<Part>("PartReader", Medium::Play, PartReader),
        WithBlock("BlockFrames", Medium::Play, 0, 0, BlockFrames),
        WithBlock("BlockFramesExtended", Medium::ExtendedPlay, 0, 0, BlockFrames),
        WithBlock("BlockInfo", Medium::Play, 0, 0, BlockInfo),
        WithBlock("BlockInfoOfOpenBlock", Medium::Play, 2, 0, BlockInfo),
        WithBlock("BlockIndex", Medium::ExtendedPlay, 0, 0, BlockIndex),
        WithBlock("BlockRebuild", Medium::Play, 2, 1, BlockFrames),
        WithBlock("BlockRebuildRepeated", Medium::ExtendedPlay, 2, 1, BlockIndex, Recovery::Reopened),
    };
}

} // namespace test_support
