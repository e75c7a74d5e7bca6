// Playback of records that a search found and of made-up ones, with the operations in any order, on a partition
// that may hold anything; and on a second disk beside it that has the same bytes under another head.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "disk_access.h"
#include "support/findings.h"
#include "support/limits.h"
#include "support/machine.h"
#include "support/partition_input.h"
#include "support/partition_run.h"
#include "support/script.h"

namespace fuzzing {

namespace {

constexpr int kMostOperations = 80;
/// Searching a ring forged to be long takes its time; its records are made up.
constexpr uint32_t kLongestRingSearched = 256;

/// A caller's payload buffer, checked after every read.
class Payload {
public:
    Payload() = default;
    ~Payload() { std::free(m_buffer); }
    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;

    void** Place() { return &m_buffer; }
    void Check(int result, uint32_t len) {
        Require(result >= -1 && result <= 2, "a read has no known result");
        if (result == 0) {
            RequireAddressable(m_buffer, std::max(len, 1u));
        } else if (m_buffer != nullptr) {
            RequireAddressable(m_buffer, 1);
        }
    }
    void Release() {
        std::free(m_buffer);
        m_buffer = nullptr;
    }

private:
    void* m_buffer = nullptr;
};

/// A reader of CReadDisk, open or not.
struct DiskReader {
    CReadDisk* disk = nullptr;
    void* handle = nullptr;
};

class PlaybackRun {
public:
    explicit PlaybackRun(const PartitionInput& input)
        : m_input(input), m_script(input.script),
          m_limits(input, Machine::The().Device(0)), m_access{input.Access(0), input.Access(1)} {}

    ~PlaybackRun() {
        for (DiskReader& reader : m_readers) {
            Stop(reader);
        }
        for (PartReadHandle_st*& reader : m_partReaders) {
            m_part.EndReader(reader);
        }
        for (CReadDisk& disk : m_disks) {
            disk.Quit();
        }
        m_part.Quit();
        m_block.CloseBlock();
    }
    PlaybackRun(const PlaybackRun&) = delete;
    PlaybackRun& operator=(const PlaybackRun&) = delete;

    void Run() {
        LaySecondDisk();
        const AllocationWatch watch(m_input.FirstRefused(), m_input.Fault() == FaultKind::NoMemoryForever);
        Search();
        m_disks[0].Init(m_access.data());
        m_part.Init(m_access.data());
        for (int i = 0; i < kMostOperations && !m_script.Done(); ++i) {
            if (Machine::The().Calls() > kEnoughCalls) {
                break;
            }
            Machine::The().LimitCalls(EitherDisksCalls());
            OperateOnce();
        }
        Machine::The().LimitCalls(2000);
        Require(watch.Largest() <=
                    std::max<size_t>(m_limits.PlaybackAllocation(), 2 * size_t{m_largestBlock}),
                "an operation takes more memory than a block has bytes");
    }

private:
    using Operation = void (PlaybackRun::*)();

    /// The same bytes, with geometry and layout that the script chooses.
    void LaySecondDisk() {
        PartitionInput other = m_input;
        const uint32_t count = m_script.Number(6);
        const uint32_t size = m_script.Flag() ? m_input.head.blockSize : m_script.Position();
        other.PutWord(offsetof(PartHead_t, BlkCount), count);
        other.PutWord(offsetof(PartHead_t, BlkSize), size);
        if (m_script.Below(4) == 0) {
            other.PutWord(offsetof(PartHead_t, FmtVersion), m_input.head.fmtVersion ^ 1u);
        }
        other.LayOn(Machine::The().Device(1));
        m_largestBlock = size;
        m_secondLimits = Limits(other, Machine::The().Device(1)).Calls();
    }

    /// The calls that an operation may make, whichever of the disks its object was opened on.
    uint64_t EitherDisksCalls() const { return std::max(m_limits.Calls(), m_secondLimits); }

    /// Finds records as a caller would, to play them.
    void Search() {
        if (m_input.Word(offsetof(PartHead_t, BlkCount)) > kLongestRingSearched) {
            return;
        }
        CCommList<RecordItem_t> records;
        CSearchDisk search;
        search.Init(m_access.data());
        SearchParam_t request = {0, 0, 0x7FFFFFFF, 0xFFFFFFFF};
        search.SearchMedia(&request, &records);
        for (const auto* node = records.m_pHead; node != nullptr && m_found < m_records.size();
             node = node->pNext) {
            m_records.at(m_found++) = node->data;
        }
    }

    RecordItem_t MadeUpRecord() {
        RecordItem_t record = {};
        record.recId =
            m_script.Number(6) << 16 | (m_script.Number(4) & 0x7F) << 9 | (m_script.Number(3) & 0x1FF);
        record.chn = m_script.Number(33);
        record.startTime = m_script.Time();
        record.endTime = m_script.Time();
        record.size = m_script.Position();
        record.flag = m_script.Number(4);
        return record;
    }
    RecordItem_t Record() {
        const uint8_t choice = m_script.Byte();
        return m_found > 0 && choice < 0xA0 ? m_records.at(choice % m_found) : MadeUpRecord();
    }
    int AllChannels() { return static_cast<int>(m_script.Below(3)); }
    uint32_t Block() { return m_script.Number(6); }
    long Seconds() { return static_cast<int32_t>(m_script.Time()); }
    DiskReader& Reader() { return m_readers.at(m_script.Below(m_readers.size())); }
    PartReadHandle_st*& PartReader() { return m_partReaders.at(m_script.Below(m_partReaders.size())); }
    CReadDisk& Disk() { return m_disks.at(m_script.Below(4) == 0 ? 1 : 0); }
    PartAccess_t* Access() { return &m_access.at(m_script.Below(4) == 0 ? 1 : 0); }

    /// Where payloads go: seldom nowhere.
    void** PayloadPlace() { return m_script.Byte() == 0xFF ? nullptr : m_payload.Place(); }
    void Check(int result, uint32_t len, void** place) {
        m_payload.Check(place == nullptr && result == 0 ? 1 : result, len);
    }

    // The disk.

    void DiskInit() {
        CReadDisk& disk = Disk();
        Require(disk.Init(nullptr) == -1, "a disk is opened without a description");
        disk.Init(Access());
    }
    /// With its readers open, and perhaps on the other disk.
    void DiskReopen() {
        CReadDisk& disk = Disk();
        disk.Quit();
        disk.Init(Access());
    }
    void DiskQuit() { Disk().Quit(); }
    void DiskStart() {
        DiskReader& reader = Reader();
        Stop(reader);
        reader.disk = &Disk();
        RecordItem_t record = Record();
        reader.handle = reader.disk->StartRead(AllChannels(), &record);
    }
    void DiskStartUnit() {
        DiskReader& reader = Reader();
        Stop(reader);
        reader.disk = &Disk();
        reader.handle = reader.disk->StartUnitRead(static_cast<int>(Block()));
    }
    void DiskStop() { Stop(Reader()); }
    static void Stop(DiskReader& reader) {
        if (reader.disk != nullptr) {
            reader.disk->StopRead(reader.handle);
        }
        reader = DiskReader();
    }
    void DiskGetInfo() {
        RecordItem_t record = Record();
        EncodeParam_t parameters = {};
        Disk().GetInfo(&parameters, &record, static_cast<int>(m_script.Below(3)));
    }
    void DiskSeekTime() {
        DiskReader& reader = Reader();
        long time = Seconds();
        if (reader.disk != nullptr) {
            reader.disk->SeekTime(reader.handle, m_script.Byte() == 0xFF ? nullptr : &time);
        }
    }
    void DiskSeekPos() {
        DiskReader& reader = Reader();
        unsigned int pos = m_script.Position();
        if (reader.disk != nullptr) {
            reader.disk->SeekPos(reader.handle, m_script.Byte() == 0xFF ? nullptr : &pos);
        }
    }
    using DiskRead = int (CReadDisk::*)(void*, FrameInfo_t*, void**);
    int ReadWith(DiskRead read, DiskReader& reader) {
        if (reader.disk == nullptr) {
            return -1;
        }
        FrameInfo_t info = {};
        void** const place = PayloadPlace();
        const int result = (reader.disk->*read)(reader.handle, &info, place);
        Check(result, info.len, place);
        return result;
    }
    void DiskReadFrame() { ReadWith(&CReadDisk::ReadFrame, Reader()); }
    void DiskReadNext() { ReadWith(&CReadDisk::ReadNextIFrame, Reader()); }
    void DiskReadPrev() { ReadWith(&CReadDisk::ReadPrevIFrame, Reader()); }
    void DiskReadUnit() { ReadWith(&CReadDisk::ReadUnitFrame, Reader()); }
    /// Reads on until something else than a frame comes, which must happen.
    void DiskPlay() {
        DiskReader& reader = Reader();
        const DiskRead reads[] = {&CReadDisk::ReadFrame, &CReadDisk::ReadFrame, &CReadDisk::ReadUnitFrame,
                                  &CReadDisk::ReadNextIFrame};
        const DiskRead read = reads[m_script.Below(4)];
        Machine::The().LimitCalls(EitherDisksCalls() * 2);
        size_t frames = 0;
        while (ReadWith(read, reader) == 0) {
            Require(++frames <= m_input.Weight(), "a reader delivers more frames than the disk holds");
        }
    }
    void DiskCheckEncrypt() {
        unsigned char right[] = "k";
        unsigned char wrong[] = "guess";
        Disk().CheckEncryptInfo(m_script.Flag() ? right : wrong);
    }

    // The partition.

    void PartInit() { m_part.Init(m_script.Byte() == 0xFF ? nullptr : Access()); }
    void PartQuit() { m_part.Quit(); }
    void PartStart() {
        PartReadHandle_st*& reader = PartReader();
        m_part.EndReader(reader);
        RecordItem_t record = Record();
        const int all = AllChannels();
        reader = m_part.BeginReader(all, m_script.Byte() == 0xFF ? nullptr : &record);
    }
    void PartEnd() {
        PartReadHandle_st*& reader = PartReader();
        m_part.EndReader(reader);
        reader = nullptr;
    }
    void PartSeekTime() {
        long time = Seconds();
        m_part.SeekTime(PartReader(), &time);
    }
    void PartSeekPos() {
        unsigned int pos = m_script.Position();
        m_part.SeekPos(PartReader(), &pos);
    }
    using PartRead = int (CReadPart::*)(PartReadHandle_st*, FrameInfo_t*, void**);
    void ReadWith(PartRead read) {
        FrameInfo_t info = {};
        void** const place = PayloadPlace();
        const bool nowhere = m_script.Byte() == 0xFF;
        const int result = (m_part.*read)(PartReader(), nowhere ? nullptr : &info, place);
        Check(nowhere && result == 0 ? 1 : result, info.len, place);
    }
    void PartReadFrame() { ReadWith(&CReadPart::ReadFrame); }
    void PartReadNext() { ReadWith(&CReadPart::ReadNextIFrame); }
    void PartReadPrev() { ReadWith(&CReadPart::ReadPrevIFrame); }
    void PartReadUnit() { ReadWith(&CReadPart::ReadUnitFrame); }
    void PartBlocks() {
        m_part.PrintInitInfo();
        m_part.GetBadBlockTab();
        const uint32_t block = Block();
        m_part.IsValidBlock(block, m_script.Number(6), m_script.Number(8));
    }
    void PartWalk() {
        const uint32_t mode = m_script.Number(6);
        const uint32_t seq = m_script.Number(8);
        const uint32_t from = Block();
        const uint32_t to = Block();
        unsigned int out = 0;
        if (m_script.Flag()) {
            m_part.GetNextValidBlock(mode, seq, from, to, &out);
        } else {
            m_part.GetPrevValidBlock(mode, seq, from, to, &out);
        }
    }
    void PartRecInfo() {
        EncodeParam_t parameters = {};
        RecordItem_t record = Record();
        const int rebuild = static_cast<int>(m_script.Below(3));
        m_part.GetRecInfo(m_script.Byte() == 0xFF ? nullptr : &parameters, &record, rebuild);
    }
    void PartLock() {
        unsigned int map = 0;
        unsigned int mode = 0;
        std::array<unsigned char, 200> password = {};
        const int length = static_cast<int>(m_script.Below(password.size()));
        m_part.GetEncrypt(&map, &mode, password.data(), length);
        password.back() = 0;
        m_part.CheckEncrypt(password.data());
    }

    // A block.

    void BlockOpen() {
        const bool usual = m_script.Byte() < 0xE0;
        const uint32_t size = usual ? m_input.head.blockSize : m_script.Position();
        const uint32_t version = m_script.Byte() < 0xE0 ? m_input.head.fmtVersion : m_script.Number(3);
        const uint32_t block = Block();
        m_largestBlock = std::max(m_largestBlock, size);
        m_block.OpenBlock(block, size, m_access.data(), version, static_cast<int>(m_script.Below(3)));
    }
    void BlockReopen() {
        m_block.CloseBlock();
        BlockOpen();
    }
    void BlockClose() { m_block.CloseBlock(); }
    void BlockInfo() {
        BlockHead_t head = {};
        BlockTail_t tail = {};
        const uint8_t which = m_script.Byte();
        m_block.GetBlockInfo((which & 1) != 0 ? &head : nullptr, (which & 2) != 0 ? &tail : nullptr);
        RecordItem_t record = Record();
        RecSegItem_t segment = {};
        m_block.GetRecSegInfo(&record, &segment);
    }
    void BlockIndex() {
        switch (m_script.Below(3)) {
        case 0:
            m_block.GetBlockIndex(static_cast<int>(m_script.Below(3)));
            break;
        case 1:
            m_block.ReadBlockIndex();
            break;
        default:
            m_block.RebuiltBlockIndex();
        }
    }
    void BlockRefresh() {
        FrameInfo_t info = {};
        info.pts = m_script.Time() * uint64_t{1000000};
        info.type = m_script.Number(6);
        info.chn = m_script.Number(33);
        info.len = m_script.Position();
        EventHead_t event = {};
        event.type = m_script.Mask();
        event.Indexed = static_cast<uint8_t>(m_script.Below(3));
        const uint32_t pos = m_script.Position();
        m_block.RefreshBlockIndex(m_script.Byte() == 0xFF ? nullptr : &info, pos,
                                  m_script.Below(4) == 0 ? nullptr : &event);
    }
    void BlockChecks() {
        FrameHead_t head = {};
        head.pts = int64_t{m_script.Time()} * 1000000;
        head.sync = m_script.Flag() ? BLOCK_MAGIC : m_script.Word();
        head.type = m_script.Number(6);
        head.chn = m_script.Number(33);
        head.len = m_script.Position();
        m_block.CheckFrameHead(&head);
        m_block.CheckValidChn(&head);
        m_block.GetOffset(m_script.Position());
    }
    void BlockSeekTime() {
        const int all = AllChannels();
        RecordItem_t record = Record();
        m_block.SeekTime(all, m_script.Byte() == 0xFF ? nullptr : &record, Seconds());
    }
    void BlockSeekOffs() {
        const int all = AllChannels();
        RecordItem_t record = Record();
        const uint32_t pos = m_script.Position();
        m_block.SeekOffs(all, m_script.Byte() == 0xFF ? nullptr : &record, pos,
                         static_cast<int>(m_script.Below(3)));
    }
    void BlockGetFrame() {
        FrameHead_t head = {};
        int skipped = 0;
        const uint32_t offs = m_script.Position();
        void** const place = PayloadPlace();
        Check(m_block.GetFrame(offs, &head, place, &skipped), head.len, place);
    }
    void BlockReadIFrame() {
        FrameHead_t head = {};
        const uint32_t offs = m_script.Position();
        void** const place = PayloadPlace();
        Check(m_block.ReadIFrame(offs, &head, place), head.len, place);
    }
    using BlockRead = int (CReadBlock::*)(FrameHead_t*, void**);
    int ReadWith(BlockRead read) {
        FrameHead_t head = {};
        void** const place = PayloadPlace();
        const int result = (m_block.*read)(&head, place);
        Check(result, head.len, place);
        return result;
    }
    void BlockReadFrame() { ReadWith(&CReadBlock::ReadFrame); }
    void BlockForward() { ReadWith(&CReadBlock::ForwardReadFrame); }
    void BlockReadAny() { ReadWith(&CReadBlock::ReadBlockFrame); }
    void BlockReadNext() { ReadWith(&CReadBlock::ReadNextIFrame); }
    void BlockReadPrev() { ReadWith(&CReadBlock::ReadPrevIFrame); }
    void BlockIFrameIndex() { m_block.GetIFrameIndex(); }
    void BlockPlay() {
        const BlockRead reads[] = {&CReadBlock::ReadFrame, &CReadBlock::ReadBlockFrame,
                                   &CReadBlock::ReadNextIFrame};
        const BlockRead read = reads[m_script.Below(3)];
        Machine::The().LimitCalls(EitherDisksCalls() * 2);
        size_t frames = 0;
        while (ReadWith(read) == 0 && read != &CReadBlock::ReadNextIFrame) {
            Require(++frames <= m_input.Weight(), "a block delivers more frames than the disk holds");
        }
    }

    void ReleasePayload() { m_payload.Release(); }

    void OperateOnce() {
        static constexpr Operation kOperations[] = {
            &PlaybackRun::DiskStart,        &PlaybackRun::DiskReadFrame,  &PlaybackRun::DiskPlay,
            &PlaybackRun::DiskSeekTime,     &PlaybackRun::DiskReadNext,   &PlaybackRun::DiskSeekPos,
            &PlaybackRun::DiskReadPrev,     &PlaybackRun::DiskStartUnit,  &PlaybackRun::DiskReadUnit,
            &PlaybackRun::DiskStop,         &PlaybackRun::DiskInit,       &PlaybackRun::DiskReopen,
            &PlaybackRun::DiskQuit,         &PlaybackRun::DiskGetInfo,    &PlaybackRun::DiskCheckEncrypt,
            &PlaybackRun::PartStart,        &PlaybackRun::PartReadFrame,  &PlaybackRun::PartSeekTime,
            &PlaybackRun::PartReadNext,     &PlaybackRun::PartSeekPos,    &PlaybackRun::PartReadPrev,
            &PlaybackRun::PartReadUnit,     &PlaybackRun::PartEnd,        &PlaybackRun::PartInit,
            &PlaybackRun::PartQuit,         &PlaybackRun::PartBlocks,     &PlaybackRun::PartWalk,
            &PlaybackRun::PartRecInfo,      &PlaybackRun::PartLock,       &PlaybackRun::BlockOpen,
            &PlaybackRun::BlockReopen,      &PlaybackRun::BlockClose,     &PlaybackRun::BlockInfo,
            &PlaybackRun::BlockIndex,       &PlaybackRun::BlockRefresh,   &PlaybackRun::BlockChecks,
            &PlaybackRun::BlockSeekTime,    &PlaybackRun::BlockSeekOffs,  &PlaybackRun::BlockGetFrame,
            &PlaybackRun::BlockReadIFrame,  &PlaybackRun::BlockReadFrame, &PlaybackRun::BlockForward,
            &PlaybackRun::BlockReadAny,     &PlaybackRun::BlockReadNext,  &PlaybackRun::BlockReadPrev,
            &PlaybackRun::BlockIFrameIndex, &PlaybackRun::BlockPlay,      &PlaybackRun::ReleasePayload};
        (this->*kOperations[m_script.Byte() % std::size(kOperations)])();
    }

    const PartitionInput& m_input;
    Script m_script;
    Limits m_limits;
    uint64_t m_secondLimits = 0;
    std::array<PartAccess_t, 2> m_access;
    uint32_t m_largestBlock = 0; ///< of those sizes that the script chose
    std::array<RecordItem_t, 64> m_records = {};
    size_t m_found = 0;
    std::array<CReadDisk, 2> m_disks;
    std::array<DiskReader, 4> m_readers;
    CReadPart m_part;
    std::array<PartReadHandle_st*, 2> m_partReaders = {};
    CReadBlock m_block;
    Payload m_payload;
};

} // namespace

void RunPartition(const PartitionInput& input, Machine& /*machine*/) {
    PlaybackRun(input).Run();
}

} // namespace fuzzing
