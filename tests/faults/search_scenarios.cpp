// Searches: the disk object, the partition object and the block object.

#include <cstring>

#include "faults/scenario.h"

namespace test_support {

namespace {

constexpr uint32_t kAllChannels = 0xFFFFFFFF;
constexpr int kSearchRing = static_cast<int>(kSearchBlocks);
constexpr SearchParam_t kEverything = {0, 0, 0x7FFFFFFF, kAllChannels};

/// Part of the recording, from inside block 2 to inside block 0.
SearchParam_t Stretch(uint64_t alarmMask, uint32_t chn) {
    return {alarmMask, SearchStart(3) + 5000, SearchStart(7) + 20000, chn};
}

void SearchMedia(CSearchDisk& disk, Transcript& transcript, SearchParam_t param) {
    transcript.Appended<RecordItem_t>("SearchMedia",
                                      [&](auto* list) { return disk.SearchMedia(&param, list); });
}

void MixSearch(CSearchDisk& disk, Transcript& transcript, SearchParam_t param) {
    transcript.Appended<RecordItem_t>("MixSearch", [&](auto* list) { return disk.MixSearch(&param, list); });
}

/// A search that appends records, which it counts, and events, which it does not.
template <typename Search>
void RecordsAndEvents(const char* call, Transcript& transcript, Search search) {
    CCommList<EventItem_t> events;
    transcript.Appended<RecordItem_t>(call, [&](auto* list) { return search(list, &events); });
    transcript.Take("events", events);
}

void Lock(CSearchDisk& disk, Transcript& transcript) {
    unsigned int mode = 0xEEEEEEEE;
    const int result = transcript.Result("GetEncryptInfo", disk.GetEncryptInfo(&mode), -1, 0);
    transcript.Require(result == 0 || mode == 0xEEEEEEEE, "GetEncryptInfo writes when it succeeds");
    transcript.Add("mode %x\n", mode);
    unsigned char wrong[] = "guess";
    unsigned char right[] = "secret";
    transcript.Result("CheckEncryptInfo", disk.CheckEncryptInfo(wrong), -1, -1);
    SearchMedia(disk, transcript, {0, SearchStart(7), 0x7FFFFFFF, kAllChannels});
    transcript.Result("CheckEncryptInfo", disk.CheckEncryptInfo(right), -1, 0);
}

void Inventory(CSearchDisk& disk, Transcript& transcript) {
    DiskSpaceInfo_t space = {1, 1};
    const int result = transcript.Result("GetSpaceInfo", disk.GetSpaceInfo(&space), -1, 0);
    transcript.Require(result == 0 || (space.totalSize == 1 && space.freeSize == 1),
                       "GetSpaceInfo writes when it succeeds");
    transcript.Require(result != 0 || space.totalSize == uint64_t{kMediaBlockSize} * kSearchBlocks,
                       "the bytes of the ring");
    transcript.Add("%llu %llu\n", static_cast<unsigned long long>(space.totalSize),
                   static_cast<unsigned long long>(space.freeSize));
    transcript.Result("GetLastRecBlockId", disk.GetLastRecBlockId(), -1, kSearchRing - 1);
    transcript.Result("GetBlockRecMap", disk.GetBlockRecMap(2, 0), -1, 32);
    transcript.Result("GetBlockRecMap", disk.GetBlockRecMap(2, 1), -1, kSearchRing);
}

void Walks(CSearchPart& part, Transcript& transcript) {
    BlockHead_t head = {};
    unsigned int found = 99;
    transcript.Result("GetBadBlockTab", part.GetBadBlockTab(), -1, 0);
    transcript.Result("IsBadBlock", part.IsBadBlock(3), 0, 0);
    transcript.Result("IsBadBlock", part.IsBadBlock(4), 0, 1);
    transcript.Result("IsValidBlock", part.IsValidBlock(4, 0, 0, &head), 0, 1);
    int result =
        transcript.Result("GetNextValidBlock", part.GetNextValidBlock(0, 0, 5, 1, &found, &head), -1, 0);
    transcript.Require((result == 0) == (found != 99), "a block when one was found");
    transcript.Add("found %u number %u\n", found, head.RecSeq);
    found = 99;
    head = {};
    result = transcript.Result("GetPrevValidBlock", part.GetPrevValidBlock(0, 0, 3, 0, &found, &head), -1, 0);
    transcript.Require((result == 0) == (found != 99), "a block when one was found");
    transcript.Add("found %u number %u\n", found, head.RecSeq);
}

void Regions(CSearchPart& part, Transcript& transcript) {
    SearchParam_t param = Stretch(0, 0);
    OutputTime_t region = {};
    const int code = transcript.Result("InitSearch", part.InitSearch(&param, &region), -1, 4);
    transcript.Add("%u-%u\n", region.startTime, region.endTime);
    if (code >= 0) {
        transcript.Result("GetSearchStartBlock",
                          part.GetSearchStartBlock(region.startTime, static_cast<unsigned int>(code)), 0,
                          kSearchRing - 1);
        transcript.Result("BinSearchStartBlock", part.BinSearchStartBlock(2, 5, SearchStart(5) + 1, 0), 2, 5);
    }
}

void Parameters(CSearchPart& part, Transcript& transcript) {
    unsigned int before = 99;
    unsigned int behind = 99;
    transcript.Result("GetEventPara", part.GetEventPara(4u << 16, &before, &behind), 0, 0);
    transcript.Require((before == 10 && behind == 30) || (before == 0 && behind == 0), "an event's times");
    unsigned int channels = 99;
    transcript.Result("GetRecordExtPara", part.GetRecordExtPara(4u << 16, &channels), 0, 0);
    transcript.Require(channels == 1 || channels == kAllChannels, "a block's channels");
    transcript.Add("%u %u %x\n", before, behind, channels);
    unsigned int locked = 99;
    transcript.Result("CheckEncrypt", part.CheckEncrypt("guess", &locked), -1, -1);
    transcript.Add("%u\n", locked);
}

void PartSearches(CSearchPart& part, Transcript& transcript) {
    SearchParam_t param = Stretch(5, 0);
    RecordsAndEvents("SearchUnitMedia", transcript, [&](auto* records, auto* events) {
        return part.SearchUnitMedia(2, 1, records, events);
    });
    transcript.Appended<EventItem_t>("SearchEvent",
                                     [&](auto* list) { return part.SearchEvent(&param, list); });
    transcript.Appended<RecordItem_t>("SearchMedia",
                                      [&](auto* list) { return part.SearchMedia(&param, 2, list); });
}

void PartLists(CSearchPart& part, Transcript& transcript) {
    transcript.Appended<UnitItem_t>("GetBadUnitList", [&](auto* list) { return part.GetBadUnitList(list); });
    transcript.Appended<UnitItem_t>("SearchUnitList",
                                    [&](auto* list) { return part.SearchUnitList(0, 0, 1, list); });
    transcript.Appended<unsigned int>("SearchDataMap",
                                      [&](auto* list) { return part.SearchDataMap(0, 0, 1, list); });
}

/// Work for a block object, on a device of its own.
class BlockScenario : public Scenario {
public:
    using WorkFunction = void (*)(CSearchBlock&, Transcript&);
    BlockScenario(Medium medium, WorkFunction work) : m_medium(medium), m_work(work) {}

    bool Open(PartAccess_t& access) override {
        m_dev = dev_open(&access);
        m_blocks.emplace(m_dev, kMediaBlockSize, BLOCK_BASE_OFFSET, LayoutOf(m_medium));
        return m_dev != nullptr;
    }
    void Work(Transcript& transcript) override { m_work(*m_blocks, transcript); }
    void Close() override {
        m_blocks.reset();
        dev_close(m_dev);
    }

private:
    Medium m_medium;
    WorkFunction m_work;
    dev_op_st* m_dev = nullptr;
    std::optional<CSearchBlock> m_blocks;
};

ScenarioEntry WithBlock(const char* name, Medium medium, BlockScenario::WorkFunction work,
                        Recovery recovery = Recovery::SameObject) {
    return {name, medium, [=] { return std::make_unique<BlockScenario>(medium, work); }, recovery};
}

void BlockInfo(CSearchBlock& blocks, Transcript& transcript) {
    BlockHead_t head = {};
    BlockTail_t tail = {};
    BlkExtHead_t extHead = {};
    BlockTailEx_t tailEx = {};
    transcript.Result("GetBlockInfo", blocks.GetBlockInfo(2, &head, &tail, &extHead, &tailEx), -1, 0);
    transcript.Add("%u %u %u %u\n", head.RecSeq, tail.RecSeq, extHead.ExtPara, tailEx.RecSeq);
    for (const uint32_t sequence : {head.RecSeq, tail.RecSeq, tailEx.RecSeq}) {
        transcript.Require(sequence == 0 || sequence == 3, "a structure whole or untouched");
    }
    transcript.Result("GetUnitRecMap", blocks.GetUnitRecMap(2), -1, 2);
}

void BlockLists(CSearchBlock& blocks, Transcript& transcript) {
    const long start = SearchStart(5);
    const long end = start + 30000;
    transcript.Result("ReadBlockIndexList", blocks.ReadBlockIndexList(4, 7), -1, 1);
    transcript.Result("PrintIndex", blocks.PrintIndex(), -1, 0);
    transcript.Appended<EventItem_t>("GetEventList",
                                     [&](auto* list) { return blocks.GetEventList(4, start, end, 5, list); });
    RecordsAndEvents("GetMediaList", transcript, [&](auto* records, auto* events) {
        return blocks.GetMediaList(4, start, end, kAllChannels, 0, 0, records, events);
    });
    RecordsAndEvents("GetMediaList", transcript, [&](auto* records, auto* events) {
        return blocks.GetMediaList(4, start, end, 1, 0, 1, records, events);
    });
    transcript.Appended<RecordItem_t>("GetMediaList", [&](auto* list) {
        return blocks.GetMediaList(1, start, end, kAllChannels, 1, 0, list, nullptr);
    });
}

void Rebuild(CSearchBlock& blocks, Transcript& transcript, unsigned int mode) {
    transcript.Result("RebuildRecSegInfo", blocks.RebuildRecSegInfo(2, 7, mode), -1, 0);
    RecordsAndEvents("GetAllChnMediaList", transcript, [&](auto* records, auto* events) {
        return blocks.GetAllChnMediaList(2, 0, 2000, 0, 0, 1, records, events);
    });
}

} // namespace

std::vector<ScenarioEntry> SearchScenarios() {
    using Disk = CSearchDisk;
    using Part = CSearchPart;
    return {
        With<Disk>("SearchMedia", Medium::Search,
                   [](Disk& disk, Transcript& t) { SearchMedia(disk, t, kEverything); }),
        With<Disk>("SearchMediaOfOneChannel", Medium::ExtendedSearch,
                   [](Disk& disk, Transcript& t) { SearchMedia(disk, t, Stretch(0, 1)); }),
        With<Disk>("SearchMediaBehindTheLast", Medium::Search,
                   [](Disk& disk, Transcript& t) {
                       SearchMedia(disk, t, {0, SearchStart(9), 0x7FFFFFFF, kAllChannels});
                   }),
        With<Disk>("SearchMediaAroundAlarms", Medium::Search,
                   [](Disk& disk, Transcript& t) { SearchMedia(disk, t, Stretch(1, kAllChannels)); }),
        With<Disk>("SearchEvent", Medium::Search,
                   [](Disk& disk, Transcript& t) {
                       SearchParam_t param = Stretch(5, kAllChannels);
                       t.Appended<EventItem_t>("SearchEvent",
                                               [&](auto* list) { return disk.SearchEvent(&param, list); });
                   }),
        With<Disk>("SearchUnitMedia", Medium::ExtendedSearch,
                   [](Disk& disk, Transcript& t) {
                       for (const uint32_t unit : {4u, 1u}) {
                           RecordsAndEvents("SearchUnitMedia", t, [&](auto* records, auto* events) {
                               return disk.SearchUnitMedia(unit, records, events);
                           });
                       }
                   }),
        With<Disk>("MixSearch", Medium::ExtendedSearch,
                   [](Disk& disk, Transcript& t) { MixSearch(disk, t, Stretch(0, kAllChannels)); }),
        With<Disk>("MixSearchOfAlarms", Medium::Search,
                   [](Disk& disk, Transcript& t) { MixSearch(disk, t, Stretch(4, 0)); }),
        With<Disk>("MixSearchUnit", Medium::ExtendedSearch,
                   [](Disk& disk, Transcript& t) {
                       RecordsAndEvents("MixSearchUnit", t, [&](auto* records, auto* events) {
                           return disk.MixSearchUnit(4, records, events);
                       });
                   }),
        With<Disk>("GetUnitInfo", Medium::Search,
                   [](Disk& disk, Transcript& t) {
                       t.Appended<UnitItem_t>("GetUnitInfo",
                                              [&](auto* list) { return disk.GetUnitInfo(list); });
                   }),
        With<Disk>("GetInvalidUnit", Medium::Search,
                   [](Disk& disk, Transcript& t) {
                       t.Appended<UnitItem_t>("GetInvalidUnit",
                                              [&](auto* list) { return disk.GetInvalidUnit(list); });
                   }),
        With<Disk>("GetDateInfo", Medium::Search,
                   [](Disk& disk, Transcript& t) {
                       t.Appended<unsigned int>("GetDateInfo",
                                                [&](auto* list) { return disk.GetDateInfo(list); });
                   }),
        With<Disk>("Inventory", Medium::Search, Inventory),
        With<Disk>("SearchLock", Medium::Search, Lock),
        With<Part>("SearchWalks", Medium::Search, Walks),
        With<Part>("SearchRegions", Medium::Search, Regions),
        With<Part>("SearchParameters", Medium::ExtendedSearch, Parameters),
        With<Part>("PartSearches", Medium::ExtendedSearch, PartSearches),
        With<Part>("PartLists", Medium::ExtendedSearch, PartLists),
        WithBlock("SearchBlockInfo", Medium::Search, BlockInfo),
        WithBlock("SearchBlockInfoExtended", Medium::ExtendedSearch, BlockInfo),
        WithBlock("SearchBlockLists", Medium::Search, BlockLists),
        WithBlock("SearchBlockListsExtended", Medium::ExtendedSearch, BlockLists),
        WithBlock(
            "SearchRebuild", Medium::Play, [](CSearchBlock& blocks, Transcript& t) { Rebuild(blocks, t, 0); },
            Recovery::Reopened),
        WithBlock(
            "SearchRebuildResumed", Medium::ExtendedPlay,
            [](CSearchBlock& blocks, Transcript& t) {
                Rebuild(blocks, t, 0);
                Rebuild(blocks, t, 2);
            },
            Recovery::Reopened),
    };
}

} // namespace test_support
