// Calls that need no partition: the list, objects that were never opened, and arithmetic.

#include "conformance/sections.h"

namespace conformance {

namespace {

template <typename Record>
void ShowLayout(const char* name) {
    Note("%s: %u bytes, aligned to %u", name, static_cast<unsigned int>(sizeof(Record)),
         static_cast<unsigned int>(alignof(Record)));
}

/// The records of the interface: laid out alike everywhere, but for those that hold pointers.
void ShowLayouts() {
    ShowLayout<PartAccess_t>("PartAccess_t");
    ShowLayout<block_info_t>("block_info_t");
    ShowLayout<SearchParam_t>("SearchParam_t");
    ShowLayout<RecordItem_t>("RecordItem_t");
    ShowLayout<EventItem_t>("EventItem_t");
    ShowLayout<EventPeriodItem_t>("EventPeriodItem_t");
    ShowLayout<UnitItem_t>("UnitItem_t");
    ShowLayout<UnitTimeItem_t>("UnitTimeItem_t");
    ShowLayout<InputTime_t>("InputTime_t");
    ShowLayout<OutputTime_t>("OutputTime_t");
    ShowLayout<DiskSpaceInfo_t>("DiskSpaceInfo_t");
    ShowLayout<FrameInfo_t>("FrameInfo_t");
    ShowLayout<EncodeParam_t>("EncodeParam_t");
    ShowLayout<FrameHead_t>("FrameHead_t");
    ShowLayout<EventHead_t>("EventHead_t");
}

void CallList() {
    DayList list;
    for (const unsigned int value : {5u, 0u, 0xFFFFFFFFu}) {
        Result(list.AddTail(value) != nullptr ? 1 : 0, "AddTail(%u)", value);
    }
    Result(list.RemoveHead(), "RemoveHead");
    Result(list.m_nCount, "m_nCount");
    Show(list);
    list.RemoveAll();
    Result(list.m_nCount, "m_nCount");
}

void CallClosedSearch() {
    SearchParam_t param = {1, 2, 3, 4};
    RecordList records;
    EventList events;
    UnitList units;
    DayList days;
    auto space = Blank<DiskSpaceInfo_t>();
    unsigned int number = 7;
    unsigned char password[] = "x";
    CSearchDisk disk;
    Result(disk.Init(nullptr), "Init");
    Result(disk.SearchMedia(&param, &records), "SearchMedia");
    Result(disk.SearchUnitMedia(0, &records, &events), "SearchUnitMedia");
    Result(disk.SearchEvent(&param, &events), "SearchEvent");
    Result(disk.MixSearch(&param, &records), "MixSearch");
    Result(disk.MixSearchUnit(0, &records, &events), "MixSearchUnit");
    Result(disk.MixBuildList(&records, &events, &param, &records), "MixBuildList");
    Result(disk.GetDateInfo(&days), "GetDateInfo");
    Result(disk.GetUnitInfo(&units), "GetUnitInfo");
    Result(disk.GetInvalidUnit(&units), "GetInvalidUnit");
    Result(disk.GetSpaceInfo(&space), "GetSpaceInfo");
    Result(disk.GetEncryptInfo(&number), "GetEncryptInfo");
    Result(disk.CheckEncryptInfo(password), "CheckEncryptInfo");
    Result(disk.GetLastRecBlockId(), "GetLastRecBlockId");
    Result(disk.GetBlockRecMap(0, 1), "GetBlockRecMap");
    Result(disk.Quit(), "Quit");
    Show(space);
    Show(number);
}

void CallClosedPart() {
    auto region = Blank<OutputTime_t>();
    auto head = Blank<BlockHead_t>();
    SearchParam_t param = {0, 0, 100, 0};
    unsigned int number = 7;
    unsigned int other = 8;
    RecordList records;
    EventList events;
    UnitList units;
    DayList days;
    auto space = Blank<DiskSpaceInfo_t>();
    CSearchPart part;
    Result(part.Init(nullptr), "Init");
    Result(part.GetBadBlockTab(), "GetBadBlockTab");
    Result(part.IsBadBlock(0), "IsBadBlock");
    Result(part.IsValidBlock(0, 0, 0, &head), "IsValidBlock");
    Result(part.GetPrevValidBlock(0, 0, 3, 1, &number, &head), "GetPrevValidBlock");
    Result(part.GetNextValidBlock(0, 0, 1, 3, &number, &head), "GetNextValidBlock");
    Result(part.GetEncrypt(&number), "GetEncrypt");
    Result(part.CheckEncrypt("x", &number), "CheckEncrypt");
    Result(part.GetEventPara(0, &number, &other), "GetEventPara");
    Result(part.GetRecordExtPara(0, &number), "GetRecordExtPara");
    Result(part.PrintInitInfo(), "PrintInitInfo");
    Result(part.GetLastBlock(), "GetLastBlock");
    Result(part.InitSearch(&param, &region), "InitSearch");
    Result(part.GetSearchStartBlock(5, 1), "GetSearchStartBlock");
    Result(part.BinSearchStartBlock(0, 5, 5, 0), "BinSearchStartBlock");
    Result(part.GetSpace(&space), "GetSpace");
    Result(part.SearchMedia(&param, 0, &records), "SearchMedia");
    Result(part.SearchEvent(&param, &events), "SearchEvent");
    Result(part.SearchUnitMedia(0, 0, &records, &events), "SearchUnitMedia");
    Result(part.GetBadUnitList(&units), "GetBadUnitList");
    Result(part.GetUnitList(&units), "GetUnitList");
    Result(part.GetUnitRecMap(0, 1), "GetUnitRecMap");
    Result(part.GetDateMap(&days), "GetDateMap");
    Result(part.Quit(), "Quit");
    Show(number);
    Show(other);
    Show(region);
    Show(head);
}

void CallClosedPlayback() {
    CReadDisk disk;
    RecordItem_t record = {};
    auto parameters = Blank<EncodeParam_t>();
    auto frame = Blank<FrameInfo_t>();
    unsigned char password[] = "x";
    Payload payload;
    long time = 5;
    unsigned int pos = 6;
    Result(disk.Init(nullptr), "Init");
    Result(disk.StartRead(0, &record) == nullptr ? 0 : 1, "StartRead");
    Result(disk.StartUnitRead(0) == nullptr ? 0 : 1, "StartUnitRead");
    Result(disk.SeekTime(nullptr, &time), "SeekTime");
    Result(disk.SeekPos(nullptr, &pos), "SeekPos");
    payload.Show(disk.ReadFrame(nullptr, &frame, payload.Place()), "ReadFrame", frame);
    payload.Show(disk.ReadNextIFrame(nullptr, &frame, payload.Place()), "ReadNextIFrame", frame);
    payload.Show(disk.ReadPrevIFrame(nullptr, &frame, payload.Place()), "ReadPrevIFrame", frame);
    payload.Show(disk.ReadUnitFrame(nullptr, &frame, payload.Place()), "ReadUnitFrame", frame);
    Result(disk.GetInfo(&parameters, &record, 1), "GetInfo");
    Show(parameters);
    Result(disk.CheckEncryptInfo(password), "CheckEncryptInfo");
    Result(disk.StopRead(nullptr), "StopRead");
    Result(disk.StopUnitRead(nullptr), "StopUnitRead");
    Result(disk.Quit(), "Quit");

    CReadBlock block;
    auto head = Blank<FrameHead_t>();
    auto segment = Blank<RecSegItem_t>();
    Result(block.CloseBlock(), "CloseBlock");
    Result(block.GetBlockInfo(nullptr, nullptr), "GetBlockInfo");
    Result(block.GetRecSegInfo(&record, &segment), "GetRecSegInfo");
    Result(block.GetOffset(0), "GetOffset");
    Result(block.CheckValidChn(&head), "CheckValidChn");
    Result(block.SeekTime(0, &record, 5), "SeekTime");
    Result(block.SeekOffs(0, &record, 5, 1), "SeekOffs");
    Result(block.GetIFrameIndex(), "GetIFrameIndex");
    payload.Show(block.ReadFrame(&head, payload.Place()), "ReadFrame", head);
    payload.Show(block.ReadBlockFrame(&head, payload.Place()), "ReadBlockFrame", head);
    payload.Show(block.ReadIFrame(0, &head, payload.Place()), "ReadIFrame", head);
    payload.Show(block.ReadNextIFrame(&head, payload.Place()), "ReadNextIFrame", head);
    payload.Show(block.ReadPrevIFrame(&head, payload.Place()), "ReadPrevIFrame", head);
}

void CallArithmetic(const std::string& seed) {
    Random random(seed);
    const std::vector<uint32_t> times = {
        0, 1, 2, 100, 101, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
    CSearchPart part;
    for (int i = 0; i < 400; ++i) {
        const uint32_t a0 = random.Of(times);
        const uint32_t a1 = random.Of(times);
        const uint32_t b0 = random.Of(times);
        const uint32_t b1 = random.Of(times);
        unsigned int o0 = 0xA5A5A5A5;
        unsigned int o1 = 0xA5A5A5A5;
        const int found = IntervalIntersection(a0, a1, b0, b1, &o0, &o1);
        Result(found, "IntervalIntersection(%u, %u, %u, %u, %u, %u)", a0, a1, b0, b1, o0, o1);
        auto region = Blank<OutputTime_t>();
        Result(part.GetSearchRegion({a0, a1, b0, b1}, &region), "GetSearchRegion(%u, %u, %u, %u)", a0, a1, b0,
               b1);
        Show(region);
    }
    DayList days;
    for (const uint32_t time : times) {
        Result(part.AddDate2List(&days, time), "AddDate2List(%u)", time);
    }
    Show(days);
    Result(DebugLog("%s %lld", "text", 5LL), "DebugLog");
}

} // namespace

void CallWithoutDisk(const std::string& seed) {
    ShowLayouts();
    CallList();
    CallClosedSearch();
    CallClosedPart();
    CallClosedPlayback();
    CallArithmetic(seed);
}

} // namespace conformance
