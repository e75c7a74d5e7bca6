// CSearchPart: every member.

#include "conformance/choices.h"
#include "conformance/sections.h"

namespace conformance {

namespace {

class SearchPartCalls {
public:
    SearchPartCalls(const Disk& disk, const std::string& seed) : m_disk(disk), m_random(seed) {}

    void Call() {
        PartAccess_t access = m_disk.access;
        access.DiskType = access.DiskType == 52 ? 1 : 19;
        Result(m_part.Init(&access), "Init of another type");
        access.DiskType = m_disk.access.DiskType;
        Result(m_part.Init(&access), "Init");
        Result(m_part.GetBadBlockTab(), "GetBadBlockTab");
        Result(m_part.PrintInitInfo(), "PrintInitInfo");
        CallBlocks();
        CallLock();
        CallRing();
        CallWalks();
        CallInventory();
        Result(m_part.Quit(), "Quit");
    }

private:
    void CallBlocks() {
        for (const uint32_t block : m_disk.blocks) {
            auto head = Blank<BlockHead_t>();
            head.ValidFlag = BLOCK_MAGIC;
            Result(m_part.IsBadBlock(block), "IsBadBlock(%u)", block);
            Result(m_part.IsValidBlock(block, 0, 0, &head), "IsValidBlock(%u)", block);
            Show(head);
            unsigned int pre = 0xA5A5A5A5;
            unsigned int delay = 0xA5A5A5A5;
            unsigned int map = 0xA5A5A5A5;
            const uint32_t id = block << 16 | m_random.Below(0x10000);
            Result(m_part.GetEventPara(id, &pre, &delay), "GetEventPara(%08x)", id);
            Note("  %u %u", pre, delay);
            Result(m_part.GetRecordExtPara(id, &map), "GetRecordExtPara(%08x)", id);
            Note("  %08x", map);
            for (const int what : {0, 1, 2}) {
                Result(m_part.GetUnitRecMap(block, what), "GetUnitRecMap(%u, %d)", block, what);
            }
        }
        for (int i = 0; i < 30; ++i) {
            const uint32_t from = m_disk.Block(m_random);
            // A walk as long as a large ring is made once in a while.
            const uint32_t limit = m_disk.small ? m_disk.Block(m_random) : from;
            auto head = Blank<BlockHead_t>();
            unsigned int found = 0xA5A5A5A5;
            Result(m_part.GetPrevValidBlock(0, 0, from, limit, &found, &head), "GetPrevValidBlock(%u, %u)",
                   from, limit);
            Show(found);
            Result(m_part.GetNextValidBlock(0, 0, from, limit, &found, &head), "GetNextValidBlock(%u, %u)",
                   from, limit);
            Show(found);
        }
    }

    void CallLock() {
        unsigned int mode = 0xA5A5A5A5;
        Result(m_part.GetEncrypt(&mode), "GetEncrypt");
        Show(mode);
        for (const std::string& password : {std::string("secret"), std::string("wrong"), std::string(),
                                            std::string(127, 'P'), std::string(128, 'P')}) {
            unsigned int map = 0xA5A5A5A5;
            Result(m_part.CheckEncrypt(password.c_str(), &map), "CheckEncrypt(%s)", password.c_str());
            Show(map);
        }
    }

    void CallRing() {
        Result(m_part.GetLastBlock(), "GetLastBlock");
        for (int i = 0; i < 40; ++i) {
            SearchParam_t param = {0, m_disk.Time(m_random), m_disk.Time(m_random), kAll};
            auto region = Blank<OutputTime_t>();
            const auto code = static_cast<unsigned int>(Result(
                m_part.InitSearch(&param, &region), "InitSearch(%u, %u)", param.startTime, param.endTime));
            Show(region);
            const uint32_t time = m_disk.Time(m_random);
            Result(m_part.GetSearchStartBlock(time, code), "GetSearchStartBlock(%u, %d)", time,
                   static_cast<int>(code));
            const uint32_t lo = m_disk.Block(m_random);
            const uint32_t hi = m_disk.Block(m_random);
            Result(m_part.BinSearchStartBlock(lo, hi, time, 0), "BinSearchStartBlock(%u, %u, %u)", lo, hi,
                   time);
        }
        auto space = Blank<DiskSpaceInfo_t>();
        Result(m_part.GetSpace(&space), "GetSpace");
        Show(space);
    }

    void CallWalks() {
        const int count = m_disk.small ? 40 : 3;
        for (int i = 0; i < count; ++i) {
            SearchParam_t param = {m_random.Of(kAlarmMasks), m_disk.Time(m_random), m_disk.Time(m_random),
                                   m_random.Of(kSearchChannels)};
            const uint32_t skip = m_random.Of(kSkipMasks);
            Note("from %u to %u channel %u mask %llx skip %x", param.startTime, param.endTime, param.chn,
                 static_cast<unsigned long long>(param.alarmMask), skip);
            Result(m_part.SearchMedia(&param, skip, &m_records), "SearchMedia");
            Show(m_records);
            Result(m_part.SearchEvent(&param, &m_events), "SearchEvent");
            Show(m_events);
            const uint32_t code = m_random.Below(6) - 1;
            Result(m_part.SearchNormalMedia(param.startTime, param.endTime, param.chn, skip,
                                            static_cast<long long>(param.alarmMask), code, &m_records),
                   "SearchNormalMedia(%d)", static_cast<int>(code));
            Show(m_records);
            Result(m_part.SearchNormalEvent(param.startTime, param.endTime,
                                            static_cast<long long>(param.alarmMask), code, &m_events),
                   "SearchNormalEvent(%d)", static_cast<int>(code));
            Show(m_events);
        }
        for (const uint32_t block : m_disk.blocks) {
            const uint32_t skip = m_random.Of(kSkipMasks);
            Result(m_part.SearchUnitMedia(block, skip, &m_records, &m_events), "SearchUnitMedia(%u, %x)",
                   block, skip);
            Show(m_records);
            Show(m_events);
        }
    }

    void CallInventory() {
        Result(m_part.GetBadUnitList(&m_units), "GetBadUnitList");
        Show(m_units);
        Result(m_part.GetUnitList(&m_units), "GetUnitList");
        Show(m_units);
        Result(m_part.GetDateMap(&m_days), "GetDateMap");
        Show(m_days);
        const int count = m_disk.small ? 6 : 1;
        for (int i = 0; i < count; ++i) {
            const uint32_t start = m_disk.Time(m_random);
            const uint32_t code = m_random.Below(6) - 1;
            Result(m_part.SearchUnitList(start, 0, code, &m_units), "SearchUnitList(%u, %d)", start,
                   static_cast<int>(code));
            Show(m_units);
            Result(m_part.SearchDataMap(start, 0, code, &m_days), "SearchDataMap(%u, %d)", start,
                   static_cast<int>(code));
            Show(m_days);
        }
        for (int i = 0; i < 10; ++i) {
            UnitTimeItem_t a = {m_disk.Block(m_random), m_disk.Time(m_random), m_disk.Time(m_random)};
            UnitTimeItem_t b = {m_disk.Block(m_random), m_disk.Time(m_random), m_disk.Time(m_random)};
            Result(m_part.BinGetDataMap(&a, &b, &m_days), "BinGetDataMap");
            Show(a);
            Show(b);
            Show(m_days);
        }
        AddDates();
    }

    void AddDates() {
        unsigned int lastDay = 0;
        int count = 0;
        for (int i = 0; i < 12; ++i) {
            BlockHead_t head = {};
            BlockTail_t tail = {};
            head.RecTime = m_disk.Time(m_random);
            head.RecSeq = tail.RecSeq = 5;
            tail.StartTime = head.RecTime;
            tail.EndTime = m_disk.Time(m_random);
            count = m_part.AddDateToList(&head, &tail, &m_days, count, &lastDay);
            Result(count, "AddDateToList(%u, %u, %u)", head.RecTime, tail.EndTime, lastDay);
            Result(m_part.AddUnitToList(i == 0 ? 0 : head.RecTime, &head, &m_units, count), "AddUnitToList");
        }
        Show(m_days);
        Show(m_units);
    }

    const Disk& m_disk;
    Random m_random;
    CSearchPart m_part;
    RecordList m_records;
    EventList m_events;
    UnitList m_units;
    DayList m_days;
};

} // namespace

void CallSearchPart(const Disk& disk, const std::string& seed) {
    SearchPartCalls(disk, seed).Call();
}

} // namespace conformance
