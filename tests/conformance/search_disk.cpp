// CSearchDisk: every member.

#include "conformance/choices.h"
#include "conformance/sections.h"

namespace conformance {

namespace {

class SearchDiskCalls {
public:
    SearchDiskCalls(const Disk& disk, Random& random) : m_disk(disk), m_random(random) {}

    void Open() {
        PartAccess_t access = m_disk.access;
        Result(m_search.Init(&access), "Init");
        Result(m_search.Init(&access), "Init again");
    }

    void Search() {
        SearchParam_t param = {m_random.Of(kAlarmMasks), m_disk.Time(m_random), m_disk.Time(m_random),
                               m_random.Of(kSearchChannels)};
        Note("from %u to %u channel %u mask %llx", param.startTime, param.endTime, param.chn,
             static_cast<unsigned long long>(param.alarmMask));
        Result(m_search.SearchMedia(&param, &m_records), "SearchMedia");
        Show(m_records);
        Result(m_search.SearchEvent(&param, &m_events), "SearchEvent");
        Show(m_events);
        Result(m_search.MixSearch(&param, &m_records), "MixSearch");
        Show(m_records);
    }

    void SearchUnit(uint32_t block) {
        Result(m_search.SearchUnitMedia(block, &m_records, &m_events), "SearchUnitMedia(%u)", block);
        Show(m_records);
        Show(m_events);
        Result(m_search.MixSearchUnit(block, &m_records, &m_events), "MixSearchUnit(%u)", block);
        Show(m_records);
        Show(m_events);
        for (const int what : {0, 1, -1}) {
            Result(m_search.GetBlockRecMap(block, what), "GetBlockRecMap(%u, %d)", block, what);
        }
    }

    void Inventory() {
        UnitList units;
        DayList days;
        auto space = Blank<DiskSpaceInfo_t>();
        Result(m_search.GetUnitInfo(&units), "GetUnitInfo");
        Show(units);
        Result(m_search.GetInvalidUnit(&units), "GetInvalidUnit");
        Show(units);
        Result(m_search.GetDateInfo(&days), "GetDateInfo");
        Show(days);
        Result(m_search.GetSpaceInfo(&space), "GetSpaceInfo");
        Show(space);
        Result(m_search.GetLastRecBlockId(), "GetLastRecBlockId");
    }

    void Unlock(const char* password) {
        unsigned int mode = 0xA5A5A5A5;
        std::vector<unsigned char> text(password, password + std::strlen(password) + 1);
        Result(m_search.CheckEncryptInfo(text.data()), "CheckEncryptInfo(%s)", password);
        Result(m_search.GetEncryptInfo(&mode), "GetEncryptInfo");
        Show(mode);
    }

    /// Cuts records that no disk holds.
    void CutMadeUpRecords() {
        for (uint32_t count = m_random.Below(6); count > 0; --count) {
            RecordItem_t record = {};
            record.chn = m_random.Of(kSearchChannels);
            record.recId = m_disk.RecordId(m_random, record.chn, 3);
            record.startTime = m_disk.Time(m_random);
            record.endTime = m_disk.Time(m_random);
            record.size = m_random.Word();
            record.flag = m_random.Below(3);
            m_records.AddTail(record);
        }
        for (uint32_t count = m_random.Below(6); count > 0; --count) {
            const uint64_t type = m_random.TwoWords();
            const uint32_t id = m_disk.RecordId(m_random, 0, 5);
            m_events.AddTail({type, id, m_disk.Time(m_random)});
        }
        SearchParam_t param = {m_random.Of(kAlarmMasks), 0, 0, 0};
        RecordList cut;
        Result(m_search.MixBuildList(&m_records, &m_events, &param, &cut), "MixBuildList(%llx)",
               static_cast<unsigned long long>(param.alarmMask));
        Show(cut);
        Show(m_records);
        Show(m_events);
    }

    void Close() { Result(m_search.Quit(), "Quit"); }

private:
    const Disk& m_disk;
    Random& m_random;
    CSearchDisk m_search;
    RecordList m_records;
    EventList m_events;
};

} // namespace

void CallSearchDisk(const Disk& disk, const std::string& seed) {
    Random random(seed);
    SearchDiskCalls calls(disk, random);
    calls.Open();
    const int count = disk.small ? 60 : 4;
    for (int i = 0; i < count; ++i) {
        calls.Search();
    }
    calls.Inventory();
    for (const char* const password : {"wrong", "secret", ""}) {
        calls.Unlock(password);
        calls.Search();
        for (const uint32_t block : disk.blocks) {
            calls.SearchUnit(block);
        }
    }
    for (int i = 0; i < 60; ++i) {
        calls.CutMadeUpRecords();
    }
    calls.Close();
}

void SearchDamaged(const Disk& disk, Random& random) {
    SearchDiskCalls calls(disk, random);
    calls.Open();
    for (int i = 0; i < 3; ++i) {
        calls.Search();
        calls.SearchUnit(disk.Block(random));
    }
    calls.Inventory();
    calls.Close();
}

} // namespace conformance
