// Every search operation, with arguments as callers would give them and with hostile ones, on a partition that
// may hold anything.

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

#include "disk_access.h"
#include "support/findings.h"
#include "support/limits.h"
#include "support/machine.h"
#include "support/partition_input.h"
#include "support/partition_run.h"
#include "support/script.h"

namespace fuzzing {

namespace {

constexpr int kMostOperations = 40;
/// Lists that grow longer are emptied.
constexpr int kLongList = 20000;

class SearchRun {
public:
    explicit SearchRun(const PartitionInput& input)
        : m_input(input), m_script(input.script), m_limits(input, Machine::The().Device(0)),
          m_access(input.Access(0)) {}

    ~SearchRun() {
        m_part.Quit();
        CloseBlocks();
        m_disk.Quit();
    }
    SearchRun(const SearchRun&) = delete;
    SearchRun& operator=(const SearchRun&) = delete;

    void Run() {
        const AllocationWatch watch(m_input.FirstRefused(), m_input.Fault() == FaultKind::NoMemoryForever);
        m_disk.Init(&m_access);
        m_part.Init(&m_access);
        OpenBlocks();
        for (int i = 0; i < kMostOperations && !m_script.Done(); ++i) {
            if (Machine::The().Calls() > kEnoughCalls) {
                break;
            }
            Machine::The().LimitCalls(m_limits.Calls());
            OperateOnce();
            ShortenLists();
        }
        Machine::The().LimitCalls(100);
        Require(watch.Largest() <= m_limits.SearchAllocation(),
                "an operation takes more memory than the disk has bytes");
        RequireSound(m_records);
        RequireSound(m_events);
        RequireSound(m_units);
        RequireSound(m_days);
    }

private:
    using Operation = void (SearchRun::*)();
    using Records = CCommList<RecordItem_t>;
    using Events = CCommList<EventItem_t>;
    using Units = CCommList<UnitItem_t>;
    using Days = CCommList<unsigned int>;

    /// What an operation says that it appended, it appended.
    template <typename List>
    static void Appended(const List& list, int before, int result) {
        if (result < 0 ? list.m_nCount < before : list.m_nCount - before != result) {
            Report("%d elements were announced and %d appended", result, list.m_nCount - before);
        }
    }
    /// The records that searches make, which playback relies on.
    void CheckNewRecords(int before) const {
        const auto* node = m_records.m_pTail;
        for (int i = m_records.m_nCount; i > before; --i, node = node->pPrev) {
            Require(node->data.chn < 32, "a record is of a channel that there is not");
            Require(node->data.flag <= 2, "a record has a flag that there is not");
        }
    }
    template <typename Search>
    void FindRecords(Search search) {
        const int before = m_records.m_nCount;
        Appended(m_records, before, search());
        CheckNewRecords(before);
    }
    template <typename List>
    static void Shorten(List& list) {
        if (list.m_nCount > kLongList) {
            RequireSound(list);
            list.RemoveAll();
        }
    }
    void ShortenLists() {
        Shorten(m_records);
        Shorten(m_events);
        Shorten(m_units);
        Shorten(m_days);
    }

    SearchParam_t Request() {
        SearchParam_t request = {};
        request.alarmMask = m_script.Mask();
        const bool everything = m_script.Flag();
        request.startTime = everything ? 0 : m_script.Time();
        request.endTime = everything ? 0x7FFFFFFF : m_script.Time();
        request.chn = m_script.Channel();
        return request;
    }
    uint32_t Block() { return m_script.Number(7); }
    long Seconds() { return static_cast<int32_t>(m_script.Time()); }
    long long SignedMask() { return static_cast<long long>(m_script.Mask()); }
    uint32_t Code() { return m_script.Number(6); }
    uint32_t SkippedChannels() { return m_script.Flag() ? 0 : m_script.Number(4); }
    Events* EventsOrNone() { return m_script.Flag() ? &m_events : nullptr; }

    BlockHead_t MadeUpHead() {
        BlockHead_t head = {};
        head.ValidFlag = m_script.Flag() ? BLOCK_MAGIC : m_script.Word();
        head.RecTime = m_script.Time();
        head.RecSeq = m_script.Number(8);
        return head;
    }
    BlockTail_t MadeUpTail() {
        BlockTail_t tail = {};
        tail.RecSeq = m_script.Number(8);
        tail.StartTime = m_script.Time();
        tail.EndTime = m_script.Time();
        return tail;
    }
    UnitTimeItem_t MadeUpUnit() {
        const uint32_t unit = Block();
        const uint32_t start = m_script.Time();
        return {unit, start, m_script.Time()};
    }
    /// A right password, a wrong one, one as long as the field, and none.
    const char* Password() {
        static const std::string longest(200, 'x');
        const char* const passwords[] = {"k", "", "guess", longest.c_str()};
        return passwords[m_script.Below(4)];
    }

    // The disk.

    void DiskInit() {
        const bool open = m_disk.Init(nullptr) == 0;
        Require(!open, "a disk is opened without a description");
        PartAccess_t elsewhere = m_access;
        if (m_script.Flag()) {
            std::fill(std::begin(elsewhere.PartName), std::end(elsewhere.PartName), 'n'); // not terminated
        }
        m_disk.Init(&elsewhere);
    }
    void DiskReopen() {
        m_disk.Quit();
        m_disk.Init(&m_access);
    }
    void DiskQuit() { m_disk.Quit(); }
    void DiskSearchMedia() {
        SearchParam_t request = Request();
        FindRecords([&] { return m_disk.SearchMedia(&request, &m_records); });
    }
    void DiskSearchUnitMedia() {
        const uint32_t unit = Block();
        Events* const events = EventsOrNone();
        FindRecords([&] { return m_disk.SearchUnitMedia(unit, &m_records, events); });
    }
    void DiskSearchEvent() {
        SearchParam_t request = Request();
        const int before = m_events.m_nCount;
        Appended(m_events, before, m_disk.SearchEvent(&request, &m_events));
    }
    void DiskMixSearch() {
        SearchParam_t request = Request();
        FindRecords([&] { return m_disk.MixSearch(&request, &m_records); });
    }
    void DiskMixSearchUnit() {
        const uint32_t unit = Block();
        Events* const events = EventsOrNone();
        FindRecords([&] { return m_disk.MixSearchUnit(unit, &m_records, events); });
    }
    /// Of made-up records and events, as a caller might have edited them.
    void DiskMixBuildList() {
        Records records;
        Events events;
        for (uint32_t count = m_script.Below(8); count > 0; --count) {
            RecordItem_t record = {};
            record.recId = Block() << 16 | m_script.Number(4) << 9 | m_script.Number(3);
            record.chn = m_script.Number(32);
            record.startTime = m_script.Time();
            record.endTime = m_script.Time();
            record.flag = m_script.Below(3);
            records.AddTail(record);
        }
        for (uint32_t count = m_script.Below(8); count > 0; --count) {
            events.AddTail({m_script.Mask(), Block() << 16 | m_script.Number(3), m_script.Time()});
        }
        SearchParam_t request = Request();
        Records pieces;
        const bool open = m_disk.GetEncryptInfo(&m_out) == 0;
        Appended(pieces, 0, m_disk.MixBuildList(&records, &events, &request, &pieces));
        Require(!open || (records.m_nCount == 0 && events.m_nCount == 0), "a mixed list leaves its sources");
        Require(m_disk.MixBuildList(&records, nullptr, &request, &pieces) == 0,
                "a mixed list without events");
        RequireSound(pieces);
    }
    /// The found records again, with the found events.
    void DiskMixFound() {
        SearchParam_t request = Request();
        Records pieces;
        Appended(pieces, 0, m_disk.MixBuildList(&m_records, &m_events, &request, &pieces));
        RequireSound(pieces);
    }
    void DiskGetDateInfo() {
        const int days = m_disk.GetDateInfo(&m_days);
        Require(days <= 0 || days == m_days.m_nCount, "a date map counts other days than it lists");
    }
    void DiskGetUnitInfo() {
        const int before = m_units.m_nCount;
        Appended(m_units, before, m_disk.GetUnitInfo(&m_units));
    }
    void DiskGetInvalidUnit() {
        const int before = m_units.m_nCount;
        Appended(m_units, before, m_disk.GetInvalidUnit(&m_units));
    }
    void DiskGetSpaceInfo() {
        DiskSpaceInfo_t space = {};
        m_disk.GetSpaceInfo(&space);
    }
    void DiskCheckEncrypt() {
        std::string password = Password();
        password.push_back('\0');
        m_disk.GetEncryptInfo(&m_out);
        m_disk.CheckEncryptInfo(m_script.Flag() ? nullptr
                                                : reinterpret_cast<unsigned char*>(password.data()));
    }
    void DiskBlocks() {
        m_disk.GetLastRecBlockId();
        const uint32_t unit = Block();
        m_disk.GetBlockRecMap(unit, static_cast<int>(m_script.Number(3)));
        unsigned int start = 0;
        unsigned int end = 0;
        IntervalIntersection(m_script.Time(), m_script.Time(), m_script.Time(), m_script.Time(), &start,
                             &end);
    }

    // The partition.

    void PartInit() { m_part.Init(m_script.Flag() ? &m_access : nullptr); }
    void PartQuit() { m_part.Quit(); }
    void PartBadBlocks() {
        m_part.GetBadBlockTab();
        m_part.IsBadBlock(Block());
        BlockHead_t head = MadeUpHead();
        const uint32_t block = Block();
        m_part.IsValidBlock(block, m_script.Below(5), m_script.Number(8), &head);
    }
    void PartWalkBack() {
        BlockHead_t head = MadeUpHead();
        const uint32_t from = Block();
        m_part.GetPrevValidBlock(m_script.Below(5), m_script.Number(8), from, Block(), &m_out, &head);
    }
    void PartWalkForward() {
        BlockHead_t head = MadeUpHead();
        const uint32_t from = Block();
        m_part.GetNextValidBlock(m_script.Below(5), m_script.Number(8), from, Block(), &m_out, &head);
    }
    void PartLock() {
        unsigned int map = 0;
        m_part.GetEncrypt(&m_out);
        m_part.CheckEncrypt(m_script.Flag() ? nullptr : Password(), &map);
        m_part.PrintInitInfo();
    }
    void PartParameters() {
        unsigned int pre = 0;
        unsigned int delay = 0;
        const uint32_t id = Block() << 16 | m_script.Number(64);
        m_part.GetEventPara(id, &pre, &delay);
        m_part.GetRecordExtPara(id, &pre);
    }
    void PartEnds() {
        m_part.GetLastBlock();
        InputTime_t in = {};
        in.startTime = m_script.Time();
        in.endTime = m_script.Time();
        in.oldestTime = m_script.Time();
        in.newestTime = m_script.Time();
        m_part.GetSearchRegion(in, &m_region);
    }
    void PartInitSearch() {
        SearchParam_t request = Request();
        m_part.InitSearch(m_script.Below(8) == 0 ? nullptr : &request, &m_region);
    }
    void PartStartBlock() {
        const uint32_t time = m_script.Time();
        m_part.GetSearchStartBlock(time, Code());
    }
    void PartHalve() {
        const uint32_t lo = Block();
        const uint32_t hi = Block();
        m_part.BinSearchStartBlock(lo, hi, m_script.Time(), m_script.Number(8));
    }
    void PartSpace() {
        DiskSpaceInfo_t space = {};
        m_part.GetSpace(&space);
    }
    void PartSearchMedia() {
        SearchParam_t request = Request();
        const uint32_t skipped = SkippedChannels();
        FindRecords([&] { return m_part.SearchMedia(&request, skipped, &m_records); });
    }
    void PartSearchEvent() {
        SearchParam_t request = Request();
        const int before = m_events.m_nCount;
        Appended(m_events, before, m_part.SearchEvent(&request, &m_events));
    }
    void PartNormalMedia() {
        const uint32_t start = m_script.Time();
        const uint32_t end = m_script.Time();
        const uint32_t chn = m_script.Channel();
        const uint32_t skipped = SkippedChannels();
        const long long mask = SignedMask();
        const uint32_t code = Code();
        FindRecords(
            [&] { return m_part.SearchNormalMedia(start, end, chn, skipped, mask, code, &m_records); });
    }
    void PartNormalEvent() {
        const uint32_t start = m_script.Time();
        const uint32_t end = m_script.Time();
        const int before = m_events.m_nCount;
        Appended(m_events, before, m_part.SearchNormalEvent(start, end, SignedMask(), Code(), &m_events));
    }
    void PartUnitMedia() {
        const uint32_t unit = Block();
        const uint32_t skipped = SkippedChannels();
        Events* const events = EventsOrNone();
        FindRecords([&] { return m_part.SearchUnitMedia(unit, skipped, &m_records, events); });
    }
    void PartAddUnit() {
        BlockHead_t head = MadeUpHead();
        const int before = m_units.m_nCount;
        Appended(m_units, before, m_part.AddUnitToList(Block(), &head, &m_units, 0));
    }
    void PartBadUnits() {
        const int before = m_units.m_nCount;
        Appended(m_units, before, m_part.GetBadUnitList(&m_units));
    }
    void PartUnits() {
        const uint32_t start = m_script.Time();
        const int before = m_units.m_nCount;
        Appended(m_units, before, m_part.SearchUnitList(start, m_script.Time(), Code(), &m_units));
        const int between = m_units.m_nCount;
        Appended(m_units, between, m_part.GetUnitList(&m_units));
        m_part.GetUnitRecMap(Block(), static_cast<int>(m_script.Number(3)));
    }
    void PartDates() {
        m_part.AddDate2List(&m_days, m_script.Time());
        BlockHead_t head = MadeUpHead();
        BlockTail_t tail = MadeUpTail();
        unsigned int day = m_script.Number(32);
        const int before = m_days.m_nCount;
        Appended(m_days, before, m_part.AddDateToList(&head, &tail, &m_days, 0, &day));
    }
    void PartHalveDates() {
        UnitTimeItem_t a = MadeUpUnit();
        UnitTimeItem_t b = MadeUpUnit();
        Require(m_part.BinGetDataMap(&a, &b, &m_days) == m_days.m_nCount, "days are miscounted");
    }
    void PartDateMap() {
        const uint32_t start = m_script.Time();
        m_part.SearchDataMap(start, m_script.Time(), Code(), &m_days);
        m_part.GetDateMap(&m_days);
    }

    // Blocks.

    void OpenBlocks() {
        m_dev = dev_open(&m_access);
        m_blocks =
            std::make_unique<CSearchBlock>(m_dev, m_input.Word(offsetof(PartHead_t, BlkSize)),
                                           BLOCK_BASE_OFFSET, m_input.Word(offsetof(PartHead_t, FmtVersion)));
    }
    void CloseBlocks() {
        m_blocks.reset();
        dev_close(m_dev);
        m_dev = nullptr;
    }
    /// With a geometry of the caller's own.
    void BlockReopen() {
        m_blocks.reset();
        const uint32_t sizes[] = {m_input.head.blockSize, m_input.head.blockSize, m_script.Position()};
        const uint32_t base = m_script.Below(4) == 0 ? m_script.Position() : BLOCK_BASE_OFFSET;
        dev_op_st* const dev = m_script.Below(16) == 0 ? nullptr : m_dev;
        m_blocks = std::make_unique<CSearchBlock>(dev, sizes[m_script.Below(3)], base, m_script.Below(3));
    }
    void BlockInfo() {
        BlockHead_t head = {};
        BlockTail_t tail = {};
        BlkExtHead_t extHead = {};
        BlockTailEx_t tailEx = {};
        const uint8_t which = m_script.Byte();
        m_blocks->GetBlockInfo(Block(), (which & 1) != 0 ? &head : nullptr,
                               (which & 2) != 0 ? &tail : nullptr, (which & 4) != 0 ? &extHead : nullptr,
                               (which & 8) != 0 ? &tailEx : nullptr);
    }
    void BlockReadIndex() {
        const uint32_t block = Block();
        const int result = m_blocks->ReadBlockIndexList(block, m_script.Number(8));
        Require(result >= -1 && result <= 2, "an index is of no known state");
    }
    void BlockPrintIndex() { m_blocks->PrintIndex(); }
    void BlockUnitRecMap() {
        const int channels = m_blocks->GetUnitRecMap(Block());
        Require(channels >= -1 && channels <= 32, "a block has more channels than there are");
    }
    void BlockRebuild() {
        const uint32_t block = Block();
        const uint32_t flags = m_script.Number(8);
        m_blocks->RebuildRecSegInfo(block, flags, m_script.Number(4));
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
        m_blocks->RefreshRecSegInfo(m_script.Below(8) == 0 ? nullptr : &info, m_script.Position(),
                                    m_script.Below(4) == 0 ? nullptr : &event);
    }
    void BlockCheckAlarm() {
        const long start = Seconds();
        const long end = Seconds();
        m_blocks->CheckAlarmContition(start, end, SignedMask());
    }
    void BlockEvents() {
        const uint32_t block = Block();
        const long start = Seconds();
        const long end = Seconds();
        const int before = m_events.m_nCount;
        Appended(m_events, before, m_blocks->GetEventList(block, start, end, SignedMask(), &m_events));
        m_blocks->GetEventList(block, start, end, SignedMask(), nullptr);
    }
    void BlockMedia() {
        const uint32_t block = Block();
        const long start = Seconds();
        const long end = Seconds();
        const uint32_t chn = m_script.Channel();
        const uint32_t skipped = SkippedChannels();
        const long long mask = SignedMask();
        Events* const events = EventsOrNone();
        FindRecords([&] {
            return m_blocks->GetMediaList(block, start, end, chn, skipped, mask, &m_records, events);
        });
    }
    void BlockSingleChannel() {
        const uint32_t block = Block();
        const long start = Seconds();
        const long end = Seconds();
        const uint32_t chn = m_script.Number(33);
        const uint32_t skipped = SkippedChannels();
        const long long mask = SignedMask();
        const uint32_t mode = m_script.Below(3);
        Events* const events = EventsOrNone();
        FindRecords([&] {
            return m_blocks->GetSigleChnMediaList(block, start, end, chn, skipped, mask, mode, &m_records,
                                                  events);
        });
    }
    void BlockAllChannels() {
        const uint32_t block = Block();
        const long start = Seconds();
        const long end = Seconds();
        const uint32_t skipped = SkippedChannels();
        const long long mask = SignedMask();
        const uint32_t mode = m_script.Below(3);
        Events* const events = EventsOrNone();
        FindRecords([&] {
            return m_blocks->GetAllChnMediaList(block, start, end, skipped, mask, mode, &m_records, events);
        });
    }
    void BlockNoIndex() {
        const uint32_t block = Block();
        const uint32_t chn = m_script.Channel();
        const uint32_t skipped = SkippedChannels();
        FindRecords([&] { return m_blocks->GetNoIndexMediaList(block, chn, skipped, &m_records); });
    }

    void OperateOnce() {
        static constexpr Operation kOperations[] = {
            &SearchRun::DiskSearchMedia,   &SearchRun::DiskSearchEvent,
            &SearchRun::DiskMixSearch,     &SearchRun::DiskSearchUnitMedia,
            &SearchRun::DiskMixSearchUnit, &SearchRun::DiskMixBuildList,
            &SearchRun::DiskMixFound,      &SearchRun::DiskGetDateInfo,
            &SearchRun::DiskGetUnitInfo,   &SearchRun::DiskGetInvalidUnit,
            &SearchRun::DiskGetSpaceInfo,  &SearchRun::DiskCheckEncrypt,
            &SearchRun::DiskBlocks,        &SearchRun::DiskInit,
            &SearchRun::DiskReopen,        &SearchRun::DiskQuit,
            &SearchRun::PartInit,          &SearchRun::PartQuit,
            &SearchRun::PartBadBlocks,     &SearchRun::PartWalkBack,
            &SearchRun::PartWalkForward,   &SearchRun::PartLock,
            &SearchRun::PartParameters,    &SearchRun::PartEnds,
            &SearchRun::PartInitSearch,    &SearchRun::PartStartBlock,
            &SearchRun::PartHalve,         &SearchRun::PartSpace,
            &SearchRun::PartSearchMedia,   &SearchRun::PartSearchEvent,
            &SearchRun::PartNormalMedia,   &SearchRun::PartNormalEvent,
            &SearchRun::PartUnitMedia,     &SearchRun::PartAddUnit,
            &SearchRun::PartBadUnits,      &SearchRun::PartUnits,
            &SearchRun::PartDates,         &SearchRun::PartHalveDates,
            &SearchRun::PartDateMap,       &SearchRun::BlockReopen,
            &SearchRun::BlockInfo,         &SearchRun::BlockReadIndex,
            &SearchRun::BlockPrintIndex,   &SearchRun::BlockUnitRecMap,
            &SearchRun::BlockRebuild,      &SearchRun::BlockRefresh,
            &SearchRun::BlockCheckAlarm,   &SearchRun::BlockEvents,
            &SearchRun::BlockMedia,        &SearchRun::BlockSingleChannel,
            &SearchRun::BlockAllChannels,  &SearchRun::BlockNoIndex};
        (this->*kOperations[m_script.Byte() % std::size(kOperations)])();
    }

    const PartitionInput& m_input;
    Script m_script;
    Limits m_limits;
    PartAccess_t m_access;
    CSearchDisk m_disk;
    CSearchPart m_part;
    dev_op_st* m_dev = nullptr;
    std::unique_ptr<CSearchBlock> m_blocks;
    Records m_records;
    Events m_events;
    Units m_units;
    Days m_days;
    OutputTime_t m_region = {};
    unsigned int m_out = 0;
};

} // namespace

void RunPartition(const PartitionInput& input, Machine& /*machine*/) {
    SearchRun(input).Run();
}

} // namespace fuzzing
